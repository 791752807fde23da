// Curve creators checked against independent geometry: samples through Eval must lie on the
// analytic figure (circle, ellipse, parabola, hyperbola) to 1e-12 relative, end points must be
// the given ones, angles must advance monotonically; spline creators are compared with a plain
// de Boor evaluator written here.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;
constexpr int kSamples = 240;

V_VECTOR vsub(const V_POINT& a, const V_POINT& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
double vdot(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
V_VECTOR vcross(const V_VECTOR& a, const V_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
V_VECTOR vunit(const V_VECTOR& v)
{
    const double l = std::sqrt(vdot(v, v));
    return {v.x / l, v.y / l, v.z / l};
}
V_POINT at(const V_POINT& c, const V_VECTOR& e1, double s1, const V_VECTOR& e2, double s2)
{
    return {c.x + s1 * e1.x + s2 * e2.x, c.y + s1 * e1.y + s2 * e2.y, c.z + s1 * e1.z + s2 * e2.z};
}
double dist(const V_POINT& a, const V_POINT& b)
{
    return std::sqrt(vdot(vsub(a, b), vsub(a, b)));
}

// A tilted orthonormal frame: normal n, in-plane e1, e2 = n x e1.
struct Frame {
    V_POINT c{1.5, -2.0, 0.75};
    V_VECTOR n = vunit({1.0, 2.0, 2.0});
    V_VECTOR e1 = vunit(vcross(n, {0.0, 0.0, 1.0}));
    V_VECTOR e2 = vcross(n, e1);
};

double first_knot(const CNurbs& c)
{
    return (*c.knots)[1];
}
double last_knot(const CNurbs& c)
{
    return (*c.knots)[static_cast<uint32_t>(c.n_knots)];
}

// Calls check(t, point) at kSamples + 1 parameters spread over the whole range.
void sample(const CNurbs& c, const std::function<void(double, const V_POINT&)>& check)
{
    const double t0 = first_knot(c), t1 = last_knot(c);
    for (int i = 0; i <= kSamples; ++i) {
        const double t = (i == kSamples) ? t1 : t0 + (t1 - t0) * i / kSamples;
        V_POINT p{};
        ASSERT_EQ(c.Eval(t, nullptr, &p), st::ok) << t;
        check(t, p);
    }
}

V_POINT eval(const CNurbs& c, double t)
{
    V_POINT p{};
    EXPECT_EQ(c.Eval(t, nullptr, &p), st::ok);
    return p;
}

// Angle of p about the frame's normal, measured from e1.
double angle_in(const Frame& f, const V_POINT& p)
{
    const V_VECTOR d = vsub(p, f.c);
    return std::atan2(vdot(d, f.e2), vdot(d, f.e1));
}

// Checks that the samples of a planar curve turn one way about f.n (sense +1 or -1) and
// returns the total turn, unwrapped.
double total_turn(const CNurbs& c, const Frame& f, int sense)
{
    double prev = 0.0, total = 0.0;
    bool first = true;
    sample(c, [&](double, const V_POINT& p) {
        const double a = angle_in(f, p);
        if (!first) {
            double step = std::remainder(a - prev, 2.0 * kPi);
            EXPECT_GT(sense * step, 0.0);
            total += step;
        }
        prev = a;
        first = false;
    });
    return total;
}

// Plain de Boor evaluation of homogeneous control points (x w, y w, z w, w) on 0-based
// linear knots, then projected.
V_POINT deboor(int order, const std::vector<double>& U, std::vector<std::array<double, 4>> P,
               double t)
{
    const int p = order - 1, n = static_cast<int>(P.size());
    int k = p;
    while (k < n - 1 && !(t < U[k + 1])) ++k;
    std::vector<std::array<double, 4>> d(P.begin() + (k - p), P.begin() + (k + 1));
    for (int r = 1; r <= p; ++r) {
        for (int j = p; j >= r; --j) {
            const int i = j + k - p;
            const double a = (t - U[i]) / (U[i + p + 1 - r] - U[i]);
            for (int q = 0; q < 4; ++q) d[j][q] = (1 - a) * d[j - 1][q] + a * d[j][q];
        }
    }
    return {d[p][0] / d[p][3], d[p][1] / d[p][3], d[p][2] / d[p][3]};
}

List<V_POINT> points(std::initializer_list<V_POINT> ps)
{
    List<V_POINT> l;
    for (const V_POINT& p : ps) l.Append(p);
    return l;
}
template <class T> List<T> list_of(std::initializer_list<T> xs)
{
    List<T> l;
    for (const T& x : xs) l.Append(x);
    return l;
}

// The raw state of a curve, for "unchanged after failure" checks.
std::vector<double> snapshot(const CNurbs& c)
{
    std::vector<double> s{double(c.order), double(c.n_cpts),   double(c.vpp),   double(c.n_knots),
                          double(c.form),  double(c.rational), double(c.closed)};
    for (uint32_t i = 1; c.cpts && i <= c.cpts->Count(); ++i) s.push_back((*c.cpts)[i]);
    for (uint32_t i = 1; c.knots && i <= c.knots->Count(); ++i) s.push_back((*c.knots)[i]);
    return s;
}

// Point at angle a on the circle of radius r about f.c, measured from f.e1.
V_POINT circle_point(const Frame& f, double r, double a)
{
    return at(f.c, f.e1, r * std::cos(a), f.e2, r * std::sin(a));
}

// Conic layout: form, order 3, rational, n control points, (n + 1) / 2 knots, closed flag.
void expect_conic(const CNurbs& c, int form, int n_cpts, int closed)
{
    EXPECT_EQ(c.form, form);
    EXPECT_EQ(c.order, 3);
    EXPECT_EQ(c.rational, 1);
    EXPECT_EQ(c.n_cpts, n_cpts);
    EXPECT_EQ(c.n_knots, (n_cpts + 1) / 2);
    EXPECT_EQ(c.closed, closed);
}

// The curve starts at p0 and ends at p1, within tol.
void expect_ends(const CNurbs& c, const V_POINT& p0, const V_POINT& p1, double tol)
{
    EXPECT_LE(dist(eval(c, first_knot(c)), p0), tol);
    EXPECT_LE(dist(eval(c, last_knot(c)), p1), tol);
}

CNurbs segment_curve()
{
    CNurbs c;
    EXPECT_EQ(c.CreateFromSegment(V_SEGM{{0, 0, 0}, {1, 1, 1}}), st::ok);
    return c;
}

}  // namespace

// --- circular arcs ---

TEST(CreateFromArc, Sweeps_ExactCircleQuarterPiecesMonotonic)
{
    const Frame f;
    const double r = 2.5;
    // sweep in degrees and the pieces of at most a quarter turn it needs
    const std::pair<double, int> cases[] = {{30, 1},  {90, 1},  {91, 2},
                                            {180, 2}, {270, 3}, {360, 4}};
    for (const auto& [deg, k] : cases) {
        const double a0 = 0.3, sweep = deg * kDeg;
        const V_ARC arc{f.c, r, f.n, circle_point(f, r, a0),
                        circle_point(f, r, deg == 360 ? a0 : a0 + sweep)};
        CNurbs c;
        ASSERT_EQ(c.CreateFromArc(arc), st::ok) << deg;
        expect_conic(c, 1, 2 * k + 1, deg == 360 ? 1 : 0);
        for (int j = 2; j < c.n_knots; ++j) EXPECT_EQ((*c.mults)[j], 2);  // double at joins
        sample(c, [&](double, const V_POINT& p) {
            EXPECT_NEAR(dist(p, f.c), r, 1e-12 * r);
            EXPECT_NEAR(vdot(vsub(p, f.c), f.n), 0.0, 1e-12 * r);
        });
        EXPECT_NEAR(total_turn(c, f, +1), sweep, 1e-9);
        expect_ends(c, arc.start, arc.end, 1e-12 * r);
    }
}

TEST(CreateFromArc, NegativeRadius_SamePointsFromEndToStart)
{
    const Frame f;
    const V_POINT s = at(f.c, f.e1, 2.0, f.e2, 0.0), e = at(f.c, f.e1, 0.0, f.e2, -2.0);
    CNurbs c;
    ASSERT_EQ(c.CreateFromArc(V_ARC{f.c, -2.0, f.n, s, e}), st::ok);
    // Positive, this arc would run 270 degrees counter-clockwise from s to e; negative, it
    // runs from e back to s clockwise over the same points.
    expect_ends(c, e, s, 1e-12);
    EXPECT_NEAR(total_turn(c, f, -1), -1.5 * kPi, 1e-9);
    sample(c, [&](double, const V_POINT& p) {
        const double a = angle_in(f, p);  // the 270-degree sweep avoids (-90, 0) degrees
        EXPECT_FALSE(a < -kPi / 2 + 1e-9 && a > 1e-9) << a;
        EXPECT_NEAR(dist(p, f.c), 2.0, 2e-12);
    });
}

TEST(CreateFromArc, DegenerateInput_110AndCurveUnchanged)
{
    const Frame f;
    const V_POINT s = at(f.c, f.e1, 1.0, f.e2, 0.0), e = at(f.c, f.e1, 0.0, f.e2, 1.0);
    const V_POINT off = at(f.c, f.e1, 1.001, f.e2, 0.0);
    V_POINT lifted = s;
    lifted.x += 1e-4 * f.n.x, lifted.y += 1e-4 * f.n.y, lifted.z += 1e-4 * f.n.z;
    const V_ARC bad[] = {{f.c, 0.0, f.n, f.c, f.c},
                         {f.c, 1.0, {0, 0, 0}, s, e},
                         {f.c, 1.0, f.n, off, e},
                         {f.c, 1.0, f.n, s, lifted},
                         {f.c, std::nan(""), f.n, s, e}};
    CNurbs c = segment_curve();
    const auto before = snapshot(c);
    for (const V_ARC& a : bad) {
        EXPECT_EQ(c.CreateFromArc(a), st::bad_input);
        EXPECT_EQ(snapshot(c), before);
    }
}

TEST(CreateFromCircle, FullTurnFromWorldX_CounterClockwiseOrByNegativeRadiusClockwise)
{
    CNurbs c;
    ASSERT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, 3.0, {0, 0, 2}}), st::ok);
    expect_conic(c, 1, 9, 1);
    // The documented start: centre + radius along world X; the end closes on it.
    expect_ends(c, {4, 1, 0}, {4, 1, 0}, 1e-12);
    Frame z;
    z.c = {1, 1, 0};
    z.n = {0, 0, 1};
    z.e1 = {1, 0, 0};
    z.e2 = {0, 1, 0};
    EXPECT_NEAR(total_turn(c, z, +1), 2 * kPi, 1e-9);
    sample(c, [&](double, const V_POINT& p) { EXPECT_NEAR(dist(p, z.c), 3.0, 3e-12); });

    ASSERT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, -3.0, {0, 0, 1}}), st::ok);
    EXPECT_NEAR(total_turn(c, z, -1), -2 * kPi, 1e-9);
    EXPECT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, 1e-9, {0, 0, 1}}), st::bad_input);
    EXPECT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, 1.0, {0, 0, 0}}), st::bad_input);
}

