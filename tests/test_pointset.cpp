// The point set: ownership of its two lists, deletion marks, and its record.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include "io_support.h"
#include <gtest/gtest.h>
#include <cstring>
#include <utility>

using namespace testsupport;

namespace {

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
const auto same_plane = [](const V_WORKPLANE& a, const V_WORKPLANE& b) {
    return !std::memcmp(&a, &b, sizeof a);
};

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

// The first 192 bytes of the record of sample(): flags, type, the plane as it lies in memory
// (fill bytes included), the count word.
Bytes sample_head()
{
    Bytes b = {0xEF, 0xBE, 0xFD, 0xFF};  // flags 0xBEEF, type -3
    const auto* plane = reinterpret_cast<const unsigned char*>(&odd_plane());
    b.insert(b.end(), plane, plane + 184);
    put_le(b, 0xDEADBEEFu, 4);
    return b;
}

using PointSetTest = LeakFree;

}  // namespace

TEST_F(PointSetTest, Ownership_CopyCarriesEveryFieldMoveAndResetLeaveTheWorldFrame)
{
    PointSet fresh;
    EXPECT_TRUE(fresh.points == nullptr && fresh.deleted == nullptr && fresh.flags == 0 &&
                fresh.GetType() == 0 && fresh.count_word == 0 && same_plane(fresh.plane, world()));
    ASSERT_EQ(fresh.Append(V_POINT{0, 0, 0}), st::ok);
    EXPECT_EQ(record_of(fresh).size(), 200u + 24);  // Append makes both lists
    const PointSet a = sample();
    const Bytes rec = record_of(a);
    PointSet b(a);  // the record carries words, plane, points and positions
    EXPECT_TRUE(b.points != a.points && b.deleted != a.deleted && record_of(b) == rec);
    EXPECT_TRUE(same_plane(b.plane, odd_plane()));
    fresh = b;
    fresh = *&fresh;
    EXPECT_EQ(record_of(fresh), rec);
    List<V_POINT>* pts = b.points;
    PointSet d(std::move(b));
    fresh = std::move(d);
    EXPECT_TRUE(fresh.points == pts && record_of(fresh) == rec);
    fresh.Reset();
    for (const PointSet* s : {&b, &d, &fresh}) {  // moved from or reset: count word kept
        EXPECT_TRUE(s->points == nullptr && s->deleted == nullptr && s->flags == 0 && s->type == 0);
        EXPECT_TRUE(s->count_word == 0xDEADBEEFu && same_plane(s->plane, world()));
    }
}

TEST_F(PointSetTest, Building_CreateAndSetPointSetReplaceListsOrLeaveTheSet)
{
    List<V_POINT> src(5);
    src.Put(2, V_POINT{10, 20, 30});
    src.Put(3, V_POINT{-1, 0, 0});
    PointSet s = sample();
    ASSERT_EQ(s.Create(src, odd_plane()), st::ok);
    EXPECT_TRUE(s.Count() == 2 && s.points->grow_by == 5 && s.GetDeletedPointsNum() == 0);
    V_POINT p;  // as given: not moved into the plane
    ASSERT_EQ(s.Get_Point(1, &p), st::ok);
    EXPECT_TRUE(p.y == 20.0 && s.type == -3 && s.flags == 0xBEEF);
    EXPECT_EQ(with_allocations(0, [&] { return s.Create(List<V_POINT>(), world()); }),
              st::no_memory);
    EXPECT_TRUE(s.Count() == 2u && same_plane(s.plane, odd_plane()));
    ASSERT_EQ(s.SetPointSet(50, 4), st::ok);
    EXPECT_TRUE(s.points->capacity == 50 && s.points->grow_by == 50 && s.deleted->capacity == 4);
    EXPECT_TRUE(s.deleted->grow_by == 10 && s.Count() == 0 && s.GetDeletedPointsNum() == 0);
    EXPECT_EQ(s.SetPointSet(0xFFFFFFFFul, 0), st::bad_input);
    EXPECT_TRUE(with_allocations(2, [&] { return s.SetPointSet(7, 7); }) == st::no_memory &&
                s.points->capacity == 50u);
}

TEST_F(PointSetTest, DeletePoint_MarksPositionsThatUndeleteBringsBack)
{
    PointSet s = sample();
    for (const auto& [i, rc] :
         {std::pair(2, st::no_change), {0, st::bad_index}, {4, st::bad_index}})
        EXPECT_EQ(s.DeletePoint(i), rc) << i;
    ASSERT_EQ(s.DeletePoint(3), st::ok);  // marked points keep their slots
    EXPECT_TRUE(s.GetDeletedPointsNum() == 2u && s.IsDeleted(3) && !s.IsDeleted(1) &&
                s.Count() == 3u);
    s.points->Delete(1);
    EXPECT_EQ(s.DeletePoint(1), st::bad_input);  // a free slot holds nothing to delete
    s.UndeletePoints();
    EXPECT_TRUE(s.GetDeletedPointsNum() == 0u && !s.IsDeleted(2));
    EXPECT_EQ(PointSet().DeletePoint(1), st::bad_input);
}

