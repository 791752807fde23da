#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Little-endian bytes shifted out one by one, independent of the library's memcpy path.
void put_le(Bytes& b, uint64_t v, int n_bytes)
{
    for (int i = 0; i < n_bytes; ++i) b.push_back(uint8_t(v >> (8 * i)));
}
void put_xyz(Bytes& b, double x, double y, double z)
{
    for (double d : {x, y, z}) {
        uint64_t u;
        std::memcpy(&u, &d, 8);
        put_le(b, u, 8);
    }
}

FILE* stream_of(const Bytes& b, size_t len)
{
    FILE* f = std::tmpfile();
    if (len > 0) std::fwrite(b.data(), 1, len, f);
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
    if (!b.empty() && std::fread(b.data(), 1, b.size(), f) != b.size()) b.clear();
    std::fclose(f);
    return b;
}

// Planes live in static storage: copying a record need not carry its fill bytes.
// odd_plane: origin (1, 2, 3), name "AB", id 7, fill 0xF1..0xF6, axes y, z, x.
const V_WORKPLANE& odd_plane()
{
    static V_WORKPLANE wp;
    std::memset(static_cast<void*>(&wp), 0, sizeof wp);
    wp.origin = V_POINT{1, 2, 3};
    wp.name[0] = u'A';
    wp.name[1] = u'B';
    wp.id = 7;
    for (int i = 0; i < 6; ++i) reinterpret_cast<unsigned char*>(&wp)[106 + i] = uint8_t(0xF1 + i);
    wp.xaxis = V_VECTOR{0, 1, 0};
    wp.yaxis = V_VECTOR{0, 0, 1};
    wp.zaxis = V_VECTOR{1, 0, 0};
    return wp;
}
const V_WORKPLANE& world()  // every byte 0 but the unit axes
{
    static V_WORKPLANE wp;
    std::memset(static_cast<void*>(&wp), 0, sizeof wp);
    wp.xaxis.x = wp.yaxis.y = wp.zaxis.z = 1.0;
    return wp;
}
bool same_plane(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The record's first 192 bytes for sample(), laid out field by field at their offsets.
Bytes sample_head()
{
    Bytes b;
    put_le(b, 0xBEEF, 2);
    put_le(b, 0xFFFD, 2);  // type -3
    put_xyz(b, 1, 2, 3);   // plane at 4: origin, name, id at 108, fill 110..115, axes
    put_le(b, u'A', 2);
    put_le(b, u'B', 2);
    b.insert(b.end(), 76, 0);  // the rest of the 40 name units
    put_le(b, 7, 2);
    for (int i = 0; i < 6; ++i) b.push_back(uint8_t(0xF1 + i));
    put_xyz(b, 0, 1, 0);
    put_xyz(b, 0, 0, 1);
    put_xyz(b, 1, 0, 0);
    put_le(b, 0xDEADBEEFu, 4);  // count word at 188
    return b;
}

// Points (1, 2, 3), (4, 5, 6), (7, 8, 9), the second deleted; odd plane and words.
PointSet sample()
{
    PointSet s;
    for (double k : {0.0, 3.0, 6.0}) EXPECT_EQ(s.Append(V_POINT{1 + k, 2 + k, 3 + k}), st::ok);
    EXPECT_EQ(s.DeletePoint(2), st::ok);
    s.flags = 0xBEEF;
    EXPECT_EQ(s.SetType(-3), 1);
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

TEST_F(PointSetTest, ConstructAndReset_WorldFrameNoListsCountWordKept)
{
    PointSet s;
    EXPECT_TRUE(s.points == nullptr && s.deleted == nullptr);
    EXPECT_TRUE(s.flags == 0 && s.GetType() == 0 && s.count_word == 0);
    EXPECT_TRUE(same_plane(s.plane, world()));
    short rc;
    EXPECT_TRUE(record_of(s, &rc).empty());  // no lists: nothing written
    EXPECT_EQ(rc, st::bad_input);

    s = sample();
    s.Reset();
    EXPECT_TRUE(s.points == nullptr && s.deleted == nullptr);
    EXPECT_TRUE(s.flags == 0 && s.type == 0);
    EXPECT_TRUE(same_plane(s.plane, world()));
    EXPECT_EQ(s.count_word, 0xDEADBEEFu);
}

TEST_F(PointSetTest, CopyAndMove_CarryEveryField)
{
    const PointSet a = sample();
    const Bytes rec = record_of(a);
    PointSet b(a);
    EXPECT_TRUE(b.points != a.points && b.deleted != a.deleted);
    EXPECT_TRUE(same_plane(b.plane, odd_plane()));
    EXPECT_EQ(record_of(b), rec);  // words, plane, points and positions

    PointSet c;
    c.Append(V_POINT{0, 0, 0});
    c = b;
    c = c;
    EXPECT_EQ(record_of(c), rec);

    List<V_POINT>* pts = b.points;
    PointSet d(std::move(b));
    EXPECT_EQ(d.points, pts);
    EXPECT_TRUE(b.points == nullptr && b.deleted == nullptr && b.flags == 0);
    EXPECT_TRUE(same_plane(b.plane, world()));
    EXPECT_EQ(b.count_word, 0xDEADBEEFu);  // left as a reset leaves it
    c = std::move(d);
    EXPECT_EQ(c.points, pts);
    EXPECT_EQ(record_of(c), rec);
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
    EXPECT_TRUE(s.type == -3 && s.flags == 0xBEEF);

    v_memptr_fail_after(0);
    EXPECT_EQ(s.Create(List<V_POINT>(), world()), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(s.Count(), 2u);
    EXPECT_TRUE(same_plane(s.plane, odd_plane()));
}

TEST_F(PointSetTest, SetPointSet_EmptyListsOfTheGivenRoom)
{
    PointSet s = sample();
    ASSERT_EQ(s.SetPointSet(50, 4), st::ok);
    EXPECT_TRUE(s.points->capacity == 50 && s.points->grow_by == 50);
    EXPECT_TRUE(s.deleted->capacity == 4 && s.deleted->grow_by == 10);
    EXPECT_TRUE(s.Count() == 0 && s.GetDeletedPointsNum() == 0);
    EXPECT_EQ(s.SetPointSet(0xFFFFFFFFul, 0), st::bad_input);
    v_memptr_fail_after(2);
    EXPECT_EQ(s.SetPointSet(7, 7), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(s.points->capacity, 50u);

    // The smallest writable set: 200 bytes, read back without a points list.
    ASSERT_EQ(s.SetPointSet(0, 0), st::ok);
    Bytes want = sample_head();
    put_le(want, 0, 8);
    EXPECT_EQ(record_of(s), want);
    PointSet back;
    unsigned char* cur = want.data();
    ASSERT_EQ(back.fread_bin(cur), st::ok);
    EXPECT_EQ(cur, want.data() + 200);
    EXPECT_EQ(back.points, nullptr);
    ASSERT_NE(back.deleted, nullptr);  // always made
    EXPECT_EQ(back.deleted->grow_by, 10u);
}

TEST_F(PointSetTest, DeletePoint_MarksPositionsThatUndeleteBringsBack)
{
    PointSet s = sample();
    EXPECT_EQ(s.DeletePoint(2), st::no_change);
    EXPECT_EQ(s.DeletePoint(0), st::bad_index);
    EXPECT_EQ(s.DeletePoint(4), st::bad_index);
    ASSERT_EQ(s.DeletePoint(3), st::ok);
    EXPECT_EQ(s.GetDeletedPointsNum(), 2u);
    EXPECT_TRUE(s.IsDeleted(3) && !s.IsDeleted(1));
    EXPECT_EQ(s.Count(), 3u);  // marked points keep their slots
    s.points->Delete(1);
    EXPECT_EQ(s.DeletePoint(1), st::bad_input);  // a free slot holds nothing to delete
    s.UndeletePoints();
    EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    EXPECT_FALSE(s.IsDeleted(2));
    EXPECT_EQ(PointSet().DeletePoint(1), st::bad_input);
}

// ----------------------------------------------------------------------------------------

TEST_F(PointSetTest, Record_MatchesHandBuiltBytesAndRoundTripsBitForBit)
{
    PointSet s = sample();
    s.points->Delete(1);  // a free slot is skipped
    Bytes want = sample_head();
    ASSERT_EQ(want.size(), 192u);
    put_le(want, 2, 4);
    put_xyz(want, 4, 5, 6);
    put_xyz(want, 7, 8, 9);
    put_le(want, 1, 4);
    put_le(want, 2, 4);
    short rc;
    const Bytes got = record_of(s, &rc);
    ASSERT_EQ(rc, st::ok);
    ASSERT_EQ(got, want);

    FILE* f = stream_of(got, got.size());
    PointSet back;
    back.Append(V_POINT{0, 0, 0});
    ASSERT_EQ(back.fread_bin(f), st::ok);
    std::fclose(f);
    EXPECT_TRUE(same_plane(back.plane, odd_plane()));  // fill bytes carried unchanged
    EXPECT_TRUE(back.points->grow_by == 10 && back.points->capacity == 10);
    EXPECT_EQ(record_of(back), got);

    unsigned char* cur = want.data();
    PointSet mem;
    ASSERT_EQ(mem.fread_bin(cur), st::ok);
    EXPECT_EQ(cur, want.data() + want.size());
    EXPECT_EQ(record_of(mem), got);
    EXPECT_TRUE(mem.IsDeleted(2));
}

TEST_F(PointSetTest, Write_RefusesMissingListsWidePositionsAndNullStream)
{
    PointSet s = sample();
    List<unsigned long>* d = s.deleted;
    s.deleted = nullptr;
    EXPECT_TRUE(record_of(s).empty());
    s.deleted = d;
    s.deleted->Append(0x100000000ul);  // beyond the record's 32 bits
    short rc;
    record_of(s, &rc);
    EXPECT_EQ(rc, st::bad_input);
    EXPECT_EQ(s.fwrite_bin(nullptr), st::bad_input);
}

TEST_F(PointSetTest, Read_TruncatedAtEveryByteGives110AndKeepsWhatWasRead)
{
    const Bytes b = record_of(sample());  // 196 + 72 + 4 + 4 bytes
    ASSERT_EQ(b.size(), 276u);
    for (size_t len = 0; len < b.size(); ++len) {
        FILE* f = stream_of(b, len);
        PointSet s;
        EXPECT_EQ(s.fread_bin(f), st::bad_input) << len;
        std::fclose(f);
        EXPECT_EQ(s.count_word, len >= 192 ? 0xDEADBEEFu : 0u) << len;
        const size_t whole = len < 196 ? 0 : (len - 196) / 24;
        EXPECT_EQ(s.Count(), whole < 3 ? whole : 3) << len;
        EXPECT_EQ(s.deleted != nullptr, len >= 272) << len;  // cut inside the positions
        EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    }
}

TEST_F(PointSetTest, Read_HugeCountsInTinyStreamsFailWithoutGiantAllocation)
{
    for (int which = 0; which < 2; ++which) {  // a huge N, then a huge M
        Bytes b(192, 0);
        put_le(b, which == 0 ? 0xFFFFFFF0u : 1, 4);
        if (which == 1) put_xyz(b, 1, 2, 3);
        put_le(b, 0xFFFFFFF0u, 4);
        put_le(b, 42, 4);
        FILE* f = stream_of(b, b.size());
        PointSet s;
        EXPECT_EQ(s.fread_bin(f), st::bad_input);
        std::fclose(f);
        EXPECT_LT(v_memptr_live_bytes(), size_t(1) << 20);
        EXPECT_EQ(s.Count(), unsigned(which));
    }
}

TEST_F(PointSetTest, Read_AllocationFailuresGive110AndLeakNothing)
{
    PointSet src = sample();
    for (int i = 0; i < 1500; ++i) src.deleted->Append(10ul + i);  // past one block
    for (int i = 0; i < 2000; ++i) src.Append(V_POINT{double(i), 0, 0});
    const Bytes b = record_of(src);
    for (int form = 0; form < 2; ++form) {
        short rc = st::bad_input;
        for (long n = 0; n < 40 && rc != st::ok; ++n) {
            PointSet s;
            FILE* f = stream_of(b, b.size());
            unsigned char* cur = const_cast<unsigned char*>(b.data());
            v_memptr_fail_after(n);
            rc = form == 0 ? s.fread_bin(f) : s.fread_bin(cur);
            v_memptr_fail_after(-1);
            std::fclose(f);
            EXPECT_TRUE(rc == st::ok || rc == st::bad_input);
            if (rc == st::ok) {
                EXPECT_EQ(record_of(s), b);
            }
        }
        EXPECT_EQ(rc, st::ok) << "form " << form;
    }
}

}  // namespace
