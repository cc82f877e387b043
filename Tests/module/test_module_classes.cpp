// Drives the module's class factory, entry points and track through dlopen and
// the exported names only, as a host engine that has nothing but the headers would.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "IQMXKeyFrame.h"
#include "IQMXProperties.h"
#include "QMXModule.h"

namespace {

using GetInterfaceFn = HRESULT (*)(const _GUID&, IUnknown*, unsigned int, const _GUID&, void**);
using Refs = std::pair<uint32_t, uint32_t>;

constexpr _GUID kUnservedClass = {0x01234567, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr _GUID kIUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const char* const kIdentifiers[] = {"CLSID_QMXKeyFrame",  "IID_IQMXKeyFrame", "CLSID_QMXKeyFrameKV",
                                    "IID_IQMXKeyFrameKV", "IID_IQMXStorage", "IID_IUnknown",
                                    "IID_IClassFactory"};

Refs Bump(IUnknown* u) { const uint32_t up = u->AddRef(); return {up, u->Release()}; }  // AddRef, Release

class ModuleFactory : public testing::Test {
protected:
    // The module stays loaded for the whole program, as in a host.
    static void SetUpTestSuite()
    {
        if (handle == nullptr && (handle = dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL)) == nullptr)
            loadError = dlerror();
    }
    void SetUp() override
    {
        ASSERT_NE(handle, nullptr) << loadError;
        for (const char* name : kIdentifiers)
            ASSERT_NE(dlsym(handle, name), nullptr) << name;
    }
    template <typename T>
    static T Sym(const char* name) { return reinterpret_cast<T>(dlsym(handle, name)); }
    static const _GUID& Id(const char* name) { return *Sym<const _GUID*>(name); }
    static HRESULT GetClassObject(const _GUID& clsid, const char* iid, void** ppv)
    {
        return Sym<DllGetClassObjectFunction>("DllGetClassObject")(clsid, Id(iid), ppv);
    }
    static inline void* handle = nullptr;
    static inline std::string loadError;
};
using ModuleRegistry = ModuleFactory;
using ModuleDeathTest = ModuleFactory;

// An aggregating object: answers IID_IUnknown itself, the rest through its inner
// object, and counts what the inner object's interfaces forward to it.
struct Outer : IUnknown {
    HRESULT QueryInterface(const _GUID& iid, void** ppv) override
    {
        ++queries;
        return iid != kIUnknown ? inner->QueryInterface(iid, ppv) : (*ppv = this, AddRef(), S_OK);
    }
    uint32_t AddRef() override { return ++refs; }
    uint32_t Release() override { return --refs; }
    IUnknown* inner = nullptr;
    int queries = 0;
    uint32_t refs = 1;
};

TEST_F(ModuleFactory, ClassObjectsInstancesAndAggregation)
{
    // The interface id is checked before the class walk: no fault for an unserved class.
    void* untouched = &untouched;
    EXPECT_EQ(GetClassObject(kUnservedClass, "IID_IQMXStorage", &untouched), E_NOINTERFACE);
    const struct { const char* clsid; std::vector<const char*> served; const char* foreign; } classes[] = {
        {"CLSID_QMXKeyFrameKV", {"IID_IQMXKeyFrameKV"}, "IID_IQMXStorage"},
        {"CLSID_QMXKeyFrame", {"IID_IQMXKeyFrame", "IID_IQMXStorage"}, "IID_IQMXKeyFrameKV"}};
    for (const auto& c : classes) {
        SCOPED_TRACE(c.clsid);
        EXPECT_TRUE(GetClassObject(Id(c.clsid), "IID_IQMXKeyFrameKV", &untouched) == E_NOINTERFACE &&
                    untouched == &untouched);
        IClassFactory* factory = nullptr;
        for (const char* iid : {"IID_IUnknown", "IID_IClassFactory"}) {  // a new factory each, the last kept
            EXPECT_TRUE(factory == nullptr || factory->Release() == 0u);
            ASSERT_EQ(GetClassObject(Id(c.clsid), iid, reinterpret_cast<void**>(&factory)), S_OK);
            EXPECT_EQ(Bump(factory), Refs(2, 1));
            void* other = &other;
            EXPECT_TRUE(factory->QueryInterface(Id("IID_IQMXStorage"), &other) == E_NOINTERFACE && !other);
        }
        for (const char* iid : c.served) {
            IUnknown* object = nullptr;
            ASSERT_EQ(factory->CreateInstance(nullptr, Id(iid), reinterpret_cast<void**>(&object)), S_OK);
            EXPECT_EQ(Bump(object), Refs(2, 1));
            EXPECT_EQ(object->Release(), 0u);
        }
        void* refused = &refused;
        EXPECT_TRUE(factory->CreateInstance(nullptr, Id(c.foreign), &refused) == E_NOINTERFACE && !refused);
        Outer outer;
        EXPECT_TRUE(factory->CreateInstance(&outer, Id(c.served[0]), &untouched) == CLASS_E_NOAGGREGATION &&
                    untouched == &untouched);
        IUnknown* inner = nullptr;
        ASSERT_EQ(factory->CreateInstance(&outer, Id("IID_IUnknown"), reinterpret_cast<void**>(&inner)),
                  S_OK);
        EXPECT_EQ(Bump(inner), Refs(2, 1));  // the inner object's own count
        EXPECT_EQ(outer.refs, 1u);
        outer.inner = inner;
        int forwarded = 0;
        for (const char* iid : c.served) {  // each face of the inner object counts, answers for the outer
            IUnknown* face = nullptr;
            ASSERT_EQ(inner->QueryInterface(Id(iid), reinterpret_cast<void**>(&face)), S_OK);
            EXPECT_EQ(outer.refs, 2u);
            EXPECT_EQ(Bump(face), Refs(3, 2));
            IUnknown* identity = nullptr;
            EXPECT_EQ(face->QueryInterface(Id("IID_IUnknown"), reinterpret_cast<void**>(&identity)), S_OK);
            EXPECT_TRUE(identity == &outer && outer.queries == ++forwarded);
            EXPECT_EQ(identity->Release(), 2u);
            EXPECT_EQ(face->Release(), 1u);
        }
        EXPECT_EQ(inner->Release(), 0u);  // the inner count never moved
        EXPECT_EQ(outer.refs, 1u);
        EXPECT_EQ(factory->Release(), 0u);
    }
}

TEST_F(ModuleFactory, EntryPointsTableAndIdentifiers)
{
    auto locks = Sym<volatile int32_t*>("_ZN8CFactory14s_cServerLocksE");
    const auto* rows = Sym<const CFactoryTemplate*>("g_Templates");
    void* kv = nullptr;
    ASSERT_TRUE(locks && rows && GetClassObject(Id("CLSID_QMXKeyFrameKV"), "IID_IClassFactory", &kv) == S_OK);
    auto* factory = static_cast<IClassFactory*>(kv);
    const int32_t before = *locks;
    EXPECT_TRUE(factory->LockServer(1) == S_OK && *locks == before + 1);
    EXPECT_EQ(Sym<DllEntryFunction>("DllCanUnloadNow")(), S_OK);  // locks are kept, never consulted
    EXPECT_TRUE(factory->LockServer(0) == S_OK && *locks == before);
    EXPECT_EQ(factory->Release(), 0u);
    testing::internal::CaptureStdout();
    const HRESULT registered = Sym<DllEntryFunction>("DllRegisterServer")();
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "222222222222222");
    EXPECT_TRUE(registered == S_OK && Sym<DllEntryFunction>("DllUnregisterServer")() == S_OK);
    const struct { const wchar_t* name; const char* clsid; const char* create; } want[] = {
        {L"Create KeyFrame object", "CLSID_QMXKeyFrame", "_Z22CreateKeyFrameInstanceP8IUnknownPi"},
        {L"Create KeyFrame Param", "CLSID_QMXKeyFrameKV", "_Z24CreateKeyFrameKVInstanceP8IUnknownPi"}};
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(std::wstring(rows[i].m_pName) == want[i].name && rows[i].m_pClsid == &Id(want[i].clsid) &&
                    reinterpret_cast<void*>(rows[i].m_pfnCreate) == Sym<void*>(want[i].create)) << i;
    EXPECT_TRUE(rows[2].m_pName == nullptr && rows[2].m_pClsid == nullptr && rows[2].m_pfnCreate == nullptr);
    EXPECT_EQ(*Sym<int*>("g_cTemplates"), 3);
    const _GUID values[] = {{0x5AE1FA35, 0x448E, 0x42E6, {0x9C, 0x75, 0xBC, 0x1E, 0x8D, 0xBF, 0x89, 0x42}},
                            {0x17023CB6, 0x6191, 0x4B63, {0x8C, 0x9B, 0xEC, 0x29, 0x9C, 0xF1, 0x60, 0x54}},
                            {0x7691319E, 0x2504, 0x4055, {0xB2, 0xB1, 0x5F, 0xD8, 0x4C, 0x87, 0x09, 0x58}},
                            {0x50A70D70, 0xD2D5, 0x42E4, {0xBF, 0x3B, 0xE0, 0x73, 0x6D, 0xDC, 0xD4, 0x9E}},
                            {0xB58DC8D7, 0xB8EC, 0x4254, {0x81, 0x4F, 0xDF, 0x40, 0xF5, 0x72, 0xB3, 0x12}},
                            kIUnknown,
                            {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}};
    for (size_t i = 0; i < std::size(values); ++i)  // multi-byte fields little-endian, as on this platform
        EXPECT_EQ(std::memcmp(&Id(kIdentifiers[i]), &values[i], sizeof(_GUID)), 0) << kIdentifiers[i];
}

