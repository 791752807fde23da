// Placement of elements: translation, rotation, matrices (reflections, non-uniform scaling,
// shear) and workplane conversions, checked against hand-worked images and geometric
// properties of the results.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstring>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTol = 1e-12;

#define EXPECT_PT(p, X, Y, Z)                                                                      \
    do {                                                                                           \
        EXPECT_NEAR((p).x, (X), kTol);                                                             \
        EXPECT_NEAR((p).y, (Y), kTol);                                                             \
        EXPECT_NEAR((p).z, (Z), kTol);                                                             \
    } while (0)

V_VECTOR sub(const V_POINT& a, const V_POINT& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
double dotv(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
V_VECTOR crossv(const V_VECTOR& a, const V_VECTOR& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double lenv(const V_VECTOR& a)
{
    return std::sqrt(dotv(a, a));
}

// p * M written out: row 3 the translation, divided by m33 unless it is 0 or 1.
V_POINT apply(const V_MATRIX& M, const V_POINT& p)
{
    const double(*m)[4] = M.m;
    double w = m[3][3];
    if (w == 0.0) w = 1.0;
    return {(p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0] + m[3][0]) / w,
            (p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1] + m[3][1]) / w,
            (p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2] + m[3][2]) / w};
}

// True when p lies on the arc: at the radius, in its plane, and reached from start before
// end turning counter-clockwise about the normal.
bool on_arc(const V_ARC& a, const V_POINT& p)
{
    const double r = std::fabs(a.radius);
    V_VECTOR n = a.normal;
    const double ln = lenv(n);
    n = {n.x / ln, n.y / ln, n.z / ln};
    const V_VECTOR d = sub(p, a.centre);
    if (std::fabs(lenv(d) - r) > 1e-9 || std::fabs(dotv(d, n)) > 1e-9) return false;
    const V_VECTOR s = sub(a.start, a.centre), e = sub(a.end, a.centre);
    auto angle_from_start = [&](const V_VECTOR& v) {
        double t = std::atan2(dotv(crossv(s, v), n), dotv(s, v));
        if (t < 0) t += 2 * kPi;
        return t;
    };
    return angle_from_start(d) <= angle_from_start(e) + 1e-12;
}

// Point of a circle at angle t from an in-plane axis u (v = n x u).
V_POINT circle_point(const V_POINT& c, double r, const V_VECTOR& u, const V_VECTOR& v, double t)
{
    return {c.x + r * (std::cos(t) * u.x + std::sin(t) * v.x),
            c.y + r * (std::cos(t) * u.y + std::sin(t) * v.y),
            c.z + r * (std::cos(t) * u.z + std::sin(t) * v.z)};
}

// True when p satisfies the ellipse's implicit equation and lies in its plane.
bool on_ellipse(const V_ELLIPSE& e, const V_POINT& p)
{
    const V_VECTOR d = sub(p, e.centre);
    const double a = dotv(d, e.axis1) / e.radius1, b = dotv(d, e.axis2) / e.radius2;
    const V_VECTOR n = crossv(e.axis1, e.axis2);
    return std::fabs(a * a + b * b - 1.0) < 1e-10 && std::fabs(dotv(d, n)) < 1e-10;
}

CNurbs rational_quarter()
{
    // The quarter circle of radius 1 about the origin from (1,0,0) to (0,1,0): control points
    // (1,0,0) w1, (1,1,0) w sqrt(1/2), (0,1,0) w1, stored homogeneous.
    CNurbs c;
    c.order = 3;
    c.n_cpts = 3;
    c.vpp = 4;
    c.rational = 1;
    c.form = 1;
    c.n_knots = 2;
    EXPECT_EQ(c.Init_Lists(), st::ok);
    const double w = std::sqrt(0.5);
    for (double v : {1.0, 0.0, 0.0, 1.0, w, w, 0.0, w, 0.0, 1.0, 0.0, 1.0}) c.cpts->Append(v);
    c.knots->Append(0.0);
    c.knots->Append(1.0);
    c.mults->Append(3);
    c.mults->Append(3);
    return c;
}

