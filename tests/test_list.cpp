// List<T>: growth, failure paths, copies and moves, item lifetimes, contracts.
#include "base_support.h"

using namespace basetest;

namespace {

using ListTest = AllocFixture;

// An item with a destructor that counts living instances; it holds only scalars, so it
// may be moved bytewise by the list's reallocation.
struct Counted {
    static int alive;
    int v;
    Counted(int value = 0) : v(value) { ++alive; }
    Counted(const Counted& o) : v(o.v) { ++alive; }
    Counted& operator=(const Counted& o) = default;
    ~Counted() { --alive; }
};
int Counted::alive = 0;

// Items 10, 20, ... at positions 1 .. n.
template <class T> List<T> filled(uint32_t grow_by, uint32_t n)
{
    List<T> l(grow_by);
    for (uint32_t i = 1; i <= n; ++i) EXPECT_TRUE(l.Append(T(static_cast<int>(i) * 10)));
    return l;
}

}  // namespace

TEST_F(ListTest, Growth_ByTenthOrGrowByAtLeastToPositionNewSlotsZeroAndUnset)
{
    EXPECT_EQ(List<int>().grow_by, 16u);
    List<double> l(2);
    ASSERT_TRUE(l.Put(5, 2.5));  // max(0 + max(0 / 10, 2), 5) = 5
    EXPECT_TRUE(l.capacity == 5 && l.Count() == 5 && l.CountSet() == 1);
    double out = 7;
    for (uint32_t k = 1; k <= 4; ++k) EXPECT_TRUE(l.GetPtr(k) == nullptr && !l.Get(k, &out));
    EXPECT_EQ(out, 7);  // untouched on failure
    EXPECT_TRUE(l.Get(5, &out) && out == 2.5);
    ASSERT_TRUE(l.Put(2, 1.0));  // a hole below next leaves next alone
    EXPECT_EQ(l.next, 6u);
    ASSERT_TRUE(l.Reserve(8));
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(l.items + 5);
    for (size_t i = 0; i < 3 * sizeof(double); ++i) ASSERT_EQ(bytes[i], 0) << i;
    for (uint32_t i = 5; i < 8; ++i) EXPECT_EQ(l.set[i], 0) << i;
    EXPECT_TRUE(l.Reserve(3) && l.capacity == 8);  // smaller than capacity: nothing changes

    // clang-format off
    const struct { uint32_t grow_by, reserved, appended, capacity; } rows[] = {
        {2, 100, 101, 110},  // a tenth of 100 beats grow_by 2
        {16, 10, 11, 26},    // grow_by 16 beats a tenth of 10
        {4, 0, 50, 52},      // 4, 8, ... 40 while a tenth is below 4, then 44, 48, 52
    };
    // clang-format on
    for (const auto& r : rows) {
        List<int> g(r.grow_by);
        ASSERT_TRUE(g.Reserve(r.reserved));
        for (uint32_t i = 1; i <= r.appended; ++i) ASSERT_TRUE(g.Append(static_cast<int>(i)));
        EXPECT_EQ(g.capacity, r.capacity);
        for (uint32_t k = 1; k <= r.appended; ++k) ASSERT_EQ(g[k], static_cast<int>(k));
    }
}

TEST_F(ListTest, AppendOwnItemDuringGrowth_CopiesTheValue)
{
    // The reference points into storage that the growth reallocates; class items and
    // trivially copyable records take different paths through the growth.
    List<Counted> l(1);
    ASSERT_TRUE(l.Append(Counted(42)));
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(l.Append(l[1]));
    ASSERT_TRUE(l.Put(100, l[2]));
    for (uint32_t k : {2u, 21u, 100u}) EXPECT_EQ(l[k].v, 42) << k;
    List<V_POINT> pts(1);
    ASSERT_TRUE(pts.Append(V_POINT{1, 2, 3}));
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(pts.Append(pts[pts.Count()]));
    ASSERT_TRUE(pts.Put(300, pts[7]));
    for (uint32_t k : {2u, 21u, 300u}) EXPECT_EQ(pts[k].z, 3.0) << k;
}

TEST_F(ListTest, GrowthFailure_LeavesListEmptyAndReleasesEverything)
{
    Counted::alive = 0;
    for (long allowed = 0; allowed <= 1; ++allowed) {
        // allowed 0: the item block fails; 1: the item block grows, the flag block fails.
        List<Counted> l = filled<Counted>(2, 4);
        ASSERT_EQ(l.capacity, 4u);
        const long live = v_memptr_live_count();
        v_memptr_fail_after(allowed);
        EXPECT_FALSE(l.Append(Counted(5)));
        v_memptr_fail_after(-1);
        EXPECT_TRUE(l.next == 1 && l.capacity == 0 && l.items == nullptr && l.set == nullptr);
        EXPECT_EQ(Counted::alive, 0) << "items were not destroyed";
        EXPECT_EQ(v_memptr_live_count(), live - 2);
        EXPECT_TRUE(l.Append(Counted(7)) && l[1].v == 7);  // the emptied list is usable again
        List<int> ints = filled<int>(2, 4);  // records take another path through the growth
        v_memptr_fail_after(allowed);
        EXPECT_FALSE(ints.Put(5, 5));
        v_memptr_fail_after(-1);
        EXPECT_TRUE(ints.next == 1 && ints.capacity == 0 && ints.items == nullptr);
    }
    v_memptr_fail_after(0);  // a heap list without memory is no list
    EXPECT_EQ(kestra::detail::tracked_new<List<double>>(), nullptr);
}

