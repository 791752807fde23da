#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

const double kPi = 3.14159265358979323846;

V_MATRIX from_rows(const double (&v)[16])
{
    V_MATRIX M;
    for (int k = 0; k < 16; ++k) M.m[k / 4][k % 4] = v[k];
    return M;
}

V_POINT apply(const V_MATRIX& M, V_POINT p)
{
    mat_transform_point(&p, &M, &p);
    return p;
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

void expect_matrix(const V_MATRIX& A, const V_MATRIX& B, double tol)
{
    for (int k = 0; k < 16; ++k) EXPECT_NEAR(A.m[k / 4][k % 4], B.m[k / 4][k % 4], tol) << k;
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
        double term = 1.0;
        for (int i = 0; i < 4; ++i) {
            term *= A.m[i][p[i]];
            for (int j = i + 1; j < 4; ++j) term *= (p[i] > p[j]) ? -1.0 : 1.0;
        }
        det += term;
    } while (std::next_permutation(p, p + 4));
    return det;
}

// The point halfway along the arc: start turned about the unit normal by half the
// counter-clockwise sweep atan2((s x e).n, s.e), taken in [0, 2 pi).
V_POINT arc_midpoint(const V_ARC& a, double* sweep)
{
    const V_VECTOR s{a.start.x - a.centre.x, a.start.y - a.centre.y, a.start.z - a.centre.z};
    const V_VECTOR e{a.end.x - a.centre.x, a.end.y - a.centre.y, a.end.z - a.centre.z};
    V_VECTOR sxe;
    aXb(&s, &e, &sxe);
    const V_VECTOR& n = a.normal;
    double t =
        std::atan2(sxe.x * n.x + sxe.y * n.y + sxe.z * n.z, s.x * e.x + s.y * e.y + s.z * e.z);
    if (t < 0.0) t += 2.0 * kPi;
    *sweep = t;
    V_VECTOR m;
    vector_rotate(&s, &n, 0.5 * t, &m);
    return V_POINT{a.centre.x + m.x, a.centre.y + m.y, a.centre.z + m.z};
}

}  // namespace

TEST(MatBuilders, TranslateShearNuscaleForceTwoDimensional)
{
    V_MATRIX M;
    const V_POINT t{4, -5, 6};
    mat_translate(&M, &t);
    expect_point(apply(M, V_POINT{1, 2, 3}), 5, -3, 9);
    mat_shear(&M, 1, 2, 3, 4, 5, 6);  // x + a y + b z, c x + y + d z, e x + f y + z
    expect_point(apply(M, V_POINT{1, 2, 3}), 1 + 2 + 6, 3 + 2 + 12, 5 + 12 + 3);
    mat_nuscale(&M, 2, 3, 4);
    expect_point(apply(M, V_POINT{1, 1, 1}), 2, 3, 4);

    V_MATRIX A = from_rows({1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 1});
    mat_ForceTwoDimensional(&A, &A);
    expect_matrix(A, from_rows({1, 2, 0, 0, 4, 5, 0, 0, 0, 0, 1, 0, 10, 11, 0, 1}), 0.0);
}

TEST(MatRotate, AxesTurnCounterClockwiseAndUnknownLetterIsMinusY)
{
    V_MATRIX M;
    mat_rotate(&M, kPi / 2, 'z');  // lower case is accepted
    expect_point(apply(M, V_POINT{1, 0, 0}), 0, 1, 0);
    mat_rotate(&M, kPi / 2, 'X');
    expect_point(apply(M, V_POINT{0, 1, 0}), 0, 0, 1);
    mat_rotate(&M, kPi / 2, 'y');
    expect_point(apply(M, V_POINT{0, 0, 1}), 1, 0, 0);

    V_MATRIX y;
    mat_rotate(&y, -0.7, 'Y');
    for (int letter : {0x51, 0x71, 0x31, 0xE9}) {  // Q, q, 1, a non-ASCII byte
        mat_rotate(&M, 0.7, static_cast<unsigned char>(letter));
        expect_matrix(M, y, 1e-15);
    }
}

