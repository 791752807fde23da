// 4 x 4 matrices: builders, products, determinant and inverse, mappings, placements.
#include "base_support.h"
#include <algorithm>

using namespace basetest;

namespace {

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
    V_VECTOR sxe, m;
    aXb(&s, &e, &sxe);
    double t = std::atan2(real_adotb(&sxe, &a.normal), real_adotb(&s, &e));
    if (t < 0.0) t += 2.0 * kPi;
    *sweep = t;
    vector_rotate(&s, &a.normal, 0.5 * t, &m);
    return V_POINT{a.centre.x + m.x, a.centre.y + m.y, a.centre.z + m.z};
}

}  // namespace

TEST(MatBuilders, TranslateShearNuscaleTwoDimensionalAndScaleThroughM33)
{
    V_MATRIX M;
    const V_POINT t{4, -5, 6};
    mat_translate(&M, &t);
    EXPECT_TRUE(xyz_near(apply(M, {1, 2, 3}), {5, -3, 9}, 0.0));
    mat_shear(&M, 1, 2, 3, 4, 5, 6);  // x + a y + b z, c x + y + d z, e x + f y + z
    EXPECT_TRUE(xyz_near(apply(M, {1, 2, 3}), {1 + 2 + 6, 3 + 2 + 12, 5 + 12 + 3}, 0.0));
    mat_nuscale(&M, 2, 3, 4);
    EXPECT_TRUE(xyz_near(apply(M, {1, 1, 1}), {2, 3, 4}, 0.0));
    V_MATRIX A = from_rows({1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 1});
    mat_ForceTwoDimensional(&A, &A);
    EXPECT_TRUE(mat_near(A, from_rows({1, 2, 0, 0, 4, 5, 0, 0, 0, 0, 1, 0, 10, 11, 0, 1}), 0.0));
    // The uniform scale acts through m33, which alone divides.
    mat_scale(&M, 2.0);
    EXPECT_TRUE(xyz_near(apply(M, {1, 2, 3}), {2, 4, 6}, 0.0));
    V_VECTOR v{1, 2, 3};
    mat_rotate_vector(&v, &M, &v);  // the 3 x 3 block alone does not see the scale
    EXPECT_TRUE(xyz_near(v, {1, 2, 3}, 0.0));
    mat_scale(&M, -2.0);  // the block carries the sign
    mat_rotate_vector(&v, &M, &v);
    EXPECT_TRUE(xyz_near(apply(M, {1, 2, 3}), {-2, -4, -6}, 0.0) && xyz_near(v, {-1, -2, -3}, 0.0));
    mat_identity(&M);
    M.m[0][3] = M.m[1][3] = 7.0;  // column entries are never read
    M.m[3][3] = 0.0;              // and w = 0 does not divide
    EXPECT_TRUE(xyz_near(apply(M, {1, 2, 3}), {1, 2, 3}, 0.0));
}

TEST(MatRotate, AxesTurnCounterClockwiseAndUnknownLetterIsMinusY)
{
    V_MATRIX M, y;
    mat_rotate(&M, kPi / 2, 'z');  // lower case is accepted
    EXPECT_TRUE(xyz_near(apply(M, {1, 0, 0}), {0, 1, 0}));
    mat_rotate(&M, kPi / 2, 'X');
    EXPECT_TRUE(xyz_near(apply(M, {0, 1, 0}), {0, 0, 1}));
    mat_rotate(&M, kPi / 2, 'y');
    EXPECT_TRUE(xyz_near(apply(M, {0, 0, 1}), {1, 0, 0}));
    mat_rotate(&y, -0.7, 'Y');
    for (int letter : {0x51, 0x71, 0x31, 0xE9}) {  // Q, q, 1 and a byte above ASCII
        mat_rotate(&M, 0.7, static_cast<unsigned char>(letter));
        EXPECT_TRUE(mat_near(M, y, 1e-15)) << letter;
    }
}

TEST(MatInverse, InverseTimesMatrixIsIdentityDeterminantBelowBoundIsSingular)
{
    std::mt19937 rng(2024);
    for (int n = 0; n < 100; ++n) {
        const V_MATRIX A = random_well_conditioned(rng);
        EXPECT_NEAR(mat_determinant(&A), leibniz4(A), 1e-10 * std::fabs(leibniz4(A)));
        V_MATRIX B = A;
        ASSERT_EQ(mat_inverse(&B, &B), st::ok);  // in place
        mat_mul(&B, &A, &B);                     // the product may overwrite its left factor
        EXPECT_TRUE(mat_near(B, identity(), 1e-12));
    }
    // Singular or not finite: 13, the output kept.
    V_MATRIX A, B = from_rows({9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2, 3, 4, 5, 6});
    const V_MATRIX before = B;
    mat_nuscale(&A, 1e-15, 1.0, 1.0);  // determinant 1e-15
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    A.m[0][0] = 1.0;
    A.m[2][1] = kNaN;
    EXPECT_EQ(mat_inverse(&A, &B), st::singular);
    EXPECT_TRUE(same_bytes(B, before));
    mat_nuscale(&A, 1e-13, 1.0, 1.0);  // above the bound: invertible
    EXPECT_EQ(mat_inverse(&A, &B), st::ok);
    EXPECT_NEAR(B.m[0][0], 1e13, 1e-2);
}

