#pragma once
// 4 x 4 homogeneous matrices and workplane frames.
//
// Sign convention, once: points are row vectors multiplied on the left, p' = p * M. Rows 0, 1
// and 2 hold the images of the x, y and z unit vectors, row 3 the translation and m[3][3] the
// homogeneous scale w; a point is divided by w unless w is exactly 0.0 or 1.0. In A * B, A is
// applied first. Every output may be the same record as an input unless stated otherwise.
#include "../foundation/records.h"

// ----------------------------------------------------------------------------------------
// Building matrices
// ----------------------------------------------------------------------------------------

// The identity.
KESTRA_API void mat_identity(V_MATRIX* M);
// All 16 entries 0.0.
KESTRA_API void mat_zero(V_MATRIX* M);
// Identity with row 3 = (t.x, t.y, t.z).
KESTRA_API void mat_translate(V_MATRIX* M, const V_POINT* t);
// Counter-clockwise by angle about 'X', 'Y' or 'Z' (either case); any other letter gives
// the 'Y' rotation by -angle, without error.
KESTRA_API void mat_rotate(V_MATRIX* M, double angle, unsigned char axis);
// Uniform scale by s carried by m33 = 1/|s| and, for s < 0, a diagonal of -1; s = 0 unguarded.
KESTRA_API void mat_scale(V_MATRIX* M, double s);
// Identity with the diagonal sx, sy, sz (m33 stays 1).
KESTRA_API void mat_nuscale(V_MATRIX* M, double sx, double sy, double sz);
// x' = x + a*y + b*z, y' = c*x + y + d*z, z' = e*x + f*y + z.
KESTRA_API void mat_shear(V_MATRIX* M, double a, double b, double c, double d, double e, double f);
// C = A * B (A first); C may be A or B.
KESTRA_API void mat_mul(const V_MATRIX* A, const V_MATRIX* B, V_MATRIX* C);
// Every one of the 16 entries times s.
KESTRA_API void mat_mul(double s, V_MATRIX* M);
// The 4 x 4 determinant.
KESTRA_API double mat_determinant(const V_MATRIX* A);
// (-1)^(r+c) times the 3 x 3 minor of entry (r, c); r and c are 0..3, outside asserts.
KESTRA_API double mat_cofactor(const V_MATRIX* A, short r, short c);
// 0 and B = A^-1; 13 when |det A| < 1e-14 or det A is not finite, B untouched. B may be A.
KESTRA_API short mat_inverse(const V_MATRIX* A, V_MATRIX* B);
// B = A with m02, m12, m20, m21, m32 = 0 and m22 = 1: no coupling with z is left.
KESTRA_API void mat_ForceTwoDimensional(const V_MATRIX* A, V_MATRIX* B);

// ----------------------------------------------------------------------------------------
// Applying matrices
// ----------------------------------------------------------------------------------------

// p * M with the upper 3 x 4 part, divided by w = m33 unless w is 0.0 or 1.0 (m03, m13, m23
// are not read).
KESTRA_API void mat_transform_point(const V_POINT* p, const V_MATRIX* M, V_POINT* out);
// v times the upper-left 3 x 3 block only: no translation, no w, no normalising.
KESTRA_API void mat_rotate_vector(const V_VECTOR* v, const V_MATRIX* M, V_VECTOR* out);
// Single-precision form of mat_rotate_vector (computed in double).
KESTRA_API void mat_rotate_vectorf(const V_VECTOR3f* v, const V_MATRIX* M, V_VECTOR3f* out);
// Unit image of direction v: image of the tip minus image of the origin, normalised; the
// status of normalise (177 image shorter than tavotoll.angle, 110 not finite: out zero).
KESTRA_API short mat_transform_vector(const V_VECTOR* v, const V_MATRIX* M, V_VECTOR* out);
// Radius of the circle of equal area to the image of a circle of radius r and that normal:
// r * sqrt(|L u x L v|) / |w| for any orthonormal u, v across the normal (L the 3 x 3 block,
// w = m33 unless 0 or 1); the sign of r is kept. 0, or 177 with out = r for a zero normal.
KESTRA_API short mat_transform_radius(double r, const V_MATRIX* M, const V_VECTOR* normal,
                                      double* out);
// Centre, start, end as points, normal by mat_transform_vector, radius by mat_transform_radius.
// A reflecting matrix (det(L) * w < 0) exchanges start and end so the arc stays
// counter-clockwise about its new normal. The status of the normal's mapping (out written).
KESTRA_API short mat_transform_arc(const V_ARC* in, const V_MATRIX* M, V_ARC* out);

// ----------------------------------------------------------------------------------------
// Placements
// ----------------------------------------------------------------------------------------

