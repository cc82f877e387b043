// Loads the built module with dlopen, as a third-party host would, and calls
// the curve mathematics through symbols resolved by their mangled names.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "IKeyFrame.h"
#include "keyframe_types.h"
#include "val_any.h"

using core::ValAny;

namespace {

using K = core::KeyframeInterpolationType;
constexpr K kConst = core::eKeyframeTypeConstant, kLin = core::eKeyframeTypeLinear,
            kSmooth = core::eKeyframeTypeSmooth;

class ModuleLoad : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(handle = dlopen(QMX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL)); }
    static void TearDownTestSuite() { if (handle != nullptr) dlclose(handle); }
    template <typename Fn>
    static Fn Resolve(const char* name)
    {
        void* symbol = dlsym(handle, name);
        EXPECT_NE(symbol, nullptr) << name;
        return reinterpret_cast<Fn>(symbol);
    }
    static inline void* handle = nullptr;
};

// The module finds libQMXHost.so beside itself and leaves its symbols to it.
TEST_F(ModuleLoad, HostRuntimeComesFromItsOwnLibrary)
{
    void* host = dlopen("libQMXHost.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(host, nullptr) << "the module did not load the host runtime";
    for (const char* name : {"InterlockedIncrement", "IID_IUnknown"}) {
        Dl_info info{};
        ASSERT_NE(dladdr(dlsym(handle, name), &info), 0) << name;
        EXPECT_NE(std::string(info.dli_fname).find("libQMXHost.so"), std::string::npos) << name;
    }
    dlclose(host);
}

// Every segment, tangent and solver function; value holders cross the boundary by value.
TEST_F(ModuleLoad, CurveMathematicsByMangledName)
{
    using Cubic = double (*)(double, double, double, double, double);
    auto cubicEval = Resolve<Cubic>("_ZN13Interpolation9cubicEvalEddddd");
    auto cubicIntegrate = Resolve<Cubic>("_ZN13Interpolation14cubicIntegrateEddddd");
    auto hermite = Resolve<void (*)(double, double, double, double, double*, double*, double*, double*)>(
        "_ZN13Interpolation20hermiteToCubicCoeffsEddddPdS0_S0_S0_");
    auto interpolate = Resolve<double (*)(double, ValAny, double, double, double, ValAny, double, K, K)>(
        "_ZN13Interpolation11interpolateEdN4core6ValAnyEdddS1_dNS0_25KeyframeInterpolationTypeES2_");
    auto integrate = Resolve<double (*)(double, double, double, double, double, double, double, double, K,
                                        K)>(
        "_ZN13Interpolation9integrateEddddddddN4core25KeyframeInterpolationTypeES1_");
    auto derivatives = Resolve<void (*)(K, K, K, double, ValAny, double, ValAny, double, ValAny, double,
                                        double, double*, double*)>(
        "_ZN13Interpolation22autoComputeDerivativesEN4core25KeyframeInterpolationTypeES1_S1_"
        "dNS0_6ValAnyEdS2_dS2_ddPdS3_");
    auto solve = Resolve<double (*)(double, double, double, double, double, double, double, K, K)>(
        "_ZN13Interpolation5solveEdddddddN4core25KeyframeInterpolationTypeES1_");
    auto solveCubic =
        Resolve<int (*)(double, double, double, double, double*)>("_ZN13Interpolation10solveCubicEddddPd");
    ASSERT_TRUE(cubicEval && hermite && cubicIntegrate && interpolate && integrate && derivatives && solve &&
                solveCubic);
    EXPECT_EQ(cubicEval(1, 2, 3, 4, 2), 49.0);
    EXPECT_EQ(cubicIntegrate(1, 0, 0, 0, 2), 2.0);
    double c[4], left = -1, right = -1, roots[3] = {};
    hermite(0, 0, 0, 1, &c[0], &c[1], &c[2], &c[3]);
    EXPECT_EQ(std::make_pair(c[2], c[3]), std::make_pair(3.0, -2.0));
    EXPECT_DOUBLE_EQ(interpolate(0, ValAny(0.0), 5, 5, 2, ValAny(10.0), 1, kLin, kLin), 5.0);
    EXPECT_DOUBLE_EQ(interpolate(0, ValAny(3), 0, 0, 2, ValAny(true), 7, kConst, kLin), 3.0);
    EXPECT_DOUBLE_EQ(integrate(0, 2, 0, 0, 4, 9, 0, 4, kConst, kLin), 8.0);
    derivatives(kLin, kSmooth, kLin, 0, ValAny(0.0), 1, ValAny(7.0), 2, ValAny(4.0), 0, 0, &left, &right);
    EXPECT_EQ(std::make_pair(left, right), std::make_pair(2.0, 2.0));
    EXPECT_DOUBLE_EQ(solve(0, 0, 1, 1, 1, 1, 0.5, kLin, kLin), 1.0);
    ASSERT_EQ(solveCubic(0, -1, 0, 1, roots), 3);
    EXPECT_NEAR(roots[0], 1.0, 1e-12);
}

// A host creates a curve with the exported creation function, asks it for
// core::IKeyFrame by the exported identifier, and drives every slot.
TEST_F(ModuleLoad, CurveThroughAllSlots)
{
    // The creation function returns the object's non-delegating face.
    auto create = Resolve<IUnknown* (*)(IUnknown*, int*)>("_Z24CreateKeyFrameKVInstanceP8IUnknownPi");
    auto iid = Resolve<const _GUID*>("IID_IQMXKeyFrameKV");
    ASSERT_TRUE(create && iid);
    int hr = -1;
    IUnknown* object = create(nullptr, &hr);
    EXPECT_EQ(hr, 0);
    core::IKeyFrame* curve = nullptr;
    ASSERT_EQ(object->QueryInterface(*iid, reinterpret_cast<void**>(&curve)), S_OK);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(curve->AddPoint(2.0, ValAny(4.0), kLin), 0);
    curve->AddPointWithoutIndex(0.0, ValAny(0.0), kLin);
    EXPECT_EQ(curve->AddPoint(1.0, ValAny(1.0), kSmooth), 1);
    EXPECT_EQ(curve->GetKeyFramesCount(), 3);
    EXPECT_EQ(curve->GetValue(1.0, false).Get<double>(), 1.0);
    EXPECT_EQ(curve->GetPointValue(2).Get<double>(), 4.0);
    EXPECT_EQ(curve->GetPointTime(1), 1.0);
    EXPECT_EQ(curve->GetInterpolationType(1), kSmooth);
    double left = 0, right = 0;
    curve->GetPointControlParam(1, left, right);
    EXPECT_EQ(std::make_pair(left, right), std::make_pair(2.0, 2.0));  // chord of (0, 0) and (2, 4)
    curve->SetPointValue(1, ValAny(3.0));
    curve->SetPointTime(1, 1.5);
    curve->SetPointInterpolationType(1, kLin);
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
