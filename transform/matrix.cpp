#include "transform/gen_mat.h"
#include "foundation/status.h"
#include "foundation/vector_algebra.h"
#include "platform/utils.h"
#include <cmath>

namespace {

// Below this determinant a matrix counts as singular; a fixed bound, not a model tolerance.
constexpr double kSingularDet = 1e-14;

// The homogeneous divisor that mat_transform_point applies: m33, or 1 when m33 is 0 or 1.
double effective_w(const V_MATRIX& M)
{
    const double w = M.m[3][3];
    if (w == 0.0 || w == 1.0) return 1.0;  // exact on purpose: the same test as for points
    return w;
}

// Determinant of the 3 x 3 matrix left when row r and column c are struck out.
double minor3(const V_MATRIX& A, int r, int c)
{
    int ri[3];
    int ci[3];
    for (int k = 0, n = 0; k < 4; ++k)
        if (k != r) ri[n++] = k;
    for (int k = 0, n = 0; k < 4; ++k)
        if (k != c) ci[n++] = k;
    const double(*m)[4] = A.m;
    // Rule of Sarrus on the remaining rows ri and columns ci.
    return m[ri[0]][ci[0]] *
               (m[ri[1]][ci[1]] * m[ri[2]][ci[2]] - m[ri[1]][ci[2]] * m[ri[2]][ci[1]]) -
           m[ri[0]][ci[1]] *
               (m[ri[1]][ci[0]] * m[ri[2]][ci[2]] - m[ri[1]][ci[2]] * m[ri[2]][ci[0]]) +
           m[ri[0]][ci[2]] *
               (m[ri[1]][ci[0]] * m[ri[2]][ci[1]] - m[ri[1]][ci[1]] * m[ri[2]][ci[0]]);
}

// Determinant of the upper-left 3 x 3 block (the linear part under the row convention).
double det3(const V_MATRIX& A)
{
    const double(*m)[4] = A.m;
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Rotation block about the unit axis k, counter-clockwise seen from its tip. Row i is the
// image of e_i by Rodrigues' formula, R v = v c + (k x v) s + k (k.v)(1 - c):
// R[i][j] = c d_ij + s (k x e_i)_j + (1 - c) k_i k_j.
void rotation_block(const V_VECTOR& k, double angle, double R[3][3])
{
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double t = 1.0 - c;
    const double kv[3] = {k.x, k.y, k.z};
    // k x e_0 = (0, kz, -ky), k x e_1 = (-kz, 0, kx), k x e_2 = (ky, -kx, 0).
    const double kxe[3][3] = {{0.0, k.z, -k.y}, {-k.z, 0.0, k.x}, {k.y, -k.x, 0.0}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            R[i][j] = (i == j ? c : 0.0) + s * kxe[i][j] + t * kv[i] * kv[j];
}

// Identity with the given 3 x 3 block and translation t.
void affine(const double L[3][3], const V_POINT& t, V_MATRIX* M)
{
    mat_identity(M);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) M->m[i][j] = L[i][j];
    M->m[3][0] = t.x;
    M->m[3][1] = t.y;
    M->m[3][2] = t.z;
}

// The frame matrix with axes L and origin o (local to world) in *to_world and its inverse in
// *to_local, either of which may be null: 0, or 13 when to_local is asked for and the frame is
// singular (to_local untouched).
short frame_matrices(const double L[3][3], const V_POINT& o, V_MATRIX* to_local, V_MATRIX* to_world)
{
    V_MATRIX W;
    affine(L, o, &W);
    short rc = st::ok;
    if (to_local) rc = mat_inverse(&W, to_local);
    if (to_world) *to_world = W;
    return rc;
}

// q * L for a point taken as a row vector (no translation).
V_POINT times_block(const V_POINT& q, const double L[3][3])
{
    return V_POINT{q.x * L[0][0] + q.y * L[1][0] + q.z * L[2][0],
                   q.x * L[0][1] + q.y * L[1][1] + q.z * L[2][1],
                   q.x * L[0][2] + q.y * L[1][2] + q.z * L[2][2]};
}

// Two unit vectors u, v across the unit normal n with u x v = n. u = Y x n when n is within
// 1/64 of the z axis in x and y, else Z x n; v = n x u. The z normal gives the world x, y.
void in_plane_axes(const V_VECTOR& n, V_VECTOR* u, V_VECTOR* v)
{
    const double eps = 1.0 / 64.0;
    const V_VECTOR helper =
        (std::fabs(n.x) < eps && std::fabs(n.y) < eps) ? V_VECTOR{0, 1, 0} : V_VECTOR{0, 0, 1};
    aXb(&helper, &n, u);
    normalise(u);
    aXb(&n, u, v);
}

}  // namespace

// --- record accessors ---

void V_MATRIX::rows(short i, V_VECTOR* out) const
{
    KESTRA_REQUIRE(i >= 0 && i <= 3);
    *out = V_VECTOR{m[i][0], m[i][1], m[i][2]};
}

void V_MATRIX::columns(short j, V_VECTOR* out) const
{
    KESTRA_REQUIRE(j >= 0 && j <= 3);
    *out = V_VECTOR{m[0][j], m[1][j], m[2][j]};
}

// --- building matrices ---

void mat_identity(V_MATRIX* M)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) M->m[i][j] = (i == j) ? 1.0 : 0.0;
}

