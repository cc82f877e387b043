// A conformance check of a build of the keyframe module against the host
// contract: one PASS or FAIL line per check.
#pragma once

#include <string>

namespace qmxkf {

// Checks the module at `path`; returns the number of failed checks.
int CommandValidate(const std::string& path);

}  // namespace qmxkf