TEST(CreateFromArcExplicit, StartAngleAndSignedSweep)
{
    const Frame f;
    CNurbs c;
    // xdir given off-plane on purpose: only its in-plane part counts.
    const V_VECTOR xdir{f.e1.x + 3 * f.n.x, f.e1.y + 3 * f.n.y, f.e1.z + 3 * f.n.z};
    ASSERT_EQ(c.Create_From_Arc(f.c, 2.0, f.n, xdir, 0.5, -200 * kDeg), st::ok);
    EXPECT_EQ(c.n_cpts, 7);  // 200 degrees: three pieces
    expect_ends(c, circle_point(f, 2.0, 0.5), circle_point(f, 2.0, 0.5 - 200 * kDeg), 1e-12);
    EXPECT_NEAR(total_turn(c, f, -1), -200 * kDeg, 1e-9);

    ASSERT_EQ(c.Create_From_Circle(f.c, 2.0, f.n, f.e2), st::ok);
    expect_conic(c, 1, 9, 1);
    expect_ends(c, circle_point(f, 2.0, kPi / 2), circle_point(f, 2.0, kPi / 2), 1e-12);
    EXPECT_NEAR(total_turn(c, f, +1), 2 * kPi, 1e-9);

    EXPECT_EQ(c.Create_From_Arc(f.c, 2.0, f.n, f.n, 0.0, 1.0), st::bad_input);  // xdir along n
    EXPECT_EQ(c.Create_From_Arc(f.c, 2.0, f.n, f.e1, 0.0, 0.0), st::bad_input);
    EXPECT_EQ(c.Create_From_Arc(f.c, 2.0, f.n, f.e1, 0.0, 7.0), st::bad_input);
    EXPECT_EQ(c.Create_From_Arc(f.c, -2.0, f.n, f.e1, 0.0, 1.0), st::bad_input);
}

