// Curve creators checked against independent geometry: samples through Eval lie on the
// analytic figure (circle, ellipse, parabola, hyperbola) to 1e-12 relative, the ends are the
// given points, angles advance one way; spline creators are compared with the plain de Boor
// evaluator of curve_support.h.
#include "curve_support.h"
#include "io_support.h"
#include <array>
#include <iterator>

using curvetest::list_of;
using I = std::vector<int>;
using D = std::vector<double>;

namespace {

const double kPi = std::acos(-1.0);
const double kDeg = kPi / 180.0;

double dist(const V_POINT& a, const V_POINT& b)
{
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

// A tilted orthonormal frame: normal n = (1, 2, 2) / 3, in-plane e1 = n x Z / |n x Z| =
// (2, -1, 0) / sqrt 5, e2 = n x e1.
struct Frame {
    V_POINT c{1.5, -2.0, 0.75};
    V_VECTOR n{1 / 3.0, 2 / 3.0, 2 / 3.0};
    V_VECTOR e1{2 / std::sqrt(5.0), -1 / std::sqrt(5.0), 0};
    V_VECTOR e2{2 / std::sqrt(45.0), 4 / std::sqrt(45.0), -5 / std::sqrt(45.0)};
    V_POINT at(double s1, double s2, double h = 0.0) const  // c + s1 e1 + s2 e2 + h n
    {
        return {c.x + s1 * e1.x + s2 * e2.x + h * n.x, c.y + s1 * e1.y + s2 * e2.y + h * n.y,
                c.z + s1 * e1.z + s2 * e2.z + h * n.z};
    }
    // The coordinates of p along e1, e2 and n.
    std::array<double, 3> coords(const V_POINT& p) const
    {
        const auto along = [&](const V_VECTOR& v) {
            return (p.x - c.x) * v.x + (p.y - c.y) * v.y + (p.z - c.z) * v.z;
        };
        return {along(e1), along(e2), along(n)};
    }
};

V_POINT eval(const CNurbs& c, double t)
{
    V_POINT p{};
    EXPECT_EQ(c.Eval(t, nullptr, &p), st::ok) << t;
    return p;
}

// check(point) at 241 parameters over the whole range, the last exactly at its end.
template <class F> void sample(const CNurbs& c, F check)
{
    const double t0 = (*c.knots)[1], t1 = (*c.knots)[uint32_t(c.n_knots)];
    for (int i = 0; i <= 240; ++i) check(eval(c, i == 240 ? t1 : t0 + (t1 - t0) * i / 240));
}

// The total turn of the samples about f.n, unwrapped; every step must turn with sense.
double total_turn(const CNurbs& c, const Frame& f, int sense)
{
    double prev = 0.0, total = 0.0;
    bool first = true;
    sample(c, [&](const V_POINT& p) {
        const std::array<double, 3> q = f.coords(p);
        const double a = std::atan2(q[1], q[0]);
        if (!first) {
            const double step = std::remainder(a - prev, 2.0 * kPi);
            EXPECT_GT(sense * step, 0.0);
            total += step;
        }
        prev = a;
        first = false;
    });
    return total;
}

// Conic layout: form, order 3, rational, n control points, (n + 1) / 2 knots, closed flag,
// and the ends p0 and p1 within tol (0: exactly, for ends given as points).
void expect_conic(const CNurbs& c, int form, int n_cpts, int closed, const V_POINT& p0,
                  const V_POINT& p1, double tol = 0.0)
{
    EXPECT_EQ((I{c.form, c.order, c.rational, c.n_cpts, c.n_knots, c.closed}),
              (I{form, 3, 1, n_cpts, (n_cpts + 1) / 2, closed}));
    EXPECT_LE(dist(eval(c, (*c.knots)[1]), p0), tol);
    EXPECT_LE(dist(eval(c, (*c.knots)[uint32_t(c.n_knots)]), p1), tol);
}

CNurbs segment_curve()
{
    CNurbs c;
    EXPECT_EQ(c.CreateFromSegment(V_SEGM{{0, 0, 0}, {1, 1, 1}}), st::ok);
    return c;
}

const List<V_POINT> kPts =
    list_of<V_POINT>({{0, 0, 0}, {1, 2, 0}, {3, 3, 1}, {4, 0, 2}, {6, 1, 0}});

}  // namespace

// --- circles and arcs ---

TEST(CreateFromArc, Sweeps_ExactCircleQuarterPiecesMonotonic)
{
    const Frame f;
    const double r = 2.5, a0 = 0.3;
    const std::pair<double, int> cases[] = {{30, 1},  {90, 1},  {91, 2},
                                            {180, 2}, {270, 3}, {360, 4}};
    for (const auto& [deg, k] : cases) {  // sweep in degrees, pieces of at most a quarter turn
        const double sweep = deg * kDeg, a1 = deg == 360 ? a0 : a0 + sweep;
        const V_ARC arc{f.c, r, f.n, f.at(r * std::cos(a0), r * std::sin(a0)),
                        f.at(r * std::cos(a1), r * std::sin(a1))};
        CNurbs c;
        ASSERT_EQ(c.CreateFromArc(arc), st::ok) << deg;
        expect_conic(c, 1, 2 * k + 1, deg == 360, arc.start, arc.end);
        for (int j = 2; j < c.n_knots; ++j) EXPECT_EQ((*c.mults)[j], 2);  // double at joins
        sample(c, [&](const V_POINT& p) {
            EXPECT_NEAR(dist(p, f.c), r, 1e-12 * r);
            EXPECT_NEAR(f.coords(p)[2], 0.0, 1e-12 * r);
        });
        EXPECT_NEAR(total_turn(c, f, +1), sweep, 1e-9);
    }
    // Negative radius: positive, this arc would run 270 degrees counter-clockwise from s to
    // e; negative, it runs from e back to s clockwise over the same points.
    const V_POINT s = f.at(2, 0), e = f.at(0, -2);
    CNurbs c;
    ASSERT_EQ(c.CreateFromArc(V_ARC{f.c, -2.0, f.n, s, e}), st::ok);
    expect_conic(c, 1, 7, 0, e, s);
    EXPECT_NEAR(total_turn(c, f, -1), -1.5 * kPi, 1e-9);
    sample(c, [&](const V_POINT& p) { EXPECT_NEAR(dist(p, f.c), 2.0, 2e-12); });
    const V_POINT s1 = f.at(1, 0), e1 = f.at(0, 1);
    const V_ARC bad[] = {{f.c, 0.0, f.n, f.c, f.c},
                         {f.c, 1.0, {0, 0, 0}, s1, e1},
                         {f.c, 1.0, f.n, f.at(1.001, 0), e1},
                         {f.c, 1.0, f.n, s1, f.at(1, 0, 1e-4)},
                         {f.c, std::nan(""), f.n, s1, e1}};
    const testsupport::Bytes before = testsupport::record_of(c);
    for (const V_ARC& a : bad) EXPECT_EQ(c.CreateFromArc(a), st::bad_input);
    EXPECT_EQ(testsupport::record_of(c), before);
}

TEST(CreateFromCircle, FullTurnsFromTheGivenStart)
{
    const Frame z{{1, 1, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
    CNurbs c;
    ASSERT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, 3.0, {0, 0, 2}}), st::ok);
    expect_conic(c, 1, 9, 1, {4, 1, 0}, {4, 1, 0}, 1e-12);  // centre + radius along world X
    EXPECT_NEAR(total_turn(c, z, +1), 2 * kPi, 1e-9);
    sample(c, [&](const V_POINT& p) { EXPECT_NEAR(dist(p, z.c), 3.0, 3e-12); });
    ASSERT_EQ(c.CreateFromCircle(V_CIRCLE{{1, 1, 0}, -3.0, {0, 0, 1}}), st::ok);
    EXPECT_NEAR(total_turn(c, z, -1), -2 * kPi, 1e-9);
    for (const V_CIRCLE& bad : {V_CIRCLE{{1, 1, 0}, 1e-9, {0, 0, 1}}, {{1, 1, 0}, 1, {0, 0, 0}}})
        EXPECT_EQ(c.CreateFromCircle(bad), st::bad_input);

