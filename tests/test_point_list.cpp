// Point-list forms of translation, frame conversion and bounding box.
#include "foundation/point_list.h"
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <limits>

namespace {

List<V_POINT> three_points()
{
    List<V_POINT> l;
    l.Append(V_POINT{1, 2, 3});
    l.Append(V_POINT{-4, 0, 8});
    l.Append(V_POINT{2, -5, 1});
    return l;
}

// X = (0,1,0), Y = (0,0,1), Z = (1,0,0): a third of a turn about (1,1,1), origin (10, 20, 30).
V_WORKPLANE cyclic_frame()
{
    V_WORKPLANE wp{};
    wp.origin = V_POINT{10, 20, 30};
    wp.xaxis = V_VECTOR{0, 1, 0};
    wp.yaxis = V_VECTOR{0, 0, 1};
    wp.zaxis = V_VECTOR{1, 0, 0};
    return wp;
}

void expect_point(const V_POINT* p, double x, double y, double z)
{
    ASSERT_NE(p, nullptr);
    EXPECT_DOUBLE_EQ(p->x, x);
    EXPECT_DOUBLE_EQ(p->y, y);
    EXPECT_DOUBLE_EQ(p->z, z);
}

}  // namespace

TEST(PointListTranslate, ByVectorMovesEveryPoint)
{
    List<V_POINT> l = three_points();
    V_VECTOR v{1, -1, 0.5};
    EXPECT_EQ(translate(v, &l), st::ok);
    expect_point(l.GetPtr(1), 2, 1, 3.5);
    expect_point(l.GetPtr(2), -3, -1, 8.5);
    expect_point(l.GetPtr(3), 3, -6, 1.5);
}

TEST(PointListTranslate, FromToTakesTheDisplacementBeforeMovingAnything)
{
    List<V_POINT> l = three_points();
    // from and to are points of the list itself: each point moves by (2,-5,1) - (1,2,3).
    EXPECT_EQ(translate(*l.GetPtr(1), *l.GetPtr(3), &l), st::ok);
    expect_point(l.GetPtr(1), 2, -5, 1);
    expect_point(l.GetPtr(2), -3, -7, 6);
    expect_point(l.GetPtr(3), 3, -12, -1);
}

TEST(PointListTranslate, HolesAreSkippedAndStayHoles)
{
    List<V_POINT> l = three_points();
    l.Delete(2);
    V_VECTOR v{1, 1, 1};
    EXPECT_EQ(translate(v, &l), st::ok);
    expect_point(l.GetPtr(1), 2, 3, 4);
    EXPECT_FALSE(l.IsSet(2));
    expect_point(l.GetPtr(3), 3, -4, 2);
    EXPECT_EQ(l.Count(), 3u);
    EXPECT_EQ(l.CountSet(), 2u);
    List<V_POINT> empty;
    EXPECT_EQ(translate(v, &empty), st::ok);
    EXPECT_EQ(translate(v, nullptr), st::bad_input);
    EXPECT_EQ(translate(*l.GetPtr(1), *l.GetPtr(3), nullptr), st::bad_input);
}

TEST(PointListFrame, CyclicFrameByHandAndRoundTrip)
{
    const V_WORKPLANE wp = cyclic_frame();
    List<V_POINT> l = three_points();
    // Local (x, y, z) is world o + x(0,1,0) + y(0,0,1) + z(1,0,0) = o + (z, x, y).
    EXPECT_EQ(relative_to_absolute(wp, &l), st::ok);
    expect_point(l.GetPtr(1), 13, 21, 32);
    expect_point(l.GetPtr(2), 18, 16, 30);
    expect_point(l.GetPtr(3), 11, 22, 25);
    EXPECT_EQ(absolute_to_relative(wp, &l), st::ok);
    expect_point(l.GetPtr(1), 1, 2, 3);
    expect_point(l.GetPtr(2), -4, 0, 8);
    expect_point(l.GetPtr(3), 2, -5, 1);
}

TEST(PointListFrame, HolesSkippedNullRefused)
{
    const V_WORKPLANE wp = cyclic_frame();
    List<V_POINT> l = three_points();
    l.Delete(1);
    EXPECT_EQ(absolute_to_relative(wp, &l), st::ok);
    EXPECT_FALSE(l.IsSet(1));
    // World (-4, 0, 8) - o = (-14, -20, -22); local = (d.y, d.z, d.x).
    expect_point(l.GetPtr(2), -20, -22, -14);
    EXPECT_EQ(relative_to_absolute(wp, nullptr), st::bad_input);
    EXPECT_EQ(absolute_to_relative(wp, nullptr), st::bad_input);
}

TEST(PointListBoundingBox, CoordinateWiseExtremes)
{
    List<V_POINT> l = three_points();
    V_BOUNDS box;
    EXPECT_EQ(bounding_box(l, &box), st::ok);
    expect_point(&box.min, -4, -5, 1);
    expect_point(&box.max, 2, 2, 8);
    List<V_POINT> one;
    one.Append(V_POINT{7, -7, 0});
    EXPECT_EQ(bounding_box(one, &box), st::ok);
    expect_point(&box.min, 7, -7, 0);
    expect_point(&box.max, 7, -7, 0);
}

TEST(PointListBoundingBox, EmptyListHoleOrNullBoxGive110AndLeaveTheBox)
{
    const V_BOUNDS untouched{{9, 9, 9}, {-9, -9, -9}};
    V_BOUNDS box = untouched;
    List<V_POINT> empty;
    EXPECT_EQ(bounding_box(empty, &box), st::bad_input);
    List<V_POINT> l = three_points();
    l.Delete(3);  // a hole at the end still counts: Count() stays 3
    EXPECT_EQ(bounding_box(l, &box), st::bad_input);
    l = three_points();
    l.Delete(1);  // a hole at the first position
    EXPECT_EQ(bounding_box(l, &box), st::bad_input);
    expect_point(&box.min, 9, 9, 9);
    expect_point(&box.max, -9, -9, -9);
    EXPECT_EQ(bounding_box(l, nullptr), st::bad_input);
    // A list that was cleared is empty again.
    l.Clear();
    EXPECT_EQ(bounding_box(l, &box), st::bad_input);
}

TEST(PointListBoundingBox, NaNAfterTheFirstPointNeverWidens)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    List<V_POINT> l;
    l.Append(V_POINT{0, 0, 0});
    l.Append(V_POINT{nan, 1, -1});
    V_BOUNDS box;
    EXPECT_EQ(bounding_box(l, &box), st::ok);
    expect_point(&box.min, 0, 0, -1);
    expect_point(&box.max, 0, 1, 0);
}
