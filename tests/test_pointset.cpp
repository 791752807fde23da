#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
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
void put_xyz(Bytes& b, double x, double y, double z)
{
    put_f64(b, x);
    put_f64(b, y);
    put_f64(b, z);
}

FILE* stream_of(const Bytes& b)
{
    FILE* f = std::tmpfile();
    if (!b.empty()) std::fwrite(b.data(), 1, b.size(), f);
    std::rewind(f);
    return f;
}

Bytes record_of(const PointSet& s, short* rc = nullptr)
{
    FILE* f = std::tmpfile();
    const short r = s.fwrite_bin(f);
    if (rc) *rc = r;
    Bytes b(size_t(std::ftell(f)));
    std::rewind(f);
    if (!b.empty()) {
        EXPECT_EQ(std::fread(b.data(), 1, b.size(), f), b.size());
    }
    std::fclose(f);
    return b;
}

// A plane whose every byte is known: origin (1, 2, 3), name "AB", id 7, fill bytes
// 0xF1..0xF6, axes y, z, x (a right-handed frame turned about (1, 1, 1)).
// Built once in static storage: copying a record need not carry its fill bytes.
const V_WORKPLANE& odd_plane()
{
    static V_WORKPLANE wp;
    std::memset(static_cast<void*>(&wp), 0, sizeof wp);
    wp.origin = V_POINT{1, 2, 3};
    wp.name[0] = u'A';
    wp.name[1] = u'B';
    wp.id = 7;
    unsigned char* raw = reinterpret_cast<unsigned char*>(&wp);
    for (int i = 0; i < 6; ++i) raw[106 + i] = uint8_t(0xF1 + i);
    wp.xaxis = V_VECTOR{0, 1, 0};
    wp.yaxis = V_VECTOR{0, 0, 1};
    wp.zaxis = V_VECTOR{1, 0, 0};
    return wp;
}

// The plane block built from its documented offsets.
void put_odd_plane(Bytes& b)
{
    put_xyz(b, 1, 2, 3);
    put_u16(b, u'A');
    put_u16(b, u'B');
    for (int i = 2; i < 40; ++i) put_u16(b, 0);
    put_u16(b, 7);
    for (int i = 0; i < 6; ++i) b.push_back(uint8_t(0xF1 + i));
    put_xyz(b, 0, 1, 0);
    put_xyz(b, 0, 0, 1);
    put_xyz(b, 1, 0, 0);
}

bool same_plane(const V_WORKPLANE& a, const V_WORKPLANE& b)  // every byte, fill included
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

const V_WORKPLANE& world()
{
    static V_WORKPLANE wp;
    std::memset(static_cast<void*>(&wp), 0, sizeof wp);
    wp.xaxis.x = wp.yaxis.y = wp.zaxis.z = 1.0;
    return wp;
}

// Points (1, 2, 3), (4, 5, 6), (7, 8, 9) with the second deleted; odd plane and words.
PointSet sample()
{
    PointSet s;
    for (double k : {0.0, 3.0, 6.0}) EXPECT_EQ(s.Append(V_POINT{1 + k, 2 + k, 3 + k}), st::ok);
    EXPECT_EQ(s.DeletePoint(2), st::ok);
    s.flags = 0xBEEF;
    s.SetType(-3);
    s.set_plane(odd_plane());
    s.count_word = 0xDEADBEEFu;
    return s;
}

class PointSetTest : public ::testing::Test {
protected:
    long live_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        EXPECT_EQ(v_memptr_live_count(), live_) << "tracked blocks leaked";
    }
};

// ----------------------------------------------------------------------------------------

TEST_F(PointSetTest, Construct_WorldFrameAndCannotBeWritten)
{
    PointSet s;
    EXPECT_EQ(s.points, nullptr);
    EXPECT_EQ(s.deleted, nullptr);
    EXPECT_EQ(s.flags, 0);
    EXPECT_EQ(s.GetType(), 0);
    EXPECT_EQ(s.count_word, 0u);
    EXPECT_TRUE(same_plane(s.plane, world()));
    short rc;
    EXPECT_TRUE(record_of(s, &rc).empty());
    EXPECT_EQ(rc, st::bad_input);
    ASSERT_EQ(s.Append(V_POINT{1, 1, 1}), st::ok);
    s.UndeletePoints();
    ASSERT_NE(s.deleted, nullptr);  // Append makes both lists: the set is writable
    EXPECT_EQ(record_of(s).size(), 200u + 24u);
}

TEST_F(PointSetTest, Reset_ClearsAllButTheCountWord)
{
    PointSet s = sample();
    s.Reset();
    EXPECT_EQ(s.points, nullptr);
    EXPECT_EQ(s.deleted, nullptr);
    EXPECT_EQ(s.flags, 0);
    EXPECT_EQ(s.type, 0);
    EXPECT_TRUE(same_plane(s.plane, world()));
    EXPECT_EQ(s.count_word, 0xDEADBEEFu);
}