    // Explicit data: xdir off the plane on purpose, only its in-plane part counts.
    const Frame f;
    const V_POINT tip = f.at(1, 0, 3);
    const V_VECTOR xdir{tip.x - f.c.x, tip.y - f.c.y, tip.z - f.c.z};
    const auto on = [&](double a) { return f.at(2 * std::cos(a), 2 * std::sin(a)); };
    ASSERT_EQ(c.Create_From_Arc(f.c, 2.0, f.n, xdir, 0.5, -200 * kDeg), st::ok);
    expect_conic(c, 1, 7, 0, on(0.5), on(0.5 - 200 * kDeg), 1e-12);  // 200 degrees: 3 pieces
    EXPECT_NEAR(total_turn(c, f, -1), -200 * kDeg, 1e-9);
    ASSERT_EQ(c.Create_From_Circle(f.c, 2.0, f.n, f.e2), st::ok);
    expect_conic(c, 1, 9, 1, on(kPi / 2), on(kPi / 2), 1e-12);
    EXPECT_NEAR(total_turn(c, f, +1), 2 * kPi, 1e-9);
    // xdir along n, no sweep, more than a turn, negative radius
    const std::array<double, 4> bad[] = {{2, 0, 1, 1}, {2, 0, 0, 0}, {2, 0, 7, 0}, {-2, 0, 1, 0}};
    for (const auto& [r, a0, sw, along_n] : bad)
        EXPECT_EQ(c.Create_From_Arc(f.c, r, f.n, along_n ? f.n : f.e1, a0, sw), st::bad_input)
            << sw;
}

