#include "paths/polyline.h"
#include "curves/cs_1.h"
#include "foundation/status.h"
#include "foundation/vector_algebra.h"
#include "paths/paths_internal.h"
#include "platform/utils.h"
#include <cstdint>
#include <cstring>

using kestra::detail::PointCodec;

static_assert(sizeof(Polyline) == sizeof(void*), "a polyline is its one list pointer");

namespace {

// A list holding the occupied points of src closed up at positions 1..n (capacity n,
// src's grow_by); null when memory runs out.
List<V_POINT>* compact_copy(const List<V_POINT>& src)
{
    List<V_POINT>* dst = kestra::detail::tracked_new<List<V_POINT>>(src.grow_by);
    if (!dst) return nullptr;
    const uint32_t n = src.CountSet();
    if (!dst->Reserve(n)) {
        kestra::detail::tracked_delete(dst);
        return nullptr;
    }
    const uint32_t n_slots = src.Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        if (src.set[i]) dst->Append(src.items[i]);  // within capacity: cannot fail
    }
    return dst;
}

// A deep copy of src (same slots, capacity and grow_by), or null for a null src. A copy
// that cannot be allocated is a contract violation, as for List itself.
List<V_POINT>* deep_copy(const List<V_POINT>* src)
{
    if (!src) return nullptr;
    List<V_POINT>* dst = kestra::detail::tracked_new<List<V_POINT>>(*src);
    KESTRA_REQUIRE(dst != nullptr);
    return dst;
}

// The list of p, made with grow_by 16 when missing; null when memory runs out.
List<V_POINT>* ensure_list(List<V_POINT>*& p)
{
    if (!p) p = kestra::detail::tracked_new<List<V_POINT>>(16u);
    return p;
}

// Reads the record from src (a stream or a memory cursor) into *points, which is null: the
// leading word is skipped, then the counted points. 0, or 110 on a short read or want of
// memory (the points read so far kept).
template <class Src> short read_record(Src& src, List<V_POINT>** points)
{
    uint16_t lead;  // ignored
    if (!kestra::detail::take_bytes(src, &lead, 2)) return st::bad_input;
    const bool ok = kestra::detail::read_counted_list<V_POINT, PointCodec>(src, points, false);
    return ok ? st::ok : st::bad_input;
}

}  // namespace

// --- ownership ---

Polyline::Polyline(const Polyline& other) : points_(deep_copy(other.points_)) {}

Polyline::Polyline(Polyline&& other) noexcept : points_(other.points_)
{
    other.points_ = nullptr;
}

Polyline& Polyline::operator=(const Polyline& other)
{
    if (this == &other) return *this;
    List<V_POINT>* copy = deep_copy(other.points_);
    Release();
    points_ = copy;
    return *this;
}

Polyline& Polyline::operator=(Polyline&& other) noexcept
{
    if (this == &other) return *this;
    Release();
    points_ = other.points_;
    other.points_ = nullptr;
    return *this;
}

Polyline::~Polyline()
{
    Release();
}

void Polyline::Release()
{
    kestra::detail::tracked_delete(points_);
    points_ = nullptr;
}

// --- building ---

short Polyline::Create(const List<V_POINT>& pts)
{
    List<V_POINT>* copy = compact_copy(pts);
    if (!copy) return st::no_memory;
    Release();
    points_ = copy;
    return st::ok;
}

short Polyline::Append(const V_POINT& p)
{
    if (!ensure_list(points_)) return st::no_memory;
    if (!kestra::detail::room_for(points_, points_->next)) return st::no_memory;
    return points_->Append(p) ? st::ok : st::no_memory;
}

short Polyline::Put(unsigned long i, const V_POINT& p)
{
    if (i == 0 || i >= UINT32_MAX) return st::bad_index;
    if (!ensure_list(points_)) return st::no_memory;
    if (!kestra::detail::room_for(points_, uint32_t(i))) return st::no_memory;
    return points_->Put(uint32_t(i), p) ? st::ok : st::no_memory;
}

// --- access and measures ---

unsigned long Polyline::Count() const
{
    return points_ ? points_->CountSet() : 0;
}

short Polyline::Get_Point(unsigned long i, V_POINT* out) const
{
    if (!points_ || i == 0 || i > points_->Count()) return st::bad_input;
    return points_->Get(uint32_t(i), out) ? st::ok : st::bad_input;
}

double Polyline::Length() const
{
    if (!points_) return 0.0;
    double len = 0.0;
    const V_POINT* prev = nullptr;
    const uint32_t n_slots = points_->Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        if (!points_->set[i]) continue;
        const V_POINT* p = points_->items + i;
        if (prev) len += real_dist_PP(prev, p);
        prev = p;
    }
    return len;
}

bool Polyline::Is_Closed() const
{
    if (!points_) return false;
    const uint32_t n_slots = points_->Count();
    uint32_t first = 0, last = 0;  // 1-based slots of the first and last points; 0: none
    for (uint32_t k = 1; k <= n_slots && first == 0; ++k) {
        if (points_->set[k - 1]) first = k;
    }
    for (uint32_t k = n_slots; k >= 1 && last == 0; --k) {
        if (points_->set[k - 1]) last = k;
    }
    if (first == 0 || first == last) return false;  // fewer than two points: open
    return points_->items[first - 1] == points_->items[last - 1];
}

// --- dump ---

void Polyline::DebugOutput(const char* name) const
{
    if (!points_) {
        debug_printf("Polyline empty !!!\n");
        return;
    }
    const char* closure = Is_Closed() ? "close" : "open";
    const int n = int(points_->CountSet());
    if (name) {
        debug_printf("Polyline %s %s with %d points\n", name, closure, n);
    } else {
        debug_printf("Polyline %s with %d points\n", closure, n);
    }
    const uint32_t n_slots = points_->Count();
    for (uint32_t i = 0; i < n_slots; ++i) {
        const int k = int(i + 1);
        if (points_->set[i]) {
            const V_POINT& p = points_->items[i];
            debug_printf("%d - %3.3lf,%3.3lf,%3.3lf\n", k, p.x, p.y, p.z);
        } else {
            debug_printf("Point %d deleted \n", k);
        }
    }
}

// --- record ---

short Polyline::fwrite_bin(FILE* f) const
{
    if (!points_ || !f) return st::bad_input;
    const uint16_t lead = 0;
    if (std::fwrite(&lead, 2, 1, f) != 1) return st::bad_input;
    const bool ok = kestra::detail::write_counted_list<V_POINT, PointCodec>(f, *points_);
    return ok ? st::ok : st::bad_input;
}

short Polyline::fread_bin(FILE* f)
{
    Release();
    return f ? read_record(f, &points_) : st::bad_input;
}

short Polyline::fread_bin(unsigned char*& p)
{
    Release();
    return p ? read_record(p, &points_) : st::bad_input;
}

// --- curves through the points of a polyline ---

short CNurbs::CreateFromPolyline(const Polyline& p)
{
    // The list form reads the occupied slots only, so holes need no closing up here.
    return p.Points() ? CreateFromPolyline(*p.Points()) : st::bad_input;
}
