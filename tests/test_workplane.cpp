#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstring>

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
    EXPECT_NEAR(p.x, x, tol);
    EXPECT_NEAR(p.y, y, tol);
    EXPECT_NEAR(p.z, z, tol);
}

bool name_is(const V_WORKPLANE& wp, const char16_t* text)
{
    int i = 0;
    for (; text[i]; ++i)
        if (wp.name[i] != text[i]) return false;
    return wp.name[i] == 0;
}

V_WORKPLANE named_world(const char16_t* name, int16_t id)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    for (int i = 0; i < 40; ++i) wp.name[i] = 0;
    for (int i = 0; name[i] && i < 39; ++i) wp.name[i] = name[i];
    wp.id = id;
    return wp;
}

// The world frame turned about x by angle: y and z axes tilt together.
V_WORKPLANE tilted_about_x(double angle)
{
    V_WORKPLANE wp = named_world(u"", 0);
    wp.yaxis = V_VECTOR{0, std::cos(angle), std::sin(angle)};
    wp.zaxis = V_VECTOR{0, -std::sin(angle), std::cos(angle)};
    return wp;
}

double triple(const V_VECTOR& a, const V_VECTOR& b, const V_VECTOR& c)
{
    return a.x * (b.y * c.z - b.z * c.y) - a.y * (b.x * c.z - b.z * c.x) +
           a.z * (b.x * c.y - b.y * c.x);
}

}  // namespace

// --- initialisation ---

TEST(WorkplaneInit, InitThenSetAbsolute_EmptiesNameKeepsAxesAndId)
{
    V_WORKPLANE wp;
    std::memset(&wp, 0x5A, sizeof wp);
    wp.id = 17;
    init_wpl(&wp);
    EXPECT_TRUE(name_is(wp, u"XY"));
    EXPECT_EQ(wp.id, 17);
    expect_point(wp.origin, 0, 0, 0, 0.0);
    expect_vec(wp.zaxis, 0, 0, 1, 0.0);

    wp.origin = V_POINT{4, 5, 6};
    wp.Set_Absolute();
    EXPECT_TRUE(name_is(wp, u""));
    EXPECT_EQ(wp.id, 17);
    expect_point(wp.origin, 0, 0, 0, 0.0);
    expect_vec(wp.xaxis, 1, 0, 0, 0.0);
    expect_vec(wp.yaxis, 0, 1, 0, 0.0);
    expect_vec(wp.zaxis, 0, 0, 1, 0.0);
}

// --- creation ---

TEST(WorkplaneCreate, TwoDirections_BuildsUnitRightHandedFrame)
{
    V_WORKPLANE wp = named_world(u"Top", 3);
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

    // d1 along (1,1,0), d2 along z: z = unit(d1 x d2) = (1,-1,0)/sqrt2, y = z x x = (0,0,1).
    V_VECTOR e1{1, 1, 0};
    V_VECTOR e2{0, 0, 3};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, e1, e2), st::ok);
    const double h = std::sqrt(0.5);
    expect_vec(wp.xaxis, h, h, 0);
    expect_vec(wp.yaxis, 0, 0, 1);
    expect_vec(wp.zaxis, h, -h, 0);
}

TEST(WorkplaneCreate, ArgumentsThatAreItsOwnFields_AreReadBeforeWriting)
{
    V_WORKPLANE wp = named_world(u"", 0);
    // d1 = y, d2 = x: z = y x x = -z, x = y, y = -z x y = x.
    ASSERT_EQ(wp.Create_From_Two_Directions(wp.origin, wp.yaxis, wp.xaxis), st::ok);
    expect_vec(wp.xaxis, 0, 1, 0);
    expect_vec(wp.yaxis, 1, 0, 0);
    expect_vec(wp.zaxis, 0, 0, -1);
}

TEST(WorkplaneCreate, ThreePoints_UseDifferencesFromTheFirst)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT p1{1, 1, 1};
    V_POINT p2{4, 1, 1};
    V_POINT p3{1, 1, 3};
    ASSERT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::ok);
    // x = (1,0,0), z = x cross (0,0,2) normalised = (0,-1,0), y = z x x = (0,0,1).
    expect_point(wp.origin, 1, 1, 1, 0.0);
    expect_vec(wp.xaxis, 1, 0, 0);
    expect_vec(wp.yaxis, 0, 0, 1);
    expect_vec(wp.zaxis, 0, -1, 0);
}

