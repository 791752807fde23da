// Point and vector comparisons, vector algebra and the point of an ellipse.
#include "base_support.h"
#include <cfloat>

using namespace basetest;

TEST_F(TolFixture, PointEquality_BelowTolerancePointOnlyReadAtCallTime)
{
    const V_POINT o{0, 0, 0}, a{1, 2, 3}, n{kNaN, 0, 0};
    expect_rows({{a == V_POINT{1 + 9e-9, 2, 3}, true, "9e-9 apart"},
                 {a == V_POINT{1 + 6e-9, 2 + 6e-9, 3 + 6e-9}, false, "1.04e-8 apart"},
                 {a != V_POINT{1 + 6e-9, 2 + 6e-9, 3 + 6e-9}, true, "negation"},
                 {o == V_POINT{1e-8, 0, 0}, false, "the filter keeps the tie: different"},
                 {n == n, false, "NaN"},
                 {n != n, true, "NaN"},
                 {o == V_POINT{5e-7, 0, 0}, false, "default tolerance"}});
    tavotoll.point = 1e-6;
    tavotoll.angle = 1e-30;  // not read
    expect_rows({{o == V_POINT{5e-7, 0, 0}, true, "new tolerance at the next call"}});
}

TEST(PointOrder, LessNeedsAllThreeStrictlyGreaterAndGreaterIsItsNegation)
{
    const V_POINT a{0, 0, 0}, b{1, 1, 0}, c{1, 1, 1};
    expect_rows({{a < b, false, "z is not greater"},
                 {a > b, true, "so a > b, though a is beyond b nowhere"},
                 {b > a, true, "and b > a as well"},
                 {a < c, true, "all three greater"},
                 {a > c, false, "negation"},
                 {a > a, true, "greater than itself"},
                 {a < V_POINT{1e-15, 1e-15, 1e-15}, true, "no tolerance"}});
}

TEST(VectorComparisons, EqualityIgnoresLengthRelationUsesRawProducts)
{
    const V_VECTOR x{1, 0, 0}, zero{0, 0, 0}, nan{kNaN, 0, 0};
    expect_rows({{x == V_VECTOR{5, 0, 0}, true, "length ignored"},
                 {x == V_VECTOR{-1, 0, 0}, false, "sense counts"},
                 {x == V_VECTOR{1, 1, 0}, false, "oblique"},
                 {x == V_VECTOR{std::cos(1e-7), std::sin(1e-7), 0}, true, "1e-7 rad apart"},
                 {x == V_VECTOR{std::cos(1e-5), std::sin(1e-5), 0}, false, "1e-5 rad apart"},
                 {zero == zero, false, "a zero dot product reads as perpendicular"},
                 {nan != nan, true, "NaN"}});
    expect_rows({{vector_relation(x, {0, 3, 0}, 1e-6, 1e-6), 2, "perpendicular"},
                 {vector_relation(x, {2, 0, 0}, 1e-6, 1e-6), 1, "parallel"},
                 {vector_relation(x, {-2, 0, 0}, 1e-6, 1e-6), -1, "antiparallel"},
                 {vector_relation(x, {0.5, 1, 0}, 0.5, 1e-6), 3, "dot 0.5 is not below 0.5"},
                 {vector_relation({0.1, 0, 0}, {0.5, 1, 0}, 0.1, 1e-6), 2, "dot 0.05"},
                 {vector_relation(x, {1, 0.5, 0}, 1e-6, 0.5), 3, "|cross| 0.5 not below 0.5"},
                 {vector_relation(x, {-1, 0.5, 0}, 1e-6, 0.51), -1, "below 0.51"},
                 {vector_relation(x, nan, 1e-6, 1e-6), 3, "NaN fails every comparison"}});
}

