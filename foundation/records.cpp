// Methods of the plain records: workplane conversions, lengths, canonical forms.
#include "foundation/records.h"
#include "foundation/status.h"
#include "foundation/vector_algebra.h"
#include "platform/utils.h"
#include "transform/gen_mat.h"
#include <initializer_list>
#include <utility>

namespace {

// o + p.x X + p.y Y + p.z Z; the origin term is left out for directions.
template <class P> P local_to_world(const V_WORKPLANE& wp, const P& p, bool with_origin)
{
    P r{p.x * wp.xaxis.x + p.y * wp.yaxis.x + p.z * wp.zaxis.x,
        p.x * wp.xaxis.y + p.y * wp.yaxis.y + p.z * wp.zaxis.y,
        p.x * wp.xaxis.z + p.y * wp.yaxis.z + p.z * wp.zaxis.z};
    if (with_origin) {
        r.x += wp.origin.x;
        r.y += wp.origin.y;
        r.z += wp.origin.z;
    }
    return r;
}

// (d . X, d . Y, d . Z) with d = p - o, or d = p for directions.
template <class P> P world_to_local(const V_WORKPLANE& wp, const P& p, bool with_origin)
{
    double x = p.x, y = p.y, z = p.z;
    if (with_origin) {
        x -= wp.origin.x;
        y -= wp.origin.y;
        z -= wp.origin.z;
    }
    return P{x * wp.xaxis.x + y * wp.xaxis.y + z * wp.xaxis.z,
             x * wp.yaxis.x + y * wp.yaxis.y + z * wp.yaxis.z,
             x * wp.zaxis.x + y * wp.zaxis.y + z * wp.zaxis.z};
}

// Maps the points, and the normal when given, through the workplane's matrix (rows X, Y, Z,
// origin: local to world) or through its inverse (world to local); a frame whose matrix cannot
// be inverted leaves them all unchanged.
void map_through_frame(const V_WORKPLANE& wp, bool to_world, std::initializer_list<V_POINT*> pts,
                       V_VECTOR* normal)
{
    V_MATRIX M;
    if (to_world) {
        mat_WorkPlane_World(&wp, nullptr, &M);
    } else if (mat_WorkPlane_World(&wp, &M, nullptr) != st::ok) {
        return;  // singular frame: nothing changes
    }
    for (V_POINT* p : pts) mat_transform_point(p, &M, p);
    if (normal) mat_rotate_vector(normal, &M, normal);
}

}  // namespace

// --- points ---

void V_POINT::relative_to_absolute(const V_WORKPLANE& wp)
{
    *this = local_to_world(wp, *this, true);
}

void V_POINT::relative_to_absolute(const V_WORKPLANE& wp, V_POINT* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = local_to_world(wp, *this, true);
}

void V_POINT::absolute_to_relative(const V_WORKPLANE& wp)
{
    *this = world_to_local(wp, *this, true);
}

void V_POINT::absolute_to_relative(const V_WORKPLANE& wp, V_POINT* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = world_to_local(wp, *this, true);
}

void V_POINT::translate(double dx, double dy, double dz)
{
    x += dx;
    y += dy;
    z += dz;
}

void V_POINT::bounding_box(V_BOUNDS* box) const
{
    KESTRA_REQUIRE(box != nullptr);
    box->min = *this;
    box->max = *this;
}

// --- vectors ---

void V_VECTOR::relative_to_absolute(const V_WORKPLANE& wp)
{
    *this = local_to_world(wp, *this, false);
}

void V_VECTOR::relative_to_absolute(const V_WORKPLANE& wp, V_VECTOR* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = local_to_world(wp, *this, false);
}

void V_VECTOR::absolute_to_relative(const V_WORKPLANE& wp)
{
    *this = world_to_local(wp, *this, false);
}

void V_VECTOR::absolute_to_relative(const V_WORKPLANE& wp, V_VECTOR* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = world_to_local(wp, *this, false);
}

// --- segments ---

void V_SEGM::relative_to_absolute(V_WORKPLANE& wp)
{
    map_through_frame(wp, true, {&start, &end}, nullptr);
}

void V_SEGM::absolute_to_relative(V_WORKPLANE& wp)
{
    map_through_frame(wp, false, {&start, &end}, nullptr);
}

double V_SEGM::compute_length() const
{
    return dist_PP(&start, &end);
}

void V_SEGM::convert_to_points(V_POINT* pts) const
{
    KESTRA_REQUIRE(pts != nullptr);
    const V_POINT s = start, e = end;  // pts may overlap this segment
    pts[0] = s;
    pts[1] = e;
}

// --- lines ---

void V_LINE::relative_to_absolute(V_WORKPLANE& wp)
{
    point.relative_to_absolute(wp);
    direction.relative_to_absolute(wp);
}

void V_LINE::absolute_to_relative(V_WORKPLANE& wp)
{
    point.absolute_to_relative(wp);
    direction.absolute_to_relative(wp);
}

// --- circles ---

void V_CIRCLE::relative_to_absolute(V_WORKPLANE& wp)
{
    centre.relative_to_absolute(wp);
    normal.relative_to_absolute(wp);
}

void V_CIRCLE::absolute_to_relative(V_WORKPLANE& wp)
{
    centre.absolute_to_relative(wp);
    normal.absolute_to_relative(wp);
}

void V_CIRCLE::force_radius_to_positive()
{
    if (radius < 0.0) {
        radius = -radius;
        normal = V_VECTOR{-normal.x, -normal.y, -normal.z};
    }
}

// --- arcs ---

void V_ARC::relative_to_absolute(V_WORKPLANE& wp)
{
    map_through_frame(wp, true, {&centre, &start, &end}, &normal);
}

void V_ARC::absolute_to_relative(V_WORKPLANE& wp)
{
    map_through_frame(wp, false, {&centre, &start, &end}, &normal);
}

void V_ARC::force_radius_to_positive()
{
    // The same arc travelled the other way: exchanging the ends and reversing the normal keeps
    // the counter-clockwise sweep from start to end.
    if (radius < 0.0) {
        radius = -radius;
        std::swap(start, end);
        normal = V_VECTOR{-normal.x, -normal.y, -normal.z};
    }
}

void V_ARC::create(double start_angle, double end_angle, double radius_in, const V_POINT& centre_in)
{
    const V_POINT c = centre_in;  // centre_in may be this arc's own centre
    const V_VECTOR z{0.0, 0.0, 1.0};
    const V_VECTOR x{1.0, 0.0, 0.0};
    V_VECTOR us, ue;
    vector_rotate(&x, &z, start_angle, &us);
    vector_rotate(&x, &z, end_angle, &ue);
    centre = c;
    radius = radius_in;
    normal = z;
    start = V_POINT{c.x + radius_in * us.x, c.y + radius_in * us.y, c.z + radius_in * us.z};
    end = V_POINT{c.x + radius_in * ue.x, c.y + radius_in * ue.y, c.z + radius_in * ue.z};
}
