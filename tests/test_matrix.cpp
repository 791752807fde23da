#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <random>

namespace {

const double kPi = 3.14159265358979323846;

V_MATRIX from_rows(std::initializer_list<double> v)
{
    V_MATRIX M;
    int k = 0;
    for (double x : v) {
        M.m[k / 4][k % 4] = x;
        ++k;
    }
    return M;
}

V_POINT apply(const V_MATRIX& M, V_POINT p)
{
    V_POINT q;
    mat_transform_point(&p, &M, &q);
    return q;
}

double length(const V_VECTOR& v)
{
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

void expect_point(const V_POINT& p, double x, double y, double z, double tol = 1e-12)
{
    EXPECT_NEAR(p.x, x, tol);
    EXPECT_NEAR(p.y, y, tol);
    EXPECT_NEAR(p.z, z, tol);
}

void expect_matrix_near(const V_MATRIX& A, const V_MATRIX& B, double tol)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_NEAR(A.m[i][j], B.m[i][j], tol) << i << "," << j;
}

bool same_bytes(const V_MATRIX& A, const V_MATRIX& B)
{
    return std::memcmp(&A, &B, sizeof A) == 0;
}

// Determinant by the Leibniz sum over the 24 permutations, independent of cofactors.
double leibniz4(const V_MATRIX& A)
{
    int p[4] = {0, 1, 2, 3};
    double det = 0.0;
    do {
        int inversions = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                if (p[i] > p[j]) ++inversions;
        double term = (inversions % 2) ? -1.0 : 1.0;
        for (int i = 0; i < 4; ++i) term *= A.m[i][p[i]];
        det += term;
    } while (std::next_permutation(p, p + 4));
    return det;
}

V_MATRIX random_matrix(std::mt19937& rng)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    V_MATRIX M;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) M.m[i][j] = u(rng);
    // A dominant diagonal keeps the matrix well conditioned.
    for (int i = 0; i < 4; ++i) M.m[i][i] += (i % 2 ? -5.0 : 5.0);
    return M;
}

// Counter-clockwise sweep about n from s to e (both seen from c), in [0, 2 pi).
double ccw_sweep(const V_POINT& c, const V_POINT& s, const V_POINT& e, const V_VECTOR& n)
{
    const V_VECTOR a{s.x - c.x, s.y - c.y, s.z - c.z};
    const V_VECTOR b{e.x - c.x, e.y - c.y, e.z - c.z};
    const V_VECTOR axb{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    double t =
        std::atan2(axb.x * n.x + axb.y * n.y + axb.z * n.z, a.x * b.x + a.y * b.y + a.z * b.z);
    if (t < 0.0) t += 2.0 * kPi;
    return t;
}

// The point halfway along the arc, found by turning start about the normal.
V_POINT arc_midpoint(const V_ARC& a)
{
    const V_VECTOR r{a.start.x - a.centre.x, a.start.y - a.centre.y, a.start.z - a.centre.z};
    V_VECTOR n = a.normal;
    normalise(&n);
    V_VECTOR m;
    vector_rotate(&r, &n, 0.5 * ccw_sweep(a.centre, a.start, a.end, n), &m);
    return V_POINT{a.centre.x + m.x, a.centre.y + m.y, a.centre.z + m.z};
}

}  // namespace

// --- builders ---

TEST(MatBuilders, TranslateShearNuscale_MovePointsAsWritten)
{
    V_MATRIX M;
    const V_POINT t{4, -5, 6};
    mat_translate(&M, &t);
    expect_point(apply(M, V_POINT{1, 2, 3}), 5, -3, 9);

    // x' = x + a y + b z, y' = c x + y + d z, z' = e x + f y + z with a..f = 1..6.
    mat_shear(&M, 1, 2, 3, 4, 5, 6);
    expect_point(apply(M, V_POINT{1, 2, 3}), 1 + 2 + 6, 3 + 2 + 12, 5 + 12 + 3);

    mat_nuscale(&M, 2, 3, 4);
    expect_point(apply(M, V_POINT{1, 1, 1}), 2, 3, 4);
    EXPECT_EQ(M.m[3][3], 1.0);

    mat_zero(&M);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_EQ(M.m[i][j], 0.0);
    mat_identity(&M);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_EQ(M.m[i][j], i == j ? 1.0 : 0.0);
}

