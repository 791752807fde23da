// Workplanes: creation, conversions, comparisons, view and box frames, the origin record.
#include "base_support.h"
#include <functional>
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

// The origin exactly, the axes within tol.
bool frame_is(const V_WORKPLANE& wp, V_POINT o, V_VECTOR x, V_VECTOR y, V_VECTOR z, double tol)
{
    return xyz_near(wp.origin, o, 0.0) && xyz_near(wp.xaxis, x, tol) &&
           xyz_near(wp.yaxis, y, tol) && xyz_near(wp.zaxis, z, tol);
}

bool is_world(const V_WORKPLANE& wp, const V_POINT& origin)
{
    return frame_is(wp, origin, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, 0.0);
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
    EXPECT_TRUE(frame_is(wp, o, {h, h, 0}, {0, 0, 1}, {h, -h, 0}, 1e-14) && wp.name[0] == 0 &&
                wp.id == 17);
    // p2 - p1 = (3,0,0), p3 - p1 = (0,0,2): z = unit((3,0,0) x (0,0,2)) = (0,-1,0), y = (0,0,1).
    V_POINT p1{1, 1, 1}, p2{4, 1, 1}, p3{1, 1, 3};
    ASSERT_EQ(wp.Create_From_Three_Points(p1, p2, p3), st::ok);
    EXPECT_TRUE(frame_is(wp, p1, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}, 1e-14));
    // Its own fields as arguments: d1 = y, d2 = x give x = y, y = x, z = -z.
    init_wpl(&wp);
    ASSERT_EQ(wp.Create_From_Two_Directions(wp.origin, wp.yaxis, wp.xaxis), st::ok);
    EXPECT_TRUE(frame_is(wp, {0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}, 1e-14));
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
    // clang-format off
    const struct { V_VECTOR d1, d2, z, x; } rows[] = {
        {{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, {7, 7, 7}},        // zero
        {{1e-12, 0, 0}, {0, 1e12, 0}, {0, 0, 1}, {0, 0, 0}},  // tiny
        {{kNaN, 0, 0}, {1, 0, 0}, {0, 0, 0}, {7, 7, 7}},      // NaN
        {{1, 0, 0}, {0, kInf, 0}, {0, 0, 0}, {7, 7, 7}}};     // infinite
    // clang-format on
    V_POINT o{4, 5, 6};
    for (const auto& r : rows) {
        init_wpl(&wp);
        wp.xaxis = wp.zaxis = V_VECTOR{7, 7, 7};
        V_VECTOR d1 = r.d1, d2 = r.d2;
        EXPECT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::bad_index);
        EXPECT_TRUE(wp.name[0] == 0 && frame_is(wp, o, r.x, {0, 1, 0}, r.z, 0.0));
    }
}