TEST(MatContracts, RowsColumnsAndIndexOutsideZeroToThreeAsserts)
{
    const V_MATRIX A = from_rows({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
    V_VECTOR v, w;
    A.columns(3, &v);
    A.rows(3, &w);
    EXPECT_TRUE(xyz_near(v, {3, 7, 11}, 0.0) && xyz_near(w, {12, 13, 14}, 0.0));
    EXPECT_DEATH(mat_cofactor(&A, 4, 0), "assertion failed in matrix.cpp line");
    EXPECT_DEATH(A.rows(4, &v), "assertion failed in matrix.cpp line");
}

TEST(MatRotations, PreserveLengthsAndMatchVectorRotateAboutOffsetAxes)
{
    std::mt19937 rng(12345);
    std::uniform_real_distribution<double> u(-5.0, 5.0);
    V_MATRIX R, A;
    for (int n = 0; n < 50; ++n) {
        const V_POINT c{u(rng), u(rng), u(rng)}, p{u(rng), u(rng), u(rng)};
        V_VECTOR k{u(rng), u(rng), u(rng)}, r{p.x - c.x, p.y - c.y, p.z - c.z}, w;
        const double angle = u(rng);
        mat_rotate(&R, angle, "XYZ"[n % 3]);
        mat_rotate_vector(&r, &R, &w);
        EXPECT_NEAR(real_modulus(&w), real_modulus(&r), 1e-12);
        mat_arbitrary_axis_rotation(&c, &k, angle, &A);
        EXPECT_NEAR(mat_determinant(&A), 1.0, 1e-12);
        normalise(&k);
        vector_rotate(&r, &k, angle, &w);
        EXPECT_TRUE(xyz_near(apply(A, p), {c.x + w.x, c.y + w.y, c.z + w.z}, 1e-12));
    }
    const V_POINT c{1, 2, 3};
    const V_VECTOR z{0, 0, 2};
    mat_arbitrary_axis_rotation(&c, &z, kPi / 2, &A);
    EXPECT_TRUE(xyz_near(apply(A, {2, 2, 3}), {1, 3, 3}));
}

TEST(MatPlacements, MirrorGeneralTransformationAndUnitVectorImages)
{
    V_MATRIX M, MM;
    const V_PLANE x1{{1, 0, 0}, {2, 0, 0}};  // the plane x = 1, normal not unit
    mat_mirror(&x1, &M);
    EXPECT_TRUE(xyz_near(apply(M, {3, 5, 7}), {-1, 5, 7}));
    const V_PLANE tilted{{1, 2, 3}, {1, -2, 0.5}};
    mat_mirror(&tilted, &M);
    EXPECT_NEAR(mat_determinant(&M), -1.0, 1e-12);
    mat_mul(&M, &M, &MM);
    EXPECT_TRUE(xyz_near(apply(M, tilted.point), tilted.point) && mat_near(MM, identity(), 1e-14));
    const V_PLANE degenerate{{1, 2, 3}, {0, 0, 0}};
    mat_mirror(&degenerate, &M);
    EXPECT_TRUE(mat_near(M, identity(), 0.0));

    const V_POINT from{1, 0, 0}, to{5, 5, 5};
    const V_VECTOR z{0, 0, 1}, zero{0, 0, 0};
    mat_general_transformation(&from, &z, &to, kPi / 2, 2.0, &M);
    EXPECT_TRUE(xyz_near(apply(M, from), to) && xyz_near(apply(M, {1, 0, 1}), {5, 5, 7}) &&
                xyz_near(apply(M, {2, 0, 0}), {5, 7, 5}));  // +x from `from` turns to +y, doubled
    mat_general_transformation(&from, &zero, &to, kPi / 2, 3.0, &M);
    EXPECT_TRUE(xyz_near(apply(M, {2, 0, 0}), {8, 5, 5}));

    mat_nuscale(&M, 2, 3, 4);
    M.m[3][0] = 100.0;  // no translation reaches a direction
    V_VECTOR v{1, 1, 1};
    EXPECT_EQ(mat_transform_vector(&v, &M, &v), st::ok);
    EXPECT_TRUE(xyz_near(v, {2 / std::sqrt(29.0), 3 / std::sqrt(29.0), 4 / std::sqrt(29.0)}));
    EXPECT_EQ(mat_transform_vector(&zero, &M, &v), st::zero_vector);
    const V_VECTOR3f f{1.0f, 0.5f, 0.0f};
    V_VECTOR3f g;
    mat_rotate_vectorf(&f, &M, &g);
    EXPECT_TRUE(g.x == 2.0f && g.y == 1.5f && g.z == 0.0f);
}

TEST(MatTransformRadius, SimilaritiesScaleItNonUniformKeepsArea)
{
    const V_VECTOR n{1, 2, 3}, z{0, 0, 5}, zero{0, 0, 0};
    const V_POINT c{1, 1, 1};
    V_MATRIX M;
    double r = 0.0;
    mat_scale(&M, 3.0);
    EXPECT_TRUE(mat_transform_radius(2.0, &M, &n, &r) == st::ok && std::fabs(r - 6.0) < 1e-12);
    mat_arbitrary_axis_rotation(&c, &n, 1.1, &M);
    mat_transform_radius(2.0, &M, &n, &r);
    EXPECT_NEAR(r, 2.0, 1e-12);
    mat_nuscale(&M, 2, 3, 7);  // a circle across z becomes an ellipse of area pi (2r)(3r)
    mat_transform_radius(1.5, &M, &z, &r);
    EXPECT_NEAR(r, 1.5 * std::sqrt(6.0), 1e-12);
    EXPECT_TRUE(mat_transform_radius(1.5, &M, &zero, &r) == st::zero_vector && r == 1.5);
    mat_identity(&M);
    M.m[3][3] = 0.0;  // w = 0 does not divide
    mat_transform_radius(1.5, &M, &z, &r);
    EXPECT_NEAR(r, 1.5, 1e-15);
}

TEST(MatTransformArc, ImageOfMidpointStaysMidpointUnderReflections)
{
    const V_ARC arc{{0, 0, 0}, 1.0, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}};  // quarter about +z
    V_MATRIX mats[5];
    const V_PLANE yz{{0, 0, 0}, {1, 0, 0}}, xy{{0, 0, 2}, {0, 0, 1}};
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
        EXPECT_TRUE(xyz_near(arc_midpoint(out, &sweep), apply(M, mid), 1e-12));
        EXPECT_NEAR(sweep, kPi / 2, 1e-12);
    }
    V_ARC a = arc;
    mat_transform_arc(&a, &mats[2], &a);  // in place
    EXPECT_NEAR(a.radius, 2.0, 1e-15);
    EXPECT_TRUE(xyz_near(a.start, {0, -2, 0}) && xyz_near(a.end, {-2, 0, 0}));
}