// --- ellipses ---

TEST(CreateFromEllipse, FullTurnOnTheEllipse)
{
    const Frame f;
    CNurbs c;
    ASSERT_EQ(c.CreateFromEllipse(V_ELLIPSE{f.c, f.e1, f.e2, 5.0, 2.0}), st::ok);
    expect_conic(c, 3, 9, 1);
    sample(c, [&](double, const V_POINT& p) {
        const V_VECTOR d = vsub(p, f.c);
        const double x = vdot(d, f.e1) / 5.0, y = vdot(d, f.e2) / 2.0;
        EXPECT_NEAR(x * x + y * y, 1.0, 1e-12);
        EXPECT_NEAR(vdot(d, f.n), 0.0, 5e-12);
    });
    EXPECT_NEAR(total_turn(c, f, +1), 2 * kPi, 1e-9);
    expect_ends(c, at(f.c, f.e1, 5.0, f.e2, 0.0), at(f.c, f.e1, 5.0, f.e2, 0.0), 1e-12);

    EXPECT_EQ(c.CreateFromEllipse(V_ELLIPSE{f.c, f.e1, f.e2, 0.0, 2.0}), st::bad_input);
    EXPECT_EQ(c.CreateFromEllipse(V_ELLIPSE{f.c, f.e1, f.e1, 5.0, 2.0}), st::bad_input);
}

