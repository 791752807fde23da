// Point and vector comparisons, vector algebra and the point of an ellipse.
#include "foundation/vector_algebra.h"
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cfloat>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const double kPi = std::acos(-1.0);

class TolFixture : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    void TearDown() override { tavotoll = saved_; }
};

void expect_vector_near(const V_VECTOR& v, double x, double y, double z, double tol = 1e-14)
{
    EXPECT_NEAR(v.x, x, tol);
    EXPECT_NEAR(v.y, y, tol);
    EXPECT_NEAR(v.z, z, tol);
}

double len(const V_VECTOR& v)
{
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

}  // namespace

// --- point comparisons ---

TEST_F(TolFixture, PointEquality_BelowTolerancePointOnly)
{
    const V_POINT a{1.0, 2.0, 3.0};
    EXPECT_TRUE((a == V_POINT{1.0 + 9e-9, 2.0, 3.0}));
    // 6e-9 in each coordinate is about 1.04e-8 apart: no longer equal.
    EXPECT_FALSE((a == V_POINT{1.0 + 6e-9, 2.0 + 6e-9, 3.0 + 6e-9}));
    EXPECT_TRUE((a != V_POINT{1.0 + 6e-9, 2.0 + 6e-9, 3.0 + 6e-9}));
    // Exactly the tolerance apart: the filter keeps the tie, so the points differ.
    EXPECT_FALSE((V_POINT{0, 0, 0} == V_POINT{1e-8, 0, 0}));
    EXPECT_TRUE((V_POINT{0, 0, 0} == V_POINT{0, 0, 0}));
    const V_POINT n{kNaN, 0, 0};
    EXPECT_FALSE(n == n);
    EXPECT_TRUE(n != n);
}

TEST_F(TolFixture, PointEquality_ReadsToleranceAtCallTime)
{
    const V_POINT a{0, 0, 0}, b{5e-7, 0, 0};
    EXPECT_FALSE(a == b);
    tavotoll.point = 1e-6;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    tavotoll.angle = 1.0;  // not read by point equality
    tavotoll.point = 1e-8;
    EXPECT_FALSE(a == b);
}

TEST(PointOrder, LessNeedsAllThreeStrictlyGreaterAndGreaterIsItsNegation)
{
    const V_POINT a{0, 0, 0};
    const V_POINT b{1, 1, 0};
    const V_POINT c{1, 1, 1};
    EXPECT_FALSE(a < b);  // z is not greater
    EXPECT_TRUE(a > b);   // so a > b, although a is not beyond b anywhere
    EXPECT_FALSE(b < a);
    EXPECT_TRUE(b > a);  // both a > b and b > a hold
    EXPECT_TRUE(a < c);
    EXPECT_FALSE(a > c);
    EXPECT_FALSE(c < a);
    EXPECT_TRUE(c > a);
    // A point is "greater" than itself and not less.
    EXPECT_FALSE(a < a);
    EXPECT_TRUE(a > a);
    // No tolerance: a difference of 1e-15 counts.
    EXPECT_TRUE((a < V_POINT{1e-15, 1e-15, 1e-15}));
}

// --- vector comparisons ---

TEST(VectorEquality, IgnoresLengthAndNeedsTheSameSense)
{
    EXPECT_TRUE((V_VECTOR{1, 0, 0} == V_VECTOR{5, 0, 0}));
    EXPECT_FALSE((V_VECTOR{1, 0, 0} == V_VECTOR{-1, 0, 0}));
    EXPECT_TRUE((V_VECTOR{1, 0, 0} != V_VECTOR{-1, 0, 0}));
    EXPECT_FALSE((V_VECTOR{1, 0, 0} == V_VECTOR{0, 1, 0}));
    EXPECT_FALSE((V_VECTOR{1, 0, 0} == V_VECTOR{1, 1, 0}));
    // Within 1e-6 rad (unit vectors): 1e-7 rad apart is equal, 1e-5 rad is not.
    EXPECT_TRUE((V_VECTOR{1, 0, 0} == V_VECTOR{std::cos(1e-7), std::sin(1e-7), 0}));
    EXPECT_FALSE((V_VECTOR{1, 0, 0} == V_VECTOR{std::cos(1e-5), std::sin(1e-5), 0}));
    const V_VECTOR zero{0, 0, 0};
    EXPECT_FALSE(zero == zero);  // a zero dot product reads as perpendicular
    EXPECT_TRUE((V_VECTOR{kNaN, 0, 0} != V_VECTOR{kNaN, 0, 0}));
}

