/// @file
/// What the host runtime (libQMXHost.so) provides to modules: the standard
/// identifiers, atomic counts, object creation by class id, text and frame
/// conversions. The module uses these and never defines them.
#pragma once

#include <cstdint>
#include <utility>

#include "qmx_export.h"
#include "qmx_unknown.h"

static_assert(sizeof(wchar_t) == 4, "wide strings are 32-bit units");

QMX_EXPORT extern const _GUID IID_IUnknown;       ///< {00000000-0000-0000-C000-000000000046}
QMX_EXPORT extern const _GUID IID_IClassFactory;  ///< {00000001-0000-0000-C000-000000000046}

extern "C" {
/// Atomic increment and decrement of a signed 32-bit count; return the new value.
///@{
QMX_EXPORT int32_t InterlockedIncrement(volatile int32_t* p);
QMX_EXPORT int32_t InterlockedDecrement(volatile int32_t* p);
///@}
}

namespace QMXCommon {

/// Creates an object of class `clsid` and stores the interface `iid` of it,
/// with one reference that the caller owns, in `*ppv`.
/// CLASS_E_CLASSNOTAVAILABLE for a class no loaded module serves. Modules are
/// found among the objects loaded into the process (linked or dlopen'ed) and
/// those loaded with QMXLoadModule; `flags` is ignored.
QMX_EXPORT HRESULT GetInterface(const _GUID& clsid, IUnknown* pOuter, unsigned int flags,
                                const _GUID& iid, void** ppv);

/// UTF-8 to UTF-32 and back, into a caller's buffer of `targetLength` units.
/// Never writes past `targetLength`; the result is zero-terminated whenever
/// `targetLength` > 0 (a text that does not fit is cut at a character boundary).
/// Returns the number of units written before the terminator, or -1 for a
/// null argument or a length of 0 or less.
///@{
QMX_EXPORT int Char2WChar(const char* source, wchar_t* target, int targetLength);
QMX_EXPORT int WChar2Char(const wchar_t* source, char* target, int targetLength);
///@}

namespace KeyFrame {

/// Frame of a position in seconds at `nRate` frames per second: the nearest
/// frame, halves away from zero, saturated to the int range (NaN gives 0).
/// A rate of 0 or less counts as 1 frame per second.
QMX_EXPORT int CaculateKeyFrameIndex(double position, int nRate);

/// Exact position of a frame in seconds as numerator and denominator (f, rate);
/// a rate of 0 or less counts as 1, so the denominator is always positive.
QMX_EXPORT std::pair<int64_t, int64_t> CaculateKeyFramePosition(int nFrameIndex, int nRate);

}  // namespace KeyFrame
}  // namespace QMXCommon

// The stand-in runtime's own entry points (module loading, reference-count
// totals), declared apart; included here for host programs that include
// only this header.
#include "QMXRuntime.h"
