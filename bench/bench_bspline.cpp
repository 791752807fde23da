// Cost of the basis kernels behind curve evaluation: span search plus the cubic (order 4)
// basis with 0, 1 and 2 derivatives on a knot vector of 64 spans, parameters cycling
// through the range.
#include <kestra/kestra.h>
#include "curves/curves_internal.h"
#include <benchmark/benchmark.h>
#include <vector>

namespace {

constexpr int kOrder = 4;
constexpr int kSpans = 64;
constexpr int kCpts = kSpans + kOrder - 1;

// 1-based clamped uniform knots on [0, 1].
const std::vector<double>& knots()
{
    static const std::vector<double> T = [] {
        std::vector<double> t{0.0};
        for (int k = 0; k < kOrder; ++k) t.push_back(0.0);
        for (int k = 1; k < kSpans; ++k) t.push_back(double(k) / kSpans);
        for (int k = 0; k < kOrder; ++k) t.push_back(1.0);
        return t;
    }();
    return T;
}

// 1024 parameters spread over the range.
const std::vector<double>& params()
{
    static const std::vector<double> p = [] {
        std::vector<double> v;
        for (int k = 0; k < 1024; ++k) v.push_back((k * 0.6180339887) - int(k * 0.6180339887));
        return v;
    }();
    return p;
}

void BM_FindSpan(benchmark::State& state)
{
    const double* T = knots().data();
    size_t k = 0;
    for (auto _ : state) {
        const double t = params()[k++ & 1023];
        benchmark::DoNotOptimize(kestra::detail::find_span_linear(kCpts, kOrder, T, t));
    }
}
BENCHMARK(BM_FindSpan);

void BM_CubicBasis(benchmark::State& state)
{
    std::vector<double> T = knots();
    double N[kOrder + 1];
    size_t k = 0;
    for (auto _ : state) {
        const double t = params()[k++ & 1023];
        const int span = kestra::detail::find_span_linear(kCpts, kOrder, T.data(), t);
        BSpline_Basis_N(kOrder, T.data(), t, span, N);
        benchmark::DoNotOptimize(N);
    }
}
BENCHMARK(BM_CubicBasis);

void BM_CubicBasisWithTwoDerivatives(benchmark::State& state)
{
    std::vector<double> T = knots();
    double N[kOrder + 1], N1[kOrder + 1], N2[kOrder + 1];
    size_t k = 0;
    for (auto _ : state) {
        const double t = params()[k++ & 1023];
        const int span = kestra::detail::find_span_linear(kCpts, kOrder, T.data(), t);
        BSpline_Basis_N_N1_N2(kOrder, T.data(), t, span, N, N1, N2);
        benchmark::DoNotOptimize(N);
        benchmark::DoNotOptimize(N1);
        benchmark::DoNotOptimize(N2);
    }
}
BENCHMARK(BM_CubicBasisWithTwoDerivatives);

void BM_Bernstein(benchmark::State& state)
{
    const int n = int(state.range(0));
    std::vector<double> B(size_t(n + 1));
    for (auto _ : state) {
        Bernstein_Base(n, 0.37, B.data());
        benchmark::DoNotOptimize(B.data());
    }
}
BENCHMARK(BM_Bernstein)->Arg(3)->Arg(20)->Arg(60);

}  // namespace

BENCHMARK_MAIN();
