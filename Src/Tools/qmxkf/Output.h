// Text output of keys and samples: aligned tables, CSV and JSON, numbers in
// their shortest exact spelling, and writes that fail loudly.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace qmxkf {

// Shortest text that reads back as the same double.
std::string Number(double value);
// Six significant digits, for tables meant to be read.
std::string Rounded(double value);

// Writes `text` to `out`; throws ToolError when it cannot (a full disk, a
// closed file), so that a command never ends well with its output lost.
void Write(std::FILE* out, const std::string& text);

// Rows printed right-aligned under their header as they come, in bounded
// memory: the header and the first rows fix the column widths; a later cell
// that is wider widens its own row only.
class Table {
public:
    Table(std::FILE* out, std::vector<std::string> header);
    void Add(std::vector<std::string> row);
    // Prints the rows still held; call once, after the last row.
    void Finish();

private:
    static constexpr size_t kHeldRows = 1000;
    void Print(const std::vector<std::string>& row);

    std::FILE* m_out;
    std::vector<std::vector<std::string>> m_held;  // until the widths are fixed
    std::vector<size_t> m_widths;
};

}  // namespace qmxkf
