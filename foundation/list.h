#pragma once
// List<T>: the one-based growable list with a flag a slot that carries every
// variable-length argument and result of the library, and the tracked heap helpers
// kestra::detail::tracked_new / tracked_delete.
//
// Storage comes from the tracked allocator (v_memptr_alloc / v_memptr_free), which
// reallocates by moving bytes. T must therefore survive being moved bytewise: records,
// scalars, and classes that hold only scalars and pointers to storage they own (CNurbs,
// Polyline, PointSet, List itself). Classes holding pointers into themselves, or
// polymorphic ones, must not be stored.
//
// Invariants: capacity is 0 exactly when items and set are null; every slot at or past
// next has flag 0; next is count + 1, 0 marking a broken list that refuses insertions.
#include "../platform/utils.h"
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace kestra::detail {

// A T built from args in a tracked block; null when the block cannot be allocated.
template <class T, class... A> T* tracked_new(A&&... args)
{
    static_assert(alignof(T) <= 16, "tracked blocks are 16-byte aligned");
    void* p = v_memptr_alloc(nullptr, sizeof(T));
    if (!p) return nullptr;
    try {
        return new (p) T(std::forward<A>(args)...);
    } catch (...) {
        v_memptr_free(p);
        throw;
    }
}

// Destroys and releases an object from tracked_new; null is allowed.
template <class T> void tracked_delete(T* p)
{
    if (!p) return;
    p->~T();
    v_memptr_free(p);
}

// List flags are written as this one-byte type and read back as bytes through List::set.
// Unlike a byte store, a store of it cannot overlap the list's own fields, so the compiler
// keeps them in registers across a run of appends.
enum class SlotFlag : uint8_t { empty = 0, occupied = 1 };

// Writes f as the flag of the 0-based slot i.
inline void mark(uint8_t* set, uint32_t i, SlotFlag f)
{
    reinterpret_cast<SlotFlag*>(set)[i] = f;
}

}  // namespace kestra::detail

