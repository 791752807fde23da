// Placement of elements (translation, rotation, reflections, non-uniform scaling, shear,
// workplanes) against hand-worked images and geometric properties of the results.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include "io_support.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

using namespace testsupport;

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTol = 1e-12;

#define EXPECT_PT(p, X, Y, Z) EXPECT_LT(std::hypot((p).x - (X), (p).y - (Y), (p).z - (Z)), kTol)
#define EXPECT_SAME_PT(p, q) EXPECT_PT(p, (q).x, (q).y, (q).z)

const auto sub = [](V_POINT a, V_POINT b) { return V_VECTOR{a.x - b.x, a.y - b.y, a.z - b.z}; };
const auto crossv = [](V_VECTOR a, V_VECTOR b) {
    return V_VECTOR{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
};

// p * M written out: row 3 the translation, divided by m33 unless it is 0.
V_POINT apply(const V_MATRIX& M, const V_POINT& p)
{
    const double(*m)[4] = M.m;
    const double w = m[3][3] == 0.0 ? 1.0 : m[3][3];
    return {(p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0] + m[3][0]) / w,
            (p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1] + m[3][1]) / w,
            (p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2] + m[3][2]) / w};
}

// The doubles carrying e's geometry: a plain record's leading doubles, a curve's control
// values, the occupied points of a polyline or point set and a point set's plane frame.
std::vector<double> geometry_of(const V_ELEMENT& e)
{
    std::vector<double> v;
    auto add = [&](const double* p, size_t n) { v.insert(v.end(), p, p + n); };
    const int lead[15] = {0, 3, 6, 6, 7, 13, 11, 17, 0, 0, 0, 0, 13, 0, 14};
    if (e.type >= 0 && e.type < 15) add(&e.point.x, lead[e.type]);
    if (e.type == 19) add(e.curve.cpts->items, e.curve.cpts->Count());
    const List<V_POINT>* pts = e.type == 20 ? e.polyline.Points() : e.pointset.points;
    for (uint32_t k = 1; (e.type == 20 || e.type == 26) && k <= pts->Count(); ++k)
        if (pts->IsSet(k)) add(&pts->GetPtr(k)->x, 3);
    if (e.type == 26) add(&e.pointset.plane.origin.x, 3), add(&e.pointset.plane.xaxis.x, 9);
    return v;
}

// e has type t and begins with the geometry doubles want, each within kTol of its size.
void expect_geometry(const V_ELEMENT& e, short t, const std::vector<double>& want)
{
    ASSERT_EQ(e.TypeGet(), t);
    const std::vector<double> got = geometry_of(e);
    ASSERT_GE(got.size(), want.size());
    for (size_t k = 0; k < want.size(); ++k) {
        const double scale = std::max({1.0, std::fabs(got[k]), std::fabs(want[k])});
        EXPECT_NEAR(got[k], want[k], kTol * scale) << "double " << k;
    }
}

using ElementPlacement = LeakFree;

}  // namespace

