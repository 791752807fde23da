#include "platform/utils.h"
#include "foundation/status.h"
#include <cstring>

namespace {

constexpr uint32_t kVlstMarker = 0x564c5354u;
constexpr unsigned long kMaxItemSize = 1ul << 20;
constexpr unsigned long kMaxInitialSlots = 65536;

bool is_live(const VLST* l)
{
    return l && l->marker == kVlstMarker && l->data && l->used;
}

// 1-based position holding an item.
bool is_occupied(const VLST* l, unsigned long position)
{
    return is_live(l) && position >= 1 && position <= l->count && l->used[position - 1];
}

// Grows the slots to hold at least n items (half again the capacity, at least n); the
// list is unchanged on failure.
short grow(VLST* l, unsigned long n, const char* file, int line)
{
    unsigned long wanted = l->capacity + l->capacity / 2;
    if (wanted < n) wanted = n;
    const unsigned long max_slots = static_cast<unsigned long>(PTRDIFF_MAX) / 2 / l->item_size;
    if (wanted > max_slots) wanted = max_slots;
    if (wanted < n) return st::no_memory;
    auto* data = static_cast<unsigned char*>(
        _v_realloc(l->data, wanted * l->item_size, file, line, "VLST items"));
    if (!data) return st::no_memory;
    l->data = data;
    auto* used = static_cast<unsigned char*>(_v_realloc(l->used, wanted, file, line, "VLST flags"));
    if (!used) return st::no_memory;  // the larger item block is kept; capacity unchanged
    l->used = used;
    std::memset(l->used + l->capacity, 0, wanted - l->capacity);
    l->capacity = wanted;
    return st::ok;
}

}  // namespace

// --- VLST ---

short _VLST_init(VLST* l, unsigned long item_size, unsigned long slots, const char* file, int line)
{
    if (!l || item_size == 0 || item_size > kMaxItemSize) return st::bad_input;
    if (l->marker == kVlstMarker) _VLST_free(l, file, line);
    *l = VLST{};
    if (slots < 1) slots = 1;
    if (slots > kMaxInitialSlots) slots = kMaxInitialSlots;
    auto* data = static_cast<unsigned char*>(_v_calloc(slots, item_size, file, line, "VLST items"));
    auto* used = static_cast<unsigned char*>(_v_calloc(slots, 1, file, line, "VLST flags"));
    if (!data || !used) {
        _v_free(data, file, line, "VLST items");
        _v_free(used, file, line, "VLST flags");
        return st::no_memory;
    }
    l->data = data;
    l->used = used;
    l->item_size = item_size;
    l->capacity = slots;
    l->count = 0;
    l->file = file;
    l->line = line;
    l->marker = kVlstMarker;
    return st::ok;
}

short _VLST_put(VLST* l, unsigned long position, const void* item, const char* file, int line)
{
    if (!is_live(l) || !item || position < 1) return st::bad_input;
    const unsigned long limit = l->count + 1 > l->capacity ? l->count + 1 : l->capacity;
    if (position > limit) return st::bad_input;
    if (position > l->capacity) {
        // item may point into the list's own storage, which the growth moves.
        const unsigned char* const src = static_cast<const unsigned char*>(item);
        if (src >= l->data && src < l->data + l->capacity * l->item_size) {
            const size_t offset = static_cast<size_t>(src - l->data);
            const short rc = grow(l, position, file, line);
            if (rc != st::ok) return rc;
            std::memmove(l->data + (position - 1) * l->item_size, l->data + offset, l->item_size);
        } else {
            const short rc = grow(l, position, file, line);
            if (rc != st::ok) return rc;
            std::memcpy(l->data + (position - 1) * l->item_size, item, l->item_size);
        }
    } else {
        std::memmove(l->data + (position - 1) * l->item_size, item, l->item_size);
    }
    l->used[position - 1] = 1;
    if (position > l->count) l->count = position;
    return st::ok;
}

short VLST_get(VLST* l, unsigned long position, void* out)
{
    if (!out || !is_occupied(l, position)) return st::bad_input;
    std::memmove(out, l->data + (position - 1) * l->item_size, l->item_size);
    return st::ok;
}

short VLST_getptr_void(VLST* l, unsigned long position, void** out)
{
    if (!out) return st::bad_input;
    if (!is_occupied(l, position)) {
        *out = nullptr;
        return st::bad_input;
    }
    *out = l->data + (position - 1) * l->item_size;
    return st::ok;
}

unsigned long VLST_count(VLST* l)
{
    return is_live(l) ? l->count : 0;
}

short VLST_delete(VLST* l, unsigned long position)
{
    if (!is_occupied(l, position)) return st::bad_input;
    l->used[position - 1] = 0;
    while (l->count > 0 && !l->used[l->count - 1]) --l->count;  // no trailing holes
    return st::ok;
}

void _VLST_rewind(VLST* l, const char* /*file*/, int /*line*/)
{
    if (!is_live(l)) return;
    std::memset(l->used, 0, l->count);
    l->count = 0;
}

void _VLST_compact(VLST* l, const char* /*file*/, int /*line*/)
{
    if (!is_live(l)) return;
    unsigned long kept = 0;
    for (unsigned long i = 0; i < l->count; ++i) {
        if (!l->used[i]) continue;
        if (i != kept) {
            std::memcpy(l->data + kept * l->item_size, l->data + i * l->item_size, l->item_size);
            l->used[kept] = 1;
            l->used[i] = 0;
        }
        ++kept;
    }
    l->count = kept;
}

short _VLST_free(VLST* l, const char* file, int line)
{
    if (!l) return st::bad_input;
    if (l->marker == kVlstMarker) {
        _v_free(l->data, file, line, "VLST items");
        _v_free(l->used, file, line, "VLST flags");
    }
    *l = VLST{};
    return st::ok;
}
