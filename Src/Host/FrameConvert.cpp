// Conversions between key positions in seconds and frame numbers.
#include <cmath>

#include "QMXCommon.h"
#include "qmx_saturate.h"

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
    return qmx::SaturatedInt(std::round(position * EffectiveRate(nRate)));
}

std::pair<int64_t, int64_t> CaculateKeyFramePosition(int nFrameIndex, int nRate)
{
    return {nFrameIndex, EffectiveRate(nRate)};
}

}  // namespace KeyFrame
}  // namespace QMXCommon