TEST(MatRotate, EachAxis_TurnsCounterClockwise)
{
    V_MATRIX M;
    mat_rotate(&M, kPi / 2, 'z');  // lower case is accepted
    expect_point(apply(M, V_POINT{1, 0, 0}), 0, 1, 0);
    mat_rotate(&M, kPi / 2, 'X');
    expect_point(apply(M, V_POINT{0, 1, 0}), 0, 0, 1);
    mat_rotate(&M, kPi / 2, 'y');
    expect_point(apply(M, V_POINT{0, 0, 1}), 1, 0, 0);
}

TEST(MatRotate, UnknownLetter_IsYByNegatedAngle)
{
    V_MATRIX q;
    V_MATRIX y;
    for (unsigned char letter : {0x51, 0x71, 0x31, 0xE9}) {  // Q, q, 1 and a non-ASCII byte
        mat_rotate(&q, 0.7, letter);
        mat_rotate(&y, -0.7, 'Y');
        expect_matrix_near(q, y, 1e-15);
    }
}

TEST(MatRotate, RandomRotations_PreserveLengthsAndDeterminant)
{
    std::mt19937 rng(12345);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int n = 0; n < 50; ++n) {
        V_MATRIX R;
        mat_rotate(&R, u(rng), "XYZ"[n % 3]);
        V_MATRIX A;
        const V_POINT c{u(rng), u(rng), u(rng)};
        const V_VECTOR axis{u(rng), u(rng), u(rng)};
        mat_arbitrary_axis_rotation(&c, &axis, u(rng), &A);
        const V_VECTOR v{u(rng), u(rng), u(rng)};
        V_VECTOR r;
        mat_rotate_vector(&v, &R, &r);
        EXPECT_NEAR(length(r), length(v), 1e-12);
        mat_rotate_vector(&v, &A, &r);
        EXPECT_NEAR(length(r), length(v), 1e-12);
        EXPECT_NEAR(mat_determinant(&R), 1.0, 1e-12);
        EXPECT_NEAR(mat_determinant(&A), 1.0, 1e-12);
    }
}

TEST(MatScale, PositiveAndNegative_ActThroughTheHomogeneousScale)
{
    V_MATRIX M;
    mat_scale(&M, 2.0);
    expect_point(apply(M, V_POINT{1, 2, 3}), 2, 4, 6);
    // The 3 x 3 block alone does not see the scale.
    V_VECTOR v{1, 2, 3};
    mat_rotate_vector(&v, &M, &v);
    EXPECT_EQ(v.x, 1.0);
    EXPECT_EQ(v.z, 3.0);

    mat_scale(&M, -2.0);
    expect_point(apply(M, V_POINT{1, 2, 3}), -2, -4, -6);
    EXPECT_DOUBLE_EQ(M.m[3][3], 0.5);
}

TEST(MatTransformPoint, OnlyM33Divides)
{
    V_MATRIX M;
    mat_identity(&M);
    M.m[0][3] = 7.0;  // the column entries are never read
    M.m[1][3] = 7.0;
    expect_point(apply(M, V_POINT{1, 2, 3}), 1, 2, 3);
    M.m[3][3] = 0.0;  // no division by zero
    expect_point(apply(M, V_POINT{1, 2, 3}), 1, 2, 3);
    M.m[3][3] = 4.0;
    expect_point(apply(M, V_POINT{4, 8, 12}), 1, 2, 3);

    V_POINT p{1, 2, 3};
    mat_transform_point(&p, &M, &p);  // in place
    expect_point(p, 0.25, 0.5, 0.75);
}

TEST(MatMul, HandProduct_AppliesLeftFactorFirstAndAllowsAliasing)
{
    const V_MATRIX A = from_rows({1, 2, 0, 0, 0, 1, 3, 0, 0, 0, 1, 0, 1, 0, 0, 1});
    const V_MATRIX B = from_rows({2, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 4, 0, 1});
    // Worked by hand, row by column.
    const V_MATRIX AB = from_rows({4, 2, 0, 0, 1, 1, 3, 0, 0, 0, 1, 0, 2, 4, 0, 1});
    V_MATRIX C;
    mat_mul(&A, &B, &C);
    expect_matrix_near(C, AB, 0.0);

    V_MATRIX a = A;
    mat_mul(&a, &B, &a);
    expect_matrix_near(a, AB, 0.0);
    V_MATRIX b = B;
    mat_mul(&A, &b, &b);
    expect_matrix_near(b, AB, 0.0);

    // Translate by x, then turn about z: (0,0,0) -> (1,0,0) -> (0,1,0).
    V_MATRIX T;
    V_MATRIX R;
    const V_POINT t{1, 0, 0};
    mat_translate(&T, &t);
    mat_rotate(&R, kPi / 2, 'Z');
    mat_mul(&T, &R, &C);
    expect_point(apply(C, V_POINT{0, 0, 0}), 0, 1, 0);

    mat_mul(-0.5, &b);
    EXPECT_EQ(b.m[3][1], -2.0);
    EXPECT_EQ(b.m[0][0], -2.0);
}