void mat_zero(V_MATRIX* M)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) M->m[i][j] = 0.0;
}

void mat_translate(V_MATRIX* M, const V_POINT* t)
{
    const V_POINT d = *t;  // t may live inside M
    mat_identity(M);
    M->m[3][0] = d.x;
    M->m[3][1] = d.y;
    M->m[3][2] = d.z;
}

void mat_rotate(V_MATRIX* M, double angle, unsigned char axis)
{
    mat_identity(M);
    if (axis >= 'a' && axis <= 'z') axis = static_cast<unsigned char>(axis - 'a' + 'A');
    const double c = std::cos(angle);
    double s = std::sin(angle);
    // Unknown letters keep the 'Y' pattern with the sines exchanged: about Y by -angle.
    if (axis != 'X' && axis != 'Y' && axis != 'Z') {
        axis = 'Y';
        s = -s;
    }
    switch (axis) {
    case 'X':
        M->m[1][1] = c;
        M->m[1][2] = s;
        M->m[2][1] = -s;
        M->m[2][2] = c;
        break;
    case 'Y':
        M->m[0][0] = c;
        M->m[0][2] = -s;
        M->m[2][0] = s;
        M->m[2][2] = c;
        break;
    default:  // 'Z'
        M->m[0][0] = c;
        M->m[0][1] = s;
        M->m[1][0] = -s;
        M->m[1][1] = c;
        break;
    }
}

void mat_scale(V_MATRIX* M, double s)
{
    mat_identity(M);
    if (s < 0.0) mat_mul(-1.0, M);
    M->m[3][3] /= s;  // m33 = 1/|s|; the point division by m33 applies the scale
}

void mat_nuscale(V_MATRIX* M, double sx, double sy, double sz)
{
    mat_identity(M);
    M->m[0][0] = sx;
    M->m[1][1] = sy;
    M->m[2][2] = sz;
}

void mat_shear(V_MATRIX* M, double a, double b, double c, double d, double e, double f)
{
    mat_identity(M);
    M->m[1][0] = a;
    M->m[2][0] = b;
    M->m[0][1] = c;
    M->m[2][1] = d;
    M->m[0][2] = e;
    M->m[1][2] = f;
}

void mat_mul(const V_MATRIX* A, const V_MATRIX* B, V_MATRIX* C)
{
    V_MATRIX T;  // C may be A or B
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k) sum += A->m[i][k] * B->m[k][j];
            T.m[i][j] = sum;
        }
    *C = T;
}

void mat_mul(double s, V_MATRIX* M)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) M->m[i][j] *= s;
}

double mat_determinant(const V_MATRIX* A)
{
    // Laplace expansion along row 0.
    double det = 0.0;
    for (short j = 0; j < 4; ++j) det += A->m[0][j] * mat_cofactor(A, 0, j);
    return det;
}

double mat_cofactor(const V_MATRIX* A, short r, short c)
{
    KESTRA_REQUIRE(r >= 0 && r <= 3 && c >= 0 && c <= 3);
    const double minor = minor3(*A, r, c);
    return ((r + c) % 2 == 0) ? minor : -minor;
}

short mat_inverse(const V_MATRIX* A, V_MATRIX* B)
{
    const double det = mat_determinant(A);
    if (!std::isfinite(det) || std::fabs(det) < kSingularDet) return st::singular;
    // Adjugate over determinant: B[i][j] = cofactor(j, i) / det.
    V_MATRIX T;  // B may be A
    for (short i = 0; i < 4; ++i)
        for (short j = 0; j < 4; ++j) T.m[i][j] = mat_cofactor(A, j, i) / det;
    *B = T;
    return st::ok;
}