// Every record kind, the point list, the free functions and the frame matrices, converted
// on the tilted frame: local slots are the hand dot products (without the origin for the
// direction slots), and converting back gives the world values again.
TEST(FrameConversion, EveryKindMatchesHandDotProductsAndComesBack)
{
    using Convert = std::function<void(V_POINT*, const V_WORKPLANE&, bool to_local)>;
    const auto vec = [](const V_POINT& p) { return V_VECTOR{p.x, p.y, p.z}; };
    const auto pt = [](const V_VECTOR& v) { return V_POINT{v.x, v.y, v.z}; };
    V_WORKPLANE shifted;  // the world frame moved to (-1, 0, 0)
    init_wpl(&shifted);
    shifted.origin.x = -1.0;
    // Slot count and direction bits (bit i: slot i is a direction) of each kind.
    const struct {
        const char* kind;
        int n_slots;
        unsigned directions;
        Convert convert;
    } kinds[] = {
        {"point, to out and in place", 1, 0,
         [](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             V_POINT o;
             to_local ? s[0].absolute_to_relative(wp, &o) : s[0].relative_to_absolute(wp, &o);
             to_local ? s[0].absolute_to_relative(wp) : s[0].relative_to_absolute(wp);
             EXPECT_TRUE(same_bytes(o, s[0]));
         }},
        {"vector, to out and in place", 1, 1,
         [&](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             V_VECTOR v = vec(s[0]), o;
             to_local ? v.absolute_to_relative(wp, &o) : v.relative_to_absolute(wp, &o);
             to_local ? v.absolute_to_relative(wp) : v.relative_to_absolute(wp);
             EXPECT_TRUE(same_bytes(o, v));
             s[0] = pt(v);
         }},
        {"segment", 2, 0,
         [](V_POINT* s, V_WORKPLANE wp, bool to_local) {
             V_SEGM g{s[0], s[1]};
             to_local ? g.absolute_to_relative(wp) : g.relative_to_absolute(wp);
             s[0] = g.start, s[1] = g.end;
         }},
        {"line", 2, 2,
         [&](V_POINT* s, V_WORKPLANE wp, bool to_local) {
             V_LINE l{s[0], vec(s[1])};
             to_local ? l.absolute_to_relative(wp) : l.relative_to_absolute(wp);
             s[0] = l.point, s[1] = pt(l.direction);
         }},
        {"circle, radius kept", 2, 2,
         [&](V_POINT* s, V_WORKPLANE wp, bool to_local) {
             V_CIRCLE c{s[0], -2.5, vec(s[1])};
             to_local ? c.absolute_to_relative(wp) : c.relative_to_absolute(wp);
             s[0] = c.centre, s[1] = pt(c.normal);
             EXPECT_EQ(c.radius, -2.5);
         }},
        {"arc, radius kept", 4, 2,
         [&](V_POINT* s, V_WORKPLANE wp, bool to_local) {
             V_ARC a{s[0], -3.0, vec(s[1]), s[2], s[3]};
             to_local ? a.absolute_to_relative(wp) : a.relative_to_absolute(wp);
             s[0] = a.centre, s[1] = pt(a.normal), s[2] = a.start, s[3] = a.end;
             EXPECT_EQ(a.radius, -3.0);
         }},
        {"world_to_plane and plane_to_world", 1, 0,
         [](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             to_local ? world_to_plane(&s[0], wp) : plane_to_world(&s[0], wp);
         }},
        {"point list with a hole", 2, 0,
         [](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             List<V_POINT> l;
             for (const V_POINT& p : {s[0], V_POINT{9, 9, 9}, s[1]}) l.Append(p);
             l.Delete(2);
             EXPECT_EQ(to_local ? absolute_to_relative(wp, &l) : relative_to_absolute(wp, &l),
                       st::ok);
             EXPECT_TRUE(!l.IsSet(2) && l.Count() == 3);
             s[0] = *l.GetPtr(1), s[1] = *l.GetPtr(3);
         }},
        {"frame matrices", 2, 2,
         [&](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             V_MATRIX to[2];  // to local, to world
             ASSERT_EQ(mat_WorkPlane_World(&wp, &to[0], &to[1]), st::ok);
             V_VECTOR d = vec(s[1]);
             mat_rotate_vector(&d, &to[to_local ? 0 : 1], &d);
             s[0] = apply(to[to_local ? 0 : 1], s[0]), s[1] = pt(d);
         }},
        {"frame to frame matrix", 1, 0,
         [&](V_POINT* s, const V_WORKPLANE& wp, bool to_local) {
             V_MATRIX M;  // through the local coordinates of the shifted frame
             if (to_local) {
                 ASSERT_EQ(mat_WorkPlane_WorkPlane(&shifted, &wp, &M), st::ok);
                 s[0] = apply(M, V_POINT{s[0].x + 1, s[0].y, s[0].z});
             } else {
                 ASSERT_EQ(mat_WorkPlane_WorkPlane(&wp, &shifted, &M), st::ok);
                 s[0] = apply(M, s[0]);
                 s[0].x -= 1;
             }
         }},
    };
    const V_WORKPLANE wp = tilted_frame();
    const V_POINT world[4] = {{0.5, 4, -2}, {10, -3, 7}, {4, 4, 4}, {1, 1, -2}};
    for (const auto& k : kinds) {
        V_POINT s[4] = {world[0], world[1], world[2], world[3]};
        k.convert(s, wp, true);
        for (int i = 0; i < k.n_slots; ++i)
            EXPECT_TRUE(
                xyz_near(s[i], local_by_hand(wp, world[i], !(k.directions >> i & 1)), 1e-13))
                << k.kind << ", slot " << i;
        k.convert(s, wp, false);
        for (int i = 0; i < k.n_slots; ++i)
            EXPECT_TRUE(xyz_near(s[i], world[i], 1e-13)) << k.kind << ", back, slot " << i;
    }
    // Segments and arcs go through the frame's matrix: with no inverse they stay as they are.
    V_SEGM g{world[0], world[1]};
    V_ARC a{world[0], 1.0, {0, 0, 1}, world[2], world[3]};
    V_WORKPLANE flat{};
    g.absolute_to_relative(flat);
    a.absolute_to_relative(flat);
    EXPECT_TRUE(xyz_near(g.end, world[1], 0.0) && xyz_near(a.end, world[3], 0.0));
    V_PLANE pl;
    make_plane_from_wp(&pl, wp);
    EXPECT_TRUE(xyz_near(pl.point, wp.origin, 0.0) && xyz_near(pl.normal, wp.zaxis, 0.0));
}

