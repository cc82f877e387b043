// Text output of keys and samples: aligned tables, CSV and JSON, numbers in
// their shortest exact spelling.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace qmxkf {

// Shortest text that reads back as the same double.
std::string Number(double value);
// Six significant digits, for tables meant to be read.
std::string Rounded(double value);

// Collects rows and prints them right-aligned under their header.
class Table {
public:
    explicit Table(std::vector<std::string> header);
    void Add(std::vector<std::string> row);
    void Print(std::FILE* out) const;

private:
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace qmxkf