TEST(WorkplaneCreate, DirectionsThatSpanNoPlane_Return111)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT p1{0, 0, 0};
    V_POINT p2{1, 1, 1};
    V_POINT p3{-2, -2, -2};
    EXPECT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::bad_index);
    EXPECT_TRUE(name_is(wp, u""));  // written before the failure, as documented

    V_POINT o{0, 0, 0};
    V_VECTOR zero{0, 0, 0};
    V_VECTOR x{1, 0, 0};
    EXPECT_EQ(wp.Create_From_Two_Directions(o, zero, x), st::bad_index);
    EXPECT_EQ(wp.Create_From_Two_Directions(o, x, zero), st::bad_index);
    // The cross product is a unit vector, but d1 alone is too short to give an x axis.
    V_VECTOR tiny{1e-12, 0, 0};
    V_VECTOR huge{0, 1e12, 0};
    EXPECT_EQ(wp.Create_From_Two_Directions(o, tiny, huge), st::bad_index);
    V_VECTOR bad{std::nan(""), 0, 0};
    EXPECT_EQ(wp.Create_From_Two_Directions(o, bad, x), st::bad_index);
    V_VECTOR inf{0, INFINITY, 0};
    EXPECT_EQ(wp.Create_From_Two_Directions(o, x, inf), st::bad_index);
}

// --- conversions ---

TEST_F(TolFixture, WorldToPlane_SnapsButPlaneToWorldDoesNot)
{
    V_WORKPLANE wp = named_world(u"", 0);
    wp.origin = V_POINT{10, 0, 0};
    V_POINT p{1, 2, 5e-9};
    plane_to_world(&p, wp);
    EXPECT_EQ(p.z, 5e-9);  // no snapping on the way out
    EXPECT_EQ(p.x, 11.0);
    world_to_plane(&p, wp);
    EXPECT_EQ(p.z, 0.0);  // below tavotoll.point: snapped
    EXPECT_EQ(p.y, 2.0);

    tavotoll.point = 1e-3;  // read at call time
    V_POINT q{10.0005, 7, 0};
    world_to_plane(&q, wp);
    EXPECT_EQ(q.x, 0.0);
}

TEST(WorkplaneConvert, RoundTripThroughTiltedFrame)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT o{1, -2, 3};
    V_VECTOR d1{1, 2, 2};
    V_VECTOR d2{0, 1, 0};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    V_POINT p{0.3, -4, 2.5};
    plane_to_world(&p, wp);
    // The local x coordinate is the projection on x = (1,2,2)/3 of p - o.
    const double lx = ((p.x - 1) * 1 + (p.y + 2) * 2 + (p.z - 3) * 2) / 3.0;
    EXPECT_NEAR(lx, 0.3, 1e-14);
    world_to_plane(&p, wp);
    expect_point(p, 0.3, -4, 2.5);

    V_PLANE pl;
    make_plane_from_wp(&pl, wp);
    expect_point(pl.point, 1, -2, 3, 0.0);
    expect_vec(pl.normal, wp.zaxis.x, wp.zaxis.y, wp.zaxis.z, 0.0);
}

// --- comparisons ---

TEST(WorkplaneCoincident, OriginsMustBeExactlyEqual)
{
    V_WORKPLANE a = named_world(u"A", 1);
    V_WORKPLANE b = named_world(u"B", 2);  // names and ids do not count
    EXPECT_TRUE(coincident_workplanes(a, b));
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);

    b.origin.x = 1e-12;
    EXPECT_FALSE(coincident_workplanes(a, b));
    b.origin.x = 1e-200;  // its square would underflow: the test must not square
    EXPECT_FALSE(coincident_workplanes(a, b));
    EXPECT_TRUE(a != b);
    b.origin.x = std::nan("");
    EXPECT_FALSE(coincident_workplanes(a, b));
}

