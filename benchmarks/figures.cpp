#include "figures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

static void AppendJson(const char* path, const nlohmann::ordered_json& line) {
    std::ofstream file(path, std::ios::app);
    file << line << std::endl;
    if (file) return;
    perror(path);
    exit(1);
}

void ReportRow(const std::string& table, const std::string& row, const std::vector<FigureColumn>& columns) {
    nlohmann::ordered_json values;
    printf("%s, %s:", table.c_str(), row.c_str());
    for (const FigureColumn& column : columns) {
        printf("  %s %.4g", column.name, column.value);
        values[column.name] = column.value;
    }
    printf("\n");
    fflush(stdout);
    if (const char* const path = getenv("TESSEL_FIGURES"))
        AppendJson(path, {{"table", table}, {"row", row}, {"columns", values}});
}

double Quantile(std::vector<double> values, double share) {
    if (values.empty()) return 0;
    std::ranges::sort(values);
    return values[size_t(double(values.size() - 1) * share + 0.5)];
}

double Median(std::vector<double> values) { return Quantile(std::move(values), 0.5); }