template <class T> class List {
public:
    T* items = nullptr;      // capacity slots; null when capacity is 0
    uint32_t grow_by;        // smallest number of slots added by a growth
    uint32_t capacity = 0;   // allocated slots
    uint32_t next = 1;       // first free position (count + 1); 0: broken list
    uint8_t* set = nullptr;  // 1 when the slot holds an item

    // Empty list that grows by at least grow_by slots at a time.
    explicit List(uint32_t grow_by = 16) : grow_by(grow_by) {}

    // Same capacity, count, flags and items as other; a copy whose storage cannot be
    // allocated is a contract violation.
    List(const List& other) : grow_by(other.grow_by)
    {
        if (other.capacity == 0) return;
        KESTRA_REQUIRE(Reserve(other.capacity));
        CopyItemsFrom(other);
    }

    // Takes other's storage; other is left empty, keeping its grow_by.
    List(List&& other) noexcept
        : items(other.items), grow_by(other.grow_by), capacity(other.capacity), next(other.next),
          set(other.set)
    {
        other.Abandon();
    }

    // Replaces the contents by a copy of other (grow_by included); same contract as the
    // copy constructor.
    List& operator=(const List& other)
    {
        if (this == &other) return *this;
        List copy(other);
        return *this = std::move(copy);
    }

    // Releases the own items, takes other's storage and leaves other empty.
    List& operator=(List&& other) noexcept
    {
        if (this == &other) return *this;
        Release();
        items = other.items;
        set = other.set;
        capacity = other.capacity;
        grow_by = other.grow_by;
        next = other.next;
        other.Abandon();
        return *this;
    }

    ~List() { Release(); }

    // Makes room for n slots, zero-filling the new slots and flags. True on success;
    // on failure every item is destroyed and released, leaving an empty list (next 1).
    bool Reserve(uint32_t n)
    {
        if (n <= capacity) return true;
        const Blocks grown = Grown(items, set, capacity, n);
        items = grown.items;
        set = grown.set;
        if (grown.items) {
            capacity = n;
            return true;
        }
        capacity = 0;
        next = 1;
        return false;
    }

    // Stores a copy of item at position k (assigning over an item already there), growing
    // by max(capacity / 10, grow_by) slots, at least up to k. False for k 0 or k at the
    // 32-bit limit, or a broken list (nothing changes), and when growth fails (the list is
    // then left empty).
    bool Put(uint32_t k, const T& item)
    {
        if (next == 0 || k == 0 || k == UINT32_MAX) return false;
        if (k - 1 < capacity) {
            StoreAt(k, item);
            return true;
        }
        // item may lie in the storage that the growth moves.
        if constexpr (std::is_trivially_copyable_v<T>) {
            // By value into the out-of-line growth: nothing stays live across the call.
            const uint32_t n = GrownCapacity(capacity, grow_by, k);
            const Blocks grown = GrownWith(items, set, capacity, n, k, item);
            items = grown.items;
            set = grown.set;
            if (!grown.items) {
                capacity = 0;
                next = 1;
                return false;
            }
            capacity = n;
            next = k + 1;  // k was past every slot, so past next too
            return true;
        } else {
            // The moved bytes keep their offset, so the item is found at the same slot.
            const uintptr_t at = reinterpret_cast<uintptr_t>(&item);
            const uintptr_t lo = reinterpret_cast<uintptr_t>(items);
            const bool own = capacity != 0 && at >= lo && at < lo + capacity * sizeof(T);
            const size_t slot = own ? (at - lo) / sizeof(T) : 0;
            if (!Reserve(GrownCapacity(capacity, grow_by, k))) return false;
            StoreAt(k, own ? items[slot] : item);
            return true;
        }
    }

    // Put at position next.
    bool Append(const T& item)
    {
        const uint32_t k = next;
        // k - 1 wraps for a broken list (k 0), which then takes the slow path and fails.
        if (__builtin_expect(k - 1 < capacity, 1)) {
            // The slot at next is never set, so the item is constructed, not assigned.
            new (items + (k - 1)) T(item);
            kestra::detail::mark(set, k - 1, kestra::detail::SlotFlag::occupied);
            next = k + 1;
            return true;
        }
        return Put(k, item);
    }

    // True and a copy in *out when position k holds an item.
    bool Get(uint32_t k, T* out) const
    {
        if (!IsSet(k)) return false;
        *out = items[k - 1];
        return true;
    }

    // The item at position k, or null when k holds none.
    T* GetPtr(uint32_t k) { return IsSet(k) ? items + (k - 1) : nullptr; }
    const T* GetPtr(uint32_t k) const { return IsSet(k) ? items + (k - 1) : nullptr; }

    // True exactly when capacity is not 0, k is not 0, k < next and slot k is flagged.
    bool IsSet(uint32_t k) const { return capacity != 0 && k != 0 && k < next && set[k - 1]; }

    // next - 1, holes included; 0 for a broken list.
    uint32_t Count() const { return next == 0 ? 0 : next - 1; }

    // Number of flagged slots.
    uint32_t CountSet() const
    {
        uint32_t n = 0;
        for (uint32_t i = 0; i < capacity; ++i) n += set[i];
        return n;
    }

    // Destroys the item at k and clears its flag (next is kept: a hole); ignores a
    // position that holds no item.
    void Delete(uint32_t k)
    {
        if (!IsSet(k)) return;
        items[k - 1].~T();
        kestra::detail::mark(set, k - 1, kestra::detail::SlotFlag::empty);
    }

    // Destroys every item and clears every flag; next becomes 1, the capacity stays.
    void Clear()
    {
        DestroyItems(items, set, capacity);
        if (capacity != 0) std::memset(set, 0, capacity);
        next = 1;
    }

    // The item at position k; a position that holds no item is a contract violation.
    T& operator[](uint32_t k)
    {
        KESTRA_REQUIRE(IsSet(k));
        return items[k - 1];
    }
    const T& operator[](uint32_t k) const
    {
        KESTRA_REQUIRE(IsSet(k));
        return items[k - 1];
    }

private:
    // Capacity after growing by max(capacity / 10, grow_by) slots, at least up to position
    // k < UINT32_MAX.
    static uint32_t GrownCapacity(uint32_t capacity, uint32_t grow_by, uint32_t k)
    {
        const uint32_t tenth = capacity / 10;
        const uint64_t step = tenth > grow_by ? tenth : grow_by;
        uint64_t wanted = static_cast<uint64_t>(capacity) + step;
        if (wanted < k) wanted = k;
        if (wanted > UINT32_MAX - 1) wanted = UINT32_MAX - 1;  // still >= k
        return static_cast<uint32_t>(wanted);
    }

    // Stores item in slot k (below capacity): assigned over an item, else constructed.
    void StoreAt(uint32_t k, const T& item)
    {
        if (set[k - 1]) {
            items[k - 1] = item;
        } else {
            new (items + (k - 1)) T(item);
            kestra::detail::mark(set, k - 1, kestra::detail::SlotFlag::occupied);
        }
        if (next <= k) next = k + 1;
    }

    // The two blocks of a list; both null after a failed growth.
    struct Blocks {
        T* items;
        uint8_t* set;
    };

    // Blocks of n > capacity slots holding the items, the new slots and flags zero-filled;
    // on failure the items are destroyed and both blocks released, and the result is null.
    __attribute__((always_inline)) static Blocks Reallocated(T* items, uint8_t* set,
                                                             uint32_t capacity, uint32_t n)
    {
        // n at the 32-bit limit is refused: next could not pass the last slot.
        if (n != UINT32_MAX) {
            T* const new_items =
                static_cast<T*>(v_memptr_alloc(items, static_cast<size_t>(n) * sizeof(T)));
            if (new_items) {
                items = new_items;
                uint8_t* const new_set = static_cast<uint8_t*>(v_memptr_alloc(set, n));
                if (new_set) {
                    std::memset(static_cast<void*>(new_items + capacity), 0,
                                static_cast<size_t>(n - capacity) * sizeof(T));
                    std::memset(new_set + capacity, 0, n - capacity);
                    return {new_items, new_set};
                }
            }
        }
        // The flag block is unchanged on every failure, so it still describes the items.
        DestroyItems(items, set, capacity);
        v_memptr_free(items);
        v_memptr_free(set);
        return {nullptr, nullptr};
    }

    // The growths run out of line with their arguments and result in registers, so that a
    // list kept in a caller's registers stays there across appends; the C runtime's string
    // routines they call are much faster than what a cold function would inline.
    __attribute__((noinline)) static Blocks Grown(T* items, uint8_t* set, uint32_t capacity,
                                                  uint32_t n)
    {
        return Reallocated(items, set, capacity, n);
    }

    // Grown to n slots, then value constructed in slot k (k <= n) on success.
    __attribute__((noinline)) static Blocks GrownWith(T* items, uint8_t* set, uint32_t capacity,
                                                      uint32_t n, uint32_t k, T value)
    {
        const Blocks grown = Reallocated(items, set, capacity, n);
        if (grown.items) {
            new (grown.items + (k - 1)) T(value);
            kestra::detail::mark(grown.set, k - 1, kestra::detail::SlotFlag::occupied);
        }
        return grown;
    }

    // Copies the flags and flagged items of positions 1 .. other's count after Reserve.
    void CopyItemsFrom(const List& other)
    {
        next = other.next;
        const uint32_t n = other.Count();
        for (uint32_t i = 0; i < n; ++i) {
            if (!other.set[i]) continue;
            new (items + i) T(other.items[i]);
            kestra::detail::mark(set, i, kestra::detail::SlotFlag::occupied);
        }
    }

    // Destroys every flagged item of the first capacity slots (flags stay as they are).
    static void DestroyItems(T* items, const uint8_t* set, uint32_t capacity)
    {
        if constexpr (!std::is_trivially_destructible_v<T>) {
            for (uint32_t i = 0; i < capacity; ++i) {
                if (set[i]) items[i].~T();
            }
        }
    }

    // Destroys the items and releases items and flags; capacity 0, next 1.
    void Release()
    {
        DestroyItems(items, set, capacity);
        v_memptr_free(items);
        v_memptr_free(set);
        Abandon();
    }

    // Forgets the storage without releasing it (after a move); grow_by stays.
    void Abandon()
    {
        items = nullptr;
        set = nullptr;
        capacity = 0;
        next = 1;
    }
};