TEST(WorkplaneCoincident, AxesWithinOneArcSecond)
{
    const V_WORKPLANE a = tilted_about_x(0.0);
    EXPECT_FALSE(coincident_workplanes(a, tilted_about_x(2 * kArcSecond)));
    EXPECT_TRUE(coincident_workplanes(a, tilted_about_x(0.5 * kArcSecond)));
    EXPECT_TRUE(coincident_workplanes(a, tilted_about_x(0.99 * kArcSecond)));
    EXPECT_FALSE(coincident_workplanes(a, tilted_about_x(1.01 * kArcSecond)));
    // A frame turned a half-turn about z shares its z axis only.
    V_WORKPLANE b = a;
    b.xaxis = V_VECTOR{-1, 0, 0};
    b.yaxis = V_VECTOR{0, -1, 0};
    EXPECT_FALSE(coincident_workplanes(a, b));
}

TEST(WorkplaneCompare, ClassifiesSamePlaneParallelAndOblique)
{
    const V_WORKPLANE a = named_world(u"", 0);
    EXPECT_EQ(CompareWorkplanes(a, a), 0);

    // Same plane: origin moved within it and axes turned about z.
    V_WORKPLANE b = a;
    b.origin = V_POINT{5, -3, 0};
    b.xaxis = V_VECTOR{0, 1, 0};
    b.yaxis = V_VECTOR{-1, 0, 0};
    EXPECT_EQ(CompareWorkplanes(a, b), 1);
    b.origin.z = 5e-9;  // within the point tolerance of the plane
    EXPECT_EQ(CompareWorkplanes(a, b), 1);

    b.origin.z = 2.0;
    EXPECT_EQ(CompareWorkplanes(a, b), 2);
    // Opposite sense of z is parallel too, even in the same plane.
    V_WORKPLANE c = a;
    c.yaxis = V_VECTOR{0, -1, 0};
    c.zaxis = V_VECTOR{0, 0, -1};
    EXPECT_EQ(CompareWorkplanes(a, c), 2);

    EXPECT_EQ(CompareWorkplanes(a, tilted_about_x(10 * kPi / 180)), 3);
    V_WORKPLANE n = a;
    n.zaxis.z = std::nan("");
    EXPECT_EQ(CompareWorkplanes(a, n), 3);
}

TEST(WorkplaneCompare, AlignmentIgnoresOriginButNotAxes)
{
    const V_WORKPLANE a = named_world(u"", 0);
    V_WORKPLANE b = a;
    b.origin = V_POINT{100, 200, 300};
    EXPECT_TRUE(CompareWorkplanesAlignment(a, b));
    EXPECT_FALSE(coincident_workplanes(a, b));
    EXPECT_TRUE(CompareWorkplanesAlignment(a, tilted_about_x(0.5 * kArcSecond)));
    EXPECT_FALSE(CompareWorkplanesAlignment(a, tilted_about_x(2 * kArcSecond)));
}

// --- constructions ---

TEST(WorkplaneCamera, ZTowardEyeXFromUp)
{
    V_WORKPLANE wp = named_world(u"old", 9);
    const V_POINT eye{0, 0, 10};
    const V_POINT target{0, 0, 0};
    const V_VECTOR up{0, 1, 0};
    ASSERT_EQ(WorkplaneCreationFromCamera(&eye, &target, &up, &wp), st::ok);
    expect_vec(wp.xaxis, 1, 0, 0);
    expect_vec(wp.yaxis, 0, 1, 0);
    expect_vec(wp.zaxis, 0, 0, 1);
    EXPECT_TRUE(name_is(wp, u""));
    EXPECT_EQ(wp.id, 9);

    // Looking along -x from (10,2,3) at (0,2,3) with a tilted up: y follows up's projection.
    const V_POINT eye2{10, 2, 3};
    const V_POINT target2{0, 2, 3};
    const V_VECTOR up2{1, 0, 2};
    ASSERT_EQ(WorkplaneCreationFromCamera(&eye2, &target2, &up2, &wp), st::ok);
    expect_vec(wp.zaxis, 1, 0, 0);
    expect_vec(wp.xaxis, 0, 1, 0);
    expect_vec(wp.yaxis, 0, 0, 1);
    V_POINT e = eye2;
    world_to_plane(&e, wp);
    expect_point(e, 0, 0, 10);
}