TEST(MatRotate, RandomRotationsPreserveLengths)
{
    std::mt19937 rng(12345);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int n = 0; n < 50; ++n) {
        V_MATRIX R;
        V_MATRIX A;
        mat_rotate(&R, u(rng), "XYZ"[n % 3]);
        const V_POINT c{u(rng), u(rng), u(rng)};
        const V_VECTOR axis{u(rng), u(rng), u(rng)};
        mat_arbitrary_axis_rotation(&c, &axis, u(rng), &A);
        const V_VECTOR v{u(rng), u(rng), u(rng)};
        V_VECTOR r;
        mat_rotate_vector(&v, &R, &r);
        EXPECT_NEAR(length(r), length(v), 1e-12);
        mat_rotate_vector(&v, &A, &r);
        EXPECT_NEAR(length(r), length(v), 1e-12);
        EXPECT_NEAR(mat_determinant(&A), 1.0, 1e-12);
    }
}

TEST(MatScale, ActsThroughM33AndOnlyM33Divides)
{
    V_MATRIX M;
    mat_scale(&M, 2.0);
    expect_point(apply(M, V_POINT{1, 2, 3}), 2, 4, 6);
    V_VECTOR v{1, 2, 3};
    mat_rotate_vector(&v, &M, &v);  // the 3 x 3 block alone does not see the scale
    EXPECT_EQ(v.z, 3.0);
    mat_scale(&M, -2.0);
    expect_point(apply(M, V_POINT{1, 2, 3}), -2, -4, -6);

    mat_identity(&M);
    M.m[0][3] = M.m[1][3] = 7.0;  // column entries are never read
    M.m[3][3] = 0.0;              // and w = 0 does not divide
    expect_point(apply(M, V_POINT{1, 2, 3}), 1, 2, 3, 0.0);
}

TEST(MatMul, HandProductLeftFactorFirstAndAliasing)
{
    const V_MATRIX A = from_rows({1, 2, 0, 0, 0, 1, 3, 0, 0, 0, 1, 0, 1, 0, 0, 1});
    const V_MATRIX B = from_rows({2, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 4, 0, 1});
    const V_MATRIX AB = from_rows({4, 2, 0, 0, 1, 1, 3, 0, 0, 0, 1, 0, 2, 4, 0, 1});  // by hand
    V_MATRIX a = A;
    V_MATRIX b = B;
    mat_mul(&a, &B, &a);
    mat_mul(&A, &b, &b);
    expect_matrix(a, AB, 0.0);
    expect_matrix(b, AB, 0.0);
    mat_mul(-0.5, &b);
    EXPECT_EQ(b.m[3][1], -2.0);

    V_MATRIX T;  // translate by x, then turn about z: the origin goes to (0, 1, 0)
    V_MATRIX R;
    const V_POINT t{1, 0, 0};
    mat_translate(&T, &t);
    mat_rotate(&R, kPi / 2, 'Z');
    mat_mul(&T, &R, &T);
    expect_point(apply(T, V_POINT{0, 0, 0}), 0, 1, 0);
}

TEST(MatDeterminant, MatchesPermutationSumAndCofactorExpansions)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-3.0, 3.0);
    for (int n = 0; n < 20; ++n) {
        V_MATRIX A;
        for (int k = 0; k < 16; ++k) A.m[k / 4][k % 4] = u(rng);
        const double det = leibniz4(A);
        EXPECT_NEAR(mat_determinant(&A), det, 1e-10);
        // Row i's cofactors against row k's entries: det when i == k, else 0.
        for (short i = 0; i < 4; ++i)
            for (short k = 0; k < 4; ++k) {
                double s = 0.0;
                for (short j = 0; j < 4; ++j) s += A.m[k][j] * mat_cofactor(&A, i, j);
                EXPECT_NEAR(s, i == k ? det : 0.0, 1e-10);
            }
    }
    // Rows 0 and 1 of diag(1, 1, 3, 1) exchanged: det -3; cofactor (0,1) = -(minor 3).
    const V_MATRIX P = from_rows({0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1});
    EXPECT_DOUBLE_EQ(mat_determinant(&P), -3.0);
    EXPECT_DOUBLE_EQ(mat_cofactor(&P, 0, 1), -3.0);
}