// --- ellipses, parabola, hyperbola ---

TEST(CreateFromEllipse, FullTurnsAndArcsOnTheEllipse)
{
    const Frame f;
    const double a = 5.0, b = 2.0;
    const V_ELLIPSE el{f.c, f.e1, f.e2, a, b};
    const auto on_ellipse = [&](const V_POINT& p) {
        const std::array<double, 3> q = f.coords(p);
        EXPECT_NEAR(q[0] * q[0] / (a * a) + q[1] * q[1] / (b * b), 1.0, 1e-12);
        EXPECT_NEAR(q[2], 0.0, 5e-12);
    };
    CNurbs c;
    ASSERT_EQ(c.CreateFromEllipse(el), st::ok);
    expect_conic(c, 3, 9, 1, f.at(a, 0), f.at(a, 0), 1e-12);
    sample(c, on_ellipse);
    EXPECT_NEAR(total_turn(c, f, +1), 2 * kPi, 1e-9);
    EXPECT_EQ(c.CreateFromEllipse(V_ELLIPSE{f.c, f.e1, f.e2, 0.0, 2.0}), st::bad_input);
    EXPECT_EQ(c.CreateFromEllipse(V_ELLIPSE{f.c, f.e1, f.e1, 5.0, 2.0}), st::bad_input);

    // Point at polar angle t: r = a b / sqrt(b^2 cos^2 t + a^2 sin^2 t). From polar angle 0
    // the eccentric and polar sweeps agree at 90, 180 and 270 degrees; 91 polar degrees are
    // more than 90 eccentric ones. The last two cases start off the axes.
    const auto polar = [&](double t, double h = 0.0) {
        const double r = a * b / std::hypot(b * std::cos(t), a * std::sin(t));
        return f.at(r * std::cos(t), r * std::sin(t), h);
    };
    const std::array<double, 3> cases[] = {{0, 30, 1},  {0, 90, 1},  {0, 91, 2},  {0, 180, 2},
                                           {0, 270, 3}, {40, 40, 4}, {40, 300, 3}};
    for (const auto& [d0, d1, k] : cases) {
        const V_ELLIPTICALARC arc{el, polar(d0 * kDeg), polar(d1 * kDeg)};
        ASSERT_EQ(c.CreateFromEllipticalArc(arc), st::ok) << d1;
        expect_conic(c, 3, 2 * int(k) + 1, d0 == d1, arc.start, arc.end);
        sample(c, on_ellipse);
        EXPECT_NEAR(total_turn(c, f, +1), (d0 == d1 ? 360 : d1 - d0) * kDeg, 1e-9);
    }
    EXPECT_EQ(c.CreateFromEllipticalArc({el, f.at(4.0, 0), polar(1.0)}), st::bad_input);
    EXPECT_EQ(c.CreateFromEllipticalArc({el, polar(0.2), polar(1.0, 1e-4)}),
              st::bad_input);  // the right polar place, but off the plane
}

