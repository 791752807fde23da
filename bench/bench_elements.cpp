// Element records: writing and reading 10^5 mixed elements through a FILE* and reading them
// from a memory image; and one polyline element of 10^6 points read from memory.
#include <kestra/kestra.h>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kElements = 100000;
char16_t kChars[] = u"Kestra element record";

CNurbs quarter()
{
    CNurbs c;
    c.order = 3;
    c.n_cpts = 3;
    c.vpp = 4;
    c.rational = 1;
    c.n_knots = 2;
    c.Init_Lists();
    const double w = std::sqrt(0.5);
    for (double v : {1.0, 0.0, 0.0, 1.0, w, w, 0.0, w, 0.0, 1.0, 0.0, 1.0}) c.cpts->Append(v);
    c.knots->Append(0.0);
    c.knots->Append(1.0);
    c.mults->Append(3);
    c.mults->Append(3);
    return c;
}

// Elements cycling through every kind; polylines and point sets hold 8 points.
const std::vector<V_ELEMENT>& mixed()
{
    static std::vector<V_ELEMENT> v = [] {
        std::vector<V_ELEMENT> out(kElements);
        List<V_POINT> pts;
        for (int i = 0; i < 8; ++i) pts.Append(V_POINT{double(i), 1.0 * i * i, 0.5});
        V_WORKPLANE wp{};
        init_wpl(&wp);
        const CNurbs c = quarter();
        V_TEXT t{};
        t.normal = {0, 0, 1};
        t.xaxis = {1, 0, 0};
        t.height = 2;
        t.text = kChars;
        for (size_t i = 0; i < kElements; ++i) {
            const double d = double(i);
            switch (i % 11) {
            case 0:
                out[i].SetPoint(d, 1, 2);
                break;
            case 1:
                out[i].SetSegment(d, 0, 0, d, 1, 0);
                break;
            case 2:
                out[i].SetLine(V_POINT{d, 0, 0}, V_VECTOR{0, 0, 1});
                break;
            case 3:
                out[i].SetCircle(V_POINT{d, 0, 0}, 2, V_VECTOR{0, 0, 1});
                break;
            case 4:
                out[i].SetArc(V_POINT{d, 0, 0}, 1, V_POINT{d + 1, 0, 0}, V_POINT{d, 1, 0},
                              V_VECTOR{0, 0, 1});
                break;
            case 5:
                out[i].SetEllipse(V_ELLIPSE{{d, 0, 0}, {1, 0, 0}, {0, 1, 0}, 3, 1});
                break;
            case 6:
                out[i].SetEllipticalArc(V_ELLIPTICALARC{
                    {{d, 0, 0}, {1, 0, 0}, {0, 1, 0}, 3, 1}, {d + 3, 0, 0}, {d, 1, 0}});
                break;
            case 7:
                out[i].SetText(t);
                break;
            case 8:
                out[i].SetCurve(c);
                break;
            case 9:
                out[i].SetPolyline(pts);
                break;
            default:
                out[i].SetPointSet(pts, wp);
                break;
            }
        }
        return out;
    }();
    return v;
}

// The records of the mixed elements, written once.
const std::vector<unsigned char>& mixed_image()
{
    static std::vector<unsigned char> img = [] {
        FILE* f = std::tmpfile();
        for (const V_ELEMENT& e : mixed()) e.fwrite_bin(f);
        std::vector<unsigned char> b(static_cast<size_t>(std::ftell(f)));
        std::rewind(f);
        if (std::fread(b.data(), 1, b.size(), f) != b.size()) b.clear();
        std::fclose(f);
        return b;
    }();
    return img;
}

void free_text(V_ELEMENT* e)
{
    if (e->TypeGet() == 14) _v_free(e->text.text, __FILE__, __LINE__, "bench");
}

void BM_WriteMixedToFile(benchmark::State& state)
{
    const std::vector<V_ELEMENT>& v = mixed();
    FILE* f = std::tmpfile();
    for (auto _ : state) {
        std::rewind(f);
        for (const V_ELEMENT& e : v) benchmark::DoNotOptimize(e.fwrite_bin(f));
        std::fflush(f);
    }
    std::fclose(f);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(mixed_image().size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(v.size()));
}
BENCHMARK(BM_WriteMixedToFile)->Unit(benchmark::kMillisecond);

void BM_ReadMixedFromFile(benchmark::State& state)
{
    const std::vector<unsigned char>& img = mixed_image();
    FILE* f = std::tmpfile();
    std::fwrite(img.data(), 1, img.size(), f);
    std::vector<V_ELEMENT> back(kElements);
    for (auto _ : state) {
        std::rewind(f);
        for (V_ELEMENT& e : back) {
            benchmark::DoNotOptimize(e.fread_bin(f));
            free_text(&e);
        }
    }
    std::fclose(f);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(img.size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kElements));
}
BENCHMARK(BM_ReadMixedFromFile)->Unit(benchmark::kMillisecond);

void BM_ReadMixedFromMemory(benchmark::State& state)
{
    std::vector<unsigned char> img = mixed_image();
    std::vector<V_ELEMENT> back(kElements);
    for (auto _ : state) {
        unsigned char* p = img.data();
        for (V_ELEMENT& e : back) {
            benchmark::DoNotOptimize(e.fread_bin(p));
            free_text(&e);
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(img.size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kElements));
}
BENCHMARK(BM_ReadMixedFromMemory)->Unit(benchmark::kMillisecond);

// One polyline element of 10^6 points (24 MB of record).
void BM_ReadPolylineElementFromMemory(benchmark::State& state)
{
    V_ELEMENT e;
    {
        List<V_POINT> pts(1000000);
        for (int i = 0; i < 1000000; ++i) pts.Append(V_POINT{double(i), 0.5 * i, 1.0});
        e.SetPolyline(pts);
    }
    FILE* f = std::tmpfile();
    e.fwrite_bin(f);
    std::vector<unsigned char> img(static_cast<size_t>(std::ftell(f)));
    std::rewind(f);
    if (std::fread(img.data(), 1, img.size(), f) != img.size()) state.SkipWithError("short");
    std::fclose(f);
    V_ELEMENT r;
    for (auto _ : state) {
        unsigned char* p = img.data();
        benchmark::DoNotOptimize(r.fread_bin(p));
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(img.size()));
}
BENCHMARK(BM_ReadPolylineElementFromMemory)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
