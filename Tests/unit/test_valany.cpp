// The value holder: conversions, borrowed text, owned objects.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <tuple>
#include <type_traits>

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

}  // namespace

// Each tag's conversions to double and int at the exact range boundaries (empty optional: throws).
TEST(ValAnyTest, GetRangeRules)
{
    const struct { ValAny v; uint32_t tag; std::optional<double> d; std::optional<int> i; } rows[] = {
        {ValAny(), 0, {}, {}}, {ValAny(true), 1, {}, {}}, {ValAny(-3), 2, -3.0, -3}, {ValAny("x"), 8, {}, {}},
        {ValAny(uint32_t{2147483647u}), 3, 2147483647.0, 2147483647}, {ValAny(1.5f), 6, 1.5, {}},
        {ValAny(uint32_t{2147483648u}), 3, 0x1p31, {}}, {ValAny(int64_t{2147483648LL}), 4, 0x1p31, {}},
        {ValAny(int64_t{INT32_MIN}), 4, INT32_MIN, INT32_MIN},
        {ValAny(int64_t{INT32_MIN} - 1), 4, -0x1p31 - 1, {}},
        {ValAny(uint64_t{INT32_MAX}), 5, INT32_MAX, INT32_MAX},
        {ValAny(uint64_t{0x80000000u}), 5, 0x1p31, {}},
        {ValAny(UINT64_MAX), 5, 1.8446744073709552e19, {}}, {ValAny(1.0), 7, 1.0, {}},
    };
    for (const auto& [v, tag, d, i] : rows) {
        SCOPED_TRACE(tag);
        EXPECT_EQ(v.GetTypeTag(), tag);
        if (d) { EXPECT_EQ(v.Get<double>(), *d); } else { EXPECT_THROW(v.Get<double>(), core::AnyBadAccess); }
        if (i) { EXPECT_EQ(v.Get<int>(), *i); } else { EXPECT_THROW(v.Get<int>(), core::AnyBadAccess); }
    }
}

// Text is borrowed: a copy holds the very same pointer. The holder crosses the module boundary by value.
TEST(ValAnyTest, LayoutTextAndError)
{
    static_assert(sizeof(ValAny) == 16 && std::is_base_of_v<std::logic_error, core::AnyBadAccess>);
    EXPECT_STREQ(core::AnyBadAccess().what(), "ValAny Bad Access");
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
        ValAny a(new Counted, 300), c(new Counted, ValAny::kObject);
        ValAny b(a);
        EXPECT_EQ(std::make_tuple(Counts(), b.GetTypeTag()), std::make_tuple(std::make_pair(3, 1), 300u));
        c = a;
        EXPECT_EQ(Counts(), std::make_pair(3, 2));
        const ValAny& self = a;
        a = self;
        EXPECT_EQ(Counts(), std::make_pair(3, 2));
    }
    EXPECT_EQ(Counts(), std::make_pair(0, 2));
}

TEST(ValAnyDeathTest, CopyingNonCopyableObjectDies)
{
    ValAny a(new Counted(false), ValAny::kObject);
    EXPECT_DEATH({ ValAny b(a); }, "Fatal check failed: \\(other\\.pobj->Copyable\\(\\)\\), function Copy");
}