TEST_F(PointSetTest, CopyAndMove_CarryEveryField)
{
    const PointSet a = sample();
    PointSet b(a);
    EXPECT_NE(b.points, a.points);
    EXPECT_NE(b.deleted, a.deleted);
    EXPECT_EQ(b.flags, 0xBEEF);
    EXPECT_EQ(b.type, -3);
    EXPECT_EQ(b.count_word, 0xDEADBEEFu);
    EXPECT_TRUE(same_plane(b.plane, odd_plane()));
    EXPECT_EQ(record_of(b), record_of(a));

    PointSet c;
    c.Append(V_POINT{0, 0, 0});
    c = b;
    EXPECT_EQ(record_of(c), record_of(a));
    c = c;
    EXPECT_EQ(record_of(c), record_of(a));

    List<V_POINT>* pts = b.points;
    PointSet d(std::move(b));
    EXPECT_EQ(d.points, pts);
    EXPECT_EQ(b.points, nullptr);
    EXPECT_EQ(b.deleted, nullptr);
    EXPECT_EQ(b.flags, 0);
    EXPECT_TRUE(same_plane(b.plane, world()));
    EXPECT_EQ(b.count_word, 0xDEADBEEFu);  // the count word survives, as through a reset
    c = std::move(d);
    EXPECT_EQ(c.points, pts);
    EXPECT_EQ(record_of(c), record_of(a));
}

