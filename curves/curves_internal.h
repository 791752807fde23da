#pragma once
// Helpers shared by the curve units: list growth steps, tracked list copies and fills,
// list replacement and tracked scratch arrays. Internal to the library (not installed).
#include "foundation/list.h"
#include "platform/utils.h"
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestra::detail {

// Growth step of a new list: the wanted size, kept within 1 .. 65536 so that a corrupt
// count never turns into one huge growth later.
inline uint32_t growth_step(int64_t wanted)
{
    if (wanted < 1) return 1;
    if (wanted > 65536) return 65536;
    return static_cast<uint32_t>(wanted);
}

// A tracked deep copy of *src; null when src is null or the list could not be allocated.
template <class T> List<T>* copy_list(const List<T>* src)
{
    return src ? tracked_new<List<T>>(*src) : nullptr;
}

// A list holding src[0 .. count-1] in slots 1..count, copied in one piece; null when memory
// runs out.
template <class T> List<T>* make_list(const T* src, uint32_t count, uint32_t grow_by)
{
    List<T>* l = tracked_new<List<T>>(grow_by < 1 ? 1u : grow_by);
    if (!l) return nullptr;
    if (count == 0) return l;
    if (!l->Reserve(count)) {
        tracked_delete(l);
        return nullptr;
    }
    std::memcpy(static_cast<void*>(l->items), src, static_cast<size_t>(count) * sizeof(T));
    std::memset(l->set, 1, count);
    l->next = count + 1;
    return l;
}

// Frees the list held in slot and puts fresh there.
template <class T> void replace_list(List<T>*& slot, List<T>* fresh)
{
    tracked_delete(slot);
    slot = fresh;
}

// Tracked scratch array of n items (at least one is allocated), released on scope exit;
// p is null when the block could not be had.
template <class T> class Block {
public:
    explicit Block(size_t n) : p(static_cast<T*>(v_memptr_alloc(nullptr, (n ? n : 1) * sizeof(T))))
    {}
    ~Block() { v_memptr_free(p); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    T* p;
};

}  // namespace kestra::detail
