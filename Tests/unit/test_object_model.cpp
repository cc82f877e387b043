#include <gtest/gtest.h>

#include <string>

#include "QMXComPtr.h"
#include "QMXCommon.h"
#include "scombase.h"

using scombase::INonDelegatingUnknown;

namespace {

const _GUID IID_ITest = {0x12345678, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};

class ITest : public IUnknown {
public:
    virtual int Value() = 0;
};

// A served class: CUnknown first, its interface second, public calls forwarded to the owner.
class Inner : public scombase::CUnknown, public ITest {
public:
    static inline int destroyed = 0;
    explicit Inner(IUnknown* outer) : CUnknown(outer) {}
    ~Inner() override { ++destroyed; }
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override { return m_pOwner->QueryInterface(iid, ppv); }
    uint32_t AddRef() override { return m_pOwner->AddRef(); }
    uint32_t Release() override { return m_pOwner->Release(); }
    int Value() override { return 42; }
    HRESULT NonDelegatingQueryInterface(const _GUID& iid, void** ppv) override
    {
        if (iid == IID_ITest) return scombase::GetInterface(static_cast<ITest*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(iid, ppv);
    }
    int32_t Count() const { return m_cRefCount; }
    void SetCount(int32_t c) { m_cRefCount = c; }
    INonDelegatingUnknown* Face() { return this; }
    IUnknown* Unknown() { return reinterpret_cast<IUnknown*>(Face()); }
};

// Aggregating object: holds the inner's non-delegating face and exposes its ITest.
class Outer final : public IUnknown {
public:
    static inline int destroyed = 0;
    int32_t count = 1;
    Inner* inner = new Inner(this);
    Outer() { inner->NonDelegatingAddRef(); }
    ~Outer() { ++destroyed; inner->Face()->NonDelegatingRelease(); }
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        return iid == IID_IUnknown ? scombase::GetInterface(this, ppv) : inner->NonDelegatingQueryInterface(iid, ppv);
    }
    uint32_t AddRef() override { return static_cast<uint32_t>(++count); }
    uint32_t Release() override
    {
        if (--count == 0) { delete this; return 0; }
        return static_cast<uint32_t>(count);
    }
};

// Records its AddRef/Release calls ("a+", "a-") and every query ("?", which fails) in a log.
struct Fake : IUnknown {
    char name;
    std::string* log;
    Fake(char n, std::string* l) : name(n), log(l) {}
    HRESULT QueryInterface(const _GUID&, void** ppv) override { *log += '?'; *ppv = nullptr; return E_NOINTERFACE; }
    uint32_t AddRef() override { *log += {name, '+'}; return 1; }
    uint32_t Release() override { *log += {name, '-'}; return 1; }
};

}  // namespace

