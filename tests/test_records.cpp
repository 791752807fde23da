// Record layouts and the methods of the plain records.
#include "foundation/records.h"
#include "foundation/vector_algebra.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>

// --- layouts: every record reaches binary records byte for byte ---

static_assert(sizeof(V_POINT) == 24 && offsetof(V_POINT, y) == 8 && offsetof(V_POINT, z) == 16);
static_assert(sizeof(V_VECTOR) == 24 && offsetof(V_VECTOR, y) == 8 && offsetof(V_VECTOR, z) == 16);
static_assert(sizeof(V_SEGM) == 48 && offsetof(V_SEGM, end) == 24);
static_assert(sizeof(V_LINE) == 48 && offsetof(V_LINE, direction) == 24);
static_assert(sizeof(V_PLANE) == 48 && offsetof(V_PLANE, normal) == 24);
static_assert(sizeof(V_CIRCLE) == 56 && offsetof(V_CIRCLE, radius) == 24 &&
              offsetof(V_CIRCLE, normal) == 32);
static_assert(sizeof(V_ARC) == 104 && offsetof(V_ARC, radius) == 24 &&
              offsetof(V_ARC, normal) == 32 && offsetof(V_ARC, start) == 56 &&
              offsetof(V_ARC, end) == 80);
static_assert(sizeof(V_BOUNDS) == 48 && offsetof(V_BOUNDS, max) == 24);
static_assert(sizeof(V_ELLIPSE) == 88 && offsetof(V_ELLIPSE, axis1) == 24 &&
              offsetof(V_ELLIPSE, axis2) == 48 && offsetof(V_ELLIPSE, radius1) == 72 &&
              offsetof(V_ELLIPSE, radius2) == 80);
static_assert(sizeof(V_ELLIPTICALARC) == 136 && offsetof(V_ELLIPTICALARC, start) == 88 &&
              offsetof(V_ELLIPTICALARC, end) == 112);
static_assert(sizeof(V_SYMBOL_INST) == 136 && offsetof(V_SYMBOL_INST, xaxis) == 24 &&
              offsetof(V_SYMBOL_INST, normal) == 48 && offsetof(V_SYMBOL_INST, scale_x) == 72 &&
              offsetof(V_SYMBOL_INST, scale_y) == 80 && offsetof(V_SYMBOL_INST, scale_z) == 88 &&
              offsetof(V_SYMBOL_INST, angle) == 96 && offsetof(V_SYMBOL_INST, symbol_id) == 104 &&
              offsetof(V_SYMBOL_INST, flags) == 108 && offsetof(V_SYMBOL_INST, name) == 112);
static_assert(sizeof(V_TEXT) == 168 && offsetof(V_TEXT, normal) == 24 &&
              offsetof(V_TEXT, xaxis) == 48 && offsetof(V_TEXT, width) == 72 &&
              offsetof(V_TEXT, height) == 80 && offsetof(V_TEXT, slant) == 88 &&
              offsetof(V_TEXT, char_spacing) == 96 && offsetof(V_TEXT, line_spacing) == 104 &&
              offsetof(V_TEXT, font_name) == 112 && offsetof(V_TEXT, alignment) == 144 &&
              offsetof(V_TEXT, style) == 148 && offsetof(V_TEXT, font_id) == 150 &&
              offsetof(V_TEXT, text) == 152 && offsetof(V_TEXT, flags) == 160 &&
              offsetof(V_TEXT, reserved) == 164);
static_assert(sizeof(V_TOLERANCE) == 32 && offsetof(V_TOLERANCE, angle) == 8 &&
              offsetof(V_TOLERANCE, coarse) == 16 && offsetof(V_TOLERANCE, param) == 24);
