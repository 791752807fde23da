#include "transform/gen_mat.h"
#include "foundation/status.h"
#include "foundation/vector_algebra.h"
#include <cmath>

namespace {

// cos of one second of arc: two unit axes whose dot product exceeds it are the same axis.
constexpr double kCosOneArcSecond = 0.9999999999882477;
constexpr int kNameUnits = 40;

void clear_name(char16_t* name)
{
    for (int i = 0; i < kNameUnits; ++i) name[i] = 0;
}

// Copies the 40 units of a name and keeps the copy terminated even if the source is not.
void copy_name(char16_t* dest, const char16_t* src)
{
    for (int i = 0; i < kNameUnits; ++i) dest[i] = src[i];
    dest[kNameUnits - 1] = 0;
}

void set_world_axes(V_WORKPLANE* wp)
{
    wp->xaxis = V_VECTOR{1.0, 0.0, 0.0};
    wp->yaxis = V_VECTOR{0.0, 1.0, 0.0};
    wp->zaxis = V_VECTOR{0.0, 0.0, 1.0};
}

double dot(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

bool finite(const V_POINT& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}
bool finite(const V_VECTOR& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Like axes of a and b pairwise within one second of arc.
bool axes_aligned(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    return dot(a.xaxis, b.xaxis) > kCosOneArcSecond && dot(a.yaxis, b.yaxis) > kCosOneArcSecond &&
           dot(a.zaxis, b.zaxis) > kCosOneArcSecond;
}

}  // namespace

// --- record methods ---

void V_WORKPLANE::Set_Absolute()
{
    origin = V_POINT{0.0, 0.0, 0.0};
    clear_name(name);
    set_world_axes(this);
}

short V_WORKPLANE::Create_From_Two_Directions(V_POINT& o, V_VECTOR& d1, V_VECTOR& d2)
{
    // The arguments may be fields of this workplane: read them all before writing.
    const V_POINT p = o;
    V_VECTOR x = d1;
    const V_VECTOR v2 = d2;
    clear_name(name);
    origin = p;
    // A NaN or infinite component reaches two components of the cross product, so naXb
    // refuses it here like parallel directions, leaving a zero zaxis.
    if (naXb(&x, &v2, &zaxis) != st::ok) return st::bad_index;
    const short rc = normalise(&x);
    xaxis = x;
    if (rc != st::ok) return st::bad_index;
    aXb(&zaxis, &xaxis, &yaxis);
    return st::ok;
}

short V_WORKPLANE::Create_From_Three_Points(V_POINT& p1, V_POINT& p2, V_POINT& p3)
{
    V_POINT o = p1;
    V_VECTOR d1{p2.x - p1.x, p2.y - p1.y, p2.z - p1.z};
    V_VECTOR d2{p3.x - p1.x, p3.y - p1.y, p3.z - p1.z};
    return Create_From_Two_Directions(o, d1, d2);
}

V_ORIGIN::V_ORIGIN()
    : origin{0.0, 0.0, 0.0}, xaxis{0.0, 0.0, 0.0}, yaxis{0.0, 0.0, 0.0}, zaxis{0.0, 0.0, 0.0},
      name{}, id(0)
{}

void V_ORIGIN::SetWpl(const V_WORKPLANE& wp)
{
    origin = wp.origin;
    xaxis = wp.xaxis;
    yaxis = wp.yaxis;
    zaxis = wp.zaxis;
    copy_name(name, wp.name);
    id = wp.id;
}

void V_ORIGIN::GetWpl(V_WORKPLANE* wp) const
{
    wp->origin = origin;
    wp->xaxis = xaxis;
    wp->yaxis = yaxis;
    wp->zaxis = zaxis;
    copy_name(wp->name, name);
    wp->id = id;
}

// --- workplanes ---

void init_wpl(V_WORKPLANE* wp)
{
    wp->origin = V_POINT{0.0, 0.0, 0.0};
    clear_name(wp->name);
    wp->name[0] = u'X';
    wp->name[1] = u'Y';
    set_world_axes(wp);
}

void plane_to_world(V_POINT* p, const V_WORKPLANE& wp)
{
    const V_POINT l = *p;
    const V_POINT& o = wp.origin;
    const V_VECTOR &X = wp.xaxis, &Y = wp.yaxis, &Z = wp.zaxis;
    *p = V_POINT{o.x + l.x * X.x + l.y * Y.x + l.z * Z.x, o.y + l.x * X.y + l.y * Y.y + l.z * Z.y,
                 o.z + l.x * X.z + l.y * Y.z + l.z * Z.z};
}

void world_to_plane(V_POINT* p, const V_WORKPLANE& wp)
{
    const V_VECTOR d{p->x - wp.origin.x, p->y - wp.origin.y, p->z - wp.origin.z};
    *p = V_POINT{toll_testp(dot(d, wp.xaxis)), toll_testp(dot(d, wp.yaxis)),
                 toll_testp(dot(d, wp.zaxis))};
}

void make_plane_from_wp(V_PLANE* plane, const V_WORKPLANE& wp)
{
    *plane = V_PLANE{wp.origin, wp.zaxis};
}

bool coincident_workplanes(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    // The real distance between the origins is 0.0 exactly when every difference is; no
    // tolerance on purpose (and no squaring, which would let tiny offsets underflow to 0).
    const bool same_origin = a.origin.x - b.origin.x == 0.0 && a.origin.y - b.origin.y == 0.0 &&
                             a.origin.z - b.origin.z == 0.0;
    return same_origin && axes_aligned(a, b);
}

bool operator==(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    return coincident_workplanes(a, b);
}

bool operator!=(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    return !coincident_workplanes(a, b);
}

short CompareWorkplanes(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    if (coincident_workplanes(a, b)) return 0;
    const double zz = dot(a.zaxis, b.zaxis);
    if (zz > kCosOneArcSecond) {
        const V_VECTOR d{b.origin.x - a.origin.x, b.origin.y - a.origin.y, b.origin.z - a.origin.z};
        if (toll_testp(dot(d, a.zaxis)) == 0.0) return 1;  // b's origin lies in a's plane
        return 2;
    }
    if (zz < -kCosOneArcSecond) return 2;
    return 3;  // also for NaN axes
}

bool CompareWorkplanesAlignment(const V_WORKPLANE& a, const V_WORKPLANE& b)
{
    return axes_aligned(a, b);
}

short WorkplaneCreationFromCamera(const V_POINT* eye, const V_POINT* target, const V_VECTOR* up,
                                  V_WORKPLANE* out)
{
    if (!finite(*eye) || !finite(*target) || !finite(*up)) return st::bad_index;
    V_VECTOR z{eye->x - target->x, eye->y - target->y, eye->z - target->z};
    if (normalise(&z) != st::ok) return st::bad_index;
    V_VECTOR u = *up;
    if (normalise(&u) != st::ok) return st::bad_index;
    // With both unit, |u x z| is the sine of the angle between up and the view.
    V_VECTOR x;
    if (naXb(&u, &z, &x) != st::ok) return st::bad_index;
    V_VECTOR y;
    aXb(&z, &x, &y);
    out->origin = *target;
    clear_name(out->name);
    out->xaxis = x;
    out->yaxis = y;
    out->zaxis = z;
    return st::ok;
}

short wpl_axis_ordered_by_dimesions(const V_BOUNDS* box, V_WORKPLANE* out)
{
    if (!finite(box->min) || !finite(box->max)) return st::bad_input;
    const double e[3] = {std::fabs(box->max.x - box->min.x), std::fabs(box->max.y - box->min.y),
                         std::fabs(box->max.z - box->min.z)};
    // Stable insertion sort of the axis indices by decreasing extent: ties keep x, y, z.
    int order[3] = {0, 1, 2};
    for (int i = 1; i < 3; ++i)
        for (int j = i; j > 0 && e[order[j]] > e[order[j - 1]]; --j) {
            const int t = order[j];
            order[j] = order[j - 1];
            order[j - 1] = t;
        }
    const V_VECTOR world[3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
    const V_VECTOR x = world[order[0]];
    const V_VECTOR y = world[order[1]];
    V_VECTOR z;
    aXb(&x, &y, &z);  // the third world axis, signed so that the frame stays right-handed
    out->origin = V_POINT{0.5 * (box->min.x + box->max.x), 0.5 * (box->min.y + box->max.y),
                          0.5 * (box->min.z + box->max.z)};
    clear_name(out->name);
    out->xaxis = x;
    out->yaxis = y;
    out->zaxis = z;
    return st::ok;
}
