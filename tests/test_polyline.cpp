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

// Little-endian encoders written byte by byte, independent of the library's memcpy path.
void put_u16(Bytes& b, uint16_t v)
{
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
}
void put_u32(Bytes& b, uint32_t v)
{
    for (int s = 0; s < 32; s += 8) b.push_back(uint8_t(v >> s));
}
void put_f64(Bytes& b, double d)
{
    uint64_t u;
    std::memcpy(&u, &d, 8);
    for (int s = 0; s < 64; s += 8) b.push_back(uint8_t(u >> s));
}
void put_point(Bytes& b, const V_POINT& p)
{
    put_f64(b, p.x);
    put_f64(b, p.y);
    put_f64(b, p.z);
}

// A read-only stream holding exactly the given bytes.
FILE* stream_of(const Bytes& b)
{
    FILE* f = std::tmpfile();
    if (!b.empty()) std::fwrite(b.data(), 1, b.size(), f);
    std::rewind(f);
    return f;
}

// Everything in the stream from the start.
Bytes contents(FILE* f)
{
    Bytes b(size_t(std::ftell(f)));
    std::rewind(f);
    if (!b.empty()) {
        EXPECT_EQ(std::fread(b.data(), 1, b.size(), f), b.size());
    }
    return b;
}

Bytes record_of(const Polyline& pl, short* rc = nullptr)
{
    FILE* f = std::tmpfile();
    const short r = pl.fwrite_bin(f);
    if (rc) *rc = r;
    Bytes b = contents(f);
    std::fclose(f);
    return b;
}

Polyline make(std::initializer_list<V_POINT> pts)
{
    Polyline pl;
    for (const V_POINT& p : pts) EXPECT_EQ(pl.Append(p), st::ok);
    return pl;
}

bool same_point(const V_POINT& a, const V_POINT& b)  // bitwise, on purpose
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// A polyline of n points with distinct, non-round coordinates.
Polyline ramp(uint32_t n)
{
    Polyline pl;
    for (uint32_t i = 0; i < n; ++i) pl.Append(V_POINT{i * 0.5, -1.0 / (i + 1), i * 3.25});
    return pl;
}

void collect(const char* text, void* user)
{
    static_cast<std::vector<std::string>*>(user)->push_back(text);
}