TEST(CreateParabolaAndHyperbola, SamplesOnTheCurveInOrder)
{
    const Frame f;
    // y = x^2 in the frame from x = -1 to 2: the end tangents meet at ((x0 + x1) / 2, x0 x1).
    CNurbs c;
    ASSERT_EQ(c.CreateParabola(f.at(-1, 1), f.at(0.5, -2), f.at(2, 4)), st::ok);
    expect_conic(c, 2, 3, 0, f.at(-1, 1), f.at(2, 4));
    sample(c, [&](const V_POINT& p) {
        const std::array<double, 3> q = f.coords(p);
        EXPECT_NEAR(q[1], q[0] * q[0], 4e-12);
        EXPECT_NEAR(q[2], 0.0, 4e-12);
    });
    const V_POINT p{0, 0, 0}, q{1, 1, 1}, mid{0.5, 0.5, 0.5};
    EXPECT_EQ(c.CreateParabola(p, mid, q), st::bad_input);  // collinear
    EXPECT_EQ(c.CreateParabola(p, mid, p), st::bad_input);  // closed chord

    const double a = 2.0, b = 1.0, t0 = -1.5, t1 = 3.5;
    ASSERT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, a, b, t0, t1), st::ok);
    // A range of 5 in t: three pieces of at most 2.
    expect_conic(c, 4, 7, 0, f.at(a * std::cosh(t0), b * std::sinh(t0)),
                 f.at(a * std::cosh(t1), b * std::sinh(t1)), 1e-12 * a * std::cosh(t1));
    sample(c, [&](const V_POINT& p) {
        const std::array<double, 3> q = f.coords(p);
        const double x = q[0] / a, y = q[1] / b;
        EXPECT_NEAR(x * x - y * y, 1.0, 1e-12 * x * x);
        EXPECT_GT(x, 0.0);  // the right branch
    });
    for (const std::array<double, 3>& bad :
         {std::array<double, 3>{a, 1, 1}, {a, 0, 60}, {-a, 0, 1}})
        EXPECT_EQ(c.CreateHyperbola(f.c, f.e1, f.e2, bad[0], b, bad[1], bad[2]), st::bad_input);
}

// --- straight curves ---

