// Workplanes: creation, conversions, comparisons, view and box frames, the origin record.
#include "base_support.h"
#include <string>

using namespace basetest;

namespace {

const double kArcSecond = kPi / 648000.0;

// The world frame turned about x by angle, so that y and z tilt together.
V_WORKPLANE tilted_about_x(double angle)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.yaxis = V_VECTOR{0, std::cos(angle), std::sin(angle)};
    wp.zaxis = V_VECTOR{0, -std::sin(angle), std::cos(angle)};
    return wp;
}

bool is_world(const V_WORKPLANE& wp, const V_POINT& origin)
{
    return xyz_near(wp.origin, origin, 0.0) && xyz_near(wp.xaxis, {1, 0, 0}, 0.0) &&
           xyz_near(wp.yaxis, {0, 1, 0}, 0.0) && xyz_near(wp.zaxis, {0, 0, 1}, 0.0);
}

}  // namespace

TEST(WorkplaneCreate, InitAbsoluteDirectionsAndPointsGiveUnitRightHandedFrames)
{
    V_WORKPLANE wp;
    std::memset(&wp, 0x5A, sizeof wp);
    wp.id = 17;
    init_wpl(&wp);
    EXPECT_TRUE(std::u16string(wp.name) == u"XY" && is_world(wp, {0, 0, 0}));
    wp.origin = V_POINT{4, 5, 6};
    wp.Set_Absolute();
    EXPECT_TRUE(std::u16string(wp.name).empty() && is_world(wp, {0, 0, 0}) && wp.id == 17);
    // x = (1,1,0)/sqrt2, z = unit(d1 x (0,0,3)) = (1,-1,0)/sqrt2, y = z x x = (0,0,1).
    const double h = std::sqrt(0.5);
    V_POINT o{1, 2, 3};
    V_VECTOR d1{1, 1, 0}, d2{0, 0, 3};
    wp.name[0] = u'N';
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    EXPECT_TRUE(xyz_near(wp.xaxis, {h, h, 0}) && xyz_near(wp.yaxis, {0, 0, 1}) &&
                xyz_near(wp.zaxis, {h, -h, 0}) && xyz_near(wp.origin, o, 0.0) && wp.name[0] == 0 &&
                wp.id == 17);
    // p2 - p1 = (3,0,0), p3 - p1 = (0,0,2): z = unit((3,0,0) x (0,0,2)) = (0,-1,0), y = (0,0,1).
    V_POINT p1{1, 1, 1}, p2{4, 1, 1}, p3{1, 1, 3};
    ASSERT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::ok);
    EXPECT_TRUE(xyz_near(wp.origin, p1, 0.0) && xyz_near(wp.xaxis, {1, 0, 0}) &&
                xyz_near(wp.yaxis, {0, 0, 1}) && xyz_near(wp.zaxis, {0, -1, 0}));
    // Its own fields as arguments: d1 = y, d2 = x give x = y, y = x, z = -z.
    init_wpl(&wp);
    ASSERT_EQ(wp.Create_From_Two_Directions(wp.origin, wp.yaxis, wp.xaxis), st::ok);
    EXPECT_TRUE(xyz_near(wp.xaxis, {0, 1, 0}) && xyz_near(wp.yaxis, {1, 0, 0}) &&
                xyz_near(wp.zaxis, {0, 0, -1}));
}

TEST(WorkplaneCreate, DirectionsThatSpanNoPlaneReturn111)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT p1{0, 0, 0}, p2{1, 1, 1}, p3{-2, -2, -2};
    EXPECT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::bad_index);  // collinear
    // Zero, tiny (tiny x huge is unit, but tiny gives no x axis), NaN and infinite directions.
    // The steps run in order: name emptied, origin copied, zaxis = unit(d1 x d2) (zero when
    // that fails), then xaxis = unit(d1); what a failing step wrote stays, later axes are kept.
    const struct {
        V_VECTOR d1, d2, z, x;
    } rows[] = {{{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, {7, 7, 7}},
                {{1e-12, 0, 0}, {0, 1e12, 0}, {0, 0, 1}, {0, 0, 0}},
                {{kNaN, 0, 0}, {1, 0, 0}, {0, 0, 0}, {7, 7, 7}},
                {{1, 0, 0}, {0, kInf, 0}, {0, 0, 0}, {7, 7, 7}}};
    V_POINT o{4, 5, 6};
    for (const auto& r : rows) {
        init_wpl(&wp);
        wp.xaxis = wp.zaxis = V_VECTOR{7, 7, 7};
        V_VECTOR d1 = r.d1, d2 = r.d2;
        EXPECT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::bad_index);
        EXPECT_TRUE(wp.name[0] == 0 && xyz_near(wp.origin, o, 0.0) &&
                    xyz_near(wp.zaxis, r.z, 0.0) && xyz_near(wp.xaxis, r.x, 0.0) &&
                    xyz_near(wp.yaxis, {0, 1, 0}, 0.0));
    }
}

