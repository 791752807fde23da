#include <kestra/kestra.h>
#include <gtest/gtest.h>
#include <cstring>

namespace {

// Every test must leave the tracked allocator as it found it and switch injection off.
class ListTest : public ::testing::Test {
protected:
    long live_before_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        EXPECT_EQ(v_memptr_live_count(), live_before_) << "tracked blocks leaked";
    }
};

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

template <class T> List<T> filled(uint32_t grow_by, uint32_t n)
{
    List<T> l(grow_by);
    for (uint32_t i = 1; i <= n; ++i) EXPECT_TRUE(l.Append(T(static_cast<int>(i) * 10)));
    return l;
}

}  // namespace

// --- construction and growth ---

TEST_F(ListTest, DefaultConstruction_EmptyWithGrowBy16)
{
    List<double> l;
    EXPECT_EQ(l.items, nullptr);
    EXPECT_EQ(l.set, nullptr);
    EXPECT_EQ(l.grow_by, 16u);
    EXPECT_EQ(l.capacity, 0u);
    EXPECT_EQ(l.next, 1u);
    EXPECT_EQ(l.Count(), 0u);
    double out = 7;
    EXPECT_FALSE(l.Get(1, &out));
    EXPECT_EQ(out, 7);  // untouched on failure
}

TEST_F(ListTest, PutPastEnd_GrowsToPositionAndLeavesHolesUnset)
{
    List<double> l(2);
    ASSERT_TRUE(l.Put(5, 2.5));
    // step = max(0 / 10, 2) = 2, new capacity = max(0 + 2, 5) = 5
    EXPECT_EQ(l.capacity, 5u);
    EXPECT_EQ(l.next, 6u);
    EXPECT_EQ(l.Count(), 5u);
    EXPECT_EQ(l.CountSet(), 1u);
    for (uint32_t k = 1; k <= 4; ++k) {
        EXPECT_FALSE(l.IsSet(k)) << k;
        EXPECT_EQ(l.GetPtr(k), nullptr) << k;
    }
    double out = 0;
    EXPECT_FALSE(l.Get(3, &out));
    ASSERT_TRUE(l.Get(5, &out));
    EXPECT_EQ(out, 2.5);
    // Filling a hole below next leaves next alone.
    ASSERT_TRUE(l.Put(2, 1.0));
    EXPECT_EQ(l.next, 6u);
    EXPECT_EQ(l.CountSet(), 2u);
}

TEST_F(ListTest, AppendToFullList_GrowsByTenthOrGrowBy)
{
    List<int> big(2);
    ASSERT_TRUE(big.Reserve(100));
    for (int i = 1; i <= 100; ++i) ASSERT_TRUE(big.Append(i));
    EXPECT_EQ(big.capacity, 100u);
    ASSERT_TRUE(big.Append(101));
    EXPECT_EQ(big.capacity, 110u);  // a tenth of 100 beats grow_by 2

    List<int> small(16);
    ASSERT_TRUE(small.Reserve(10));
    for (int i = 1; i <= 11; ++i) ASSERT_TRUE(small.Append(i));
    EXPECT_EQ(small.capacity, 26u);  // grow_by 16 beats a tenth of 10

    // grow_by 4 from empty: 4, 8, ... 40 while a tenth is below 4, then 44, 48, 52.
    List<int> seq(4);
    for (int i = 1; i <= 50; ++i) ASSERT_TRUE(seq.Append(i));
    EXPECT_EQ(seq.capacity, 52u);
    for (uint32_t k = 1; k <= 50; ++k) EXPECT_EQ(seq[k], static_cast<int>(k));
}

TEST_F(ListTest, Reserve_ZeroFillsNewSlotsAndKeepsItems)
{
    List<double> l(1);
    ASSERT_TRUE(l.Append(4.0));
    ASSERT_TRUE(l.Reserve(8));
    EXPECT_EQ(l.capacity, 8u);
    EXPECT_EQ(l[1], 4.0);
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(l.items + 1);
    for (size_t i = 0; i < 7 * sizeof(double); ++i) ASSERT_EQ(bytes[i], 0) << i;
    for (uint32_t i = 1; i < 8; ++i) EXPECT_EQ(l.set[i], 0) << i;
    EXPECT_TRUE(l.Reserve(3));  // smaller than capacity: nothing changes
    EXPECT_EQ(l.capacity, 8u);
}

