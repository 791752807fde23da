// Methods of the plain records: workplane conversions, lengths, canonical forms.
#include "foundation/records.h"
#include "foundation/status.h"
#include "foundation/vector_algebra.h"
#include "platform/utils.h"
#include "transform/gen_mat.h"
#include <utility>

namespace {

// o + p.x X + p.y Y + p.z Z; the origin term is left out for directions.
V_POINT local_to_world(const V_WORKPLANE& wp, double x, double y, double z, bool with_origin)
{
    V_POINT r{x * wp.xaxis.x + y * wp.yaxis.x + z * wp.zaxis.x,
              x * wp.xaxis.y + y * wp.yaxis.y + z * wp.zaxis.y,
              x * wp.xaxis.z + y * wp.yaxis.z + z * wp.zaxis.z};
    if (with_origin) {
        r.x += wp.origin.x;
        r.y += wp.origin.y;
        r.z += wp.origin.z;
    }
    return r;
}

// (d . X, d . Y, d . Z) with d = p - o, or d = p for directions.
V_POINT world_to_local(const V_WORKPLANE& wp, double x, double y, double z, bool with_origin)
{
    if (with_origin) {
        x -= wp.origin.x;
        y -= wp.origin.y;
        z -= wp.origin.z;
    }
    return V_POINT{x * wp.xaxis.x + y * wp.xaxis.y + z * wp.xaxis.z,
                   x * wp.yaxis.x + y * wp.yaxis.y + z * wp.yaxis.z,
                   x * wp.zaxis.x + y * wp.zaxis.y + z * wp.zaxis.z};
}

// The workplane's matrix, rows X, Y, Z, origin: local to world.
V_MATRIX to_world_matrix(const V_WORKPLANE& wp)
{
    V_MATRIX to_world{};
    mat_WorkPlane_World(&wp, nullptr, &to_world);
    return to_world;
}

// Its inverse, world to local; false when the frame's matrix cannot be inverted.
bool to_local_matrix(const V_WORKPLANE& wp, V_MATRIX* to_local)
{
    V_MATRIX to_world{};
    return mat_WorkPlane_World(&wp, to_local, &to_world) == st::ok;
}

void transform_point(V_POINT* p, const V_MATRIX& m)
{
    mat_transform_point(p, &m, p);
}

void rotate_vector(V_VECTOR* v, const V_MATRIX& m)
{
    mat_rotate_vector(v, &m, v);
}

}  // namespace

// --- points ---

void V_POINT::relative_to_absolute(const V_WORKPLANE& wp)
{
    *this = local_to_world(wp, x, y, z, true);
}

void V_POINT::relative_to_absolute(const V_WORKPLANE& wp, V_POINT* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = local_to_world(wp, x, y, z, true);
}

void V_POINT::absolute_to_relative(const V_WORKPLANE& wp)
{
    *this = world_to_local(wp, x, y, z, true);
}

void V_POINT::absolute_to_relative(const V_WORKPLANE& wp, V_POINT* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    *out = world_to_local(wp, x, y, z, true);
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
    const V_POINT r = local_to_world(wp, x, y, z, false);
    *this = V_VECTOR{r.x, r.y, r.z};
}

void V_VECTOR::relative_to_absolute(const V_WORKPLANE& wp, V_VECTOR* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    const V_POINT r = local_to_world(wp, x, y, z, false);
    *out = V_VECTOR{r.x, r.y, r.z};
}

void V_VECTOR::absolute_to_relative(const V_WORKPLANE& wp)
{
    const V_POINT r = world_to_local(wp, x, y, z, false);
    *this = V_VECTOR{r.x, r.y, r.z};
}

void V_VECTOR::absolute_to_relative(const V_WORKPLANE& wp, V_VECTOR* out) const
{
    KESTRA_REQUIRE(out != nullptr);
    const V_POINT r = world_to_local(wp, x, y, z, false);
    *out = V_VECTOR{r.x, r.y, r.z};
}

// --- segments ---

void V_SEGM::relative_to_absolute(V_WORKPLANE& wp)
{
    const V_MATRIX to_world = to_world_matrix(wp);
    transform_point(&start, to_world);
    transform_point(&end, to_world);
}

void V_SEGM::absolute_to_relative(V_WORKPLANE& wp)
{
    V_MATRIX to_local;
    if (!to_local_matrix(wp, &to_local)) return;  // singular frame: the segment stays
    transform_point(&start, to_local);
    transform_point(&end, to_local);
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
    const V_MATRIX to_world = to_world_matrix(wp);
    transform_point(&centre, to_world);
    transform_point(&start, to_world);
    transform_point(&end, to_world);
    rotate_vector(&normal, to_world);
}

void V_ARC::absolute_to_relative(V_WORKPLANE& wp)
{
    V_MATRIX to_local;
    if (!to_local_matrix(wp, &to_local)) return;  // singular frame: the arc stays
    transform_point(&centre, to_local);
    transform_point(&start, to_local);
    transform_point(&end, to_local);
    rotate_vector(&normal, to_local);
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