TEST(CreateFromEllipticalArc, PolarAngleEnds_PiecesAndMonotonicSweep)
{
    const Frame f;
    const double a = 5.0, b = 2.0;
    const V_ELLIPSE el{f.c, f.e1, f.e2, a, b};
    // Point at polar angle t, written out here: r = a b / sqrt(b^2 cos^2 t + a^2 sin^2 t).
    const auto polar = [&](double t) {
        const double r =
            a * b /
            std::sqrt(b * b * std::cos(t) * std::cos(t) + a * a * std::sin(t) * std::sin(t));
        return at(f.c, f.e1, r * std::cos(t), f.e2, r * std::sin(t));
    };
    // From polar angle 0 the eccentric and polar sweeps agree at 90, 180 and 270 degrees;
    // 91 polar degrees are more than 90 eccentric ones. The last case starts off the axes.
    struct Case {
        double t0, t1;
        int k;
    };
    const Case cases[] = {{0, 30, 1},  {0, 90, 1},  {0, 91, 2},  {0, 180, 2},
                          {0, 270, 3}, {40, 40, 4}, {40, 300, 3}};
    for (const Case& cs : cases) {
        const double t0 = cs.t0 * kDeg, t1 = cs.t1 * kDeg;
        const V_ELLIPTICALARC arc{el, polar(t0), polar(t1)};
        CNurbs c;
        ASSERT_EQ(c.CreateFromEllipticalArc(arc), st::ok) << cs.t1;
        expect_conic(c, 3, 2 * cs.k + 1, cs.t1 == cs.t0 ? 1 : 0);
        sample(c, [&](double, const V_POINT& p) {
            const V_VECTOR d = vsub(p, f.c);
            const double x = vdot(d, f.e1) / a, y = vdot(d, f.e2) / b;
            EXPECT_NEAR(x * x + y * y, 1.0, 1e-12);
        });
        const double sweep = cs.t1 == cs.t0 ? 360 * kDeg : t1 - t0;
        EXPECT_NEAR(total_turn(c, f, +1), sweep, 1e-9);
        expect_ends(c, arc.start, arc.end, 1e-12 * a);
    }
    CNurbs c;
    EXPECT_EQ(c.CreateFromEllipticalArc({el, at(f.c, f.e1, 4.0, f.e2, 0.0), polar(1.0)}),
              st::bad_input);
    V_POINT lifted = polar(1.0);  // right polar place, but 1e-4 off the plane
    lifted.x += 1e-4 * f.n.x, lifted.y += 1e-4 * f.n.y, lifted.z += 1e-4 * f.n.z;
    EXPECT_EQ(c.CreateFromEllipticalArc({el, polar(0.2), lifted}), st::bad_input);
}

// --- parabola and hyperbola ---

TEST(CreateParabola, SamplesOnYEqualsXSquared)
{
    const Frame f;
    // y = x^2 in the frame (e1, e2) from x = -1 to 2: the end tangents meet at
    // ((x0 + x1) / 2, x0 x1).
    const double x0 = -1.0, x1 = 2.0;
    CNurbs c;
    ASSERT_EQ(c.CreateParabola(at(f.c, f.e1, x0, f.e2, x0 * x0),
                               at(f.c, f.e1, 0.5 * (x0 + x1), f.e2, x0 * x1),
                               at(f.c, f.e1, x1, f.e2, x1 * x1)),
              st::ok);
    expect_conic(c, 2, 3, 0);
    double prev_x = -HUGE_VAL;
    sample(c, [&](double, const V_POINT& p) {
        const V_VECTOR d = vsub(p, f.c);
        const double x = vdot(d, f.e1), y = vdot(d, f.e2);
        EXPECT_NEAR(y, x * x, 1e-12 * 4);
        EXPECT_NEAR(vdot(d, f.n), 0.0, 1e-12 * 4);
        EXPECT_GT(x, prev_x);
        prev_x = x;
    });
    EXPECT_LE(dist(eval(c, 1.0), at(f.c, f.e1, x1, f.e2, x1 * x1)), 1e-12);
    const V_POINT p{0, 0, 0}, q{1, 1, 1}, mid{0.5, 0.5, 0.5};
    EXPECT_EQ(c.CreateParabola(p, mid, q), st::bad_input);  // collinear
    EXPECT_EQ(c.CreateParabola(p, mid, p), st::bad_input);  // closed chord
}

