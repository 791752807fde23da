#include "curves/bspline.h"
#include "curves/curves_internal.h"
#include "foundation/status.h"
#include <cstring>

namespace {

// 1 / d for a knot interval d; 0 for an interval not greater than 0 (NaN included), so a
// repeated knot contributes 0. The division is always by a safe value and never waits for
// the basis values, so it runs ahead of the chain of dependent products.
inline double interval_reciprocal(double d)
{
    const bool live = d > 0.0;
    return (live ? 1.0 : 0.0) / (live ? d : 1.0);
}

// One step of the Cox-de Boor triangle in place, from order r-1 to order r. On entry
// N[order-r+2 .. order] hold the r-1 functions of order r-1 non-zero on the span (function
// N(i, .) in slot i - span + order); on exit N[order-r+1 .. order] hold the r functions of
// order r:
//   N(i, r) = (t - T[i]) / (T[i+r-1] - T[i]) N(i, r-1)
//           + (T[i+r] - t) / (T[i+r] - T[i+1]) N(i+1, r-1).
// The right quotient of N(i, r) is the left quotient of N(i+1, r) (same interval
// [T[i+1], T[i+r]]), so each interval enters once; its left part is carried in saved.
// Before N is raised, the derivatives of the order-r functions are formed from the order
// r-1 functions held in the first NDer of (V0, D0), (V1, D1) (D may be V):
//   D(i) = (r-1) (V(i) / (T[i+r-1] - T[i]) - V(i+1) / (T[i+r] - T[i+1])),
// written to D[order-r+1 .. order]. The reciprocal of each interval is taken once for all
// of them and multiplied in.
template <int NDer>
inline void order_step(int order, const double* T, double t, int span, int r, double* N,
                       const double* V0 = nullptr, double* D0 = nullptr, const double* V1 = nullptr,
                       double* D1 = nullptr)
{
    const double* const R = T + (span - order);  // slot s spans [R[s+1], R[s+r]]
    const double km1 = double(r - 1);
    double saved = 0.0;               // the leftmost function has no left term
    double prev0 = 0.0, prev1 = 0.0;  // V of the leftmost function is 0
    for (int s = order - r + 1; s < order; ++s) {
        const double left = R[s + 1];
        const double right = R[s + r];
        const double inv = interval_reciprocal(right - left);
        if (NDer >= 1) {  // V0[s + 1] is read before N[s + 1] changes (V0 may be N)
            const double q = V0[s + 1] * inv;
            D0[s] = km1 * (prev0 - q);
            prev0 = q;
        }
        if (NDer >= 2) {
            const double q = V1[s + 1] * inv;
            D1[s] = km1 * (prev1 - q);
            prev1 = q;
        }
        const double q = N[s + 1] * inv;
        N[s] = saved + (right - t) * q;
        saved = (t - left) * q;
    }
    if (NDer >= 1) D0[order] = km1 * prev0;  // the rightmost function has no right term
    if (NDer >= 2) D1[order] = km1 * prev1;
    N[order] = saved;
}

// Binomial coefficient as a double by the multiplicative formula (exact while it fits in
// 53 bits, never overflowing for the small arguments used here).
double binomial(int n, int k)
{
    if (k < 0 || k > n) return 0.0;
    if (k > n - k) k = n - k;
    double c = 1.0;
    for (int i = 1; i <= k; ++i) c = c * double(n - k + i) / double(i);
    return c;
}

// dst = a * x + (1 - a) * y over vpp values (dst may be x or y).
inline void blend(int vpp, double a, const double* x, const double* y, double* dst)
{
    for (int c = 0; c < vpp; ++c) dst[c] = a * x[c] + (1.0 - a) * y[c];
}

inline void copy_point(int vpp, const double* src, double* dst)
{
    std::memcpy(dst, src, size_t(vpp) * sizeof(double));
}

}  // namespace

// --- B-spline basis ---

