// Curve lifecycle, text dump and binary record. Record bytes are compared with a record
// assembled here from the field offsets; dumps with lines written out by hand.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A curve from explicit lists (mults may be left out).
CNurbs make(int order, int vpp, bool rational, const std::vector<double>& cp,
            const std::vector<double>& K, const std::vector<int>& M)
{
    CNurbs c;
    c.order = order;
    c.vpp = vpp;
    c.rational = rational ? 1 : 0;
    c.n_cpts = static_cast<int>(cp.size()) / vpp;
    c.n_knots = static_cast<int>(K.size());
    EXPECT_EQ(c.Init_Lists(M.empty()), st::ok);
    for (double v : cp) c.cpts->Append(v);
    for (double k : K) c.knots->Append(k);
    for (int m : M) c.mults->Append(m);
    return c;
}

// A rational quadratic: three points (1,2,3) w 1, (1,1,0) w 2, (0,0,5) w 1.
CNurbs quarter()
{
    CNurbs c = make(3, 4, true, {1, 2, 3, 1, 2, 2, 0, 2, 0, 0, 5, 1}, {0.0, 1.0}, {3, 3});
    c.closed = 1;
    c.periodic = 1;
    c.form = 1;
    return c;
}

std::vector<unsigned char> written(const CNurbs& c)
{
    FILE* f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    EXPECT_EQ(c.fwrite_bin(f), st::ok);
    std::vector<unsigned char> bytes(static_cast<size_t>(std::ftell(f)));
    std::rewind(f);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
    return bytes;
}

// A stream over the first n bytes.
FILE* stream_of(const std::vector<unsigned char>& bytes, size_t n)
{
    FILE* f = std::tmpfile();
    if (n) std::fwrite(bytes.data(), 1, n, f);
    std::rewind(f);
    return f;
}

template <class T> void push(std::vector<unsigned char>& b, T v)
{
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &v, sizeof v);
    b.insert(b.end(), raw, raw + sizeof v);
}

bool same_lists(const CNurbs& a, const CNurbs& b)
{
    auto eq = [](auto* x, auto* y) {
        if (!x || !y) return x == y;
        return x->Count() == y->Count() &&
               std::memcmp(x->items, y->items, x->Count() * sizeof(*x->items)) == 0;
    };
    return a.closed == b.closed && a.parametric == b.parametric && a.periodic == b.periodic &&
           a.rational == b.rational && a.form == b.form && a.order == b.order &&
           a.n_cpts == b.n_cpts && a.vpp == b.vpp && a.n_knots == b.n_knots && eq(a.cpts, b.cpts) &&
           eq(a.knots, b.knots) && eq(a.mults, b.mults);
}

// Captures debug_printf output.
struct Capture {
    std::string text;
    Capture() { debug_set_sink(&Capture::sink, this); }
    ~Capture() { debug_set_sink(nullptr, nullptr); }
    static void sink(const char* t, void* user) { static_cast<Capture*>(user)->text += t; }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string l; std::getline(in, l);) out.push_back(l);
        return out;
    }
};

}  // namespace

// --- lifecycle ---

TEST(Lifecycle, CopyIsDeepMoveTakesTheLists)
{
    const long live = v_memptr_live_count();
    {
        CNurbs a = quarter();
        CNurbs b(a);
        EXPECT_NE(a.cpts, b.cpts);
        EXPECT_TRUE(same_lists(a, b));
        b.cpts->items[0] = 42.0;
        EXPECT_EQ(a.cpts->items[0], 1.0);

        List<double>* lists = a.cpts;
        CNurbs m(std::move(a));
        EXPECT_EQ(m.cpts, lists);
        EXPECT_EQ(a.cpts, nullptr);
        EXPECT_EQ(a.knots, nullptr);
        EXPECT_EQ(a.order, 0);
        EXPECT_EQ(a.closed, 0);

        b = m;  // copy assignment releases b's old lists
        EXPECT_TRUE(same_lists(b, m));
        b = std::move(m);
        EXPECT_EQ(m.mults, nullptr);
        EXPECT_EQ(m.n_knots, 0);
        CNurbs& self = b;
        b = self;
        EXPECT_EQ(b.n_cpts, 3);
        b.Free_Lists();
        EXPECT_EQ(b.cpts, nullptr);
        EXPECT_EQ(b.vpp, 0);
        EXPECT_EQ(b.form, 0);
    }
    EXPECT_EQ(v_memptr_live_count(), live);
}