TEST(WorkplaneCamera, DegenerateViews_Return111AndKeepOutput)
{
    V_WORKPLANE wp = named_world(u"keep", 1);
    const V_WORKPLANE before = wp;
    const V_POINT eye{1, 2, 3};
    const V_POINT other{1, 2, 0};
    const V_VECTOR up{0, 1, 0};
    const V_VECTOR along{0, 0, -4};
    const V_VECTOR zero{0, 0, 0};
    const V_VECTOR bad{0, std::nan(""), 0};
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &eye, &up, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &other, &along, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &other, &zero, &wp), st::bad_index);
    EXPECT_EQ(WorkplaneCreationFromCamera(&eye, &other, &bad, &wp), st::bad_index);
    EXPECT_EQ(std::memcmp(&wp, &before, sizeof wp), 0);
}

TEST(WorkplaneByDimensions, LargestExtentFirstAndRightHanded)
{
    const V_VECTOR world[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const double sizes[6][3] = {{3, 2, 1}, {3, 1, 2}, {2, 3, 1}, {1, 3, 2}, {2, 1, 3}, {1, 2, 3}};
    for (const auto& s : sizes) {
        const V_BOUNDS box{{-1, 0, 2}, {-1 + s[0], s[1], 2 + s[2]}};
        V_WORKPLANE wp;
        init_wpl(&wp);
        ASSERT_EQ(wpl_axis_ordered_by_dimesions(&box, &wp), st::ok);
        int big = 0;
        int mid = 0;
        for (int i = 0; i < 3; ++i) {
            if (s[i] == 3) big = i;
            if (s[i] == 2) mid = i;
        }
        expect_vec(wp.xaxis, world[big].x, world[big].y, world[big].z, 0.0);
        expect_vec(wp.yaxis, world[mid].x, world[mid].y, world[mid].z, 0.0);
        EXPECT_EQ(triple(wp.xaxis, wp.yaxis, wp.zaxis), 1.0);
        expect_point(wp.origin, -1 + 0.5 * s[0], 0.5 * s[1], 2 + 0.5 * s[2], 0.0);
    }
}

TEST(WorkplaneByDimensions, CubeGivesWorldAxesAndBadBoxIsRejected)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    const V_BOUNDS cube{{1, 1, 1}, {3, 3, 3}};
    ASSERT_EQ(wpl_axis_ordered_by_dimesions(&cube, &wp), st::ok);
    EXPECT_TRUE(CompareWorkplanesAlignment(wp, named_world(u"", 0)));
    expect_point(wp.origin, 2, 2, 2, 0.0);

    const V_WORKPLANE before = wp;
    const V_BOUNDS bad{{0, 0, 0}, {1, INFINITY, 1}};
    EXPECT_EQ(wpl_axis_ordered_by_dimesions(&bad, &wp), st::bad_input);
    EXPECT_EQ(std::memcmp(&wp, &before, sizeof wp), 0);
}

// --- compact form ---

TEST(WorkplaneOrigin, RoundTripCarriesEveryField)
{
    const V_ORIGIN empty;
    EXPECT_EQ(empty.origin.x, 0.0);
    EXPECT_EQ(empty.zaxis.z, 0.0);
    EXPECT_EQ(empty.name[0], 0);

    V_WORKPLANE wp = named_world(u"", 42);
    V_POINT o{1, 2, 3};
    V_VECTOR d1{0, 1, 0};
    V_VECTOR d2{0, 0, 1};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    const char16_t front[] = u"Front";
    for (int i = 0; i < 6; ++i) wp.name[i] = front[i];
    V_ORIGIN packed;
    packed.SetWpl(wp);
    EXPECT_EQ(packed.id, 42);
    V_WORKPLANE back;
    init_wpl(&back);
    back.id = 0;
    packed.GetWpl(&back);
    EXPECT_TRUE(name_is(back, u"Front"));
    EXPECT_EQ(back.id, 42);
    EXPECT_EQ(std::memcmp(&back.origin, &wp.origin, sizeof wp.origin), 0);
    EXPECT_EQ(std::memcmp(&back.xaxis, &wp.xaxis, 3 * sizeof(V_VECTOR)), 0);
    EXPECT_TRUE(back == wp);

    // A name filling all 40 units comes back terminated.
    for (int i = 0; i < 40; ++i) wp.name[i] = u'A';
    packed.SetWpl(wp);
    packed.GetWpl(&back);
    EXPECT_EQ(back.name[38], u'A');
    EXPECT_EQ(back.name[39], 0);
}