static_assert(sizeof(V_POINT3f) == 12 && sizeof(V_VECTOR3f) == 12 && offsetof(V_VECTOR3f, z) == 8);
static_assert(sizeof(V_POINT2D) == 16 && sizeof(V_VECTOR2D) == 16);
static_assert(sizeof(V_SEGM2D) == 32 && offsetof(V_SEGM2D, end) == 16);
static_assert(sizeof(V_LINE2D) == 32 && offsetof(V_LINE2D, direction) == 16);
static_assert(sizeof(V_CIRCLE2D) == 24 && offsetof(V_CIRCLE2D, radius) == 16);
static_assert(sizeof(V_ARC2D) == 56 && offsetof(V_ARC2D, radius) == 16 &&
              offsetof(V_ARC2D, start) == 24 && offsetof(V_ARC2D, end) == 40);
static_assert(sizeof(V_MATRIX) == 128);
static_assert(sizeof(V_WORKPLANE) == 184 && offsetof(V_WORKPLANE, name) == 24 &&
              offsetof(V_WORKPLANE, id) == 104 && offsetof(V_WORKPLANE, xaxis) == 112 &&
              offsetof(V_WORKPLANE, yaxis) == 136 && offsetof(V_WORKPLANE, zaxis) == 160);
static_assert(sizeof(V_ORIGIN) == 184 && offsetof(V_ORIGIN, xaxis) == 24 &&
              offsetof(V_ORIGIN, yaxis) == 48 && offsetof(V_ORIGIN, zaxis) == 72 &&
              offsetof(V_ORIGIN, name) == 96 && offsetof(V_ORIGIN, id) == 176);

// Hosts build records with braces and copy them bytewise.
static_assert(std::is_aggregate_v<V_POINT> && std::is_aggregate_v<V_ARC> &&
              std::is_aggregate_v<V_WORKPLANE> && std::is_aggregate_v<V_MATRIX> &&
              std::is_aggregate_v<V_TEXT> && std::is_aggregate_v<V_ELLIPTICALARC>);
static_assert(std::is_trivially_copyable_v<V_ARC> && std::is_trivially_copyable_v<V_WORKPLANE> &&
              std::is_trivially_copyable_v<V_SYMBOL_INST> && std::is_trivially_copyable_v<V_TEXT>);

namespace {

const double kPi = std::acos(-1.0);

// A hand-built frame with rational unit axes: X = (2,2,1)/3, Y = (-2,1,2)/3,
// Z = X x Y = (1,-2,2)/3, origin (1,-2,3).
V_WORKPLANE tilted_frame()
{
    V_WORKPLANE wp{};
    wp.origin = V_POINT{1, -2, 3};
    wp.xaxis = V_VECTOR{2.0 / 3, 2.0 / 3, 1.0 / 3};
    wp.yaxis = V_VECTOR{-2.0 / 3, 1.0 / 3, 2.0 / 3};
    wp.zaxis = V_VECTOR{1.0 / 3, -2.0 / 3, 2.0 / 3};
    wp.name[0] = u'T';
    wp.id = 7;
    return wp;
}

// Local coordinates by hand: dot products of p - o with the axes.
V_POINT local_by_hand(const V_WORKPLANE& wp, const V_POINT& p)
{
    const double dx = p.x - wp.origin.x, dy = p.y - wp.origin.y, dz = p.z - wp.origin.z;
    return V_POINT{dx * wp.xaxis.x + dy * wp.xaxis.y + dz * wp.xaxis.z,
                   dx * wp.yaxis.x + dy * wp.yaxis.y + dz * wp.yaxis.z,
                   dx * wp.zaxis.x + dy * wp.zaxis.y + dz * wp.zaxis.z};
}

template <typename P> void expect_near(const P& p, double x, double y, double z, double tol)
{
    EXPECT_NEAR(p.x, x, tol);
    EXPECT_NEAR(p.y, y, tol);
    EXPECT_NEAR(p.z, z, tol);
}

template <typename P> void expect_near(const P& p, const P& q, double tol)
{
    expect_near(p, q.x, q.y, q.z, tol);
}

template <typename R> bool same_bytes(const R& a, const R& b)
{
    return std::memcmp(&a, &b, sizeof(R)) == 0;
}

}  // namespace

// --- points and vectors ---