TEST_F(ModuleDeathTest, ClassWalkIsBoundedOnlyByTheCount)
{
    void* factory = nullptr;
    // The walk has no test for the terminating row and reads through its null class id.
    EXPECT_DEATH(GetClassObject(kUnservedClass, "IID_IClassFactory", &factory), "");
    int& count = *Sym<int*>("g_cTemplates");
    const std::unique_ptr<int, void (*)(int*)> restore(&count, [](int* c) { *c = 3; });
    count = 2;
    EXPECT_EQ(GetClassObject(kUnservedClass, "IID_IClassFactory", &factory), CLASS_E_CLASSNOTAVAILABLE);
    ASSERT_EQ(GetClassObject(Id("CLSID_QMXKeyFrameKV"), "IID_IClassFactory", &factory), S_OK);
    EXPECT_EQ(static_cast<IClassFactory*>(factory)->Release(), 0u);
    count = 0;
    for (const _GUID* clsid : {&kUnservedClass, &Id("CLSID_QMXKeyFrame"), &Id("CLSID_QMXKeyFrameKV")})
        EXPECT_EQ(GetClassObject(*clsid, "IID_IClassFactory", &factory), CLASS_E_CLASSNOTAVAILABLE);
}

// The host runtime loads the module once and serves only the classes it lists. Tracks made so keep keys
// sorted, and one reads back what another saved into the host's bag; neither keeps a reference to it.
TEST_F(ModuleRegistry, ServesListedClassesAndWorkingTracks)
{
    void* host = dlopen("libQMXHost.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(host, nullptr) << "the module did not load the host runtime";
    auto load = reinterpret_cast<void* (*)(const char*)>(dlsym(host, "QMXLoadModule"));
    auto lastError = reinterpret_cast<const char* (*)()>(dlsym(host, "QMXLastModuleError"));
    auto newBag = reinterpret_cast<IQMXProperties* (*)()>(dlsym(host, "QMXCreateMemoryProperties"));
    auto getInterface = reinterpret_cast<GetInterfaceFn>(
        dlsym(host, "_ZN9QMXCommon12GetInterfaceERK5_GUIDP8IUnknownjS2_PPv"));
    ASSERT_TRUE(load && lastError && newBag && getInterface);
    void* module = load(QMX_MODULE_PATH);
    ASSERT_NE(module, nullptr) << lastError();
    EXPECT_EQ(dlsym(module, "g_Templates"), dlsym(handle, "g_Templates"));  // the same loaded object
    const auto create = [&](const char* clsid, const char* iid, auto** out) {  // through the host registry
        return getInterface(Id(clsid), nullptr, 0, Id(iid), reinterpret_cast<void**>(out)) == S_OK && *out;
    };
    IUnknown* curve = nullptr;
    ASSERT_TRUE(create("CLSID_QMXKeyFrameKV", "IID_IQMXKeyFrameKV", &curve));
    EXPECT_EQ(curve->Release(), 0u);
    IQMXKeyFrame* t[2] = {};
    IQMXStorage* s[2] = {};
    for (int i = 0; i < 2; ++i)
        ASSERT_TRUE(create("CLSID_QMXKeyFrame", "IID_IQMXKeyFrame", &t[i]) &&
                    t[i]->QueryInterface(Id("IID_IQMXStorage"), reinterpret_cast<void**>(s + i)) == S_OK)
            << i;
    for (double x : {2.0, 4.0, 0.0}) {  // indexes 0, 1, 0
        KeyFrameParam p = {x, x + 1, x + 2, x + 3, x + 5, x + 6, x + 4};
        int index = -1;
        EXPECT_TRUE(t[0]->AddKeyFrame(p, index) && index == (x == 4.0 ? 1 : 0)) << x;
    }
    IQMXProperties* bag = newBag();
    EXPECT_TRUE(s[0]->WriteTo(bag) == S_OK && s[1]->ReadFrom(bag) == S_OK);
    EXPECT_EQ(bag->Release(), 0u);
    for (double at : {0.0, 1.0, 4.0}) {  // the same keyframe, or a midpoint, on both
        KeyFrameParam p[2] = {};
        EXPECT_TRUE(t[0]->GetKeyFrame(at, p[0]) && t[1]->GetKeyFrame(at, p[1]));
        EXPECT_TRUE(std::memcmp(&p[0], &p[1], sizeof p[0]) == 0 && p[0].dOpacity == at + 4) << at;
    }
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(t[i]->GetKeyFrameCount(), 3);
        EXPECT_EQ(s[i]->Release(), 1u);
        EXPECT_EQ(t[i]->Release(), 0u);
    }
    // The registry answers for ids the module does not list without asking the module.
    void* none = &none;
    EXPECT_EQ(getInterface(kUnservedClass, nullptr, 0, Id("IID_IUnknown"), &none), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(load("/nonexistent.so"), nullptr);
    const std::string missing = lastError();
    EXPECT_NE(missing, "");
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(load), &info), 0);
    EXPECT_EQ(load(info.dli_fname), nullptr);  // a shared library without g_Templates
    EXPECT_STRNE(lastError(), "");
    EXPECT_NE(lastError(), missing);
    dlclose(module);
    dlclose(host);
}

}  // namespace