TEST_F(PointSetTest, Create_StoresWorldPointsClosedUpWithThePlane)
{
    List<V_POINT> src(5);
    src.Put(2, V_POINT{10, 20, 30});
    src.Put(3, V_POINT{-1, 0, 0});
    PointSet s = sample();
    ASSERT_EQ(s.Create(src, odd_plane()), st::ok);
    EXPECT_EQ(s.Count(), 2u);
    EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    V_POINT p;
    ASSERT_EQ(s.Get_Point(1, &p), st::ok);
    EXPECT_EQ(p.y, 20.0);  // as given: not moved into the plane
    EXPECT_TRUE(same_plane(s.plane, odd_plane()));
    EXPECT_EQ(s.type, -3);
    EXPECT_EQ(s.flags, 0xBEEF);

    v_memptr_fail_after(0);
    EXPECT_EQ(s.Create(List<V_POINT>(), world()), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(s.Count(), 2u);
    EXPECT_TRUE(same_plane(s.plane, odd_plane()));
}

TEST_F(PointSetTest, SetPointSet_MakesEmptyListsOfTheGivenRoom)
{
    PointSet s = sample();
    ASSERT_EQ(s.SetPointSet(50, 4), st::ok);
    EXPECT_EQ(s.points->capacity, 50u);
    EXPECT_EQ(s.deleted->capacity, 4u);
    EXPECT_EQ(s.points->grow_by, 50u);
    EXPECT_EQ(s.deleted->grow_by, 10u);
    EXPECT_EQ(s.Count(), 0u);
    EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    EXPECT_EQ(s.count_word, 0xDEADBEEFu);
    EXPECT_EQ(s.SetPointSet(0xFFFFFFFFul, 0), st::bad_input);
    v_memptr_fail_after(2);
    EXPECT_EQ(s.SetPointSet(7, 7), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(s.points->capacity, 50u);

    ASSERT_EQ(s.SetPointSet(0, 0), st::ok);  // the smallest writable set
    Bytes want;
    put_u16(want, 0xBEEF);
    put_u16(want, uint16_t(-3));
    put_odd_plane(want);
    put_u32(want, 0xDEADBEEFu);
    put_u32(want, 0);
    put_u32(want, 0);
    EXPECT_EQ(record_of(s), want);
    PointSet back;
    unsigned char* cur = want.data();
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(back.points, nullptr);   // N = 0: no points list
    ASSERT_NE(back.deleted, nullptr);  // the deleted list is always made
    EXPECT_EQ(back.deleted->grow_by, 10u);
    EXPECT_EQ(cur, want.data() + 200);
}

TEST_F(PointSetTest, DeletePoint_MarksPositionsThatUndeleteBringsBack)
{
    PointSet s = sample();  // point 2 already deleted
    EXPECT_EQ(s.DeletePoint(2), st::no_change);
    EXPECT_EQ(s.DeletePoint(0), st::bad_index);
    EXPECT_EQ(s.DeletePoint(4), st::bad_index);
    ASSERT_EQ(s.DeletePoint(3), st::ok);
    EXPECT_EQ(s.GetDeletedPointsNum(), 2u);
    EXPECT_TRUE(s.IsDeleted(3));
    EXPECT_FALSE(s.IsDeleted(1));
    EXPECT_EQ(s.Count(), 3u);  // marked points keep their slots
    V_POINT p;
    EXPECT_EQ(s.Get_Point(3, &p), st::ok);
    s.points->Delete(1);
    EXPECT_EQ(s.DeletePoint(1), st::bad_input);  // a free slot holds nothing to delete
    s.UndeletePoints();
    EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    EXPECT_FALSE(s.IsDeleted(2));
    EXPECT_EQ(PointSet().DeletePoint(1), st::bad_input);
    EXPECT_EQ(s.SetType(9), 1);
}

// ----------------------------------------------------------------------------------------

TEST_F(PointSetTest, Record_MatchesHandBuiltBytesAndRoundTrips)
{
    PointSet s = sample();
    s.points->Delete(1);  // a free slot is skipped by the record
    Bytes want;
    put_u16(want, 0xBEEF);
    put_u16(want, 0xFFFD);  // type -3
    put_odd_plane(want);
    ASSERT_EQ(want.size(), 188u);
    put_u32(want, 0xDEADBEEFu);
    put_u32(want, 2);
    put_xyz(want, 4, 5, 6);
    put_xyz(want, 7, 8, 9);
    put_u32(want, 1);
    put_u32(want, 2);
    short rc;
    const Bytes got = record_of(s, &rc);
    ASSERT_EQ(rc, st::ok);
    ASSERT_EQ(got, want);

    FILE* f = stream_of(got);
    PointSet back;
    back.Append(V_POINT{0, 0, 0});
    ASSERT_EQ(back.fread_bin(f), st::ok);
    std::fclose(f);
    EXPECT_TRUE(same_plane(back.plane, odd_plane()));  // fill bytes carried unchanged
    EXPECT_EQ(back.points->grow_by, 10u);
    EXPECT_EQ(back.points->capacity, 10u);
    EXPECT_EQ(record_of(back), got);

    unsigned char* cur = want.data();
    PointSet mem;
    ASSERT_EQ(mem.fread_bin(cur), st::ok);
    EXPECT_EQ(cur, want.data() + want.size());
    EXPECT_EQ(record_of(mem), got);
    EXPECT_TRUE(mem.IsDeleted(2));
}

TEST_F(PointSetTest, Write_RefusesMissingListsAndWidePositions)
{
    PointSet s = sample();
    List<unsigned long>* d = s.deleted;
    s.deleted = nullptr;
    EXPECT_TRUE(record_of(s).empty());
    s.deleted = d;
    s.deleted->Append(0x100000000ul);  // does not fit the record's 32 bits
    short rc;
    record_of(s, &rc);
    EXPECT_EQ(rc, st::bad_input);
    EXPECT_EQ(s.fwrite_bin(nullptr), st::bad_input);
}

TEST_F(PointSetTest, Read_TruncatedAtEveryByteGives110AndLeaksNothing)
{
    const PointSet src = sample();
    const Bytes b = record_of(src);  // 196 + 72 + 4 + 4 = 276 bytes
    ASSERT_EQ(b.size(), 276u);
    for (size_t len = 0; len < b.size(); ++len) {
        FILE* f = stream_of(Bytes(b.begin(), b.begin() + long(len)));
        PointSet s;
        EXPECT_EQ(s.fread_bin(f), st::bad_input) << len;
        std::fclose(f);
        if (len >= 192) {
            EXPECT_EQ(s.count_word, 0xDEADBEEFu);
        }
        const unsigned long whole = len < 196 ? 0 : (len - 196) / 24 > 3 ? 3 : (len - 196) / 24;
        EXPECT_EQ(s.Count(), whole) << len;
        if (len >= 272) {  // cut inside the positions: the deleted list is left empty
            ASSERT_NE(s.deleted, nullptr);
            EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
        }
    }
}

TEST_F(PointSetTest, Read_HugeCountsInTinyStreamsFailWithoutGiantAllocation)
{
    for (int which = 0; which < 2; ++which) {
        Bytes b(192, 0);
        put_u32(b, which == 0 ? 0xFFFFFFF0u : 1);
        if (which == 1) put_xyz(b, 1, 2, 3);
        put_u32(b, 0xFFFFFFF0u);  // M; for which == 0 these are the first point's bytes
        put_u32(b, 42);
        FILE* f = stream_of(b);
        PointSet s;
        EXPECT_EQ(s.fread_bin(f), st::bad_input);
        std::fclose(f);
        EXPECT_LT(v_memptr_live_bytes(), size_t(1) << 20);
        EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    }
}

TEST_F(PointSetTest, Read_AllocationFailuresGive110)
{
    PointSet src = sample();
    for (int i = 0; i < 1500; ++i) src.deleted->Append(10ul + i);  // past one block
    for (int i = 0; i < 2000; ++i) src.Append(V_POINT{double(i), 0, 0});
    const Bytes b = record_of(src);
    for (int form = 0; form < 2; ++form) {
        bool succeeded = false;
        for (long n = 0; n < 40 && !succeeded; ++n) {
            PointSet s;
            FILE* f = stream_of(b);
            unsigned char* cur = const_cast<unsigned char*>(b.data());
            v_memptr_fail_after(n);
            const short rc = form == 0 ? s.fread_bin(f) : s.fread_bin(cur);
            v_memptr_fail_after(-1);
            std::fclose(f);
            succeeded = rc == st::ok;
            if (!succeeded) {
                ASSERT_EQ(rc, st::bad_input);
            }
        }
        ASSERT_TRUE(succeeded) << "form " << form;
    }
}

}  // namespace