TEST_F(PointSetTest, Record_MatchesHandBuiltBytesAndRoundTripsBitForBit)
{
    PointSet s = sample();
    s.points->Delete(1);  // a free slot is skipped
    Bytes want = sample_head();
    put_le(want, 2, 4);
    put_xyz(want, 4, 5, 6);
    put_xyz(want, 7, 8, 9);
    put_le(want, 1 | 2ull << 32, 8);  // one position, 2
    ASSERT_EQ(record_of(s), want);
    expect_round_trip(want, sample, [&](const PointSet& r) {
        EXPECT_TRUE(same_plane(r.plane, odd_plane()));  // fill bytes carried unchanged
        EXPECT_TRUE(r.points->grow_by == 10 && r.points->capacity == 10 && r.IsDeleted(2));
        EXPECT_EQ(record_of(r), want);
    });
    // The smallest writable set: 200 bytes, read back without a points list.
    ASSERT_EQ(s.SetPointSet(0, 0), st::ok);
    want = sample_head();
    put_le(want, 0, 8);
    EXPECT_EQ(record_of(s), want);
    expect_round_trip(want, sample, [](const PointSet& r) {
        EXPECT_TRUE(r.points == nullptr && r.deleted && r.deleted->grow_by == 10u);  // always made
    });

    short rc;  // no lists, a position beyond 32 bits, a null stream
    EXPECT_TRUE(record_of(PointSet(), &rc).empty() && rc == st::bad_input);
    List<unsigned long>* d = nullptr;
    std::swap(s.deleted, d);  // no deletion list
    EXPECT_TRUE(record_of(s, &rc).empty() && rc == st::bad_input);
    std::swap(s.deleted, d);
    s.deleted->Append(0x100000000ul);
    record_of(s, &rc);
    EXPECT_EQ(rc, st::bad_input);
    EXPECT_EQ(s.fwrite_bin(nullptr), st::bad_input);
}

TEST_F(PointSetTest, Read_TruncatedHugeCountsOrNoMemoryGive110AndKeepWhatWasRead)
{
    PointSet src = sample();
    ASSERT_EQ(src.DeletePoint(3), st::ok);
    const Bytes rec = record_of(src);  // 196 + 72 + 4 + 8 bytes
    ASSERT_EQ(rec.size(), 280u);
    for_each_cut(rec, [](FILE* f, size_t cut) {
        PointSet s;
        EXPECT_EQ(s.fread_bin(f), st::bad_input);
        // Each fixed field read whole before the cut is kept, a field cut short is not.
        EXPECT_TRUE(s.flags == (cut >= 2 ? 0xBEEF : 0) && s.type == (cut >= 4 ? -3 : 0));
        EXPECT_TRUE(same_plane(s.plane, cut >= 188 ? odd_plane() : world()));
        EXPECT_EQ(s.count_word, cut >= 192 ? 0xDEADBEEFu : 0u);
        const size_t whole = cut < 196 ? 0 : (cut - 196) / 24;
        EXPECT_EQ(s.Count(), whole < 3 ? whole : 3);
        EXPECT_EQ(s.deleted != nullptr, cut >= 272);  // cut inside the positions: none kept
        EXPECT_EQ(s.GetDeletedPointsNum(), 0u);
    });
    for (int which = 0; which < 2; ++which) {  // a huge N, then a huge M
        Bytes b(192, 0);
        put_le(b, which == 0 ? 0xFFFFFFF0u : 1, 4);
        if (which == 1) put_xyz(b, 1, 2, 3);
        put_le(b, 0xFFFFFFF0u, 4);
        put_le(b, 42, 4);
        PointSet s;
        EXPECT_LT(
            bytes_grown_reading(b, [&](FILE* f) { EXPECT_EQ(s.fread_bin(f), st::bad_input); }),
            size_t(1) << 20);
        EXPECT_EQ(s.Count(), unsigned(which));
    }
    for (int i = 0; i < 1500; ++i) src.deleted->Append(10ul + 65536ul * i);  // past one block
    for (int i = 0; i < 2000; ++i) src.Append(V_POINT{double(i), 0, 0});
    const Bytes big = record_of(src);
    read_with_failing_allocations<PointSet>(big, 40, [&](const PointSet& s, short rc) {
        EXPECT_TRUE(rc == st::bad_input || (rc == st::ok && record_of(s) == big));
    });
}