TEST(PointFrame, LocalToWorldOnTheTiltedFrame)
{
    const V_WORKPLANE wp = tilted_frame();
    // o + 3X, o + 3Y, o + 3Z and o + 3(X + Y + Z), worked out by hand.
    V_POINT p{3, 0, 0};
    p.relative_to_absolute(wp);
    expect_near(p, 3, 0, 4, 1e-14);
    p = V_POINT{0, 3, 0};
    p.relative_to_absolute(wp);
    expect_near(p, -1, -1, 5, 1e-14);
    p = V_POINT{0, 0, 3};
    p.relative_to_absolute(wp);
    expect_near(p, 2, -4, 5, 1e-14);
    const V_POINT q{3, 3, 3};
    V_POINT out;
    q.relative_to_absolute(wp, &out);
    expect_near(out, 2, -1, 8, 1e-14);
    expect_near(q, 3, 3, 3, 0.0);  // the output form leaves the point alone
}

TEST(PointFrame, WorldToLocalMatchesDotProductsAndRoundTrips)
{
    const V_WORKPLANE wp = tilted_frame();
    const V_POINT world{2, -1, 8};
    V_POINT local;
    world.absolute_to_relative(wp, &local);
    expect_near(local, 3, 3, 3, 1e-14);
    for (const V_POINT& w : {V_POINT{0.25, 7, -3}, V_POINT{-100, 40, 1e3}, V_POINT{1, -2, 3}}) {
        V_POINT p = w;
        p.absolute_to_relative(wp);
        expect_near(p, local_by_hand(wp, w), 1e-12);
        p.relative_to_absolute(wp);
        expect_near(p, w, 1e-12);
    }
    // No snapping: a coordinate far below tavotoll.point survives.
    V_POINT tiny{1 + 1e-12, -2, 3};
    tiny.absolute_to_relative(wp);
    EXPECT_NE(tiny.x, 0.0);
}

TEST(VectorFrame, ConvertsWithoutTheOrigin)
{
    const V_WORKPLANE wp = tilted_frame();
    V_VECTOR v{3, 0, 0};
    v.relative_to_absolute(wp);
    expect_near(v, 2, 2, 1, 1e-14);  // 3X only
    V_VECTOR back;
    v.absolute_to_relative(wp, &back);
    expect_near(back, 3, 0, 0, 1e-14);
    expect_near(v, 2, 2, 1, 1e-14);
    const V_VECTOR w{0.5, -1.5, 2};
    V_VECTOR out;
    w.relative_to_absolute(wp, &out);
    out.absolute_to_relative(wp);
    expect_near(out, w, 1e-14);
}

// --- composite records on the tilted frame ---

TEST(SegmentFrame, BothEndsConvertAndRoundTrip)
{
    V_WORKPLANE wp = tilted_frame();
    const V_SEGM local{{3, 0, 0}, {0, 3, 0}};
    V_SEGM s = local;
    s.relative_to_absolute(wp);
    expect_near(s.start, 3, 0, 4, 1e-14);
    expect_near(s.end, -1, -1, 5, 1e-14);
    s.absolute_to_relative(wp);
    expect_near(s.start, local.start, 1e-13);
    expect_near(s.end, local.end, 1e-13);
    // The other way round: a world segment's local ends are the hand dot products.
    const V_SEGM world{{0.5, 4, -2}, {10, -3, 7}};
    s = world;
    s.absolute_to_relative(wp);
    expect_near(s.start, local_by_hand(wp, world.start), 1e-13);
    expect_near(s.end, local_by_hand(wp, world.end), 1e-13);
    s.relative_to_absolute(wp);
    expect_near(s.start, world.start, 1e-13);
    expect_near(s.end, world.end, 1e-13);
}

TEST(LineAndCircleFrame, PointsAsPointsDirectionsAsVectorsRadiusKept)
{
    V_WORKPLANE wp = tilted_frame();
    V_LINE l{{3, 0, 0}, {0, 0, 3}};
    l.relative_to_absolute(wp);
    expect_near(l.point, 3, 0, 4, 1e-14);
    expect_near(l.direction, 1, -2, 2, 1e-14);  // 3Z, no origin
    l.absolute_to_relative(wp);
    expect_near(l.point, 3, 0, 0, 1e-14);
    expect_near(l.direction, 0, 0, 3, 1e-14);
    const V_CIRCLE world{{4, 4, 4}, -2.5, {0, 0, 1}};
    V_CIRCLE c = world;
    c.absolute_to_relative(wp);
    expect_near(c.centre, local_by_hand(wp, world.centre), 1e-14);
    expect_near(c.normal, 1.0 / 3, 2.0 / 3, 2.0 / 3, 1e-15);  // (z.X, z.Y, z.Z)
    EXPECT_EQ(c.radius, -2.5);
    c.relative_to_absolute(wp);
    expect_near(c.centre, world.centre, 1e-13);
    expect_near(c.normal, world.normal, 1e-15);
}

