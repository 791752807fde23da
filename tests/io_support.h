#pragma once
// Helpers shared by the record and dump tests: hand-built byte images, streams, round trips,
// truncation and allocation-failure sweeps, peak memory, leak checks, captured dumps.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <sys/types.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// Appends the n_bytes low bytes of v, least significant first (shifted out, not copied).
inline void put_le(Bytes& b, uint64_t v, int n_bytes)
{
    for (int i = 0; i < n_bytes; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}
// Appends the IEEE-754 bits of d, little-endian.
inline void put_f64(Bytes& b, double d)
{
    uint64_t bits;
    std::memcpy(&bits, &d, 8);
    put_le(b, bits, 8);
}
inline void put_xyz(Bytes& b, double x, double y, double z)
{
    for (double d : {x, y, z}) put_f64(b, d);
}

// A stream holding the first n bytes of b (all by default), rewound; the caller closes it.
inline FILE* stream_of(const Bytes& b, size_t n = SIZE_MAX)
{
    n = std::min(n, b.size());
    FILE* f = std::tmpfile();
    EXPECT_TRUE(f && (n == 0 || std::fwrite(b.data(), 1, n, f) == n));
    std::rewind(f);
    return f;
}

// The bytes r.fwrite_bin writes; with rc null the write must succeed, else *rc gets its status.
template <class R> Bytes record_of(const R& r, short* rc = nullptr)
{
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    const short s = r.fwrite_bin(f);
    if (rc) *rc = s;
    EXPECT_TRUE(rc || s == st::ok) << "write failed";
    Bytes b(static_cast<size_t>(std::ftell(f)));
    std::rewind(f);
    EXPECT_TRUE(b.empty() || std::fread(b.data(), 1, b.size(), f) == b.size());
    std::fclose(f);
    return b;
}

// Reads rec into r through a stream (form 0) or a memory cursor (form 1); *used gets the bytes
// consumed. -1 when the reader threw std::runtime_error.
template <class R> short read_form(R& r, const Bytes& rec, int form, size_t* used)
{
    FILE* f = stream_of(rec);
    Bytes image = rec;
    unsigned char* p = image.data();
    short rc = -1;
    try {
        rc = form == 0 ? r.fread_bin(f) : r.fread_bin(p);
    } catch (const std::runtime_error&) {}
    *used = form == 0 ? size_t(std::ftell(f)) : size_t(p - image.data());
    std::fclose(f);
    return rc;
}

// Reads rec into a fresh make() in both forms: each returns 0 and consumes exactly the
// record, then check(object) runs.
template <class Make, class Check> void expect_round_trip(const Bytes& rec, Make make, Check check)
{
    for (int form = 0; form < 2; ++form) {
        SCOPED_TRACE(form == 0 ? "stream" : "memory");
        auto r = make();
        size_t used;
        EXPECT_EQ(read_form(r, rec, form, &used), st::ok);
        EXPECT_EQ(used, rec.size());
        check(r);
    }
}

// Calls check(f, cut) with a stream over the first cut bytes of rec for every cut < size.
template <class F> void for_each_cut(const Bytes& rec, F check)
{
    for (size_t cut = 0; cut < rec.size(); ++cut) {
        SCOPED_TRACE(testing::Message() << "cut at byte " << cut);
        FILE* f = stream_of(rec, cut);
        check(f, cut);
        std::fclose(f);
    }
}

// Runs attempt() with allocations failing after n = 0, 1, ..., limit successful ones until it
// returns true (then true); the allocator is restored after every try, also on a throw.
template <class F> bool until_allocations_suffice(long limit, F attempt)
{
    struct Restore {
        ~Restore() { v_memptr_fail_after(-1); }
    };
    for (long n = 0; n <= limit; ++n) {
        SCOPED_TRACE(testing::Message() << "allocations allowed: " << n);
        bool ok;
        {
            Restore restore;
            v_memptr_fail_after(n);
            ok = attempt();
        }
        if (ok) return true;
    }
    return false;
}

// The value of f() while allocations fail after n successful ones; the allocator is restored.
template <class F> auto with_allocations(long n, F f)
{
    v_memptr_fail_after(n);
    const auto r = f();
    v_memptr_fail_after(-1);
    return r;
}

// Reads rec into a fresh R in both forms while allocations fail after 0, 1, ... successful
// ones; check(r, rc) sees each try (rc -1: it threw). Both succeed within limit allocations.
template <class R, class Check>
void read_with_failing_allocations(const Bytes& rec, long limit, Check check)
{
    for (int form = 0; form < 2; ++form) {
        SCOPED_TRACE(form == 0 ? "stream" : "memory");
        EXPECT_TRUE(until_allocations_suffice(limit, [&] {
            R r;
            size_t used;
            const short rc = read_form(r, rec, form, &used);
            check(r, rc);
            return rc == st::ok;
        }));
    }
}

// The largest growth of the tracked bytes alive at any read from an unbuffered stream over b
// while read(f) runs, and after it: shows a reader that sizes storage from a count.
template <class F> size_t bytes_grown_reading(const Bytes& b, F read)
{
    const size_t base = v_memptr_live_bytes();
    struct Source {
        const Bytes* b;
        size_t pos, peak;
    } src{&b, 0, base};
    cookie_io_functions_t io{};
    io.read = [](void* cookie, char* buf, size_t size) -> ssize_t {
        Source* s = static_cast<Source*>(cookie);
        s->peak = std::max(s->peak, v_memptr_live_bytes());
        const size_t n = std::min(size, s->b->size() - s->pos);
        std::memcpy(buf, s->b->data() + s->pos, n);
        s->pos += n;
        return static_cast<ssize_t>(n);
    };
    FILE* f = fopencookie(&src, "r", io);
    EXPECT_NE(f, nullptr);
    std::setvbuf(f, nullptr, _IONBF, 0);
    read(f);
    std::fclose(f);
    return std::max(src.peak, v_memptr_live_bytes()) - base;
}

// Fixture: every tracked block made in a test is released; fault injection off, tavotoll kept.
class LeakFree : public ::testing::Test {
protected:
    V_TOLERANCE saved_tol_ = tavotoll;
    long live_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        tavotoll = saved_tol_;
        EXPECT_EQ(v_memptr_live_count(), live_) << "tracked blocks leaked";
    }
};

