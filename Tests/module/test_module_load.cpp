// Loads the built module with plain dlopen, as a third-party host that has
// nothing but the headers would: what `qmxkf validate` (which links the host
// runtime and loads through it) does not see. The contract checks themselves
// are validate's, run by the tool_validate test, and so is where the host's
// symbols come from; finding the host runtime beside the module is what
// every dlopen here needs.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "IQMXKeyFrame.h"
#include "QMXModule.h"
#include "qmx_version.h"
#include "keyframe_types.h"
#include "val_any.h"

namespace {

using core::ValAny;
using K = core::KeyframeInterpolationType;
using GetInterfaceFn = HRESULT (*)(const _GUID&, IUnknown*, unsigned int, const _GUID&, void**);
constexpr _GUID kUnservedClass = {0x01234567, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};

class ModuleLoad : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(handle = dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror(); }
    void TearDown() override { dlclose(handle); }
    template <typename T>
    T Sym(const char* name) const { return reinterpret_cast<T>(dlsym(handle, name)); }
    const _GUID& Id(const char* name) const { return *Sym<const _GUID*>(name); }
    HRESULT GetClassObject(const _GUID& clsid, const char* iid, void** ppv) const
    {
        return Sym<DllGetClassObjectFunction>("DllGetClassObject")(clsid, Id(iid), ppv);
    }
    void* handle = nullptr;
};
using ModuleLoadDeathTest = ModuleLoad;

// Value holders cross the boundary by value, through the hidden pointer of the platform's ABI.
TEST_F(ModuleLoad, ValueHoldersPassByValue)
{
    auto interpolate = Sym<double (*)(double, ValAny, double, double, double, ValAny, double, K, K)>(
        "_ZN13Interpolation11interpolateEdN4core6ValAnyEdddS1_dNS0_25KeyframeInterpolationTypeES2_");
    ASSERT_NE(interpolate, nullptr);
    EXPECT_EQ(interpolate(0, ValAny(0.0), 5, 5, 2, ValAny(10.0), 1, core::eKeyframeTypeLinear,
                          core::eKeyframeTypeLinear), 5.0);
    EXPECT_EQ(interpolate(0, ValAny(3), 0, 0, 2, ValAny(true), 7, core::eKeyframeTypeConstant,
                          core::eKeyframeTypeLinear), 3.0);
}

// DllGetClassObject tests the interface id first, then walks the class ids
// as far as g_cTemplates only: past the table's last row for an id it does
// not list, which faults by contract (hosts ask only for listed ids).
TEST_F(ModuleLoadDeathTest, ClassWalkIsBoundedOnlyByTheCount)
{
    void* factory = &factory;
    EXPECT_EQ(GetClassObject(kUnservedClass, "IID_IQMXStorage", &factory), E_NOINTERFACE);
    EXPECT_DEATH(GetClassObject(kUnservedClass, "IID_IClassFactory", &factory), "");
    for (const auto& [count, served] : {std::pair(2, S_OK), std::pair(0, CLASS_E_CLASSNOTAVAILABLE)}) {
        *Sym<int*>("g_cTemplates") = count;
        EXPECT_EQ(GetClassObject(kUnservedClass, "IID_IClassFactory", &factory), CLASS_E_CLASSNOTAVAILABLE);
        ASSERT_EQ(GetClassObject(Id("CLSID_QMXKeyFrameKV"), "IID_IClassFactory", &factory), served) << count;
        EXPECT_TRUE(served != S_OK || static_cast<IClassFactory*>(factory)->Release() == 0u);
    }
    *Sym<int*>("g_cTemplates") = 3;
}

// Unloaded, the module leaves the process; loaded again, its tables are new and it serves its classes.
TEST_F(ModuleLoadDeathTest, UnloadsAndLoadsAgain)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own: nothing else holds the module
    EXPECT_EXIT(
        {
            *Sym<int*>("g_cTemplates") = 2;
            dlclose(handle);
            if (dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_NOLOAD) != nullptr) std::exit(1);
            handle = dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
            void* factory = nullptr;
            if (*Sym<int*>("g_cTemplates") != 3 ||
                GetClassObject(Id("CLSID_QMXKeyFrame"), "IID_IClassFactory", &factory) != S_OK ||
                static_cast<IClassFactory*>(factory)->Release() != 0) std::exit(2);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

// The host runtime, reached only through the module, loads it again as the same object, makes its
// classes by id, and answers for ids the module does not list without asking the module.
TEST_F(ModuleLoad, HostRegistryServesTheLoadedModule)
{
    void* host = dlopen(QMX_RUNTIME_SONAME, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(host, nullptr) << "the module did not load the host runtime";
    auto load = reinterpret_cast<void* (*)(const char*)>(dlsym(host, "QMXLoadModule"));
    auto lastError = reinterpret_cast<const char* (*)()>(dlsym(host, "QMXLastModuleError"));
    auto getInterface =
        reinterpret_cast<GetInterfaceFn>(dlsym(host, "_ZN9QMXCommon12GetInterfaceERK5_GUIDP8IUnknownjS2_PPv"));
    ASSERT_TRUE(load && lastError && getInterface);
    void* module = load(QMX_MODULE_PATH);
    ASSERT_NE(module, nullptr) << lastError();
    EXPECT_EQ(dlsym(module, "g_Templates"), dlsym(handle, "g_Templates"));
    // The module's release from its note; a program without one has none.
    auto moduleVersion = reinterpret_cast<const char* (*)(void*)>(dlsym(host, "QMXModuleVersion"));
    ASSERT_NE(moduleVersion, nullptr);
    EXPECT_STREQ(moduleVersion(module), QMX_VERSION);
    EXPECT_EQ(moduleVersion(host), nullptr);
    EXPECT_EQ(moduleVersion(nullptr), nullptr);
    IUnknown* track = nullptr;
    ASSERT_EQ(getInterface(Id("CLSID_QMXKeyFrame"), nullptr, 0, Id("IID_IQMXKeyFrame"),
                           reinterpret_cast<void**>(&track)), S_OK);
    EXPECT_EQ(track->Release(), 0u);
    void* none = &none;
    EXPECT_EQ(getInterface(kUnservedClass, nullptr, 0, Id("IID_IUnknown"), &none), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(none, nullptr);
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(load), &info), 0);
    EXPECT_EQ(load(info.dli_fname), nullptr);  // a shared library without g_Templates
    EXPECT_NE(std::string(lastError()), "");
    dlclose(module);
    dlclose(host);
}

}  // namespace
