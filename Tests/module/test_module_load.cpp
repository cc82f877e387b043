// Loads the built module with dlopen, as a third-party host would, and calls
// the curve mathematics through symbols resolved by their mangled names.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "keyframe_types.h"
#include "val_any.h"

using core::KeyframeInterpolationType;
using core::ValAny;

namespace {

using CubicEvalFn = double (*)(double, double, double, double, double);
using HermiteFn = void (*)(double, double, double, double, double*, double*, double*, double*);
using InterpolateFn = double (*)(double, ValAny, double, double, double, ValAny, double,
                                 KeyframeInterpolationType, KeyframeInterpolationType);
using IntegrateFn = double (*)(double, double, double, double, double, double, double, double,
                               KeyframeInterpolationType, KeyframeInterpolationType);
using DerivativesFn = void (*)(KeyframeInterpolationType, KeyframeInterpolationType,
                               KeyframeInterpolationType, double, ValAny, double, ValAny, double,
                               ValAny, double, double, double*, double*);
using SolveFn = double (*)(double, double, double, double, double, double, double,
                           KeyframeInterpolationType, KeyframeInterpolationType);
using SolveCubicFn = int (*)(double, double, double, double, double*);

class ModuleLoad : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        handle = dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
    }
    static void TearDownTestSuite()
    {
        if (handle != nullptr)
            dlclose(handle);
    }
    template <typename Fn>
    static Fn Resolve(const char* name)
    {
        void* symbol = dlsym(handle, name);
        EXPECT_NE(symbol, nullptr) << name;
        return reinterpret_cast<Fn>(symbol);
    }
    static void* handle;
};

void* ModuleLoad::handle = nullptr;

TEST_F(ModuleLoad, HostRuntimeComesFromItsOwnLibrary)
{
    // The module finds libQMXHost.so beside itself and leaves its symbols to it.
    void* host = dlopen("libQMXHost.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(host, nullptr) << "the module did not load the host runtime";
    for (const char* name : {"InterlockedIncrement", "IID_IUnknown"}) {
        Dl_info info{};
        ASSERT_NE(dladdr(dlsym(handle, name), &info), 0) << name;
        EXPECT_NE(std::string(info.dli_fname).find("libQMXHost.so"), std::string::npos) << name;
    }
    dlclose(host);
}

TEST_F(ModuleLoad, SegmentFunctionsByMangledName)
{
    auto cubicEval = Resolve<CubicEvalFn>("_ZN13Interpolation9cubicEvalEddddd");
    auto hermite = Resolve<HermiteFn>("_ZN13Interpolation20hermiteToCubicCoeffsEddddPdS0_S0_S0_");
    auto cubicIntegrate = Resolve<CubicEvalFn>("_ZN13Interpolation14cubicIntegrateEddddd");
    auto interpolate = Resolve<InterpolateFn>(
        "_ZN13Interpolation11interpolateEdN4core6ValAnyEdddS1_dNS0_25KeyframeInterpolationTypeES2_");
    auto integrate = Resolve<IntegrateFn>(
        "_ZN13Interpolation9integrateEddddddddN4core25KeyframeInterpolationTypeES1_");
    ASSERT_TRUE(cubicEval && hermite && cubicIntegrate && interpolate && integrate);

    EXPECT_EQ(cubicEval(1, 2, 3, 4, 2), 49.0);
    double c[4];
    hermite(0, 0, 0, 1, &c[0], &c[1], &c[2], &c[3]);
    EXPECT_EQ(c[2], 3.0);
    EXPECT_EQ(c[3], -2.0);
    EXPECT_EQ(cubicIntegrate(1, 0, 0, 0, 2), 2.0);
    // Value holders cross the boundary by value: a linear segment 0 -> 10 over [0, 2].
    EXPECT_DOUBLE_EQ(interpolate(0, ValAny(0.0), 5, 5, 2, ValAny(10.0), 1, core::eKeyframeTypeLinear,
                                 core::eKeyframeTypeLinear),
                     5.0);
    EXPECT_DOUBLE_EQ(interpolate(0, ValAny(3), 0, 0, 2, ValAny(true), 7, core::eKeyframeTypeConstant,
                                 core::eKeyframeTypeLinear),
                     3.0);
    EXPECT_DOUBLE_EQ(integrate(0, 2, 0, 0, 4, 9, 0, 4, core::eKeyframeTypeConstant,
                               core::eKeyframeTypeLinear),
                     8.0);
}

TEST_F(ModuleLoad, TangentsAndSolverByMangledName)
{
    auto derivatives = Resolve<DerivativesFn>(
        "_ZN13Interpolation22autoComputeDerivativesEN4core25KeyframeInterpolationTypeES1_S1_"
        "dNS0_6ValAnyEdS2_dS2_ddPdS3_");
    auto solve = Resolve<SolveFn>("_ZN13Interpolation5solveEdddddddN4core25KeyframeInterpolationTypeES1_");
    auto solveCubic = Resolve<SolveCubicFn>("_ZN13Interpolation10solveCubicEddddPd");
    ASSERT_TRUE(derivatives && solve && solveCubic);

    double left = -1, right = -1;
    derivatives(core::eKeyframeTypeLinear, core::eKeyframeTypeSmooth, core::eKeyframeTypeLinear, 0,
                ValAny(0.0), 1, ValAny(7.0), 2, ValAny(4.0), 0, 0, &left, &right);
    EXPECT_DOUBLE_EQ(left, 2.0);
    EXPECT_DOUBLE_EQ(right, 2.0);

    EXPECT_DOUBLE_EQ(solve(0, 0, 1, 1, 1, 1, 0.5, core::eKeyframeTypeLinear, core::eKeyframeTypeLinear), 1.0);
    double roots[3] = {};
    ASSERT_EQ(solveCubic(0, -1, 0, 1, roots), 3);
    EXPECT_NEAR(roots[0], 1.0, 1e-12);
}

}  // namespace
