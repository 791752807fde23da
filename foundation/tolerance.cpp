// The global tolerances, the tolerance filters, the signs and the rounding functions.
#include "foundation/vector_algebra.h"
#include "foundation/records.h"
#include "platform/utils.h"
#include <climits>
#include <cmath>

// --- globals ---

V_TOLERANCE tavotoll = {1e-08, 1e-11, 1e-07, 1e-11};
double tavo_min_weight = 1e-11;
double tavo_chordal_tolerance = 0.0001;
double tavo_angular_step = 0.0523598775598299;
double tavo_view_depth = 1000.0;

namespace {

// The one filter behind the three: denormals are noise whatever tol is; otherwise the
// product form keeps x at the tie |x| = tol and turns NaN into NaN (0 * NaN).
double filter(double x, double tol)
{
    if (std::fpclassify(x) == FP_SUBNORMAL) return 0.0;
    return (std::fabs(x) >= tol ? 1.0 : 0.0) * x;
}

template <typename T> short exact_sign(T x)
{
    if (x > 0) return 1;
    if (x < 0) return -1;
    return 0;
}

// 10 multiplied by itself n times; stops at infinity, so a huge n costs no more than ~310
// steps.
double power_of_ten(int n)
{
    double scale = 1.0;
    for (int i = 0; i < n && std::isfinite(scale); ++i) scale *= 10.0;
    return scale;
}

}  // namespace

// --- tolerance filters ---

double toll_testp(double x)
{
    return filter(x, tavotoll.point);
}

double toll_testa(double x)
{
    return filter(x, tavotoll.angle);
}

double toll_testp_param(double x, double tol)
{
    return filter(x, tol);
}

// --- signs ---

short dsgn(double x)
{
    // Both bounds inclusive: with tavotoll.point = 0 even x = 0 counts as positive.
    if (x >= tavotoll.point) return 1;
    if (x <= -tavotoll.point) return -1;
    return 0;
}

short fsgn(float x)
{
    return dsgn(static_cast<double>(x));
}

short lsgn(long x)
{
    return exact_sign(x);
}

short isgn(int x)
{
    return exact_sign(x);
}

short ssgn(short x)
{
    return exact_sign(x);
}

// --- rounding ---

int rounds(double x)
{
    if (std::isnan(x)) return 0;
    // t = x truncated toward zero; only a fraction strictly above one half moves t away from
    // zero, so halves go toward zero.
    double t = std::trunc(x);
    if (std::fabs(x - t) > 0.5) t += (x >= 0.0) ? 1.0 : -1.0;
    if (t >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (t <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(t);
}

double rounds(double x, short digits)
{
    const double scale = power_of_ten(std::abs(static_cast<int>(digits)));
    const double a = std::fabs(x) * scale;
    // Nothing left to round (or nothing representable): keep x, with the dead zone of dsgn.
    // The sign of x = 0 times an infinite scale would otherwise make a NaN.
    if (!std::isfinite(a)) return std::isnan(x) ? x : dsgn(x) * std::fabs(x);
    double n = 0.0;
    std::modf(a + 0.5, &n);
    return dsgn(x) * (n / scale);
}

double rounds_real(double x, short digits)
{
    const double scale = std::pow(10.0, static_cast<double>(digits));
    // 10^digits below the smallest double: every x rounds to zero (n / scale would be 0 / 0).
    if (scale == 0.0) return 0.0;  // exact on purpose: only the underflowed scale is excluded
    const double a = std::fabs(x) * scale;
    if (!std::isfinite(a)) return x;
    double n = 0.0;
    std::modf(a + 0.5, &n);
    return (n / scale) * (x < 0.0 ? -1.0 : 1.0);
}

double round_in_range(double x, double step)
{
    const short s = dsgn(x);
    if (s == 0) return 0.0;
    if (dsgn(step) == 0) return s * std::fabs(x);
    double n = 0.0;
    const double f = std::modf(std::fabs(x) / std::fabs(step), &n);
    if (f >= 0.5) n += 1.0;
    // No multiple reached: a zero carrying the sign of x, as 0 * |step| * s gives, also for
    // an infinite step (where 0 * inf would be NaN).
    if (n == 0.0) return s * 0.0;  // exact on purpose: n is an integer count
    return n * std::fabs(step) * s;
}

void rounding_dimension(double value, double offset, double step, double threshold, double* result)
{
    KESTRA_REQUIRE(result != nullptr);
    if (step <= tavotoll.point || !std::isfinite(step)) {
        *result = value;
        return;
    }
    // The offset is added twice on purpose. k is t / step truncated toward zero, kept in a
    // double so that no t overflows an integer type.
    const double t = value + 2.0 * offset;
    const double k = std::trunc(t / step);
    const double m = k * step;
    const double r = t - m;
    *result = (threshold > r) ? m : (k + 1.0) * step;
}