std::vector<std::string> dump(const Polyline& pl, const char* name)
{
    std::vector<std::string> lines;
    debug_set_sink(collect, &lines);
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

TEST_F(PolylineTest, Copy_IsDeepAndKeepsHolesCapacityAndGrowBy)
{
    Polyline a = make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    a.Points()->Delete(2);
    Polyline b(a);
    ASSERT_NE(b.Points(), nullptr);
    EXPECT_NE(b.Points(), a.Points());
    EXPECT_EQ(b.Points()->capacity, a.Points()->capacity);
    EXPECT_EQ(b.Points()->grow_by, 16u);
    EXPECT_EQ(b.Points()->Count(), 3u);
    EXPECT_FALSE(b.Points()->IsSet(2));
    b.Put(1, V_POINT{0, 0, 0});
    V_POINT p;
    ASSERT_EQ(a.Get_Point(1, &p), st::ok);
    EXPECT_EQ(p.x, 1.0);  // the source is untouched

    Polyline c = make({{9, 9, 9}});
    c = a;  // releases c's own list
    EXPECT_EQ(c.Count(), 2u);
    c = c;  // self-assignment keeps everything
    EXPECT_EQ(c.Count(), 2u);
    c = Polyline();  // copying "no list" gives no list
    EXPECT_EQ(c.Points(), nullptr);
}

TEST_F(PolylineTest, Move_TakesTheListAndLeavesNone)
{
    Polyline a = make({{1, 0, 0}, {2, 0, 0}});
    List<V_POINT>* list = a.Points();
    Polyline b(std::move(a));
    EXPECT_EQ(b.Points(), list);
    EXPECT_EQ(a.Points(), nullptr);
    Polyline c = make({{5, 5, 5}});
    c = std::move(b);
    EXPECT_EQ(c.Points(), list);
    EXPECT_EQ(b.Points(), nullptr);
    c = std::move(c);
    EXPECT_EQ(c.Points(), list);
}

TEST_F(PolylineTest, Create_ClosesUpHolesAndLeavesPolylineOnFailure)
{
    List<V_POINT> src(7);
    src.Put(1, V_POINT{1, 0, 0});
    src.Put(4, V_POINT{4, 0, 0});
    src.Put(6, V_POINT{6, 0, 0});
    Polyline pl = make({{9, 9, 9}});
    ASSERT_EQ(pl.Create(src), st::ok);
    ASSERT_EQ(pl.Count(), 3u);
    EXPECT_EQ(pl.Points()->Count(), 3u);
    EXPECT_EQ(pl.Points()->capacity, 3u);
    EXPECT_EQ(pl.Points()->grow_by, 7u);
    V_POINT p;
    ASSERT_EQ(pl.Get_Point(2, &p), st::ok);
    EXPECT_EQ(p.x, 4.0);

    Polyline empty;
    ASSERT_EQ(empty.Create(List<V_POINT>()), st::ok);  // an existing list without points
    ASSERT_NE(empty.Points(), nullptr);
    EXPECT_EQ(empty.Count(), 0u);

    v_memptr_fail_after(0);
    EXPECT_EQ(pl.Create(src), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(pl.Count(), 3u);
}

TEST_F(PolylineTest, PutAndGetPoint_PositionsAreSlots)
{
    Polyline pl;
    ASSERT_EQ(pl.Put(5, V_POINT{5, 5, 5}), st::ok);
    EXPECT_EQ(pl.Count(), 1u);
    V_POINT p{-1, -1, -1};
    EXPECT_EQ(pl.Get_Point(3, &p), st::bad_input);  // skipped slot
    EXPECT_EQ(pl.Get_Point(0, &p), st::bad_input);
    EXPECT_EQ(pl.Get_Point(6, &p), st::bad_input);
    EXPECT_EQ(p.x, -1.0);
    EXPECT_EQ(pl.Get_Point(5, &p), st::ok);
    EXPECT_EQ(p.z, 5.0);
    EXPECT_EQ(pl.Put(0, p), st::bad_index);
    EXPECT_EQ(Polyline().Get_Point(1, &p), st::bad_input);
}

TEST_F(PolylineTest, Append_FailedGrowthKeepsThePoints)
{
    Polyline pl;
    for (int i = 0; i < 16; ++i) ASSERT_EQ(pl.Append(V_POINT{double(i), 0, 0}), st::ok);
    v_memptr_fail_after(0);  // the 17th point needs a growth
    EXPECT_EQ(pl.Append(V_POINT{16, 0, 0}), st::no_memory);
    v_memptr_fail_after(-1);
    ASSERT_EQ(pl.Count(), 16u);
    V_POINT p;
    ASSERT_EQ(pl.Get_Point(16, &p), st::ok);
    EXPECT_EQ(p.x, 15.0);
}

TEST_F(PolylineTest, Length_SumsSegmentsBetweenOccupiedSlots)
{
    EXPECT_EQ(Polyline().Length(), 0.0);
    EXPECT_EQ(make({{1, 1, 1}}).Length(), 0.0);
    // 3-4-5 legs: 3 along x, then 4 along y.
    EXPECT_DOUBLE_EQ(make({{0, 0, 0}, {3, 0, 0}, {3, 4, 0}}).Length(), 7.0);
    Polyline holed = make({{0, 0, 0}, {50, 50, 50}, {3, 4, 0}});
    holed.Points()->Delete(2);
    EXPECT_DOUBLE_EQ(holed.Length(), 5.0);  // straight from the first to the third point
}

TEST_F(PolylineTest, IsClosed_ComparesFirstAndLastPointsAtCurrentTolerance)
{
    EXPECT_FALSE(Polyline().Is_Closed());
    EXPECT_FALSE(make({{1, 1, 1}}).Is_Closed());
    EXPECT_TRUE(make({{1, 1, 1}, {1, 1, 1}}).Is_Closed());
    Polyline sq = make({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1e-9, 0, 0}});
    EXPECT_TRUE(sq.Is_Closed());  // 1e-9 apart, within 1e-8
    Polyline near = make({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1e-6, 0, 0}});
    EXPECT_FALSE(near.Is_Closed());
    tavotoll.point = 1e-5;
    EXPECT_TRUE(near.Is_Closed());
    tavotoll = saved_;
    // Free end slots do not count: the first point is slot 2, the last slot 3.
    Polyline holed = make({{7, 7, 7}, {2, 0, 0}, {2, 0, 0}, {8, 8, 8}});
    holed.Points()->Delete(1);
    holed.Points()->Delete(4);
    EXPECT_TRUE(holed.Is_Closed());
    holed.Points()->Delete(3);  // one point left
    EXPECT_FALSE(holed.Is_Closed());
}

