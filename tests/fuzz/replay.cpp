// Runs a fuzz target over the files that are named: without libFuzzer, with any compiler.
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

int main(int argumentCount, char** arguments) {
    for (int i = 1; i < argumentCount; ++i) {
        std::ifstream file(arguments[i], std::ios::binary);
        Require(file.good(), arguments[i]);
        const std::vector<char> bytes{std::istreambuf_iterator(file), {}};
        printf("%s\n", arguments[i]);
        fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return argumentCount > 1 ? 0 : 2;
}
