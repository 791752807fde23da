#include "paths/pointset.h"
#include "foundation/status.h"
#include "paths/paths_internal.h"
#include "platform/utils.h"
#include <cstring>
#include <new>
#include <utility>

using kestra::detail::PointCodec;

static_assert(sizeof(V_WORKPLANE) == 184, "the plane block of the record is 184 bytes");

namespace {

// A deleted position is stored as a uint32.
struct PositionCodec {
    static constexpr size_t size = 4;
    void operator()(const unsigned char* src, unsigned long* dst) const
    {
        uint32_t v;
        std::memcpy(&v, src, 4);
        *dst = v;
    }
    void operator()(unsigned long v, unsigned char* dst) const
    {
        const uint32_t w = uint32_t(v);
        std::memcpy(dst, &w, 4);
    }
};

// The world frame with an empty name and id 0; every byte, the fill after id included, is 0
// first so that a written record carries no stale memory.
void world_frame(V_WORKPLANE* wp)
{
    std::memset(static_cast<void*>(wp), 0, sizeof *wp);
    wp->xaxis.x = 1.0;
    wp->yaxis.y = 1.0;
    wp->zaxis.z = 1.0;
}

// A deep copy of src (slots, capacity and grow_by kept), or null for a null src. A copy that
// cannot be allocated is a contract violation, as for List itself.
template <class T> List<T>* deep_copy(const List<T>* src)
{
    if (!src) return nullptr;
    List<T>* dst = kestra::detail::tracked_new<List<T>>(*src);
    KESTRA_REQUIRE(dst != nullptr);
    return dst;
}

// An empty list with the given grow_by and room for n slots; null when memory runs out.
template <class T> List<T>* empty_list(uint32_t grow_by, uint32_t n)
{
    List<T>* l = kestra::detail::tracked_new<List<T>>(grow_by);
    if (l && !l->Reserve(n)) {
        kestra::detail::tracked_delete(l);
        return nullptr;
    }
    return l;
}

// Replaces the lists of ps by new_points and new_deleted, or, when either is null (memory ran
// out), releases both and leaves ps unchanged. 0 or 115.
short install_lists(PointSet* ps, List<V_POINT>* new_points, List<unsigned long>* new_deleted)
{
    if (!new_points || !new_deleted) {
        kestra::detail::tracked_delete(new_points);
        kestra::detail::tracked_delete(new_deleted);
        return st::no_memory;
    }
    kestra::detail::tracked_delete(ps->points);
    kestra::detail::tracked_delete(ps->deleted);
    ps->points = new_points;
    ps->deleted = new_deleted;
    return st::ok;
}

// True when some entry of the deleted list does not fit the record's 32-bit positions.
bool has_wide_position(const List<unsigned long>& l)
{
    const uint32_t n_slots = l.Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        if (l.set[i] && l.items[i] > UINT32_MAX) return true;
    }
    return false;
}

// Reads one fixed field of size bytes from src into *field; the field changes only when all
// of its bytes arrived. True on success.
template <class Src> bool read_field(Src& src, void* field, size_t size)
{
    unsigned char buf[sizeof(V_WORKPLANE)];
    if (!kestra::detail::take_bytes(src, buf, size)) return false;
    std::memcpy(field, buf, size);
    return true;
}

// Reads the record from src (a stream or a memory cursor) into ps, just reset: the fixed
// fields one by one (those before a short read are kept), the counted points (no list for
// none), the counted deleted positions (always a list, left empty when they cannot all be
// read). 0, or 110 on a short read or want of memory.
template <class Src> short read_record(Src& src, PointSet* ps)
{
    if (!read_field(src, &ps->flags, 2) || !read_field(src, &ps->type, 2) ||
        !read_field(src, &ps->plane, sizeof(V_WORKPLANE)) || !read_field(src, &ps->count_word, 4))
        return st::bad_input;
    using kestra::detail::read_counted_list;
    if (!read_counted_list<V_POINT, PointCodec>(src, &ps->points, false)) return st::bad_input;
    if (!read_counted_list<unsigned long, PositionCodec>(src, &ps->deleted, true)) {
        if (ps->deleted) ps->deleted->Clear();
        return st::bad_input;
    }
    return st::ok;
}

}  // namespace

// --- ownership ---

PointSet::PointSet() : points(nullptr), deleted(nullptr), flags(0), type(0), count_word(0)
{
    world_frame(&plane);
}

PointSet::PointSet(const PointSet& other)
    : points(deep_copy(other.points)), deleted(deep_copy(other.deleted)), flags(other.flags),
      type(other.type), count_word(other.count_word)
{
    std::memcpy(static_cast<void*>(&plane), &other.plane, sizeof plane);
}

PointSet::PointSet(PointSet&& other) noexcept : PointSet()
{
    *this = std::move(other);
}

PointSet& PointSet::operator=(const PointSet& other)
{
    if (this == &other) return *this;
    PointSet copy(other);
    return *this = std::move(copy);
}