TEST(Lifecycle, InitListsFollowsTheCounts)
{
    CNurbs c;
    c.n_cpts = 5;
    c.vpp = 4;
    c.n_knots = 3;
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    EXPECT_EQ(c.cpts->grow_by, 20u);
    EXPECT_EQ(c.knots->grow_by, 3u);
    EXPECT_EQ(c.mults->grow_by, 3u);
    EXPECT_EQ(c.cpts->Count(), 0u);
    ASSERT_EQ(c.Init_Lists(true), st::ok);
    EXPECT_EQ(c.mults, nullptr);

    CNurbs d;
    d.n_cpts = 1;  // below 2: no control list
    d.vpp = 3;
    d.n_knots = 2;
    ASSERT_EQ(d.Init_Lists(false), st::ok);
    EXPECT_EQ(d.cpts, nullptr);
    EXPECT_NE(d.knots, nullptr);

    // A failed allocation leaves every list in place.
    CNurbs e = quarter();
    List<double>* old = e.cpts;
    v_memptr_fail_after(1);
    EXPECT_EQ(e.Init_Lists(false), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(e.cpts, old);
    EXPECT_EQ(e.cpts->Count(), 12u);
}

TEST(Lifecycle, BezierFrame)
{
    CNurbs c = quarter();
    ASSERT_EQ(c.Init_As_Bezier_Curve(4), st::ok);
    EXPECT_EQ(c.order, 4);
    EXPECT_EQ(c.n_cpts, 4);
    EXPECT_EQ(c.vpp, 3);
    EXPECT_EQ(c.rational, 0);
    EXPECT_EQ(c.closed, 0);
    EXPECT_EQ(c.form, 0);
    EXPECT_EQ(c.n_knots, 2);
    EXPECT_EQ(c.knots->items[1], 1.0);
    EXPECT_EQ(c.mults->items[0], 4);
    EXPECT_EQ(c.cpts->Count(), 0u);
    EXPECT_EQ(c.Init_As_Bezier_Curve(1), st::bad_input);
}

// --- text dump ---

TEST(DebugOutput, RationalClosedPeriodicCurve_LineByLine)
{
    const CNurbs c = quarter();
    Capture cap;
    c.DebugOutput("arc");
    const std::vector<std::string> want = {
        "======= Start \" arc \"",
        "Order = 3 Rational Closed Periodic",
        "Form is CIRCULAR_ARC",
        "======= Start ",
        "P1 X=1.000000000000 Y=2.000000000000 Z=3.000000000000 Wt=1.000000000000",
        "P2 X=1.000000000000 Y=1.000000000000 Z=0.000000000000 Wt=2.000000000000",
        "P3 X=0.000000000000 Y=0.000000000000 Z=5.000000000000 Wt=1.000000000000",
        "=======",
        "======= Start ",
        "KNOT 1  Multiplicity 3 = 0.000000000000",
        "KNOT 2  Multiplicity 3 = 1.000000000000",
        "======= End ",
    };
    EXPECT_EQ(cap.lines(), want);
}

TEST(DebugOutput, ParametricCurvesFormsAndUnsetKnots)
{
    CNurbs c = make(2, 2, false, {0.5, 0.25, 1, -2}, {0.0, 1.0}, {2, 2});
    c.parametric = 1;
    c.form = 9;
    {
        Capture cap;
        c.DebugOutput(nullptr);
        const std::vector<std::string> l = cap.lines();
        ASSERT_EQ(l.size(), 11u);
        EXPECT_EQ(l[0], "======= Start ");
        EXPECT_EQ(l[1], "Order = 2 Parametric curve");
        EXPECT_EQ(l[2], "Form is UNKNOWN");
        EXPECT_EQ(l[4], "P1 U=0.500000000000 V=0.250000000000 ");
        EXPECT_EQ(l[5], "P2 U=1.000000000000 V=-2.000000000000 ");
    }
    const char* names[] = {"UNDEFINED", "CIRCULAR_ARC", "PARABOLIC ARC", "ELLIPTICAL ARC",
                           "HYPERBOLIC ARC"};
    for (int f = 0; f < 5; ++f) {
        c.form = f;
        Capture cap;
        c.DebugOutput(nullptr);
        EXPECT_EQ(cap.lines()[2], std::string("Form is ") + names[f]);
    }
    CNurbs r = make(2, 3, true, {2, 4, 2, 3, 3, 1}, {0.0, 1.0}, {2, 2});
    r.parametric = 1;
    r.mults->Delete(2);
    Capture cap;
    r.DebugOutputVertices("v");
    r.DebugOutputKnots(nullptr);
    const std::vector<std::string> want = {
        "======= Start \" v \"",
        "P1 U=1.000000000000 V=2.000000000000 Wt=2.000000000000",
        "P2 U=3.000000000000 V=3.000000000000 Wt=1.000000000000",
        "=======",
        "======= Start ",
        "KNOT 1  Multiplicity 2 = 0.000000000000",
        "KNOT 2 Undefined",
        "======= End ",
    };
    EXPECT_EQ(cap.lines(), want);
}

TEST(DebugOutput, CorruptCounts_StopWithTheHeldData)
{
    CNurbs c = quarter();
    c.n_cpts = 2000000000;
    c.n_knots = 2000000000;
    Capture cap;
    c.DebugOutput(nullptr);
    EXPECT_EQ(cap.lines().size(), 12u);  // the same lines as the three points, two knots
}

// --- binary record ---

TEST(Record, BytesFollowTheFieldOffsets)
{
    const CNurbs c = quarter();
    std::vector<unsigned char> want;
    push<int16_t>(want, 1);  // closed
    push<int16_t>(want, 0);  // parametric
    push<int16_t>(want, 1);  // periodic
    push<int16_t>(want, 1);  // rational
    push<int32_t>(want, 1);  // form
    push<int32_t>(want, 3);  // order
    push<int32_t>(want, 3);  // control points
    push<int32_t>(want, 4);  // values per point
    push<int32_t>(want, 2);  // distinct knots
    push<uint32_t>(want, 12);
    for (double v : {1, 2, 3, 1, 2, 2, 0, 2, 0, 0, 5, 1}) push<double>(want, v);
    push<uint32_t>(want, 2);
    push<double>(want, 0.0);
    push<double>(want, 1.0);
    push<uint32_t>(want, 2);
    push<int32_t>(want, 3);
    push<int32_t>(want, 3);
    ASSERT_EQ(want.size(), 40u + 8 * 12 + 8 * 2 + 4 * 2);
    EXPECT_EQ(written(c), want);
}

TEST(Record, RoundTripBitForBit_StreamAndMemory)
{
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> v(-1e6, 1e6);
    for (int rep = 0; rep < 20; ++rep) {
        const int order = 1 + rep % 7, n = order + rep % 5 + 1, vpp = 3 + rep % 2;
        std::vector<double> cp;
        for (int i = 0; i < n * vpp; ++i) cp.push_back(v(rng));
        cp[0] = -0.0;  // the sign of zero survives too
        CNurbs c = make(order, vpp, vpp == 4, cp, {0.0, 0.3, 1.0}, {order, n - order, order});
        c.form = rep;
        c.parametric = static_cast<int16_t>(rep & 1);
        c.closed = static_cast<int16_t>(rep % 3);
        const std::vector<unsigned char> bytes = written(c);

        CNurbs s = quarter();
        FILE* f = stream_of(bytes, bytes.size());
        ASSERT_EQ(s.fread_bin(f), st::ok);
        std::fclose(f);
        EXPECT_TRUE(same_lists(s, c));
        EXPECT_EQ(written(s), bytes);

        std::vector<unsigned char> padded = bytes;
        padded.push_back(0xAB);
        unsigned char* cur = padded.data();
        CNurbs m;
        ASSERT_EQ(m.fread_bin(cur), st::ok);
        EXPECT_EQ(cur, padded.data() + bytes.size());
        EXPECT_TRUE(same_lists(m, c));
        cur = padded.data();
        CNurbs b;
        ASSERT_EQ(b.fread_bin(cur, padded.size()), st::ok);
        EXPECT_EQ(cur, padded.data() + bytes.size());
        EXPECT_TRUE(same_lists(b, c));
    }
}

TEST(Record, MissingListsAndCountsTakenAsTheyStand)
{
    CNurbs c = make(2, 3, false, {0, 0, 0, 1, 1, 1}, {0.0, 1.0}, {});
    ASSERT_EQ(c.mults, nullptr);
    const std::vector<unsigned char> bytes = written(c);
    ASSERT_EQ(bytes.size(), 40u + 48 + 16);  // M = 0
    EXPECT_EQ(bytes.back(), 0);
    unsigned char* cur = const_cast<unsigned char*>(bytes.data());
    CNurbs r;
    ASSERT_EQ(r.fread_bin(cur, bytes.size()), st::ok);
    ASSERT_NE(r.mults, nullptr);  // an empty multiplicity list
    EXPECT_EQ(r.mults->Count(), 0u);

    // Arrays whose counts disagree with the header are read as they are, even without
    // a list the header would create.
    std::vector<unsigned char> odd(28, 0);
    odd[12] = 2;  // order 2, no points, no knots in the header
    push<uint32_t>(odd, 1);
    push<double>(odd, 7.5);
    push<uint32_t>(odd, 0);
    push<uint32_t>(odd, 3);
    for (int m : {1, 2, 3}) push<int32_t>(odd, m);
    cur = odd.data();
    ASSERT_EQ(r.fread_bin(cur, odd.size()), st::ok);
    ASSERT_NE(r.cpts, nullptr);
    EXPECT_EQ(r.cpts->items[0], 7.5);
    EXPECT_EQ(r.knots, nullptr);
    EXPECT_EQ(r.mults->Count(), 3u);
    EXPECT_EQ(r.n_cpts, 0);
}

TEST(Record, NullStreams)
{
    CNurbs c = quarter();
    EXPECT_EQ(c.fwrite_bin(nullptr), st::bad_index);
    EXPECT_EQ(c.fread_bin(static_cast<FILE*>(nullptr)), st::bad_index);
}

TEST(Record, TruncatedAtEveryByte_FailsCleanly)
{
    const std::vector<unsigned char> bytes = written(quarter());
    CNurbs target = make(2, 3, false, {9, 9, 9, 8, 8, 8}, {0.0, 2.0}, {2, 2});
    const CNurbs before = target;
    const long live = v_memptr_live_count();
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        FILE* f = stream_of(bytes, cut);
        EXPECT_EQ(target.fread_bin(f), st::bad_input) << cut;
        std::fclose(f);
        unsigned char* cur = const_cast<unsigned char*>(bytes.data());
        EXPECT_EQ(target.fread_bin(cur, cut), st::bad_input) << cut;
        EXPECT_EQ(cur, bytes.data());
        EXPECT_EQ(v_memptr_live_count(), live) << cut;
    }
    EXPECT_TRUE(same_lists(target, before));
}