// --- determinant and inverse ---

TEST(MatDeterminant, AgreesWithPermutationSumAndCofactorRows)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-3.0, 3.0);
    for (int n = 0; n < 20; ++n) {
        V_MATRIX A;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) A.m[i][j] = u(rng);
        const double det = leibniz4(A);
        EXPECT_NEAR(mat_determinant(&A), det, 1e-10);
        // Expansion along any row gives det; against another row's entries it gives 0.
        for (short i = 0; i < 4; ++i)
            for (short k = 0; k < 4; ++k) {
                double s = 0.0;
                for (short j = 0; j < 4; ++j) s += A.m[k][j] * mat_cofactor(&A, i, j);
                EXPECT_NEAR(s, i == k ? det : 0.0, 1e-10);
            }
    }
    // A hand case: swapping two rows of the identity and scaling one gives -3.
    const V_MATRIX P = from_rows({0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1});
    EXPECT_DOUBLE_EQ(mat_determinant(&P), -3.0);
    // Cofactor (0, 1): sign -1 times the minor diag(1, 3, 1) = -3.
    EXPECT_DOUBLE_EQ(mat_cofactor(&P, 0, 1), -3.0);
}

TEST(MatInverse, RandomWellConditioned_ProductIsIdentity)
{
    std::mt19937 rng(2024);
    V_MATRIX I;
    mat_identity(&I);
    for (int n = 0; n < 100; ++n) {
        const V_MATRIX A = random_matrix(rng);
        V_MATRIX B;
        ASSERT_EQ(mat_inverse(&A, &B), st::ok);
        V_MATRIX C;
        mat_mul(&A, &B, &C);
        expect_matrix_near(C, I, 1e-12);
        mat_mul(&B, &A, &C);
        expect_matrix_near(C, I, 1e-12);

        V_MATRIX a = A;
        ASSERT_EQ(mat_inverse(&a, &a), st::ok);  // in place
        expect_matrix_near(a, B, 0.0);
    }
}

TEST(MatInverse, SingularOrNotFinite_Returns13AndKeepsOutput)
{
    V_MATRIX A;
    mat_nuscale(&A, 1e-15, 1.0, 1.0);  // determinant 1e-15
    V_MATRIX B = from_rows({9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2, 3, 4, 5, 6});
    const V_MATRIX before = B;
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    EXPECT_TRUE(same_bytes(B, before));

    mat_nuscale(&A, 1e-13, 1.0, 1.0);  // above the bound: invertible
    EXPECT_EQ(mat_inverse(&A, &B), st::ok);
    EXPECT_NEAR(B.m[0][0], 1e13, 1.0);

    B = before;
    mat_identity(&A);
    A.m[2][1] = std::nan("");
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    A.m[2][1] = INFINITY;
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    EXPECT_TRUE(same_bytes(B, before));
}

