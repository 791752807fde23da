#include "foundation/v_elem.h"
#include "foundation/point_list.h"
#include "foundation/status.h"
#include "foundation/v_elem_internal.h"
#include "foundation/vector_algebra.h"
#include "transform/gen_mat.h"
#include <cfloat>
#include <cmath>
#include <utility>

using namespace kestra::detail;

namespace {

// --- small vector kernels ---

V_VECTOR add(const V_VECTOR& a, const V_VECTOR& b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
V_VECTOR scaled(const V_VECTOR& a, double s)
{
    return {a.x * s, a.y * s, a.z * s};
}
V_VECTOR cross(const V_VECTOR& a, const V_VECTOR& b)
{
    V_VECTOR c;
    aXb(&a, &b, &c);
    return c;
}
double dot(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
double len(const V_VECTOR& a)
{
    return real_modulus(&a);
}

// --- the matrix as an affine map: p' = (p L + t) / w ---

// m33, or 1 when m33 is 0 or 1: the divisor mat_transform_point applies.
double effective_w(const V_MATRIX& M)
{
    const double w = M.m[3][3];
    return (w == 0.0 || w == 1.0) ? 1.0 : w;  // exact on purpose: the rule for points
}

// Image of a displacement: v L / w.
V_VECTOR lin(const V_MATRIX& M, const V_VECTOR& v)
{
    V_VECTOR r;
    mat_rotate_vector(&v, &M, &r);
    const double w = effective_w(M);
    if (w != 1.0) r = scaled(r, 1.0 / w);  // exact on purpose: 1 needs no division
    return r;
}

V_POINT image(const V_MATRIX& M, const V_POINT& p)
{
    V_POINT r;
    mat_transform_point(&p, &M, &r);
    return r;
}

// True when M only translates: the 3 x 3 block is exactly the identity and nothing divides.
// Then directions, radii and sizes are kept bit for bit.
bool is_translation(const V_MATRIX& M)
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (M.m[r][c] != (r == c ? 1.0 : 0.0)) return false;  // exact on purpose
    return effective_w(M) == 1.0;
}

// Unit vectors u, v across the unit normal n with u x v = n.
void in_plane_axes(const V_VECTOR& n, V_VECTOR* u, V_VECTOR* v)
{
    // Cross n with the world axis least aligned with it, so that the product is well sized.
    const double ax = std::fabs(n.x), ay = std::fabs(n.y), az = std::fabs(n.z);
    const V_VECTOR e = (ax <= ay && ax <= az) ? V_VECTOR{1, 0, 0}
                       : (ay <= az)           ? V_VECTOR{0, 1, 0}
                                              : V_VECTOR{0, 0, 1};
    V_VECTOR w = cross(n, e);
    normalise(&w);
    *u = w;
    *v = cross(n, w);
}

// True when the images a and b of two perpendicular directions are no longer perpendicular
// (cosine of their angle above the angular tolerance) or either vanishes.
bool skewed(const V_VECTOR& a, const V_VECTOR& b)
{
    return std::fabs(dot(a, b)) > tavotoll.angle * len(a) * len(b);
}

// True when two directions' images span less than a plane: the sine of their angle is not
// above the angular tolerance.
bool collapsed(const V_VECTOR& a, const V_VECTOR& b)
{
    return !(len(cross(a, b)) > tavotoll.angle * len(a) * len(b));
}

// Principal semi-axes of the ellipse with conjugate semi-diameters a and b, the points
// a cos s + b sin s. |x(s)|^2 = (aa + bb)/2 + (aa - bb)/2 cos 2s + ab sin 2s is largest at
// 2s = atan2(2 ab, aa - bb); e1 = x(s) is the major semi-axis, e2 = x(s + pi/2) the minor
// one, and e1 x e2 = a x b.
void principal_axes(const V_VECTOR& a, const V_VECTOR& b, V_VECTOR* e1, V_VECTOR* e2, double* r1,
                    double* r2)
{
    const double s = 0.5 * std::atan2(2.0 * dot(a, b), dot(a, a) - dot(b, b));
    const double c = std::cos(s), sn = std::sin(s);
    const V_VECTOR x1 = add(scaled(a, c), scaled(b, sn));
    const V_VECTOR x2 = add(scaled(a, -sn), scaled(b, c));
    *r1 = len(x1);
    *r2 = len(x2);
    *e1 = scaled(x1, 1.0 / *r1);
    *e2 = scaled(x2, 1.0 / *r2);
}

// Difference of the principal semi-axes of the ellipse with conjugate semi-diameters a, b:
// (r1 - r2)^2 = |a|^2 + |b|^2 - 2|a x b| = (|a| - |b|)^2 + 2 (a.b)^2 / (|a||b| + |a x b|),
// the second form free of cancellation near a circle.
double roundness_defect(const V_VECTOR& a, const V_VECTOR& b)
{
    const double la = len(a), lb = len(b), ab = dot(a, b);
    const double den = la * lb + len(cross(a, b));
    const double skew = den > 0.0 ? 2.0 * ab * ab / den : 0.0;
    return std::sqrt((la - lb) * (la - lb) + skew);
}

// Image of a plane figure drawn with conjugate semi-diameters r1 u and r2 v (u x v = n).
struct PlanarImage {
    V_VECTOR a, b;    // images of the semi-diameters
    V_VECTOR normal;  // unit normal of the image plane, on the side M carries n to
    bool mirrored;    // M turns the plane's orientation round
};

// 0; 110 when the plane collapses under M.
short planar_image(const V_MATRIX& M, const V_VECTOR& u, const V_VECTOR& v, const V_VECTOR& n,
                   double r1, double r2, PlanarImage* out)
{
    const V_VECTOR Lu = lin(M, u), Lv = lin(M, v);
    if (collapsed(Lu, Lv)) return st::bad_input;
    const V_VECTOR c = cross(Lu, Lv);
    // Exact on purpose: a map that flattens the normal keeps the in-plane orientation.
    out->mirrored = dot(c, lin(M, n)) < 0.0;
    out->normal = scaled(c, (out->mirrored ? -1.0 : 1.0) / len(c));
    out->a = scaled(Lu, r1);
    out->b = scaled(Lv, r2);
    return st::ok;
}

// An ellipse record from a planar image: with keep_axes the images of the axes when they
// stay perpendicular, otherwise the principal axes (axis1 the major one); axis2 turned so
// that axis1 x axis2 is the image normal. 0; 110 when a semi-axis vanishes.
short ellipse_from_image(const V_POINT& centre, const PlanarImage& im, bool keep_axes,
                         V_ELLIPSE* out)
{
    const double la = len(im.a), lb = len(im.b);
    if (!(la > 0.0) || !(lb > 0.0)) return st::bad_input;  // exact on purpose: no direction
    V_ELLIPSE e;
    e.centre = centre;
    if (keep_axes && !skewed(im.a, im.b)) {
        e.axis1 = scaled(im.a, 1.0 / la);
        e.axis2 = scaled(im.b, 1.0 / lb);
        e.radius1 = la;
        e.radius2 = lb;
    } else {
        principal_axes(im.a, im.b, &e.axis1, &e.axis2, &e.radius1, &e.radius2);
    }
    if (dot(cross(e.axis1, e.axis2), im.normal) < 0.0) e.axis2 = scaled(e.axis2, -1.0);
    *out = e;
    return st::ok;
}

// Image of a circle or arc with radius >= 0: either a circle (radius, normal) or an ellipse.
struct RoundImage {
    bool is_circle;
    V_POINT centre;
    double radius;
    V_VECTOR normal;
    bool mirrored;
    V_ELLIPSE ellipse;  // when not a circle
};

// 0; 177 zero normal; 110 collapsed image.
short round_image(const V_MATRIX& M, const V_POINT& centre, double radius, const V_VECTOR& normal,
                  RoundImage* out)
{
    V_VECTOR n = normal;
    if (normalise(&n) != st::ok) return st::zero_vector;
    V_VECTOR u, v;
    in_plane_axes(n, &u, &v);
    PlanarImage im;
    if (planar_image(M, u, v, n, radius, radius, &im) != st::ok) return st::bad_input;
    out->centre = image(M, centre);
    out->normal = im.normal;
    out->mirrored = im.mirrored;
    const double la = len(im.a), lb = len(im.b);
    // Still a circle when the principal radii agree within the linear tolerance, or within
    // the rounding of the radius itself (a rotation of a very large circle).
    const double defect = roundness_defect(im.a, im.b);
    out->is_circle = defect <= tavotoll.point || defect <= 64.0 * DBL_EPSILON * (la + lb);
    out->radius = 0.5 * (la + lb);
    if (out->is_circle) return st::ok;
    // The in-plane axes of a circle are arbitrary: the ellipse takes its principal axes.
    return ellipse_from_image(out->centre, im, false, &out->ellipse);
}

// Image of an ellipse (both semi-diameters mapped); 177 zero axis, 110 collapsed.
short ellipse_image(const V_MATRIX& M, const V_ELLIPSE& e, V_ELLIPSE* out, bool* mirrored)
{
    V_VECTOR n = cross(e.axis1, e.axis2);
    if (normalise(&n) != st::ok) return st::zero_vector;
    PlanarImage im;
    if (planar_image(M, e.axis1, e.axis2, n, e.radius1, e.radius2, &im) != st::ok)
        return st::bad_input;
    *mirrored = im.mirrored;
    return ellipse_from_image(image(M, e.centre), im, true, out);
}

// Exchanges two points.
void swap_points(V_POINT* a, V_POINT* b)
{
    const V_POINT t = *a;
    *a = *b;
    *b = t;
}

// Circle image into res (a circle or, when allowed, an ellipse).
short circle_result(const V_MATRIX& M, const V_CIRCLE& in, short keep_type, V_ELEMENT* res)
{
    V_CIRCLE c = in;
    c.force_radius_to_positive();  // a negative radius is the same circle about -normal
    RoundImage ri;
    const short rc = round_image(M, c.centre, c.radius, c.normal, &ri);
    if (rc != st::ok) return rc;
    if (!ri.is_circle) {
        if (keep_type) return st::wrong_kind;
        res->SetEllipse(ri.ellipse);
        return st::ok;
    }
    const double sgn = in.radius < 0.0 ? -1.0 : 1.0;
    res->SetCircle(ri.centre, sgn * ri.radius, scaled(ri.normal, sgn));
    return st::ok;
}

// Arc image into res (an arc or, when allowed, an elliptical arc). A mirrored image runs
// the other way about its normal, so its ends are exchanged.
short arc_result(const V_MATRIX& M, const V_ARC& in, short keep_type, V_ELEMENT* res)
{
    V_ARC a = in;
    a.force_radius_to_positive();
    RoundImage ri;
    const short rc = round_image(M, a.centre, a.radius, a.normal, &ri);
    if (rc != st::ok) return rc;
    V_POINT s = image(M, a.start), e = image(M, a.end);
    if (ri.mirrored) swap_points(&s, &e);
    if (!ri.is_circle) {
        if (keep_type) return st::wrong_kind;
        res->SetEllipticalArc(V_ELLIPTICALARC{ri.ellipse, s, e});
        return st::ok;
    }
    V_ARC out{ri.centre, ri.radius, ri.normal, s, e};
    if (in.radius < 0.0) {
        // Back to the form given: radius and normal negated, ends exchanged.
        out.radius = -out.radius;
        out.normal = scaled(out.normal, -1.0);
        swap_points(&out.start, &out.end);
    }
    res->SetArc(out);
    return st::ok;
}

// The unit normal N of a text or symbol and its unit x axis X, the given x axis with the part
// along N removed. 0; 177 when either vanishes.
short unit_frame(const V_VECTOR& normal, const V_VECTOR& xaxis, V_VECTOR* N, V_VECTOR* X)
{
    *N = normal;
    if (normalise(N) != st::ok) return st::zero_vector;
    *X = add(xaxis, scaled(*N, -dot(xaxis, *N)));
    return normalise(X) == st::ok ? st::ok : st::zero_vector;
}

// Text frame: keeps the images of its x axis and in-plane y axis. 177 zero axis; 110
// collapsed; 121 the axes' images are not perpendicular.
short text_result(const V_MATRIX& M, const V_TEXT& in, V_ELEMENT* res)
{
    V_VECTOR N, X;
    if (unit_frame(in.normal, in.xaxis, &N, &X) != st::ok) return st::zero_vector;
    const V_VECTOR Y = cross(N, X);
    const V_VECTOR LX = lin(M, X), LY = lin(M, Y);
    if (collapsed(LX, LY)) return st::bad_input;
    if (skewed(LX, LY)) return st::wrong_kind;
    V_TEXT t = in;
    t.point = image(M, in.point);
    const double lx = len(LX), ly = len(LY);
    t.xaxis = scaled(LX, 1.0 / lx);
    t.normal = cross(LX, LY);
    normalise(&t.normal);
    t.width = in.width * lx;
    t.height = in.height * ly;
    res->SetText(t);
    return st::ok;
}

// Symbol frame: X = xaxis turned by angle about the normal, Y = N x X, Z = N, scaled by
// scale_x, scale_y, scale_z. The image keeps the image of xaxis and finds the angle and the
// scales that rebuild the images of X, Y and Z; a reflection shows as a negative scale_z.
short symbol_result(const V_MATRIX& M, const V_SYMBOL_INST& in, V_ELEMENT* res)
{
    V_VECTOR N, Xa, X;
    if (unit_frame(in.normal, in.xaxis, &N, &Xa) != st::ok) return st::zero_vector;
    vector_rotate(&Xa, &N, in.angle, &X);
    const V_VECTOR Y = cross(N, X);
    const V_VECTOR LX = lin(M, X), LY = lin(M, Y), LZ = lin(M, N), LXa = lin(M, Xa);
    if (collapsed(LX, LY)) return st::bad_input;
    if (skewed(LX, LY) || skewed(LX, LZ) || skewed(LY, LZ)) return st::wrong_kind;
    const V_VECTOR c = cross(LX, LY);
    const bool mirrored = dot(c, LZ) < 0.0;  // exact on purpose: a flattened Z keeps the sense
    V_SYMBOL_INST s = in;
    s.position = image(M, in.position);
    s.normal = scaled(c, 1.0 / len(c));
    const V_VECTOR Xi = scaled(LX, 1.0 / len(LX));
    s.xaxis = scaled(LXa, 1.0 / len(LXa));
    s.angle = std::atan2(dot(cross(s.xaxis, Xi), s.normal), dot(s.xaxis, Xi));
    s.scale_x = in.scale_x * len(LX);
    s.scale_y = in.scale_y * len(LY);
    s.scale_z = in.scale_z * len(LZ) * (mirrored ? -1.0 : 1.0);
    res->SetSymbolInstance(s);
    return st::ok;
}

// A curve the placement can handle: a model-space curve of 3 values a point, or 4 with
// the weight.
bool is_3d_curve(const CNurbs& c)
{
    if (c.parametric) return false;
    return c.rational ? c.vpp == 4 : c.vpp == 3;
}

// Applies f to every complete control point of c as (X, Y, Z, W), W = 1 when polynomial.
template <class F> void for_each_cpt(CNurbs& c, F f)
{
    List<double>* l = c.cpts;
    if (!l || c.vpp < 3) return;
    const uint32_t vpp = static_cast<uint32_t>(c.vpp);
    const uint32_t n = l->Count() / vpp;
    for (uint32_t i = 0; i < n; ++i) {
        double* v[4] = {nullptr, nullptr, nullptr, nullptr};
        bool complete = true;
        for (uint32_t k = 0; k < vpp && k < 4; ++k) {
            v[k] = l->GetPtr(i * vpp + k + 1);
            complete = complete && v[k];
        }
        if (!complete) continue;  // a hole in the control values: nothing to move
        double one = 1.0;
        f(*v[0], *v[1], *v[2], vpp == 4 ? *v[3] : one);
    }
}

// Applies f to every occupied point of l (null allowed).
template <class F> void for_each_point(List<V_POINT>* l, F f)
{
    if (!l) return;
    const uint32_t n = l->Count();
    for (uint32_t k = 1; k <= n; ++k) {
        V_POINT* p = l->GetPtr(k);
        if (p) f(*p);
    }
}

// Moves the owning payload of e (already holding the element's content) by M.
void place_owning(const V_MATRIX& M, V_ELEMENT* e, const V_WORKPLANE* plane)
{
    switch (e->type) {
    case kCurve:
        // (X, W) -> ((X L + W t) / w, W): the Cartesian point X / W moves, the weight stays.
        for_each_cpt(e->curve, [&](double& x, double& y, double& z, double W) {
            const double(*m)[4] = M.m;
            const double w = effective_w(M);
            const double nx = x * m[0][0] + y * m[1][0] + z * m[2][0] + W * m[3][0];
            const double ny = x * m[0][1] + y * m[1][1] + z * m[2][1] + W * m[3][1];
            const double nz = x * m[0][2] + y * m[1][2] + z * m[2][2] + W * m[3][2];
            x = w == 1.0 ? nx : nx / w;  // exact on purpose: no division by 1
            y = w == 1.0 ? ny : ny / w;
            z = w == 1.0 ? nz : nz / w;
        });
        break;
    case kPolyline:
        for_each_point(e->polyline.Points(), [&](V_POINT& p) { p = image(M, p); });
        break;
    case kPointSet:
        for_each_point(e->pointset.points, [&](V_POINT& p) { p = image(M, p); });
        if (plane) e->pointset.plane = *plane;
        break;
    default:
        break;
    }
}

// The point set's plane under M: image origin, image x axis, the image plane's normal.
// 110 when the plane collapses.
short plane_result(const V_MATRIX& M, const V_WORKPLANE& in, V_WORKPLANE* out)
{
    if (is_translation(M)) {
        *out = in;
        out->origin = image(M, in.origin);
        return st::ok;
    }
    const V_VECTOR Lx = lin(M, in.xaxis), Ly = lin(M, in.yaxis);
    if (collapsed(Lx, Ly)) return st::bad_input;
    V_WORKPLANE wp = in;  // name, id and fill kept
    wp.origin = image(M, in.origin);
    wp.xaxis = scaled(Lx, 1.0 / len(Lx));
    V_VECTOR z = cross(Lx, Ly);
    normalise(&z);
    wp.zaxis = z;
    wp.yaxis = cross(z, wp.xaxis);
    *out = wp;
    return st::ok;
}

// Translation of a plain element: positions only, everything else bit for bit.
void translate_plain(const V_VECTOR& d, V_ELEMENT* e)
{
    auto mv = [&](V_POINT& p) { p.translate(d.x, d.y, d.z); };
    switch (e->type) {
    case kPoint:
        mv(e->point);
        break;
    case kSegment:
        mv(e->segm.start);
        mv(e->segm.end);
        break;
    case kLine:
        mv(e->line.point);
        break;
    case kCircle:
        mv(e->circle.centre);
        break;
    case kArc:
        mv(e->arc.centre);
        mv(e->arc.start);
        mv(e->arc.end);
        break;
    case kEllipse:
        mv(e->ellipse.centre);
        break;
    case kEllipticalArc:
        mv(e->elarc.ellipse.centre);
        mv(e->elarc.start);
        mv(e->elarc.end);
        break;
    case kSymbol:
        mv(e->symbol.position);
        break;
    case kText:
        mv(e->text.point);
        break;
    default:
        break;
    }
}

// Image of a plain element into res (an empty element); the status of the kind's mapping.
short plain_result(const V_MATRIX& M, const V_ELEMENT& in, short keep_type, V_ELEMENT* res)
{
    if (is_translation(M)) {
        *res = in;
        translate_plain(V_VECTOR{M.m[3][0], M.m[3][1], M.m[3][2]}, res);
        return st::ok;
    }
    switch (in.type) {
    case kPoint:
        res->SetPoint(image(M, in.point));
        return st::ok;
    case kSegment:
        res->SetSegment(image(M, in.segm.start), image(M, in.segm.end));
        return st::ok;
    case kLine: {
        const V_VECTOR d = lin(M, in.line.direction);
        // A direction mapped to nothing leaves no line (a zero direction stays zero).
        if (len(in.line.direction) > 0.0 && !(len(d) > tavotoll.angle * len(in.line.direction)))
            return st::bad_input;
        res->SetLine(image(M, in.line.point), d);
        return st::ok;
    }
    case kCircle:
        return circle_result(M, in.circle, keep_type, res);
    case kArc:
        return arc_result(M, in.arc, keep_type, res);
    case kEllipse: {
        V_ELLIPSE e;
        bool mirrored;
        const short rc = ellipse_image(M, in.ellipse, &e, &mirrored);
        if (rc == st::ok) res->SetEllipse(e);
        return rc;
    }
    case kEllipticalArc: {
        V_ELLIPTICALARC a;
        bool mirrored;
        const short rc = ellipse_image(M, in.elarc.ellipse, &a.ellipse, &mirrored);
        if (rc != st::ok) return rc;
        a.start = image(M, in.elarc.start);
        a.end = image(M, in.elarc.end);
        if (mirrored) swap_points(&a.start, &a.end);
        res->SetEllipticalArc(a);
        return st::ok;
    }
    case kSymbol:
        return symbol_result(M, in.symbol, res);
    case kText:
        return text_result(M, in.text, res);
    default:
        *res = in;
        return st::ok;  // empty or reserved: nothing to place
    }
}

// Homogeneous workplane conversions of a control point (X, W): local to world
// X' = X.x xaxis + X.y yaxis + X.z zaxis + W origin; world to local X' = ((X - W o).xaxis,
// (X - W o).yaxis, (X - W o).zaxis). With W = 1 these are the point conversions.
void cpt_to_world(const V_WORKPLANE& wp, double& x, double& y, double& z, double W)
{
    const V_VECTOR X = wp.xaxis, Y = wp.yaxis, Z = wp.zaxis;
    const V_POINT o = wp.origin;
    const double nx = W * o.x + x * X.x + y * Y.x + z * Z.x;
    const double ny = W * o.y + x * X.y + y * Y.y + z * Z.y;
    const double nz = W * o.z + x * X.z + y * Y.z + z * Z.z;
    x = nx;
    y = ny;
    z = nz;
}

void cpt_to_local(const V_WORKPLANE& wp, double& x, double& y, double& z, double W)
{
    const V_VECTOR d{x - W * wp.origin.x, y - W * wp.origin.y, z - W * wp.origin.z};
    x = dot(d, wp.xaxis);
    y = dot(d, wp.yaxis);
    z = dot(d, wp.zaxis);
}

// One workplane conversion of every kind; to_world selects the direction.
short convert_element(V_ELEMENT* e, const V_WORKPLANE& wp_in, bool to_world)
{
    V_WORKPLANE wp = wp_in;  // the record methods take a modifiable workplane
    // A record (point, vector, segment, line, circle, arc) by its own conversion.
    auto conv = [&](auto& r) {
        if (to_world)
            r.relative_to_absolute(wp);
        else
            r.absolute_to_relative(wp);
    };
    // The points of a list (null allowed).
    auto conv_list = [&](List<V_POINT>* l) {
        if (l && to_world) relative_to_absolute(wp, l);
        if (l && !to_world) absolute_to_relative(wp, l);
    };
    switch (e->type) {
    case kPoint:
        conv(e->point);
        break;
    case kSegment:
        conv(e->segm);
        break;
    case kLine:
        conv(e->line);
        break;
    case kCircle:
        conv(e->circle);
        break;
    case kArc:
        conv(e->arc);
        break;
    case kEllipse:
    case kEllipticalArc: {
        V_ELLIPSE& el = e->type == kEllipse ? e->ellipse : e->elarc.ellipse;
        conv(el.centre);
        conv(el.axis1);
        conv(el.axis2);
        if (e->type == kEllipticalArc) {
            conv(e->elarc.start);
            conv(e->elarc.end);
        }
        break;
    }
    case kSymbol:
        conv(e->symbol.position);
        conv(e->symbol.xaxis);
        conv(e->symbol.normal);
        break;
    case kText:
        conv(e->text.point);
        conv(e->text.normal);
        conv(e->text.xaxis);
        break;
    case kCurve:
        if (!is_3d_curve(e->curve)) return st::wrong_kind;
        for_each_cpt(e->curve, [&](double& x, double& y, double& z, double W) {
            if (to_world)
                cpt_to_world(wp, x, y, z, W);
            else
                cpt_to_local(wp, x, y, z, W);
        });
        break;
    case kPolyline:
        conv_list(e->polyline.Points());
        break;
    case kPointSet: {
        PointSet& ps = e->pointset;
        conv_list(ps.points);
        conv(ps.plane.origin);
        conv(ps.plane.xaxis);
        conv(ps.plane.yaxis);
        conv(ps.plane.zaxis);
        break;
    }
    default:
        break;
    }
    return st::ok;
}

}  // namespace

// --- placement ---

short mat_transform_element(const V_MATRIX* M, const V_ELEMENT* in, V_ELEMENT* out, short keep_type)
{
    if (!M || !in || !out) return st::bad_input;
    switch (in->type) {
    case kCurve:
    case kPolyline:
    case kPointSet: {
        if (in->type == kCurve && !is_3d_curve(in->curve)) return st::wrong_kind;
        V_WORKPLANE plane;
        if (in->type == kPointSet) {
            const short rc = plane_result(*M, in->pointset.plane, &plane);
            if (rc != st::ok) return rc;
        }
        if (out != in) *out = *in;
        place_owning(*M, out, in->type == kPointSet ? &plane : nullptr);
        return st::ok;
    }
    default: {
        V_ELEMENT res;
        const short rc = plain_result(*M, *in, keep_type, &res);
        if (rc == st::ok) *out = res;
        return rc;
    }
    }
}

short V_ELEMENT::translate(const V_VECTOR& d)
{
    V_MATRIX M;
    const V_POINT t{d.x, d.y, d.z};
    mat_translate(&M, &t);
    return mat_transform_element(&M, this, this, 0);
}

short V_ELEMENT::rotate(const V_POINT& centre, const V_VECTOR& axis, double angle)
{
    if (!(len(axis) >= tavotoll.angle)) return st::zero_vector;
    V_MATRIX M;
    mat_arbitrary_axis_rotation(&centre, &axis, angle, &M);
    return mat_transform_element(&M, this, this, 0);
}

short V_ELEMENT::transform(const V_MATRIX& M, short keep_type)
{
    return mat_transform_element(&M, this, this, keep_type);
}

short V_ELEMENT::relative_to_absolute(const V_WORKPLANE& wp)
{
    return convert_element(this, wp, true);
}

short V_ELEMENT::absolute_to_relative(const V_WORKPLANE& wp)
{
    return convert_element(this, wp, false);
}