TEST(VectorRelation, ClassifiesAndScalesWithLengths)
{
    const V_VECTOR x{1, 0, 0};
    EXPECT_EQ(vector_relation(x, V_VECTOR{0, 3, 0}, 1e-6, 1e-6), 2);
    EXPECT_EQ(vector_relation(x, V_VECTOR{1, 1, 0}, 1e-6, 1e-6), 3);
    EXPECT_EQ(vector_relation(x, V_VECTOR{2, 0, 0}, 1e-6, 1e-6), 1);
    EXPECT_EQ(vector_relation(x, V_VECTOR{-2, 0, 0}, 1e-6, 1e-6), -1);
    // Raw products: (1,0,0).(0.5,1,0) = 0.5 is not below 0.1, but a tenth of x gives 0.05.
    EXPECT_EQ(vector_relation(x, V_VECTOR{0.5, 1, 0}, 0.1, 1e-6), 3);
    EXPECT_EQ(vector_relation(V_VECTOR{0.1, 0, 0}, V_VECTOR{0.5, 1, 0}, 0.1, 1e-6), 2);
    // |x cross (1, 0.5, 0)| = 0.5: oblique under sin_tol 0.5 (not below), parallel above.
    EXPECT_EQ(vector_relation(x, V_VECTOR{1, 0.5, 0}, 1e-6, 0.5), 3);
    EXPECT_EQ(vector_relation(x, V_VECTOR{1, 0.5, 0}, 1e-6, 0.51), 1);
    EXPECT_EQ(vector_relation(x, V_VECTOR{-1, 0.5, 0}, 1e-6, 0.51), -1);
    // NaN fails every comparison: not perpendicular, not parallel.
    EXPECT_EQ(vector_relation(x, V_VECTOR{kNaN, 0, 0}, 1e-6, 1e-6), 3);
}

// --- normalise and products ---

TEST_F(TolFixture, Normalise_BoundaryReadsTheAngularTolerance)
{
    V_VECTOR v{1e-12, 0, 0};
    EXPECT_EQ(normalise(&v), st::zero_vector);
    expect_vector_near(v, 0, 0, 0, 0.0);
    v = V_VECTOR{1e-11, 0, 0};  // exactly the tolerance: not below it
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, 1, 0, 0, 0.0);
    // 1e-9 is far below tavotoll.point, yet a direction.
    v = V_VECTOR{0, -1e-9, 0};
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, 0, -1, 0, 0.0);
    v = V_VECTOR{3, 0, 4};
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, 0.6, 0, 0.8, 0.0);  // exact: 3/5 and 4/5 are correctly rounded
    tavotoll.angle = 1.0;
    tavotoll.point = 1e-30;
    v = V_VECTOR{0.6, 0, 0};
    EXPECT_EQ(normalise(&v), st::zero_vector);
    expect_vector_near(v, 0, 0, 0, 0.0);
}

TEST_F(TolFixture, Normalise_ExtremeMagnitudesStayFinite)
{
    const double h = std::sqrt(0.5);
    V_VECTOR v{1e200, -1e200, 0};  // the squares overflow
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, h, -h, 0);
    v = V_VECTOR{DBL_MAX, DBL_MAX, 0};  // even the length overflows
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, h, h, 0);
    tavotoll.angle = 0.0;
    v = V_VECTOR{3e-160, 0, 4e-160};  // the squares underflow
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, 0.6, 0, 0.8);
    v = V_VECTOR{1e-310, 0, 0};  // denormal, kept when the tolerance is 0
    EXPECT_EQ(normalise(&v), st::ok);
    expect_vector_near(v, 1, 0, 0, 0.0);
    v = V_VECTOR{0, 0, 0};  // no direction even without a tolerance
    EXPECT_EQ(normalise(&v), st::zero_vector);
    expect_vector_near(v, 0, 0, 0, 0.0);
}

TEST(Normalise, NaNOrInfinityIsRefusedAndZeroed)
{
    const V_VECTOR bad[] = {{kNaN, 1, 0}, {kInf, 0, 0}, {1, -kInf, 0}, {0, 0, kNaN}};
    for (V_VECTOR v : bad) {
        EXPECT_EQ(normalise(&v), st::bad_input);
        expect_vector_near(v, 0, 0, 0, 0.0);
    }
}