TEST(MatContracts, IndexOutsideZeroToThree_Asserts)
{
    V_MATRIX A;
    mat_identity(&A);
    V_VECTOR v;
    EXPECT_DEATH(mat_cofactor(&A, 4, 0), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(mat_cofactor(&A, 0, -1), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(A.rows(4, &v), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(A.columns(-1, &v), "assertion failed in matrix.cpp line");
}

TEST(MatAccessors, RowsAndColumns_ReadFirstThreeEntries)
{
    const V_MATRIX A = from_rows({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
    V_VECTOR v;
    A.rows(3, &v);
    EXPECT_EQ(v.x, 12.0);
    EXPECT_EQ(v.z, 14.0);
    A.columns(3, &v);
    EXPECT_EQ(v.x, 3.0);
    EXPECT_EQ(v.y, 7.0);
    EXPECT_EQ(v.z, 11.0);
}

TEST(MatForceTwoDimensional, RemovesZCoupling)
{
    V_MATRIX A = from_rows({1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 1});
    mat_ForceTwoDimensional(&A, &A);
    const V_MATRIX expected = from_rows({1, 2, 0, 0, 4, 5, 0, 0, 0, 0, 1, 0, 10, 11, 0, 1});
    expect_matrix_near(A, expected, 0.0);
}

// --- directions ---

TEST(MatVectors, RotateKeepsScaleTransformNormalises)
{
    V_MATRIX M;
    mat_nuscale(&M, 2, 3, 4);
    M.m[3][0] = 100.0;  // translation must not reach directions
    V_VECTOR v{1, 1, 1};
    V_VECTOR r;
    mat_rotate_vector(&v, &M, &r);
    EXPECT_EQ(r.x, 2.0);
    EXPECT_EQ(r.y, 3.0);
    EXPECT_EQ(r.z, 4.0);

    EXPECT_EQ(mat_transform_vector(&v, &M, &r), st::ok);
    const double len = std::sqrt(29.0);
    EXPECT_NEAR(r.x, 2 / len, 1e-15);
    EXPECT_NEAR(r.z, 4 / len, 1e-15);

    const V_VECTOR3f f{1.0f, 0.5f, 0.0f};
    V_VECTOR3f g;
    mat_rotate_vectorf(&f, &M, &g);
    EXPECT_EQ(g.x, 2.0f);
    EXPECT_EQ(g.y, 1.5f);

    const V_VECTOR zero{0, 0, 0};
    EXPECT_EQ(mat_transform_vector(&zero, &M, &r), st::zero_vector);
    EXPECT_EQ(r.x, 0.0);
}

// --- placements ---

TEST(MatMirror, ReflectsTwiceToIdentityAndFlipsOrientation)
{
    const V_PLANE pl{{1, 0, 0}, {2, 0, 0}};  // the plane x = 1, normal not unit
    V_MATRIX M;
    mat_mirror(&pl, &M);
    expect_point(apply(M, V_POINT{3, 5, 7}), -1, 5, 7);
    EXPECT_NEAR(mat_determinant(&M), -1.0, 1e-15);

    const V_PLANE tilted{{1, 2, 3}, {1, -2, 0.5}};
    mat_mirror(&tilted, &M);
    EXPECT_NEAR(mat_determinant(&M), -1.0, 1e-12);
    expect_point(apply(M, tilted.point), 1, 2, 3);
    V_MATRIX MM;
    mat_mul(&M, &M, &MM);
    V_MATRIX I;
    mat_identity(&I);
    expect_matrix_near(MM, I, 1e-14);

    const V_PLANE degenerate{{1, 2, 3}, {0, 0, 0}};
    mat_mirror(&degenerate, &M);
    expect_matrix_near(M, I, 0.0);
}

TEST(MatArbitraryAxisRotation, MatchesVectorRotateAboutOffsetAxis)
{
    const V_POINT c{1, 2, 3};
    const V_VECTOR axis{0, 0, 2};
    V_MATRIX M;
    mat_arbitrary_axis_rotation(&c, &axis, kPi / 2, &M);
    expect_point(apply(M, V_POINT{2, 2, 3}), 1, 3, 3);  // a quarter turn about the line

    std::mt19937 rng(99);
    std::uniform_real_distribution<double> u(-2.0, 2.0);
    for (int n = 0; n < 30; ++n) {
        const V_POINT p0{u(rng), u(rng), u(rng)};
        V_VECTOR k{u(rng), u(rng), u(rng)};
        const double angle = 3 * u(rng);
        mat_arbitrary_axis_rotation(&p0, &k, angle, &M);
        normalise(&k);
        const V_POINT p{u(rng), u(rng), u(rng)};
        const V_VECTOR d{p.x - p0.x, p.y - p0.y, p.z - p0.z};
        V_VECTOR r;
        vector_rotate(&d, &k, angle, &r);
        expect_point(apply(M, p), p0.x + r.x, p0.y + r.y, p0.z + r.z, 1e-12);
    }
}

TEST(MatGeneralTransformation, RotatesScalesAboutFromThenMovesToTo)
{
    const V_POINT from{1, 0, 0};
    const V_POINT to{5, 5, 5};
    const V_VECTOR z{0, 0, 1};
    V_MATRIX M;
    mat_general_transformation(&from, &z, &to, kPi / 2, 2.0, &M);
    expect_point(apply(M, from), 5, 5, 5);
    // (2,0,0) is 1 along x from `from`: turned to +y, doubled, then placed at `to`.
    expect_point(apply(M, V_POINT{2, 0, 0}), 5, 7, 5);
    expect_point(apply(M, V_POINT{1, 0, 1}), 5, 5, 7);

    const V_VECTOR zero{0, 0, 0};
    mat_general_transformation(&from, &zero, &to, kPi / 2, 3.0, &M);
    expect_point(apply(M, V_POINT{2, 0, 0}), 8, 5, 5);
}

TEST(MatTransformRadius, SimilaritiesScaleRadiusNonUniformKeepsArea)
{
    const V_VECTOR n{1, 2, 3};
    V_MATRIX M;
    double r = 0.0;
    mat_scale(&M, 3.0);
    EXPECT_EQ(mat_transform_radius(2.0, &M, &n, &r), st::ok);
    EXPECT_NEAR(r, 6.0, 1e-12);

    const V_POINT c{1, 1, 1};
    mat_arbitrary_axis_rotation(&c, &n, 1.1, &M);
    mat_transform_radius(2.0, &M, &n, &r);
    EXPECT_NEAR(r, 2.0, 1e-12);

    // A circle across z under scales 2 and 3 becomes an ellipse of area pi (2r)(3r).
    const V_VECTOR z{0, 0, 5};
    mat_nuscale(&M, 2, 3, 7);
    mat_transform_radius(1.5, &M, &z, &r);
    EXPECT_NEAR(r, 1.5 * std::sqrt(6.0), 1e-12);

    const V_VECTOR zero{0, 0, 0};
    EXPECT_EQ(mat_transform_radius(1.5, &M, &zero, &r), st::zero_vector);
    EXPECT_EQ(r, 1.5);
}

TEST(MatTransformArc, ReflectionsKeepTheArcCounterClockwise)
{
    // Quarter arc about +z from (1,0,0) to (0,1,0); its midpoint is at 45 degrees.
    const V_ARC arc{{0, 0, 0}, 1.0, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
    const double h = std::sqrt(0.5);
    expect_point(arc_midpoint(arc), h, h, 0);

    V_MATRIX mats[4];
    const V_PLANE yz{{0, 0, 0}, {1, 0, 0}};
    mat_mirror(&yz, &mats[0]);
    const V_PLANE xy{{0, 0, 2}, {0, 0, 1}};
    mat_mirror(&xy, &mats[1]);
    mat_scale(&mats[2], -2.0);  // a point reflection carried by the diagonal and m33
    const V_POINT c{3, 0, 0};
    const V_VECTOR k{1, 1, 0};
    mat_arbitrary_axis_rotation(&c, &k, 0.8, &mats[3]);
    for (const V_MATRIX& M : mats) {
        V_ARC out;
        EXPECT_EQ(mat_transform_arc(&arc, &M, &out), st::ok);
        // The image of the old midpoint must be the new midpoint, and the sweep a quarter.
        const V_POINT m = apply(M, arc_midpoint(arc));
        expect_point(arc_midpoint(out), m.x, m.y, m.z, 1e-12);
        EXPECT_NEAR(ccw_sweep(out.centre, out.start, out.end, out.normal), kPi / 2, 1e-12);
        EXPECT_NEAR(length(out.normal), 1.0, 1e-15);
    }
    V_ARC a = arc;
    mat_transform_arc(&a, &mats[2], &a);  // in place
    EXPECT_NEAR(a.radius, 2.0, 1e-15);
    expect_point(a.start, 0, -2, 0);
    expect_point(a.end, -2, 0, 0);
}

TEST(MatFrames, WorkPlaneMatricesAreInverseAndMatchPlaneToWorld)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT o{1, -2, 3};
    V_VECTOR d1{1, 1, 0};
    V_VECTOR d2{0, 1, 1};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    V_MATRIX to_local;
    V_MATRIX to_world;
    ASSERT_EQ(mat_WorkPlane_World(&wp, &to_local, &to_world), st::ok);
    V_MATRIX P;
    mat_mul(&to_world, &to_local, &P);
    V_MATRIX I;
    mat_identity(&I);
    expect_matrix_near(P, I, 1e-14);
    V_POINT p{0.5, 7, -2};
    const V_POINT w = apply(to_world, p);
    plane_to_world(&p, wp);
    expect_point(w, p.x, p.y, p.z, 1e-14);

    // A degenerate frame leaves to_local as it was.
    wp.zaxis = V_VECTOR{0, 0, 0};
    const V_MATRIX before = to_local;
    EXPECT_EQ(mat_WorkPlane_World(&wp, &to_local, nullptr), st::singular);
    EXPECT_TRUE(same_bytes(to_local, before));
}

TEST(MatFrames, PlaneWorldGivesRightHandedFrameOnThePlane)
{
    V_MATRIX to_local;
    V_MATRIX to_world;
    const V_PLANE flat{{0, 0, 4}, {0, 0, 3}};
    ASSERT_EQ(mat_PlaneWorld(&flat, &to_local, &to_world), st::ok);
    const V_MATRIX expected = from_rows({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 4, 1});
    expect_matrix_near(to_world, expected, 1e-15);

    const V_PLANE pl{{1, 2, 3}, {2, -1, 2}};
    ASSERT_EQ(mat_PlaneWorld(&pl, &to_local, &to_world), st::ok);
    V_VECTOR u;
    V_VECTOR v;
    V_VECTOR n;
    to_world.rows(0, &u);
    to_world.rows(1, &v);
    to_world.rows(2, &n);
    EXPECT_NEAR(u.x * v.x + u.y * v.y + u.z * v.z, 0.0, 1e-15);
    V_VECTOR uxv;
    aXb(&u, &v, &uxv);
    expect_point(V_POINT{uxv.x, uxv.y, uxv.z}, 2.0 / 3, -1.0 / 3, 2.0 / 3, 1e-15);
    expect_point(V_POINT{n.x, n.y, n.z}, 2.0 / 3, -1.0 / 3, 2.0 / 3, 1e-15);
    // The plane's point is the local origin; a point above it has local z = height.
    expect_point(apply(to_local, V_POINT{1, 2, 3}), 0, 0, 0, 1e-14);
    expect_point(apply(to_local, V_POINT{3, 1, 5}), 0, 0, 3, 1e-14);

    const V_PLANE bad{{1, 2, 3}, {0, 0, 0}};
    const V_MATRIX before = to_world;
    EXPECT_EQ(mat_PlaneWorld(&bad, &to_local, &to_world), st::zero_vector);
    EXPECT_TRUE(same_bytes(to_world, before));
}

TEST(MatFrames, WorkPlaneToWorkPlane_MapsLocalToLocal)
{
    V_WORKPLANE a;
    V_WORKPLANE b;
    init_wpl(&a);
    V_POINT o{1, 2, 3};
    V_VECTOR d1{0, 1, 0};
    V_VECTOR d2{0, 0, 1};
    ASSERT_EQ(a.Create_From_Two_Directions(o, d1, d2), st::ok);  // x->y, y->z, z->x
    init_wpl(&b);
    b.origin = V_POINT{-1, 0, 0};
    V_MATRIX M;
    ASSERT_EQ(mat_WorkPlane_WorkPlane(&a, &b, &M), st::ok);
    // Local (1, 2, 3) of a is world (1,2,3) + (0,1,0) + (0,0,2) + (3,0,0) = (4, 3, 5);
    // in b that is (5, 3, 5).
    expect_point(apply(M, V_POINT{1, 2, 3}), 5, 3, 5, 1e-14);

    b.xaxis = b.yaxis;  // singular target
    const V_MATRIX before = M;
    EXPECT_EQ(mat_WorkPlane_WorkPlane(&a, &b, &M), st::singular);
    EXPECT_TRUE(same_bytes(M, before));
}

TEST(MatScaleComponents, RowLengthsOverHomogeneousScale)
{
    V_MATRIX M;
    mat_nuscale(&M, 2, -3, 4);
    V_MATRIX R;
    mat_rotate(&R, 0.4, 'X');
    mat_mul(&M, &R, &M);
    double sx = 0;
    double sy = 0;
    double sz = 0;
    MatrixGetScaleComponents(M, &sx, &sy, &sz);
    EXPECT_NEAR(sx, 2.0, 1e-15);
    EXPECT_NEAR(sy, 3.0, 1e-15);
    EXPECT_NEAR(sz, 4.0, 1e-15);
    EXPECT_NEAR(MatrixGetZScale(M), 4.0, 1e-15);

    mat_scale(&M, -4.0);
    MatrixGetScaleComponents(M, &sx, nullptr, &sz);
    EXPECT_DOUBLE_EQ(sx, 4.0);
    EXPECT_DOUBLE_EQ(MatrixGetZScale(M), 4.0);
}