namespace {

// An unbuffered stream over bytes that notes the allocator's live bytes at every read, so
// that a reader reserving from a count before reading shows up.
struct Watched {
    const std::vector<unsigned char>* bytes;
    size_t pos = 0;
    size_t peak = 0;
};

ssize_t watched_read(void* cookie, char* buf, size_t size)
{
    Watched* w = static_cast<Watched*>(cookie);
    w->peak = std::max(w->peak, v_memptr_live_bytes());
    const size_t n = std::min(size, w->bytes->size() - w->pos);
    std::memcpy(buf, w->bytes->data() + w->pos, n);
    w->pos += n;
    return static_cast<ssize_t>(n);
}

}  // namespace

TEST(Record, HugeCountInATinyStream_NoLargeAllocation)
{
    for (int which = 0; which < 3; ++which) {
        std::vector<unsigned char> b;
        push<int16_t>(b, 0);
        push<int16_t>(b, 0);
        push<int16_t>(b, 0);
        push<int16_t>(b, 0);
        push<int32_t>(b, 0);
        push<int32_t>(b, 4);
        push<int32_t>(b, 0x7fffffff);  // corrupt counts in the header as well
        push<int32_t>(b, 4);
        push<int32_t>(b, 0x7fffffff);
        for (int k = 0; k < which; ++k) push<uint32_t>(b, 0);
        push<uint32_t>(b, 0xfffffff0u);
        for (int k = 0; k < 4; ++k) push<double>(b, 1.0);

        Watched w{&b};
        cookie_io_functions_t io{watched_read, nullptr, nullptr, nullptr};
        FILE* f = fopencookie(&w, "r", io);
        ASSERT_NE(f, nullptr);
        std::setvbuf(f, nullptr, _IONBF, 0);
        const size_t base = v_memptr_live_bytes();
        CNurbs c;
        EXPECT_EQ(c.fread_bin(f), st::bad_input);
        std::fclose(f);
        EXPECT_LT(w.peak, base + 64 * 1024) << which;
        EXPECT_EQ(c.cpts, nullptr);

        unsigned char* cur = b.data();
        EXPECT_EQ(c.fread_bin(cur, b.size()), st::bad_input);
    }
}

TEST(Record, AllocationFailuresWhileReading_LeaveTheCurve)
{
    std::vector<double> cp(3 * 1500, 0.25);
    const CNurbs big = make(2, 3, false, cp, {0.0, 1.0}, {2, 1500});
    const std::vector<unsigned char> bytes = written(big);
    CNurbs target = quarter();
    const CNurbs before = target;
    const long live = v_memptr_live_count();
    bool succeeded = false;
    for (long n = 0; n < 40 && !succeeded; ++n) {
        unsigned char* cur = const_cast<unsigned char*>(bytes.data());
        v_memptr_fail_after(n);
        const short rc = target.fread_bin(cur, bytes.size());
        v_memptr_fail_after(-1);
        if (rc == st::ok) {
            succeeded = true;
            EXPECT_TRUE(same_lists(target, big));
        } else {
            EXPECT_EQ(rc, st::bad_input);
            EXPECT_TRUE(same_lists(target, before));
            EXPECT_EQ(v_memptr_live_count(), live);
        }
    }
    EXPECT_TRUE(succeeded);
}