TEST(CreateHyperbola, SamplesOnTheBranchInPieces)
{
    const Frame f;
    const double a = 2.0, b = 1.0, t0 = -1.5, t1 = 3.5;
    CNurbs c;
    ASSERT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, a, b, t0, t1), st::ok);
    expect_conic(c, 4, 7, 0);  // a range of 5 in t: three pieces of at most 2
    double prev_y = -HUGE_VAL;
    sample(c, [&](double, const V_POINT& p) {
        const V_VECTOR d = vsub(p, f.c);
        const double x = vdot(d, f.e1) / a, y = vdot(d, f.e2) / b;
        EXPECT_NEAR(x * x - y * y, 1.0, 1e-12 * x * x);
        EXPECT_GT(x, 0.0);
        EXPECT_GT(y, prev_y);
        prev_y = y;
    });
    expect_ends(c, at(f.c, f.e1, a * std::cosh(t0), f.e2, b * std::sinh(t0)),
                at(f.c, f.e1, a * std::cosh(t1), f.e2, b * std::sinh(t1)),
                1e-12 * a * std::cosh(t1));
    EXPECT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, a, b, 1.0, 1.0), st::bad_input);
    EXPECT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, a, b, 0.0, 60.0), st::bad_input);
    EXPECT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, -a, b, 0.0, 1.0), st::bad_input);
}

// --- straight curves ---

TEST(CreateFromPolyline, ThroughEachPointAtChordLength_SkipsHolesAndRepeats)
{
    List<V_POINT> pts = points({{0, 0, 0}, {9, 9, 9}, {3, 4, 0}, {3, 4, 0}, {3, 4, 12}, {0, 0, 0}});
    pts.Delete(2);  // a hole
    CNurbs c;
    ASSERT_EQ(c.CreateFromPolyline(pts), st::ok);
    EXPECT_EQ(c.order, 2);
    EXPECT_EQ(c.n_cpts, 4);
    EXPECT_EQ(c.closed, 1);
    // Legs 5, 12 and 13: the points sit at parameters 0, 5, 17 and 30.
    const double u[] = {0, 5, 17, 30};
    const V_POINT kept[] = {{0, 0, 0}, {3, 4, 0}, {3, 4, 12}, {0, 0, 0}};
    for (int i = 0; i < 4; ++i) EXPECT_LE(dist(eval(c, u[i]), kept[i]), 1e-12);
    EXPECT_LE(dist(eval(c, 11.0), V_POINT{3, 4, 6}), 1e-12);  // halfway along the second leg

    EXPECT_EQ(c.CreateFromPolyline(points({{1, 1, 1}})), st::bad_input);
    EXPECT_EQ(c.CreateFromPolyline(points({{1, 1, 1}, {1, 1, 1 + 1e-10}})), st::bad_input);
    EXPECT_EQ(c.n_cpts, 4);  // unchanged
}

TEST(CreateFromSegmentAndPoint, TwoPointOrderTwoCurves)
{
    CNurbs c;
    ASSERT_EQ(c.CreateFromSegment(V_SEGM{{1, 2, 3}, {5, 2, 0}}), st::ok);
    EXPECT_LE(dist(eval(c, 0.5), V_POINT{3, 2, 1.5}), 1e-15);
    EXPECT_LE(dist(eval(c, 1.0), V_POINT{5, 2, 0}), 0.0);
    EXPECT_EQ(c.CreateFromSegment(V_SEGM{{1, 2, 3}, {1, 2, 3}}), st::bad_input);

    ASSERT_EQ(c.CreateFromParametricSegment(V_POINT2D{0.25, 0.5}, V_POINT2D{0.75, 0.0}), st::ok);
    EXPECT_EQ(c.parametric, 1);
    EXPECT_EQ(c.vpp, 2);
    double uv[3] = {0, 0, 0};
    ASSERT_EQ(c.Eval(0.5, nullptr, uv), st::ok);
    EXPECT_DOUBLE_EQ(uv[0], 0.5);
    EXPECT_DOUBLE_EQ(uv[1], 0.25);
    EXPECT_EQ(c.CreateFromParametricSegment(V_POINT2D{1, 1}, V_POINT2D{1, 1}), st::bad_input);

    ASSERT_EQ(c.Create_From_Point(V_POINT{7, 8, 9}), st::ok);
    EXPECT_EQ(c.n_cpts, 2);
    EXPECT_EQ(c.parametric, 0);
    EXPECT_LE(dist(eval(c, 0.3), V_POINT{7, 8, 9}), 0.0);
    EXPECT_EQ(c.Create_From_Point(V_POINT{HUGE_VAL, 0, 0}), st::bad_input);
}