TEST(CreateStraightCurves, PolylineSegmentAndPoint)
{
    List<V_POINT> pts =
        list_of<V_POINT>({{0, 0, 0}, {9, 9, 9}, {3, 4, 0}, {3, 4, 0}, {3, 4, 12}, {0, 0, 0}});
    pts.Delete(2);  // a hole; the repeated point is skipped too
    CNurbs c;
    ASSERT_EQ(c.CreateFromPolyline(pts), st::ok);
    EXPECT_EQ((I{c.order, c.n_cpts, c.closed}), (I{2, 4, 1}));
    // Legs 5, 12 and 13: the points sit at the chord lengths 0, 5, 17 and 30.
    const std::pair<double, V_POINT> at[] = {
        {0, {0, 0, 0}}, {5, {3, 4, 0}}, {11, {3, 4, 6}}, {17, {3, 4, 12}}, {30, {0, 0, 0}}};
    for (const auto& [u, p] : at) EXPECT_LE(dist(eval(c, u), p), 1e-12) << u;
    EXPECT_EQ(c.CreateFromPolyline(list_of<V_POINT>({{1, 1, 1}})), st::bad_input);
    EXPECT_EQ(c.CreateFromPolyline(list_of<V_POINT>({{1, 1, 1}, {1, 1, 1 + 1e-10}})),
              st::bad_input);
    EXPECT_EQ(c.n_cpts, 4);  // unchanged

    ASSERT_EQ(c.CreateFromSegment(V_SEGM{{1, 2, 3}, {5, 2, 0}}), st::ok);
    EXPECT_LE(dist(eval(c, 0.5), V_POINT{3, 2, 1.5}), 1e-15);
    EXPECT_EQ(dist(eval(c, 1.0), V_POINT{5, 2, 0}), 0.0);
    EXPECT_EQ(c.CreateFromSegment(V_SEGM{{1, 2, 3}, {1, 2, 3}}), st::bad_input);
    ASSERT_EQ(c.CreateFromParametricSegment(V_POINT2D{0.25, 0.5}, V_POINT2D{0.75, 0.0}), st::ok);
    double uv[2] = {0, 0};
    ASSERT_EQ(c.Eval(0.5, nullptr, uv), st::ok);
    EXPECT_EQ((D{double(c.parametric), double(c.vpp), uv[0], uv[1]}), (D{1, 2, 0.5, 0.25}));
    EXPECT_EQ(c.CreateFromParametricSegment(V_POINT2D{1, 1}, V_POINT2D{1, 1}), st::bad_input);
    ASSERT_EQ(c.Create_From_Point(V_POINT{7, 8, 9}), st::ok);
    EXPECT_EQ((I{c.n_cpts, c.parametric}), (I{2, 0}));
    EXPECT_EQ(dist(eval(c, 0.3), V_POINT{7, 8, 9}), 0.0);
    EXPECT_EQ(c.Create_From_Point(V_POINT{HUGE_VAL, 0, 0}), st::bad_input);
}

// --- control-point creators ---

TEST(CreateFromControlPoints, SplinesMatchDeBoor_ValidationCodes)
{
    CNurbs c;
    ASSERT_EQ(c.Create_From_Points(kPts, 3), st::ok);  // clamped uniform knots
    curvetest::Ref r;
    r.order = 3;
    r.T = {0, 0, 0, 1.0 / 3, 2.0 / 3, 1, 1, 1};
    for (uint32_t i = 1; i <= 5; ++i) r.Pw.insert(r.Pw.end(), {kPts[i].x, kPts[i].y, kPts[i].z});
    curvetest::expect_same_shape(c, r, 1e-14);
    EXPECT_EQ(c.Create_From_Points(kPts, 6), st::bad_input);
    EXPECT_EQ(c.Create_From_Points(kPts, 0), st::bad_input);

    const List<double> w = list_of<double>({1.0, 2.0, 0.5, 3.0, 1.0});
    const List<double> values = list_of<double>({0.0, 0.4, 2.0});
    const List<int> mult = list_of<int>({3, 2, 3});
    ASSERT_EQ(c.Create_From_Cpts(3, kPts, &w, values, mult), st::ok);
    r.vpp = 4;
    r.rational = true;
    r.T = {0, 0, 0, 0.4, 0.4, 2, 2, 2};
    r.Pw.clear();
    for (uint32_t i = 1; i <= 5; ++i)
        r.Pw.insert(r.Pw.end(), {kPts[i].x * w[i], kPts[i].y * w[i], kPts[i].z * w[i], w[i]});
    curvetest::expect_same_shape(c, r, 1e-14);
    const testsupport::Bytes before = testsupport::record_of(c);
    const List<double> low = list_of<double>({1, 2, 0, 3, 1}), four = list_of<double>({1, 2, 1, 3});
    EXPECT_EQ(c.Create_From_Cpts(3, kPts, &low, values, mult), st::low_weight);
    EXPECT_EQ(c.Create_From_Cpts(3, kPts, &four, values, mult), st::bad_input);
    for (const List<int>& m : {list_of<int>({3, 1, 3}), list_of<int>({4, 1, 3})})
        EXPECT_EQ(c.Create_From_Cpts(3, kPts, nullptr, values, m), st::bad_input);
    for (const List<double>& v : {list_of<double>({0, 2, 0.4}), list_of<double>({0, 1e-12, 2})})
        EXPECT_EQ(c.Create_From_Cpts(3, kPts, nullptr, v, mult), st::bad_input);
    // Order 2 on knots 0 | 0.5 0.5 | 1: linear knots 2 and 3 coincide, an empty range.
    EXPECT_EQ(c.Create_From_Cpts(2, list_of<V_POINT>({{0, 0, 0}, {1, 0, 0}}), nullptr, values,
                                 list_of<int>({1, 2, 1})),
              st::bad_input);
    List<V_POINT> holed = kPts;
    holed.Delete(3);
    EXPECT_EQ(c.Create_From_Cpts(3, holed, nullptr, values, mult), st::bad_input);
    EXPECT_EQ(testsupport::record_of(c), before);

    ASSERT_EQ(
        c.Create_By_Cpts(3, kPts, nullptr, list_of<double>({0, 0, 0, 0.5, 0.5 + 5e-12, 1, 1, 1})),
        st::ok);  // linear knots grouped into runs
    EXPECT_EQ(curvetest::items(*c.mults), (I{3, 2, 3}));
    EXPECT_EQ((*c.knots)[2], 0.5);
    EXPECT_EQ(c.Create_By_Cpts(3, kPts, nullptr, list_of<double>({0, 0, 0, 0.6, 0.5, 1, 1, 1})),
              st::bad_input);
    EXPECT_EQ(c.Create_By_Cpts(3, kPts, nullptr, list_of<double>({0, 0, 0, 1, 1, 1})),
              st::bad_input);
}