// Reflection in the plane: p' = p - 2((p - q).n) n with n the unit normal, q the plane's
// point. A normal shorter than tavotoll.angle gives the identity.
KESTRA_API void mat_mirror(const V_PLANE* plane, V_MATRIX* M);
// Rotation by angle about the line through p along axis, counter-clockwise seen from the
// axis tip. An axis shorter than tavotoll.angle gives the identity.
KESTRA_API void mat_arbitrary_axis_rotation(const V_POINT* p, const V_VECTOR* axis, double angle,
                                            V_MATRIX* M);
// p' = ((p - from) * R) * scale + to: rotate about the axis through from, scale about from
// (in the 3 x 3 block, m33 = 1), then move from onto to. A zero axis means no rotation.
KESTRA_API void mat_general_transformation(const V_POINT* from, const V_VECTOR* axis,
                                           const V_POINT* to, double angle, double scale,
                                           V_MATRIX* M);
// to_world: rows xaxis, yaxis, zaxis, origin; to_local its inverse. Either may be null.
// 0, or 13 when to_local is asked for and the frame is singular (to_local untouched).
KESTRA_API short mat_WorkPlane_World(const V_WORKPLANE* wp, V_MATRIX* to_local, V_MATRIX* to_world);
// to_world: rows u, v, unit normal, point (u, v as chosen by the workplane axis rule, u x v =
// normal); to_local its inverse. Either may be null. 0; 177 for a normal shorter than
// tavotoll.angle or not finite (both untouched); 13 when not invertible (to_local untouched).
KESTRA_API short mat_PlaneWorld(const V_PLANE* plane, V_MATRIX* to_local, V_MATRIX* to_world);
// Maps local coordinates of from to local coordinates of to. 0, or 13 when to is singular
// (M untouched).
KESTRA_API short mat_WorkPlane_WorkPlane(const V_WORKPLANE* from, const V_WORKPLANE* to,
                                         V_MATRIX* M);
// Lengths of rows 0..2 (first three entries) divided by |m33| unless m33 is 0.0 or 1.0;
// any output may be null.
KESTRA_API void MatrixGetScaleComponents(const V_MATRIX& M, double* sx, double* sy, double* sz);
// The z component of MatrixGetScaleComponents.
KESTRA_API double MatrixGetZScale(const V_MATRIX& M);

// ----------------------------------------------------------------------------------------
// Workplanes
// ----------------------------------------------------------------------------------------

// Origin 0, name "XY" (rest of the name zero), world axes; id untouched.
KESTRA_API void init_wpl(V_WORKPLANE* wp);
// Local to world in place: origin + x*xaxis + y*yaxis + z*zaxis (no snapping).
KESTRA_API void plane_to_world(V_POINT* p, const V_WORKPLANE& wp);
// World to local in place: ((p - origin).xaxis, .yaxis, .zaxis), each through toll_testp.
KESTRA_API void world_to_plane(V_POINT* p, const V_WORKPLANE& wp);
// The plane through the origin with normal zaxis.
KESTRA_API void make_plane_from_wp(V_PLANE* plane, const V_WORKPLANE& wp);
// Origins exactly equal (no tolerance) and each pair of like axes with a dot product above
// cos(1") = 0.9999999999882477. Names and ids are ignored.
KESTRA_API bool coincident_workplanes(const V_WORKPLANE& a, const V_WORKPLANE& b);
// Same as coincident_workplanes.
KESTRA_API bool operator==(const V_WORKPLANE& a, const V_WORKPLANE& b);
// Negation of operator==.
KESTRA_API bool operator!=(const V_WORKPLANE& a, const V_WORKPLANE& b);
// 0 coincident; 1 same plane (z axes within 1" same sense, b's origin within tavotoll.point
// of a's plane); 2 parallel planes (z axes within 1", either sense); 3 otherwise.
KESTRA_API short CompareWorkplanes(const V_WORKPLANE& a, const V_WORKPLANE& b);
// Like axes pairwise within 1" (dot above cos(1")), origins ignored.
KESTRA_API bool CompareWorkplanesAlignment(const V_WORKPLANE& a, const V_WORKPLANE& b);
// View frame at target: zaxis = unit(eye - target), xaxis = unit(up x zaxis), yaxis = zaxis x
// xaxis; empty name, id untouched. 0, or 111 (out untouched) when eye and target coincide,
// up is zero or along the view, or any input is not finite.
KESTRA_API short WorkplaneCreationFromCamera(const V_POINT* eye, const V_POINT* target,
                                             const V_VECTOR* up, V_WORKPLANE* out);
// World axes ordered by the box's extent, largest first (ties keep x, y, z order), zaxis =
// xaxis x yaxis; origin the box centre; empty name, id untouched. A cube gives the world
// axes. 0, or 110 (out untouched) when a box coordinate is not finite.
KESTRA_API short wpl_axis_ordered_by_dimesions(const V_BOUNDS* box, V_WORKPLANE* out);
