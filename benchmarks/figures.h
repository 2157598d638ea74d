// What a benchmark found, as rows of tables: printed for people and, if the environment names a file in TESSEL_FIGURES,
// appended there as one line of JSON each, from which benchmarks/run writes the performance report.
#pragma once

#include <string>
#include <vector>

struct FigureColumn {
    const char* name;  // with its unit: "ours ms/frame"
    double value;
};

// Columns stand in the order of a table's first row. Ends the program with an error when the file cannot be written.
void ReportRow(const std::string& table, const std::string& row, const std::vector<FigureColumn>& columns);

double Median(std::vector<double> values);                 // 0 for none
double Quantile(std::vector<double> values, double share);  // share 0 to 1: 0.99 is the 99th percentile
