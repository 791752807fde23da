#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstring>
#include <string>

namespace {

const double kPi = 3.14159265358979323846;
const double kArcSecond = kPi / 648000.0;

class TolFixture : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    void TearDown() override { tavotoll = saved_; }
};

void expect_vec(const V_VECTOR& v, double x, double y, double z, double tol = 1e-15)
{
    EXPECT_NEAR(v.x, x, tol);
    EXPECT_NEAR(v.y, y, tol);
    EXPECT_NEAR(v.z, z, tol);
}

void expect_point(const V_POINT& p, double x, double y, double z, double tol = 1e-14)
{
    expect_vec(V_VECTOR{p.x, p.y, p.z}, x, y, z, tol);
}

bool name_is(const V_WORKPLANE& wp, const std::u16string& text)
{
    return std::u16string(wp.name) == text;
}

// The world frame turned about x by angle, so that y and z tilt together.
V_WORKPLANE tilted_about_x(double angle)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.yaxis = V_VECTOR{0, std::cos(angle), std::sin(angle)};
    wp.zaxis = V_VECTOR{0, -std::sin(angle), std::cos(angle)};
    return wp;
}

}  // namespace

TEST(WorkplaneInit, InitThenSetAbsoluteEmptiesNameKeepsAxesAndId)
{
    V_WORKPLANE wp;
    std::memset(&wp, 0x5A, sizeof wp);
    wp.id = 17;
    init_wpl(&wp);
    EXPECT_TRUE(name_is(wp, u"XY"));
    wp.origin = V_POINT{4, 5, 6};
    wp.Set_Absolute();
    EXPECT_TRUE(name_is(wp, u""));
    EXPECT_EQ(wp.id, 17);
    expect_point(wp.origin, 0, 0, 0, 0.0);
    expect_vec(wp.xaxis, 1, 0, 0, 0.0);
    expect_vec(wp.yaxis, 0, 1, 0, 0.0);
    expect_vec(wp.zaxis, 0, 0, 1, 0.0);
}

TEST(WorkplaneCreate, TwoDirectionsAndThreePointsBuildUnitRightHandedFrames)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.id = 3;
    V_POINT o{1, 2, 3};
    V_VECTOR d1{2, 0, 0};
    V_VECTOR d2{1, 1, 0};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    expect_vec(wp.xaxis, 1, 0, 0);
    expect_vec(wp.yaxis, 0, 1, 0);
    expect_vec(wp.zaxis, 0, 0, 1);
    expect_point(wp.origin, 1, 2, 3, 0.0);
    EXPECT_TRUE(name_is(wp, u""));
    EXPECT_EQ(wp.id, 3);

    // x = (1,1,0)/sqrt2, z = unit(d1 x (0,0,3)) = (1,-1,0)/sqrt2, y = z x x = (0,0,1).
    const double h = std::sqrt(0.5);
    V_VECTOR e1{1, 1, 0};
    V_VECTOR e2{0, 0, 3};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, e1, e2), st::ok);
    expect_vec(wp.xaxis, h, h, 0);
    expect_vec(wp.yaxis, 0, 0, 1);
    expect_vec(wp.zaxis, h, -h, 0);

    // p2 - p1 = (3,0,0), p3 - p1 = (0,0,2): z = unit((3,0,0) x (0,0,2)) = (0,-1,0), y = (0,0,1).
    V_POINT p1{1, 1, 1};
    V_POINT p2{4, 1, 1};
    V_POINT p3{1, 1, 3};
    ASSERT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::ok);
    expect_point(wp.origin, 1, 1, 1, 0.0);
    expect_vec(wp.yaxis, 0, 0, 1);
    expect_vec(wp.zaxis, 0, -1, 0);

    // Its own fields as arguments: d1 = y, d2 = x give x = y, y = x, z = -z.
    init_wpl(&wp);
    ASSERT_EQ(wp.Create_From_Two_Directions(wp.origin, wp.yaxis, wp.xaxis), st::ok);
    expect_vec(wp.xaxis, 0, 1, 0);
    expect_vec(wp.yaxis, 1, 0, 0);
    expect_vec(wp.zaxis, 0, 0, -1);
}

TEST(WorkplaneCreate, DirectionsThatSpanNoPlaneReturn111)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT p1{0, 0, 0};
    V_POINT p2{1, 1, 1};
    V_POINT p3{-2, -2, -2};
    EXPECT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::bad_index);
    V_VECTOR zero{0, 0, 0};
    V_VECTOR x{1, 0, 0};
    V_VECTOR tiny{1e-12, 0, 0};  // d1 x huge is unit, but d1 alone cannot give an x axis
    V_VECTOR huge{0, 1e12, 0};
    V_VECTOR bad{std::nan(""), 0, 0};
    V_VECTOR inf{0, INFINITY, 0};
    EXPECT_EQ(wp.Create_From_Two_Directions(p1, zero, x), st::bad_index);
    EXPECT_EQ(wp.Create_From_Two_Directions(p1, tiny, huge), st::bad_index);
    EXPECT_EQ(wp.Create_From_Two_Directions(p1, bad, x), st::bad_index);
    EXPECT_EQ(wp.Create_From_Two_Directions(p1, x, inf), st::bad_index);
}

