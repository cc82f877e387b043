// The curve text through the JsonCpp document that defines it: the reference
// that the canonical writer must match byte for byte, and the reader of every
// text that is not in the canonical form.
#pragma once

#include <string>

#include "CurveCodec.h"

namespace core {

// The text as Json::FastWriter writes the curve's document. Same result and
// same exceptions as WriteCurveText.
std::string WriteCurveTextWithLibrary(const CurveTextHeader& header, const KeyStore& keys);

// Parses any JSON text into `out` (whose keys must be empty): the type from
// "ParamType"; for the types with persisted values the range (a missing end
// reads as zero or false) and the keys of "nodes". Text that does not parse
// gives false, `out` emptied and the parser's first complaint as one line
// ("line L, column C: message") in `error`. A document of unexpected JSON
// types throws the library's exception, with `out` left part filled.
bool ReadCurveTextWithLibrary(const char* text, CurveTextContent& out, std::string& error);

}  // namespace core