TEST(ArcFrame, LocalArcLandsOnTheFramePlane)
{
    V_WORKPLANE wp = tilted_frame();
    V_ARC a;
    a.create(0.0, kPi / 2, 2.0, V_POINT{3, 0, 0});
    const V_ARC local = a;
    a.relative_to_absolute(wp);
    expect_near(a.centre, 3, 0, 4, 1e-14);
    // Local start (5, 0, 0) is o + 5X; local end (3, 2, 0) is o + 3X + 2Y.
    expect_near(a.start, 1 + 10.0 / 3, -2 + 10.0 / 3, 3 + 5.0 / 3, 1e-14);
    expect_near(a.end, 1 + 2 - 4.0 / 3, -2 + 2 + 2.0 / 3, 3 + 1 + 4.0 / 3, 1e-14);
    expect_near(a.normal, wp.zaxis, 1e-15);
    EXPECT_EQ(a.radius, 2.0);
    a.absolute_to_relative(wp);
    expect_near(a.centre, local.centre, 1e-13);
    expect_near(a.start, local.start, 1e-13);
    expect_near(a.end, local.end, 1e-13);
    expect_near(a.normal, local.normal, 1e-14);
    EXPECT_EQ(a.radius, 2.0);
}

TEST(ArcFrame, WorldArcLocalMembersAreTheHandDotProducts)
{
    V_WORKPLANE wp = tilted_frame();
    const V_ARC world{{1, 1, 1}, -3.0, {0, 1, 0}, {4, 1, 1}, {1, 1, -2}};
    V_ARC a = world;
    a.absolute_to_relative(wp);
    expect_near(a.centre, local_by_hand(wp, world.centre), 1e-13);
    expect_near(a.start, local_by_hand(wp, world.start), 1e-13);
    expect_near(a.end, local_by_hand(wp, world.end), 1e-13);
    expect_near(a.normal, 2.0 / 3, 1.0 / 3, -2.0 / 3, 1e-14);  // (y.X, y.Y, y.Z)
    EXPECT_EQ(a.radius, -3.0);
    a.relative_to_absolute(wp);
    expect_near(a.centre, world.centre, 1e-13);
    expect_near(a.start, world.start, 1e-13);
    expect_near(a.end, world.end, 1e-13);
    expect_near(a.normal, world.normal, 1e-14);
}

TEST(RecordFrame, SingularFrameLeavesSegmentAndArcUnchangedInWorldToLocal)
{
    V_WORKPLANE flat{};  // all axes zero: no inverse
    const V_SEGM s0{{1, 2, 3}, {4, 5, 6}};
    V_SEGM s = s0;
    s.absolute_to_relative(flat);
    EXPECT_TRUE(same_bytes(s, s0));
    V_ARC a;
    a.create(0.0, 1.0, 2.0, V_POINT{1, 1, 1});
    const V_ARC a0 = a;
    a.absolute_to_relative(flat);
    EXPECT_TRUE(same_bytes(a, a0));
}

// --- lengths and canonical forms ---

TEST(Segment, LengthIsFilteredAndEndsAreCopied)
{
    const V_SEGM s{{1, 2, 3}, {4, 6, 15}};
    EXPECT_EQ(s.compute_length(), 13.0);
    const V_SEGM tiny{{1, 1, 1}, {1, 1, 1 + 5e-9}};
    EXPECT_EQ(tiny.compute_length(), 0.0);
    V_POINT pts[3] = {{9, 9, 9}, {9, 9, 9}, {7, 7, 7}};
    s.convert_to_points(pts);
    expect_near(pts[0], s.start, 0.0);
    expect_near(pts[1], s.end, 0.0);
    expect_near(pts[2], 7, 7, 7, 0.0);  // nothing past the two points is written
}

