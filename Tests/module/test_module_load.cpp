// Loads the built module with dlopen, as a third-party host would, and calls
// the curve mathematics through symbols resolved by their mangled names.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "IKeyFrame.h"
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
// The creation function returns the object's non-delegating face.
using CreateFn = IUnknown* (*)(IUnknown*, int*);

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

// A host creates a curve with the exported creation function, asks it for
// core::IKeyFrame by the exported identifier, and drives every slot.
TEST_F(ModuleLoad, CurveThroughAllSlots)
{
    auto create = Resolve<CreateFn>("_Z24CreateKeyFrameKVInstanceP8IUnknownPi");
    auto iid = Resolve<const _GUID*>("IID_IQMXKeyFrameKV");
    ASSERT_TRUE(create && iid);
    int hr = -1;
    IUnknown* object = create(nullptr, &hr);
    EXPECT_EQ(hr, 0);
    core::IKeyFrame* curve = nullptr;
    ASSERT_EQ(object->QueryInterface(*iid, reinterpret_cast<void**>(&curve)), S_OK);
    EXPECT_EQ(object->Release(), 1u);

    EXPECT_EQ(curve->AddPoint(2.0, ValAny(4.0), core::eKeyframeTypeLinear), 0);
    curve->AddPointWithoutIndex(0.0, ValAny(0.0), core::eKeyframeTypeLinear);
    EXPECT_EQ(curve->AddPoint(1.0, ValAny(1.0), core::eKeyframeTypeSmooth), 1);
    EXPECT_EQ(curve->GetKeyFramesCount(), 3);
    EXPECT_EQ(curve->GetValue(1.0, false).Get<double>(), 1.0);
    EXPECT_EQ(curve->GetPointValue(2).Get<double>(), 4.0);
    EXPECT_EQ(curve->GetPointTime(1), 1.0);
    EXPECT_EQ(curve->GetInterpolationType(1), core::eKeyframeTypeSmooth);
    double left = 0, right = 0;
    curve->GetPointControlParam(1, left, right);
    EXPECT_EQ(left, 2.0);  // chord of the neighbours (0, 0) and (2, 4)
    EXPECT_EQ(right, 2.0);
    curve->SetPointValue(1, ValAny(3.0));
    curve->SetPointTime(1, 1.5);
    curve->SetPointInterpolationType(1, core::eKeyframeTypeLinear);
    curve->SetPointControlParam(1, 0.5, 0.25);
    curve->GetPointControlParam(1, left, right);
    EXPECT_EQ(right, 0.25);
    EXPECT_EQ(curve->getTimeValuePairIndex(1.5), 1);
    curve->SetValueRange(ValAny(-1.0), ValAny(1.0));
    ValAny low, high;
    curve->GetValueRange(low, high);
    EXPECT_EQ(high.Get<double>(), 1.0);
    EXPECT_EQ(curve->GetValue(2.0, true).Get<double>(), 1.0);
    const std::string text = curve->Serialize();
    curve->RemovePoint(0);
    EXPECT_EQ(curve->GetKeyFramesCount(), 2);
    curve->Clear();
    EXPECT_EQ(curve->Desialize(text.c_str()), S_OK);
    EXPECT_EQ(curve->Serialize(), text);
    EXPECT_TRUE(curve->CopyFrom(curve));
    curve->SetParameterType(core::eParameterTypeInt);
    EXPECT_EQ(curve->GetParameterType(), core::eParameterTypeInt);
    EXPECT_EQ(curve->GetValue(1.5, false).Get<int>(), 3);
    EXPECT_EQ(curve->Release(), 0u);
}

}  // namespace