V_WORKPLANE frame(V_POINT o, V_VECTOR x, V_VECTOR y, V_VECTOR z)
{
    V_WORKPLANE wp{};
    wp.origin = o;
    wp.xaxis = x;
    wp.yaxis = y;
    wp.zaxis = z;
    return wp;
}

class ElementPlacement : public ::testing::Test {
protected:
    long base_ = v_memptr_live_count();
    V_TOLERANCE saved_ = tavotoll;
    void TearDown() override
    {
        tavotoll = saved_;
        EXPECT_EQ(v_memptr_live_count(), base_) << "tracked blocks leaked";
    }
};

}  // namespace

// --- translation ---

TEST_F(ElementPlacement, Translate_MovesPositionsOnly)
{
    const V_VECTOR d{1, -2, 0.5};
    V_ELEMENT e;
    e.SetArc(V_POINT{0.1, 0.2, 0.3}, -0.7, V_POINT{0.8, 0.2, 0.3}, V_POINT{0.1, 0.9, 0.3},
             V_VECTOR{0.3, 0.4, 0.5});
    const V_ARC before = e.arc;
    ASSERT_EQ(e.translate(d), st::ok);
    EXPECT_EQ(e.arc.centre.x, 0.1 + 1);
    EXPECT_EQ(e.arc.start.y, 0.2 - 2);
    EXPECT_EQ(e.arc.end.z, 0.3 + 0.5);
    // Radius and normal bit for bit, even though the normal is not of unit length.
    EXPECT_EQ(e.arc.radius, before.radius);
    EXPECT_EQ(std::memcmp(&e.arc.normal, &before.normal, sizeof(V_VECTOR)), 0);

    e.SetCurve(rational_quarter());
    ASSERT_EQ(e.translate(d), st::ok);
    // The middle control point (1,1,0) with weight w moves to (2,-1,0.5), stored times w.
    const double w = std::sqrt(0.5);
    EXPECT_NEAR((*e.curve.cpts)[5], 2 * w, kTol);
    EXPECT_NEAR((*e.curve.cpts)[6], -1 * w, kTol);
    EXPECT_NEAR((*e.curve.cpts)[7], 0.5 * w, kTol);
    EXPECT_EQ((*e.curve.cpts)[8], w);
}

// --- rotation ---