TEST_F(ListTest, AppendOwnItemDuringGrowth_CopiesTheValue)
{
    List<Counted> l(1);
    ASSERT_TRUE(l.Append(Counted(42)));
    EXPECT_EQ(l.capacity, 1u);
    // The reference points into storage that the growth reallocates.
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(l.Append(l[1]));
    for (uint32_t k = 1; k <= 21; ++k) EXPECT_EQ(l[k].v, 42) << k;
    ASSERT_TRUE(l.Put(100, l[2]));
    EXPECT_EQ(l[100].v, 42);

    // Records and scalars take another path through the growth.
    List<V_POINT> pts(1);
    ASSERT_TRUE(pts.Append(V_POINT{1, 2, 3}));
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(pts.Append(pts[pts.Count()]));
    ASSERT_TRUE(pts.Put(300, pts[7]));
    for (uint32_t k : {2u, 21u, 300u}) EXPECT_EQ(pts[k].z, 3.0) << k;
}

// --- failure paths ---

TEST_F(ListTest, GrowthFailure_LeavesListEmptyAndReleasesEverything)
{
    Counted::alive = 0;
    for (long allowed = 0; allowed <= 1; ++allowed) {
        // allowed 0: the item block fails; 1: the item block grows, the flag block fails.
        List<Counted> l(2);
        for (int i = 1; i <= 4; ++i) ASSERT_TRUE(l.Append(Counted(i)));
        ASSERT_EQ(l.capacity, 4u);
        const long live = v_memptr_live_count();
        v_memptr_fail_after(allowed);
        EXPECT_FALSE(l.Append(Counted(5)));
        v_memptr_fail_after(-1);
        EXPECT_EQ(l.next, 1u);
        EXPECT_EQ(l.capacity, 0u);
        EXPECT_EQ(l.items, nullptr);
        EXPECT_EQ(l.set, nullptr);
        EXPECT_EQ(Counted::alive, 0) << "items were not destroyed";
        EXPECT_EQ(v_memptr_live_count(), live - 2);
        // The emptied list is usable again.
        EXPECT_TRUE(l.Append(Counted(7)));
        EXPECT_EQ(l[1].v, 7);
    }
}

TEST_F(ListTest, RefusedInsertions_ChangeNothing)
{
    List<int> empty;
    EXPECT_FALSE(empty.Put(0, 1));
    EXPECT_FALSE(empty.Put(UINT32_MAX, 1));  // next could not move past it
    EXPECT_EQ(empty.capacity, 0u);
    EXPECT_EQ(empty.next, 1u);

    // A broken list (next 0) refuses everything.
    List<int> l = filled<int>(4, 3);
    const uint32_t capacity = l.capacity;
    l.next = 0;
    EXPECT_FALSE(l.Append(1));
    EXPECT_FALSE(l.Put(1, 1));
    EXPECT_FALSE(l.Put(50, 1));
    EXPECT_EQ(l.capacity, capacity);
    EXPECT_EQ(l.Count(), 0u);
    EXPECT_FALSE(l.IsSet(1));  // k < next never holds
    l.Clear();                 // Clear restores a usable empty list
    EXPECT_TRUE(l.Append(5));
    EXPECT_EQ(l[1], 5);
}

// --- copy and move ---

TEST_F(ListTest, Copy_KeepsCapacityCountHolesAndIsIndependent)
{
    List<int> src(3);
    ASSERT_TRUE(src.Reserve(50));
    ASSERT_TRUE(src.Append(1));
    ASSERT_TRUE(src.Append(2));
    ASSERT_TRUE(src.Append(3));
    src.Delete(2);
    List<int> copy(src);
    EXPECT_EQ(copy.capacity, 50u);
    EXPECT_EQ(copy.Count(), 3u);
    EXPECT_EQ(copy.grow_by, 3u);
    EXPECT_NE(copy.items, src.items);
    EXPECT_EQ(copy[1], 1);
    EXPECT_FALSE(copy.IsSet(2));
    EXPECT_EQ(copy[3], 3);
    copy[1] = 100;
    EXPECT_EQ(src[1], 1);

    List<int> empty_src(7);
    List<int> empty_copy(empty_src);
    EXPECT_EQ(empty_copy.capacity, 0u);
    EXPECT_EQ(empty_copy.items, nullptr);
    EXPECT_EQ(empty_copy.grow_by, 7u);
}

