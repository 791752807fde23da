#include "curves/cs_1.h"
#include "curves/bspline.h"
#include "curves/curves_internal.h"
#include "foundation/list.h"
#include "foundation/status.h"
#include "platform/utils.h"
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

// Knot operations work on raw 0-based copies of the homogeneous control points and of the
// linear knots, and build the curve's new lists only once the result is complete, so the
// curve is left as it was by any failure.

namespace {

using kestra::detail::Block;
using kestra::detail::growth_step;
using kestra::detail::make_list;
using kestra::detail::replace_list;
using kestra::detail::sized_list;
using kestra::detail::tracked_delete;

// Every slot 1..count of the list is set.
template <class T> bool all_set(const List<T>* l, uint64_t count)
{
    if (!l || l->Count() < count) return false;
    return count == 0 || std::memchr(l->set, 0, static_cast<size_t>(count)) == nullptr;
}

// A curve the knot operations can work on: order >= 1, n_cpts >= order, every control
// value and knot slot set, finite increasing knots, multiplicities 1..kestra_max_multiplicity
// summing to n_cpts + order.
bool curve_valid(const CNurbs& c)
{
    if (c.order < 1 || c.n_cpts < c.order || c.vpp < 1 || (c.rational && c.vpp < 2)) return false;
    if (c.n_knots < 2) return false;
    const uint64_t len = static_cast<uint64_t>(c.n_cpts) * static_cast<uint64_t>(c.vpp);
    if (len >= UINT32_MAX || !all_set(c.cpts, len)) return false;
    const uint64_t nk = static_cast<uint64_t>(c.n_knots);
    if (!all_set(c.knots, nk) || !all_set(c.mults, nk)) return false;
    const double* K = c.knots->items;
    const int* M = c.mults->items;
    int64_t sum = 0;
    for (int d = 0; d < c.n_knots; ++d) {
        if (!std::isfinite(K[d]) || (d > 0 && !(K[d] > K[d - 1]))) return false;
        if (M[d] < 1 || M[d] > kestra_max_multiplicity) return false;
        sum += M[d];
    }
    return sum == static_cast<int64_t>(c.n_cpts) + c.order;
}

// out[0 .. n_lin-1]: the linear knots of the multiplicity form K, M (nk distinct).
void expand_linear(const double* K, const int* M, int nk, double* out)
{
    for (int d = 0; d < nk; ++d) {
        for (int k = 0; k < M[d]; ++k) *out++ = K[d];
    }
}

// Sum of the multiplicities of distinct knots 1..j: the linear index of the last copy of
// knot j.
int64_t last_copy(const int* M, int j)
{
    int64_t s = 0;
    for (int d = 0; d < j; ++d) s += M[d];
    return s;
}

// Span of u in the 0-based knots U[0 .. n+p+1] (n + 1 control points, degree p):
// U[span] <= u < U[span+1], span in p..n, with the end parameter U[n+1] in span n.
// Requires U[p] <= u <= U[n+1].
int64_t span_0(int64_t n, int64_t p, const double* U, double u)
{
    if (u >= U[n + 1]) return n;
    int64_t low = p, high = n + 1;
    while (high - low > 1) {
        const int64_t mid = (low + high) / 2;
        if (u < U[mid])
            high = mid;
        else
            low = mid;
    }
    return low;
}

// Makes the new lists the curve's (n points, nk distinct knots) when all three exist and
// frees them otherwise; false then, the curve unchanged.
bool install(CNurbs& c, List<double>* new_cpts, List<double>* new_knots, List<int>* new_mults,
             int64_t n, int nk)
{
    if (!new_cpts || !new_knots || !new_mults) {
        tracked_delete(new_cpts);
        tracked_delete(new_knots);
        tracked_delete(new_mults);
        return false;
    }
    replace_list(c.cpts, new_cpts);
    replace_list(c.knots, new_knots);
    replace_list(c.mults, new_mults);
    c.n_cpts = static_cast<int32_t>(n);
    c.n_knots = nk;
    return true;
}

// Replaces c's control points and knots by copies of the arrays (nk distinct knots, n
// points), the lists made with the given growth steps; false when memory runs out (c
// unchanged).
bool commit(CNurbs& c, const double* P, int64_t n, const double* K, const int* M, int nk,
            uint32_t grow_cpts, uint32_t grow_knots, uint32_t grow_mults)
{
    const uint32_t len = static_cast<uint32_t>(n) * static_cast<uint32_t>(c.vpp);
    return install(c, make_list(P, len, grow_cpts),
                   make_list(K, static_cast<uint32_t>(nk), grow_knots),
                   make_list(M, static_cast<uint32_t>(nk), grow_mults), n, nk);
}

// Distinct-knot interval k of u on a curve the knot operations can work on, u allowed the
// knot tolerance beyond either end of the range. 0 ok; 110 unusable curve; 111 u outside
// the range or not finite.
short knot_interval(const CNurbs& c, double u, int* k)
{
    if (!std::isfinite(u)) return st::bad_index;  // beyond the plain rules: NaN, infinities
    if (!curve_valid(c)) return st::bad_input;
    const double* K = c.knots->items;
    const int n = c.n_knots;
    if (u - K[0] < -tavotoll.param || u - K[n - 1] > tavotoll.param) return st::bad_index;
    return c.FindSpan(u, k);
}

// Removability of two candidate homogeneous points P and Q (vpp values each): weights of
// a rational curve at least 100 times the minimum weight, no Cartesian coordinate of
// magnitude 5000 or more, and the squared distance over all values (weights included) at
// most tol. tol is compared with the squared distance on purpose.
bool removable(const double* P, const double* Q, int vpp, bool rational, double tol)
{
    if (vpp < 1) return tol >= 0.0;
    double wP = 1.0, wQ = 1.0;
    if (rational) {
        wP = P[vpp - 1];
        wQ = Q[vpp - 1];
        const double wmin = tavo_min_weight * 100.0;
        if (!(wP >= wmin) || !(wQ >= wmin)) return false;
    }
    double d2 = 0.0;
    for (int c = 0; c < vpp; ++c) {
        if (!(std::fabs(P[c] / wP) < 5000.0) || !(std::fabs(Q[c] / wQ) < 5000.0)) return false;
        const double d = P[c] - Q[c];
        d2 += d * d;
    }
    return d2 <= tol;
}

}  // namespace

