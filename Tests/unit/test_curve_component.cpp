// The curve's component face: creation, queries and counts, destruction, aggregation.
#include <gtest/gtest.h>

#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "keyframe_process.h"

namespace {

using core::IKeyFrame;

// A key value object counting its live instances: shows when the curve holding it is destroyed.
struct Tracker : core::ValAnyObject {
    static inline int live = 0;
    Tracker() { ++live; }
    ~Tracker() override { --live; }
    bool Copyable() const override { return true; }
    ValAnyObject* Clone() const override { return new Tracker; }
};

void AddTrackedKey(IKeyFrame* kf) { kf->AddPoint(9, core::ValAny(new Tracker, core::ValAny::kObject), {}); }
uint32_t Count(IUnknown* p) { p->AddRef(); return p->Release(); }

// Aggregates a curve: holds its non-delegating face and answers IID_IQMXKeyFrameKV with it.
struct Outer final : IUnknown {
    int32_t count = 1;
    scombase::CUnknown* inner = CreateKeyFrameKVInstance(this, nullptr);
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        return iid == IID_IUnknown ? scombase::GetInterface(this, ppv)
                                   : inner->NonDelegatingQueryInterface(iid, ppv);
    }
    uint32_t AddRef() override { return ++count; }
    uint32_t Release() override { return --count; }
};

}  // namespace

// Creation (count 1), the count after each query and release, and destruction (of the
// curve and its keys) by the last Release through IKeyFrame.
TEST(CurveComponentTest, CreateQueryRelease)
{
    auto* curve = static_cast<core::Parameter*>(CreateKeyFrameKVInstance(nullptr, nullptr));
    EXPECT_EQ(Count(curve), 1u);
    void* pv = nullptr;
    ASSERT_EQ(curve->NonDelegatingQueryInterface(IID_IQMXKeyFrameKV, &pv), S_OK);
    IKeyFrame* kf = static_cast<IKeyFrame*>(pv);
    EXPECT_EQ(kf, static_cast<IKeyFrame*>(curve));
    EXPECT_EQ(Count(kf), 2u);
    ASSERT_EQ(kf->QueryInterface(IID_IUnknown, &pv), S_OK);  // forwarded: the non-delegating face
    EXPECT_EQ(pv, static_cast<scombase::INonDelegatingUnknown*>(curve));
    IUnknown* unk = static_cast<IUnknown*>(pv);
    EXPECT_EQ(Count(kf), 3u);
    EXPECT_TRUE(scombase::IsEqualObject(kf, unk));  // two faces of one object, compared through queries
    pv = &pv;
    EXPECT_EQ(kf->QueryInterface(IID_IQMXKeyFrame, &pv), HRESULT(0x80000004u));  // E_NOINTERFACE
    EXPECT_EQ(pv, nullptr);
    EXPECT_EQ(kf->QueryInterface(IID_IQMXKeyFrameKV, nullptr), HRESULT(0x80000005u));  // E_POINTER
    EXPECT_EQ(Count(kf), 3u);
    EXPECT_EQ(unk->Release(), 2u);
    EXPECT_EQ(kf->Release(), 1u);
    AddTrackedKey(kf);
    EXPECT_EQ(Tracker::live, 1);
    EXPECT_EQ(kf->Release(), 0u);
    EXPECT_EQ(Tracker::live, 0);
}

// Aggregated: public counts move the outer's count, the inner keeps its own one reference and its
// release destroys it and its keys. (Faces answering for the outer: the module factory tests.)
TEST(CurveComponentTest, Aggregation)
{
    Outer outer;
    auto* inner = static_cast<core::Parameter*>(outer.inner);
    EXPECT_EQ(inner->GetOwner(), &outer);
    void* pv = nullptr;
    ASSERT_EQ(outer.QueryInterface(IID_IQMXKeyFrameKV, &pv), S_OK);
    IKeyFrame* kf = static_cast<IKeyFrame*>(pv);
    EXPECT_EQ(kf, static_cast<IKeyFrame*>(inner));
    EXPECT_EQ(outer.count, 2);
    EXPECT_EQ(kf->AddRef(), 3u);
    EXPECT_EQ(kf->Release(), 2u);
    ASSERT_EQ(kf->QueryInterface(IID_IUnknown, &pv), S_OK);  // answered by the outer
    EXPECT_EQ(pv, static_cast<IUnknown*>(&outer));
    ASSERT_EQ(inner->NonDelegatingQueryInterface(IID_IUnknown, &pv), S_OK);  // the inner's own face
    EXPECT_EQ(pv, static_cast<scombase::INonDelegatingUnknown*>(inner));
    EXPECT_EQ(inner->NonDelegatingRelease(), 1u);
    AddTrackedKey(kf);
    EXPECT_EQ(kf->Release(), 2u);
    EXPECT_EQ(Tracker::live, 1);
    EXPECT_EQ(inner->NonDelegatingRelease(), 0u);
    EXPECT_EQ(Tracker::live, 0);
}
