// Curve lifecycle, text dump and binary record. Record bytes are compared with a record
// assembled here from the field offsets; dumps with lines written out by hand.
#include "curve_support.h"
#include "io_support.h"

using testsupport::Bytes;
using testsupport::put_f64;
using testsupport::put_le;
using testsupport::record_of;
using D = std::vector<double>;
using Lines = std::vector<std::string>;

namespace {

using CurveTest = testsupport::LeakFree;

// A curve from linear knots and homogeneous values.
CNurbs make(int order, int vpp, bool rational, const D& T, const D& P)
{
    return curvetest::build(curvetest::make_ref(order, T, P, vpp, rational));
}

// A rational quadratic, closed, periodic, form 1: (1,2,3) w 1, (1,1,0) w 2, (0,0,5) w 1.
CNurbs quarter()
{
    CNurbs c = make(3, 4, true, {0, 0, 0, 1, 1, 1}, {1, 2, 3, 1, 2, 2, 0, 2, 0, 0, 5, 1});
    c.closed = c.periodic = 1;
    c.form = 1;
    return c;
}

// The text handed to the debug sink by f, split into lines.
template <class F> Lines dump_lines(F f)
{
    return curvetest::split_lines(testsupport::dump_of(f));
}

}  // namespace

// --- lifecycle ---

TEST_F(CurveTest, CopyIsDeep_MoveTakesTheLists_FreeZeroFills)
{
    const Bytes empty = record_of(CNurbs());
    CNurbs a = quarter();
    CNurbs b(a);
    EXPECT_NE(a.cpts, b.cpts);
    EXPECT_EQ(record_of(b), record_of(a));
    b.cpts->items[0] = 42.0;
    EXPECT_EQ(a.cpts->items[0], 1.0);
    List<double>* lists = a.cpts;
    CNurbs m(std::move(a));
    EXPECT_EQ(m.cpts, lists);
    EXPECT_EQ(record_of(a), empty);  // zero-filled, no lists
    b = m;                           // releases b's old lists
    EXPECT_EQ(record_of(b), record_of(m));
    b = std::move(m);
    EXPECT_EQ(record_of(m), empty);
    CNurbs& self = b;
    b = self;
    EXPECT_EQ(record_of(b), record_of(quarter()));
    b.Free_Lists();
    EXPECT_EQ(record_of(b), empty);
}