TEST_F(ListTest, RefusedInsertions_ChangeNothing)
{
    List<int> empty;
    EXPECT_TRUE(!empty.Put(0, 1) && !empty.Put(UINT32_MAX, 1));  // next could not pass the last
    EXPECT_TRUE(empty.capacity == 0 && empty.next == 1);
    // A broken list (next 0) refuses everything.
    List<int> l = filled<int>(4, 3);
    l.next = 0;
    EXPECT_TRUE(!l.Append(1) && !l.Put(1, 1) && !l.Put(50, 1));
    EXPECT_TRUE(l.capacity == 4 && l.Count() == 0 && !l.IsSet(1));  // k < next never holds
    l.Clear();  // Clear restores a usable empty list
    EXPECT_TRUE(l.Append(5) && l[1] == 5);
}

// A copy keeps capacity, count, holes and grow_by and is independent; a move takes the
// storage and leaves the source empty with its grow_by.
TEST_F(ListTest, CopyAndMove_KeepContentsAndItemLifetimes)
{
    Counted::alive = 0;
    {
        List<Counted> src = filled<Counted>(3, 3);
        ASSERT_TRUE(src.Reserve(50));
        src.Delete(2);
        List<Counted> copy(src);
        EXPECT_TRUE(copy.capacity == 50 && copy.Count() == 3 && copy.grow_by == 3);
        EXPECT_TRUE(copy[1].v == 10 && !copy.IsSet(2) && copy[3].v == 30);
        copy[1].v = 100;
        EXPECT_EQ(src[1].v, 10);
        const List<Counted> empty_src(7);
        List<Counted> empty_copy(empty_src);
        EXPECT_TRUE(empty_copy.items == nullptr && empty_copy.grow_by == 7);

        List<Counted> a = filled<Counted>(2, 5);
        EXPECT_EQ(Counted::alive, 9);
        a = copy;  // a's five items are destroyed, two copied
        EXPECT_EQ(Counted::alive, 6);
        EXPECT_TRUE(a.Count() == 3 && a.grow_by == 3 && a.capacity == 50 && a[1].v == 100);
        const List<Counted>& same = a;
        a = same;  // self-assignment keeps everything
        EXPECT_EQ(a[3].v, 30);
    }
    EXPECT_EQ(Counted::alive, 0);
    {
        List<Counted> src = filled<Counted>(5, 3);
        Counted* const storage = src.items;
        List<Counted> dst(std::move(src));
        EXPECT_TRUE(src.Count() == 0 && src.capacity == 0 && src.items == nullptr &&
                    src.grow_by == 5);
        EXPECT_TRUE(dst.items == storage && dst.Count() == 3 && dst[3].v == 30);
        List<Counted> target = filled<Counted>(11, 4);
        EXPECT_EQ(Counted::alive, 7);
        target = std::move(dst);  // target's own four items are destroyed
        EXPECT_EQ(Counted::alive, 3);
        EXPECT_TRUE(target.grow_by == 5 && dst.capacity == 0 && dst.next == 1);
        List<Counted>& alias = target;
        target = std::move(alias);  // self-move keeps everything
        EXPECT_EQ(target.Count(), 3u);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ListTest, DeletePutAndClear_ManageItemLifetimes)
{
    Counted::alive = 0;
    List<Counted> l = filled<Counted>(4, 4);
    l.Delete(2);
    for (uint32_t k : {2u, 9u, 0u}) l.Delete(k);  // a hole, past next, 0: ignored
    EXPECT_TRUE(Counted::alive == 3 && !l.IsSet(2) && l.next == 5 && l.CountSet() == 3);
    ASSERT_TRUE(l.Put(2, Counted(77)));  // fills the hole: a new instance
    EXPECT_EQ(Counted::alive, 4);
    ASSERT_TRUE(l.Put(2, Counted(78)));  // over an item: assigned, no new instance
    EXPECT_TRUE(Counted::alive == 4 && l[2].v == 78);
    l.Clear();
    EXPECT_TRUE(Counted::alive == 0 && l.next == 1 && l.capacity == 4 && l.CountSet() == 0);
}

TEST(ListDeathTest, UnsetIndexOrCopyWithoutMemory_IsContractViolation)
{
    List<int> l;
    ASSERT_TRUE(l.Put(3, 1));
    for (uint32_t k : {0u, 2u, 4u}) EXPECT_DEATH(l[k]++, "assertion failed in list\\.h line");
    EXPECT_DEATH(
        {
            v_memptr_fail_after(0);
            List<int> copy(l);
        },
        "assertion failed in list\\.h line");
}