TEST(MatInverse, RandomWellConditionedTimesMatrixIsIdentity)
{
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    V_MATRIX I;
    mat_identity(&I);
    for (int n = 0; n < 100; ++n) {
        V_MATRIX A;
        for (int k = 0; k < 16; ++k) A.m[k / 4][k % 4] = u(rng) + (k % 5 == 0 ? 5.0 : 0.0);
        V_MATRIX B = A;
        ASSERT_EQ(mat_inverse(&B, &B), st::ok);  // in place
        V_MATRIX C;
        mat_mul(&A, &B, &C);
        expect_matrix(C, I, 1e-12);
        mat_mul(&B, &A, &C);
        expect_matrix(C, I, 1e-12);
    }
}

TEST(MatInverse, SingularOrNotFiniteReturns13AndKeepsOutput)
{
    V_MATRIX A;
    V_MATRIX B = from_rows({9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2, 3, 4, 5, 6});
    const V_MATRIX before = B;
    mat_nuscale(&A, 1e-15, 1.0, 1.0);  // determinant 1e-15
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    A.m[0][0] = 1.0;
    A.m[2][1] = std::nan("");
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    EXPECT_TRUE(same_bytes(B, before));
    mat_nuscale(&A, 1e-13, 1.0, 1.0);  // above the bound: invertible
    EXPECT_EQ(mat_inverse(&A, &B), st::ok);
    EXPECT_NEAR(B.m[0][0], 1e13, 1e-2);
}

