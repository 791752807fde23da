// Record layouts and the methods of the plain records.
#include "base_support.h"
#include <cstddef>
#include <type_traits>

using namespace basetest;

// --- layouts: every record reaches binary records byte for byte (the header pins the sizes) ---

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

// --- frame conversions on the tilted frame ---

TEST(PointAndVectorFrame, LocalToWorldByHandAndBack)
{
    const V_WORKPLANE wp = tilted_frame();
    // o + 3X, o + 3Y, o + 3Z and o + 3(X + Y + Z), worked out by hand.
    const V_POINT local[] = {{3, 0, 0}, {0, 3, 0}, {0, 0, 3}, {3, 3, 3}};
    const V_POINT world[] = {{3, 0, 4}, {-1, -1, 5}, {2, -4, 5}, {2, -1, 8}};
    for (int i = 0; i < 4; ++i) {
        V_POINT p = local[i], out;
        local[i].relative_to_absolute(wp, &out);
        p.relative_to_absolute(wp);
        EXPECT_TRUE(xyz_near(out, world[i]) && xyz_near(p, world[i])) << i;
        world[i].absolute_to_relative(wp, &out);
        p.absolute_to_relative(wp);
        EXPECT_TRUE(xyz_near(out, local[i]) && xyz_near(p, local[i])) << i;
    }
    V_VECTOR v{3, 0, 0}, w;  // a vector converts without the origin: 3X
    v.relative_to_absolute(wp, &w);
    v.relative_to_absolute(wp);
    EXPECT_TRUE(xyz_near(v, {2, 2, 1}) && xyz_near(w, {2, 2, 1}));
    v.absolute_to_relative(wp, &w);
    v.absolute_to_relative(wp);
    EXPECT_TRUE(xyz_near(v, {3, 0, 0}) && xyz_near(w, {3, 0, 0}));
    V_POINT tiny{1 + 1e-12, -2, 3};  // no snapping below tavotoll.point
    tiny.absolute_to_relative(wp);
    EXPECT_NE(tiny.x, 0.0);
}

TEST(RecordFrame, MembersConvertAsPointsAndVectorsRadiusKept)
{
    // Segments and arcs go through the frame's matrix, lines and circles through the point
    // and vector formulas; both must give the hand dot products and come back.
    V_WORKPLANE wp = tilted_frame();
    const V_SEGM s0{{0.5, 4, -2}, {10, -3, 7}};
    const V_LINE l0{{3, 1, 0}, {0, 0, 3}};
    const V_CIRCLE c0{{4, 4, 4}, -2.5, {0, 0, 1}};
    const V_ARC a0{{1, 1, 1}, -3.0, {0, 1, 0}, {4, 1, 1}, {1, 1, -2}};
    V_SEGM s = s0;
    V_LINE l = l0;
    V_CIRCLE c = c0;
    V_ARC a = a0;
    s.absolute_to_relative(wp);
    l.absolute_to_relative(wp);
    c.absolute_to_relative(wp);
    a.absolute_to_relative(wp);
    EXPECT_TRUE(xyz_near(s.start, local_by_hand(wp, s0.start), 1e-13) &&
                xyz_near(s.end, local_by_hand(wp, s0.end), 1e-13));
    EXPECT_TRUE(xyz_near(l.point, local_by_hand(wp, l0.point)) &&
                xyz_near(l.direction, {1, 2, 2}));  // 3 (z.X, z.Y, z.Z), no origin
    EXPECT_TRUE(xyz_near(c.centre, local_by_hand(wp, c0.centre)) &&
                xyz_near(c.normal, {1.0 / 3, 2.0 / 3, 2.0 / 3}) && c.radius == -2.5);
    EXPECT_TRUE(xyz_near(a.start, local_by_hand(wp, a0.start), 1e-13) &&
                xyz_near(a.end, local_by_hand(wp, a0.end), 1e-13) &&
                xyz_near(a.centre, local_by_hand(wp, a0.centre), 1e-13));
    EXPECT_TRUE(xyz_near(a.normal, {2.0 / 3, 1.0 / 3, -2.0 / 3}) && a.radius == -3.0);
    s.relative_to_absolute(wp);
    l.relative_to_absolute(wp);
    c.relative_to_absolute(wp);
    a.relative_to_absolute(wp);
    EXPECT_TRUE(xyz_near(s.start, s0.start, 1e-13) && xyz_near(s.end, s0.end, 1e-13));
    EXPECT_TRUE(xyz_near(l.point, l0.point, 1e-13) && xyz_near(l.direction, l0.direction));
    EXPECT_TRUE(xyz_near(c.centre, c0.centre, 1e-13) && xyz_near(c.normal, c0.normal));
    EXPECT_TRUE(xyz_near(a.start, a0.start, 1e-13) && xyz_near(a.end, a0.end, 1e-13) &&
                xyz_near(a.centre, a0.centre, 1e-13) && xyz_near(a.normal, a0.normal));
    // A frame whose matrix has no inverse leaves segments and arcs as they are.
    const V_WORKPLANE flat{};
    wp = flat;
    s.absolute_to_relative(wp);
    a.absolute_to_relative(wp);
    EXPECT_TRUE(xyz_near(s.start, s0.start, 1e-13) && xyz_near(a.end, a0.end, 1e-13));
}

// --- lengths, canonical forms, creation ---

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