// --- single-knot insertion ---

// Boehm's insertion repeated r times on the points P[kk-p .. kk] (kk the linear span of u,
// p the degree). Pass j, with kc = kk + j - 1 the current span, shifts the points after kc
// up by one and replaces P[i], i = kc .. kc-p+1 (downwards, in place), by
//   a P[i] + (1 - a) P[i-1],  a = (u - T[i]) / (T[i+p] - T[i])
// over the current knots T: the original ones up to kk, j - 1 copies of u, the rest.
// The result is built in new lists (the control list keeps the curve's growth step, as a
// copy of the curve would; the knot lists grow by their new count) and then installed.
short CNurbs::InsertKnot(double u, int r)
{
    int k = 0;
    const short rc = knot_interval(*this, u, &k);
    if (rc != st::ok) return rc;
    const double* K = knots->items;  // K(j) = K[j - 1]
    const int* M = mults->items;
    const int n = n_knots;
    if (k < n && K[k] - u < tavotoll.param) ++k;  // just below the next knot: that knot
    const bool existing = std::fabs(K[k - 1] - u) < tavotoll.param;
    if (existing) {
        u = K[k - 1];
        const int s = M[k - 1];
        // Asking for no more copies than the knot has changes nothing, as does a full knot.
        if (s >= order - 1 || s >= r) return st::ok;
        if (s + r > order - 1) r = order - 1 - s;
    } else if (r < 1) {
        return st::bad_input;  // beyond the plain rules: a new knot needs at least one copy
    }
    const int64_t kk = last_copy(M, k);
    const int p = order - 1;
    // Beyond the plain rules: on an unclamped curve u may lie outside the parameter range.
    if (kk < order || kk > n_cpts) return st::bad_index;
    const int64_t n_new = static_cast<int64_t>(n_cpts) + r;
    const int V = vpp;
    if (n_new > INT32_MAX || n_new * V >= UINT32_MAX) return st::bad_input;
    const int n_k = existing ? n : n + 1;

    // F: final knots at global linear indices kk-p+1 .. kk+p+r; buf: points kk-p .. kk+r.
    const size_t n_f = static_cast<size_t>(2 * p) + static_cast<size_t>(r);
    Block<double> f(n_f);
    Block<double> buf((static_cast<size_t>(p) + r + 1) * V);
    if (!f.p || !buf.p) return st::bad_input;

    // Linear knots kk-p+1 .. kk+p into F around the r copies of u.
    {
        int d = 0;
        int64_t cum = 0;
        const int64_t a = kk - p + 1;
        while (cum + M[d] < a) cum += M[d++];
        int64_t left = cum + M[d] - a + 1;
        for (int64_t g = 0; g < 2 * p; ++g) {
            f.p[g < p ? g : g + r] = K[d];
            if (--left == 0 && d + 1 < n) left = M[++d];
        }
        for (int g = 0; g < r; ++g) f.p[p + g] = u;
    }
    const int64_t base = kk - p;  // global index of buf[0] and one below F[0]
    auto F = [&](int64_t g) { return f.p[g - base - 1]; };
    auto B = [&](int64_t g) { return buf.p + (g - base) * V; };
    const double* P = cpts->items;  // point i (1-based) at P + (i - 1) * V
    std::memcpy(buf.p, P + (base - 1) * V, static_cast<size_t>(p + 1) * V * sizeof(double));
    for (int j = 1; j <= r; ++j) {
        const int64_t kc = kk + j - 1;
        auto cur = [&](int64_t g) { return g <= kc ? F(g) : F(g + r - j + 1); };
        std::memcpy(B(kc + 1), B(kc), static_cast<size_t>(V) * sizeof(double));
        for (int64_t i = kc; i >= kc - p + 1; --i) {
            const double ti = cur(i);
            const double a = (u - ti) / (cur(i + p) - ti);  // interval > 0: T[i+p] > u >= T[i]
            double* Pi = B(i);
            const double* Pm = B(i - 1);
            for (int c = 0; c < V; ++c) Pi[c] = a * Pi[c] + (1.0 - a) * Pm[c];
        }
    }

    List<double>* new_cpts = sized_list<double>(static_cast<uint32_t>(n_new * V), cpts->grow_by);
    List<double>* new_knots = sized_list<double>(static_cast<uint32_t>(n_k), growth_step(n_k));
    List<int>* new_mults = sized_list<int>(static_cast<uint32_t>(n_k), growth_step(n_k));
    if (new_cpts && new_knots && new_mults) {
        // Q = P[1 .. kk-p], the window's new points, P[kk+1 .. n] shifted by r: the points
        // outside the window are copied once, in two blocks.
        double* Q = new_cpts->items;
        const size_t sz = sizeof(double) * V;
        std::memcpy(Q, P, static_cast<size_t>(base) * sz);
        std::memcpy(Q + base * V, buf.p + V, static_cast<size_t>(p + r) * sz);
        std::memcpy(Q + (kk + r) * V, P + kk * V, static_cast<size_t>(n_cpts - kk) * sz);
        double* kn = new_knots->items;
        int* mn = new_mults->items;
        std::memcpy(kn, K, static_cast<size_t>(k) * sizeof(double));
        std::memcpy(mn, M, static_cast<size_t>(k) * sizeof(int));
        const int after = existing ? k : k + 1;  // where the knots after K(k) go
        std::memcpy(kn + after, K + k, static_cast<size_t>(n - k) * sizeof(double));
        std::memcpy(mn + after, M + k, static_cast<size_t>(n - k) * sizeof(int));
        if (existing) {
            mn[k - 1] += r;
        } else {  // u after K(k)
            kn[k] = u;
            mn[k] = r;
        }
    }
    return install(*this, new_cpts, new_knots, new_mults, n_new, n_k) ? st::ok : st::bad_input;
}

