#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "TimeValuePair.h"

using core::ValAny;

namespace {

// Owned test object counting live instances and clones.
struct Counted : core::ValAnyObject {
    static inline int live = 0, clones = 0;
    bool copyable;
    explicit Counted(bool c = true) : copyable(c) { ++live; }
    ~Counted() override { --live; }
    bool Copyable() const override { return copyable; }
    core::ValAnyObject* Clone() const override { ++clones; return new Counted(copyable); }
};
std::pair<int, int> Counts() { return {Counted::live, Counted::clones}; }

// time, value tag, value as double, interpolation, left and right derivative
using Fields = std::tuple<double, uint32_t, double, int, double, double>;
Fields FieldsOf(const core::TimeValuePair& k)
{
    return {k.GetTime(), k.GetValue().GetTypeTag(), k.GetValue().Get<double>(), k.GetInterpolation(),
            k.GetLeftDerivative(), k.GetRightDerivative()};
}

}  // namespace

// Each tag's conversions to double and int at the exact range boundaries (empty optional: throws).
TEST(ValAnyTest, GetRangeRules)
{
    const struct { ValAny v; uint32_t tag; std::optional<double> d; std::optional<int> i; } rows[] = {
        {ValAny(), 0, {}, {}}, {ValAny(true), 1, {}, {}}, {ValAny(-3), 2, -3.0, -3},
        {ValAny(uint32_t{2147483647u}), 3, 2147483647.0, 2147483647},
        {ValAny(uint32_t{2147483648u}), 3, 2147483648.0, {}},
        {ValAny(int64_t{-2147483648LL}), 4, -2147483648.0, INT32_MIN},
        {ValAny(int64_t{-2147483649LL}), 4, -2147483649.0, {}},
        {ValAny(int64_t{2147483648LL}), 4, 2147483648.0, {}},
        {ValAny(uint64_t{0x7fffffffu}), 5, 2147483647.0, 2147483647},
        {ValAny(uint64_t{0x80000000u}), 5, 2147483648.0, {}},
        {ValAny(UINT64_MAX), 5, 1.8446744073709552e19, {}},
        {ValAny(1.5f), 6, 1.5, {}}, {ValAny(1.0), 7, 1.0, {}}, {ValAny("x"), 8, {}, {}},
    };
    for (const auto& [v, tag, d, i] : rows) {
        EXPECT_EQ(v.GetTypeTag(), tag);
        if (d) EXPECT_EQ(v.Get<double>(), *d) << "tag " << tag;
        else EXPECT_THROW(v.Get<double>(), core::AnyBadAccess) << "tag " << tag;
        if (i) EXPECT_EQ(v.Get<int>(), *i) << "tag " << tag;
        else EXPECT_THROW(v.Get<int>(), core::AnyBadAccess) << "tag " << tag;
    }
}

TEST(ValAnyTest, LayoutEnumsTextAndError)
{
    EXPECT_EQ(sizeof(ValAny), 16u);
    EXPECT_EQ(std::vector<int>({core::eKeyframeTypeConstant, core::eKeyframeTypeLinear,
                                core::eKeyframeTypeSmoothClamped, core::eKeyframeTypeSmooth,
                                core::eKeyframeTypeSpline, core::eKeyframeTypeFlat,
                                core::eKeyframeTypeFree, core::eKeyframeTypeNone}),
              std::vector<int>({0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(std::vector<int>({core::eParameterTypeDouble, core::eParameterTypeInt,
                                core::eParameterTypeBool, core::eParameterTypeString}),
              std::vector<int>({0, 1, 2, 3}));
    static_assert(std::is_base_of_v<std::logic_error, core::AnyBadAccess>);
    EXPECT_STREQ(core::AnyBadAccess().what(), "ValAny Bad Access");
    // Text is borrowed: a copy holds the very same pointer.
    const char* text = "curve";
    ValAny a(text), b(a), c;
    c = b;
    EXPECT_EQ(c.Get<const char*>(), text);
}

// Copy clones, assignment frees the old object, self-assignment does nothing.
TEST(ValAnyTest, ObjectOwnership)
{
    Counted::live = Counted::clones = 0;
    {
        ValAny a(new Counted, 300);
        EXPECT_EQ(Counts(), std::make_pair(1, 0));
        ValAny b(a);
        EXPECT_EQ(Counts(), std::make_pair(2, 1));
        EXPECT_EQ(b.GetTypeTag(), 300u);
        ValAny c(new Counted, ValAny::kObject);
        EXPECT_EQ(Counts(), std::make_pair(3, 1));
        c = a;
        EXPECT_EQ(Counts(), std::make_pair(3, 2));
        const core::ValAnyObject* held = a.GetObject();
        const ValAny& self = a;
        a = self;
        EXPECT_EQ(a.GetObject(), held);
        EXPECT_EQ(Counts(), std::make_pair(3, 2));
    }
    EXPECT_EQ(Counts(), std::make_pair(0, 2));
}

TEST(ValAnyDeathTest, CopyingNonCopyableObjectDies)
{
    ValAny a(new Counted(false), ValAny::kObject);
    EXPECT_DEATH({ ValAny b(a); }, "Fatal check failed: \\(other\\.pobj->Copyable\\(\\)\\), function Copy");
}

TEST(TimeValuePairTest, ConstructorsAndSetters)
{
    using core::TimeValuePair;
    EXPECT_EQ(FieldsOf(TimeValuePair()), Fields(0.0, 2, 0.0, 7, 0.0, 0.0));
    EXPECT_EQ(FieldsOf(TimeValuePair(1.5, ValAny(2.5), core::eKeyframeTypeFlat)), Fields(1.5, 7, 2.5, 5, 0.0, 0.0));
    TimeValuePair k(1.0, ValAny(2.0), core::eKeyframeTypeLinear, 3.0, 4.0);
    EXPECT_EQ(FieldsOf(TimeValuePair(k)), Fields(1.0, 7, 2.0, 1, 3.0, 4.0));
    // Each setter changes only its own field.
    k.SetTime(5.0);
    EXPECT_EQ(FieldsOf(k), Fields(5.0, 7, 2.0, 1, 3.0, 4.0));
    k.SetValue(ValAny(6));
    EXPECT_EQ(FieldsOf(k), Fields(5.0, 2, 6.0, 1, 3.0, 4.0));
    k.SetInterpolation(core::eKeyframeTypeSpline);
    EXPECT_EQ(FieldsOf(k), Fields(5.0, 2, 6.0, 4, 3.0, 4.0));
    k.SetLeftDerivative(7.0);
    EXPECT_EQ(FieldsOf(k), Fields(5.0, 2, 6.0, 4, 7.0, 4.0));
    k.SetRightDerivative(8.0);
    EXPECT_EQ(FieldsOf(k), Fields(5.0, 2, 6.0, 4, 7.0, 8.0));
}

// Keys are ordered by time alone, so a set refuses a second key at an equal time.
TEST(TimeValuePairTest, CompareTimeOrdersByTimeOnly)
{
    std::set<core::TimeValuePair, core::TimeValuePair_compare_time> keys;
    EXPECT_TRUE(keys.insert({1.0, ValAny(10.0), core::eKeyframeTypeLinear}).second);
    EXPECT_FALSE(keys.insert({1.0, ValAny(20.0), core::eKeyframeTypeFlat, 1.0, 1.0}).second);
    EXPECT_TRUE(keys.insert({0.5, ValAny(30.0), core::eKeyframeTypeLinear}).second);
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(FieldsOf(*keys.rbegin()), Fields(1.0, 7, 10.0, 1, 0.0, 0.0));
}