void BSpline_Basis_N(int order, double* const T, double t, int span, double* N)
{
    KESTRA_REQUIRE(order >= 1 && span >= order - 1 && T && N);
    N[order] = 1.0;
    for (int r = 2; r <= order; ++r) order_step<0>(order, T, t, span, r, N);
}

void BSpline_Basis_N_N1(int order, double* const T, double t, int span, double* N, double* N1)
{
    KESTRA_REQUIRE(order >= 1 && span >= order - 1 && T && N && N1);
    N[order] = 1.0;
    if (order == 1) {
        N1[1] = 0.0;
        return;
    }
    for (int r = 2; r < order; ++r) order_step<0>(order, T, t, span, r, N);
    order_step<1>(order, T, t, span, order, N, N, N1);
}

void BSpline_Basis_N_N1_N2(int order, double* const T, double t, int span, double* N, double* N1,
                           double* N2)
{
    KESTRA_REQUIRE(order >= 1 && span >= order - 1 && T && N && N1 && N2);
    N[order] = 1.0;
    if (order == 1) {
        N1[1] = 0.0;
        N2[1] = 0.0;
        return;
    }
    if (order == 2) {
        N2[1] = N2[2] = 0.0;  // piecewise linear
        order_step<1>(order, T, t, span, 2, N, N, N1);
        return;
    }
    for (int r = 2; r < order - 1; ++r) order_step<0>(order, T, t, span, r, N);
    // First derivatives of order - 1 (kept in N2[2..order]), then those of order, and the
    // second derivatives of order as the derivatives of the former, in place.
    order_step<1>(order, T, t, span, order - 1, N, N, N2);
    order_step<2>(order, T, t, span, order, N, N, N1, N2, N2);
}

// --- Bernstein basis and Bezier splitting ---

void Bernstein_Base(int n, double t, double* B)
{
    if (n < 0) return;
    KESTRA_REQUIRE(B);
    // B(k, j) = (1 - t) B(k, j-1) + t B(k-1, j-1), degree raised in place from B(0, 0) = 1.
    const double u = 1.0 - t;
    B[0] = 1.0;
    for (int j = 1; j <= n; ++j) {
        double saved = 0.0;
        for (int k = 0; k < j; ++k) {
            const double b = B[k];
            B[k] = saved + u * b;
            saved = t * b;
        }
        B[j] = saved;
    }
}

short init_half_split_coefficients(int n, GenMatrix<double>& M, double* const right)
{
    if (n < 0 || n > kestra_max_half_split_degree) return st::bad_index;
    if (!M.Resize(n + 1, n + 1)) return st::no_memory;
    // de Casteljau at 1/2: the left half's point i is P(0..i) averaged i times, so
    // M(i, j) = C(i, j) / 2^i, built row by row as M(i, j) = (M(i-1, j-1) + M(i-1, j)) / 2.
    M(0, 0) = 1.0;
    for (int i = 1; i <= n; ++i) {
        M(i, 0) = 0.5 * M(i - 1, 0);
        for (int j = 1; j < i; ++j) M(i, j) = 0.5 * (M(i - 1, j - 1) + M(i - 1, j));
        M(i, i) = 0.5 * M(i - 1, i - 1);
    }
    if (right) {
        // The right half is the left half of the reversed segment, read backwards.
        const int w = n + 1;
        for (int i = 0; i <= n; ++i)
            for (int j = 0; j <= n; ++j) right[i * w + j] = M(n - i, n - j);
    }
    return st::ok;
}

// --- degree elevation ---