// --- control-point creators ---

TEST(CreateFromPoints, ClampedUniformKnotsMatchDeBoor)
{
    const List<V_POINT> pts = points({{0, 0, 0}, {1, 2, 0}, {3, 3, 1}, {4, 0, 2}, {6, 1, 0}});
    CNurbs c;
    ASSERT_EQ(c.Create_From_Points(pts, 3), st::ok);
    ASSERT_EQ(c.n_knots, 4);
    EXPECT_DOUBLE_EQ((*c.knots)[2], 1.0 / 3.0);
    const std::vector<double> U{0, 0, 0, 1.0 / 3, 2.0 / 3, 1, 1, 1};
    std::vector<std::array<double, 4>> P;
    for (uint32_t i = 1; i <= 5; ++i) P.push_back({pts[i].x, pts[i].y, pts[i].z, 1.0});
    sample(c, [&](double t, const V_POINT& p) { EXPECT_LE(dist(p, deboor(3, U, P, t)), 1e-13); });
    EXPECT_LE(dist(eval(c, 1.0), pts[5]), 1e-15);
    EXPECT_EQ(c.Create_From_Points(pts, 6), st::bad_input);
    EXPECT_EQ(c.Create_From_Points(pts, 0), st::bad_input);
}

TEST(CreateFromCpts, RationalCurveMatchesDeBoor_ValidationCodes)
{
    const List<V_POINT> pts = points({{0, 0, 0}, {1, 2, 0}, {3, 3, 1}, {4, 0, 2}, {6, 1, 0}});
    const List<double> w = list_of<double>({1.0, 2.0, 0.5, 3.0, 1.0});
    const List<double> values = list_of<double>({0.0, 0.4, 2.0});
    const List<int> mult = list_of<int>({3, 2, 3});
    CNurbs c;
    ASSERT_EQ(c.Create_From_Cpts(3, pts, &w, values, mult), st::ok);
    EXPECT_EQ(c.rational, 1);
    const std::vector<double> U{0, 0, 0, 0.4, 0.4, 2, 2, 2};
    std::vector<std::array<double, 4>> P;
    for (uint32_t i = 1; i <= 5; ++i)
        P.push_back({pts[i].x * w[i], pts[i].y * w[i], pts[i].z * w[i], w[i]});
    sample(c, [&](double t, const V_POINT& p) { EXPECT_LE(dist(p, deboor(3, U, P, t)), 1e-13); });

    const auto before = snapshot(c);
    const List<double> low = list_of<double>({1.0, 2.0, 0.0, 3.0, 1.0});
    const List<double> four = list_of<double>({1.0, 2.0, 0.5, 3.0});
    EXPECT_EQ(c.Create_From_Cpts(3, pts, &low, values, mult), st::low_weight);
    EXPECT_EQ(c.Create_From_Cpts(3, pts, &four, values, mult), st::bad_input);
    EXPECT_EQ(c.Create_From_Cpts(3, pts, nullptr, values, list_of<int>({3, 1, 3})), st::bad_input);
    EXPECT_EQ(c.Create_From_Cpts(3, pts, nullptr, values, list_of<int>({4, 1, 3})), st::bad_input);
    EXPECT_EQ(c.Create_From_Cpts(3, pts, nullptr, list_of<double>({0.0, 2.0, 0.4}), mult),
              st::bad_input);
    EXPECT_EQ(c.Create_From_Cpts(3, pts, nullptr, list_of<double>({0.0, 1e-12, 2.0}), mult),
              st::bad_input);
    // Order 2 on knots 0 | 0.5 0.5 | 1: linear knots 2 and 3 coincide, an empty range.
    const List<V_POINT> two = points({{0, 0, 0}, {1, 0, 0}});
    EXPECT_EQ(c.Create_From_Cpts(2, two, nullptr, values, list_of<int>({1, 2, 1})), st::bad_input);
    List<V_POINT> holed = pts;
    holed.Delete(3);
    EXPECT_EQ(c.Create_From_Cpts(3, holed, nullptr, values, mult), st::bad_input);
    EXPECT_EQ(snapshot(c), before);
}