TEST_F(CurveTest, InitListsFollowsTheCounts_BezierFrame)
{
    CNurbs c;
    c.n_cpts = 5;
    c.vpp = 4;
    c.n_knots = 3;
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    EXPECT_EQ((D{double(c.cpts->grow_by), double(c.knots->grow_by), double(c.mults->grow_by)}),
              (D{20, 3, 3}));  // n_cpts * vpp and n_knots
    ASSERT_EQ(c.Init_Lists(true), st::ok);
    EXPECT_EQ(c.mults, nullptr);
    c.n_cpts = 1;  // below 2: the control list stays as it is
    List<double>* kept = c.cpts;
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    EXPECT_EQ(c.cpts, kept);
    CNurbs e = quarter();  // a failed allocation leaves every list in place
    v_memptr_fail_after(1);
    EXPECT_EQ(e.Init_Lists(false), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(e.cpts->Count(), 12u);
    ASSERT_EQ(e.Init_As_Bezier_Curve(4), st::ok);
    EXPECT_EQ(D({double(e.order), double(e.n_cpts), double(e.vpp), double(e.rational),
                 double(e.closed), double(e.form), double(e.n_knots), (*e.knots)[2],
                 double((*e.mults)[1]), double(e.cpts->Count())}),
              (D{4, 4, 3, 0, 0, 0, 2, 1, 4, 0}));
    EXPECT_EQ(e.Init_As_Bezier_Curve(1), st::bad_input);
}

// --- text dump ---

TEST_F(CurveTest, DebugOutput_LineByLine)
{
    const CNurbs c = quarter();
    const Lines want = {
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
    EXPECT_EQ(dump_lines([&] { c.DebugOutput("arc"); }), want);
    CNurbs big = quarter();  // corrupt counts: the dump ends with the data the lists hold
    big.n_cpts = big.n_knots = 2000000000;
    EXPECT_EQ(dump_lines([&] { big.DebugOutput("arc"); }), want);

    CNurbs p = make(2, 2, false, {0, 0, 1, 1}, {0.5, 0.25, 1, -2});
    p.parametric = 1;
    const char* names[] = {"UNDEFINED",      "CIRCULAR_ARC",   "PARABOLIC ARC",
                           "ELLIPTICAL ARC", "HYPERBOLIC ARC", "UNKNOWN"};
    for (int f = 0; f < 6; ++f) {
        p.form = f == 5 ? 9 : f;
        const Lines l = dump_lines([&] { p.DebugOutput(nullptr); });
        ASSERT_EQ(l.size(), 11u);
        EXPECT_EQ(l[2], std::string("Form is ") + names[f]);
        EXPECT_EQ(l[1], "Order = 2 Parametric curve");
        EXPECT_EQ(l[4], "P1 U=0.500000000000 V=0.250000000000 ");
    }
    CNurbs r = make(2, 3, true, {0, 0, 1, 1}, {2, 4, 2, 3, 3, 1});
    r.mults->Delete(2);
    const Lines want_r = {
        "======= Start \" v \"",
        "P1 U=1.000000000000 V=2.000000000000 Wt=2.000000000000",
        "P2 U=3.000000000000 V=3.000000000000 Wt=1.000000000000",
        "=======",
        "======= Start ",
        "KNOT 1  Multiplicity 2 = 0.000000000000",
        "KNOT 2 Undefined",
        "======= End ",
    };
    EXPECT_EQ(dump_lines([&] {
                  r.DebugOutputVertices("v");
                  r.DebugOutputKnots(nullptr);
              }),
              want_r);
}

// --- binary record ---

TEST_F(CurveTest, Record_BytesFollowTheFieldOffsets)
{
    Bytes want;
    for (int16_t flag : {1, 0, 1, 1}) put_le(want, uint16_t(flag), 2);  // closed .. rational
    for (int32_t v : {1, 3, 3, 4, 2}) put_le(want, uint32_t(v), 4);     // form, order .. knots
    put_le(want, 12, 4);
    for (double v : {1, 2, 3, 1, 2, 2, 0, 2, 0, 0, 5, 1}) put_f64(want, v);
    put_le(want, 2, 4);
    put_f64(want, 0.0);
    put_f64(want, 1.0);
    for (uint32_t v : {2, 3, 3}) put_le(want, v, 4);
    EXPECT_EQ(record_of(quarter()), want);
    // Without a multiplicity list the last count is 0; reading makes an empty list.
    CNurbs c = make(2, 3, false, {0, 0, 1, 1}, {0, 0, 0, 1, 1, 1});
    kestra::detail::tracked_delete(c.mults);
    c.mults = nullptr;
    Bytes b = record_of(c);
    ASSERT_EQ(b.size(), 28u + 4 + 48 + 4 + 16 + 4);
    EXPECT_EQ(Bytes(b.end() - 4, b.end()), Bytes(4, 0));
    unsigned char* cur = b.data();
    ASSERT_EQ(c.fread_bin(cur, b.size()), st::ok);
    ASSERT_NE(c.mults, nullptr);
    EXPECT_EQ(c.mults->Count(), 0u);
    FILE* full = std::fopen("/dev/full", "w");  // every write fails at once, unbuffered
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(c.fwrite_bin(full), st::bad_input);
    std::fclose(full);
    EXPECT_EQ(c.fwrite_bin(nullptr), st::bad_index);
    EXPECT_EQ(c.fread_bin(static_cast<FILE*>(nullptr)), st::bad_index);
}

TEST_F(CurveTest, Record_RoundTripBitForBit_StreamAndMemory)
{
    std::mt19937 rng(8);
    std::uniform_real_distribution<double> v(-1e6, 1e6);
    for (int rep = 0; rep < 20; ++rep) {
        const int order = 1 + rep % 7, n = order + rep % 5 + 1, vpp = 3 + rep % 2;
        D P(size_t(n * vpp)), T(size_t(order), 0.0);
        for (double& x : P) x = v(rng);
        P[0] = -0.0;  // the sign of zero survives too
        T.insert(T.end(), n - order, 0.3);
        T.insert(T.end(), order, 1.0);
        CNurbs c = make(order, vpp, vpp == 4, T, P);
        c.form = rep;
        c.parametric = int16_t(rep & 1);
        c.closed = int16_t(rep % 3);
        const Bytes bytes = record_of(c);
        testsupport::expect_round_trip(
            bytes, [] { return quarter(); },
            [&](const CNurbs& r) { EXPECT_EQ(record_of(r), bytes); });
        Bytes padded = bytes;  // a bounded cursor stops at the end of the record
        padded.push_back(0xAB);
        unsigned char* cur = padded.data();
        CNurbs b;
        ASSERT_EQ(b.fread_bin(cur, padded.size()), st::ok);
        EXPECT_EQ(cur, padded.data() + bytes.size());
        EXPECT_EQ(record_of(b), bytes);
    }
    // Arrays whose counts disagree with the header are read as they stand, even without a
    // list the header would create.
    Bytes odd(28, 0);
    odd[12] = 2;  // order 2, no points, no knots in the header
    put_le(odd, 1, 4);
    put_f64(odd, 7.5);
    for (uint32_t x : {0, 3, 1, 2, 3}) put_le(odd, x, 4);
    unsigned char* cur = odd.data();
    CNurbs r;
    ASSERT_EQ(r.fread_bin(cur, odd.size()), st::ok);
    EXPECT_EQ(r.cpts->items[0], 7.5);
    EXPECT_EQ(r.knots, nullptr);
    EXPECT_EQ(r.mults->Count(), 3u);
    EXPECT_EQ(r.n_cpts, 0);
}

TEST_F(CurveTest, Record_TruncatedHugeCountsAndFailedAllocations_110CurveUnchanged)
{
    const Bytes bytes = record_of(quarter());
    CNurbs target = make(2, 3, false, {0, 0, 2, 2}, {9, 9, 9, 8, 8, 8});
    const Bytes before = record_of(target);
    const long live = v_memptr_live_count();
    testsupport::for_each_cut(bytes, [&](FILE* f, size_t cut) {
        EXPECT_EQ(target.fread_bin(f), st::bad_input);
        unsigned char* cur = const_cast<unsigned char*>(bytes.data());
        EXPECT_EQ(target.fread_bin(cur, cut), st::bad_input);
        EXPECT_EQ(cur, bytes.data());
        EXPECT_EQ(v_memptr_live_count(), live);
    });
    EXPECT_EQ(record_of(target), before);

    // A count far beyond the stream (one that could be had and one that could not), in each
    // of the three arrays, with corrupt header counts.
    for (int which = 0; which < 6; ++which) {
        Bytes b(8, 0);
        for (uint32_t x : {0u, 4u, 0x7fffffffu, 4u, 0x7fffffffu}) put_le(b, x, 4);
        for (int k = 0; k < which % 3; ++k) put_le(b, 0, 4);
        put_le(b, which < 3 ? 0xfffffff0u : 1u << 24, 4);
        for (int k = 0; k < 4; ++k) put_f64(b, 1.0);
        const size_t grown = testsupport::bytes_grown_reading(
            b, [&](FILE* f) { EXPECT_EQ(target.fread_bin(f), st::bad_input); });
        EXPECT_LT(grown, 64u * 1024) << which;
        unsigned char* cur = b.data();
        EXPECT_EQ(target.fread_bin(cur, b.size()), st::bad_input);
        EXPECT_EQ(record_of(target), before);
    }

    // Allocation failures while reading: 110, the fresh curve untouched, nothing leaked.
    const Bytes many = record_of(make(2, 3, false, {0, 0, 1, 1}, D(3 * 1500, 0.25)));
    const Bytes fresh = record_of(CNurbs());
    testsupport::read_with_failing_allocations<CNurbs>(many, 40, [&](const CNurbs& r, short rc) {
        EXPECT_TRUE(rc == st::ok || rc == st::bad_input) << rc;
        EXPECT_EQ(record_of(r), rc == st::ok ? many : fresh);
        EXPECT_TRUE(rc == st::ok || v_memptr_live_count() == live) << "leaked on failure";
    });
}