TEST_F(TolFixture, WorldToPlaneSnapsPlaneToWorldDoesNot)
{
    V_WORKPLANE wp = tilted_frame();
    V_POINT r{0.3, -4, 2.5}, s{4, 4, 4};
    plane_to_world(&r, wp);
    EXPECT_TRUE(xyz_near(r, {1 + 0.2 + 8.0 / 3 + 2.5 / 3, -2 + 0.2 - 4.0 / 3 - 5.0 / 3,
                             3 + 0.1 - 8.0 / 3 + 5.0 / 3}));
    world_to_plane(&r, wp);
    EXPECT_TRUE(xyz_near(r, {0.3, -4, 2.5}));
    world_to_plane(&s, wp);
    EXPECT_TRUE(xyz_near(s, local_by_hand(wp, V_POINT{4, 4, 4})));
    init_wpl(&wp);
    wp.origin = V_POINT{10, 0, 0};
    V_POINT p{1, 2, 5e-9};
    plane_to_world(&p, wp);
    EXPECT_TRUE(xyz_near(p, {11, 2, 5e-9}, 0.0));
    world_to_plane(&p, wp);
    EXPECT_TRUE(xyz_near(p, {1, 2, 0}, 0.0));  // 5e-9 is below tavotoll.point
    tavotoll.point = 1e-3;                     // read at call time
    p = V_POINT{10.0005, 7, 0};
    world_to_plane(&p, wp);
    EXPECT_EQ(p.x, 0.0);
    V_PLANE pl;
    make_plane_from_wp(&pl, tilted_frame());
    EXPECT_TRUE(xyz_near(pl.point, {1, -2, 3}, 0.0) &&
                xyz_near(pl.normal, tilted_frame().zaxis, 0.0));
}

TEST(WorkplaneCompare, OriginsExactlyEqualAxesWithinOneArcSecond)
{
    V_WORKPLANE a, b;
    init_wpl(&a);
    init_wpl(&b);
    a.id = 1;
    b.name[0] = u'B';  // names and ids do not count
    EXPECT_TRUE(coincident_workplanes(a, b) && a == b && CompareWorkplanes(a, b) == 0);
    for (double x : {1e-12, 1e-200, kNaN}) {  // 1e-200 squared would underflow to 0
        b.origin.x = x;
        EXPECT_TRUE(!coincident_workplanes(a, b) && a != b && !(a == b)) << x;
        EXPECT_NE(CompareWorkplanes(a, b), 0) << x;
    }
    const struct {
        double arc_seconds;
        bool same;
    } rows[] = {{0.5, true}, {0.99, true}, {1.01, false}, {2.0, false}};
    for (const auto& r : rows) {
        V_WORKPLANE t = tilted_about_x(r.arc_seconds * kArcSecond);
        EXPECT_EQ(coincident_workplanes(a, t), r.same) << r.arc_seconds;
        t.origin = V_POINT{100, 200, 300};
        EXPECT_EQ(CompareWorkplanesAlignment(a, t), r.same) << r.arc_seconds;
    }
    V_WORKPLANE c = a;  // in a's plane, turned a quarter about z
    c.origin = V_POINT{5, -3, 5e-9};
    c.xaxis = V_VECTOR{0, 1, 0};
    c.yaxis = V_VECTOR{-1, 0, 0};
    EXPECT_TRUE(CompareWorkplanes(a, c) == 1 && !CompareWorkplanesAlignment(a, c));
    c.origin.z = 2.0;
    EXPECT_EQ(CompareWorkplanes(a, c), 2);
    c = a;  // opposite sense of z counts as parallel
    c.yaxis = V_VECTOR{0, -1, 0};
    c.zaxis = V_VECTOR{0, 0, -1};
    EXPECT_EQ(CompareWorkplanes(a, c), 2);
    EXPECT_EQ(CompareWorkplanes(a, tilted_about_x(10 * kPi / 180)), 3);
    c.zaxis.z = kNaN;
    EXPECT_EQ(CompareWorkplanes(a, c), 3);
}

