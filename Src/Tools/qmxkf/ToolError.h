// A failure the tool reports as one line on standard error.
#pragma once

#include <stdexcept>
#include <string>

namespace qmxkf {

struct ToolError : std::runtime_error {
    explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace qmxkf
