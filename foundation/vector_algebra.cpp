// Point and vector comparisons, vector algebra and the point of an ellipse.
#include "foundation/vector_algebra.h"
#include "foundation/status.h"
#include "platform/utils.h"
#include <algorithm>
#include <cfloat>
#include <cmath>

namespace {

// Euclidean length of (x, y, z). The plain sum of squares serves whenever it neither
// overflows nor underflows; otherwise the components are scaled by the largest magnitude
// first. A NaN component gives NaN, an infinite one infinity.
double length3(double x, double y, double z)
{
    const double sq = x * x + y * y + z * z;
    if (sq >= DBL_MIN && sq <= DBL_MAX) return std::sqrt(sq);
    if (std::isnan(sq)) return sq;
    const double m = std::max(std::fabs(x), std::max(std::fabs(y), std::fabs(z)));
    if (m == 0.0 || std::isinf(m)) return m;  // exact on purpose: nothing to scale by
    x /= m;
    y /= m;
    z /= m;
    return m * std::sqrt(x * x + y * y + z * z);
}

V_VECTOR cross(const V_VECTOR& a, const V_VECTOR& b)
{
    return V_VECTOR{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double dot(const V_VECTOR& a, const V_VECTOR& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

}  // namespace

// --- comparisons ---

bool operator==(const V_POINT& a, const V_POINT& b)
{
    return toll_testp(dist_PP(&a, &b)) == 0.0;  // exact on purpose: the filter snaps to 0.0
}

bool operator!=(const V_POINT& a, const V_POINT& b)
{
    return !(a == b);
}

bool operator<(const V_POINT& a, const V_POINT& b)
{
    return b.x > a.x && b.y > a.y && b.z > a.z;
}

bool operator>(const V_POINT& a, const V_POINT& b)
{
    // Deliberately the negation of a < b, not b < a.
    return !(a < b);
}

short vector_relation(const V_VECTOR& a, const V_VECTOR& b, double cos_tol, double sin_tol)
{
    const double d = dot(a, b);
    if (std::fabs(d) < cos_tol) return 2;
    const V_VECTOR c = cross(a, b);
    if (!(length3(c.x, c.y, c.z) < sin_tol)) return 3;
    return d > 0.0 ? 1 : -1;
}

bool operator==(const V_VECTOR& a, const V_VECTOR& b)
{
    // A right angle less 1e-06 rad bounds the cosine test, 1e-06 rad the sine test.
    static const double cos_tol = std::cos(1.5707953267948966);
    static const double sin_tol = std::sin(1e-06);
    return vector_relation(a, b, cos_tol, sin_tol) == 1;
}

bool operator!=(const V_VECTOR& a, const V_VECTOR& b)
{
    return !(a == b);
}

// --- vector algebra ---

void vector_rotate(const V_VECTOR* v, const V_VECTOR* axis, double angle, V_VECTOR* out)
{
    KESTRA_REQUIRE(v != nullptr && axis != nullptr && out != nullptr);
    // With p = axis . v and w = v - p * axis (the part of v normal to axis):
    // out = w cos(angle) + p axis + (axis x w) sin(angle).
    const V_VECTOR k = *axis;
    const double p = dot(k, *v);
    const V_VECTOR w{v->x - p * k.x, v->y - p * k.y, v->z - p * k.z};
    const V_VECTOR kw = cross(k, w);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    *out = V_VECTOR{w.x * c + p * k.x + kw.x * s, w.y * c + p * k.y + kw.y * s,
                    w.z * c + p * k.z + kw.z * s};
}

short normalise(V_VECTOR* v)
{
    KESTRA_REQUIRE(v != nullptr);
    double x = v->x, y = v->y, z = v->z;
    if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) {
        v->x = v->y = v->z = 0.0;
        return st::bad_input;
    }
    double len = length3(x, y, z);
    // The angular tolerance, on purpose. A length of exactly 0 has no direction even when
    // the host sets the tolerance to 0.
    if (len < tavotoll.angle || len == 0.0) {
        v->x = v->y = v->z = 0.0;
        return st::zero_vector;
    }
    if (std::isinf(len)) {
        // Components near the largest double: bring them to at most 1 first.
        const double m = std::max(std::fabs(x), std::max(std::fabs(y), std::fabs(z)));
        x /= m;
        y /= m;
        z /= m;
        len = length3(x, y, z);
    }
    v->x = x / len;
    v->y = y / len;
    v->z = z / len;
    return st::ok;
}

void aXb(const V_VECTOR* a, const V_VECTOR* b, V_VECTOR* out)
{
    KESTRA_REQUIRE(a != nullptr && b != nullptr && out != nullptr);
    *out = cross(*a, *b);
}

short naXb(const V_VECTOR* a, const V_VECTOR* b, V_VECTOR* out)
{
    KESTRA_REQUIRE(a != nullptr && b != nullptr && out != nullptr);
    *out = cross(*a, *b);
    return normalise(out);
}

double adotb(const V_VECTOR* a, const V_VECTOR* b)
{
    return toll_testp(real_adotb(a, b));
}

double modulus(const V_VECTOR* v)
{
    return toll_testp(real_modulus(v));
}

double real_adotb(const V_VECTOR* a, const V_VECTOR* b)
{
    KESTRA_REQUIRE(a != nullptr && b != nullptr);
    return dot(*a, *b);
}

double real_modulus(const V_VECTOR* v)
{
    KESTRA_REQUIRE(v != nullptr);
    return length3(v->x, v->y, v->z);
}

short nvector_PP(const V_POINT* p, const V_POINT* q, V_VECTOR* out)
{
    KESTRA_REQUIRE(p != nullptr && q != nullptr && out != nullptr);
    V_VECTOR d{q->x - p->x, q->y - p->y, q->z - p->z};
    const short rc = normalise(&d);
    *out = d;
    return rc;
}

double dist_PP(const V_POINT* a, const V_POINT* b)
{
    return toll_testp(real_dist_PP(a, b));
}

double real_dist_PP(const V_POINT* a, const V_POINT* b)
{
    KESTRA_REQUIRE(a != nullptr && b != nullptr);
    return length3(b->x - a->x, b->y - a->y, b->z - a->z);
}

void point_on_ellipse(const V_ELLIPSE* e, double t, V_POINT* out)
{
    KESTRA_REQUIRE(e != nullptr && out != nullptr);
    // Polar form: the ray at angle t meets the ellipse at distance
    // r = r1 r2 / sqrt(r2^2 cos^2 t + r1^2 sin^2 t), the root taken by hypot so that large
    // radii do not overflow. The root vanishes only when a radius is zero, and then so does
    // the numerator: the point is the centre.
    const double c = std::cos(t);
    const double s = std::sin(t);
    const double r1 = e->radius1, r2 = e->radius2;
    const double root = std::hypot(r2 * c, r1 * s);
    const double r = (root == 0.0) ? 0.0 : r1 * (r2 / root);  // exact on purpose: 0 / 0 only
    const V_POINT centre = e->centre;
    *out = V_POINT{centre.x + r * c * e->axis1.x + r * s * e->axis2.x,
                   centre.y + r * c * e->axis1.y + r * s * e->axis2.y,
                   centre.z + r * c * e->axis1.z + r * s * e->axis2.z};
}
