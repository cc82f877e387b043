// UTF-8 / UTF-32 conversion shared by the runtime's text functions, logger
// and file-backed property bag: one decoder and one encoder, so every reader
// of 8-bit text agrees on what is well-formed.
#pragma once

#include <optional>
#include <string>

namespace qmxhost {

// A Unicode scalar value: at most U+10FFFF and not a surrogate.
bool IsScalarValue(char32_t cp);

// Decodes one UTF-8 sequence at `s`, reading no further than `end`. A
// well-formed sequence (no overlong form, surrogate or value past U+10FFFF)
// is consumed whole; anything else consumes one byte and gives no value.
std::optional<char32_t> DecodeUtf8(const unsigned char*& s, const unsigned char* end);

// Appends the UTF-8 form of `ch` (U+FFFD for a surrogate or out-of-range unit).
void AppendUtf8(std::string& out, wchar_t ch);

}  // namespace qmxhost
