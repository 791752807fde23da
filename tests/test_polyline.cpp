// The polyline: ownership of its one list, slot-based access, measures, dump and record.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include "io_support.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>

using namespace testsupport;

namespace {

Polyline make(std::initializer_list<V_POINT> pts)
{
    Polyline pl;
    for (const V_POINT& p : pts) EXPECT_EQ(pl.Append(p), st::ok);
    return pl;
}

// n points with distinct, non-round coordinates.
Polyline ramp(uint32_t n)
{
    Polyline pl;
    for (uint32_t i = 0; i < n; ++i) pl.Append(V_POINT{i * 0.5, -1.0 / (i + 1), i * 3.25});
    return pl;
}
const auto ramp1 = [] { return ramp(1); };

// True when pl holds, bit for bit, the first of the points in the record rec (or no list).
bool holds_prefix(const Polyline& pl, const Bytes& rec)
{
    short rc;
    const Bytes r = record_of(pl, &rc);
    return rc != st::ok ||
           (r.size() <= rec.size() && std::equal(r.begin() + 6, r.end(), rec.begin() + 6));
}

using PolylineTest = LeakFree;

}  // namespace

TEST_F(PolylineTest, Ownership_CopyIsDeepMoveTakesTheList)
{
    Polyline a = make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    a.Points()->Delete(2);
    Polyline b(a);  // capacity and the hole copied too
    ASSERT_NE(b.Points(), a.Points());
    EXPECT_TRUE(b.Points()->capacity == a.Points()->capacity && !b.Points()->IsSet(2));
    b.Put(1, V_POINT{0, 0, 0});
    EXPECT_EQ(a.Points()->GetPtr(1)->x, 1.0);
    Polyline c = make({{9, 9, 9}});
    c = a;  // releases c's own list
    c = *&c;
    EXPECT_EQ(record_of(c), record_of(a));
    List<V_POINT>* list = a.Points();
    Polyline d(std::move(a));
    EXPECT_TRUE(d.Points() == list && a.Points() == nullptr);
    b = std::move(d);  // releases b's copy
    EXPECT_TRUE(b.Points() == list && d.Points() == nullptr);
}

TEST_F(PolylineTest, Building_ClosesUpHolesPositionsAreSlotsFailuresLoseNothing)
{
    List<V_POINT> src(7);
    src.Put(1, V_POINT{1, 0, 0});
    src.Put(4, V_POINT{4, 0, 0});
    src.Put(6, V_POINT{6, 0, 0});
    Polyline pl = make({{9, 9, 9}});
    ASSERT_EQ(pl.Create(src), st::ok);
    const List<V_POINT>& l = *pl.Points();
    EXPECT_TRUE(l.Count() == 3 && l.capacity == 3 && l.grow_by == 7 && l[2].x == 4.0);
    EXPECT_TRUE(with_allocations(0, [&] { return pl.Create(List<V_POINT>()); }) == st::no_memory &&
                pl.Count() == 3u);
    Polyline sparse;  // Put leaves the slots it skips free
    ASSERT_TRUE(sparse.Put(5, V_POINT{5, 5, 5}) == st::ok && sparse.Count() == 1u);
    V_POINT p{-1, -1, -1};
    for (unsigned long i : {0ul, 3ul, 6ul}) EXPECT_EQ(sparse.Get_Point(i, &p), st::bad_input) << i;
    EXPECT_TRUE(p.x == -1.0 && sparse.Put(0, p) == st::bad_index);
    Polyline full = ramp(16);
    const Bytes before = record_of(full);
    EXPECT_EQ(with_allocations(0, [&] { return full.Append(V_POINT{16, 0, 0}); }), st::no_memory);
    EXPECT_EQ(with_allocations(0, [&] { return full.Put(40, V_POINT{}); }), st::no_memory);
    EXPECT_EQ(record_of(full), before);
}

TEST_F(PolylineTest, LengthClosureAndCurve_FollowTheOccupiedSlots)
{
    EXPECT_EQ(Polyline().Length(), 0.0);
    Polyline pl = make({{0, 0, 0}, {9, 9, 9}, {3, 0, 0}, {3, 4, 0}});
    EXPECT_DOUBLE_EQ(pl.Length(), std::sqrt(243.0) + std::sqrt(198.0) + 4.0);
    pl.Points()->Delete(2);
    EXPECT_DOUBLE_EQ(pl.Length(), 7.0);  // legs 3 and 4 across the hole
    CNurbs c;
    ASSERT_TRUE(c.CreateFromPolyline(Polyline()) == st::bad_input &&
                c.CreateFromPolyline(pl) == st::ok);
    double u0, u1;  // chord-length knots, the hole skipped
    ASSERT_EQ(c.Get_Start_End_Knots(&u0, &u1), st::ok);
    EXPECT_TRUE(std::fabs(u1 - u0 - 7.0) < 1e-14 && (*c.cpts)[c.vpp + 1] == 3.0);
    EXPECT_TRUE(!Polyline().Is_Closed() && make({{1, 1, 1}, {1, 1, 1}}).Is_Closed());
    Polyline near = make({{0, 0, 0}, {1, 0, 0}, {1e-9, 0, 0}});
    EXPECT_TRUE(near.Is_Closed());  // within 1e-8
    near.Put(3, V_POINT{1e-6, 0, 0});
    EXPECT_FALSE(near.Is_Closed());
    tavotoll.point = 1e-5;  // read at the call
    EXPECT_TRUE(near.Is_Closed());
    // Free end slots do not count: the first point is slot 2, the last slot 3.
    Polyline holed = make({{7, 7, 7}, {2, 0, 0}, {2, 0, 0}, {8, 8, 8}});
    for (uint32_t k : {1u, 4u}) holed.Points()->Delete(k);
    EXPECT_TRUE(holed.Is_Closed());
    holed.Points()->Delete(3);  // one point left
    EXPECT_FALSE(holed.Is_Closed());
}