void mat_ForceTwoDimensional(const V_MATRIX* A, V_MATRIX* B)
{
    V_MATRIX T = *A;
    T.m[0][2] = 0.0;
    T.m[1][2] = 0.0;
    T.m[2][0] = 0.0;
    T.m[2][1] = 0.0;
    T.m[3][2] = 0.0;
    T.m[2][2] = 1.0;
    *B = T;
}

// --- applying matrices ---

void mat_transform_point(const V_POINT* p, const V_MATRIX* M, V_POINT* out)
{
    const double(*m)[4] = M->m;
    V_POINT q{p->x * m[0][0] + p->y * m[1][0] + p->z * m[2][0] + m[3][0],
              p->x * m[0][1] + p->y * m[1][1] + p->z * m[2][1] + m[3][1],
              p->x * m[0][2] + p->y * m[1][2] + p->z * m[2][2] + m[3][2]};
    // Only m33 divides; m03, m13, m23 stay 0 in every matrix the library builds.
    const double w = m[3][3];
    if (w != 1.0 && w != 0.0) {  // exact on purpose: 1 needs no division, 0 cannot divide
        q.x /= w;
        q.y /= w;
        q.z /= w;
    }
    *out = q;
}

void mat_rotate_vector(const V_VECTOR* v, const V_MATRIX* M, V_VECTOR* out)
{
    const double(*m)[4] = M->m;
    const V_VECTOR r{v->x * m[0][0] + v->y * m[1][0] + v->z * m[2][0],
                     v->x * m[0][1] + v->y * m[1][1] + v->z * m[2][1],
                     v->x * m[0][2] + v->y * m[1][2] + v->z * m[2][2]};
    *out = r;
}

void mat_rotate_vectorf(const V_VECTOR3f* v, const V_MATRIX* M, V_VECTOR3f* out)
{
    const V_VECTOR d{v->x, v->y, v->z};
    V_VECTOR r;
    mat_rotate_vector(&d, M, &r);
    *out = V_VECTOR3f{static_cast<float>(r.x), static_cast<float>(r.y), static_cast<float>(r.z)};
}

short mat_transform_vector(const V_VECTOR* v, const V_MATRIX* M, V_VECTOR* out)
{
    const V_POINT o{0.0, 0.0, 0.0};
    const V_POINT tip{v->x, v->y, v->z};
    V_POINT o2;
    V_POINT tip2;
    mat_transform_point(&o, M, &o2);
    mat_transform_point(&tip, M, &tip2);
    V_VECTOR d{tip2.x - o2.x, tip2.y - o2.y, tip2.z - o2.z};
    const short rc = normalise(&d);
    *out = d;
    return rc;
}

short mat_transform_radius(double r, const V_MATRIX* M, const V_VECTOR* normal, double* out)
{
    V_VECTOR n = *normal;
    if (normalise(&n) != st::ok) {
        *out = r;
        return st::zero_vector;
    }
    // The unit circle across n maps to an ellipse of area pi |Lu x Lv| / w^2; the radius of
    // the circle of that area does not depend on which orthonormal u, v are taken.
    V_VECTOR u;
    V_VECTOR v;
    in_plane_axes(n, &u, &v);
    V_VECTOR Lu;
    V_VECTOR Lv;
    mat_rotate_vector(&u, M, &Lu);
    mat_rotate_vector(&v, M, &Lv);
    V_VECTOR c;
    aXb(&Lu, &Lv, &c);
    const double area = std::sqrt(c.x * c.x + c.y * c.y + c.z * c.z);
    *out = r * std::sqrt(area) / std::fabs(effective_w(*M));
    return st::ok;
}

short mat_transform_arc(const V_ARC* in, const V_MATRIX* M, V_ARC* out)
{
    V_ARC a;  // out may be in
    mat_transform_point(&in->centre, M, &a.centre);
    mat_transform_point(&in->start, M, &a.start);
    mat_transform_point(&in->end, M, &a.end);
    const short rc = mat_transform_vector(&in->normal, M, &a.normal);
    mat_transform_radius(in->radius, M, &in->normal, &a.radius);  // a zero normal keeps r
    // The linear map applied to points is L / w; its determinant has the sign of det(L) * w.
    // A reflection turns the counter-clockwise sense about the image normal round.
    if (det3(*M) * effective_w(*M) < 0.0) {
        const V_POINT s = a.start;
        a.start = a.end;
        a.end = s;
    }
    *out = a;
    return rc;
}