// --- knot removal ---

// One copy of u at a time (the standard removal): with r the last copy of u in the 0-based
// knots U, s its multiplicity and p the degree, the points first = r-p .. last = r-s are
// recomputed from both ends,
//   left:  T[i] = (P[i] - (1 - a_i) T[i-1]) / a_i,  a_i = (u - U[i]) / (U[i+p+1] - U[i])
//   right: T[j] = (P[j] - a_j T[j+1]) / (1 - a_j),   a_j = (u - U[j]) / (U[j+p+1] - U[j])
// and the two results that meet in the middle must agree (removable()). The point
// (2r - s - p) / 2 then drops out. A knot of multiplicity above the order carries a basis
// function without support, whose point is dropped without test.
short CNurbs::RemoveKnot(double u, int num, int* removed, double tol)
{
    if (!removed) return st::bad_input;
    *removed = 0;
    int k = 0;
    const short rc = knot_interval(*this, u, &k);
    if (rc != st::ok) return rc;
    const double* K = knots->items;
    const int* M = mults->items;
    const int n = n_knots;
    // The knot starting u's interval must be u, within the tolerance inclusive (a value
    // just below a knot lies in the interval before it and so is not that knot).
    if (!(std::fabs(K[k - 1] - u) <= tavotoll.param)) return st::bad_input;
    if (k == 1) return st::bad_input;  // the first knot is not removed
    u = K[k - 1];
    int s = M[k - 1];
    const int attempts = num < s ? num : s;
    if (attempts < 1) return st::bad_input;

    const int V = vpp;
    const int p = order - 1;
    int64_t nn = n_cpts;                                   // current number of points
    int64_t m_len = static_cast<int64_t>(n_cpts) + order;  // current number of knots
    int64_t r = last_copy(M, k) - 1;                       // 0-based last copy of u
    Block<double> pw(static_cast<size_t>(nn) * V);
    Block<double> U(static_cast<size_t>(m_len));
    Block<double> tmp(static_cast<size_t>(p + 3) * V);
    Block<double> mid(static_cast<size_t>(V));
    if (!pw.p || !U.p || !tmp.p || !mid.p) return st::bad_input;
    std::memcpy(pw.p, cpts->items, static_cast<size_t>(nn) * V * sizeof(double));
    expand_linear(K, M, n, U.p);
    const size_t sz = sizeof(double) * V;
    auto Pt = [&](int64_t i) { return pw.p + i * V; };
    auto Tt = [&](int64_t i) { return tmp.p + i * V; };
    auto drop_point = [&](int64_t i) {
        std::memmove(Pt(i), Pt(i + 1), static_cast<size_t>(nn - 1 - i) * sz);
        --nn;
    };
    auto drop_knot = [&](int64_t i) {
        std::memmove(U.p + i, U.p + i + 1, static_cast<size_t>(m_len - 1 - i) * sizeof(double));
        --m_len;
    };

    int count = 0;
    for (; count < attempts; ++count) {
        if (s > order) {  // a point whose basis function has no support
            if (r - order < 0) break;
            drop_point(r - order);
            drop_knot(r);
            --r;
            --s;
            continue;
        }
        const int64_t first = r - p, last = r - s, off = first - 1;
        if (off < 0 || last + 1 > nn - 1) break;
        std::memcpy(Tt(0), Pt(off), sz);
        std::memcpy(Tt(last + 1 - off), Pt(last + 1), sz);
        int64_t i = first, j = last, ii = 1, jj = last - off;
        while (j - i > 0) {
            const double ai = (u - U.p[i]) / (U.p[i + order] - U.p[i]);
            const double aj = (u - U.p[j]) / (U.p[j + order] - U.p[j]);
            for (int c = 0; c < V; ++c) {
                Tt(ii)[c] = (Pt(i)[c] - (1.0 - ai) * Tt(ii - 1)[c]) / ai;
                Tt(jj)[c] = (Pt(j)[c] - aj * Tt(jj + 1)[c]) / (1.0 - aj);
            }
            ++i, ++ii, --j, --jj;
        }
        bool ok;
        if (j - i < 0) {
            ok = removable(Tt(ii - 1), Tt(jj + 1), V, rational != 0, tol);
        } else {
            const double ai = (u - U.p[i]) / (U.p[i + order] - U.p[i]);
            for (int c = 0; c < V; ++c) mid.p[c] = ai * Tt(ii + 1)[c] + (1.0 - ai) * Tt(ii - 1)[c];
            ok = removable(Pt(i), mid.p, V, rational != 0, tol);
        }
        if (!ok) break;
        for (i = first, j = last; j - i > 0; ++i, --j) {
            std::memcpy(Pt(i), Tt(i - off), sz);
            std::memcpy(Pt(j), Tt(j - off), sz);
        }
        drop_point((2 * r - s - p) / 2);
        drop_knot(r);
        --r;
        --s;
    }
    if (count == 0) return st::bad_input;

    // The multiplicity form with knot k lowered by count (gone when it reaches 0).
    Block<double> kn(static_cast<size_t>(n));
    Block<int> mn(static_cast<size_t>(n));
    if (!kn.p || !mn.p) return st::bad_input;
    std::memcpy(kn.p, K, static_cast<size_t>(n) * sizeof(double));
    std::memcpy(mn.p, M, static_cast<size_t>(n) * sizeof(int));
    int n_k = n;
    mn.p[k - 1] -= count;
    if (mn.p[k - 1] == 0) {
        std::memmove(kn.p + k - 1, kn.p + k, static_cast<size_t>(n - k) * sizeof(double));
        std::memmove(mn.p + k - 1, mn.p + k, static_cast<size_t>(n - k) * sizeof(int));
        --n_k;
    }
    // The copy's lists, trimmed: every growth step stays the curve's.
    if (!commit(*this, pw.p, nn, kn.p, mn.p, n_k, cpts->grow_by, knots->grow_by, mults->grow_by))
        return st::bad_input;
    *removed = count;
    return st::ok;
}