TEST_F(TolFixture, Normalise_AngularToleranceExtremesAndNonFinite)
{
    const double h = std::sqrt(0.5);
    // angle: tavotoll.angle for the row; tavotoll.point stays 1e-8.
    // clang-format off
    const struct { double angle; V_VECTOR in, out; short rc; } rows[] = {
        {1e-11, {1e-12, 0, 0}, {0, 0, 0}, st::zero_vector},  // below the angular tolerance
        {1e-11, {1e-11, 0, 0}, {1, 0, 0}, st::ok},           // the tie is a direction
        {1e-11, {0, -1e-9, 0}, {0, -1, 0}, st::ok},          // far below tavotoll.point
        {1e-11, {3, 0, 4}, {0.6, 0, 0.8}, st::ok},           // 3/5, 4/5 correctly rounded
        {1.0, {0.6, 0, 0}, {0, 0, 0}, st::zero_vector},      // the angle field is read
        {1e-11, {1e200, -1e200, 0}, {h, -h, 0}, st::ok},     // the squares overflow
        {1e-11, {DBL_MAX, DBL_MAX, 0}, {h, h, 0}, st::ok},   // so does the length
        {0.0, {3e-160, 0, 4e-160}, {0.6, 0, 0.8}, st::ok},   // the squares underflow
        {0.0, {1e-310, 0, 0}, {1, 0, 0}, st::ok},            // a denormal with no tolerance
        {0.0, {0, 0, 0}, {0, 0, 0}, st::zero_vector},        // exactly 0 has no direction
        {1e-11, {kNaN, 1, 0}, {0, 0, 0}, st::bad_input},      // NaN
        {1e-11, {1, -kInf, 0}, {0, 0, 0}, st::bad_input},     // infinity
    };
    // clang-format on
    for (const auto& r : rows) {
        tavotoll.angle = r.angle;
        V_VECTOR v = r.in;
        EXPECT_EQ(normalise(&v), r.rc) << r.in.x << " " << r.in.y << " " << r.in.z;
        EXPECT_TRUE(xyz_near(v, r.out, 1e-15));
    }
}

TEST_F(TolFixture, ProductsDistancesAndDirections_FilterAgainstTolerancePoint)
{
    V_VECTOR a{1, 2, 3}, x{2, 0, 0}, out{9, 9, 9};
    const V_VECTOR b{4, 5, 6}, z{0, 0, 5}, q{-8, -10, -12}, zero{0, 0, 0};
    aXb(&a, &b, &a);                             // out is a
    EXPECT_TRUE(xyz_near(a, {-3, 6, -3}, 0.0));  // (2*6 - 3*5, 3*4 - 1*6, 1*5 - 2*4)
    EXPECT_EQ(naXb(&x, &z, &x), st::ok);         // out is x
    EXPECT_TRUE(xyz_near(x, {0, -1, 0}, 0.0));   // x cross z = -y
    EXPECT_EQ(naXb(&b, &q, &out), st::zero_vector);
    EXPECT_TRUE(xyz_near(out, {0, 0, 0}, 0.0));
    EXPECT_EQ(naXb(&b, &zero, &out), st::zero_vector);

    const V_VECTOR e{1, 0, 0}, small{1e-9, 0, 0}, v{3, 4, 12}, huge{3e200, 4e200, 0};
    const V_VECTOR half_nan{0, kNaN, kNaN}, inf{0, -kInf, 1};
    const V_POINT p{1, 2, 3}, r{4, 6, 15}, near{1 + 5e-9, 2, 3};
    expect_rows({{adotb(&e, &small), 0.0, "filtered"},
                 {real_adotb(&e, &small), 1e-9, "raw"},
                 {modulus(&v), 13.0, "by hand"},
                 {modulus(&small), 0.0, "filtered"},
                 {real_modulus(&small), 1e-9, "raw"},
                 {real_modulus(&huge), 5e200, "no overflow"},
                 {real_modulus(&half_nan), kNaN, "a scaled length must keep the NaN"},
                 {real_modulus(&inf), kInf, "infinity"},
                 {dist_PP(&p, &r), 13.0, "by hand"},
                 {dist_PP(&p, &near), 0.0, "filtered"},
                 {real_dist_PP(&p, &near), (1 + 5e-9) - 1, "raw"}});
    tavotoll.point = 1e-10;
    expect_rows({{modulus(&small), 1e-9, "new tolerance at the next call"}});
    const V_POINT s{4, 6, 3};
    EXPECT_EQ(nvector_PP(&p, &s, &out), st::ok);
    EXPECT_TRUE(xyz_near(out, {0.6, 0.8, 0}));
    EXPECT_EQ(nvector_PP(&p, &p, &out), st::zero_vector);
    EXPECT_TRUE(xyz_near(out, {0, 0, 0}, 0.0));
}

