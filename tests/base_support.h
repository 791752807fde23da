#pragma once
// Helpers of the foundation, transform and utility tests: fixtures, near-equality checks,
// a random well-conditioned matrix and a hand-built tilted frame.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>

namespace basetest {

const double kPi = std::acos(-1.0);
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// Restores tavotoll after each test, whatever the test set.
class TolFixture : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    void TearDown() override { tavotoll = saved_; }
};

// Fails a test that leaks tracked blocks; switches fault injection off afterwards.
class AllocFixture : public ::testing::Test {
protected:
    long live_before_ = v_memptr_live_count();
    void TearDown() override
    {
        v_memptr_fail_after(-1);
        EXPECT_EQ(v_memptr_live_count(), live_before_) << "tracked blocks leaked";
    }
};

// A table row: the value computed by the call under test, the value worked out by hand, the
// reason. Rows are evaluated in order, under the tolerances set then.
struct Row {
    template <class G, class W>
    Row(G g, W w, const char* reason) : got(double(g)), want(double(w)), why(reason)
    {}
    double got, want;
    const char* why;
};

// Each row equal within a few units in the last place (never across zero), or both NaN.
inline void expect_rows(std::initializer_list<Row> rows)
{
    for (const Row& r : rows)
        EXPECT_TRUE(r.got == r.want || (std::isnan(r.got) && std::isnan(r.want)) ||
                    std::fabs(r.got - r.want) <=
                        1e-15 * std::fmax(std::fabs(r.got), std::fabs(r.want)))
            << r.why << ": got " << r.got << ", want " << r.want;
}

template <class R> bool same_bytes(const R& a, const R& b)
{
    return std::memcmp(&a, &b, sizeof(R)) == 0;
}

// x, y and z of a and b within tol (tol 0: exactly equal). b may be given in braces.
template <class P>::testing::AssertionResult xyz_near(const P& a, const P& b, double tol = 1e-14)
{
    if (std::fabs(a.x - b.x) <= tol && std::fabs(a.y - b.y) <= tol && std::fabs(a.z - b.z) <= tol)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << a.x << ", " << a.y << ", " << a.z << ") vs ("
                                         << b.x << ", " << b.y << ", " << b.z << "), tol " << tol;
}

inline ::testing::AssertionResult mat_near(const V_MATRIX& A, const V_MATRIX& B, double tol)
{
    for (int k = 0; k < 16; ++k) {
        const double a = A.m[k / 4][k % 4], b = B.m[k / 4][k % 4];
        if (!(std::fabs(a - b) <= tol))
            return ::testing::AssertionFailure() << "entry " << k << ": " << a << " vs " << b;
    }
    return ::testing::AssertionSuccess();
}

// The matrix with these 16 entries, row after row.
inline V_MATRIX from_rows(const double (&v)[16])
{
    V_MATRIX M;
    for (int k = 0; k < 16; ++k) M.m[k / 4][k % 4] = v[k];
    return M;
}

inline V_MATRIX identity()
{
    return from_rows({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
}

// Entries in [-1, 1] plus 5 on the diagonal: strictly diagonally dominant, so well conditioned.
inline V_MATRIX random_well_conditioned(std::mt19937& rng)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    V_MATRIX A;
    for (int k = 0; k < 16; ++k) A.m[k / 4][k % 4] = u(rng) + (k % 5 == 0 ? 5.0 : 0.0);
    return A;
}

inline V_POINT apply(const V_MATRIX& M, V_POINT p)
{
    mat_transform_point(&p, &M, &p);
    return p;
}

// A frame with rational unit axes, built by hand: X = (2,2,1)/3, Y = (-2,1,2)/3,
// Z = X x Y = (1,-2,2)/3, origin (1,-2,3), name "T", id 7.
inline V_WORKPLANE tilted_frame()
{
    V_WORKPLANE wp{};
    wp.origin = V_POINT{1, -2, 3};
    wp.xaxis = V_VECTOR{2.0 / 3, 2.0 / 3, 1.0 / 3};
    wp.yaxis = V_VECTOR{-2.0 / 3, 1.0 / 3, 2.0 / 3};
    wp.zaxis = V_VECTOR{1.0 / 3, -2.0 / 3, 2.0 / 3};
    wp.name[0] = u'T';
    wp.id = 7;
    return wp;
}

// Local coordinates by hand: dot products of p - o (of p alone for a direction) with the axes.
template <class P> P local_by_hand(const V_WORKPLANE& wp, const P& p, bool with_origin = true)
{
    const double k = with_origin ? 1.0 : 0.0;
    const double dx = p.x - k * wp.origin.x, dy = p.y - k * wp.origin.y, dz = p.z - k * wp.origin.z;
    return P{dx * wp.xaxis.x + dy * wp.xaxis.y + dz * wp.xaxis.z,
             dx * wp.yaxis.x + dy * wp.yaxis.y + dz * wp.yaxis.z,
             dx * wp.zaxis.x + dy * wp.zaxis.y + dz * wp.zaxis.z};
}

}  // namespace basetest