TEST_F(PolylineTest, DebugOutput_PrintsHeaderAndOneLinePerSlot)
{
    EXPECT_EQ(dump_of([] { Polyline().DebugOutput("P"); }), Lines{"Polyline empty !!!\n"});
    Polyline pl = make({{1, 2.5, -3}, {0.0004, 0.0006, 1234.5678}, {1, 2.5, -3}});
    EXPECT_EQ(dump_of([&] { pl.DebugOutput("P1"); }),
              (Lines{"Polyline P1 close with 3 points\n", "1 - 1.000,2.500,-3.000\n",
                     "2 - 0.000,0.001,1234.568\n", "3 - 1.000,2.500,-3.000\n"}));
    pl.Points()->Delete(2);
    pl.Put(3, V_POINT{0, 0, 0});
    EXPECT_EQ(dump_of([&] { pl.DebugOutput(nullptr); }),
              (Lines{"Polyline open with 2 points\n", "1 - 1.000,2.500,-3.000\n",
                     "Point 2 deleted \n", "3 - 0.000,0.000,0.000\n"}));
}

TEST_F(PolylineTest, Record_MatchesHandBuiltBytesAndRoundTripsBitForBit)
{
    Polyline pl = make({{1, 2, 3}, {50, 50, 50}, {-0.1, 1e300, -0.0}});
    pl.Points()->Delete(2);  // only occupied slots are written
    Bytes want = {0, 0, 2, 0, 0, 0};
    put_xyz(want, 1, 2, 3);
    put_xyz(want, -0.1, 1e300, -0.0);
    ASSERT_EQ(record_of(pl), want);
    Bytes odd = want;
    odd[0] = 0xAB;  // the leading word is ignored on reading
    expect_round_trip(odd, ramp1, [&](const Polyline& r) { EXPECT_EQ(record_of(r), want); });
    // The list read grows by max(N, 10), with room for exactly that; N = 0 reads as no list.
    for (uint32_t n : {0u, 3u, 10u, 12u, 2500u}) {
        Polyline src = ramp(n);
        if (n == 0) src.Create(List<V_POINT>());
        const Bytes rec = record_of(src);
        ASSERT_EQ(rec.size(), 6 + 24 * size_t(n));
        expect_round_trip(rec, ramp1, [&](const Polyline& r) {
            const List<V_POINT>* l = r.Points();
            const uint32_t g = std::max(n, 10u);
            EXPECT_TRUE(n == 0 ? !l : l->grow_by == g && l->capacity == g && record_of(r) == rec);
        });
    }

    short rc;  // failures: no list, null streams, a short write
    EXPECT_TRUE(record_of(Polyline(), &rc).empty() && rc == st::bad_input);
    EXPECT_EQ(ramp(2).fwrite_bin(nullptr), st::bad_input);
    unsigned char small[64];
    FILE* f = fmemopen(small, sizeof small, "w");
    std::setvbuf(f, nullptr, _IONBF, 0);
    EXPECT_EQ(ramp(100).fwrite_bin(f), st::bad_input);
    std::fclose(f);
    Polyline back = ramp(3);  // released first
    unsigned char* cur = nullptr;
    EXPECT_EQ(back.fread_bin(static_cast<FILE*>(nullptr)), st::bad_input);
    EXPECT_TRUE(back.Points() == nullptr && back.fread_bin(cur) == st::bad_input);
}

TEST_F(PolylineTest, Read_TruncatedHugeCountOrNoMemoryGives110AndKeepsWholePointsRead)
{
    const Bytes rec = record_of(ramp(5));
    for_each_cut(rec, [&](FILE* f, size_t cut) {
        Polyline pl = ramp(2);
        EXPECT_EQ(pl.fread_bin(f), st::bad_input);
        EXPECT_EQ(pl.Count(), cut < 6 ? 0 : (cut - 6) / 24);
        EXPECT_TRUE(holds_prefix(pl, rec));
    });
    const Bytes big = record_of(ramp(3000));  // cuts next to the reader's block boundaries
    for (size_t n_pts : {1023u, 1024u, 1025u, 2048u, 2999u}) {
        FILE* f = stream_of(big, 6 + 24 * n_pts + 7);
        Polyline pl;
        EXPECT_EQ(pl.fread_bin(f), st::bad_input);
        std::fclose(f);
        EXPECT_TRUE(pl.Count() == n_pts && holds_prefix(pl, big));
    }
    read_with_failing_allocations<Polyline>(big, 40, [&](const Polyline& pl, short rc) {
        EXPECT_TRUE((rc == st::ok || rc == st::bad_input) && holds_prefix(pl, big));
        EXPECT_EQ(pl.Count() == 3000u, rc == st::ok);
    });
    // A huge count before one and a half points: storage follows what arrives.
    Bytes b = {0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    put_xyz(b, 1, 2, 3);
    b.push_back(0x55);
    Polyline pl;
    EXPECT_LT(bytes_grown_reading(b, [&](FILE* f) { EXPECT_EQ(pl.fread_bin(f), st::bad_input); }),
              size_t(1) << 20);  // a block of points, not 96 GB
    EXPECT_EQ(pl.Count(), 1u);
}
