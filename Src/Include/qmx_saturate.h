// A double as an int, truncated toward zero and saturated to the int range;
// NaN gives 0. Used wherever the module and the host runtime turn a computed
// number into an int, so that no conversion is left undefined.
#pragma once

#include <climits>
#include <cmath>

namespace qmx {

inline int SaturatedInt(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (value <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(value);
}

}  // namespace qmx