TEST(CreateBezier, FramesEndsMidpointsAndWeights)
{
    CNurbs c;
    ASSERT_EQ(c.Create_Bezier_Curve(5), st::ok);
    EXPECT_EQ((I{c.n_cpts, (*c.mults)[1]}), (I{5, 5}));
    EXPECT_EQ(c.Create_Bezier_Curve(1), st::bad_input);
    const List<V_POINT> pts = list_of<V_POINT>({{0, 0, 0}, {1, 3, 0}, {4, 3, 2}, {5, 0, 0}});
    ASSERT_EQ(c.Create_Bezier_Curve(pts), st::ok);
    EXPECT_EQ(c.order, 4);
    EXPECT_EQ(dist(eval(c, 0.0), pts[1]), 0.0);
    EXPECT_LE(dist(eval(c, 1.0), pts[4]), 1e-15);
    // Cubic midpoint: (P0 + 3 P1 + 3 P2 + P3) / 8.
    EXPECT_LE(dist(eval(c, 0.5), V_POINT{20 / 8.0, 18 / 8.0, 6 / 8.0}), 1e-15);
    // A quarter of the unit circle: weights 1, sqrt(2)/2, 1 on (1,0), (1,1), (0,1), given as
    // points and weights, then homogeneous.
    const double h = std::sqrt(0.5);
    const List<V_POINT> q = list_of<V_POINT>({{1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    ASSERT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, h, 1.0})), st::ok);
    sample(c, [&](const V_POINT& p) { EXPECT_NEAR(dist(p, {0, 0, 0}), 1.0, 1e-14); });
    EXPECT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, 1e-12, 1.0})), st::low_weight);
    EXPECT_EQ(c.Create_Bezier_Curve(q, list_of<double>({1.0, 1.0})), st::bad_input);
    const double hq[] = {1, 0, 0, 1, h, h, 0, h, 0, 1, 0, 1};
    ASSERT_EQ(c.Create_Bezier_From_Cpts(hq, 3, 4, true), st::ok);
    EXPECT_EQ(c.rational, 1);
    sample(c, [&](const V_POINT& p) { EXPECT_NEAR(dist(p, {0, 0, 0}), 1.0, 1e-14); });
    const double uv[] = {0, 0, 1, 0.5, 0, 1};
    ASSERT_EQ(c.Create_Bezier_From_Cpts(uv, 3, 2, false), st::ok);
    double m[2];
    ASSERT_EQ(c.Eval(0.5, nullptr, m), st::ok);
    // (0 + 2 * 1 + 0) / 4 and (0 + 2 * 0.5 + 1) / 4
    EXPECT_EQ((D{double(c.parametric), m[0], m[1]}), (D{1, 0.5, 0.5}));
    EXPECT_EQ(c.Create_Bezier_From_Cpts(hq, 3, 5, true), st::bad_input);
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
    // Ends (1,0,0) and (3,1,0), end derivatives 2 along a's direction and 3 along b's.
    const double want[2][6] = {{1, 0, 0, 2, 0, 0}, {3, 1, 0, 0, 3, 0}};
    for (int e = 0; e < 2; ++e) {
        V_POINT p{};
        V_VECTOR d{};
        ASSERT_EQ(c.Eval(e, nullptr, &p, &d), st::ok);
        const double got[6] = {p.x, p.y, p.z, d.x, d.y, d.z};
        for (int k = 0; k < 6; ++k) EXPECT_NEAR(got[k], want[e][k], 1e-14) << e << " " << k;
    }
    ASSERT_EQ(a.Create_Blending(a, b, 1.0, 1.0), st::ok);  // may replace one of its inputs
    EXPECT_EQ(a.order, 4);
    EXPECT_EQ(c.Create_Blending(CNurbs(), b, 1.0, 1.0), st::bad_input);
    EXPECT_EQ(c.Create_Blending(a, b, 0.0, 1.0), st::bad_input);
}