TEST(ArcCanonicalForm, NegativeRadiusFlipsAndSecondCallChangesNothing)
{
    V_ARC a{{0, 0, 0}, -2.0, {0, 0, 1}, {2, 0, 0}, {0, 2, 0}};
    a.force_radius_to_positive();
    EXPECT_EQ(a.radius, 2.0);
    expect_near(a.start, 0, 2, 0, 0.0);
    expect_near(a.end, 2, 0, 0, 0.0);
    expect_near(a.normal, 0, 0, -1, 0.0);
    const V_ARC once = a;
    a.force_radius_to_positive();
    EXPECT_TRUE(same_bytes(a, once));
}

TEST(ArcCanonicalForm, NonNegativeOrNaNRadiusIsLeftAlone)
{
    for (double r : {2.0, 0.0, -0.0, std::nan("")}) {
        V_ARC a{{0, 0, 0}, r, {0, 0, 1}, {2, 0, 0}, {0, 2, 0}};
        const V_ARC before = a;
        a.force_radius_to_positive();
        EXPECT_TRUE(same_bytes(a, before));
    }
}

TEST(CircleCanonicalForm, NegativeRadiusFlipsNormalOnce)
{
    V_CIRCLE c{{1, 2, 3}, -4.0, {0, 1, 0}};
    c.force_radius_to_positive();
    c.force_radius_to_positive();
    EXPECT_EQ(c.radius, 4.0);
    expect_near(c.normal, 0, -1, 0, 0.0);
    expect_near(c.centre, 1, 2, 3, 0.0);
}

TEST(ArcCreate, EndsOnTheCircleAboutZ)
{
    V_ARC a;
    a.create(0.0, kPi / 2, 2.0, V_POINT{1, 1, 5});
    expect_near(a.centre, 1, 1, 5, 0.0);
    expect_near(a.normal, 0, 0, 1, 0.0);
    EXPECT_EQ(a.radius, 2.0);
    expect_near(a.start, 3, 1, 5, 1e-15);
    expect_near(a.end, 1, 3, 5, 1e-15);
    // Any angle: the end is at (cos t, sin t) * radius from the centre.
    a.create(-2.0, 4.0, 1.5, V_POINT{0, 0, 0});
    expect_near(a.start, 1.5 * std::cos(-2.0), 1.5 * std::sin(-2.0), 0, 1e-15);
    expect_near(a.end, 1.5 * std::cos(4.0), 1.5 * std::sin(4.0), 0, 1e-15);
    a.centre = V_POINT{1, 2, 3};
    a.create(0.0, kPi, 1.0, a.centre);  // centre given by reference to the arc's own
    expect_near(a.centre, 1, 2, 3, 0.0);
    expect_near(a.start, 2, 2, 3, 1e-15);
    expect_near(a.end, 0, 2, 3, 1e-15);
}

TEST(ArcCreate, NegativeRadiusIsStoredAndCanonicalFormRestoresTheSameArc)
{
    V_ARC a;
    a.create(0.0, kPi / 2, -2.0, V_POINT{0, 0, 0});
    EXPECT_EQ(a.radius, -2.0);
    expect_near(a.start, -2, 0, 0, 1e-15);
    expect_near(a.end, 0, -2, 0, 1e-15);
    a.force_radius_to_positive();
    // Now counter-clockwise about -z from (0,-2,0) to (-2,0,0): the same quarter circle.
    expect_near(a.start, 0, -2, 0, 1e-15);
    expect_near(a.end, -2, 0, 0, 1e-15);
    expect_near(a.normal, 0, 0, -1, 0.0);
}

TEST(RecordsDeathTest, NullOutputsAreContractViolations)
{
    const V_SEGM s{{0, 0, 0}, {1, 0, 0}};
    EXPECT_DEATH(s.convert_to_points(nullptr), "assertion failed in records.cpp line");
}