TEST(CreateByCpts, LinearKnotsGroupedIntoRuns)
{
    const List<V_POINT> pts = points({{0, 0, 0}, {1, 2, 0}, {3, 3, 1}, {4, 0, 2}, {6, 1, 0}});
    CNurbs c;
    ASSERT_EQ(
        c.Create_By_Cpts(3, pts, nullptr, list_of<double>({0, 0, 0, 0.5, 0.5 + 5e-12, 1, 1, 1})),
        st::ok);
    ASSERT_EQ(c.n_knots, 3);
    EXPECT_EQ((*c.mults)[1], 3);
    EXPECT_EQ((*c.mults)[2], 2);
    EXPECT_EQ((*c.mults)[3], 3);
    EXPECT_EQ((*c.knots)[2], 0.5);
    EXPECT_EQ(c.Create_By_Cpts(3, pts, nullptr, list_of<double>({0, 0, 0, 0.6, 0.5, 1, 1, 1})),
              st::bad_input);
    EXPECT_EQ(c.Create_By_Cpts(3, pts, nullptr, list_of<double>({0, 0, 0, 1, 1, 1})),
              st::bad_input);
}

TEST(CreateBezierCurve, FrameEndsAndDeCasteljauMidpoint)
{
    CNurbs c;
    ASSERT_EQ(c.Create_Bezier_Curve(5), st::ok);
    EXPECT_EQ(c.n_cpts, 5);
    EXPECT_EQ((*c.mults)[1], 5);
    EXPECT_EQ(c.Create_Bezier_Curve(1), st::bad_input);

    const List<V_POINT> pts = points({{0, 0, 0}, {1, 3, 0}, {4, 3, 2}, {5, 0, 0}});
    ASSERT_EQ(c.Create_Bezier_Curve(pts), st::ok);
    EXPECT_EQ(c.order, 4);
    EXPECT_LE(dist(eval(c, 0.0), pts[1]), 0.0);
    EXPECT_LE(dist(eval(c, 1.0), pts[4]), 1e-15);
    // Cubic midpoint: (P0 + 3 P1 + 3 P2 + P3) / 8.
    EXPECT_LE(dist(eval(c, 0.5), V_POINT{(0 + 3 + 12 + 5) / 8.0, 18 / 8.0, 6 / 8.0}), 1e-15);

    // A quarter of the unit circle: weights 1, sqrt(2)/2, 1 on (1,0), (1,1), (0,1).
    const double h = std::sqrt(0.5);
    const List<V_POINT> q = points({{1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    ASSERT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, h, 1.0})), st::ok);
    sample(c, [&](double, const V_POINT& p) { EXPECT_NEAR(dist(p, {0, 0, 0}), 1.0, 1e-14); });
    EXPECT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, 1e-12, 1.0})), st::low_weight);
    EXPECT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, 1.0})), st::bad_input);
}

TEST(CreateBezierFromCpts, HomogeneousValuesAsStored)
{
    const double h = std::sqrt(0.5);
    // The same quarter circle, given homogeneous: the middle point (1, 1) times its weight.
    const double q[] = {1, 0, 0, 1, h, h, 0, h, 0, 1, 0, 1};
    CNurbs c;
    ASSERT_EQ(c.Create_Bezier_From_Cpts(q, 3, 4, true), st::ok);
    EXPECT_EQ(c.rational, 1);
    sample(c, [&](double, const V_POINT& p) { EXPECT_NEAR(dist(p, {0, 0, 0}), 1.0, 1e-14); });
    const double uv[] = {0, 0, 1, 0.5, 0, 1};
    ASSERT_EQ(c.Create_Bezier_From_Cpts(uv, 3, 2, false), st::ok);
    EXPECT_EQ(c.parametric, 1);
    double m[2];
    ASSERT_EQ(c.Eval(0.5, nullptr, m), st::ok);
    EXPECT_DOUBLE_EQ(m[0], 0.5);  // (0 + 2 * 1 + 0) / 4
    EXPECT_DOUBLE_EQ(m[1], 0.5);  // (0 + 2 * 0.5 + 1) / 4
    EXPECT_EQ(c.Create_Bezier_From_Cpts(q, 3, 5, true), st::bad_input);
    EXPECT_EQ(c.Create_Bezier_From_Cpts(nullptr, 3, 4, true), st::bad_input);
    const double low[] = {1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 1};
    EXPECT_EQ(c.Create_Bezier_From_Cpts(low, 3, 4, true), st::low_weight);
}