// --- knot refinement ---

// The whole set X of new knots in one sweep (knot-vector refinement): points before the
// first affected span and after the last are copied, the others are built from the right
// end down, each new knot x giving
//   Q[ind-1] = a Q[ind-1] + (1 - a) Q[ind],  a = (Ubar[k+l] - x) / (Ubar[k+l] - U[i-p+l]),
// l = 1..p, which is the discrete B-spline (Oslo) combination of the old points.
short CNurbs::knot_refinement(List<double>& values, List<int>& mult)
{
    if (!curve_valid(*this)) return st::bad_input;
    const uint32_t nx = values.Count();
    if (nx != mult.Count() || !all_set(&values, nx) || !all_set(&mult, nx)) return st::bad_input;
    if (nx == 0) return st::ok;
    const double* K = knots->items;
    const int* M = mults->items;
    const int n = n_knots;
    const int p = order - 1;
    const int64_t m_len = static_cast<int64_t>(n_cpts) + order;
    Block<double> U(static_cast<size_t>(m_len));
    if (!U.p) return st::no_memory;
    expand_linear(K, M, n, U.p);
    const double lo = U.p[p], hi = U.p[n_cpts];  // the parameter range

    // Check the new values, snap them onto existing knots and range ends, and count.
    Block<double> xv(nx);
    if (!xv.p) return st::no_memory;
    int64_t total = 0;
    for (uint32_t i = 0; i < nx; ++i) {
        double x = values.items[i];
        const int mx = mult.items[i];
        if (!std::isfinite(x)) return st::bad_index;
        if (mx < 1 || mx > kestra_max_multiplicity) return st::bad_input;
        if (x < lo - tavotoll.param || x > hi + tavotoll.param) return st::bad_index;
        if (x < lo) x = lo;
        if (x > hi) x = hi;
        int existing = 0;
        for (int d = 0; d < n; ++d) {  // O(n) per value; the sweep is O(n) anyway
            if (std::fabs(K[d] - x) < tavotoll.param) {
                x = K[d];
                existing = M[d];
                break;
            }
        }
        if (existing + mx > order) return st::bad_input;
        if (i > 0 && !(x - xv.p[i - 1] >= tavotoll.param)) return st::bad_input;
        xv.p[i] = x;
        total += mx;
    }
    const int64_t n_new = static_cast<int64_t>(n_cpts) + total;
    const int V = vpp;
    if (n_new > INT32_MAX || n_new * V >= UINT32_MAX) return st::bad_input;

    const int64_t R = total;  // new knots X[0 .. R-1]
    Block<double> X(static_cast<size_t>(R));
    Block<double> Ubar(static_cast<size_t>(m_len + R));
    Block<double> Q(static_cast<size_t>(n_new) * V);
    if (!X.p || !Ubar.p || !Q.p) return st::no_memory;
    {
        int64_t at = 0;
        for (uint32_t i = 0; i < nx; ++i) {
            for (int c = 0; c < mult.items[i]; ++c) X.p[at++] = xv.p[i];
        }
    }
    const double* Pw = cpts->items;
    const size_t sz = sizeof(double) * V;
    auto Qp = [&](int64_t i) { return Q.p + i * V; };
    const int64_t nb = n_cpts - 1;  // last point index
    const int64_t rb = R - 1;       // last new knot index
    const int64_t a = span_0(nb, p, U.p, X.p[0]);
    const int64_t b = span_0(nb, p, U.p, X.p[rb]) + 1;
    std::memcpy(Q.p, Pw, static_cast<size_t>(a - p + 1) * sz);
    std::memcpy(Qp(b - 1 + rb + 1), Pw + (b - 1) * V, static_cast<size_t>(nb - b + 2) * sz);
    std::memcpy(Ubar.p, U.p, static_cast<size_t>(a + 1) * sizeof(double));
    for (int64_t j = b + p; j < m_len; ++j) Ubar.p[j + rb + 1] = U.p[j];
    int64_t i = b + p - 1, k = b + p + rb;
    for (int64_t j = rb; j >= 0; --j) {
        while (X.p[j] <= U.p[i] && i > a) {
            std::memcpy(Qp(k - p - 1), Pw + (i - p - 1) * V, sz);
            Ubar.p[k] = U.p[i];
            --k;
            --i;
        }
        std::memcpy(Qp(k - p - 1), Qp(k - p), sz);
        for (int64_t l = 1; l <= p; ++l) {
            const int64_t ind = k - p + l;
            double alfa = Ubar.p[k + l] - X.p[j];
            if (alfa == 0.0) {  // exact: a repeated new knot reproduces the next point
                std::memcpy(Qp(ind - 1), Qp(ind), sz);
            } else {
                alfa /= Ubar.p[k + l] - U.p[i - p + l];
                double* q0 = Qp(ind - 1);
                const double* q1 = Qp(ind);
                for (int c = 0; c < V; ++c) q0[c] = alfa * q0[c] + (1.0 - alfa) * q1[c];
            }
        }
        Ubar.p[k] = X.p[j];
        --k;
    }

    // Multiplicity form of Ubar (equal values are exact copies here).
    const int64_t n_ubar = m_len + R;
    Block<double> kn(static_cast<size_t>(n_ubar));
    Block<int> mn(static_cast<size_t>(n_ubar));
    if (!kn.p || !mn.p) return st::no_memory;
    int n_k = 0;
    for (int64_t j = 0; j < n_ubar; ++j) {
        if (n_k > 0 && Ubar.p[j] == kn.p[n_k - 1]) {
            ++mn.p[n_k - 1];
        } else {
            kn.p[n_k] = Ubar.p[j];
            mn.p[n_k] = 1;
            ++n_k;
        }
    }
    const uint32_t len = static_cast<uint32_t>(n_new) * static_cast<uint32_t>(V);
    return commit(*this, Q.p, n_new, kn.p, mn.p, n_k, growth_step(len), growth_step(n_k),
                  growth_step(n_k))
               ? st::ok
               : st::no_memory;
}

short CNurbs::FindSpan(double u, int* k) const
{
    return Find_Interval(u, k);
}