TEST_F(ElementPlacement, Rotate_QuarterTurnAboutOffsetAxis)
{
    const V_POINT c{1, 0, 0};
    const V_VECTOR z{0, 0, 2};  // need not be unit length
    V_ELEMENT e;
    e.SetPoint(2, 0, 5);
    ASSERT_EQ(e.rotate(c, z, kPi / 2), st::ok);
    EXPECT_PT(e.point, 1, 1, 5);  // (1,0) about (1,0) -> (0,1), back to (1,1)

    e.SetArc(V_POINT{2, 0, 0}, 1, V_POINT{3, 0, 0}, V_POINT{2, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.rotate(c, z, kPi / 2), st::ok);
    ASSERT_EQ(e.TypeGet(), 5);
    EXPECT_PT(e.arc.centre, 1, 1, 0);
    EXPECT_PT(e.arc.start, 1, 2, 0);
    EXPECT_PT(e.arc.end, 0, 1, 0);
    EXPECT_PT(e.arc.normal, 0, 0, 1);
    EXPECT_NEAR(e.arc.radius, 1.0, kTol);

    // About x by a quarter turn the plane's normal z goes to -y.
    e.SetCircle(V_POINT{0, 0, 0}, 1e9, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.rotate(V_POINT{0, 0, 0}, V_VECTOR{1, 0, 0}, kPi / 2), st::ok);
    ASSERT_EQ(e.TypeGet(), 4);  // a huge radius is not taken for an ellipse by rounding
    EXPECT_PT(e.circle.normal, 0, -1, 0);
    EXPECT_NEAR(e.circle.radius, 1e9, 1e-6);

    EXPECT_EQ(e.rotate(c, V_VECTOR{0, 0, 0}, 1.0), st::zero_vector);
}

TEST_F(ElementPlacement, Rotate_NegativeRadiusKeepsItsForm)
{
    V_ELEMENT e;
    e.SetArc(V_POINT{0, 0, 0}, -2, V_POINT{2, 0, 0}, V_POINT{0, 2, 0}, V_VECTOR{0, 0, 1});
    V_ARC canonical = e.arc;
    canonical.force_radius_to_positive();
    ASSERT_EQ(e.rotate(V_POINT{0, 0, 0}, V_VECTOR{0, 1, 0}, 0.7), st::ok);
    EXPECT_LT(e.arc.radius, 0.0);
    // The canonical form of the image is the image of the canonical form.
    V_ARC img = e.arc;
    img.force_radius_to_positive();
    V_ELEMENT c;
    c.SetArc(canonical);
    ASSERT_EQ(c.rotate(V_POINT{0, 0, 0}, V_VECTOR{0, 1, 0}, 0.7), st::ok);
    EXPECT_PT(img.start, c.arc.start.x, c.arc.start.y, c.arc.start.z);
    EXPECT_PT(img.end, c.arc.end.x, c.arc.end.y, c.arc.end.z);
    EXPECT_PT(img.normal, c.arc.normal.x, c.arc.normal.y, c.arc.normal.z);
}

// --- reflections ---

TEST_F(ElementPlacement, Mirror_ReversesArcSense)
{
    V_MATRIX M;
    const V_PLANE yz{{0, 0, 0}, {1, 0, 0}};
    mat_mirror(&yz, &M);
    V_ELEMENT e;
    // Quarter from (2,0,0) to (1,1,0) about (1,0,0), counter-clockwise about +z.
    e.SetArc(V_POINT{1, 0, 0}, 1, V_POINT{2, 0, 0}, V_POINT{1, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.TypeGet(), 5);
    EXPECT_PT(e.arc.centre, -1, 0, 0);
    EXPECT_PT(e.arc.normal, 0, 0, 1);
    // The mirrored quarter runs from (-1,1,0) to (-2,0,0) counter-clockwise about +z.
    EXPECT_PT(e.arc.start, -1, 1, 0);
    EXPECT_PT(e.arc.end, -2, 0, 0);
    const V_POINT mid{1 + std::sqrt(0.5), std::sqrt(0.5), 0};
    EXPECT_TRUE(on_arc(e.arc, apply(M, mid)));
}

TEST_F(ElementPlacement, Similarity_AgreesWithArcMapping)
{
    // Rotation, uniform scale 2.5 and a reflection in an oblique plane.
    V_MATRIX R, S, F, RS, M;
    const V_POINT p{1, 2, 3};
    const V_VECTOR ax{1, 1, 1};
    mat_arbitrary_axis_rotation(&p, &ax, 0.9, &R);
    mat_scale(&S, 2.5);
    const V_PLANE pl{{0.5, 0, 0}, {1, 2, -1}};
    mat_mirror(&pl, &F);
    mat_mul(&R, &S, &RS);
    mat_mul(&RS, &F, &M);
    const V_ARC a{{1, -1, 2}, 3, {0, 0.6, 0.8}, {4, -1, 2}, {1, 1.4, 0.2}};
    V_ARC expect;
    mat_transform_arc(&a, &M, &expect);
    V_ELEMENT e;
    e.SetArc(a);
    ASSERT_EQ(e.transform(M, 1), st::ok);
    ASSERT_EQ(e.TypeGet(), 5);
    EXPECT_NEAR(e.arc.radius, expect.radius, 1e-9);
    EXPECT_NEAR(e.arc.radius, 7.5, 1e-9);
    EXPECT_PT(e.arc.centre, expect.centre.x, expect.centre.y, expect.centre.z);
    EXPECT_PT(e.arc.start, expect.start.x, expect.start.y, expect.start.z);
    EXPECT_PT(e.arc.end, expect.end.x, expect.end.y, expect.end.z);
    EXPECT_PT(e.arc.normal, expect.normal.x, expect.normal.y, expect.normal.z);
    // Sampled points of the arc map onto the image arc.
    V_VECTOR u = sub(a.start, a.centre);
    u = {u.x / 3, u.y / 3, u.z / 3};
    const V_VECTOR v = crossv(a.normal, u);
    for (double t = 0.05; t < 1.5; t += 0.1) {
        const V_POINT q = circle_point(a.centre, 3, u, v, t);
        EXPECT_TRUE(on_arc(a, q));
        EXPECT_TRUE(on_arc(e.arc, apply(M, q))) << t;
    }
}

// --- non-uniform scaling and shear ---

TEST_F(ElementPlacement, NonUniformScale_CircleBecomesEllipse)
{
    V_MATRIX M;
    mat_nuscale(&M, 2, 1, 1);
    V_ELEMENT e;
    e.SetCircle(V_POINT{1, 1, 0}, 1, V_VECTOR{0, 0, 1});
    const V_CIRCLE before = e.circle;
    EXPECT_EQ(e.transform(M, 1), st::wrong_kind);
    EXPECT_EQ(e.TypeGet(), 4);
    EXPECT_EQ(std::memcmp(&e.circle, &before, sizeof before), 0);
    ASSERT_EQ(e.transform(M, 0), st::ok);
    ASSERT_EQ(e.TypeGet(), 6);
    EXPECT_PT(e.ellipse.centre, 2, 1, 0);
    EXPECT_NEAR(std::fabs(e.ellipse.axis1.x), 1.0, kTol);
    EXPECT_NEAR(e.ellipse.radius1, 2.0, kTol);
    EXPECT_NEAR(std::fabs(e.ellipse.axis2.y), 1.0, kTol);
    EXPECT_NEAR(e.ellipse.radius2, 1.0, kTol);
    EXPECT_PT(crossv(e.ellipse.axis1, e.ellipse.axis2), 0, 0, 1);
}

TEST_F(ElementPlacement, Shear_CircleImageIsExactEllipse)
{
    V_MATRIX M;
    mat_shear(&M, 0.5, 0, 0, 0.3, 0, 0);  // x' = x + 0.5y, y' = y + 0.3z
    const V_POINT c{1, 2, 0};
    const V_VECTOR n{0, 0, 1};
    V_ELEMENT e;
    e.SetCircle(c, 2, n);
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.TypeGet(), 6);
    const V_ELLIPSE& el = e.ellipse;
    EXPECT_NEAR(lenv(el.axis1), 1.0, kTol);
    EXPECT_NEAR(lenv(el.axis2), 1.0, kTol);
    EXPECT_NEAR(dotv(el.axis1, el.axis2), 0.0, kTol);
    EXPECT_GE(el.radius1, el.radius2);
    // Area is multiplied by the in-plane determinant 1: r1 r2 = 2 * 2.
    EXPECT_NEAR(el.radius1 * el.radius2, 4.0, 1e-10);
    for (double t = 0; t < 2 * kPi; t += 0.25)
        EXPECT_TRUE(on_ellipse(el, apply(M, circle_point(c, 2, {1, 0, 0}, {0, 1, 0}, t)))) << t;
}

TEST_F(ElementPlacement, NonUniformScale_ArcBecomesEllipticalArc)
{
    V_MATRIX M;
    mat_nuscale(&M, 1, 3, 1);
    V_ELEMENT e;
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.transform(M, 1), st::wrong_kind);
    EXPECT_EQ(e.TypeGet(), 5);
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.TypeGet(), 7);
    EXPECT_NEAR(e.elarc.ellipse.radius1, 3.0, kTol);  // the major axis along y
    EXPECT_NEAR(std::fabs(e.elarc.ellipse.axis1.y), 1.0, kTol);
    EXPECT_NEAR(e.elarc.ellipse.radius2, 1.0, kTol);
    EXPECT_PT(e.elarc.start, 1, 0, 0);
    EXPECT_PT(e.elarc.end, 0, 3, 0);
    EXPECT_PT(crossv(e.elarc.ellipse.axis1, e.elarc.ellipse.axis2), 0, 0, 1);

    // Reflecting while stretching: x -> -2x. The image quarter lies in the second quadrant,
    // run counter-clockwise about +z from (0,1,0) to (-2,0,0).
    mat_nuscale(&M, -2, 1, 1);
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.TypeGet(), 7);
    EXPECT_PT(e.elarc.start, 0, 1, 0);
    EXPECT_PT(e.elarc.end, -2, 0, 0);
    EXPECT_PT(crossv(e.elarc.ellipse.axis1, e.elarc.ellipse.axis2), 0, 0, 1);
}