TEST(CreateBlending, G1CubicWithGivenEndDerivatives)
{
    CNurbs a, b, c;
    ASSERT_EQ(a.CreateFromSegment(V_SEGM{{0, 0, 0}, {1, 0, 0}}), st::ok);
    ASSERT_EQ(b.CreateFromSegment(V_SEGM{{3, 1, 0}, {3, 2, 0}}), st::ok);
    ASSERT_EQ(c.Create_Blending(a, b, 2.0, 3.0), st::ok);
    V_POINT p{};
    V_VECTOR d{};
    ASSERT_EQ(c.Eval(0.0, nullptr, &p, &d), st::ok);
    EXPECT_LE(dist(p, {1, 0, 0}), 0.0);
    EXPECT_NEAR(d.x, 2.0, 1e-14);
    EXPECT_NEAR(d.y, 0.0, 1e-14);
    ASSERT_EQ(c.Eval(1.0, nullptr, &p, &d), st::ok);
    EXPECT_LE(dist(p, {3, 1, 0}), 1e-15);
    EXPECT_NEAR(d.x, 0.0, 1e-14);
    EXPECT_NEAR(d.y, 3.0, 1e-14);
    // The blend may replace one of its own inputs.
    ASSERT_EQ(a.Create_Blending(a, b, 1.0, 1.0), st::ok);
    EXPECT_EQ(a.order, 4);
    CNurbs empty;
    EXPECT_EQ(c.Create_Blending(empty, b, 1.0, 1.0), st::bad_input);
    EXPECT_EQ(c.Create_Blending(a, b, 0.0, 1.0), st::bad_input);
}

// --- allocation failures ---

TEST(CreateAllocationFailure, EveryStep_115CurveUnchangedNothingLeaks)
{
    const Frame f;
    const List<V_POINT> pts = points({{0, 0, 0}, {1, 2, 0}, {3, 3, 1}, {4, 0, 2}, {6, 1, 0}});
    const List<double> w = list_of<double>({1.0, 2.0, 0.5, 3.0, 1.0});
    const List<double> lin = list_of<double>({0, 0, 0, 0.5, 0.5, 1, 1, 1});
    const double q[] = {1, 0, 0, 1, 1, 1, 0, 1, 0, 1, 0, 1};
    CNurbs a = segment_curve(), b = segment_curve();
    const std::vector<std::function<short(CNurbs&)>> creators = {
        [&](CNurbs& c) {
            return c.CreateFromArc(
                {f.c, 1, f.n, at(f.c, f.e1, 1, f.e2, 0), at(f.c, f.e1, -1, f.e2, 0)});
        },
        [&](CNurbs& c) {
            return c.CreateFromCircle({f.c, 1, f.n});
        },
        [&](CNurbs& c) {
            return c.CreateFromEllipse({f.c, f.e1, f.e2, 3, 1});
        },
        [&](CNurbs& c) { return c.CreateHyperbola(f.c, f.e1, f.e2, 1, 1, 0, 5); },
        [&](CNurbs& c) {
            return c.CreateParabola({0, 0, 0}, {1, 1, 0}, {2, 0, 0});
        },
        [&](CNurbs& c) { return c.CreateFromPolyline(pts); },
        [&](CNurbs& c) {
            return c.CreateFromParametricSegment({0, 0}, {1, 1});
        },
        [&](CNurbs& c) { return c.Create_From_Points(pts, 4); },
        [&](CNurbs& c) { return c.Create_By_Cpts(3, pts, &w, lin); },
        [&](CNurbs& c) { return c.Create_Bezier_Curve(pts, w); },
        [&](CNurbs& c) { return c.Create_Bezier_Curve(7); },
        [&](CNurbs& c) { return c.Create_Bezier_From_Cpts(q, 3, 4, true); },
        [&](CNurbs& c) { return c.Create_Blending(a, b, 1, 1); },
    };
    for (size_t i = 0; i < creators.size(); ++i) {
        bool done = false;
        int failures = 0;
        for (long n = 0; n < 64 && !done; ++n) {
            CNurbs c = segment_curve();
            const auto before = snapshot(c);
            const long live = v_memptr_live_count();
            v_memptr_fail_after(n);
            const short rc = creators[i](c);
            v_memptr_fail_after(-1);
            if (rc == st::ok) {
                done = true;
                continue;
            }
            ++failures;
            EXPECT_EQ(rc, st::no_memory) << "creator " << i << " after " << n;
            EXPECT_EQ(snapshot(c), before) << "creator " << i;
            EXPECT_EQ(v_memptr_live_count(), live) << "creator " << i;
        }
        EXPECT_TRUE(done) << "creator " << i;
        EXPECT_GT(failures, 0) << "creator " << i;  // every creator allocates
    }
}