TEST(WorkplaneCamera, ZTowardEyeXFromUpAndDegenerateViewsRejected)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.id = 9;
    // Looking along -x from (10,2,3): z = (1,0,0), x = unit((1,0,2) x z) = (0,1,0), y = z x x.
    const V_POINT eye{10, 2, 3}, target{0, 2, 3};
    const V_VECTOR up{1, 0, 2}, along{-3, 0, 0}, zero{0, 0, 0}, nan{0, kNaN, 0};
    ASSERT_EQ(WorkplaneCreationFromCamera(&eye, &target, &up, &wp), st::ok);
    EXPECT_TRUE(xyz_near(wp.origin, target, 0.0) && xyz_near(wp.xaxis, {0, 1, 0}) &&
                xyz_near(wp.yaxis, {0, 0, 1}) && xyz_near(wp.zaxis, {1, 0, 0}) && wp.name[0] == 0 &&
                wp.id == 9);
    const V_WORKPLANE before = wp;
    const V_POINT other{5, 2, 3};  // a target that would change the origin
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &eye, &up, &wp), st::bad_index);
    for (const V_VECTOR& bad_up : {along, zero, nan})
        EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &other, &bad_up, &wp), st::bad_index);
    EXPECT_TRUE(same_bytes(wp, before));
}

TEST(WorkplaneByDimensions, LargestExtentFirstRightHandedCubeIsWorld)
{
    const double sizes[6][3] = {{3, 2, 1}, {3, 1, 2}, {2, 3, 1}, {1, 3, 2}, {2, 1, 3}, {1, 2, 3}};
    V_WORKPLANE wp;
    for (const auto& s : sizes) {
        const V_BOUNDS box{{-1, 0, 2}, {-1 + s[0], s[1], 2 + s[2]}};
        ASSERT_EQ(wpl_axis_ordered_by_dimesions(&box, &wp), st::ok);
        // The x axis picks the extent 3, the y axis the extent 2, z = x cross y.
        const auto axis_of = [&s](double e) {
            return V_VECTOR{s[0] == e ? 1.0 : 0.0, s[1] == e ? 1.0 : 0.0, s[2] == e ? 1.0 : 0.0};
        };
        EXPECT_TRUE(xyz_near(wp.xaxis, axis_of(3), 0.0) && xyz_near(wp.yaxis, axis_of(2), 0.0));
        V_VECTOR xy;
        aXb(&wp.xaxis, &wp.yaxis, &xy);
        EXPECT_TRUE(xyz_near(wp.zaxis, xy, 0.0) &&
                    xyz_near(wp.origin, {-1 + 0.5 * s[0], 0.5 * s[1], 2 + 0.5 * s[2]}, 0.0));
    }
    const V_BOUNDS cube{{1, 1, 1}, {3, 3, 3}}, bad{{0, 0, 0}, {1, kInf, 1}};
    ASSERT_EQ(wpl_axis_ordered_by_dimesions(&cube, &wp), st::ok);
    EXPECT_TRUE(is_world(wp, {2, 2, 2}));
    const V_WORKPLANE before = wp;
    EXPECT_EQ(wpl_axis_ordered_by_dimesions(&bad, &wp), st::bad_input);
    EXPECT_TRUE(same_bytes(wp, before));
}

TEST(WorkplaneOrigin, RoundTripCarriesEveryFieldAndEndsAFullName)
{
    const V_ORIGIN empty;
    EXPECT_TRUE(xyz_near(empty.origin, {0, 0, 0}, 0.0) && xyz_near(empty.zaxis, {0, 0, 0}, 0.0) &&
                empty.name[0] == 0);
    V_WORKPLANE wp = tilted_frame(), back;
    std::memcpy(wp.name, u"Front", sizeof(u"Front"));
    V_ORIGIN packed;
    packed.SetWpl(wp);
    init_wpl(&back);
    packed.GetWpl(&back);
    EXPECT_TRUE(std::u16string(back.name) == u"Front" && back.id == 7 &&
                std::memcmp(&back.origin, &wp.origin, sizeof wp.origin) == 0 &&
                std::memcmp(&back.xaxis, &wp.xaxis, 3 * sizeof(V_VECTOR)) == 0);
    for (char16_t& ch : wp.name) ch = u'A';  // a name filling all 40 units comes back ended
    packed.SetWpl(wp);
    packed.GetWpl(&back);
    EXPECT_TRUE(back.name[38] == u'A' && back.name[39] == 0);
}