// --- allocation failures ---

TEST(CreateAllocationFailure, EveryStep_115CurveUnchangedNothingLeaks)
{
    const Frame f;
    const List<double> w = list_of<double>({1.0, 2.0, 0.5, 3.0, 1.0});
    const List<double> lin = list_of<double>({0, 0, 0, 0.5, 0.5, 1, 1, 1});
    const double q[] = {1, 0, 0, 1, 1, 1, 0, 1, 0, 1, 0, 1};
    const CNurbs a = segment_curve(), b = segment_curve();
    const V_ARC arc{f.c, 1, f.n, f.at(1, 0), f.at(-1, 0)};
    const V_CIRCLE circle{f.c, 1, f.n};
    const V_ELLIPSE ellipse{f.c, f.e1, f.e2, 3, 1};
    const V_POINT p0{0, 0, 0}, p1{1, 1, 0}, p2{2, 0, 0};
    const V_POINT2D u0{0, 0}, u1{1, 1};
    const std::function<short(CNurbs&)> creators[] = {
        [&](CNurbs& c) { return c.CreateFromArc(arc); },
        [&](CNurbs& c) { return c.CreateFromCircle(circle); },
        [&](CNurbs& c) { return c.CreateFromEllipse(ellipse); },
        [&](CNurbs& c) { return c.CreateHyperbola(f.c, f.e1, f.e2, 1, 1, 0, 5); },
        [&](CNurbs& c) { return c.CreateParabola(p0, p1, p2); },
        [&](CNurbs& c) { return c.CreateFromPolyline(kPts); },
        [&](CNurbs& c) { return c.CreateFromParametricSegment(u0, u1); },
        [&](CNurbs& c) { return c.Create_From_Points(kPts, 4); },
        [&](CNurbs& c) { return c.Create_By_Cpts(3, kPts, &w, lin); },
        [&](CNurbs& c) { return c.Create_Bezier_Curve(kPts, w); },
        [&](CNurbs& c) { return c.Create_Bezier_Curve(7); },
        [&](CNurbs& c) { return c.Create_Bezier_From_Cpts(q, 3, 4, true); },
        [&](CNurbs& c) { return c.Create_Blending(a, b, 1, 1); }};
    for (size_t i = 0; i < std::size(creators); ++i) {
        CNurbs c = segment_curve();  // unchanged by every failure, so it serves every try
        const testsupport::Bytes before = testsupport::record_of(c);
        int failures = 0;
        const auto attempt = [&] {
            const long live = v_memptr_live_count();
            const short rc = creators[i](c);
            failures += rc != st::ok;
            const bool kept = testsupport::record_of(c) == before && v_memptr_live_count() == live;
            EXPECT_TRUE(rc == st::ok || (rc == st::no_memory && kept)) << "creator " << i;
            return rc == st::ok;
        };
        EXPECT_TRUE(testsupport::until_allocations_suffice(64, attempt)) << "creator " << i;
        EXPECT_GT(failures, 0) << "creator " << i;  // every creator allocates
    }
}