TEST(CrossProduct, PlainAndNormalisedWithAliasing)
{
    V_VECTOR a{1, 2, 3};
    const V_VECTOR b{4, 5, 6};
    aXb(&a, &b, &a);                        // out is a
    expect_vector_near(a, -3, 6, -3, 0.0);  // (2*6 - 3*5, 3*4 - 1*6, 1*5 - 2*4)
    V_VECTOR x{2, 0, 0};
    const V_VECTOR z{0, 0, 5};
    EXPECT_EQ(naXb(&x, &z, &x), st::ok);
    expect_vector_near(x, 0, -1, 0, 0.0);  // x cross z = -y
    const V_VECTOR p{1, 2, 3}, q{-2, -4, -6}, zero{0, 0, 0};
    V_VECTOR out{9, 9, 9};
    EXPECT_EQ(naXb(&p, &q, &out), st::zero_vector);
    expect_vector_near(out, 0, 0, 0, 0.0);
    EXPECT_EQ(naXb(&p, &zero, &out), st::zero_vector);
}

TEST_F(TolFixture, DotAndModulus_FilteredAgainstTolerancePoint)
{
    const V_VECTOR x{1, 0, 0}, small{1e-9, 0, 0}, v{3, 4, 12};
    EXPECT_EQ(adotb(&x, &small), 0.0);
    EXPECT_EQ(real_adotb(&x, &small), 1e-9);
    EXPECT_EQ(adotb(&v, &v), 169.0);
    EXPECT_EQ(modulus(&v), 13.0);
    EXPECT_EQ(modulus(&small), 0.0);
    EXPECT_EQ(real_modulus(&small), 1e-9);
    tavotoll.point = 1e-10;
    EXPECT_EQ(modulus(&small), 1e-9);
    EXPECT_EQ(adotb(&x, &small), 1e-9);
    const V_VECTOR huge{3e200, 4e200, 0};
    EXPECT_DOUBLE_EQ(real_modulus(&huge), 5e200);
    const V_VECTOR bad{kNaN, 0, 0};
    EXPECT_TRUE(std::isnan(modulus(&bad)));
    const V_VECTOR half_bad{0, kNaN, kNaN};  // a scaled length must not lose the NaN
    EXPECT_TRUE(std::isnan(real_modulus(&half_bad)));
    const V_VECTOR inf{0, -kInf, 1};
    EXPECT_EQ(real_modulus(&inf), kInf);
}

TEST_F(TolFixture, PointDistanceAndDirection)
{
    const V_POINT p{1, 2, 3}, q{4, 6, 15};
    EXPECT_EQ(dist_PP(&p, &q), 13.0);
    EXPECT_EQ(real_dist_PP(&q, &p), 13.0);
    const V_POINT r{1 + 5e-9, 2, 3};
    EXPECT_EQ(dist_PP(&p, &r), 0.0);
    EXPECT_NEAR(real_dist_PP(&p, &r), 5e-9, 1e-15);
    V_VECTOR d;
    const V_POINT s{4, 6, 3};
    EXPECT_EQ(nvector_PP(&p, &s, &d), st::ok);
    expect_vector_near(d, 0.6, 0.8, 0);
    EXPECT_EQ(nvector_PP(&p, &p, &d), st::zero_vector);
    expect_vector_near(d, 0, 0, 0, 0.0);
}

// --- rotation ---

TEST(VectorRotate, QuarterTurnsAndTheThirdTurnAboutTheDiagonal)
{
    const V_VECTOR z{0, 0, 1};
    V_VECTOR out;
    const V_VECTOR x{1, 0, 0};
    vector_rotate(&x, &z, kPi / 2, &out);  // counter-clockwise seen from +z
    expect_vector_near(out, 0, 1, 0);
    vector_rotate(&x, &z, -kPi / 2, &out);
    expect_vector_near(out, 0, -1, 0);
    // A third of a turn about (1,1,1)/sqrt(3) takes x to y, y to z, z to x, so
    // 1x + 2y + 3z goes to 1y + 2z + 3x.
    const double k = 1.0 / std::sqrt(3.0);
    const V_VECTOR d{k, k, k};
    V_VECTOR v{1, 2, 3};
    vector_rotate(&v, &d, 2 * kPi / 3, &v);  // out is v
    expect_vector_near(v, 3, 1, 2, 1e-13);
}