TEST_F(PolylineTest, DebugOutput_PrintsHeaderAndOneLinePerSlot)
{
    EXPECT_EQ(dump(Polyline(), "P"), (std::vector<std::string>{"Polyline empty !!!\n"}));
    Polyline pl = make({{1, 2.5, -3}, {0.0004, 0.0006, 1234.5678}, {1, 2.5, -3}});
    EXPECT_EQ(dump(pl, "P1"), (std::vector<std::string>{
                                  "Polyline P1 close with 3 points\n", "1 - 1.000,2.500,-3.000\n",
                                  "2 - 0.000,0.001,1234.568\n", "3 - 1.000,2.500,-3.000\n"}));
    pl.Points()->Delete(2);
    pl.Put(3, V_POINT{0, 0, 0});
    EXPECT_EQ(dump(pl, nullptr),
              (std::vector<std::string>{"Polyline open with 2 points\n", "1 - 1.000,2.500,-3.000\n",
                                        "Point 2 deleted \n", "3 - 0.000,0.000,0.000\n"}));
}

// ----------------------------------------------------------------------------------------

TEST_F(PolylineTest, Record_MatchesHandBuiltBytesAndRoundTrips)
{
    const V_POINT p1{1, 2, 3}, p2{-0.1, 1e300, -0.0};
    Polyline pl = make({p1, p2});
    Bytes want;
    put_u16(want, 0);
    put_u32(want, 2);
    put_point(want, p1);
    put_point(want, p2);
    short rc;
    const Bytes got = record_of(pl, &rc);
    ASSERT_EQ(rc, st::ok);
    EXPECT_EQ(got, want);

    FILE* f = stream_of(got);
    Polyline back = make({{5, 5, 5}});
    ASSERT_EQ(back.fread_bin(f), st::ok);
    std::fclose(f);
    EXPECT_EQ(record_of(back), got);
    V_POINT q;
    ASSERT_EQ(back.Get_Point(2, &q), st::ok);
    EXPECT_TRUE(same_point(q, p2));  // -0.0 and 1e300 survive bit for bit

    Bytes odd = want;  // the leading word is ignored on reading
    odd[0] = 0xAB;
    odd[1] = 0xCD;
    unsigned char* cur = odd.data();
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(record_of(back), want);
}

TEST_F(PolylineTest, Record_OnlyOccupiedSlotsAreWrittenSoReadingClosesTheGap)
{
    Polyline pl = make({{1, 0, 0}, {2, 0, 0}, {3, 0, 0}});
    pl.Points()->Delete(2);
    const Bytes b = record_of(pl);
    ASSERT_EQ(b.size(), 6u + 48u);
    EXPECT_EQ(b[2], 2);
    unsigned char* cur = const_cast<unsigned char*>(b.data());
    Polyline back;
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    V_POINT q;
    ASSERT_EQ(back.Get_Point(2, &q), st::ok);
    EXPECT_EQ(q.x, 3.0);
}

TEST_F(PolylineTest, Record_EmptyListAndNoList)
{
    Polyline none;
    FILE* f = std::tmpfile();
    EXPECT_EQ(none.fwrite_bin(f), st::bad_input);
    EXPECT_EQ(std::ftell(f), 0L);  // nothing written
    std::fclose(f);
    EXPECT_EQ(none.fwrite_bin(nullptr), st::bad_input);

    Polyline empty;
    ASSERT_EQ(empty.Create(List<V_POINT>()), st::ok);
    const Bytes b = record_of(empty);
    EXPECT_EQ(b, (Bytes{0, 0, 0, 0, 0, 0}));
    Polyline back = make({{1, 1, 1}});
    unsigned char* cur = const_cast<unsigned char*>(b.data());
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(back.Points(), nullptr);  // N = 0 reads as no list
    EXPECT_EQ(cur, b.data() + 6);
}

TEST_F(PolylineTest, Read_ListGrowsByMaxOfCountAndTenInBothForms)
{
    for (uint32_t n : {3u, 10u, 12u, 2500u}) {
        const Bytes b = record_of(ramp(n));
        FILE* f = stream_of(b);
        Polyline s;
        ASSERT_EQ(s.fread_bin(f), st::ok);
        std::fclose(f);
        unsigned char* cur = const_cast<unsigned char*>(b.data());
        Polyline m;
        ASSERT_EQ(m.fread_bin(cur), st::ok);
        EXPECT_EQ(cur, b.data() + 6 + 24 * size_t(n));
        const uint32_t room = n > 10 ? n : 10;
        for (const Polyline* pl : {&s, &m}) {
            EXPECT_EQ(pl->Points()->grow_by, room) << n;
            EXPECT_EQ(pl->Points()->capacity, room) << n;
            EXPECT_EQ(pl->Count(), n);
            EXPECT_EQ(record_of(*pl), b);
        }
    }
}

