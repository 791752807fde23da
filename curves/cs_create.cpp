#include "curves/cs_1.h"
#include "foundation/list.h"
#include "foundation/records.h"
#include "foundation/status.h"
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

// Every creator validates its input first, builds the new curve in a local CNurbs (counts,
// Init_Lists, then the lists filled in order) and moves it into *this only when complete, so
// a failure at any step leaves the curve as it was and frees what was built.

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTurn = 2.0 * kPi;
constexpr double kQuarterTurn = 0.5 * kPi;  // widest piece of a circular or elliptical arc
constexpr double kHyperbolicPiece = 2.0;    // widest piece of a hyperbolic arc, in t
constexpr double kHyperbolicLimit = 50.0;   // |t| bound of a hyperbolic arc (cosh 50 ~ 2.6e21)

// --- small vector algebra on the records ---

V_VECTOR sub(const V_POINT& a, const V_POINT& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
V_POINT along(const V_POINT& p, const V_VECTOR& d, double s)  // p + s d
{
    return {p.x + s * d.x, p.y + s * d.y, p.z + s * d.z};
}
V_VECTOR combine(const V_VECTOR& a, double sa, const V_VECTOR& b, double sb)  // sa a + sb b
{
    return {sa * a.x + sb * b.x, sa * a.y + sb * b.y, sa * a.z + sb * b.z};
}
V_VECTOR scaled(const V_VECTOR& v, double s)
{
    return {s * v.x, s * v.y, s * v.z};
}
double dot(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
V_VECTOR cross(const V_VECTOR& a, const V_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double length(const V_VECTOR& v)
{
    return std::hypot(v.x, v.y, v.z);
}
double distance(const V_POINT& a, const V_POINT& b)
{
    return length(sub(a, b));
}

bool is_finite(double x)
{
    return std::isfinite(x);
}
bool is_finite(const V_POINT& p)
{
    return is_finite(p.x) && is_finite(p.y) && is_finite(p.z);
}
bool is_finite(const V_VECTOR& v)
{
    return is_finite(v.x) && is_finite(v.y) && is_finite(v.z);
}

// Linear tolerance for a figure of size s: tavotoll.point, growing with figures above 1.
double size_tol(double s)
{
    return tavotoll.point * std::max(1.0, s);
}

// Unit copy of v; false for a non-finite v or one shorter than tavotoll.angle (the angular
// tolerance, as normalise uses).
bool unit(const V_VECTOR& v, V_VECTOR* out)
{
    if (!is_finite(v)) return false;
    const double len = length(v);
    if (!(len >= tavotoll.angle)) return false;
    *out = scaled(v, 1.0 / len);
    return true;
}

// Unit direction of d projected into the plane normal to the unit n; false when d lies along
// n (its projection shorter than tavotoll.angle of its length) or is not finite.
bool in_plane_direction(const V_VECTOR& d, const V_VECTOR& n, V_VECTOR* out)
{
    V_VECTOR du;
    if (!unit(d, &du)) return false;
    return unit(combine(du, 1.0, n, -dot(du, n)), out);
}

// Number of pieces of at most width for a sweep; a sweep over width by less than the
// tolerance still takes one piece fewer.
int piece_count(double sweep, double width, double tol)
{
    const double k = std::ceil((sweep - tol) / width);
    return k < 1.0 ? 1 : static_cast<int>(k);
}

// --- filling a curve under construction ---

// Sets the counts and flags and makes the empty lists. 0 or 115.
short start_curve(CNurbs& c, int order, int n_cpts, int vpp, int n_knots, bool rational,
                  bool parametric)
{
    c.order = order;
    c.n_cpts = n_cpts;
    c.vpp = vpp;
    c.n_knots = n_knots;
    c.rational = rational ? 1 : 0;
    c.parametric = parametric ? 1 : 0;
    return c.Init_Lists();
}

// Appends one 3-D control point: (x, y, z) times w followed by w when rational.
bool put_point(CNurbs& c, const V_POINT& p, double w)
{
    List<double>& l = *c.cpts;
    if (c.rational)
        return l.Append(p.x * w) && l.Append(p.y * w) && l.Append(p.z * w) && l.Append(w);
    return l.Append(p.x) && l.Append(p.y) && l.Append(p.z);
}

bool put_knot(CNurbs& c, double value, int mult)
{
    return c.knots->Append(value) && c.mults->Append(mult);
}

// Order n Bezier knots: 0 and 1, both of multiplicity n.
bool put_bezier_knots(CNurbs& c)
{
    return put_knot(c, 0.0, c.order) && put_knot(c, 1.0, c.order);
}

// Two-point order 2 frame for segments and the point curve. 0 or 115.
short build_line(const V_POINT& a, const V_POINT& b, CNurbs* out)
{
    CNurbs c;
    const short rc = start_curve(c, 2, 2, 3, 2, false, false);
    if (rc != st::ok) return rc;
    if (!put_point(c, a, 1.0) || !put_point(c, b, 1.0) || !put_bezier_knots(c))
        return st::no_memory;
    *out = std::move(c);
    return st::ok;
}

// Frame of a conic: point(θ) = centre + C(θ) u + S(θ) v with (C, S) = (cos, sin), or
// (cosh, sinh) when hyperbolic.
struct Conic {
    V_POINT centre;
    V_VECTOR u, v;
    bool hyperbolic;

    double C(double t) const { return hyperbolic ? std::cosh(t) : std::cos(t); }
    double S(double t) const { return hyperbolic ? std::sinh(t) : std::sin(t); }
    V_POINT at(double t) const { return along(along(centre, u, C(t)), v, S(t)); }
};

// k rational quadratic pieces of the conic from t0 over sweep. A piece spans φ = sweep / k;
// its ends are on the conic with weight 1 and its middle control point is where their
// tangents meet, centre + (C(m) u + S(m) v) / C(φ/2) at the mid-parameter m, with weight
// C(φ/2) (the unit circle's or unit hyperbola's piece symmetric about m, mapped by the
// linear map (u, v)). first and last, when given, are used as the end points exactly.
short build_conic(const Conic& f, double t0, double sweep, int k, const V_POINT* first,
                  const V_POINT* last, int32_t form, bool closed, CNurbs* out)
{
    CNurbs c;
    const short rc = start_curve(c, 3, 2 * k + 1, 4, k + 1, true, false);
    if (rc != st::ok) return rc;
    const double phi = sweep / k;
    const double w = f.C(0.5 * phi);
    bool ok = put_point(c, first ? *first : f.at(t0), 1.0) && put_knot(c, 0.0, 3);
    for (int j = 0; ok && j < k; ++j) {
        const double m = t0 + (j + 0.5) * phi;
        const V_POINT mid = along(along(f.centre, f.u, f.C(m) / w), f.v, f.S(m) / w);
        const bool is_last = (j == k - 1);
        const V_POINT end = (is_last && last) ? *last : f.at(t0 + (j + 1) * phi);
        ok = put_point(c, mid, w) && put_point(c, end, 1.0) &&
             put_knot(c, is_last ? 1.0 : static_cast<double>(j + 1) / k, is_last ? 3 : 2);
    }
    if (!ok) return st::no_memory;
    c.form = form;
    c.closed = closed ? 1 : 0;
    *out = std::move(c);
    return st::ok;
}

// Unit in-plane direction from the centre to p when p lies on the circle (centre, r, unit n)
// within tol, both across and out of the plane.
bool on_circle(const V_POINT& p, const V_POINT& centre, double r, const V_VECTOR& n, double tol,
               V_VECTOR* dir)
{
    if (!is_finite(p)) return false;
    const V_VECTOR d = sub(p, centre);
    const double h = dot(d, n);
    if (std::fabs(h) > tol) return false;
    const V_VECTOR w = combine(d, 1.0, n, -h);
    const double len = length(w);
    if (std::fabs(len - r) > tol) return false;
    *dir = scaled(w, 1.0 / len);
    return true;
}

// The reference direction of a circle record: world X projected into the plane, or world Y
// when the unit normal is within about 25 degrees of X.
V_VECTOR circle_reference(const V_VECTOR& n)
{
    const V_VECTOR axis = std::fabs(n.x) > 0.9 ? V_VECTOR{0.0, 1.0, 0.0} : V_VECTOR{1.0, 0.0, 0.0};
    V_VECTOR u{};
    in_plane_direction(axis, n, &u);  // cannot fail: axis is at least 25 degrees off n
    return u;
}

// Validated ellipse data: axes finite, not zero, not parallel; radii above tavotoll.point.
bool ellipse_ok(const V_ELLIPSE& e)
{
    if (!is_finite(e.centre) || !is_finite(e.axis1) || !is_finite(e.axis2)) return false;
    if (!is_finite(e.radius1) || !is_finite(e.radius2)) return false;
    if (!(e.radius1 > tavotoll.point) || !(e.radius2 > tavotoll.point)) return false;
    const double l1 = length(e.axis1), l2 = length(e.axis2);
    if (!(l1 >= tavotoll.angle) || !(l2 >= tavotoll.angle)) return false;
    return length(cross(e.axis1, e.axis2)) >= tavotoll.angle * l1 * l2;
}

// Eccentric angle E of p on the ellipse (p = centre + r1 cos E a1 + r2 sin E a2) when p lies
// within tol of it. Solve d = x a1 + y a2 by the 2x2 Gram system (the axes need not be
// orthogonal); the residual is the distance off the plane, and with ρ = |(x/r1, y/r2)| the
// ellipse point along the same ray is (x, y)/ρ, |1 - 1/ρ| |x a1 + y a2| away.
bool eccentric_angle(const V_ELLIPSE& e, const V_POINT& p, double tol, double* angle)
{
    if (!is_finite(p)) return false;
    const V_VECTOR d = sub(p, e.centre);
    const double g11 = dot(e.axis1, e.axis1), g12 = dot(e.axis1, e.axis2);
    const double g22 = dot(e.axis2, e.axis2);
    const double d1 = dot(d, e.axis1), d2 = dot(d, e.axis2);
    const double det = g11 * g22 - g12 * g12;  // > 0: the axes are not parallel
    const double x = (g22 * d1 - g12 * d2) / det;
    const double y = (g11 * d2 - g12 * d1) / det;
    const V_VECTOR in_plane = combine(e.axis1, x, e.axis2, y);
    if (length(combine(d, 1.0, in_plane, -1.0)) > tol) return false;
    const double xs = x / e.radius1, ys = y / e.radius2;
    const double rho = std::hypot(xs, ys);
    if (!(rho > 0.0)) return false;  // exact on purpose: only the centre itself has no ray
    if (std::fabs(1.0 - 1.0 / rho) * length(in_plane) > tol) return false;
    *angle = std::atan2(ys, xs);
    return true;
}

// Reads the occupied points of pts; false for a non-finite one.
bool occupied_points_finite(const List<V_POINT>& pts, int* n)
{
    int count = 0;
    for (uint32_t k = 1; k <= pts.Count(); ++k) {
        const V_POINT* p = pts.GetPtr(k);
        if (!p) continue;
        if (!is_finite(*p)) return false;
        ++count;
    }
    *n = count;
    return true;
}

// Points and optional weights read position by position: every position set and finite,
// the counts equal. 0; 110; 146 a weight below tavo_min_weight.
short check_weighted_points(const List<V_POINT>& pts, const List<double>* weights)
{
    const uint32_t n = pts.Count();
    for (uint32_t k = 1; k <= n; ++k) {
        const V_POINT* p = pts.GetPtr(k);
        if (!p || !is_finite(*p)) return st::bad_input;
    }
    if (!weights) return st::ok;
    if (weights->Count() != n) return st::bad_input;
    bool low = false;
    for (uint32_t k = 1; k <= n; ++k) {
        const double* w = weights->GetPtr(k);
        if (!w || !is_finite(*w)) return st::bad_input;
        if (*w < tavo_min_weight) low = true;
    }
    return low ? st::low_weight : st::ok;
}

// Validates a full curve definition and builds it. Knots in multiplicity form: values
// increasing by at least tavotoll.param, multiplicities 1..order summing to n + order, and
// linear knots order and n + 1 (the ends of the parameter range) apart.
short build_general(int order, const List<V_POINT>& pts, const List<double>* weights,
                    const List<double>& values, const List<int>& mult, CNurbs* out)
{
    const uint32_t n = pts.Count();
    if (order < 1 || n < 2 || n < static_cast<uint32_t>(order) || n > INT32_MAX / 4)
        return st::bad_input;
    const short rc = check_weighted_points(pts, weights);
    if (rc != st::ok) return rc;
    const uint32_t nk = values.Count();
    if (nk < 2 || mult.Count() != nk) return st::bad_input;
    int64_t sum = 0;
    double range_start = 0.0, range_end = 0.0;
    for (uint32_t k = 1; k <= nk; ++k) {
        const double* u = values.GetPtr(k);
        const int* m = mult.GetPtr(k);
        if (!u || !m || !is_finite(*u) || *m < 1 || *m > order) return st::bad_input;
        if (k > 1 && !(*u - values[k - 1] >= tavotoll.param)) return st::bad_input;
        // Linear knot i lies in the run sum + 1 .. sum + m.
        if (sum < order && sum + *m >= order) range_start = *u;
        if (sum < int64_t(n) + 1 && sum + *m >= int64_t(n) + 1) range_end = *u;
        sum += *m;
    }
    if (sum != int64_t(n) + order) return st::bad_input;
    if (!(range_end > range_start)) return st::bad_input;

    CNurbs c;
    const bool rational = weights != nullptr;
    const short rs = start_curve(c, order, static_cast<int>(n), rational ? 4 : 3,
                                 static_cast<int>(nk), rational, false);
    if (rs != st::ok) return rs;
    for (uint32_t k = 1; k <= n; ++k) {
        if (!put_point(c, pts[k], rational ? (*weights)[k] : 1.0)) return st::no_memory;
    }
    for (uint32_t k = 1; k <= nk; ++k) {
        if (!put_knot(c, values[k], mult[k])) return st::no_memory;
    }
    *out = std::move(c);
    return st::ok;
}

// Bezier of the points (all positions set), weights optional. Codes of build_general.
short build_bezier(const List<V_POINT>& pts, const List<double>* weights, CNurbs* out)
{
    const uint32_t n = pts.Count();
    if (n < 2 || n > INT32_MAX / 4) return st::bad_input;
    List<double> values(2);
    List<int> mult(2);
    const int order = static_cast<int>(n);
    if (!values.Append(0.0) || !values.Append(1.0) || !mult.Append(order) || !mult.Append(order))
        return st::no_memory;
    return build_general(order, pts, weights, values, mult, out);
}

// The occupied points of pts, in order, as a list without holes. 0 or 115.
short compact_points(const List<V_POINT>& pts, List<V_POINT>* out)
{
    for (uint32_t k = 1; k <= pts.Count(); ++k) {
        const V_POINT* p = pts.GetPtr(k);
        if (p && !out->Append(*p)) return st::no_memory;
    }
    return st::ok;
}

// Point and unit tangent of a usable 3-D curve at one end of its parameter range.
short curve_end(const CNurbs& c, bool at_end, V_POINT* p, V_VECTOR* t)
{
    if (!c.cpts || !c.knots || !c.mults) return st::bad_input;
    double t0 = 0.0, t1 = 0.0;
    if (c.Get_Start_End_Knots(&t0, &t1) != st::ok) return st::bad_input;
    V_VECTOR d{};
    const short rc = c.Eval(at_end ? t1 : t0, nullptr, p, &d);
    if (rc == st::no_memory) return rc;
    if (rc != st::ok) return st::bad_input;
    if (!is_finite(*p) || !is_finite(d)) return st::bad_input;
    const double len = length(d);
    if (!(len >= tavotoll.point)) return st::bad_input;
    *t = scaled(d, 1.0 / len);
    return st::ok;
}

}  // namespace

// --- straight curves ---

short CNurbs::CreateFromSegment(const V_SEGM& s)
{
    if (!is_finite(s.start) || !is_finite(s.end)) return st::bad_input;
    if (!(distance(s.start, s.end) >= tavotoll.point)) return st::bad_input;
    return build_line(s.start, s.end, this);
}

short CNurbs::CreateFromParametricSegment(const V_POINT2D& a, const V_POINT2D& b)
{
    if (!is_finite(a.x) || !is_finite(a.y) || !is_finite(b.x) || !is_finite(b.y))
        return st::bad_input;
    if (!(std::hypot(b.x - a.x, b.y - a.y) >= tavotoll.point)) return st::bad_input;
    CNurbs c;
    const short rc = start_curve(c, 2, 2, 2, 2, false, true);
    if (rc != st::ok) return rc;
    List<double>& l = *c.cpts;
    if (!l.Append(a.x) || !l.Append(a.y) || !l.Append(b.x) || !l.Append(b.y) ||
        !put_bezier_knots(c))
        return st::no_memory;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_From_Point(const V_POINT& p)
{
    if (!is_finite(p)) return st::bad_input;
    return build_line(p, p, this);
}

short CNurbs::CreateFromPolyline(const List<V_POINT>& pts)
{
    int n_occupied = 0;
    if (!occupied_points_finite(pts, &n_occupied)) return st::bad_input;
    // First pass counts the kept points; the second repeats the same choices while filling.
    const auto kept_points = [&pts](auto&& keep) {
        const V_POINT* prev = nullptr;
        for (uint32_t k = 1; k <= pts.Count(); ++k) {
            const V_POINT* p = pts.GetPtr(k);
            if (!p) continue;
            // A leg must be longer than both the point and the knot tolerance, so that the
            // chord-length knots stay distinct.
            const double leg = prev ? distance(*prev, *p) : 0.0;
            if (prev && !(leg > std::max(tavotoll.point, tavotoll.param))) continue;
            if (!keep(*p, leg)) return false;
            prev = p;
        }
        return true;
    };
    int n = 0;
    V_POINT first{}, last{};
    kept_points([&](const V_POINT& p, double) {
        if (n == 0) first = p;
        last = p;
        ++n;
        return true;
    });
    if (n < 2) return st::bad_input;

    CNurbs c;
    const short rc = start_curve(c, 2, n, 3, n, false, false);
    if (rc != st::ok) return rc;
    int i = 0;
    double u = 0.0;
    const bool ok = kept_points([&](const V_POINT& p, double leg) {
        u += leg;
        ++i;
        return put_point(c, p, 1.0) && put_knot(c, u, (i == 1 || i == n) ? 2 : 1);
    });
    if (!ok) return st::no_memory;
    c.closed = (n >= 3 && distance(first, last) <= tavotoll.point) ? 1 : 0;
    *this = std::move(c);
    return st::ok;
}

// --- circles and circular arcs ---

short CNurbs::CreateFromArc(const V_ARC& arc)
{
    V_ARC a = arc;
    a.force_radius_to_positive();  // a negative radius: the same points from end to start
    const double r = a.radius;
    if (!is_finite(a.centre) || !is_finite(r) || !(r > tavotoll.point)) return st::bad_input;
    V_VECTOR n;
    if (!unit(a.normal, &n)) return st::bad_input;
    const double tol = size_tol(r);
    V_VECTOR u, e;
    if (!on_circle(a.start, a.centre, r, n, tol, &u) || !on_circle(a.end, a.centre, r, n, tol, &e))
        return st::bad_input;
    // Counter-clockwise angle from u to e about n, in (0, 2 pi]; coincident ends: a full turn.
    const bool full = !(distance(a.start, a.end) > tol);
    double sweep = kTurn;
    if (!full) {
        sweep = std::atan2(dot(cross(u, e), n), dot(u, e));
        if (sweep <= 0.0) sweep += kTurn;
    }
    const Conic f{a.centre, scaled(u, r), scaled(cross(n, u), r), false};
    const int k = piece_count(sweep, kQuarterTurn, tavotoll.angle);
    return build_conic(f, 0.0, sweep, k, &a.start, &a.end, 1, full, this);
}

short CNurbs::CreateFromCircle(const V_CIRCLE& circle)
{
    V_CIRCLE c = circle;
    c.force_radius_to_positive();  // a negative radius: the other sense about the normal
    const double r = c.radius;
    if (!is_finite(c.centre) || !is_finite(r) || !(r > tavotoll.point)) return st::bad_input;
    V_VECTOR n;
    if (!unit(c.normal, &n)) return st::bad_input;
    const V_VECTOR u = circle_reference(n);
    const Conic f{c.centre, scaled(u, r), scaled(cross(n, u), r), false};
    const V_POINT start = f.at(0.0);
    return build_conic(f, 0.0, kTurn, 4, &start, &start, 1, true, this);
}

short CNurbs::Create_From_Arc(const V_POINT& centre, double radius, const V_VECTOR& normal,
                              const V_VECTOR& xdir, double start_angle, double sweep)
{
    if (!is_finite(centre) || !is_finite(radius) || !(radius > tavotoll.point))
        return st::bad_input;
    if (!is_finite(start_angle) || !is_finite(sweep)) return st::bad_input;
    const double size = std::fabs(sweep);
    if (!(size > tavotoll.angle) || size > kTurn + tavotoll.angle) return st::bad_input;
    V_VECTOR n, x;
    if (!unit(normal, &n) || !in_plane_direction(xdir, n, &x)) return st::bad_input;
    const V_VECTOR y = cross(n, x);
    // Start direction at start_angle counter-clockwise about n; the sense of travel is the
    // in-plane perpendicular turned by +90 degrees (sweep > 0) or -90 degrees (sweep < 0).
    const V_VECTOR s = combine(x, std::cos(start_angle), y, std::sin(start_angle));
    const V_VECTOR p = scaled(cross(n, s), sweep > 0.0 ? 1.0 : -1.0);
    const Conic f{centre, scaled(s, radius), scaled(p, radius), false};
    const bool full = size >= kTurn - tavotoll.angle;
    const double span = full ? kTurn : size;
    const int k = piece_count(span, kQuarterTurn, tavotoll.angle);
    const V_POINT start = f.at(0.0);
    return build_conic(f, 0.0, span, k, &start, full ? &start : nullptr, 1, full, this);
}

short CNurbs::Create_From_Circle(const V_POINT& centre, double radius, const V_VECTOR& normal,
                                 const V_VECTOR& xdir)
{
    return Create_From_Arc(centre, radius, normal, xdir, 0.0, kTurn);
}

// --- ellipses, parabola, hyperbola ---

short CNurbs::CreateFromEllipse(const V_ELLIPSE& e)
{
    if (!ellipse_ok(e)) return st::bad_input;
    const Conic f{e.centre, scaled(e.axis1, e.radius1), scaled(e.axis2, e.radius2), false};
    const V_POINT start = f.at(0.0);
    return build_conic(f, 0.0, kTurn, 4, &start, &start, 3, true, this);
}

short CNurbs::CreateFromEllipticalArc(const V_ELLIPTICALARC& a)
{
    const V_ELLIPSE& e = a.ellipse;
    if (!ellipse_ok(e)) return st::bad_input;
    const double tol = size_tol(std::max(e.radius1 * length(e.axis1), e.radius2 * length(e.axis2)));
    double e0 = 0.0, e1 = 0.0;
    if (!eccentric_angle(e, a.start, tol, &e0) || !eccentric_angle(e, a.end, tol, &e1))
        return st::bad_input;
    // The eccentric angle grows with the polar angle, so the counter-clockwise sweep from
    // start to end is e1 - e0 taken into (0, 2 pi]; coincident ends make a full turn.
    const bool full = !(distance(a.start, a.end) > tol);
    double sweep = kTurn;
    if (!full) {
        sweep = e1 - e0;
        if (sweep <= 0.0) sweep += kTurn;
    }
    const Conic f{e.centre, scaled(e.axis1, e.radius1), scaled(e.axis2, e.radius2), false};
    const int k = piece_count(sweep, kQuarterTurn, tavotoll.angle);
    return build_conic(f, e0, sweep, k, &a.start, &a.end, 3, full, this);
}

short CNurbs::CreateParabola(const V_POINT& p0, const V_POINT& p1, const V_POINT& p2)
{
    if (!is_finite(p0) || !is_finite(p1) || !is_finite(p2)) return st::bad_input;
    const V_VECTOR chord = sub(p2, p0);
    const double len = length(chord);
    if (!(len >= tavotoll.point)) return st::bad_input;
    // Distance of p1 from the line p0 p2: |(p1 - p0) x chord| / |chord|.
    if (!(length(cross(sub(p1, p0), chord)) / len >= tavotoll.point)) return st::bad_input;
    CNurbs c;
    const short rc = start_curve(c, 3, 3, 4, 2, true, false);
    if (rc != st::ok) return rc;
    if (!put_point(c, p0, 1.0) || !put_point(c, p1, 1.0) || !put_point(c, p2, 1.0) ||
        !put_bezier_knots(c))
        return st::no_memory;
    c.form = 2;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::CreateHyperbola(const V_POINT& centre, const V_VECTOR& axis1, const V_VECTOR& axis2,
                              double a, double b, double t0, double t1)
{
    const V_ELLIPSE frame{centre, axis1, axis2, a, b};  // same checks on centre, axes, radii
    if (!ellipse_ok(frame)) return st::bad_input;
    if (!is_finite(t0) || !is_finite(t1) || !(t1 - t0 > tavotoll.param)) return st::bad_input;
    if (std::fabs(t0) > kHyperbolicLimit || std::fabs(t1) > kHyperbolicLimit) return st::bad_input;
    const Conic f{centre, scaled(axis1, a), scaled(axis2, b), true};
    const int k = piece_count(t1 - t0, kHyperbolicPiece, tavotoll.param);
    return build_conic(f, t0, t1 - t0, k, nullptr, nullptr, 4, false, this);
}

// --- curves from control points ---

short CNurbs::Create_From_Points(const List<V_POINT>& pts, int order)
{
    int n = 0;
    if (!occupied_points_finite(pts, &n)) return st::bad_input;
    if (n < 2 || order < 1 || order > n) return st::bad_input;
    List<V_POINT> cp(static_cast<uint32_t>(n));
    short rc = compact_points(pts, &cp);
    if (rc != st::ok) return rc;
    // Clamped uniform: n - order + 2 distinct knots i / (n - order + 1), ends of
    // multiplicity order, interior ones simple.
    const int nk = n - order + 2;
    List<double> values(static_cast<uint32_t>(nk));
    List<int> mult(static_cast<uint32_t>(nk));
    for (int i = 0; i < nk; ++i) {
        const double u = (i == nk - 1) ? 1.0 : static_cast<double>(i) / (nk - 1);
        const int m = (i == 0 || i == nk - 1) ? order : 1;
        if (!values.Append(u) || !mult.Append(m)) return st::no_memory;
    }
    CNurbs c;
    rc = build_general(order, cp, nullptr, values, mult, &c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_From_Cpts(int order, const List<V_POINT>& pts, const List<double>* weights,
                               const List<double>& values, const List<int>& mult)
{
    CNurbs c;
    const short rc = build_general(order, pts, weights, values, mult, &c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_By_Cpts(int order, const List<V_POINT>& pts, const List<double>* weights,
                             const List<double>& linear)
{
    const uint32_t n = pts.Count();
    if (order < 1 || n < 2 || n > INT32_MAX / 4) return st::bad_input;
    if (linear.Count() != n + static_cast<uint32_t>(order)) return st::bad_input;
    // Runs of the linear knots, each compared with its first value.
    List<double> values;
    List<int> mult;
    double run = 0.0, prev = 0.0;
    int m = 0;
    for (uint32_t k = 1; k <= linear.Count(); ++k) {
        const double* u = linear.GetPtr(k);
        if (!u || !is_finite(*u)) return st::bad_input;
        if (k > 1 && *u < prev) return st::bad_input;
        prev = *u;
        if (k > 1 && std::fabs(*u - run) < tavotoll.param) {
            ++m;
            continue;
        }
        if (k > 1 && (!values.Append(run) || !mult.Append(m))) return st::no_memory;
        run = *u;
        m = 1;
    }
    if (!values.Append(run) || !mult.Append(m)) return st::no_memory;
    return Create_From_Cpts(order, pts, weights, values, mult);
}

short CNurbs::Create_Bezier_Curve(int order)
{
    if (order < 2) return st::bad_input;
    CNurbs c;
    const short rc = c.Init_As_Bezier_Curve(order);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_Bezier_Curve(const List<V_POINT>& pts)
{
    int n = 0;
    if (!occupied_points_finite(pts, &n)) return st::bad_input;
    if (n < 2) return st::bad_input;
    List<V_POINT> cp(static_cast<uint32_t>(n));
    short rc = compact_points(pts, &cp);
    if (rc != st::ok) return rc;
    CNurbs c;
    rc = build_bezier(cp, nullptr, &c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_Bezier_Curve(const List<V_POINT>& pts, const List<double>& weights)
{
    CNurbs c;
    const short rc = build_bezier(pts, &weights, &c);
    if (rc != st::ok) return rc;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_Bezier_From_Cpts(const double* cpts, int n, int dim, bool rational)
{
    if (!cpts || n < 2) return st::bad_input;
    const int position_dim = dim - (rational ? 1 : 0);
    if (position_dim != 2 && position_dim != 3) return st::bad_input;
    if (n > INT32_MAX / dim) return st::bad_input;
    const size_t len = static_cast<size_t>(n) * static_cast<size_t>(dim);
    bool low = false;
    for (size_t i = 0; i < len; ++i) {
        if (!is_finite(cpts[i])) return st::bad_input;
        if (rational && i % dim == static_cast<size_t>(dim - 1) && cpts[i] < tavo_min_weight)
            low = true;
    }
    if (low) return st::low_weight;
    CNurbs c;
    const short rc = start_curve(c, n, n, dim, 2, rational, position_dim == 2);
    if (rc != st::ok) return rc;
    for (size_t i = 0; i < len; ++i) {
        if (!c.cpts->Append(cpts[i])) return st::no_memory;
    }
    if (!put_bezier_knots(c)) return st::no_memory;
    *this = std::move(c);
    return st::ok;
}

short CNurbs::Create_Blending(const CNurbs& a, const CNurbs& b, double ma, double mb)
{
    if (!is_finite(ma) || !is_finite(mb) || !(ma > 0.0) || !(mb > 0.0)) return st::bad_input;
    V_POINT p0{}, p3{};
    V_VECTOR ta{}, tb{};
    short rc = curve_end(a, true, &p0, &ta);
    if (rc != st::ok) return rc;
    rc = curve_end(b, false, &p3, &tb);
    if (rc != st::ok) return rc;
    // A cubic Bezier has derivative 3 (P1 - P0) at its start and 3 (P3 - P2) at its end.
    CNurbs c;
    rc = start_curve(c, 4, 4, 3, 2, false, false);
    if (rc != st::ok) return rc;
    if (!put_point(c, p0, 1.0) || !put_point(c, along(p0, ta, ma / 3.0), 1.0) ||
        !put_point(c, along(p3, tb, -mb / 3.0), 1.0) || !put_point(c, p3, 1.0) ||
        !put_bezier_knots(c))
        return st::no_memory;
    *this = std::move(c);
    return st::ok;
}