// --- placements ---

void mat_mirror(const V_PLANE* plane, V_MATRIX* M)
{
    V_VECTOR n = plane->normal;
    const V_POINT q = plane->point;
    if (normalise(&n) != st::ok) {
        mat_identity(M);
        return;
    }
    // p' = p - 2((p - q).n) n = p (I - 2 n n^T) + 2 (q.n) n.
    const double nv[3] = {n.x, n.y, n.z};
    double L[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) L[i][j] = (i == j ? 1.0 : 0.0) - 2.0 * nv[i] * nv[j];
    const double h = 2.0 * (q.x * n.x + q.y * n.y + q.z * n.z);
    affine(L, V_POINT{h * n.x, h * n.y, h * n.z}, M);
}

void mat_arbitrary_axis_rotation(const V_POINT* p, const V_VECTOR* axis, double angle, V_MATRIX* M)
{
    V_VECTOR k = *axis;
    const V_POINT c = *p;
    if (normalise(&k) != st::ok) {
        mat_identity(M);
        return;
    }
    // p' = (x - c) R + c, so the translation is c - c R.
    double R[3][3];
    rotation_block(k, angle, R);
    const V_POINT cR = times_block(c, R);
    affine(R, V_POINT{c.x - cR.x, c.y - cR.y, c.z - cR.z}, M);
}

void mat_general_transformation(const V_POINT* from, const V_VECTOR* axis, const V_POINT* to,
                                double angle, double scale, V_MATRIX* M)
{
    V_VECTOR k = *axis;
    const V_POINT f = *from;
    const V_POINT t = *to;
    double L[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    if (normalise(&k) == st::ok) rotation_block(k, angle, L);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) L[i][j] *= scale;
    // p' = (p - f) R s + t = p (R s) + (t - f R s).
    const V_POINT fL = times_block(f, L);
    affine(L, V_POINT{t.x - fL.x, t.y - fL.y, t.z - fL.z}, M);
}

short mat_WorkPlane_World(const V_WORKPLANE* wp, V_MATRIX* to_local, V_MATRIX* to_world)
{
    const V_VECTOR &X = wp->xaxis, &Y = wp->yaxis, &Z = wp->zaxis;
    const double L[3][3] = {{X.x, X.y, X.z}, {Y.x, Y.y, Y.z}, {Z.x, Z.y, Z.z}};
    return frame_matrices(L, wp->origin, to_local, to_world);
}

short mat_PlaneWorld(const V_PLANE* plane, V_MATRIX* to_local, V_MATRIX* to_world)
{
    V_VECTOR n = plane->normal;
    if (normalise(&n) != st::ok) return st::zero_vector;
    V_VECTOR u;
    V_VECTOR v;
    in_plane_axes(n, &u, &v);
    const double L[3][3] = {{u.x, u.y, u.z}, {v.x, v.y, v.z}, {n.x, n.y, n.z}};
    return frame_matrices(L, plane->point, to_local, to_world);
}

short mat_WorkPlane_WorkPlane(const V_WORKPLANE* from, const V_WORKPLANE* to, V_MATRIX* M)
{
    // Local of from -> world -> local of to.
    V_MATRIX from_world;
    V_MATRIX to_local;
    mat_WorkPlane_World(from, nullptr, &from_world);
    if (mat_WorkPlane_World(to, &to_local, nullptr) != st::ok) return st::singular;
    mat_mul(&from_world, &to_local, M);
    return st::ok;
}

void MatrixGetScaleComponents(const V_MATRIX& M, double* sx, double* sy, double* sz)
{
    const double w = std::fabs(effective_w(M));
    double s[3];
    for (int i = 0; i < 3; ++i)
        s[i] = std::sqrt(M.m[i][0] * M.m[i][0] + M.m[i][1] * M.m[i][1] + M.m[i][2] * M.m[i][2]) / w;
    if (sx) *sx = s[0];
    if (sy) *sy = s[1];
    if (sz) *sz = s[2];
}

double MatrixGetZScale(const V_MATRIX& M)
{
    double sz = 0.0;
    MatrixGetScaleComponents(M, nullptr, nullptr, &sz);
    return sz;
}
