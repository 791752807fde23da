#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// Little-endian bytes shifted out one by one, independent of the library's memcpy path.
void put_le(Bytes& b, uint64_t v, int n_bytes)
{
    for (int i = 0; i < n_bytes; ++i) b.push_back(uint8_t(v >> (8 * i)));
}
void put_point(Bytes& b, const V_POINT& p)
{
    for (double d : {p.x, p.y, p.z}) {
        uint64_t u;
        std::memcpy(&u, &d, 8);
        put_le(b, u, 8);
    }
}

// A stream holding exactly the first len bytes of b.
FILE* stream_of(const Bytes& b, size_t len)
{
    FILE* f = std::tmpfile();
    if (len > 0) std::fwrite(b.data(), 1, len, f);
    std::rewind(f);
    return f;
}

Bytes record_of(const Polyline& pl, short* rc = nullptr)
{
    FILE* f = std::tmpfile();
    const short r = pl.fwrite_bin(f);
    if (rc) *rc = r;
    Bytes b(size_t(std::ftell(f)));
    std::rewind(f);
    if (!b.empty() && std::fread(b.data(), 1, b.size(), f) != b.size()) b.clear();
    std::fclose(f);
    return b;
}

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

// True when pl holds exactly the first pl.Count() points of src, bit for bit.
bool is_prefix_of(const Polyline& pl, const Polyline& src)
{
    for (unsigned long i = 1; i <= pl.Count(); ++i) {
        V_POINT a, b;
        if (src.Get_Point(i, &a) != 0 || pl.Get_Point(i, &b) != 0) return false;
        if (std::memcmp(&a, &b, sizeof a) != 0) return false;
    }
    return true;
}

Lines dump(const Polyline& pl, const char* name)
{
    Lines lines;
    debug_set_sink([](const char* t, void* u) { static_cast<Lines*>(u)->push_back(t); }, &lines);
    pl.DebugOutput(name);
    debug_set_sink(nullptr, nullptr);
    return lines;
}

class PolylineTest : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    long live_ = v_memptr_live_count();
    void TearDown() override
    {
        tavotoll = saved_;
        v_memptr_fail_after(-1);
        EXPECT_EQ(v_memptr_live_count(), live_) << "tracked blocks leaked";
    }
};

// ----------------------------------------------------------------------------------------

TEST_F(PolylineTest, Ownership_CopyIsDeepMoveTakesTheList)
{
    Polyline a = make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    a.Points()->Delete(2);
    Polyline b(a);
    ASSERT_NE(b.Points(), a.Points());
    EXPECT_EQ(b.Points()->capacity, a.Points()->capacity);
    EXPECT_EQ(b.Points()->Count(), 3u);
    EXPECT_FALSE(b.Points()->IsSet(2));  // the hole is copied too
    b.Put(1, V_POINT{0, 0, 0});
    V_POINT p;
    a.Get_Point(1, &p);
    EXPECT_EQ(p.x, 1.0);

    Polyline c = make({{9, 9, 9}});
    c = a;  // releases c's own list
    c = c;
    EXPECT_EQ(c.Count(), 2u);
    c = Polyline();
    EXPECT_EQ(c.Points(), nullptr);

    List<V_POINT>* list = a.Points();
    Polyline d(std::move(a));
    EXPECT_EQ(d.Points(), list);
    EXPECT_EQ(a.Points(), nullptr);
    b = std::move(d);  // releases b's copy
    EXPECT_EQ(b.Points(), list);
    EXPECT_EQ(d.Points(), nullptr);
}

