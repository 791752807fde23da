// Curve evaluation and knot operations on three curves: a cubic with 1000 control points
// and clamped uniform knots, a 9-point rational full circle, and an order-8 curve with 1000
// control points. Parameters run in increasing order or shuffled, with the caller's linear
// knot list or without it.
#include <kestra/kestra.h>
#include <benchmark/benchmark.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <vector>

namespace {

// Clamped uniform knots on [0, 1] and points on a wavy helix.
CNurbs clamped_uniform(int order, int n)
{
    CNurbs c;
    c.order = order;
    c.n_cpts = n;
    c.vpp = 3;
    c.n_knots = n - order + 2;
    c.Init_Lists(false);
    for (int k = 0; k < c.n_knots; ++k) {
        c.knots->Append(static_cast<double>(k) / (c.n_knots - 1));
        c.mults->Append(k == 0 || k == c.n_knots - 1 ? order : 1);
    }
    for (int i = 0; i < n; ++i) {
        c.cpts->Append(std::cos(0.1 * i) * 10.0);
        c.cpts->Append(std::sin(0.1 * i) * 10.0);
        c.cpts->Append(0.01 * i + std::sin(0.37 * i));
    }
    return c;
}

// Unit circle of four rational quadratic quarters: corners of the square with weight
// sqrt(2)/2 between the axis points.
CNurbs full_circle()
{
    CNurbs c;
    c.order = 3;
    c.n_cpts = 9;
    c.vpp = 4;
    c.rational = 1;
    c.closed = 1;
    c.form = 1;
    c.n_knots = 5;
    c.Init_Lists(false);
    const double k[5] = {0, 0.25, 0.5, 0.75, 1};
    const int m[5] = {3, 2, 2, 2, 3};
    for (int i = 0; i < 5; ++i) {
        c.knots->Append(k[i]);
        c.mults->Append(m[i]);
    }
    const double xy[9][2] = {{1, 0},   {1, 1},  {0, 1},  {-1, 1}, {-1, 0},
                             {-1, -1}, {0, -1}, {1, -1}, {1, 0}};
    const double r = std::sqrt(0.5);
    for (int i = 0; i < 9; ++i) {
        const double w = i % 2 ? r : 1.0;
        c.cpts->Append(xy[i][0] * w);
        c.cpts->Append(xy[i][1] * w);
        c.cpts->Append(0.0);
        c.cpts->Append(w);
    }
    return c;
}

const CNurbs& curve(int which)
{
    static const CNurbs cubic = clamped_uniform(4, 1000);
    static const CNurbs circle = full_circle();
    static const CNurbs order8 = clamped_uniform(8, 1000);
    return which == 0 ? cubic : which == 1 ? circle : order8;
}

std::vector<double> parameters(bool shuffled)
{
    std::vector<double> t(4096);
    for (size_t i = 0; i < t.size(); ++i) t[i] = static_cast<double>(i) / (t.size() - 1);
    if (shuffled) std::shuffle(t.begin(), t.end(), std::mt19937(1));
    return t;
}

// What one evaluation run needs, from the arguments curve (0 cubic, 1 circle, 2 order 8),
// shuffled, linear knots given.
struct EvalRun {
    const CNurbs& c;
    std::vector<double> ts;
    List<double> lin;
    List<double>* cache;
    size_t i = 0;
    explicit EvalRun(const benchmark::State& state)
        : c(curve(static_cast<int>(state.range(0)))), ts(parameters(state.range(1) != 0))
    {
        c.Get_Linear_Knots_Vector(&lin);
        cache = state.range(2) ? &lin : nullptr;
    }
    // The next parameter, cycling through ts.
    double next()
    {
        const double t = ts[i];
        if (++i == ts.size()) i = 0;
        return t;
    }
};

void BM_EvalPoint(benchmark::State& state)
{
    EvalRun run(state);
    V_POINT p{};
    for (auto _ : state) {
        run.c.Eval(run.next(), run.cache, &p);
        benchmark::DoNotOptimize(p);
    }
}

void BM_EvalPointD1D2(benchmark::State& state)
{
    EvalRun run(state);
    V_POINT p{};
    V_VECTOR d1{}, d2{};
    for (auto _ : state) {
        run.c.Eval(run.next(), run.cache, &p, &d1, &d2);
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(d2);
    }
}

void eval_args(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"curve", "shuffled", "linear"});
    for (int c = 0; c < 3; ++c) {
        for (int s = 0; s < 2; ++s) {
            for (int l = 1; l >= 0; --l) b->Args({c, s, l});
        }
    }
}

// Reports the timed seconds per control point of c as the counter per_cpt.
void per_control_point(benchmark::State& state, const CNurbs& c)
{
    state.counters["per_cpt"] = benchmark::Counter(
        c.n_cpts, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// One insertion of a new single knot into a fresh copy of the cubic; only the insertion
// is timed.
void BM_InsertKnotCubic(benchmark::State& state)
{
    const CNurbs& base = curve(0);
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> u(0.001, 0.999);
    for (auto _ : state) {
        CNurbs c = base;
        const double x = u(rng);
        const auto t0 = std::chrono::steady_clock::now();
        c.InsertKnot(x, 1);
        const auto t1 = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    per_control_point(state, base);
}

// Removal of a just-inserted knot from the cubic; only the removal is timed.
void BM_RemoveKnotCubic(benchmark::State& state)
{
    const CNurbs& base = curve(0);
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(0.001, 0.999);
    int removed = 0;
    for (auto _ : state) {
        CNurbs c = base;
        const double x = u(rng);
        c.InsertKnot(x, 1);
        const auto t0 = std::chrono::steady_clock::now();
        c.RemoveKnot(x, 1, &removed, 1e-16);
        const auto t1 = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    per_control_point(state, base);
}

}  // namespace

BENCHMARK(BM_EvalPoint)->Apply(eval_args);
BENCHMARK(BM_EvalPointD1D2)->Apply(eval_args);
BENCHMARK(BM_InsertKnotCubic)->UseManualTime();
BENCHMARK(BM_RemoveKnotCubic)->UseManualTime();
BENCHMARK_MAIN();