TEST(VectorRotate, MatchesARotationInTheAxisFrame)
{
    // In the frame (u, w, k), k the axis, v = a u + b w + c k turns to
    // (a cos t - b sin t) u + (a sin t + b cos t) w + c k; v = 3u + 3w + 3k here.
    const V_VECTOR k{2.0 / 3, -2.0 / 3, 1.0 / 3}, v{5, 1, 1};  // u (2,1,-2)/3, w (1,2,2)/3
    for (double t : {0.3, -4.0}) {
        V_VECTOR o;
        vector_rotate(&v, &k, t, &o);
        const double a = 3 * std::cos(t) - 3 * std::sin(t), b = 3 * std::sin(t) + 3 * std::cos(t);
        EXPECT_TRUE(xyz_near(o, {(2 * a + b) / 3 + 2, (a + 2 * b) / 3 - 2, (2 * b - 2 * a) / 3 + 1},
                             1e-13));
    }
    // A third of a turn about (1,1,1)/sqrt(3) takes x to y, y to z, z to x; out may be v.
    const double s = 1.0 / std::sqrt(3.0);
    const V_VECTOR d{s, s, s};
    V_VECTOR r{1, 2, 3};
    vector_rotate(&r, &d, 2 * kPi / 3, &r);
    EXPECT_TRUE(xyz_near(r, {3, 1, 2}, 1e-13));
}

TEST(PointOnEllipse, TIsThePolarAngleOnTheCurve)
{
    const V_ELLIPSE e{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 4.0, 2.0};
    V_POINT p;
    // On the 45-degree ray x = y = s with (s/4)^2 + (s/2)^2 = 1: s = 4/sqrt(5); the
    // eccentric parameter would give (4, 2) / sqrt(2) instead.
    point_on_ellipse(&e, kPi / 4, &p);
    EXPECT_TRUE(xyz_near(p, {1 + 4 / std::sqrt(5.0), 2 + 4 / std::sqrt(5.0), 3}));
    const double h = std::sqrt(0.5);
    const V_ELLIPSE f{{-1, 0, 2}, {h, h, 0}, {0, 0, 1}, 3.0, 0.5};
    for (double t : {0.1, 1.2, 2.0, 3.5, 5.9}) {
        point_on_ellipse(&f, t, &p);
        const V_VECTOR d{p.x - f.centre.x, p.y - f.centre.y, p.z - f.centre.z};
        const double a = real_adotb(&d, &f.axis1), b = real_adotb(&d, &f.axis2);
        EXPECT_NEAR((a / 3.0) * (a / 3.0) + (b / 0.5) * (b / 0.5), 1.0, 1e-12);
        EXPECT_NEAR(std::atan2(b, a), std::remainder(t, 2 * kPi), 1e-12);
    }
    const V_ELLIPSE zero{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 0.0, 0.0};
    point_on_ellipse(&zero, 0.7, &p);
    EXPECT_TRUE(xyz_near(p, {1, 2, 3}, 0.0));                             // the centre, not 0 / 0
    const V_ELLIPSE huge{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 1e200, 1e200};  // squares overflow
    point_on_ellipse(&huge, 0.0, &p);
    EXPECT_DOUBLE_EQ(p.x, 1e200);
}

TEST(VectorAlgebraDeathTest, NullPointersAreContractViolations)
{
    EXPECT_DEATH(normalise(static_cast<V_VECTOR*>(nullptr)),
                 "assertion failed in vector_algebra.cpp line");
}
