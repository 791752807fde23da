// Record layouts and the methods of the plain records.
#include "base_support.h"
#include <cstddef>
#include <type_traits>

using namespace basetest;

static_assert(offsetof(V_SEGM, end) == 24 && offsetof(V_LINE, direction) == 24 &&
              offsetof(V_PLANE, normal) == 24 && offsetof(V_BOUNDS, max) == 24 &&
              offsetof(V_CIRCLE, radius) == 24 && offsetof(V_ARC, normal) == 32 &&
              offsetof(V_ARC, start) == 56 && offsetof(V_ELLIPSE, radius1) == 72);
static_assert(offsetof(V_ELLIPTICALARC, start) == 88 && offsetof(V_SYMBOL_INST, angle) == 96 &&
              offsetof(V_SYMBOL_INST, symbol_id) == 104 && offsetof(V_SYMBOL_INST, name) == 112 &&
              offsetof(V_TEXT, font_name) == 112 && offsetof(V_TEXT, alignment) == 144 &&
              offsetof(V_TEXT, font_id) == 150 && offsetof(V_TEXT, flags) == 160);
static_assert(sizeof(V_TOLERANCE) == 32 && offsetof(V_TOLERANCE, param) == 24 &&
              sizeof(V_VECTOR3f) == 12 && sizeof(V_CIRCLE2D) == 24 && sizeof(V_ARC2D) == 56 &&
              offsetof(V_ARC2D, start) == 24 && offsetof(V_LINE2D, direction) == 16);
static_assert(offsetof(V_WORKPLANE, name) == 24 && offsetof(V_WORKPLANE, zaxis) == 160 &&
              sizeof(V_ORIGIN) == 184 && offsetof(V_ORIGIN, name) == 96 &&
              offsetof(V_ORIGIN, id) == 176);
// Hosts build records with braces and copy them bytewise.
static_assert(std::is_aggregate_v<V_POINT> && std::is_aggregate_v<V_ARC> &&
              std::is_aggregate_v<V_MATRIX> && std::is_trivially_copyable_v<V_TEXT> &&
              std::is_trivially_copyable_v<V_WORKPLANE>);

TEST(Segment, LengthIsFilteredAndOnlyTwoPointsAreWritten)
{
    const V_SEGM s{{1, 2, 3}, {4, 6, 15}};
    EXPECT_EQ(s.compute_length(), 13.0);
    EXPECT_EQ((V_SEGM{{1, 1, 1}, {1, 1, 1 + 5e-9}}).compute_length(), 0.0);  // below point
    V_POINT pts[3] = {{9, 9, 9}, {9, 9, 9}, {7, 7, 7}};
    s.convert_to_points(pts);
    EXPECT_TRUE(xyz_near(pts[0], s.start, 0.0) && xyz_near(pts[1], s.end, 0.0) &&
                xyz_near(pts[2], {7, 7, 7}, 0.0));
}

TEST(CanonicalForm, NegativeRadiusFlipsOnceOthersAreLeftAlone)
{
    V_ARC a{{0, 0, 0}, -2.0, {0, 0, 1}, {2, 0, 0}, {0, 2, 0}};
    a.force_radius_to_positive();
    EXPECT_TRUE(a.radius == 2.0 && xyz_near(a.start, {0, 2, 0}, 0.0) &&
                xyz_near(a.end, {2, 0, 0}, 0.0) && xyz_near(a.normal, {0, 0, -1}, 0.0));
    for (double r : {2.0, -0.0, kNaN}) {  // the second call on the flipped arc among them
        a.radius = r;
        V_CIRCLE c{{1, 2, 3}, r, {0, 1, 0}};
        const V_ARC before = a;
        const V_CIRCLE c_before = c;
        a.force_radius_to_positive();
        c.force_radius_to_positive();
        EXPECT_TRUE(same_bytes(a, before) && same_bytes(c, c_before)) << r;
    }
    V_CIRCLE c{{1, 2, 3}, -4.0, {0, 1, 0}};
    c.force_radius_to_positive();
    c.force_radius_to_positive();
    EXPECT_TRUE(c.radius == 4.0 && xyz_near(c.normal, {0, -1, 0}, 0.0) &&
                xyz_near(c.centre, {1, 2, 3}, 0.0));
}

TEST(ArcCreate, EndsOnTheCircleAboutZAndNegativeRadiusIsTheSameArcReversed)
{
    V_ARC a;
    for (double t0 : {0.0, -2.0}) {
        const double t1 = t0 + 2.5;  // the ends are at (cos t, sin t) * radius from the centre
        a.create(t0, t1, 1.5, V_POINT{1, 1, 5});
        EXPECT_TRUE(xyz_near(a.centre, {1, 1, 5}, 0.0) && xyz_near(a.normal, {0, 0, 1}, 0.0));
        EXPECT_TRUE(xyz_near(a.start, {1 + 1.5 * std::cos(t0), 1 + 1.5 * std::sin(t0), 5}) &&
                    xyz_near(a.end, {1 + 1.5 * std::cos(t1), 1 + 1.5 * std::sin(t1), 5}));
    }
    a.create(0.0, kPi, 1.0, a.centre);  // centre given by reference to the arc's own
    EXPECT_TRUE(xyz_near(a.start, {2, 1, 5}) && xyz_near(a.end, {0, 1, 5}));
    a.create(0.0, kPi / 2, -2.0, V_POINT{0, 0, 0});
    EXPECT_TRUE(a.radius == -2.0 && xyz_near(a.start, {-2, 0, 0}) && xyz_near(a.end, {0, -2, 0}));
    a.force_radius_to_positive();
    // Now counter-clockwise about -z from (0,-2,0) to (-2,0,0): the same quarter circle.
    EXPECT_TRUE(xyz_near(a.start, {0, -2, 0}) && xyz_near(a.end, {-2, 0, 0}));
}

TEST(RecordsDeathTest, NullOutputsAreContractViolations)
{
    const V_SEGM s{{0, 0, 0}, {1, 0, 0}};
    EXPECT_DEATH(s.convert_to_points(nullptr), "assertion failed in records.cpp line");
}