TEST_F(ElementPlacement, Collapse_ReportsAndKeepsElement)
{
    V_MATRIX M;
    mat_nuscale(&M, 1, 0, 1);  // flattens y
    V_ELEMENT e;
    e.SetCircle(V_POINT{0, 0, 0}, 1, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.transform(M), st::bad_input);
    EXPECT_EQ(e.TypeGet(), 4);
    EXPECT_EQ(e.circle.radius, 1.0);
    e.SetLine(V_POINT{0, 0, 0}, V_VECTOR{0, 1, 0});
    EXPECT_EQ(e.transform(M), st::bad_input);
    e.SetCircle(V_POINT{0, 0, 0}, 1, V_VECTOR{0, 0, 0});
    EXPECT_EQ(e.transform(M), st::zero_vector);
    // Flattening along a circle's normal keeps the circle: the XZ circle stays.
    e.SetCircle(V_POINT{0, 3, 0}, 1, V_VECTOR{0, 1, 0});
    ASSERT_EQ(e.transform(M, 1), st::ok);
    EXPECT_PT(e.circle.centre, 0, 0, 0);
    EXPECT_NEAR(e.circle.radius, 1.0, kTol);
}

// --- ellipses, text, symbols ---

TEST_F(ElementPlacement, EllipticalArc_MirrorExchangesEnds)
{
    V_MATRIX M;
    const V_PLANE xz{{0, 0, 0}, {0, 1, 0}};
    mat_mirror(&xz, &M);  // y -> -y
    V_ELEMENT e;
    e.SetEllipticalArc(
        V_ELLIPTICALARC{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 3, 1}, {3, 0, 0}, {0, 1, 0}});
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.TypeGet(), 7);
    // Axes perpendicular in the image: kept, the normal on the side of the image of +z.
    EXPECT_PT(e.elarc.ellipse.axis1, 1, 0, 0);
    EXPECT_NEAR(e.elarc.ellipse.radius1, 3.0, kTol);
    EXPECT_PT(crossv(e.elarc.ellipse.axis1, e.elarc.ellipse.axis2), 0, 0, 1);
    // The image quarter (3,0,0)..(0,-1,0) runs counter-clockwise about +z from (0,-1,0).
    EXPECT_PT(e.elarc.start, 0, -1, 0);
    EXPECT_PT(e.elarc.end, 3, 0, 0);
}

