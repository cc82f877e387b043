/// @file
/// Enumerations shared by curves, tracks and hosts. Values are persisted and
/// passed across the binary interface: they never change.
#pragma once

#include <cstdint>

namespace core {

enum KeyframeInterpolationType : int32_t {
    eKeyframeTypeConstant = 0,       ///< the segment after the key holds its value
    eKeyframeTypeLinear = 1,         ///< chord tangents; curve ends act as linear
    eKeyframeTypeSmoothClamped = 2,  ///< smooth, limited so segments do not overshoot
    eKeyframeTypeSmooth = 3,         ///< smooth (chord of the two neighbours)
    eKeyframeTypeSpline = 4,         ///< continuous second derivative
    eKeyframeTypeFlat = 5,           ///< both tangents 0
    eKeyframeTypeFree = 6,           ///< user tangents; never recomputed
    eKeyframeTypeNone = 7,           ///< no key / no neighbour
};

enum ParameterTypeEnum : int32_t {
    eParameterTypeDouble = 0,
    eParameterTypeInt = 1,
    eParameterTypeBool = 2,
    eParameterTypeString = 3,
};

static_assert(sizeof(KeyframeInterpolationType) == 4, "32-bit enumeration");
static_assert(sizeof(ParameterTypeEnum) == 4, "32-bit enumeration");

}  // namespace core
