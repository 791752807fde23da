#pragma once
// Kernels shared by the polyline and point-set records: moving runs of fixed-size items
// between a List<T> and a stream or a memory cursor, and growing a list without losing what
// it holds. Items are trivially copyable; records are little-endian like the host.
#include "foundation/list.h"
#include "foundation/records.h"
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied as they lie in memory on a little-endian host");

namespace kestra::detail {

// Items moved per stream call; the block buffer lives on the stack.
constexpr uint32_t kBlockItems = 1024;

// The grow_by of a list read from a record of n items: its first growth makes room for n.
inline uint32_t record_grow_by(uint32_t n)
{
    return n > 10 ? n : 10;
}

// Gives list room for cap slots, zero-filling the new slots and flags as List::Reserve does.
// Unlike List::Reserve, a failure leaves the items in place: each block is reallocated on its
// own, and a block that grew before the other failed stays valid (capacity is raised only
// when both succeed). False on failure.
template <class T> bool grow_keeping(List<T>* list, uint32_t cap)
{
    static_assert(std::is_trivially_copyable_v<T>, "items are moved bytewise");
    if (cap <= list->capacity) return true;
    T* items = static_cast<T*>(v_memptr_alloc(list->items, size_t(cap) * sizeof(T)));
    if (!items) return false;
    list->items = items;
    uint8_t* set = static_cast<uint8_t*>(v_memptr_alloc(list->set, cap));
    if (!set) {
        if (list->capacity == 0) {  // keep "capacity 0 exactly when both blocks are null"
            v_memptr_free(list->items);
            list->items = nullptr;
        }
        return false;
    }
    list->set = set;
    const uint32_t old = list->capacity;
    std::memset(static_cast<void*>(items + old), 0, size_t(cap - old) * sizeof(T));
    std::memset(set + old, 0, cap - old);
    list->capacity = cap;
    return true;
}

// Makes room for position k as List::Put would (step max(capacity / 10, grow_by), at least up
// to k) but through grow_keeping, so that a failed growth loses nothing. False on failure.
template <class T> bool room_for(List<T>* list, uint32_t k)
{
    if (k == 0 || k == UINT32_MAX) return false;
    if (k - 1 < list->capacity) return true;
    const uint32_t tenth = list->capacity / 10;
    const uint64_t step = tenth > list->grow_by ? tenth : list->grow_by;
    uint64_t cap = uint64_t(list->capacity) + step;
    if (cap < k) cap = k;
    if (cap > UINT32_MAX - 1) cap = UINT32_MAX - 1;  // still >= k
    return grow_keeping(list, uint32_t(cap));
}

// Stores k decoded records from src at the list's next positions; the capacity must suffice.
template <class T, size_t RecSize, class Decode>
void fill_items(List<T>* list, const unsigned char* src, uint32_t k, Decode decode)
{
    if (k == 0) return;  // an empty list may have no storage yet
    T* dst = list->items + (list->next - 1);
    for (uint32_t j = 0; j < k; ++j) decode(src + size_t(j) * RecSize, dst + j);
    std::memset(list->set + (list->next - 1), 1, k);
    list->next += k;
}

// Reads n records of RecSize bytes from f and appends them to list, whose full size is
// full_cap slots. The list grows only after records have arrived, doubling up to full_cap,
// so a corrupt n costs no more memory than about twice the bytes the stream really holds.
// True when all n arrived; false on a short read or a failed growth (items so far kept).
template <class T, size_t RecSize, class Decode>
bool read_items(FILE* f, uint32_t n, uint32_t full_cap, List<T>* list, Decode decode)
{
    unsigned char buf[kBlockItems * RecSize];
    uint32_t left = n;
    while (left > 0) {
        const uint32_t want = left < kBlockItems ? left : kBlockItems;
        const uint32_t k = uint32_t(std::fread(buf, 1, size_t(want) * RecSize, f) / RecSize);
        const uint64_t need = uint64_t(list->next - 1) + k;
        if (need > list->capacity) {
            uint64_t cap = 2 * uint64_t(list->capacity);
            if (cap < need) cap = need;
            if (cap < kBlockItems) cap = kBlockItems;
            if (cap > full_cap) cap = full_cap;
            if (!grow_keeping(list, uint32_t(cap))) return false;
        }
        fill_items<T, RecSize>(list, buf, k, decode);
        if (k < want) return false;
        left -= k;
    }
    return true;
}

// Reads n records of RecSize bytes at p into list after reserving full_cap slots, advancing p
// past each record. True on success; false when the storage cannot be had (list then empty,
// p unmoved).
template <class T, size_t RecSize, class Decode>
bool read_items(unsigned char*& p, uint32_t n, uint32_t full_cap, List<T>* list, Decode decode)
{
    if (n == 0) return true;
    if (!list->Reserve(full_cap)) return false;
    fill_items<T, RecSize>(list, p, n, decode);
    p += size_t(n) * RecSize;
    return true;
}

// Writes the occupied slots of list in slot order, RecSize bytes each, in blocks. True when
// every byte was written.
template <class T, size_t RecSize, class Encode>
bool write_items(FILE* f, const List<T>& list, Encode encode)
{
    unsigned char buf[kBlockItems * RecSize];
    uint32_t k = 0;
    const uint32_t n_slots = list.Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        if (!list.set[i]) continue;
        encode(list.items[i], buf + size_t(k) * RecSize);
        if (++k == kBlockItems) {
            if (std::fwrite(buf, 1, size_t(k) * RecSize, f) != size_t(k) * RecSize) return false;
            k = 0;
        }
    }
    return k == 0 || std::fwrite(buf, 1, size_t(k) * RecSize, f) == size_t(k) * RecSize;
}

// Copies n bytes from the stream into dst; true when all of them arrived.
inline bool take_bytes(FILE* f, void* dst, size_t n)
{
    return std::fread(dst, 1, n, f) == n;
}
// Copies n bytes at p into dst and advances p; the buffer is trusted to hold them.
inline bool take_bytes(unsigned char*& p, void* dst, size_t n)
{
    std::memcpy(dst, p, n);
    p += n;
    return true;
}

// A point record is the point's three doubles.
struct PointCodec {
    static constexpr size_t size = 24;
    void operator()(const unsigned char* src, V_POINT* dst) const { std::memcpy(dst, src, 24); }
    void operator()(const V_POINT& p, unsigned char* dst) const { std::memcpy(dst, &p, 24); }
};

// Reads a uint32 count N from src (a stream or a memory cursor), then N records into a new
// list stored in *list with grow_by max(N, 10); for N = 0 the list is made only when
// always_make is set. A stream's records enter the list only as they arrive. True on
// success; false on a short read or want of memory (the records read so far are kept).
template <class T, class Codec, class Src>
bool read_counted_list(Src& src, List<T>** list, bool always_make)
{
    uint32_t n;
    if (!take_bytes(src, &n, 4)) return false;
    if (n == 0 && !always_make) return true;
    const uint32_t grow_by = record_grow_by(n);
    *list = tracked_new<List<T>>(grow_by);
    return *list && read_items<T, Codec::size>(src, n, grow_by, *list, Codec{});
}

// Writes the number of occupied slots of list as a uint32, then their records in slot order.
// True when every byte was written.
template <class T, class Codec> bool write_counted_list(FILE* f, const List<T>& list)
{
    const uint32_t n = list.CountSet();
    return std::fwrite(&n, 4, 1, f) == 1 && write_items<T, Codec::size>(f, list, Codec{});
}

}  // namespace kestra::detail