TEST_F(ListTest, CopyAssignment_ReplacesContentsAndDestroysOldItems)
{
    Counted::alive = 0;
    {
        List<Counted> a = filled<Counted>(2, 5);
        List<Counted> b = filled<Counted>(9, 2);
        EXPECT_EQ(Counted::alive, 7);
        a = b;
        EXPECT_EQ(Counted::alive, 4);
        EXPECT_EQ(a.Count(), 2u);
        EXPECT_EQ(a.grow_by, 9u);
        EXPECT_EQ(a.capacity, b.capacity);
        EXPECT_EQ(a[2].v, 20);
        const List<Counted>& same = a;
        a = same;  // self-assignment keeps everything
        EXPECT_EQ(a[1].v, 10);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ListTest, Move_LeavesSourceEmptyKeepingGrowBy)
{
    Counted::alive = 0;
    {
        List<Counted> src = filled<Counted>(5, 3);
        List<Counted> dst(std::move(src));
        EXPECT_EQ(src.Count(), 0u);
        EXPECT_EQ(src.capacity, 0u);
        EXPECT_EQ(src.items, nullptr);
        EXPECT_EQ(src.grow_by, 5u);
        EXPECT_EQ(dst.Count(), 3u);
        EXPECT_EQ(dst[3].v, 30);

        List<Counted> target = filled<Counted>(11, 4);
        EXPECT_EQ(Counted::alive, 7);
        target = std::move(dst);  // target's own four items are destroyed
        EXPECT_EQ(Counted::alive, 3);
        EXPECT_EQ(target.grow_by, 5u);
        EXPECT_EQ(dst.capacity, 0u);
        EXPECT_EQ(dst.next, 1u);
        List<Counted>& alias = target;
        target = std::move(alias);  // self-move keeps everything
        EXPECT_EQ(target.Count(), 3u);
    }
    EXPECT_EQ(Counted::alive, 0);
}

// --- access, deletion, clearing ---

TEST_F(ListTest, DeletePutAndClear_ManageItemLifetimes)
{
    Counted::alive = 0;
    List<Counted> l = filled<Counted>(4, 4);
    l.Delete(2);
    EXPECT_EQ(Counted::alive, 3);
    EXPECT_FALSE(l.IsSet(2));
    EXPECT_EQ(l.next, 5u);
    EXPECT_EQ(l.CountSet(), 3u);
    l.Delete(2);  // already a hole
    l.Delete(9);  // past next
    l.Delete(0);
    EXPECT_EQ(Counted::alive, 3);
    ASSERT_TRUE(l.Put(2, Counted(77)));  // fills the hole: a new instance
    EXPECT_EQ(Counted::alive, 4);
    ASSERT_TRUE(l.Put(2, Counted(78)));  // over an item: assigned, no new instance
    EXPECT_EQ(Counted::alive, 4);
    EXPECT_EQ(l[2].v, 78);

    const uint32_t capacity = l.capacity;
    l.Clear();
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(l.next, 1u);
    EXPECT_EQ(l.capacity, capacity);
    EXPECT_EQ(l.CountSet(), 0u);
}

TEST(ListDeathTest, IndexOfUnsetPosition_IsContractViolation)
{
    List<int> l;
    ASSERT_TRUE(l.Put(3, 1));
    EXPECT_DEATH(l[2]++, "assertion failed in list\\.h line [0-9]+");
    EXPECT_DEATH(l[0]++, "assertion failed in list\\.h line");
    EXPECT_DEATH(l[4]++, "assertion failed in list\\.h line");
}

TEST(ListDeathTest, CopyWithoutMemory_IsContractViolation)
{
    List<int> l;
    ASSERT_TRUE(l.Append(1));
    EXPECT_DEATH(
        {
            v_memptr_fail_after(0);
            List<int> copy(l);
        },
        "assertion failed in list\\.h line");
}

// --- tracked heap objects ---

TEST_F(ListTest, TrackedNew_ForwardsArgumentsAndCountsTheBlock)
{
    const long live = v_memptr_live_count();
    List<double>* p = kestra::detail::tracked_new<List<double>>(3u);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->grow_by, 3u);
    ASSERT_TRUE(p->Append(1.0));
    EXPECT_EQ(v_memptr_live_count(), live + 3);  // object, items, flags
    kestra::detail::tracked_delete(p);
    EXPECT_EQ(v_memptr_live_count(), live);
    kestra::detail::tracked_delete<List<double>>(nullptr);

    v_memptr_fail_after(0);
    EXPECT_EQ(kestra::detail::tracked_new<List<double>>(), nullptr);
}
