// Object model: reference counts of a served class, interface hand-out and identity, the interface holder,
// identifiers.
#include <gtest/gtest.h>

#include <string>

#include "QMXComPtr.h"
#include "QMXCommon.h"
#include "scombase.h"

namespace {

// A served class with no interface of its own: only the object model's counting and IUnknown.
struct Bare : scombase::CUnknown {
    static inline int destroyed = 0;
    Bare() : CUnknown(nullptr) {}
    ~Bare() override { ++destroyed; }
    int32_t Count() const { return m_cRefCount; }
    void SetCount(int32_t c) { m_cRefCount = c; }
    IUnknown* Unknown() { return reinterpret_cast<IUnknown*>(static_cast<INonDelegatingUnknown*>(this)); }
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

// AddRef reports at least 1 on an over-released count; Release has no floor and destroys only at 0; a
// null out-pointer is refused. GetInterface hands out one reference; IsEqualObject compares IUnknowns (a
// failed query: not equal) and releases what its queries took. (Counts from creation on, the owner and
// aggregation through the served classes: qmxkf validate.)
TEST(ObjectModelTest, CountsGetInterfaceAndIsEqualObject)
{
    Bare::destroyed = 0;
    Bare* obj = new Bare;
    obj->SetCount(-1);
    EXPECT_EQ(obj->NonDelegatingAddRef(), 1u);
    EXPECT_EQ(obj->NonDelegatingRelease(), 0xFFFFFFFFu);
    obj->SetCount(2);
    EXPECT_EQ(obj->CUnknown::NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_TRUE(obj->NonDelegatingRelease() == 1u && Bare::destroyed == 0);
    EXPECT_TRUE(obj->NonDelegatingRelease() == 0u && Bare::destroyed == 1);
    std::string log;
    Fake failing('f', &log);
    void* p = nullptr;
    EXPECT_EQ(scombase::GetInterface(&failing, nullptr), E_POINTER);
    EXPECT_TRUE(scombase::GetInterface(&failing, &p) == S_OK && p == &failing);
    EXPECT_TRUE(scombase::IsEqualObject(&failing, &failing));  // same pointer: no query
    EXPECT_EQ(log, "f+");
    Bare a, b;
    for (Bare* x : {&a, &b}) x->NonDelegatingAddRef();
    EXPECT_TRUE(scombase::IsEqualObject(a.Unknown(), a.Unknown()));
    EXPECT_FALSE(scombase::IsEqualObject(a.Unknown(), b.Unknown()));
    EXPECT_FALSE(scombase::IsEqualObject(&failing, a.Unknown()) || scombase::IsEqualObject(a.Unknown(), &failing));
    EXPECT_EQ(a.Count(), 1);
}

// The holder references the new pointer before releasing the old; equal pointers make no calls.
TEST(ComPtrTest, ReferenceOrder)
{
    std::string log;
    Fake a('a', &log), b('b', &log);
    {
        QMXComPtr<IUnknown> p(&a), q(&b);
        p = q;
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

// Identifiers differ when any one byte does.
TEST(GuidTest, EqualityUsesEveryByte)
{
    for (int i = 0; i < 16; ++i) {
        _GUID other = IID_IClassFactory;
        reinterpret_cast<uint8_t*>(&other)[i] ^= 1;
        EXPECT_FALSE(other == IID_IClassFactory) << "byte " << i;
    }
}