TEST(MatFrames, PlaneMatricesOr13And177WithOutputsKept)
{
    V_WORKPLANE wp = tilted_frame(), other;
    V_MATRIX to_local, to_world, keep;
    init_wpl(&other);
    const V_PLANE flat{{0, 0, 4}, {0, 0, 3}};
    ASSERT_EQ(mat_PlaneWorld(&flat, &to_local, &to_world), st::ok);
    EXPECT_TRUE(
        mat_near(to_world, from_rows({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 4, 1}), 0.0));
    const V_PLANE pl{{1, 2, 3}, {2, -1, 2}};  // unit normal (2, -1, 2) / 3
    ASSERT_EQ(mat_PlaneWorld(&pl, &to_local, &to_world), st::ok);
    EXPECT_NEAR(mat_determinant(&to_world), 1.0, 1e-14);  // orthonormal, right-handed
    EXPECT_TRUE(xyz_near(apply(to_local, {1, 2, 3}), {0, 0, 0}) &&
                xyz_near(apply(to_local, {3, 1, 5}), {0, 0, 3}));

    keep = to_world;
    const V_PLANE bad{{1, 2, 3}, {0, 0, 0}};
    EXPECT_EQ(mat_PlaneWorld(&bad, &to_local, &to_world), st::zero_vector);
    EXPECT_TRUE(same_bytes(to_world, keep));
    wp.zaxis = V_VECTOR{0, 0, 0};
    keep = to_local;
    EXPECT_TRUE(mat_WorkPlane_World(&wp, &to_local, nullptr) == st::singular &&
                mat_WorkPlane_WorkPlane(&other, &wp, &to_local) == st::singular &&
                same_bytes(to_local, keep));
}

TEST(MatScaleComponents, RowLengthsOverHomogeneousScale)
{
    V_MATRIX M, R;
    double sx = 0, sy = 0, sz = 0;
    mat_nuscale(&M, 2, -3, 4);
    mat_rotate(&R, 0.4, 'X');
    mat_mul(&M, &R, &M);
    MatrixGetScaleComponents(M, &sx, &sy, &sz);
    EXPECT_TRUE(std::fabs(sx - 2) < 1e-15 && std::fabs(sy - 3) < 1e-15);
    EXPECT_NEAR(MatrixGetZScale(M), 4.0, 1e-15);
    mat_scale(&M, -4.0);
    MatrixGetScaleComponents(M, &sx, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(sx, 4.0);
}
