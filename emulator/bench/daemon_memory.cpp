#include "bench/daemon_memory.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>

#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "system/service_manager.h"

// A record at an offset of the file; zeros beyond its end.
template <typename T>
static T RecordAt(std::string_view file, uint64_t offset) {
    T record{};
    if (offset <= file.size() && sizeof record <= file.size() - offset)
        memcpy(&record, file.data() + offset, sizeof record);
    return record;
}

static std::string_view NameAt(std::string_view file, uint64_t offset) {
    if (offset >= file.size()) return {};
    return file.substr(offset, file.substr(offset).find('\0'));
}

static uint64_t FindSymbol(std::string_view file, const Elf64_Shdr& symbols, const Elf64_Shdr& names,
                           std::string_view name) {
    for (uint64_t at = 0; at + sizeof(Elf64_Sym) <= symbols.sh_size; at += sizeof(Elf64_Sym)) {
        const auto symbol = RecordAt<Elf64_Sym>(file, symbols.sh_offset + at);
        if (ELF64_ST_TYPE(symbol.st_info) == STT_OBJECT && NameAt(file, names.sh_offset + symbol.st_name) == name)
            return symbol.st_value;
    }
    return 0;
}

static uint64_t FindInFile(std::string_view file, std::string_view name) {
    const auto header = RecordAt<Elf64_Ehdr>(file, 0);
    if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) return 0;
    const auto section = [&](uint64_t index) {
        return RecordAt<Elf64_Shdr>(file, header.e_shoff + index * sizeof(Elf64_Shdr));
    };
    for (unsigned index = 0; index < header.e_shnum; ++index) {
        const Elf64_Shdr symbols = section(index);
        if (symbols.sh_type == SHT_SYMTAB) return FindSymbol(file, symbols, section(symbols.sh_link), name);
    }
    return 0;
}

// Mapped, not read: of a program with its debugging data, the symbols are a small part.
uint64_t SymbolOffset(const std::string& program, std::string_view name) {
    const int file = open(program.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    const bool usable = file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
    const size_t size = usable ? size_t(status.st_size) : 0;
    void* mapped = usable ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0) : MAP_FAILED;
    if (file >= 0) close(file);
    if (mapped == MAP_FAILED) return 0;
    const uint64_t offset = FindInFile({static_cast<const char*>(mapped), size}, name);
    munmap(mapped, size);
    return offset;
}

static uint64_t KnownOffset(std::string_view name) {
    static std::map<std::string, uint64_t, std::less<>> offsets;
    auto known = offsets.find(name);
    if (known == offsets.end()) known = offsets.emplace(name, SymbolOffset(Board.daemon, name)).first;
    return known->second;
}

// Where the program starts in its process; 0 while that is still on its way to the daemon.
static uint64_t LoadAddress(pid_t process) {
    static pid_t knownProcess = 0;
    static uint64_t knownAddress = 0;
    if (process == knownProcess) return knownAddress;
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    const std::string program = DaemonPath();
    for (std::string line; std::getline(maps, line);) {
        const std::string path = line.substr(std::min(line.find('/'), line.size()));
        if (path != program && path != Board.daemon) continue;
        knownProcess = process;
        knownAddress = std::stoull(line, nullptr, 16);
        return knownAddress;
    }
    return 0;
}

std::vector<uint8_t> DaemonVariable(std::string_view name, size_t size) {
    const pid_t process = ServiceProcess();
    const uint64_t offset = process != 0 ? KnownOffset(name) : 0, base = offset != 0 ? LoadAddress(process) : 0;
    std::vector<uint8_t> bytes(size);
    if (base == 0 || !TargetMemory{process}.Read(base + offset, bytes.data(), size)) return {};
    return bytes;
}
