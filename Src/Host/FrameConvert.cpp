// Conversions between key positions in seconds and frame numbers.
#include <climits>
#include <cmath>

#include "QMXCommon.h"

namespace QMXCommon {
namespace KeyFrame {

namespace {

int EffectiveRate(int nRate)
{
    return nRate > 0 ? nRate : 1;
}

}  // namespace

int CaculateKeyFrameIndex(double position, int nRate)
{
    const double frame = std::round(position * EffectiveRate(nRate));
    if (std::isnan(frame))
        return 0;
    if (frame >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (frame <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(frame);
}

std::pair<int64_t, int64_t> CaculateKeyFramePosition(int nFrameIndex, int nRate)
{
    return {nFrameIndex, EffectiveRate(nRate)};
}

}  // namespace KeyFrame
}  // namespace QMXCommon