// Counts after every step of a non-aggregated object's life, and the query results.
TEST(UnknownTest, CountsAndQueries)
{
    Inner::destroyed = 0;
    Inner* obj = new Inner(nullptr);
    EXPECT_EQ(obj->GetOwner(), obj->Unknown());
    EXPECT_EQ(obj->Count(), 0);
    EXPECT_EQ(obj->NonDelegatingAddRef(), 1u);
    EXPECT_EQ(obj->AddRef(), 2u);
    void* p = nullptr;
    EXPECT_EQ(obj->QueryInterface(IID_IUnknown, &p), S_OK);
    EXPECT_EQ(p, obj->Face());
    EXPECT_EQ(obj->Count(), 3);
    EXPECT_EQ(obj->QueryInterface(IID_ITest, &p), S_OK);
    EXPECT_EQ(static_cast<ITest*>(p)->Value(), 42);
    EXPECT_EQ(obj->Count(), 4);
    EXPECT_EQ(obj->QueryInterface(IID_ITest, nullptr), E_POINTER);
    EXPECT_EQ(obj->CUnknown::NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(obj->QueryInterface(IID_IClassFactory, &p), E_NOINTERFACE);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(obj->Count(), 4);
    EXPECT_EQ(obj->Release(), 3u);
    EXPECT_EQ(obj->Release(), 2u);
    EXPECT_EQ(obj->Release(), 1u);
    EXPECT_EQ(Inner::destroyed, 0);
    EXPECT_EQ(obj->Release(), 0u);
    EXPECT_EQ(Inner::destroyed, 1);
}

// AddRef reports at least 1 on an over-released count; Release has no floor.
TEST(UnknownTest, AddRefFloorReleaseNoFloor)
{
    Inner::destroyed = 0;
    Inner* obj = new Inner(nullptr);
    obj->SetCount(-1);
    EXPECT_EQ(obj->NonDelegatingAddRef(), 1u);
    EXPECT_EQ(obj->Count(), 0);
    EXPECT_EQ(obj->NonDelegatingRelease(), 0xFFFFFFFFu);
    EXPECT_EQ(Inner::destroyed, 0);
    obj->SetCount(1);
    EXPECT_EQ(obj->NonDelegatingRelease(), 0u);
    EXPECT_EQ(Inner::destroyed, 1);
}

// An aggregated inner moves the outer's count, answers IUnknown privately, and dies once with it.
TEST(ObjectModelTest, Aggregation)
{
    Inner::destroyed = Outer::destroyed = 0;
    Outer* outer = new Outer;
    Inner* inner = outer->inner;
    EXPECT_EQ(inner->Count(), 1);
    ITest* itf = nullptr;
    ASSERT_EQ(outer->QueryInterface(IID_ITest, reinterpret_cast<void**>(&itf)), S_OK);
    EXPECT_EQ(outer->count, 2);
    EXPECT_EQ(itf->AddRef(), 3u);
    EXPECT_EQ(itf->Release(), 2u);
    EXPECT_EQ(inner->Count(), 1);
    void* p = nullptr;
    EXPECT_EQ(inner->NonDelegatingQueryInterface(IID_IUnknown, &p), S_OK);
    EXPECT_EQ(p, inner->Face());
    EXPECT_EQ(inner->Count(), 2);
    EXPECT_EQ(inner->NonDelegatingRelease(), 1u);
    EXPECT_TRUE(scombase::IsEqualObject(outer, itf));
    EXPECT_EQ(outer->count, 2);
    EXPECT_EQ(itf->Release(), 1u);
    EXPECT_EQ(outer->Release(), 0u);
    EXPECT_EQ(Outer::destroyed, 1);
    EXPECT_EQ(Inner::destroyed, 1);
}

TEST(ObjectModelTest, GetInterfaceAndIsEqualObject)
{
    std::string log;
    Fake failing('f', &log);
    void* p = nullptr;
    EXPECT_EQ(scombase::GetInterface(&failing, nullptr), E_POINTER);
    EXPECT_EQ(scombase::GetInterface(&failing, &p), S_OK);
    EXPECT_EQ(p, &failing);
    EXPECT_TRUE(scombase::IsEqualObject(&failing, &failing));
    EXPECT_EQ(log, "f+");
    Inner* a = new Inner(nullptr);
    Inner* b = new Inner(nullptr);
    a->NonDelegatingAddRef();
    b->NonDelegatingAddRef();
    EXPECT_TRUE(scombase::IsEqualObject(static_cast<ITest*>(a), a->Unknown()));
    EXPECT_FALSE(scombase::IsEqualObject(static_cast<ITest*>(a), static_cast<ITest*>(b)));
    EXPECT_FALSE(scombase::IsEqualObject(&failing, a->Unknown()));
    EXPECT_FALSE(scombase::IsEqualObject(a->Unknown(), &failing));
    EXPECT_EQ(a->Count(), 1);
    a->NonDelegatingRelease();
    b->NonDelegatingRelease();
}

// The holder references the new pointer before releasing the old; equal pointers make no calls.
TEST(ComPtrTest, ReferenceOrder)
{
    std::string log;
    Fake a('a', &log), b('b', &log);
    {
        QMXComPtr<IUnknown> p(&a), q(&b);
        p = q;
        EXPECT_EQ(log, "a+b+b+a-");
        const QMXComPtr<IUnknown>& self = p;
        p = self;
        p = &b;
        EXPECT_EQ(log, "a+b+b+a-");
        *&p = &a;  // operator& releases the held reference first
        EXPECT_EQ(log, "a+b+b+a-b-");
        EXPECT_EQ(p.Detach(), &a);
        EXPECT_EQ(p.Get(), nullptr);
    }
    EXPECT_EQ(log, "a+b+b+a-b-b-");
}

TEST(GuidTest, ResultCodesAndEquality)
{
    EXPECT_EQ(S_OK, 0);
    EXPECT_EQ(static_cast<uint32_t>(E_NOINTERFACE), 0x80000004u);
    EXPECT_EQ(static_cast<uint32_t>(E_POINTER), 0x80000005u);
    EXPECT_EQ(static_cast<uint32_t>(CLASS_E_CLASSNOTAVAILABLE), 0x80040111u);
    for (int i = 0; i < 16; ++i) {
        _GUID other = IID_ITest;
        EXPECT_TRUE(other == IID_ITest);
        reinterpret_cast<uint8_t*>(&other)[i] ^= 1;
        EXPECT_FALSE(other == IID_ITest) << "byte " << i;
    }
}