TEST_F(ElementPlacement, Text_ScalesAndMirrors)
{
    V_TEXT t{};
    t.point = {1, 1, 0};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    t.width = 5;
    t.height = 2;
    char16_t chars[] = u"abc";
    t.text = chars;
    V_ELEMENT e;
    e.SetText(t);
    V_MATRIX M;
    mat_nuscale(&M, 2, 3, 1);
    ASSERT_EQ(e.transform(M), st::ok);
    EXPECT_PT(e.text.point, 2, 3, 0);
    EXPECT_NEAR(e.text.width, 10.0, kTol);
    EXPECT_NEAR(e.text.height, 6.0, kTol);
    EXPECT_EQ(e.text.text, chars);
    // Mirrored in x: reads along -x, seen from the back.
    mat_nuscale(&M, -1, 1, 1);
    ASSERT_EQ(e.transform(M), st::ok);
    EXPECT_PT(e.text.xaxis, -1, 0, 0);
    EXPECT_PT(e.text.normal, 0, 0, -1);
    EXPECT_NEAR(e.text.height, 6.0, kTol);
    // Shear within the text plane leaves no upright text.
    mat_shear(&M, 0.5, 0, 0, 0, 0, 0);
    const V_TEXT before = e.text;
    EXPECT_EQ(e.transform(M), st::wrong_kind);
    EXPECT_EQ(std::memcmp(&e.text, &before, sizeof before), 0);
}

