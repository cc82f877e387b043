// The curve's persisted text over plain data: one JSON object with
// "ParamType", the range ("MinValue", "MaxValue") and "nodes" [time, value,
// kind, left, right], spelled exactly as Json::FastWriter spells the
// document. This file pair is the fast canonical writer and the reader of
// that canonical form; the JsonCpp document that defines the text, and reads
// every other text, is in CurveCodecLibrary.h. Neither knows the curve class:
// they see a type, a range and keys, never tangent upkeep or locking.
#pragma once

#include <string>
#include <string_view>

#include "KeyStore.h"
#include "keyframe_types.h"
#include "val_any.h"

namespace core {

// What a curve's text holds besides its keys.
struct CurveTextHeader {
    ParameterTypeEnum type = eParameterTypeDouble;
    // Written and read only for the types with persisted values.
    ValAny minValue;
    ValAny maxValue;
};

// A text as read: its header and its keys by time. Of two keys at one time
// the first in the text is kept.
struct CurveTextContent {
    CurveTextHeader header;
    KeyStore keys;
};

// Double, int and bool curves write their range and key values; any other
// type writes neither, and reading one gives only its type.
bool HasPersistedValues(ParameterTypeEnum type);

// The canonical text of a curve. Throws AnyBadAccess for a range end or key
// value that is not of the header's type.
std::string WriteCurveText(const CurveTextHeader& header, const KeyStore& keys);

// Reads exactly what WriteCurveText produces, for the types with persisted
// values, into `out` (whose keys must be empty). Any other text, including
// numbers whose meaning under the library could differ (integers where reals
// are written, values out of range, subnormals), gives false, `out` emptied
// and a one-line reason in `error`: such texts are the library's to read.
bool ReadCanonicalCurveText(std::string_view text, CurveTextContent& out, std::string& error);

}  // namespace core
