// Point-list forms of translation and bounding box.
#include "base_support.h"

using namespace basetest;

namespace {

const V_POINT kPts[3] = {{1, 2, 3}, {-4, 0, 8}, {2, -5, 1}};

// The three points, with position hole (1..3) deleted when given.
List<V_POINT> three_points(uint32_t hole = 0)
{
    List<V_POINT> l;
    for (const V_POINT& p : kPts) l.Append(p);
    l.Delete(hole);
    return l;
}

}  // namespace

TEST(PointListTranslate, MovesSetPointsSkipsHolesRefusesNull)
{
    List<V_POINT> l = three_points(2);
    V_VECTOR v{1, -1, 0.5};
    EXPECT_EQ(translate(v, &l), st::ok);
    EXPECT_TRUE(xyz_near(*l.GetPtr(1), {2, 1, 3.5}, 0.0) &&
                xyz_near(*l.GetPtr(3), {3, -6, 1.5}, 0.0) && !l.IsSet(2) && l.Count() == 3);
    // from and to are points of the list itself: every point moves by (3,-7,-2), taken first.
    l = three_points();
    EXPECT_EQ(translate(*l.GetPtr(1), *l.GetPtr(3), &l), st::ok);
    EXPECT_TRUE(xyz_near(*l.GetPtr(1), {2, -5, 1}, 0.0) &&
                xyz_near(*l.GetPtr(2), {-3, -7, 6}, 0.0) &&
                xyz_near(*l.GetPtr(3), {3, -12, -1}, 0.0));
    EXPECT_TRUE(translate(v, nullptr) == st::bad_input &&
                translate(*l.GetPtr(1), *l.GetPtr(3), nullptr) == st::bad_input);
}

TEST(PointListBoundingBox, ExtremesOr110WithTheBoxUnchanged)
{
    V_BOUNDS box;
    List<V_POINT> l = three_points();
    EXPECT_EQ(bounding_box(l, &box), st::ok);
    EXPECT_TRUE(xyz_near(box.min, {-4, -5, 1}, 0.0) && xyz_near(box.max, {2, 2, 8}, 0.0));
    // A NaN after the first point never widens the box.
    List<V_POINT> n;
    n.Append(V_POINT{0, 0, 0});
    n.Append(V_POINT{kNaN, 1, -1});
    EXPECT_EQ(bounding_box(n, &box), st::ok);
    EXPECT_TRUE(xyz_near(box.min, {0, 0, -1}, 0.0) && xyz_near(box.max, {0, 1, 0}, 0.0));

    const V_BOUNDS untouched{{9, 9, 9}, {-9, -9, -9}};
    box = untouched;
    List<V_POINT> empty;
    EXPECT_EQ(bounding_box(empty, &box), st::bad_input);
    for (uint32_t hole : {3u, 1u}) {  // a hole at the end still counts: Count() stays 3
        l = three_points(hole);
        EXPECT_TRUE(bounding_box(l, &box) == st::bad_input && same_bytes(box, untouched));
    }
    EXPECT_EQ(bounding_box(l, nullptr), st::bad_input);
}