TEST_F(ElementPlacement, Symbol_FrameRebuiltFromImage)
{
    V_SYMBOL_INST s{};
    s.position = {1, 0, 0};
    s.xaxis = {1, 0, 0};
    s.normal = {0, 0, 1};
    s.scale_x = 2;
    s.scale_y = 3;
    s.scale_z = 4;
    s.angle = 0.5;
    V_ELEMENT e;
    e.SetSymbolInstance(s);
    // Frame vectors of a symbol instance: X turned by angle, Y = N x X, Z = N, scaled.
    auto frame_of = [](const V_SYMBOL_INST& r, V_VECTOR out[3]) {
        V_VECTOR X;
        vector_rotate(&r.xaxis, &r.normal, r.angle, &X);
        const V_VECTOR Y = crossv(r.normal, X);
        out[0] = {X.x * r.scale_x, X.y * r.scale_x, X.z * r.scale_x};
        out[1] = {Y.x * r.scale_y, Y.y * r.scale_y, Y.z * r.scale_y};
        out[2] = {r.normal.x * r.scale_z, r.normal.y * r.scale_z, r.normal.z * r.scale_z};
    };
    V_MATRIX Rm, Fm, M;
    const V_POINT o{0, 0, 0};
    const V_VECTOR ax{0.2, -0.4, 1};
    mat_arbitrary_axis_rotation(&o, &ax, 1.1, &Rm);
    const V_PLANE pl{{0, 0, 0}, {1, 1, 0}};
    mat_mirror(&pl, &Fm);
    mat_mul(&Rm, &Fm, &M);
    V_VECTOR before[3];
    frame_of(e.symbol, before);
    ASSERT_EQ(e.transform(M), st::ok);
    V_VECTOR after[3];
    frame_of(e.symbol, after);
    for (int k = 0; k < 3; ++k) {
        V_VECTOR img;
        mat_rotate_vector(&before[k], &M, &img);
        EXPECT_PT(after[k], img.x, img.y, img.z);
    }
    EXPECT_LT(e.symbol.scale_z, 0.0);  // the reflection
    const V_POINT pos = apply(M, s.position);
    EXPECT_PT(e.symbol.position, pos.x, pos.y, pos.z);
    // A stretch along the world axes skews a turned frame.
    mat_nuscale(&M, 2, 1, 1);
    EXPECT_EQ(e.transform(M), st::wrong_kind);
    e.symbol.angle = 0;
    e.symbol.xaxis = {1, 0, 0};
    e.symbol.normal = {0, 0, 1};
    e.symbol.scale_z = 4;
    ASSERT_EQ(e.transform(M), st::ok);
    EXPECT_NEAR(e.symbol.scale_x, 4.0, kTol);
    EXPECT_NEAR(e.symbol.scale_y, 3.0, kTol);
}

// --- owning kinds ---

TEST_F(ElementPlacement, Curve_ControlPointsMoveWeightsStay)
{
    V_ELEMENT e;
    e.SetCurve(rational_quarter());
    V_MATRIX M;
    const V_POINT c{1, 1, 0};
    const V_VECTOR z{0, 0, 1};
    mat_arbitrary_axis_rotation(&c, &z, kPi / 2, &M);
    V_POINT mid_before;
    ASSERT_EQ(e.curve.Eval(0.3, nullptr, &mid_before), st::ok);
    ASSERT_EQ(e.transform(M), st::ok);
    V_POINT p;
    double w;
    ASSERT_EQ(e.curve.Get_Cpt_And_Weight(2, &p, &w), st::ok);
    EXPECT_PT(p, 1, 1, 0);  // (1,1,0) is on the axis
    EXPECT_NEAR(w, std::sqrt(0.5), kTol);
    ASSERT_EQ(e.curve.Get_Cpt_And_Weight(1, &p, &w), st::ok);
    EXPECT_PT(p, 2, 1, 0);  // (1,0,0) - (1,1,0) = (0,-1) turns to (1,0)
    // The curve's point of the image is the image of the curve's point.
    V_POINT mid_after;
    ASSERT_EQ(e.curve.Eval(0.3, nullptr, &mid_after), st::ok);
    const V_POINT expect = apply(M, mid_before);
    EXPECT_PT(mid_after, expect.x, expect.y, expect.z);

    e.curve.parametric = 1;
    EXPECT_EQ(e.transform(M), st::wrong_kind);
}

