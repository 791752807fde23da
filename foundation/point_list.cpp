// Point-list forms of the point operations.
#include "foundation/point_list.h"
#include "foundation/status.h"

namespace {

// Calls op on every set point of the list, positions 1 to Count().
template <typename Op> short for_each_set(List<V_POINT>* pts, Op op)
{
    if (pts == nullptr) return st::bad_input;
    const uint32_t n = pts->Count();
    for (uint32_t k = 1; k <= n; ++k) {
        V_POINT* p = pts->GetPtr(k);
        if (p != nullptr) op(*p);
    }
    return st::ok;
}

}  // namespace

// --- point lists ---

short translate(V_VECTOR& v, List<V_POINT>* pts)
{
    const V_VECTOR d = v;
    return for_each_set(pts, [&d](V_POINT& p) { p.translate(d.x, d.y, d.z); });
}

short translate(V_POINT& from, V_POINT& to, List<V_POINT>* pts)
{
    // from and to may be points of the list itself: take the displacement first.
    const V_VECTOR d{to.x - from.x, to.y - from.y, to.z - from.z};
    return for_each_set(pts, [&d](V_POINT& p) { p.translate(d.x, d.y, d.z); });
}

short relative_to_absolute(const V_WORKPLANE& wp, List<V_POINT>* pts)
{
    return for_each_set(pts, [&wp](V_POINT& p) { p.relative_to_absolute(wp); });
}

short absolute_to_relative(const V_WORKPLANE& wp, List<V_POINT>* pts)
{
    return for_each_set(pts, [&wp](V_POINT& p) { p.absolute_to_relative(wp); });
}

short bounding_box(List<V_POINT>& pts, V_BOUNDS* box)
{
    if (box == nullptr) return st::bad_input;
    const uint32_t n = pts.Count();
    if (n == 0) return st::bad_input;
    const V_POINT* first = pts.GetPtr(1);
    if (first == nullptr) return st::bad_input;
    V_BOUNDS b{*first, *first};
    for (uint32_t k = 2; k <= n; ++k) {
        const V_POINT* p = pts.GetPtr(k);
        if (p == nullptr) return st::bad_input;
        if (p->x < b.min.x) b.min.x = p->x;
        if (p->y < b.min.y) b.min.y = p->y;
        if (p->z < b.min.z) b.min.z = p->z;
        if (p->x > b.max.x) b.max.x = p->x;
        if (p->y > b.max.y) b.max.y = p->y;
        if (p->z > b.max.z) b.max.z = p->z;
    }
    *box = b;
    return st::ok;
}
