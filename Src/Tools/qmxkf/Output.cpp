#include "Output.h"

#include <algorithm>
#include <charconv>

namespace qmxkf {

std::string Number(double value)
{
    char buffer[32];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, static_cast<size_t>(result.ptr - buffer));
}

std::string Rounded(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6g", value == 0.0 ? 0.0 : value);
    return buffer;
}

Table::Table(std::vector<std::string> header)
{
    m_rows.push_back(std::move(header));
}

void Table::Add(std::vector<std::string> row)
{
    m_rows.push_back(std::move(row));
}

void Table::Print(std::FILE* out) const
{
    std::vector<size_t> widths(m_rows.front().size(), 0);
    for (const auto& row : m_rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    std::string line;
    for (const auto& row : m_rows) {
        line.clear();
        for (size_t i = 0; i < row.size(); ++i) {
            if (i > 0)
                line += "  ";
            line.append(widths[i] - row[i].size(), ' ');
            line += row[i];
        }
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), out);
    }
}

}  // namespace qmxkf