// world_to_plane drops local coordinates below tavotoll.point, read at the call; the point
// members and plane_to_world keep every digit.
TEST_F(TolFixture, WorldToPlaneAloneSnapsToTolerancePoint)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    wp.origin = V_POINT{10, 0, 0};
    // how: 0 world_to_plane, 1 plane_to_world, 2 absolute_to_relative member.
    // clang-format off
    const struct { int how; double point; V_POINT in, want; } rows[] = {
        {0, 1e-8, {11, 2, 5e-9}, {1, 2, 0}},      // 5e-9 below the tolerance
        {1, 1e-8, {1, 2, 5e-9}, {11, 2, 5e-9}},   // kept
        {2, 1e-8, {10, 2, 5e-9}, {0, 2, 5e-9}},   // kept
        {0, 1e-3, {10.0005, 7, 0}, {0, 7, 0}},    // the larger tolerance at the next call
        {0, 1e-12, {10, 2, 5e-9}, {0, 2, 5e-9}},  // and the smaller one
    };
    // clang-format on
    for (const auto& r : rows) {
        tavotoll.point = r.point;
        V_POINT p = r.in;
        if (r.how == 0) world_to_plane(&p, wp);
        if (r.how == 1) plane_to_world(&p, wp);
        if (r.how == 2) p.absolute_to_relative(wp);
        EXPECT_TRUE(xyz_near(p, r.want, 1e-12)) << r.how << " " << r.point;
    }
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
    for (double secs : {0.5, 0.99, 1.01, 2.0}) {  // the same below one arc second
        V_WORKPLANE t = tilted_about_x(secs * kArcSecond);
        EXPECT_EQ(coincident_workplanes(a, t), secs < 1.0) << secs;
        t.origin = V_POINT{100, 200, 300};
        EXPECT_EQ(CompareWorkplanesAlignment(a, t), secs < 1.0) << secs;
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
    EXPECT_TRUE(frame_is(wp, target, {0, 1, 0}, {0, 0, 1}, {1, 0, 0}, 1e-14) && wp.name[0] == 0 &&
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
        V_VECTOR xy;
        aXb(&wp.xaxis, &wp.yaxis, &xy);
        EXPECT_TRUE(frame_is(wp, {-1 + 0.5 * s[0], 0.5 * s[1], 2 + 0.5 * s[2]}, axis_of(3),
                             axis_of(2), xy, 0.0));
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