namespace kestra::detail {

int bspline_elevated_count(int n_cpts, int order, const double* U, int t)
{
    if (order < 1 || n_cpts < order || t < 0 || !U) return -1;
    int distinct = 1;
    for (int k = order; k <= n_cpts; ++k) {
        if (U[k] != U[k - 1]) ++distinct;  // exact: repeats of a linear vector are copies
    }
    return n_cpts + t * (distinct - 1);
}

short bspline_elevate_degree(int n_cpts, int order, int vpp, const double* U, const double* P,
                             int t, int* n_out, double* U_out, double* P_out)
{
    if (!U || !P || !n_out || !U_out || !P_out || vpp < 1) return st::bad_input;
    if (order < 1 || n_cpts < order || t < 0 || order + t > 128) return st::bad_index;
    const int p = order - 1;
    const int n = n_cpts - 1;
    const int m = n + p + 1;
    // Clamped, non-decreasing, interior multiplicities at most p (exact comparisons: the
    // runs of a linear vector are copies of one value).
    for (int k = 0; k < m; ++k) {
        if (!(U[k] <= U[k + 1])) return st::bad_input;
    }
    for (int k = 1; k <= p; ++k) {
        if (U[k] != U[0] || U[m - k] != U[m]) return st::bad_input;
    }
    if (!(U[p] < U[n + 1])) return st::bad_input;
    if (n > p && !(U[p] < U[p + 1] && U[n] < U[n + 1])) return st::bad_input;
    for (int k = p + 1, run = 0; k <= n; ++k) {
        run = k > p + 1 && U[k] == U[k - 1] ? run + 1 : 1;
        if (run > p) return st::bad_input;
    }
    if (t == 0) {
        std::memcpy(U_out, U, size_t(m + 1) * sizeof(double));
        std::memcpy(P_out, P, size_t(n_cpts) * size_t(vpp) * sizeof(double));
        *n_out = n_cpts;
        return st::ok;
    }
    if (p == 0) {
        // A constant (one point, no interior knot): t + 1 copies of the point.
        for (int k = 0; k <= t; ++k) {
            U_out[k] = U[0];
            U_out[t + 1 + k] = U[1];
            copy_point(vpp, P, P_out + size_t(k) * size_t(vpp));
        }
        *n_out = t + 1;
        return st::ok;
    }

    // Bezier decomposition by knot insertion, elevation of each Bezier segment, and
    // removal of the inserted knots, in one sweep along the knot vector.
    const int ph = p + t;
    const int ph2 = ph / 2;
    const int nb = p > 1 ? p - 1 : 1;
    const size_t n_scratch = size_t(ph + 1) * size_t(p + 1)  // bezalfs
                             + size_t(p + 1) * size_t(vpp)   // bpts
                             + size_t(ph + 1) * size_t(vpp)  // ebpts
                             + size_t(nb) * size_t(vpp)      // next_bpts
                             + size_t(nb);                   // alfs
    double* const scratch =
        static_cast<double*>(v_memptr_alloc(nullptr, n_scratch * sizeof(double)));
    if (!scratch) return st::no_memory;
    std::memset(scratch, 0, n_scratch * sizeof(double));
    double* const bezalfs = scratch;
    double* const bpts = bezalfs + size_t(ph + 1) * size_t(p + 1);
    double* const ebpts = bpts + size_t(p + 1) * size_t(vpp);
    double* const next_bpts = ebpts + size_t(ph + 1) * size_t(vpp);
    double* const alfs = next_bpts + size_t(nb) * size_t(vpp);
    auto bez = [&](int i, int j) -> double& { return bezalfs[size_t(i) * size_t(p + 1) + j]; };
    auto bp = [&](int i) { return bpts + size_t(i) * size_t(vpp); };
    auto ebp = [&](int i) { return ebpts + size_t(i) * size_t(vpp); };
    auto nbp = [&](int i) { return next_bpts + size_t(i) * size_t(vpp); };
    auto pw = [&](int i) { return P + size_t(i) * size_t(vpp); };
    auto qw = [&](int i) { return P_out + size_t(i) * size_t(vpp); };

    // Elevation of a Bezier segment of degree p by t: the point i of degree ph is
    // sum_j C(p, j) C(t, i-j) / C(ph, i) b_j, symmetric in i <-> ph-i.
    bez(0, 0) = 1.0;
    bez(ph, p) = 1.0;
    for (int i = 1; i <= ph2; ++i) {
        const double inv = 1.0 / binomial(ph, i);
        const int mpi = p < i ? p : i;
        for (int j = (i - t > 0 ? i - t : 0); j <= mpi; ++j)
            bez(i, j) = inv * binomial(p, j) * binomial(t, i - j);
    }
    for (int i = ph2 + 1; i <= ph - 1; ++i) {
        const int mpi = p < i ? p : i;
        for (int j = (i - t > 0 ? i - t : 0); j <= mpi; ++j) bez(i, j) = bez(ph - i, p - j);
    }

    int mh = ph;
    int kind = ph + 1;
    int r = -1;
    int a = p;
    int b = p + 1;
    int cind = 1;
    double ua = U[0];
    copy_point(vpp, pw(0), qw(0));
    for (int i = 0; i <= ph; ++i) U_out[i] = ua;
    for (int i = 0; i <= p; ++i) copy_point(vpp, pw(i), bp(i));

    while (b < m) {
        const int first_b = b;
        while (b < m && U[b] == U[b + 1]) ++b;  // exact: copies of one knot
        const int mul = b - first_b + 1;
        mh += mul + t;
        const double ub = U[b];
        const int oldr = r;
        r = p - mul;
        const int lbz = oldr > 0 ? (oldr + 2) / 2 : 1;
        const int rbz = r > 0 ? ph - (r + 1) / 2 : ph;
        if (r > 0) {
            // Insert ub r times to close the Bezier segment [ua, ub].
            const double numer = ub - ua;
            for (int k = p; k > mul; --k) alfs[k - mul - 1] = numer / (U[a + k] - ua);
            for (int j = 1; j <= r; ++j) {
                const int save = r - j;
                const int s = mul + j;
                for (int k = p; k >= s; --k) blend(vpp, alfs[k - s], bp(k), bp(k - 1), bp(k));
                copy_point(vpp, bp(p), nbp(save));
            }
        }
        for (int i = lbz; i <= ph; ++i) {
            double* const e = ebp(i);
            for (int c = 0; c < vpp; ++c) e[c] = 0.0;
            const int mpi = p < i ? p : i;
            for (int j = (i - t > 0 ? i - t : 0); j <= mpi; ++j) {
                const double f = bez(i, j);
                const double* const src = bp(j);
                for (int c = 0; c < vpp; ++c) e[c] += f * src[c];
            }
        }
        if (oldr > 1) {
            // Remove the knot ua inserted oldr times at the previous step.
            int first = kind - 2;
            int last = kind;
            const double den = ub - ua;
            const double bet = (ub - U_out[kind - 1]) / den;
            for (int tr = 1; tr < oldr; ++tr) {
                int i = first;
                int j = last;
                int kj = j - kind + 1;
                while (j - i > tr) {
                    if (i < cind) {
                        const double alf = (ub - U_out[i]) / (ua - U_out[i]);
                        blend(vpp, alf, qw(i), qw(i - 1), qw(i));
                    }
                    if (j >= lbz) {
                        if (j - tr <= kind - ph + oldr) {
                            const double gam = (ub - U_out[j - tr]) / den;
                            blend(vpp, gam, ebp(kj), ebp(kj + 1), ebp(kj));
                        } else {
                            blend(vpp, bet, ebp(kj), ebp(kj + 1), ebp(kj));
                        }
                    }
                    ++i;
                    --j;
                    --kj;
                }
                --first;
                ++last;
            }
        }
        if (a != p) {
            for (int i = 0; i < ph - oldr; ++i) U_out[kind++] = ua;
        }
        for (int j = lbz; j <= rbz; ++j) copy_point(vpp, ebp(j), qw(cind++));
        if (b < m) {
            for (int j = 0; j < r; ++j) copy_point(vpp, nbp(j), bp(j));
            for (int j = r; j <= p; ++j) copy_point(vpp, pw(b - p + j), bp(j));
            a = b;
            ++b;
            ua = ub;
        } else {
            for (int i = 0; i <= ph; ++i) U_out[kind + i] = ub;
        }
    }
    *n_out = mh - ph;
    v_memptr_free(scratch);
    return st::ok;
}

}  // namespace kestra::detail