TEST_F(PolylineTest, Create_ClosesUpHolesAndLeavesPolylineOnFailure)
{
    List<V_POINT> src(7);
    src.Put(1, V_POINT{1, 0, 0});
    src.Put(4, V_POINT{4, 0, 0});
    src.Put(6, V_POINT{6, 0, 0});
    Polyline pl = make({{9, 9, 9}});
    ASSERT_EQ(pl.Create(src), st::ok);
    EXPECT_EQ(pl.Points()->Count(), 3u);
    EXPECT_EQ(pl.Points()->capacity, 3u);
    EXPECT_EQ(pl.Points()->grow_by, 7u);
    V_POINT p;
    ASSERT_EQ(pl.Get_Point(2, &p), st::ok);
    EXPECT_EQ(p.x, 4.0);

    v_memptr_fail_after(0);
    EXPECT_EQ(pl.Create(List<V_POINT>()), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(pl.Count(), 3u);
    ASSERT_EQ(pl.Create(List<V_POINT>()), st::ok);  // an existing list without points
    ASSERT_NE(pl.Points(), nullptr);
    EXPECT_EQ(pl.Count(), 0u);
}

TEST_F(PolylineTest, PutAppendGet_PositionsAreSlotsAndFailuresLoseNothing)
{
    Polyline pl;
    ASSERT_EQ(pl.Put(5, V_POINT{5, 5, 5}), st::ok);
    EXPECT_EQ(pl.Count(), 1u);
    V_POINT p{-1, -1, -1};
    for (unsigned long i : {0ul, 3ul, 6ul}) EXPECT_EQ(pl.Get_Point(i, &p), st::bad_input) << i;
    EXPECT_EQ(p.x, -1.0);
    EXPECT_EQ(pl.Put(0, p), st::bad_index);

    Polyline full;
    for (int i = 0; i < 16; ++i) full.Append(V_POINT{double(i), 0, 0});
    v_memptr_fail_after(0);  // the 17th point needs a growth
    EXPECT_EQ(full.Append(V_POINT{16, 0, 0}), st::no_memory);
    EXPECT_EQ(full.Put(40, V_POINT{16, 0, 0}), st::no_memory);
    v_memptr_fail_after(-1);
    ASSERT_EQ(full.Get_Point(16, &p), st::ok);
    EXPECT_EQ(p.x, 15.0);
}

TEST_F(PolylineTest, Length_SumsSegmentsBetweenOccupiedSlots)
{
    EXPECT_EQ(Polyline().Length(), 0.0);
    EXPECT_EQ(make({{1, 1, 1}}).Length(), 0.0);
    // 3-4-5 triangle: legs 3 and 4, then the hypotenuse across the hole.
    Polyline pl = make({{0, 0, 0}, {3, 0, 0}, {3, 4, 0}});
    EXPECT_DOUBLE_EQ(pl.Length(), 7.0);
    pl.Points()->Delete(2);
    EXPECT_DOUBLE_EQ(pl.Length(), 5.0);
}

TEST_F(PolylineTest, IsClosed_ComparesFirstAndLastPointsAtCurrentTolerance)
{
    EXPECT_FALSE(Polyline().Is_Closed());
    EXPECT_FALSE(make({{1, 1, 1}}).Is_Closed());
    EXPECT_TRUE(make({{1, 1, 1}, {1, 1, 1}}).Is_Closed());
    EXPECT_TRUE(make({{0, 0, 0}, {1, 0, 0}, {1e-9, 0, 0}}).Is_Closed());  // within 1e-8
    Polyline near = make({{0, 0, 0}, {1, 0, 0}, {1e-6, 0, 0}});
    EXPECT_FALSE(near.Is_Closed());
    tavotoll.point = 1e-5;
    EXPECT_TRUE(near.Is_Closed());
    // Free end slots do not count: the first point is slot 2, the last slot 3.
    Polyline holed = make({{7, 7, 7}, {2, 0, 0}, {2, 0, 0}, {8, 8, 8}});
    holed.Points()->Delete(1);
    holed.Points()->Delete(4);
    EXPECT_TRUE(holed.Is_Closed());
    holed.Points()->Delete(3);
    EXPECT_FALSE(holed.Is_Closed());
}

TEST_F(PolylineTest, DebugOutput_PrintsHeaderAndOneLinePerSlot)
{
    EXPECT_EQ(dump(Polyline(), "P"), Lines{"Polyline empty !!!\n"});
    Polyline pl = make({{1, 2.5, -3}, {0.0004, 0.0006, 1234.5678}, {1, 2.5, -3}});
    EXPECT_EQ(dump(pl, "P1"),
              (Lines{"Polyline P1 close with 3 points\n", "1 - 1.000,2.500,-3.000\n",
                     "2 - 0.000,0.001,1234.568\n", "3 - 1.000,2.500,-3.000\n"}));
    pl.Points()->Delete(2);
    pl.Put(3, V_POINT{0, 0, 0});
    EXPECT_EQ(dump(pl, nullptr), (Lines{"Polyline open with 2 points\n", "1 - 1.000,2.500,-3.000\n",
                                        "Point 2 deleted \n", "3 - 0.000,0.000,0.000\n"}));
}

TEST_F(PolylineTest, CurveFromPolyline_RunsThroughTheOccupiedPoints)
{
    CNurbs c;
    EXPECT_EQ(c.CreateFromPolyline(Polyline()), st::bad_input);
    Polyline pl = make({{0, 0, 0}, {9, 9, 9}, {3, 0, 0}, {3, 4, 0}});
    pl.Points()->Delete(2);
    ASSERT_EQ(c.CreateFromPolyline(pl), st::ok);
    double u0, u1;
    ASSERT_EQ(c.Get_Start_End_Knots(&u0, &u1), st::ok);
    EXPECT_DOUBLE_EQ(u1 - u0, 7.0);  // chord-length knots: legs 3 and 4, the hole skipped
    V_POINT p;
    ASSERT_EQ(c.Get_Cpt(2, &p), st::ok);
    EXPECT_EQ(p.x, 3.0);
}

// ----------------------------------------------------------------------------------------

TEST_F(PolylineTest, Record_MatchesHandBuiltBytesAndRoundTripsBitForBit)
{
    const V_POINT p1{1, 2, 3}, p2{50, 50, 50}, p3{-0.1, 1e300, -0.0};
    Polyline pl = make({p1, p2, p3});
    pl.Points()->Delete(2);  // only occupied slots are written
    Bytes want;
    put_le(want, 0, 2);
    put_le(want, 2, 4);
    put_point(want, p1);
    put_point(want, p3);
    short rc;
    const Bytes got = record_of(pl, &rc);
    ASSERT_EQ(rc, st::ok);
    ASSERT_EQ(got, want);

    FILE* f = stream_of(got, got.size());
    Polyline back = make({{5, 5, 5}});
    ASSERT_EQ(back.fread_bin(f), st::ok);
    std::fclose(f);
    EXPECT_EQ(record_of(back), got);
    EXPECT_EQ(back.Points()->Count(), 2u);  // the gap is closed

    Bytes odd = want;  // the leading word is ignored on reading
    odd[0] = 0xAB;
    odd[1] = 0xCD;
    unsigned char* cur = odd.data();
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(cur, odd.data() + odd.size());
    EXPECT_EQ(record_of(back), want);
}

TEST_F(PolylineTest, Record_EmptyListNoListAndBadStreams)
{
    Polyline none;
    FILE* f = std::tmpfile();
    EXPECT_EQ(none.fwrite_bin(f), st::bad_input);
    EXPECT_EQ(std::ftell(f), 0L);  // nothing written
    std::fclose(f);
    EXPECT_EQ(ramp(2).fwrite_bin(nullptr), st::bad_input);
    unsigned char small[64];
    f = fmemopen(small, sizeof small, "w");
    std::setvbuf(f, nullptr, _IONBF, 0);
    EXPECT_EQ(ramp(100).fwrite_bin(f), st::bad_input);  // short write
    std::fclose(f);

    Polyline empty;
    empty.Create(List<V_POINT>());
    Bytes b = record_of(empty);
    EXPECT_EQ(b, (Bytes{0, 0, 0, 0, 0, 0}));
    Polyline back = make({{1, 1, 1}});
    unsigned char* cur = b.data();
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(back.Points(), nullptr);  // N = 0 reads as no list
    EXPECT_EQ(cur, b.data() + 6);

    back = ramp(3);
    EXPECT_EQ(back.fread_bin(static_cast<FILE*>(nullptr)), st::bad_input);
    EXPECT_EQ(back.Points(), nullptr);  // the old list is released first
    cur = nullptr;
    EXPECT_EQ(back.fread_bin(cur), st::bad_input);
}

TEST_F(PolylineTest, Read_ListGrowsByMaxOfCountAndTenInBothForms)
{
    for (uint32_t n : {3u, 10u, 12u, 2500u}) {
        const Bytes b = record_of(ramp(n));
        FILE* f = stream_of(b, b.size());
        Polyline s, m;
        ASSERT_EQ(s.fread_bin(f), st::ok);
        std::fclose(f);
        unsigned char* cur = const_cast<unsigned char*>(b.data());
        ASSERT_EQ(m.fread_bin(cur), st::ok);
        EXPECT_EQ(cur, b.data() + 6 + 24 * size_t(n));
        for (const Polyline* pl : {&s, &m}) {
            EXPECT_EQ(pl->Points()->grow_by, n > 10 ? n : 10u) << n;
            EXPECT_EQ(pl->Points()->capacity, n > 10 ? n : 10u) << n;
            EXPECT_EQ(record_of(*pl), b);
        }
    }
}

TEST_F(PolylineTest, Read_TruncatedStreamsGive110AndKeepTheWholePointsRead)
{
    const Polyline src = ramp(5);
    const Bytes b = record_of(src);
    for (size_t len = 0; len < b.size(); ++len) {
        FILE* f = stream_of(b, len);
        Polyline pl;
        EXPECT_EQ(pl.fread_bin(f), st::bad_input) << len;
        std::fclose(f);
        EXPECT_EQ(pl.Count(), len < 6 ? 0 : (len - 6) / 24) << len;
        EXPECT_TRUE(is_prefix_of(pl, src));
    }
    const Polyline big = ramp(3000);  // cuts next to the reader's block boundaries
    const Bytes bb = record_of(big);
    for (size_t n_pts : {1023u, 1024u, 1025u, 2048u, 2999u}) {
        FILE* f = stream_of(bb, 6 + 24 * n_pts + 7);
        Polyline pl;
        EXPECT_EQ(pl.fread_bin(f), st::bad_input);
        std::fclose(f);
        EXPECT_EQ(pl.Count(), n_pts);
        EXPECT_TRUE(is_prefix_of(pl, big));
    }
}

TEST_F(PolylineTest, Read_HugeCountInTinyStreamFailsFastWithoutGiantAllocation)
{
    Bytes b;
    put_le(b, 0, 2);
    put_le(b, 0xFFFFFFFFu, 4);
    put_point(b, V_POINT{1, 2, 3});
    b.push_back(0x55);  // part of a second point
    const auto t0 = std::chrono::steady_clock::now();
    FILE* f = stream_of(b, b.size());
    Polyline pl;
    EXPECT_EQ(pl.fread_bin(f), st::bad_input);
    std::fclose(f);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
    EXPECT_EQ(pl.Count(), 1u);
    EXPECT_LT(v_memptr_live_bytes(), size_t(1) << 20);  // a block of points, not 96 GB
}

TEST_F(PolylineTest, Read_AllocationFailuresGive110AndKeepAPrefix)
{
    const Polyline src = ramp(3000);
    const Bytes b = record_of(src);
    for (int form = 0; form < 2; ++form) {
        short rc = st::bad_input;
        for (long n = 0; n < 40 && rc != st::ok; ++n) {
            Polyline pl;
            FILE* f = stream_of(b, b.size());
            unsigned char* cur = const_cast<unsigned char*>(b.data());
            v_memptr_fail_after(n);
            rc = form == 0 ? pl.fread_bin(f) : pl.fread_bin(cur);
            v_memptr_fail_after(-1);
            std::fclose(f);
            EXPECT_TRUE(rc == st::ok || rc == st::bad_input);
            EXPECT_TRUE(is_prefix_of(pl, src));
            EXPECT_EQ(pl.Count() == 3000u, rc == st::ok);
        }
        EXPECT_EQ(rc, st::ok) << "form " << form;
    }
}

}  // namespace
