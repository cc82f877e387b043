#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "ToolError.h"

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

void Write(std::FILE* out, const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), out) != text.size() || std::ferror(out))
        throw ToolError(std::string("cannot write the output: ") + std::strerror(errno));
}

Table::Table(std::FILE* out, std::vector<std::string> header) : m_out(out), m_widths(header.size(), 0)
{
    m_held.push_back(std::move(header));
}

void Table::Add(std::vector<std::string> row)
{
    if (m_held.empty()) {
        Print(row);
        return;
    }
    m_held.push_back(std::move(row));
    if (m_held.size() > kHeldRows)
        Finish();
}

void Table::Finish()
{
    for (const auto& row : m_held)
        for (size_t i = 0; i < row.size(); ++i)
            m_widths[i] = std::max(m_widths[i], row[i].size());
    for (const auto& row : m_held)
        Print(row);
    m_held.clear();
    m_held.shrink_to_fit();
}

void Table::Print(const std::vector<std::string>& row)
{
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
        if (i > 0)
            line += "  ";
        line.append(m_widths[i] - std::min(m_widths[i], row[i].size()), ' ');
        line += row[i];
    }
    line += '\n';
    Write(m_out, line);
}

}  // namespace qmxkf