TEST_F(ElementPlacement, PolylineAndPointSet_EveryPointMoves)
{
    List<V_POINT> pts;
    for (int i = 0; i < 5; ++i) pts.Append(V_POINT{double(i), 0, 0});
    V_ELEMENT e;
    ASSERT_EQ(e.SetPolyline(pts), st::ok);
    e.polyline.Points()->Delete(3);
    V_MATRIX M;
    mat_rotate(&M, kPi / 2, 'z');
    ASSERT_EQ(e.transform(M), st::ok);
    V_POINT q;
    ASSERT_EQ(e.polyline.Get_Point(5, &q), st::ok);
    EXPECT_PT(q, 0, 4, 0);
    EXPECT_FALSE(e.polyline.Points()->IsSet(3));

    V_WORKPLANE wp = frame({1, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    wp.name[0] = u'P';
    wp.id = 12;
    ASSERT_EQ(e.SetPointSet(pts, wp), st::ok);
    ASSERT_EQ(e.pointset.DeletePoint(2), st::ok);
    ASSERT_EQ(e.transform(M), st::ok);
    ASSERT_EQ(e.pointset.Get_Point(4, &q), st::ok);
    EXPECT_PT(q, 0, 3, 0);
    EXPECT_PT(e.pointset.plane.origin, 0, 1, 0);
    EXPECT_PT(e.pointset.plane.xaxis, 0, 1, 0);
    EXPECT_PT(e.pointset.plane.yaxis, -1, 0, 0);
    EXPECT_PT(e.pointset.plane.zaxis, 0, 0, 1);
    EXPECT_EQ(e.pointset.plane.name[0], u'P');
    EXPECT_EQ(e.pointset.plane.id, 12);
    EXPECT_TRUE(e.pointset.IsDeleted(2));
}

TEST_F(ElementPlacement, TransformInto_LeavesSourceAndReleasesTarget)
{
    V_ELEMENT in, out;
    in.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    out.SetCurve(rational_quarter());
    V_MATRIX M;
    mat_nuscale(&M, 2, 2, 2);
    ASSERT_EQ(mat_transform_element(&M, &in, &out, 1), st::ok);
    EXPECT_EQ(out.TypeGet(), 5);
    EXPECT_NEAR(out.arc.radius, 2.0, kTol);
    EXPECT_EQ(in.arc.radius, 1.0);
    in.SetCurve(rational_quarter());
    ASSERT_EQ(mat_transform_element(&M, &in, &out, 0), st::ok);
    EXPECT_EQ(out.TypeGet(), 19);
    EXPECT_NE(out.curve.cpts, in.curve.cpts);
    EXPECT_EQ((*in.curve.cpts)[1], 1.0);
    EXPECT_NEAR((*out.curve.cpts)[1], 2.0, kTol);
    EXPECT_EQ(mat_transform_element(nullptr, &in, &out, 0), st::bad_input);
    EXPECT_EQ(mat_transform_element(&M, nullptr, &out, 0), st::bad_input);
    EXPECT_EQ(mat_transform_element(&M, &in, nullptr, 0), st::bad_input);
    V_ELEMENT none;
    none.TypeSet(9);
    ASSERT_EQ(mat_transform_element(&M, &none, &out, 0), st::ok);
    EXPECT_EQ(out.TypeGet(), 9);
}

// --- workplanes ---

TEST_F(ElementPlacement, Workplane_LocalToWorldByHand)
{
    // Local x is world y, local y world -x.
    const V_WORKPLANE wp = frame({1, 2, 3}, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1});
    V_ELEMENT e;
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
    EXPECT_PT(e.arc.centre, 1, 2, 3);
    EXPECT_PT(e.arc.start, 1, 3, 3);
    EXPECT_PT(e.arc.end, 0, 2, 3);
    EXPECT_EQ(e.arc.radius, 1.0);

    e.SetCurve(rational_quarter());
    ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
    V_POINT p;
    double w;
    ASSERT_EQ(e.curve.Get_Cpt_And_Weight(2, &p, &w), st::ok);
    EXPECT_PT(p, 0, 3, 3);  // (1,1,0) local
    EXPECT_NEAR(w, std::sqrt(0.5), kTol);

    V_SYMBOL_INST s{};
    s.position = {1, 1, 1};
    s.xaxis = {1, 0, 0};
    s.normal = {0, 0, 1};
    e.SetSymbolInstance(s);
    ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
    EXPECT_PT(e.symbol.position, 0, 3, 4);
    EXPECT_PT(e.symbol.xaxis, 0, 1, 0);
}

TEST_F(ElementPlacement, Workplane_RoundTripEveryKind)
{
    const double c = std::cos(0.4), s = std::sin(0.4);
    const V_WORKPLANE wp = frame({3, -1, 2}, {c, s, 0}, {0, 0, 1}, {s, -c, 0});
    std::vector<V_ELEMENT> set(11);
    set[0].SetPoint(1, 2, 3);
    set[1].SetSegment(1, 2, 3, -4, 5, 6);
    set[2].SetLine(V_POINT{1, 1, 1}, V_VECTOR{0, 0.6, 0.8});
    set[3].SetCircle(V_POINT{1, 2, 3}, 2, V_VECTOR{0, 1, 0});
    set[4].SetArc(V_POINT{0, 0, 0}, -1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    set[5].SetEllipse(V_ELLIPSE{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 4, 2});
    set[6].SetEllipticalArc(
        V_ELLIPTICALARC{{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 4, 2}, {5, 2, 3}, {1, 4, 3}});
    V_TEXT t{};
    t.point = {1, 2, 3};
    t.normal = {0, 0, 1};
    t.xaxis = {1, 0, 0};
    set[7].SetText(t);
    set[8].SetCurve(rational_quarter());
    List<V_POINT> pts;
    pts.Append(V_POINT{1, 2, 3});
    pts.Append(V_POINT{-3, 0, 7});
    ASSERT_EQ(set[9].SetPolyline(pts), st::ok);
    ASSERT_EQ(set[10].SetPointSet(pts, frame({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1})), st::ok);
    for (size_t i = 0; i < set.size(); ++i) {
        SCOPED_TRACE(i);
        V_ELEMENT e = set[i];
        ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
        ASSERT_EQ(e.absolute_to_relative(wp), st::ok);
        ASSERT_EQ(e.TypeGet(), set[i].TypeGet());
        if (e.TypeGet() < 19) {
            // The doubles that carry the record's geometry.
            const int n = e.TypeGet() == 1   ? 3
                          : e.TypeGet() <= 3 ? 6
                          : e.TypeGet() == 4 ? 7
                          : e.TypeGet() == 5 ? 13
                          : e.TypeGet() == 6 ? 11
                          : e.TypeGet() == 7 ? 17
                                             : 9;
            const double* a = &e.point.x;
            const double* b = &set[i].point.x;
            for (int k = 0; k < n; ++k) EXPECT_NEAR(a[k], b[k], 1e-12) << k;
        } else if (e.TypeGet() == 19) {
            for (uint32_t k = 1; k <= 12; ++k)
                EXPECT_NEAR((*e.curve.cpts)[k], (*set[i].curve.cpts)[k], 1e-12) << k;
        } else {
            const List<V_POINT>* a = e.TypeGet() == 20 ? e.polyline.Points() : e.pointset.points;
            const List<V_POINT>* b =
                e.TypeGet() == 20 ? set[i].polyline.Points() : set[i].pointset.points;
            for (uint32_t k = 1; k <= 2; ++k) {
                EXPECT_NEAR((*a)[k].x, (*b)[k].x, 1e-12);
                EXPECT_NEAR((*a)[k].z, (*b)[k].z, 1e-12);
            }
        }
    }
    V_ELEMENT e = set[9];
    ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
    V_POINT q;
    ASSERT_EQ(e.polyline.Get_Point(2, &q), st::ok);
    // Local (-3, 0, 7): origin - 3 xaxis + 7 zaxis.
    EXPECT_PT(q, 3 - 3 * c + 7 * s, -1 - 3 * s - 7 * c, 2);
}