TEST(MatContracts, IndexOutsideZeroToThreeAsserts)
{
    V_MATRIX A = from_rows({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
    V_VECTOR v;
    A.columns(3, &v);
    expect_point(V_POINT{v.x, v.y, v.z}, 3, 7, 11, 0.0);
    A.rows(3, &v);
    expect_point(V_POINT{v.x, v.y, v.z}, 12, 13, 14, 0.0);
    EXPECT_DEATH(mat_cofactor(&A, 4, 0), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(mat_cofactor(&A, 0, -1), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(A.rows(4, &v), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(A.columns(-1, &v), "assertion failed in matrix.cpp line");
}

TEST(MatTransformVector, UnitImageWithoutTranslation)
{
    V_MATRIX M;
    mat_nuscale(&M, 2, 3, 4);
    M.m[3][0] = 100.0;
    V_VECTOR v{1, 1, 1};
    EXPECT_EQ(mat_transform_vector(&v, &M, &v), st::ok);
    expect_point(V_POINT{v.x, v.y, v.z}, 2 / std::sqrt(29.0), 3 / std::sqrt(29.0),
                 4 / std::sqrt(29.0), 1e-15);
    const V_VECTOR3f f{1.0f, 0.5f, 0.0f};
    V_VECTOR3f g;
    mat_rotate_vectorf(&f, &M, &g);
    EXPECT_EQ(g.y, 1.5f);
    const V_VECTOR zero{0, 0, 0};
    EXPECT_EQ(mat_transform_vector(&zero, &M, &v), st::zero_vector);
}

TEST(MatMirror, TwiceIsIdentityAndFlipsDeterminant)
{
    V_MATRIX M;
    V_MATRIX MM;
    V_MATRIX I;
    mat_identity(&I);
    const V_PLANE x1{{1, 0, 0}, {2, 0, 0}};  // the plane x = 1, normal not unit
    mat_mirror(&x1, &M);
    expect_point(apply(M, V_POINT{3, 5, 7}), -1, 5, 7);
    const V_PLANE tilted{{1, 2, 3}, {1, -2, 0.5}};
    mat_mirror(&tilted, &M);
    EXPECT_NEAR(mat_determinant(&M), -1.0, 1e-12);
    expect_point(apply(M, tilted.point), 1, 2, 3);
    mat_mul(&M, &M, &MM);
    expect_matrix(MM, I, 1e-14);
    const V_PLANE degenerate{{1, 2, 3}, {0, 0, 0}};
    mat_mirror(&degenerate, &M);
    expect_matrix(M, I, 0.0);
}

TEST(MatArbitraryAxisRotation, MatchesVectorRotateAboutOffsetAxis)
{
    const V_POINT c{1, 2, 3};
    const V_VECTOR axis{0, 0, 2};
    V_MATRIX M;
    mat_arbitrary_axis_rotation(&c, &axis, kPi / 2, &M);
    expect_point(apply(M, V_POINT{2, 2, 3}), 1, 3, 3);

    std::mt19937 rng(99);
    std::uniform_real_distribution<double> u(-2.0, 2.0);
    for (int n = 0; n < 30; ++n) {
        const V_POINT p0{u(rng), u(rng), u(rng)};
        const V_POINT p{u(rng), u(rng), u(rng)};
        V_VECTOR k{u(rng), u(rng), u(rng)};
        const double angle = 3 * u(rng);
        mat_arbitrary_axis_rotation(&p0, &k, angle, &M);
        normalise(&k);
        V_VECTOR r{p.x - p0.x, p.y - p0.y, p.z - p0.z};
        vector_rotate(&r, &k, angle, &r);
        expect_point(apply(M, p), p0.x + r.x, p0.y + r.y, p0.z + r.z);
    }
}

TEST(MatGeneralTransformation, RotateAndScaleAboutFromThenMoveToTo)
{
    const V_POINT from{1, 0, 0};
    const V_POINT to{5, 5, 5};
    const V_VECTOR z{0, 0, 1};
    V_MATRIX M;
    mat_general_transformation(&from, &z, &to, kPi / 2, 2.0, &M);
    expect_point(apply(M, from), 5, 5, 5);
    expect_point(apply(M, V_POINT{2, 0, 0}), 5, 7, 5);  // +x from `from` turns to +y, doubled
    expect_point(apply(M, V_POINT{1, 0, 1}), 5, 5, 7);
    const V_VECTOR zero{0, 0, 0};
    mat_general_transformation(&from, &zero, &to, kPi / 2, 3.0, &M);
    expect_point(apply(M, V_POINT{2, 0, 0}), 8, 5, 5);
}

TEST(MatTransformRadius, SimilaritiesScaleItNonUniformKeepsArea)
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

TEST(MatTransformArc, ImageOfMidpointStaysMidpointUnderReflections)
{
    const V_ARC arc{{0, 0, 0}, 1.0, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}};  // quarter about +z
    V_MATRIX mats[5];
    const V_PLANE yz{{0, 0, 0}, {1, 0, 0}};
    const V_PLANE xy{{0, 0, 2}, {0, 0, 1}};
    const V_POINT c{3, 0, 0};
    const V_VECTOR k{1, 1, 0};
    mat_mirror(&yz, &mats[0]);
    mat_mirror(&xy, &mats[1]);
    mat_scale(&mats[2], -2.0);  // a point reflection carried by the diagonal and m33
    mat_arbitrary_axis_rotation(&c, &k, 0.8, &mats[3]);
    mat_identity(&mats[4]);
    mats[4].m[3][3] = -1.0;  // identity block, but w = -1 reflects every point through 0
    double sweep = 0.0;
    const V_POINT mid = arc_midpoint(arc, &sweep);
    for (const V_MATRIX& M : mats) {
        V_ARC out;
        EXPECT_EQ(mat_transform_arc(&arc, &M, &out), st::ok);
        const V_POINT m = apply(M, mid);
        expect_point(arc_midpoint(out, &sweep), m.x, m.y, m.z);
        EXPECT_NEAR(sweep, kPi / 2, 1e-12);
    }
    V_ARC a = arc;
    mat_transform_arc(&a, &mats[2], &a);  // in place
    EXPECT_NEAR(a.radius, 2.0, 1e-15);
    expect_point(a.start, 0, -2, 0);
    expect_point(a.end, -2, 0, 0);
}

TEST(MatFrames, WorkPlaneAndPlaneMatrices)
{
    V_WORKPLANE wp;
    init_wpl(&wp);
    V_POINT o{1, -2, 3};
    V_VECTOR d1{1, 1, 0};
    V_VECTOR d2{0, 1, 1};
    ASSERT_EQ(wp.Create_From_Two_Directions(o, d1, d2), st::ok);
    V_MATRIX to_local;
    V_MATRIX to_world;
    V_MATRIX P;
    V_MATRIX I;
    mat_identity(&I);
    ASSERT_EQ(mat_WorkPlane_World(&wp, &to_local, &to_world), st::ok);
    mat_mul(&to_world, &to_local, &P);
    expect_matrix(P, I, 1e-14);
    V_POINT p{0.5, 7, -2};
    const V_POINT w = apply(to_world, p);
    plane_to_world(&p, wp);
    expect_point(w, p.x, p.y, p.z, 1e-14);

    const V_PLANE flat{{0, 0, 4}, {0, 0, 3}};
    ASSERT_EQ(mat_PlaneWorld(&flat, &to_local, &to_world), st::ok);
    expect_matrix(to_world, from_rows({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 4, 1}), 1e-15);
    const V_PLANE pl{{1, 2, 3}, {2, -1, 2}};  // unit normal (2, -1, 2) / 3
    ASSERT_EQ(mat_PlaneWorld(&pl, &to_local, &to_world), st::ok);
    EXPECT_NEAR(mat_determinant(&to_world), 1.0, 1e-14);  // orthonormal, right-handed
    expect_point(apply(to_local, V_POINT{1, 2, 3}), 0, 0, 0, 1e-14);
    expect_point(apply(to_local, V_POINT{3, 1, 5}), 0, 0, 3, 1e-14);

    const V_PLANE bad{{1, 2, 3}, {0, 0, 0}};
    V_MATRIX keep = to_world;
    EXPECT_EQ(mat_PlaneWorld(&bad, &to_local, &to_world), st::zero_vector);
    EXPECT_TRUE(same_bytes(to_world, keep));
    wp.zaxis = V_VECTOR{0, 0, 0};
    keep = to_local;
    EXPECT_EQ(mat_WorkPlane_World(&wp, &to_local, nullptr), st::singular);
    EXPECT_TRUE(same_bytes(to_local, keep));
}

TEST(MatFrames, WorkPlaneToWorkPlaneMapsLocalToLocal)
{
    V_WORKPLANE a;
    V_WORKPLANE b;
    init_wpl(&a);
    init_wpl(&b);
    V_POINT o{1, 2, 3};
    V_VECTOR d1{0, 1, 0};
    V_VECTOR d2{0, 0, 1};
    ASSERT_EQ(a.Create_From_Two_Directions(o, d1, d2), st::ok);  // x->y, y->z, z->x
    b.origin = V_POINT{-1, 0, 0};
    V_MATRIX M;
    ASSERT_EQ(mat_WorkPlane_WorkPlane(&a, &b, &M), st::ok);
    // Local (1,2,3) of a is world (1,2,3) + (0,1,0) + (0,0,2) + (3,0,0) = (4,3,5): (5,3,5) in b.
    expect_point(apply(M, V_POINT{1, 2, 3}), 5, 3, 5, 1e-14);
    b.xaxis = b.yaxis;
    const V_MATRIX keep = M;
    EXPECT_EQ(mat_WorkPlane_WorkPlane(&a, &b, &M), st::singular);
    EXPECT_TRUE(same_bytes(M, keep));
}

TEST(MatScaleComponents, RowLengthsOverHomogeneousScale)
{
    V_MATRIX M;
    V_MATRIX R;
    mat_nuscale(&M, 2, -3, 4);
    mat_rotate(&R, 0.4, 'X');
    mat_mul(&M, &R, &M);
    double sx = 0;
    double sy = 0;
    double sz = 0;
    MatrixGetScaleComponents(M, &sx, &sy, &sz);
    EXPECT_NEAR(sx, 2.0, 1e-15);
    EXPECT_NEAR(sy, 3.0, 1e-15);
    EXPECT_NEAR(MatrixGetZScale(M), 4.0, 1e-15);
    mat_scale(&M, -4.0);
    MatrixGetScaleComponents(M, &sx, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(sx, 4.0);
}