TEST(VectorRotate, MatchesARotationInTheAxisFrame)
{
    // Independent construction: an orthonormal frame (u, w, k) with k the axis; v's
    // components (a, b, c) in that frame turn to (a cos t - b sin t, a sin t + b cos t, c).
    const V_VECTOR k{2.0 / 3, -2.0 / 3, 1.0 / 3};
    const V_VECTOR u{2.0 / 3, 1.0 / 3, -2.0 / 3};
    const V_VECTOR w{1.0 / 3, 2.0 / 3, 2.0 / 3};  // k x u
    const V_VECTOR v{0.7, -1.3, 2.9};
    const double a = v.x * u.x + v.y * u.y + v.z * u.z;
    const double b = v.x * w.x + v.y * w.y + v.z * w.z;
    const double c = v.x * k.x + v.y * k.y + v.z * k.z;
    for (double t : {0.0, 0.3, 1.0, 2.5, kPi, -4.0, 10.0}) {
        V_VECTOR out;
        vector_rotate(&v, &k, t, &out);
        const double a2 = a * std::cos(t) - b * std::sin(t);
        const double b2 = a * std::sin(t) + b * std::cos(t);
        expect_vector_near(out, a2 * u.x + b2 * w.x + c * k.x, a2 * u.y + b2 * w.y + c * k.y,
                           a2 * u.z + b2 * w.z + c * k.z, 1e-13);
        EXPECT_NEAR(len(out), len(v), 1e-13);
    }
}

// --- ellipse ---

TEST(PointOnEllipse, TIsThePolarAngleNotTheEccentricParameter)
{
    const V_ELLIPSE e{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 4.0, 2.0};
    V_POINT p;
    point_on_ellipse(&e, 0.0, &p);
    EXPECT_NEAR(p.x, 5, 1e-14);
    EXPECT_NEAR(p.y, 2, 1e-14);
    point_on_ellipse(&e, kPi / 2, &p);
    EXPECT_NEAR(p.x, 1, 1e-14);
    EXPECT_NEAR(p.y, 4, 1e-14);
    // On the 45-degree ray x = y = s with (s/4)^2 + (s/2)^2 = 1: s = 4/sqrt(5).
    point_on_ellipse(&e, kPi / 4, &p);
    const double s = 4.0 / std::sqrt(5.0);
    EXPECT_NEAR(p.x, 1 + s, 1e-14);
    EXPECT_NEAR(p.y, 2 + s, 1e-14);
    EXPECT_NEAR(p.z, 3, 1e-14);
}

TEST(PointOnEllipse, TiltedAxesKeepThePointOnTheCurve)
{
    const double h = std::sqrt(0.5);
    const V_ELLIPSE e{{-1, 0, 2}, {h, h, 0}, {0, 0, 1}, 3.0, 0.5};
    for (double t : {0.1, 1.2, 2.0, 3.5, 5.9}) {
        V_POINT p;
        point_on_ellipse(&e, t, &p);
        const V_VECTOR d{p.x - e.centre.x, p.y - e.centre.y, p.z - e.centre.z};
        const double a = d.x * e.axis1.x + d.y * e.axis1.y + d.z * e.axis1.z;
        const double b = d.x * e.axis2.x + d.y * e.axis2.y + d.z * e.axis2.z;
        EXPECT_NEAR((a / 3.0) * (a / 3.0) + (b / 0.5) * (b / 0.5), 1.0, 1e-12);
        EXPECT_NEAR(std::atan2(b, a), std::remainder(t, 2 * kPi), 1e-12);
    }
}

TEST(PointOnEllipse, ZeroOrHugeRadii)
{
    const V_ELLIPSE e{{1, 2, 3}, {1, 0, 0}, {0, 1, 0}, 0.0, 0.0};
    V_POINT p{9, 9, 9};
    point_on_ellipse(&e, 0.7, &p);
    EXPECT_EQ(p.x, 1.0);
    EXPECT_EQ(p.y, 2.0);
    EXPECT_EQ(p.z, 3.0);
    const V_ELLIPSE g{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 1e200, 1e200};  // squares overflow
    point_on_ellipse(&g, 0.0, &p);
    EXPECT_DOUBLE_EQ(p.x, 1e200);
}

TEST(VectorAlgebraDeathTest, NullPointersAreContractViolations)
{
    EXPECT_DEATH(normalise(nullptr), "assertion failed in vector_algebra.cpp line");
    const V_VECTOR a{1, 0, 0};
    EXPECT_DEATH(aXb(&a, &a, nullptr), "assertion failed in vector_algebra.cpp line");
}
