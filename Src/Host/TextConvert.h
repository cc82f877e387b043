// UTF-8 / UTF-32 conversion shared by the runtime's text functions and logger.
#pragma once

#include <string>

namespace qmxhost {

// Appends the UTF-8 form of `ch` (U+FFFD for a surrogate or out-of-range unit).
void AppendUtf8(std::string& out, wchar_t ch);

}  // namespace qmxhost