TEST_F(PolylineTest, Read_NullSourcesFail)
{
    Polyline pl = make({{1, 1, 1}});
    EXPECT_EQ(pl.fread_bin(static_cast<FILE*>(nullptr)), st::bad_input);
    EXPECT_EQ(pl.Points(), nullptr);  // the old list is released first
    unsigned char* cur = nullptr;
    EXPECT_EQ(pl.fread_bin(cur), st::bad_input);
}

TEST_F(PolylineTest, Read_TruncatedAtEveryByteKeepsWholePointsAndLeaksNothing)
{
    const Polyline src = ramp(5);
    const Bytes b = record_of(src);
    for (size_t len = 0; len < b.size(); ++len) {
        FILE* f = stream_of(Bytes(b.begin(), b.begin() + long(len)));
        Polyline pl;
        EXPECT_EQ(pl.fread_bin(f), st::bad_input) << len;
        std::fclose(f);
        const unsigned long whole = len < 6 ? 0 : (len - 6) / 24;
        EXPECT_EQ(pl.Count(), whole) << len;
        for (unsigned long i = 1; i <= whole; ++i) {
            V_POINT a, c;
            src.Get_Point(i, &a);
            ASSERT_EQ(pl.Get_Point(i, &c), st::ok);
            EXPECT_TRUE(same_point(a, c));
        }
    }
}

TEST_F(PolylineTest, Read_CutsAroundBlockBoundariesKeepThePrefix)
{
    const Polyline src = ramp(3000);
    const Bytes b = record_of(src);
    for (size_t pts : {1023u, 1024u, 1025u, 2048u, 2999u}) {
        for (int extra : {0, 7}) {
            const size_t len = 6 + 24 * pts + size_t(extra);
            FILE* f = stream_of(Bytes(b.begin(), b.begin() + long(len)));
            Polyline pl;
            EXPECT_EQ(pl.fread_bin(f), st::bad_input);
            std::fclose(f);
            ASSERT_EQ(pl.Count(), pts);
            V_POINT a, c;
            src.Get_Point(pts, &a);
            pl.Get_Point(pts, &c);
            EXPECT_TRUE(same_point(a, c));
        }
    }
}

TEST_F(PolylineTest, Read_HugeCountInTinyStreamFailsFastWithoutGiantAllocation)
{
    Bytes b;
    put_u16(b, 0);
    put_u32(b, 0xFFFFFFFFu);
    put_point(b, V_POINT{1, 2, 3});
    b.push_back(0x55);  // part of a second point
    const auto t0 = std::chrono::steady_clock::now();
    FILE* f = stream_of(b);
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
        bool succeeded = false;
        for (long n = 0; n < 40 && !succeeded; ++n) {
            Polyline pl;
            FILE* f = stream_of(b);
            unsigned char* cur = const_cast<unsigned char*>(b.data());
            v_memptr_fail_after(n);
            const short rc = form == 0 ? pl.fread_bin(f) : pl.fread_bin(cur);
            v_memptr_fail_after(-1);
            std::fclose(f);
            succeeded = rc == st::ok;
            if (!succeeded) {
                ASSERT_EQ(rc, st::bad_input);
                for (unsigned long i = 1; i <= pl.Count(); ++i) {
                    V_POINT a, c;
                    src.Get_Point(i, &a);
                    ASSERT_EQ(pl.Get_Point(i, &c), st::ok);
                    ASSERT_TRUE(same_point(a, c));
                }
            } else {
                EXPECT_EQ(pl.Count(), 3000u);
            }
        }
        EXPECT_TRUE(succeeded) << "form " << form;
    }
}

TEST_F(PolylineTest, Write_ShortWriteGives110)
{
    const Polyline pl = ramp(100);
    unsigned char buf[64];
    FILE* f = fmemopen(buf, sizeof buf, "w");
    ASSERT_NE(f, nullptr);
    std::setvbuf(f, nullptr, _IONBF, 0);
    EXPECT_EQ(pl.fwrite_bin(f), st::bad_input);
    std::fclose(f);
}

}  // namespace
