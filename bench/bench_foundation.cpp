// Costs of the foundation containers against the standard library, and of the small
// vector and matrix kernels every other unit calls in its inner loops.
#include <kestra/kestra.h>
#include <benchmark/benchmark.h>
#include <vector>

namespace {

template <class T> T item(int64_t i)
{
    if constexpr (std::is_same_v<T, double>) {
        return static_cast<double>(i);
    } else {
        return T{static_cast<double>(i), 0.5, -1.0};
    }
}

// --- appending: a fresh container per iteration, the same items ---

template <class T> void BM_ListAppend(benchmark::State& state)
{
    const int64_t n = state.range(0);
    for (auto _ : state) {
        List<T> l;
        for (int64_t i = 0; i < n; ++i) l.Append(item<T>(i));
        T* const first = l.items;  // the storage, as for the vector below
        benchmark::DoNotOptimize(first);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <class T> void BM_VectorPushBack(benchmark::State& state)
{
    const int64_t n = state.range(0);
    for (auto _ : state) {
        std::vector<T> v;
        for (int64_t i = 0; i < n; ++i) v.push_back(item<T>(i));
        T* const first = v.data();
        benchmark::DoNotOptimize(first);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

BENCHMARK_TEMPLATE(BM_ListAppend, double)->Arg(1000)->Arg(100000);
BENCHMARK_TEMPLATE(BM_VectorPushBack, double)->Arg(1000)->Arg(100000);
BENCHMARK_TEMPLATE(BM_ListAppend, V_POINT)->Arg(1000)->Arg(100000);
BENCHMARK_TEMPLATE(BM_VectorPushBack, V_POINT)->Arg(1000)->Arg(100000);

// --- reading ---

void BM_ListGet(benchmark::State& state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    List<V_POINT> l;
    for (uint32_t i = 1; i <= n; ++i) l.Append(item<V_POINT>(i));
    for (auto _ : state) {
        double sum = 0;
        V_POINT p;
        for (uint32_t k = 1; k <= n; ++k) {
            if (l.Get(k, &p)) sum += p.x;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_ListGet)->Arg(1000)->Arg(100000);

// --- kernels ---

void BM_Normalise(benchmark::State& state)
{
    V_VECTOR v{3.0, -4.0, 12.0};
    for (auto _ : state) {
        V_VECTOR w = v;
        benchmark::DoNotOptimize(normalise(&w));
        benchmark::DoNotOptimize(w);
        v.x += 1e-9;
    }
}
BENCHMARK(BM_Normalise);

void BM_MatMul(benchmark::State& state)
{
    V_MATRIX a, b, c;
    mat_identity(&a);
    mat_rotate(&a, 0.3, 'Z');
    mat_identity(&b);
    mat_rotate(&b, -0.7, 'X');
    for (auto _ : state) {
        mat_mul(&a, &b, &c);
        benchmark::DoNotOptimize(c);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_MatMul);

void BM_MatTransformPoint(benchmark::State& state)
{
    V_MATRIX m;
    mat_identity(&m);
    mat_rotate(&m, 0.4, 'Y');
    const V_POINT t{1.0, 2.0, 3.0};
    V_MATRIX tr;
    mat_translate(&tr, &t);
    mat_mul(&m, &tr, &m);
    V_POINT p{0.25, -1.5, 2.0};
    for (auto _ : state) {
        V_POINT q;
        mat_transform_point(&p, &m, &q);
        benchmark::DoNotOptimize(q);
        p.x += 1e-9;
    }
}
BENCHMARK(BM_MatTransformPoint);

}  // namespace

BENCHMARK_MAIN();