TEST_F(TolFixture, WorldToPlaneSnapsButPlaneToWorldDoesNot)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.origin = V_POINT{10, 0, 0};
    V_POINT p{1, 2, 5e-9};
    plane_to_world(&p, wp);
    expect_point(p, 11, 2, 5e-9, 0.0);
    world_to_plane(&p, wp);
    expect_point(p, 1, 2, 0, 0.0);  // 5e-9 is below tavotoll.point
    tavotoll.point = 1e-3;          // read at call time
    V_POINT q{10.0005, 7, 0};
    world_to_plane(&q, wp);
    EXPECT_EQ(q.x, 0.0);

    V_POINT o{1, -2, 3};
    V_VECTOR d1{1, 2, 2};
    V_VECTOR d2{0, 1, 0};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    V_POINT r{0.3, -4, 2.5};
    plane_to_world(&r, wp);
    // Independently: the local x is (r - o) projected on (1,2,2)/3.
    EXPECT_NEAR(((r.x - 1) + (r.y + 2) * 2 + (r.z - 3) * 2) / 3.0, 0.3, 1e-14);
    world_to_plane(&r, wp);
    expect_point(r, 0.3, -4, 2.5);
    V_PLANE pl;
    make_plane_from_wp(&pl, wp);
    EXPECT_EQ(std::memcmp(&pl.normal, &wp.zaxis, sizeof pl.normal), 0);
    expect_point(pl.point, 1, -2, 3, 0.0);
}

TEST(WorkplaneCoincident, OriginsExactlyEqualAxesWithinOneArcSecond)
{
    V_WORKPLANE a;
    V_WORKPLANE b;
    init_wpl(&a);
    init_wpl(&b);
    a.id = 1;
    b.name[0] = u'B';  // names and ids do not count
    EXPECT_TRUE(coincident_workplanes(a, b));
    EXPECT_TRUE(a == b);
    b.origin.x = 1e-12;
    EXPECT_FALSE(coincident_workplanes(a, b));
    EXPECT_TRUE(a != b);
    b.origin.x = 1e-200;  // its square would underflow to 0
    EXPECT_FALSE(coincident_workplanes(a, b));
    b.origin.x = std::nan("");
    EXPECT_FALSE(a == b);

    EXPECT_FALSE(coincident_workplanes(a, tilted_about_x(2 * kArcSecond)));
    EXPECT_TRUE(coincident_workplanes(a, tilted_about_x(0.5 * kArcSecond)));
    EXPECT_TRUE(coincident_workplanes(a, tilted_about_x(0.99 * kArcSecond)));
    EXPECT_FALSE(coincident_workplanes(a, tilted_about_x(1.01 * kArcSecond)));
}

TEST(WorkplaneCompare, SamePlaneParallelObliqueAndAlignment)
{
    V_WORKPLANE a;
    init_wpl(&a);
    EXPECT_EQ(CompareWorkplanes(a, a), 0);
    V_WORKPLANE b = a;  // in a's plane, turned a quarter about z
    b.origin = V_POINT{5, -3, 5e-9};
    b.xaxis = V_VECTOR{0, 1, 0};
    b.yaxis = V_VECTOR{-1, 0, 0};
    EXPECT_EQ(CompareWorkplanes(a, b), 1);
    EXPECT_FALSE(CompareWorkplanesAlignment(a, b));
    b.origin.z = 2.0;
    EXPECT_EQ(CompareWorkplanes(a, b), 2);
    V_WORKPLANE c = a;  // opposite sense of z counts as parallel
    c.yaxis = V_VECTOR{0, -1, 0};
    c.zaxis = V_VECTOR{0, 0, -1};
    EXPECT_EQ(CompareWorkplanes(a, c), 2);
    EXPECT_EQ(CompareWorkplanes(a, tilted_about_x(10 * kPi / 180)), 3);
    c.zaxis.z = std::nan("");
    EXPECT_EQ(CompareWorkplanes(a, c), 3);

    V_WORKPLANE moved = tilted_about_x(0.5 * kArcSecond);
    moved.origin = V_POINT{100, 200, 300};
    EXPECT_TRUE(CompareWorkplanesAlignment(a, moved));
    EXPECT_FALSE(CompareWorkplanesAlignment(a, tilted_about_x(2 * kArcSecond)));
}

