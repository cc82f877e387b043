/// @file
/// Arithmetic of one curve segment: a cubic Hermite polynomial in normalised
/// time s, 0 at a key and 1 at the next. Stateless, allocation-free, safe from
/// any thread. Exported with these exact parameter lists: hosts resolve them
/// by their mangled names.
///
/// The module's own evaluation paths use the same arithmetic through
/// SegmentMath.h.
///
/// A segment is given by its two keys in this order: tcur, vcur, the first
/// key's right derivative, the second key's left derivative, tnext, vnext
/// (derivatives in value units per unit of time), then the two kinds.
/// interp == eKeyframeTypeNone means there is no key before the segment (the
/// curve's first key stands in the "next" slots); interpNext ==
/// eKeyframeTypeNone means there is none after it (the last key stands in the
/// "cur" slots). A constant interp holds vcur over the whole segment.
///
/// In every polynomial a term whose coefficient is exactly 0.0 contributes
/// exactly 0.0, so an infinite or NaN time does not poison it.
#pragma once

#include "keyframe_types.h"
#include "qmx_export.h"
#include "val_any.h"

namespace Interpolation {

/// c0 + c1 t + c2 t^2 + c3 t^3.
QMX_EXPORT double cubicEval(double c0, double c1, double c2, double c3, double t);

/// Power-basis coefficients of the Hermite data on [0, 1]: start value p0,
/// start slope m0, end slope m1, end value p1 (both slopes between the values).
QMX_EXPORT void hermiteToCubicCoeffs(double p0, double m0, double m1, double p1,
                                     double* c0, double* c1, double* c2, double* c3);

/// Integral of c0 + c1 t + c2 t^2 + c3 t^3 from 0 to t.
QMX_EXPORT double cubicIntegrate(double c0, double c1, double c2, double c3, double t);

/// Value of the segment at `time`. Times outside the segment extrapolate the
/// cubic (no clamping); a missing neighbour turns the segment into the straight
/// line through the existing key with that key's slope. Values that are not
/// numbers read as 0.0, booleans as 1.0 or 0.0.
QMX_EXPORT double interpolate(double tcur, core::ValAny vcur, double vcurDerivRight,
                              double vnextDerivLeft, double tnext, core::ValAny vnext, double time,
                              core::KeyframeInterpolationType interp,
                              core::KeyframeInterpolationType interpNext);

/// Integral of the segment's value over real time from time1 to time2.
/// Fatal unless tcur <= time1 <= time2 <= tnext (a missing neighbour lifts
/// its bound); a NaN time fails the check.
QMX_EXPORT double integrate(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft,
                            double tnext, double vnext, double time1, double time2,
                            core::KeyframeInterpolationType interp,
                            core::KeyframeInterpolationType interpNext);

/// New left and right derivatives of a key from its neighbours and the kinds
/// involved. A missing neighbour is passed with kind eKeyframeTypeNone (its
/// time and value are then ignored); a curve's end keys are passed as linear
/// neighbours. Throws std::runtime_error for a key of kind eKeyframeTypeNone
/// between two neighbours; writes nothing then.
QMX_EXPORT void autoComputeDerivatives(core::KeyframeInterpolationType interpPrev,
                                       core::KeyframeInterpolationType interp,
                                       core::KeyframeInterpolationType interpNext, double tPrev,
                                       core::ValAny vPrev, double tCur, core::ValAny vCur,
                                       double tNext, core::ValAny vNext, double vPrevDerivRight,
                                       double vNextDerivLeft, double* left, double* right);

/// Position in the segment, in normalised units, where the running integral of
/// its value (with the cubic term left out) reaches `value`: the first root of
/// the cubic, neither limited to [0, 1] nor converted to a time. Without a real
/// root it returns `value` itself. Fatal when the cubic has a NaN coefficient.
QMX_EXPORT double solve(double tcur, double vcur, double vcurDerivRight, double vnextDerivLeft,
                        double tnext, double vnext, double value,
                        core::KeyframeInterpolationType interp,
                        core::KeyframeInterpolationType interpNext);

/// Real roots of c0 + c1 x + c2 x^2 + c3 x^3 = 0, written to roots[0..count-1];
/// returns the count (0 to 3). Coefficients within 1e-9 of zero count as zero.
/// Order: the larger quadratic root first; of three roots the largest first;
/// of a double root, the simple root first. Fatal on a NaN coefficient.
QMX_EXPORT int solveCubic(double c0, double c1, double c2, double c3, double roots[3]);

}  // namespace Interpolation