PointSet& PointSet::operator=(PointSet&& other) noexcept
{
    if (this == &other) return *this;
    Reset();
    points = other.points;
    deleted = other.deleted;
    flags = other.flags;
    type = other.type;
    std::memcpy(static_cast<void*>(&plane), &other.plane, sizeof plane);
    count_word = other.count_word;
    other.points = nullptr;
    other.deleted = nullptr;
    other.Reset();
    return *this;
}

PointSet::~PointSet()
{
    Reset();
}

void PointSet::Reset()
{
    kestra::detail::tracked_delete(points);
    kestra::detail::tracked_delete(deleted);
    points = nullptr;
    deleted = nullptr;
    flags = 0;
    type = 0;
    world_frame(&plane);
}

// --- type and plane ---

short PointSet::SetType(short t)
{
    type = t;
    return 1;
}

void PointSet::get_plane(V_WORKPLANE* out) const
{
    std::memcpy(static_cast<void*>(out), &plane, sizeof plane);
}

void PointSet::set_plane(const V_WORKPLANE& wp)
{
    std::memcpy(static_cast<void*>(&plane), &wp, sizeof plane);
}

// --- building ---

short PointSet::Create(const List<V_POINT>& pts, const V_WORKPLANE& wp)
{
    List<V_POINT>* new_points = empty_list<V_POINT>(pts.grow_by, pts.CountSet());
    List<unsigned long>* new_deleted = kestra::detail::tracked_new<List<unsigned long>>(16u);
    const uint32_t n_slots = pts.Count();  // pts may be this set's own list: copy first
    for (uint32_t i = 0; new_points && i < n_slots; ++i) {
        if (pts.set[i]) new_points->Append(pts.items[i]);  // within capacity: cannot fail
    }
    if (install_lists(this, new_points, new_deleted) != st::ok) return st::no_memory;
    set_plane(wp);
    return st::ok;
}

short PointSet::SetPointSet(unsigned long n_points, unsigned long n_deleted)
{
    // UINT32_MAX itself is refused: a list's next position must stay representable.
    if (n_points >= UINT32_MAX || n_deleted >= UINT32_MAX) return st::bad_input;
    const uint32_t np = uint32_t(n_points), nd = uint32_t(n_deleted);
    List<V_POINT>* new_points = empty_list<V_POINT>(kestra::detail::record_grow_by(np), np);
    List<unsigned long>* new_deleted =
        empty_list<unsigned long>(kestra::detail::record_grow_by(nd), nd);
    return install_lists(this, new_points, new_deleted);
}

short PointSet::Append(const V_POINT& p)
{
    if (!points) points = kestra::detail::tracked_new<List<V_POINT>>(16u);
    if (!deleted) deleted = kestra::detail::tracked_new<List<unsigned long>>(16u);
    if (!points || !deleted) return st::no_memory;
    if (!kestra::detail::room_for(points, points->next)) return st::no_memory;
    return points->Append(p) ? st::ok : st::no_memory;
}

short PointSet::DeletePoint(unsigned long pos)
{
    if (!points) return st::bad_input;
    if (pos == 0 || pos > points->Count()) return st::bad_index;
    if (!points->IsSet(uint32_t(pos))) return st::bad_input;
    if (IsDeleted(pos)) return st::no_change;
    if (!deleted) deleted = kestra::detail::tracked_new<List<unsigned long>>(16u);
    if (!deleted || !kestra::detail::room_for(deleted, deleted->next)) return st::no_memory;
    return deleted->Append(pos) ? st::ok : st::no_memory;
}

bool PointSet::IsDeleted(unsigned long pos) const
{
    if (!deleted) return false;
    const uint32_t n_slots = deleted->Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        if (deleted->set[i] && deleted->items[i] == pos) return true;
    }
    return false;
}

unsigned long PointSet::GetDeletedPointsNum() const
{
    return deleted ? deleted->Count() : 0;
}

void PointSet::UndeletePoints()
{
    if (deleted) deleted->Clear();
}

// --- access ---

unsigned long PointSet::Count() const
{
    return points ? points->CountSet() : 0;
}

short PointSet::Get_Point(unsigned long i, V_POINT* out) const
{
    if (!points || i == 0 || i > points->Count()) return st::bad_input;
    return points->Get(uint32_t(i), out) ? st::ok : st::bad_input;
}

// --- record ---

short PointSet::fwrite_bin(FILE* f) const
{
    if (!points || !deleted || !f) return st::bad_input;
    if (has_wide_position(*deleted)) return st::bad_input;
    unsigned char head[192];
    std::memcpy(head, &flags, 2);
    std::memcpy(head + 2, &type, 2);
    std::memcpy(head + 4, &plane, 184);
    std::memcpy(head + 188, &count_word, 4);
    if (std::fwrite(head, 1, sizeof head, f) != sizeof head) return st::bad_input;
    using kestra::detail::write_counted_list;
    const bool ok = write_counted_list<V_POINT, PointCodec>(f, *points) &&
                    write_counted_list<unsigned long, PositionCodec>(f, *deleted);
    return ok ? st::ok : st::bad_input;
}

short PointSet::fread_bin(FILE* f)
{
    Reset();
    return f ? read_record(f, this) : st::bad_input;
}

short PointSet::fread_bin(unsigned char*& p)
{
    Reset();
    return p ? read_record(p, this) : st::bad_input;
}
