// Cost of the per-frame segment arithmetic: one evaluation, one tangent
// computation, one integral and one inverse per iteration.
#include <benchmark/benchmark.h>

#include "Interpolation.h"

namespace {

using core::ValAny;

void BM_Interpolate(benchmark::State& state)
{
    const ValAny v0(1.5), v1(4.0);
    double t = 0.0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Interpolation::interpolate(0.0, v0, 0.7, -0.3, 2.0, v1, t,
                                                            core::eKeyframeTypeSmooth,
                                                            core::eKeyframeTypeSmooth));
        t += 1e-6;
    }
}
BENCHMARK(BM_Interpolate);

void BM_AutoComputeDerivatives(benchmark::State& state)
{
    const auto kind = static_cast<core::KeyframeInterpolationType>(state.range(0));
    const ValAny vPrev(0.0), vCur(0.1), vNext(1.0);
    double left = 0.0, right = 0.0;
    for (auto _ : state) {
        Interpolation::autoComputeDerivatives(core::eKeyframeTypeSmooth, kind, core::eKeyframeTypeSpline,
                                              0.0, vPrev, 1.0, vCur, 2.5, vNext, 0.2, 0.4, &left, &right);
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
    }
}
BENCHMARK(BM_AutoComputeDerivatives)
    ->Arg(core::eKeyframeTypeLinear)
    ->Arg(core::eKeyframeTypeSmoothClamped)
    ->Arg(core::eKeyframeTypeSmooth)
    ->Arg(core::eKeyframeTypeSpline);

void BM_Integrate(benchmark::State& state)
{
    double t = 0.5;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Interpolation::integrate(0.0, 1.0, 0.5, 0.5, 2.0, 3.0, 0.25, t,
                                                          core::eKeyframeTypeSmooth,
                                                          core::eKeyframeTypeSmooth));
        t = t < 1.9 ? t + 1e-6 : 0.5;
    }
}
BENCHMARK(BM_Integrate);

void BM_Solve(benchmark::State& state)
{
    double value = 0.1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Interpolation::solve(0.0, 1.0, 0.5, -2.0, 2.0, 3.0, value,
                                                      core::eKeyframeTypeSmooth,
                                                      core::eKeyframeTypeSmooth));
        value += 1e-6;
    }
}
BENCHMARK(BM_Solve);

}  // namespace

BENCHMARK_MAIN();
