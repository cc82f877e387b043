// A keyframe track for tests: made through the host runtime with both of its interfaces, keys as whole
// records.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"
#include "TrackProperties.h"
#include "keyframe_process.h"

namespace testing_support {

// A new track and its storage face; going, it checks that its releases are the last ones.
struct Track {
    IQMXKeyFrame* keys = nullptr;
    IQMXStorage* store = nullptr;
    Track()
    {
        EXPECT_EQ(QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame,
                                          reinterpret_cast<void**>(&keys)), S_OK);
        EXPECT_EQ(keys->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&store)), S_OK);
    }
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;
    ~Track() { EXPECT_EQ(store->Release(), 1u); EXPECT_EQ(keys->Release(), 0u); }
    IQMXKeyFrame* operator->() const { return keys; }
};

// A whole record at time x: property key k holds b + k + 1 (angle 1, position X 2, position Y 3, opacity 4,
// scale X 5, scale Y 6). Linear keys keep these offsets, so a sample or a key mixing records shows.
inline KeyFrameParam Rec(double x, double b) { return {x, b + 1, b + 2, b + 3, b + 5, b + 6, b + 4}; }
inline bool IsWhole(const KeyFrameParam& p, double tolerance = 0.0)
{
    const double a = p.dAngle;
    for (double d : {p.dPositionX - a - 1, p.dPositionY - a - 2, p.dOpacity - a - 3, p.dScaleX - a - 4,
                     p.dScaleY - a - 5})
        if (!(std::fabs(d) <= tolerance)) return false;
    return true;
}

using Fields = std::vector<double>;  // a record's fields in declaration order
using Keys = std::vector<Fields>;
inline Fields F(const KeyFrameParam& p) { Fields f(7); std::memcpy(f.data(), &p, sizeof p); return f; }
inline void Add(IQMXKeyFrame* t, std::initializer_list<double> xs)  // keys Rec(x, 10 x)
{
    for (double x : xs) {
        KeyFrameParam p = Rec(x, 10 * x);
        EXPECT_TRUE(t->AddKeyFrame(p)) << x;
    }
}
inline Keys All(IQMXKeyFrame* t)  // every key in index order
{
    Keys keys;
    for (KeyFrameParam p{}; static_cast<int>(keys.size()) < t->GetKeyFrameCount(); keys.push_back(F(p)))
        EXPECT_TRUE(t->GetKeyFrame(static_cast<int>(keys.size()), p));
    return keys;
}

}  // namespace testing_support