TEST(WorkplaneCamera, ZTowardEyeXFromUpAndDegenerateViewsRejected)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.id = 9;
    // Looking along -x from (10,2,3): z = (1,0,0), x = unit((1,0,2) x z) = (0,1,0), y = z x x.
    const V_POINT eye{10, 2, 3};
    const V_POINT target{0, 2, 3};
    const V_VECTOR up{1, 0, 2};
    ASSERT_EQ(WorkplaneCreationFromCamera(&eye, &target, &up, &wp), st::ok);
    expect_vec(wp.xaxis, 0, 1, 0);
    expect_vec(wp.yaxis, 0, 0, 1);
    expect_vec(wp.zaxis, 1, 0, 0);
    EXPECT_TRUE(name_is(wp, u""));
    EXPECT_EQ(wp.id, 9);
    V_POINT e = eye;
    world_to_plane(&e, wp);
    expect_point(e, 0, 0, 10);

    const V_WORKPLANE before = wp;
    const V_VECTOR along{-3, 0, 0};
    const V_VECTOR zero{0, 0, 0};
    const V_VECTOR bad{0, std::nan(""), 0};
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &eye, &up, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &target, &along, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &target, &zero, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &target, &bad, &wp), st::bad_index);
    EXPECT_EQ(std::memcmp(&wp, &before, sizeof wp), 0);
}

TEST(WorkplaneByDimensions, LargestExtentFirstRightHandedCubeIsWorld)
{
    const double sizes[6][3] = {{3, 2, 1}, {3, 1, 2}, {2, 3, 1}, {1, 3, 2}, {2, 1, 3}, {1, 2, 3}};
    for (const auto& s : sizes) {
        const V_BOUNDS box{{-1, 0, 2}, {-1 + s[0], s[1], 2 + s[2]}};
        V_WORKPLANE wp;
        init_wpl(&wp);
        ASSERT_EQ(wpl_axis_ordered_by_dimesions(&box, &wp), st::ok);
        // The x axis picks the extent 3, the y axis the extent 2.
        expect_vec(wp.xaxis, s[0] == 3, s[1] == 3, s[2] == 3, 0.0);
        expect_vec(wp.yaxis, s[0] == 2, s[1] == 2, s[2] == 2, 0.0);
        V_VECTOR xy;
        aXb(&wp.xaxis, &wp.yaxis, &xy);
        expect_vec(wp.zaxis, xy.x, xy.y, xy.z, 0.0);
        expect_point(wp.origin, -1 + 0.5 * s[0], 0.5 * s[1], 2 + 0.5 * s[2], 0.0);
    }
    V_WORKPLANE wp;
    V_WORKPLANE world;
    init_wpl(&world);
    const V_BOUNDS cube{{1, 1, 1}, {3, 3, 3}};
    ASSERT_EQ(wpl_axis_ordered_by_dimesions(&cube, &wp), st::ok);
    EXPECT_TRUE(CompareWorkplanesAlignment(wp, world));
    const V_WORKPLANE before = wp;
    const V_BOUNDS bad{{0, 0, 0}, {1, INFINITY, 1}};
    EXPECT_EQ(wpl_axis_ordered_by_dimesions(&bad, &wp), st::bad_input);
    EXPECT_EQ(std::memcmp(&wp, &before, sizeof wp), 0);
}

TEST(WorkplaneOrigin, RoundTripCarriesEveryField)
{
    const V_ORIGIN empty;
    EXPECT_EQ(empty.origin.x, 0.0);
    EXPECT_EQ(empty.zaxis.z, 0.0);
    EXPECT_EQ(empty.name[0], 0);

    V_WORKPLANE wp = tilted_about_x(0.3);
    wp.origin = V_POINT{1, 2, 3};
    wp.id = 42;
    std::memcpy(wp.name, u"Front", sizeof(u"Front"));
    V_ORIGIN packed;
    packed.SetWpl(wp);
    V_WORKPLANE back;
    init_wpl(&back);
    back.id = 0;
    packed.GetWpl(&back);
    EXPECT_TRUE(name_is(back, u"Front"));
    EXPECT_EQ(back.id, 42);
    EXPECT_EQ(std::memcmp(&back.origin, &wp.origin, sizeof wp.origin), 0);
    EXPECT_EQ(std::memcmp(&back.xaxis, &wp.xaxis, 3 * sizeof(V_VECTOR)), 0);

    for (char16_t& ch : wp.name) ch = u'A';  // a name filling all 40 units comes back ended
    packed.SetWpl(wp);
    packed.GetWpl(&back);
    EXPECT_EQ(back.name[38], u'A');
    EXPECT_EQ(back.name[39], 0);
}
