// Why a curve's stored text is not one the module reads back whole: the key
// and field at fault, in words a user can act on.
#pragma once

#include <string>

namespace qmxkf {

// `text` is a property's stored curve text and `rewritten` what the module
// writes for the curve it reads from it; they differ. Returns what is wrong,
// without the property's name (for example "the tangent at key 1 overflows;
// keys this close cannot hold values this far apart").
std::string DescribeUnreadable(const std::string& text, const std::string& rewritten);

}  // namespace qmxkf