// The texts that f() hands to the debug sink, one per call.
template <class F> Lines dump_of(F f)
{
    Lines lines;
    debug_set_sink([](const char* text, void* u) { static_cast<Lines*>(u)->emplace_back(text); },
                   &lines);
    f();
    debug_set_sink(nullptr, nullptr);
    return lines;
}

// The rational quarter circle of radius 1 about the origin from (1,0,0) to (0,1,0): control
// points (1,0,0) w 1, (1,1,0) w sqrt(1/2), (0,1,0) w 1, stored homogeneous (x w, y w, z w, w).
// Polynomial: the same control points without weights (a parabolic arc).
inline CNurbs quarter_curve(bool rational = true)
{
    CNurbs c;
    c.order = 3;
    c.n_cpts = 3;
    c.vpp = rational ? 4 : 3;
    c.rational = rational;
    c.form = rational ? 1 : 0;  // a circular arc
    c.n_knots = 2;
    EXPECT_EQ(c.Init_Lists(), st::ok);
    const double w[3] = {1.0, rational ? 0.70710678118654752440 : 1.0, 1.0};
    const double p[3][3] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    for (int k = 0; k < 3; ++k) {
        for (double x : p[k]) c.cpts->Append(x * w[k]);
        if (rational) c.cpts->Append(w[k]);
    }
    EXPECT_TRUE(c.knots->Append(0.0) && c.knots->Append(1.0));
    EXPECT_TRUE(c.mults->Append(3) && c.mults->Append(3));
    return c;
}

// One element of every kind, with unit, perpendicular frames wherever a kind has one:
// 0 empty, 1 point, 2 segment, 3 line, 4 circle, 5 arc (negative radius), 6 ellipse,
// 7 elliptical arc, 8 symbol, 9 text, 10 empty text, 11 rational curve, 12 polyline, 13 point
// set (a deleted position, flags and count word), 14..17 the codes 9, 21, -3 and 300,
// 18 polyline with a hole, 19 polynomial curve, 20 circle with negative radius.
inline std::vector<V_ELEMENT> element_samples()
{
    std::vector<V_ELEMENT> v(21);
    v[1].SetPoint(1.5, -2.25, 1e-300);
    v[2].SetSegment(1, 2, 3, 4, 5, 6);
    v[3].SetLine(V_POINT{0, 1, 2}, V_VECTOR{0.6, 0.8, 0});
    v[4].SetCircle(V_POINT{1, 2, 3}, 4, V_VECTOR{0, 0, 1});
    v[5].SetArc(V_POINT{1, 1, 0}, -2, V_POINT{3, 1, 0}, V_POINT{1, 3, 0}, V_VECTOR{0, 0, 1});
    v[6].SetEllipse(V_ELLIPSE{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 5, 2});
    v[7].SetEllipticalArc(
        V_ELLIPTICALARC{{{0, 0, 0}, {0, 1, 0}, {-1, 0, 0}, 3, 1}, {0, 3, 0}, {-1, 0, 0}});
    v[8].SetSymbolInstance(
        V_SYMBOL_INST{{1, 2, 3}, {1, 0, 0}, {0, 0, 1}, 2, 2, 2, 0.5, -7, 0x55AA, {u'S'}});
    static char16_t chars[] = u"Hi \u00e9!", empty[] = u"";  // host storage, alive throughout
    V_TEXT t{{1, 2, 3}, {0, 0, 1}, {1, 0, 0}, 12, 3, 0.25, 0.5, 1.5, "Sans", 4, 3, 9, chars, 1, 0};
    v[9].SetText(t);
    t.text = empty;
    v[10].SetText(t);
    v[11].SetCurve(quarter_curve());
    List<V_POINT> pts;
    for (int i = 0; i < 4; ++i) pts.Append(V_POINT{double(i), 1.0 / (i + 1), -double(i)});
    EXPECT_EQ(v[12].SetPolyline(pts), st::ok);
    V_WORKPLANE wp{};  // every byte defined, the fill included
    wp.origin = {1, 1, 1};
    wp.name[0] = u'W';
    wp.id = 3;
    wp.xaxis = {0, 1, 0};
    wp.yaxis = {-1, 0, 0};
    wp.zaxis = {0, 0, 1};
    EXPECT_EQ(v[13].SetPointSet(pts, wp), st::ok);
    EXPECT_EQ(v[13].pointset.DeletePoint(2), st::ok);
    v[13].pointset.flags = 0xBEEF;
    v[13].pointset.count_word = 77;
    const int16_t codes[4] = {9, 21, -3, 300};
    for (int k = 0; k < 4; ++k) v[14 + k].TypeSet(codes[k]);
    EXPECT_EQ(v[18].SetPolyline(pts), st::ok);
    v[18].polyline.Points()->Delete(2);
    v[19].SetCurve(quarter_curve(false));
    v[20].SetCircle(V_POINT{0, 0, 1}, -1.5, V_VECTOR{0, 1, 0});
    return v;
}

}  // namespace testsupport
