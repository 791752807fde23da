#pragma once
// Tolerance filters, signs and rounding, comparisons of points and vectors, and the vector
// algebra over the plain records. Every tolerance is read from tavotoll at the moment of the
// call. Functions with an output pointer compute into locals first, so the output may be one
// of the inputs.
#include "records.h"

// ----------------------------------------------------------------------------------------
// Tolerance filters: (|x| >= tol ? 1 : 0) * x, denormals give 0.0; a tie keeps x, NaN stays NaN
// ----------------------------------------------------------------------------------------

// x, or 0.0 when |x| < tavotoll.point or x is denormal.
KESTRA_API double toll_testp(double x);
// x, or 0.0 when |x| < tavotoll.angle or x is denormal.
KESTRA_API double toll_testa(double x);
// x, or 0.0 when |x| < tol or x is denormal (no tavotoll field is read).
KESTRA_API double toll_testp_param(double x, double tol);

// ----------------------------------------------------------------------------------------
// Signs
// ----------------------------------------------------------------------------------------

// +1 when x >= tavotoll.point, -1 when x <= -tavotoll.point (both inclusive), else 0 (NaN: 0).
KESTRA_API short dsgn(double x);
// dsgn of x widened to double.
KESTRA_API short fsgn(float x);
// Exact sign: +1, 0 or -1.
KESTRA_API short lsgn(long x);
// Exact sign: +1, 0 or -1.
KESTRA_API short isgn(int x);
// Exact sign: +1, 0 or -1.
KESTRA_API short ssgn(short x);

// ----------------------------------------------------------------------------------------
// Rounding
// ----------------------------------------------------------------------------------------

// Nearest integer, ties toward zero (2.5 -> 2, -2.5 -> -2); NaN gives 0, values beyond the
// int range saturate at INT_MAX / INT_MIN. No tolerance is read.
KESTRA_API int rounds(double x);
// dsgn(x) * |x| rounded to |digits| decimals (half up in size): 0 when |x| < tavotoll.point;
// x itself (NaN and infinities included) when |x| * 10^|digits| is not finite.
KESTRA_API double rounds(double x, short digits);
// x rounded to digits decimals (negative digits: tens, hundreds...), no dead zone; x itself
// when |x| * 10^digits is not finite, 0.0 when 10^digits underflows to 0.
KESTRA_API double rounds_real(double x, short digits);
// Nearest multiple of |step|, ties away from zero; 0.0 when dsgn(x) is 0 (NaN included),
// x when dsgn(step) is 0; reads tavotoll.point through dsgn.
KESTRA_API double round_in_range(double x, double step);
// t = value + 2 * offset; *result = the multiple m of step at or below t (toward zero) when
// threshold > t - m, else the next one; value unchanged when step <= tavotoll.point or step is
// not finite.
KESTRA_API void rounding_dimension(double value, double offset, double step, double threshold,
                                   double* result);

// ----------------------------------------------------------------------------------------
// Comparisons
// ----------------------------------------------------------------------------------------

// True when toll_testp(dist_PP(a, b)) is 0.0: closer than tavotoll.point (NaN: false).
KESTRA_API bool operator==(const V_POINT& a, const V_POINT& b);
// Negation of ==.
KESTRA_API bool operator!=(const V_POINT& a, const V_POINT& b);
// True when b exceeds a strictly in x, y and z; no tolerance.
KESTRA_API bool operator<(const V_POINT& a, const V_POINT& b);
// Negation of a < b (deliberately not b < a): true unless b exceeds a strictly in all three.
KESTRA_API bool operator>(const V_POINT& a, const V_POINT& b);

// 2 when |a.b| < cos_tol (perpendicular), 3 when |a x b| is not below sin_tol (oblique),
// else 1 (parallel, d > 0) or -1; raw products, so the tolerances scale with the lengths.
KESTRA_API short vector_relation(const V_VECTOR& a, const V_VECTOR& b, double cos_tol,
                                 double sin_tol);
// Same direction and sense within 1e-06 rad (vector_relation is 1); lengths are ignored.
KESTRA_API bool operator==(const V_VECTOR& a, const V_VECTOR& b);
// Negation of ==.
KESTRA_API bool operator!=(const V_VECTOR& a, const V_VECTOR& b);

// ----------------------------------------------------------------------------------------
// Vector algebra
// ----------------------------------------------------------------------------------------

// v turned by angle radians about the unit axis, counter-clockwise seen from the axis tip
// (Rodrigues); out may be v or axis.
KESTRA_API void vector_rotate(const V_VECTOR* v, const V_VECTOR* axis, double angle, V_VECTOR* out);
// 0 and v of unit length; 177 and (0, 0, 0) when the length is below tavotoll.angle (the
// angular tolerance, on purpose) or exactly 0; 110 and (0, 0, 0) for a NaN or infinite
// component.
KESTRA_API short normalise(V_VECTOR* v);
// out = a x b, unfiltered; out may be a or b.
KESTRA_API void aXb(const V_VECTOR* a, const V_VECTOR* b, V_VECTOR* out);
// out = a x b normalised; the status of normalise (177 and a zero out for parallel or zero
// inputs, 110 for a NaN or overflowing product); out may be a or b.
KESTRA_API short naXb(const V_VECTOR* a, const V_VECTOR* b, V_VECTOR* out);
// a . b through toll_testp (tavotoll.point).
KESTRA_API double adotb(const V_VECTOR* a, const V_VECTOR* b);
// Euclidean length through toll_testp (tavotoll.point).
KESTRA_API double modulus(const V_VECTOR* v);
// a . b, unfiltered.
KESTRA_API double real_adotb(const V_VECTOR* a, const V_VECTOR* b);
// Euclidean length, unfiltered (no overflow for large finite components).
KESTRA_API double real_modulus(const V_VECTOR* v);
// out = q - p normalised; the status of normalise (177 for coincident points, read against
// tavotoll.angle).
KESTRA_API short nvector_PP(const V_POINT* p, const V_POINT* q, V_VECTOR* out);
// Distance between a and b through toll_testp (tavotoll.point).
KESTRA_API double dist_PP(const V_POINT* a, const V_POINT* b);
// Distance between a and b, unfiltered.
KESTRA_API double real_dist_PP(const V_POINT* a, const V_POINT* b);
// Point of the ellipse at polar angle t seen from the centre (not the eccentric parameter);
// the centre when both terms under the root vanish (a zero radius); no tolerance is read.
KESTRA_API void point_on_ellipse(const V_ELLIPSE* e, double t, V_POINT* out);
