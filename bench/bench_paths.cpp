// Throughput of the polyline record: 10^6 points written and read through a memory image
// and through a FILE* on a temporary file. Bytes/s counts the whole record (6 + 24 * N).
#include <kestra/kestra.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr unsigned kPoints = 1000000;

const Polyline& sample()
{
    static const Polyline pl = [] {
        Polyline p;
        for (unsigned i = 0; i < kPoints; ++i)
            p.Append(V_POINT{i * 0.001, i * -0.002, 1.0 / (i + 1)});
        return p;
    }();
    return pl;
}

// The record of sample() in memory.
const std::vector<unsigned char>& image()
{
    static const std::vector<unsigned char> bytes = [] {
        std::vector<unsigned char> b(6 + 24 * size_t(kPoints));
        FILE* f = fmemopen(b.data(), b.size(), "wb");
        if (!f || sample().fwrite_bin(f) != 0) std::abort();
        std::fclose(f);
        return b;
    }();
    return bytes;
}

void BM_PolylineReadMemory(benchmark::State& state)
{
    const std::vector<unsigned char>& b = image();
    for (auto _ : state) {
        unsigned char* cur = const_cast<unsigned char*>(b.data());
        Polyline pl;
        if (pl.fread_bin(cur) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(pl.Points());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(b.size()));
}

void BM_PolylineWriteMemory(benchmark::State& state)
{
    const Polyline& pl = sample();
    std::vector<unsigned char> buf(image().size() + 64);
    FILE* f = fmemopen(buf.data(), buf.size(), "wb");
    for (auto _ : state) {
        std::rewind(f);
        if (pl.fwrite_bin(f) != 0) state.SkipWithError("write failed");
        std::fflush(f);
    }
    std::fclose(f);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image().size()));
}

void BM_PolylineReadFile(benchmark::State& state)
{
    const std::vector<unsigned char>& b = image();
    FILE* f = std::tmpfile();
    std::fwrite(b.data(), 1, b.size(), f);
    for (auto _ : state) {
        std::rewind(f);
        Polyline pl;
        if (pl.fread_bin(f) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(pl.Points());
    }
    std::fclose(f);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(b.size()));
}

void BM_PolylineWriteFile(benchmark::State& state)
{
    const Polyline& pl = sample();
    FILE* f = std::tmpfile();
    for (auto _ : state) {
        std::rewind(f);
        if (pl.fwrite_bin(f) != 0) state.SkipWithError("write failed");
        std::fflush(f);
    }
    std::fclose(f);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image().size()));
}

}  // namespace

BENCHMARK(BM_PolylineReadMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PolylineWriteMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PolylineReadFile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PolylineWriteFile)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