TEST_F(ElementPlacement, TranslateAndRotate_HandWorkedImages)
{
    const V_VECTOR d{1, -2, 0.5};
    V_ELEMENT e;
    e.SetArc(V_POINT{0.1, 0.2, 0.3}, -0.7, V_POINT{0.8, 0.2, 0.3}, V_POINT{0.1, 0.9, 0.3},
             V_VECTOR{0.3, 0.4, 0.5});
    const V_ARC before = e.arc;  // radius and normal kept bit for bit, the normal not unit
    ASSERT_EQ(e.translate(d), st::ok);
    EXPECT_TRUE(e.arc.centre.x == 0.1 + 1 && e.arc.start.y == 0.2 - 2 && e.arc.end.z == 0.3 + 0.5);
    EXPECT_EQ(std::memcmp(&e.arc.radius, &before.radius, 32), 0);
    e = element_samples()[13];
    e.pointset.plane.xaxis = {0, 2, 0};  // axes kept as they are, lengths included
    const V_WORKPLANE wp = e.pointset.plane;
    ASSERT_EQ(e.translate(d), st::ok);
    EXPECT_EQ(std::memcmp(&e.pointset.plane.xaxis, &wp.xaxis, 72), 0);
    const V_POINT c{1, 0, 0};
    const V_VECTOR z{0, 0, 2};  // need not be unit length
    e.SetArc(V_POINT{2, 0, 0}, 1, V_POINT{3, 0, 0}, V_POINT{2, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.rotate(c, z, kPi / 2), st::ok);  // (1,0) about (1,0) -> (0,1), back to (1,1)
    expect_geometry(e, 5, {1, 1, 0, 1, 0, 0, 1, 1, 2, 0, 0, 1, 0});
    EXPECT_EQ(e.rotate(c, V_VECTOR{0, 0, 0}, 1.0), st::zero_vector);
    // The rounding of a huge radius turned about an oblique axis is not taken for an ellipse.
    e.SetCircle(V_POINT{0, 0, 0}, 1e9, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.rotate(V_POINT{1, 2, 3}, V_VECTOR{1, 2, 3}, 0.7), st::ok);
    EXPECT_TRUE(e.TypeGet() == 4 && std::fabs(e.circle.radius - 1e9) < 1e-6);
}

TEST_F(ElementPlacement, Mirror_ReversesArcSense)
{
    V_MATRIX M;
    const V_PLANE yz{{0, 0, 0}, {1, 0, 0}};
    mat_mirror(&yz, &M);
    V_ELEMENT e;
    // Quarter from (2,0,0) to (1,1,0) about (1,0,0), counter-clockwise about +z; its mirror
    // image runs from (-1,1,0) to (-2,0,0) counter-clockwise about +z.
    e.SetArc(V_POINT{1, 0, 0}, 1, V_POINT{2, 0, 0}, V_POINT{1, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.transform(M), st::ok);
    expect_geometry(e, 5, {-1, 0, 0, 1, 0, 0, 1, -1, 1, 0, -2, 0, 0});
    // Rotation, uniform scale 2.5 and a reflection in an oblique plane: the image keeps the
    // normal's image and runs from the image of the end to the image of the start.
    V_MATRIX R, S, F, RS;
    const V_POINT p{1, 2, 3};
    const V_VECTOR ax{1, 1, 1};
    const V_PLANE pl{{0.5, 0, 0}, {1, 2, -1}};
    mat_arbitrary_axis_rotation(&p, &ax, 0.9, &R);
    mat_scale(&S, 2.5);
    mat_mirror(&pl, &F);
    mat_mul(&R, &S, &RS);
    mat_mul(&RS, &F, &M);
    const V_ARC a{{1, -1, 2}, 3, {0, 0.6, 0.8}, {4, -1, 2}, {1, 1.4, 0.2}};
    e.SetArc(a);
    ASSERT_EQ(e.transform(M, 1), st::ok);
    const V_VECTOR n = sub(apply(M, V_POINT{1, -0.4, 2.8}), apply(M, a.centre));  // centre + n
    const V_POINT c = apply(M, a.centre), s = apply(M, a.end), t = apply(M, a.start);
    expect_geometry(
        e, 5, {c.x, c.y, c.z, 7.5, n.x / 2.5, n.y / 2.5, n.z / 2.5, s.x, s.y, s.z, t.x, t.y, t.z});
    // An elliptical arc keeps perpendicular axes (axis2 turned so that axis1 x axis2 stays +z);
    // y -> -y exchanges its ends: the image quarter runs counter-clockwise from (0,-1,0).
    const V_PLANE xz{{0, 0, 0}, {0, 1, 0}};
    mat_mirror(&xz, &M);
    e.SetEllipticalArc({{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 3, 1}, {3, 0, 0}, {0, 1, 0}});
    ASSERT_EQ(e.transform(M), st::ok);
    expect_geometry(e, 7, {0, 0, 0, 1, 0, 0, 0, 1, 0, 3, 1, 0, -1, 0, 3, 0, 0});
}

TEST_F(ElementPlacement, NonUniformScaleAndShear_CircleAndArcBecomeExactEllipsesCollapseReported)
{
    V_MATRIX M;
    mat_nuscale(&M, 2, 1, 1);
    V_ELEMENT e;
    e.SetCircle(V_POINT{1, 1, 0}, 1, V_VECTOR{0, 0, 1});
    const V_CIRCLE was = e.circle;
    EXPECT_TRUE(e.transform(M, 1) == st::wrong_kind && !std::memcmp(&e.circle, &was, sizeof was));
    ASSERT_EQ(e.transform(M, 0), st::ok);
    const double sx = e.ellipse.axis1.x < 0 ? -1 : 1;  // the major axis along x, either way
    expect_geometry(e, 6, {2, 1, 0, sx, 0, 0, 0, sx, 0, 2, 1});
    // Shear x' = x + 0.5y, y' = y + 0.3z of the circle of radius 2 in z = 0: conjugate
    // semi-diameters a = (2,0,0), b = (1,2,0), so r1^2 + r2^2 = |a|^2 + |b|^2 = 9 and
    // r1 r2 = |a x b| = 4: r^2 = (9 +- sqrt(17)) / 2. Undoing the shear takes the ends of both
    // principal semi-axes back onto the circle.
    mat_shear(&M, 0.5, 0, 0, 0.3, 0, 0);
    e.SetCircle(V_POINT{1, 2, 0}, 2, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.transform(M), st::ok);
    const V_ELLIPSE el = e.ellipse;
    expect_geometry(e, 6, {1 + 1, 2, 0});  // the centre (1, 2, 0) sheared
    EXPECT_NEAR(el.radius1, std::sqrt((9 + std::sqrt(17.0)) / 2), 1e-12);
    EXPECT_NEAR(el.radius2, std::sqrt((9 - std::sqrt(17.0)) / 2), 1e-12);
    EXPECT_PT(crossv(el.axis1, el.axis2), 0, 0, 1);  // unit axes (below): perpendicular
    for (const auto& [u, r] : {std::pair(el.axis1, el.radius1), std::pair(el.axis2, el.radius2)})
        EXPECT_NEAR(std::hypot(r * u.x - 0.5 * r * u.y, r * u.y), 2.0, 1e-12);

    // An arc becomes an elliptical arc with the same ends' images, major axis along y.
    mat_nuscale(&M, 1, 3, 1);
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    EXPECT_TRUE(e.transform(M, 1) == st::wrong_kind && e.TypeGet() == 5);
    ASSERT_EQ(e.transform(M), st::ok);
    const double sy = e.elarc.ellipse.axis1.y < 0 ? -1 : 1;
    expect_geometry(e, 7, {0, 0, 0, 0, sy, 0, -sy, 0, 0, 3, 1, 1, 0, 0, 0, 3, 0});
    // Reflecting while stretching, x -> -2x: the image quarter in the second quadrant runs
    // counter-clockwise about +z from (0,1,0) to (-2,0,0).
    mat_nuscale(&M, -2, 1, 1);
    e.SetArc(V_POINT{0, 0, 0}, 1, V_POINT{1, 0, 0}, V_POINT{0, 1, 0}, V_VECTOR{0, 0, 1});
    ASSERT_EQ(e.transform(M), st::ok);
    expect_geometry(e, 7, {0, 0, 0});
    EXPECT_PT(crossv(e.elarc.ellipse.axis1, e.elarc.ellipse.axis2), 0, 0, 1);
    EXPECT_PT(e.elarc.start, 0, 1, 0);
    EXPECT_PT(e.elarc.end, -2, 0, 0);
    // A collapse is reported and the element kept.
    mat_nuscale(&M, 1, 0, 1);  // flattens y
    e.SetCircle(V_POINT{0, 0, 0}, 1, V_VECTOR{0, 0, 1});
    EXPECT_EQ(e.transform(M), st::bad_input);
    expect_geometry(e, 4, {0, 0, 0, 1, 0, 0, 1});
    e.SetLine(V_POINT{0, 0, 0}, V_VECTOR{0, 1, 0});
    EXPECT_EQ(e.transform(M), st::bad_input);
    e.SetCircle(V_POINT{0, 0, 0}, 1, V_VECTOR{0, 0, 0});  // no normal
    EXPECT_EQ(e.transform(M), st::zero_vector);
    e.SetEllipse(V_ELLIPSE{{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, 1, 0});  // no second semi-axis
    EXPECT_EQ(e.rotate(V_POINT{0, 0, 0}, V_VECTOR{0, 0, 1}, 1.0), st::bad_input);
    // Flattening along a circle's normal keeps the circle: the XZ circle stays.
    e.SetCircle(V_POINT{0, 3, 0}, 1, V_VECTOR{0, 1, 0});
    ASSERT_EQ(e.transform(M, 1), st::ok);
    expect_geometry(e, 4, {0, 0, 0, 1});
}

TEST_F(ElementPlacement, Text_ScalesAndMirrors)
{
    char16_t chars[] = u"abc";
    const V_TEXT t{{1, 1, 0}, {0, 0, 1}, {1, 0, 0}, 5, 2, 0, 0, 0, "", 0, 0, 0, chars, 0, 0};
    V_ELEMENT e;
    e.SetText(t);
    V_MATRIX M;
    mat_nuscale(&M, 2, 3, 1);  // width with the x axis, height with the y axis
    ASSERT_EQ(e.transform(M), st::ok);
    expect_geometry(e, 14, {2, 3, 0, 0, 0, 1, 1, 0, 0, 10, 6});
    EXPECT_EQ(e.text.text, chars);
    mat_nuscale(&M, -1, 1, 1);  // mirrored in x: reads along -x, seen from the back
    ASSERT_EQ(e.transform(M), st::ok);
    expect_geometry(e, 14, {-2, 3, 0, 0, 0, -1, -1, 0, 0, 10, 6});
    mat_shear(&M, 0.5, 0, 0, 0, 0, 0);  // shear within its plane leaves no upright text
    const V_TEXT before = e.text;
    EXPECT_TRUE(e.transform(M) == st::wrong_kind && !std::memcmp(&e.text, &before, sizeof before));
}

TEST_F(ElementPlacement, Symbol_FrameRebuiltFromImage)
{
    // Frame of a symbol instance: X = xaxis turned by angle about N, Y = N x X, Z = N, scaled.
    auto frame_of = [](const V_SYMBOL_INST& r, V_VECTOR out[3]) {
        V_VECTOR X;
        vector_rotate(&r.xaxis, &r.normal, r.angle, &X);
        const V_VECTOR axes[3] = {X, crossv(r.normal, X), r.normal};
        const double sc[3] = {r.scale_x, r.scale_y, r.scale_z};
        for (int k = 0; k < 3; ++k)
            out[k] = {axes[k].x * sc[k], axes[k].y * sc[k], axes[k].z * sc[k]};
    };
    // The image's frame is the image of the frame, its position the image of the position.
    auto expect_frame_mapped = [&](V_ELEMENT& e, const V_MATRIX& M) {
        V_VECTOR before[3], after[3];
        frame_of(e.symbol, before);
        const V_POINT pos = apply(M, e.symbol.position), o = apply(M, V_POINT{0, 0, 0});
        ASSERT_EQ(e.transform(M), st::ok);
        frame_of(e.symbol, after);
        for (int k = 0; k < 3; ++k)
            EXPECT_SAME_PT(after[k],
                           sub(apply(M, V_POINT{before[k].x, before[k].y, before[k].z}), o));
        EXPECT_SAME_PT(e.symbol.position, pos);
    };
    V_SYMBOL_INST s{{1, 0, 0}, {1, 0, 0}, {0, 0, 1}, 2, 3, 4, 0.5, 0, 0, {}};
    V_ELEMENT e;
    e.SetSymbolInstance(s);
    V_MATRIX Rm, Fm, M;
    const V_POINT o{0, 0, 0};
    const V_VECTOR ax{0.2, -0.4, 1};
    const V_PLANE pl{o, {1, 1, 0}};
    mat_arbitrary_axis_rotation(&o, &ax, 1.1, &Rm);
    mat_mirror(&pl, &Fm);
    mat_mul(&Rm, &Fm, &M);
    expect_frame_mapped(e, M);
    EXPECT_LT(e.symbol.scale_z, 0.0);  // the reflection
    mat_nuscale(&M, 2, 1, 1);          // a stretch along the world axes skews a turned frame...
    e.SetSymbolInstance(s);
    EXPECT_EQ(e.transform(M), st::wrong_kind);
    // ...but not a frame turned onto the axes (x axis at -0.5, turned by 0.5): then the angle
    // between the images of x axis and X changes.
    s.xaxis = {std::cos(0.5), -std::sin(0.5), 0};
    e.SetSymbolInstance(s);
    expect_frame_mapped(e, M);
    EXPECT_NEAR(e.symbol.scale_x, 4.0, kTol);
}

TEST_F(ElementPlacement, OwningKinds_PointsMoveIntoAnotherElementHolesAndFrameNamesStay)
{
    V_ELEMENT in = element_samples()[18], out;  // a polyline with a hole at 2
    out.SetCurve(quarter_curve());              // released
    V_MATRIX M;
    mat_rotate(&M, kPi / 2, 'z');
    ASSERT_EQ(mat_transform_element(&M, &in, &out, 0), st::ok);
    // (3, 0.25, -3) turned a quarter about z; the source as it was; the hole kept
    EXPECT_PT(*out.polyline.Points()->GetPtr(4), -0.25, 3, -3);
    EXPECT_PT(*in.polyline.Points()->GetPtr(4), 3, 0.25, -3);
    EXPECT_FALSE(out.polyline.Points()->IsSet(2));
    out = element_samples()[13];
    ASSERT_EQ(out.transform(M), st::ok);
    EXPECT_TRUE(out.pointset.plane.name[0] == u'W' && out.pointset.plane.id == 3);
    out.SetCurve(quarter_curve());
    out.curve.parametric = 1;
    EXPECT_EQ(out.transform(M), st::wrong_kind);
    EXPECT_TRUE(mat_transform_element(nullptr, &in, &out, 0) == st::bad_input &&
                mat_transform_element(&M, nullptr, &out, 0) == st::bad_input &&
                mat_transform_element(&M, &in, nullptr, 0) == st::bad_input);
    in.TypeSet(9);  // nothing to place
    EXPECT_TRUE(mat_transform_element(&M, &in, &out, 0) == st::ok && out.TypeGet() == 9);
}

TEST_F(ElementPlacement, Workplane_ToWorldIsPlacementByTheFrameAndBack)
{
    // Local x is world (c, s, 0), local y world z, local z world (s, -c, 0).
    const double c = std::cos(0.4), s = std::sin(0.4);
    V_WORKPLANE wp{{3, -1, 2}, {}, 0, {c, s, 0}, {0, 0, 1}, {s, -c, 0}};
    V_MATRIX M;
    ASSERT_EQ(mat_WorkPlane_World(&wp, nullptr, &M), st::ok);
    const std::vector<V_ELEMENT> set = element_samples();
    for (size_t i = 0; i < set.size(); ++i) {
        SCOPED_TRACE(i);
        V_ELEMENT world = set[i], placed = set[i];
        ASSERT_EQ(world.relative_to_absolute(wp), st::ok);
        ASSERT_EQ(placed.transform(M), st::ok);
        expect_geometry(world, set[i].TypeGet(), geometry_of(placed));
        ASSERT_EQ(world.absolute_to_relative(wp), st::ok);
        expect_geometry(world, set[i].TypeGet(), geometry_of(set[i]));
    }
    // By hand: the control point (1, 1, 0) of weight sqrt(1/2) goes to origin + xaxis + yaxis.
    V_ELEMENT e = set[11];
    ASSERT_EQ(e.relative_to_absolute(wp), st::ok);
    const double* q = e.curve.cpts->GetPtr(5);  // homogeneous: x w, y w, z w, w
    EXPECT_PT((V_POINT{q[0], q[1], q[2]}), (3 + c) * q[3], (-1 + s) * q[3], 3 * q[3]);
    EXPECT_EQ(q[3], std::sqrt(0.5));
    e.curve.parametric = 1;
    EXPECT_EQ(e.relative_to_absolute(wp), st::wrong_kind);
}
