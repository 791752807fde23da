#include "curves/bspline.h"
#include "curves/cs_1.h"
#include "curves/curves_internal.h"
#include "foundation/status.h"
#include <climits>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

// Knot tolerance, read from the global record at every call.
inline double knot_tol()
{
    return tavotoll.param;
}

// A tracked block of n doubles freed on scope exit; p is null when it could not be had.
using Scratch = kestra::detail::Block<double>;

// Drops the slots above count and makes count the list's length.
template <class T> void truncate(List<T>& l, uint32_t count)
{
    for (uint32_t k = count + 1; k <= l.Count(); ++k) l.Delete(k);
    if (l.Count() > count) l.next = count + 1;
}

// 0 when slots 1..n of both lists are set, every value a number and every multiplicity
// in 1..kestra_max_multiplicity; the sum of the multiplicities into *total (may be null).
short check_knots(const List<double>& values, const List<int>& mults, int n, long long* total)
{
    long long sum = 0;
    for (int k = 1; k <= n; ++k) {
        const double* v = values.GetPtr(uint32_t(k));
        const int* m = mults.GetPtr(uint32_t(k));
        if (!v || !m || std::isnan(*v)) return st::bad_input;
        if (*m < 1 || *m > kestra_max_multiplicity) return st::bad_input;
        sum += *m;
    }
    if (total) *total = sum;
    return st::ok;
}

// Groups the n linear knots given by get(k, &u), k = 0..n-1, into runs: a knot joins the
// open run when it is within the knot tolerance of the run's first value. The lists are
// cleared first and cleared again on failure. 110 unreadable or NaN knot (beyond the plain
// rules), 115 no memory.
template <class Get>
short build_runs(int n, Get get, List<double>& values, List<int>& mults, int* count)
{
    values.Clear();
    mults.Clear();
    double value = 0.0;
    if (!get(0, &value) || std::isnan(value)) return st::bad_input;
    int mult = 1;
    int distinct = 0;
    for (int k = 1; k <= n; ++k) {
        double u = 0.0;
        if (k < n) {
            if (!get(k, &u) || std::isnan(u)) {
                values.Clear();
                mults.Clear();
                return st::bad_input;
            }
            if (std::fabs(u - value) < knot_tol()) {
                ++mult;
                continue;
            }
        }
        if (!values.Append(value) || !mults.Append(mult)) {
            values.Clear();
            mults.Clear();
            return st::no_memory;
        }
        ++distinct;
        value = u;
        mult = 1;
    }
    if (count) *count = distinct;
    return st::ok;
}

// Distinct knot k holding linear knot i: multiplicities are summed from distinct knot 1
// until the sum reaches i. 0 ok; 111 i or n_distinct below 1, or i beyond the last knot;
// 110 an unset slot or a multiplicity below 1 on the way.
short holding_knot(const List<int>& mults, int n_distinct, int i, int* k)
{
    if (i < 1 || n_distinct < 1) return st::bad_index;
    long long sum = 0;
    for (int d = 1; d <= n_distinct; ++d) {
        const int* m = mults.GetPtr(uint32_t(d));
        if (!m || *m < 1) return st::bad_input;
        sum += *m;
        if (sum >= i) {
            *k = d;
            return st::ok;
        }
    }
    return st::bad_index;
}

// Discrete B-spline (Oslo) coefficients over 1-based arrays: t[1..order+count] the old
// knots, tauj[r] = tau[j + r] for r = 0..order-1, alpha[1..order+count] written in the
// range i-order..i+order. Returns the span i (count when none is found).
int oslo_alpha(int order, int count, const double* t, const double* tauj, double* alpha)
{
    const int nt = order + count;
    const double x = tauj[0];
    int i = 0;
    for (int k = 1; k <= nt - 2; ++k) {
        if (t[k] <= x && x < t[k + 1]) {
            i = k;
            break;
        }
    }
    bool found = i != 0;
    if (!found) {
        // Beyond the plain scan, which would leave alpha[count] as it was: past the spans
        // scanned (possible for order 1, whose last span is t[count]) the end of the range
        // belongs to the last vertex; below the first knot or NaN no vertex, all 0.
        i = count;
        found = x >= t[count];
    }
    for (int k = (i - order > 1 ? i - order : 1); k <= i + order && k <= nt; ++k) alpha[k] = 0.0;
    if (found) alpha[i] = 1.0;
    if (order < 2) return i;
    // alpha(k, r+1) = (tau' - t[k]) / (t[k+r] - t[k]) alpha(k, r)
    //               + (t[k+r+1] - tau') / (t[k+r+1] - t[k+1]) alpha(k+1, r),
    // in place from left to right, so alpha[k+1] still holds the previous pass.
    for (int r = 1; r <= order - 1; ++r) {
        const double tp = tauj[r];
        for (int k = i - r; k <= i; ++k) {
            if (k < 1) continue;
            if (k > nt - 1 - r) break;
            const double a0 = alpha[k];
            const double a1 = alpha[k + 1];
            if (a0 == 0.0 && a1 == 0.0) {  // exact: both terms vanish
                alpha[k] = 0.0;
                continue;
            }
            double v = 0.0;
            const double d0 = t[k + r] - t[k];
            if (a0 != 0.0 && d0 > 0.0) v += (tp - t[k]) / d0 * a0;
            const double d1 = t[k + r + 1] - t[k + 1];
            if (a1 != 0.0 && d1 > 0.0) v += (t[k + r + 1] - tp) / d1 * a1;
            alpha[k] = v;
        }
    }
    return i;
}

// Merges the n knots of (v, m) into the common vector (cv, cm): knots within the
// tolerance of a common knot raise its multiplicity to the larger one, others are
// inserted in order. 110 unreadable data, 115 no memory.
short merge_knots(List<double>& cv, List<int>& cm, const List<double>& v, const List<int>& m, int n)
{
    const int nc = int(cv.Count());
    List<double> rv{uint32_t(nc + n)};
    List<int> rm{uint32_t(nc + n)};
    int a = 1;
    int b = 1;
    while (a <= nc || b <= n) {
        const double* va = a <= nc ? cv.GetPtr(uint32_t(a)) : nullptr;
        const int* ma = a <= nc ? cm.GetPtr(uint32_t(a)) : nullptr;
        const double* vb = b <= n ? v.GetPtr(uint32_t(b)) : nullptr;
        const int* mb = b <= n ? m.GetPtr(uint32_t(b)) : nullptr;
        if ((a <= nc && (!va || !ma)) || (b <= n && (!vb || !mb))) return st::bad_input;
        double value;
        int mult;
        if (va && vb && std::fabs(*va - *vb) < knot_tol()) {
            value = *va;  // the value met first is kept
            mult = *ma > *mb ? *ma : *mb;
            ++a;
            ++b;
        } else if (va && (!vb || *va < *vb)) {
            value = *va;
            mult = *ma;
            ++a;
        } else {
            value = *vb;
            mult = *mb;
            ++b;
        }
        if (!rv.Append(value) || !rm.Append(mult)) return st::no_memory;
    }
    cv = std::move(rv);
    cm = std::move(rm);
    return st::ok;
}

// A curve whose lists hold its counts, with order <= n_cpts, increasing distinct knots
// and multiplicities summing to n_cpts + order; the linear knots are written 0-based to
// linear (when not null, n_cpts + order of them).
bool usable_curve(const CNurbs& c, double* linear)
{
    if (!c.cpts || !c.knots || !c.mults) return false;
    if (c.order < 1 || c.n_cpts < c.order || c.vpp < 1 || c.n_knots < 2) return false;
    if (int64_t(c.cpts->Count()) < int64_t(c.n_cpts) * c.vpp) return false;
    for (int64_t k = 1; k <= int64_t(c.n_cpts) * c.vpp; ++k) {
        if (!c.cpts->IsSet(uint32_t(k))) return false;
    }
    long long total = 0;
    if (check_knots(*c.knots, *c.mults, c.n_knots, &total) != st::ok) return false;
    if (total != (long long)c.n_cpts + c.order) return false;
    for (int k = 2; k <= c.n_knots; ++k) {
        if (!((*c.knots)[uint32_t(k)] > (*c.knots)[uint32_t(k - 1)])) return false;
    }
    if (linear) {
        int w = 0;
        for (int k = 1; k <= c.n_knots; ++k) {
            const double v = (*c.knots)[uint32_t(k)];
            for (int r = 0; r < (*c.mults)[uint32_t(k)]; ++r) linear[w++] = v;
        }
    }
    return true;
}

// Clamped: the first and the last distinct knot both of multiplicity order.
bool clamped(const CNurbs& c)
{
    return (*c.mults)[1] == c.order && (*c.mults)[uint32_t(c.n_knots)] == c.order;
}

// Replaces the curve's order, control points and knots by those of the linear vector
// U[0..n_cpts+order-1] and the points P (n_cpts * vpp values); the curve is unchanged on
// failure. 115 no memory.
short store_curve(CNurbs& c, int order, int n_cpts, const double* U, const double* P)
{
    const int64_t len = int64_t(n_cpts) * c.vpp;
    List<double> cpts{uint32_t(len < 65536 ? len : 65536)};
    if (!cpts.Reserve(uint32_t(len))) return st::no_memory;
    for (int64_t k = 0; k < len; ++k) cpts.Append(P[k]);
    List<double> values(c.knots->grow_by);
    List<int> mults(c.mults->grow_by);
    int n_knots = 0;
    const short rc = linear_knots_to_multiplicity_knots(n_cpts + order, const_cast<double*>(U),
                                                        &values, &mults, &n_knots);
    if (rc != st::ok) return rc;
    *c.cpts = std::move(cpts);
    *c.knots = std::move(values);
    *c.mults = std::move(mults);
    c.order = order;
    c.n_cpts = n_cpts;
    c.n_knots = n_knots;
    return st::ok;
}

// Raises a usable clamped curve to order (>= its own). 110 unusable, 115 no memory.
short raise_curve(CNurbs& c, int order)
{
    if (!usable_curve(c, nullptr)) return st::bad_input;
    if (order == c.order) return st::ok;
    const int nt = c.n_cpts + c.order;
    Scratch U{size_t(nt)};
    if (!U.p) return st::no_memory;
    if (!usable_curve(c, U.p)) return st::bad_input;
    const int t = order - c.order;
    const int n_new = kestra::detail::bspline_elevated_count(c.n_cpts, c.order, U.p, t);
    if (n_new < 0) return st::bad_input;
    Scratch U_out{size_t(n_new) + size_t(order)};
    Scratch P_out{size_t(n_new) * size_t(c.vpp)};
    if (!U_out.p || !P_out.p) return st::no_memory;
    int n_out = 0;
    const short rc = kestra::detail::bspline_elevate_degree(
        c.n_cpts, c.order, c.vpp, U.p, c.cpts->items, t, &n_out, U_out.p, P_out.p);
    if (rc != st::ok) return rc == st::bad_index ? st::bad_input : rc;
    return store_curve(c, order, n_out, U_out.p, P_out.p);
}

// Knot u of the range [f, l] mapped affinely onto [a, b], the ends exactly; identity
// when the ranges agree within the knot tolerance (as change_knots_vector_range).
double map_knot(double u, double f, double l, double a, double b)
{
    if (std::fabs(a - f) < knot_tol() && std::fabs(b - l) < knot_tol()) return u;
    if (u == f) return a;  // exact: the ends are stored exactly
    if (u == l) return b;
    return (u - f) * ((b - a) / (l - f)) + a;
}

// The distinct knots of a usable curve mapped onto [a, b] into out (cleared first).
// 115 no memory.
short mapped_knots(const CNurbs& c, double a, double b, List<double>& out)
{
    out.Clear();
    const double f = (*c.knots)[1];
    const double l = (*c.knots)[uint32_t(c.n_knots)];
    for (int k = 1; k <= c.n_knots; ++k) {
        if (!out.Append(map_knot((*c.knots)[uint32_t(k)], f, l, a, b))) return st::no_memory;
    }
    return st::ok;
}

// Refines a usable curve, its range mapped onto [a, b], to the common vector (cv, cm) that
// contains its knots up to the tolerance, with the Oslo coefficients. The curve is
// unchanged on failure. 110 unusable data, 115 no memory.
short refine_curve(CNurbs& c, double a, double b, const List<double>& cv, const List<int>& cm)
{
    if (!usable_curve(c, nullptr)) return st::bad_input;
    const int order = c.order;
    const int nt = c.n_cpts + order;
    Scratch t{size_t(nt) + 1};
    if (!t.p) return st::no_memory;
    if (!usable_curve(c, t.p + 1)) return st::bad_input;
    const double f = (*c.knots)[1];
    const double l = (*c.knots)[uint32_t(c.n_knots)];
    for (int k = 1; k <= nt; ++k) t.p[k] = map_knot(t.p[k], f, l, a, b);
    // Snap each old knot to its common counterpart so that the refinement is exact.
    const int nc = int(cv.Count());
    for (int k = 1, q = 1; k <= nt; ++k) {
        while (q < nc && cv[uint32_t(q)] < t.p[k] - knot_tol()) ++q;
        if (std::fabs(cv[uint32_t(q)] - t.p[k]) < knot_tol()) t.p[k] = cv[uint32_t(q)];
    }
    long long ntau = 0;
    if (check_knots(cv, cm, nc, &ntau) != st::ok) return st::bad_input;
    const int n_new = int(ntau) - order;
    if (n_new < c.n_cpts) return st::bad_input;
    Scratch tau{size_t(ntau) + 1};
    Scratch alpha{size_t(nt) + 2};
    Scratch P_out{size_t(n_new) * size_t(c.vpp)};
    if (!tau.p || !alpha.p || !P_out.p) return st::no_memory;
    for (int k = 1, w = 1; k <= nc; ++k) {
        for (int r = 0; r < cm[uint32_t(k)]; ++r) tau.p[w++] = cv[uint32_t(k)];
    }
    const int vpp = c.vpp;
    const double* P = c.cpts->items;
    for (int j = 1; j <= n_new; ++j) {
        const int i = oslo_alpha(order, c.n_cpts, t.p, tau.p + j, alpha.p);
        double* q = P_out.p + size_t(j - 1) * size_t(vpp);
        for (int v = 0; v < vpp; ++v) q[v] = 0.0;
        for (int k = (i - order + 1 > 1 ? i - order + 1 : 1); k <= i && k <= c.n_cpts; ++k) {
            const double a = alpha.p[k];
            const double* p = P + size_t(k - 1) * size_t(vpp);
            for (int v = 0; v < vpp; ++v) q[v] += a * p[v];
        }
    }
    return store_curve(c, order, n_new, tau.p + 1, P_out.p);
}

}  // namespace

// --- knot-vector forms ---

short linear_knots_to_multiplicity_knots(int n, double* knots, List<double>* values,
                                         List<int>* mults, int* count)
{
    if (values) values->Clear();
    if (mults) mults->Clear();
    if (n < 2) return st::bad_index;  // count is not written then
    if (count) *count = 0;
    if (!knots || !values || !mults) return st::bad_input;
    auto get = [knots](int k, double* u) {
        *u = knots[k];
        return true;
    };
    return build_runs(n, get, *values, *mults, count);
}

short multiplicity_knots_to_linear_knots(List<double>& values, List<int>& mults, List<double>* out)
{
    const int n = int(values.Count());
    if (n < 2) return st::bad_index;
    if (!out || int(mults.Count()) != n) return st::bad_input;
    long long total = 0;
    if (check_knots(values, mults, n, &total) != st::ok) return st::bad_input;
    List<double> linear{uint32_t(total)};
    if (!linear.Reserve(uint32_t(total))) return st::no_memory;
    for (int k = 1; k <= n; ++k) {
        for (int r = 0; r < mults[uint32_t(k)]; ++r) linear.Append(values[uint32_t(k)]);
    }
    *out = std::move(linear);
    return st::ok;
}

short multiplicity_knots_to_linear_knots(List<double>& values, List<int>& mults, double* out,
                                         unsigned long* count)
{
    const int n = int(values.Count());
    if (n < 2) return st::bad_index;
    if (!out || int(mults.Count()) != n) return st::bad_input;
    if (check_knots(values, mults, n, nullptr) != st::ok) return st::bad_input;
    unsigned long w = 0;
    for (int k = 1; k <= n; ++k) {
        for (int r = 0; r < mults[uint32_t(k)]; ++r) out[w++] = values[uint32_t(k)];
    }
    if (count) *count = w;
    return st::ok;
}

short multiplicity_knots_to_multiplicity_knots(List<double>& values, List<int>& mults, int n,
                                               double* out_values, int* out_mults)
{
    if (n < 1) return st::bad_index;
    if (!out_values || !out_mults) return st::bad_input;
    for (int k = 1; k <= n; ++k) {
        if (!values.IsSet(uint32_t(k)) || !mults.IsSet(uint32_t(k))) return st::bad_input;
    }
    for (int k = 1; k <= n; ++k) {
        out_values[k - 1] = values[uint32_t(k)];
        out_mults[k - 1] = mults[uint32_t(k)];
    }
    return st::ok;
}

short multiplicity_knots_to_multiplicity_knots(int n, const double* values, const int* mults,
                                               List<double>* out_values, List<int>* out_mults)
{
    if (n < 1) return st::bad_index;
    if (!values || !mults || !out_values || !out_mults) return st::bad_input;
    List<double> v{uint32_t(n)};
    List<int> m{uint32_t(n)};
    if (!v.Reserve(uint32_t(n)) || !m.Reserve(uint32_t(n))) return st::no_memory;
    for (int k = 0; k < n; ++k) {
        v.Append(values[k]);
        m.Append(mults[k]);
    }
    *out_values = std::move(v);
    *out_mults = std::move(m);
    return st::ok;
}

short knots_vector_from_List_to_VLST(List<double>& values, List<int>& mults, VLST* out)
{
    const int n = int(values.Count());
    if (n < 2) return st::bad_index;
    if (!out || int(mults.Count()) != n) return st::bad_input;
    if (check_knots(values, mults, n, nullptr) != st::ok) return st::bad_input;
    VLST_rewind(out);
    unsigned long pos = 1;
    for (int k = 1; k <= n; ++k) {
        const double v = values[uint32_t(k)];
        for (int r = 0; r < mults[uint32_t(k)]; ++r) {
            const short rc = VLST_put(out, pos++, &v);
            if (rc != st::ok) return rc == st::no_memory ? st::no_memory : st::bad_input;
        }
    }
    return st::ok;
}

short knots_vector_from_VLST_to_List(VLST* knots, List<double>* values, List<int>* mults,
                                     int* count)
{
    if (count) *count = 0;
    if (values) values->Clear();
    if (mults) mults->Clear();
    if (!knots || !values || !mults) return st::bad_input;
    const unsigned long n = VLST_count(knots);
    if (n < 2) return st::bad_index;
    if (n > (unsigned long)INT_MAX) return st::bad_input;
    auto get = [knots](int k, double* u) {
        return VLST_get(knots, (unsigned long)(k) + 1, u) == st::ok;
    };
    return build_runs(int(n), get, *values, *mults, count);
}

short count_distinct_knots(VLST& knots, int& count)
{
    count = 0;
    const unsigned long n = VLST_count(&knots);
    if (n == 0) return st::ok;
    double first = 0.0;
    if (VLST_get(&knots, 1, &first) != st::ok || std::isnan(first)) return st::bad_input;
    int distinct = 1;
    for (unsigned long k = 2; k <= n; ++k) {
        double u = 0.0;
        if (VLST_get(&knots, k, &u) != st::ok || std::isnan(u)) {
            count = 0;
            return st::bad_input;
        }
        if (std::fabs(u - first) >= knot_tol()) {  // a new run starts at u
            first = u;
            ++distinct;
        }
    }
    count = distinct;
    return st::ok;
}

// --- linear access and searches ---

short get_linear_knot(List<double>* values, List<int>* mults, int n_distinct, int i, double* result)
{
    if (!values || !mults || !result) return st::bad_input;
    int k = 0;
    const short rc = holding_knot(*mults, n_distinct, i, &k);
    if (rc != st::ok) return rc;
    const double* v = values->GetPtr(uint32_t(k));
    if (!v) return st::bad_input;
    *result = *v;
    return st::ok;
}

short get_linear_knot_mult(List<int>* mults, int n_distinct, int i, int* result)
{
    if (!mults || !result) return st::bad_input;
    int k = 0;
    const short rc = holding_knot(*mults, n_distinct, i, &k);
    if (rc != st::ok) return rc;
    *result = mults->items[k - 1];
    return st::ok;
}

int linear_knot_position(int j, List<int>* mults)
{
    if (j <= 1) return 1;
    if (!mults) return 0;
    long long pos = 1;
    for (int k = 1; k < j; ++k) {
        const int* m = mults->GetPtr(uint32_t(k));
        if (!m) return 0;
        pos += *m;
        if (pos > INT_MAX || pos < INT_MIN) return 0;
    }
    return int(pos);
}

short find_knot_position(double t, List<double>& values, int n, short* found, int* pos)
{
    if (found) *found = 0;
    if (!found || !pos) return st::bad_input;
    if (!std::isfinite(t)) return st::bad_index;  // beyond the plain rules: NaN, infinities
    for (int k = 1; k <= n; ++k) {
        const double* v = values.GetPtr(uint32_t(k));
        if (!v) return st::bad_input;
        if (std::fabs(*v - t) < knot_tol()) {
            *pos = k;
            *found = 1;
            return st::ok;
        }
    }
    return st::ok;
}

// --- edits on multiplicity-form vectors ---

short insert_knot(List<double>* values, List<int>* mults, int n, int j, double u, int m,
                  List<double>* out_values, List<int>* out_mults)
{
    if (!values || !mults || !out_values || !out_mults) return st::bad_input;
    if (n < 0 || j < 0 || j > n) return st::bad_index;
    if (m < 1 || m > kestra_max_multiplicity || std::isnan(u)) return st::bad_input;
    if (check_knots(*values, *mults, n, nullptr) != st::ok) return st::bad_input;
    // Beyond the plain copy-and-shift: u must be a new knot between its neighbours.
    if (j >= 1 && !(u - (*values)[uint32_t(j)] >= knot_tol())) return st::bad_input;
    if (j < n && !((*values)[uint32_t(j + 1)] - u >= knot_tol())) return st::bad_input;
    List<double> v{uint32_t(n + 1)};
    List<int> mm{uint32_t(n + 1)};
    if (!v.Reserve(uint32_t(n + 1)) || !mm.Reserve(uint32_t(n + 1))) return st::no_memory;
    for (int k = 1; k <= n + 1; ++k) {
        if (k <= j) {
            v.Append((*values)[uint32_t(k)]);
            mm.Append((*mults)[uint32_t(k)]);
        } else if (k == j + 1) {
            v.Append(u);
            mm.Append(m);
        } else {
            v.Append((*values)[uint32_t(k - 1)]);
            mm.Append((*mults)[uint32_t(k - 1)]);
        }
    }
    *out_values = std::move(v);
    *out_mults = std::move(mm);
    return st::ok;
}

short remove_knot(List<double>* values, List<int>* mults, int* n, int i)
{
    if (!values || !mults || !n) return st::bad_input;
    const int nd = *n;
    if (nd < 1 || i < 1) return st::bad_index;
    long long sum = 0;
    if (check_knots(*values, *mults, nd, &sum) != st::ok) return st::bad_input;
    if (i > sum) return st::bad_index;
    int k = 1;
    for (long long s = (*mults)[1]; s < i; s += (*mults)[uint32_t(k)]) ++k;
    int& mk = (*mults)[uint32_t(k)];
    if (mk > 1) {
        --mk;
        return st::ok;
    }
    // Multiplicity 1: the knot goes, the later ones move down.
    for (int q = k; q < nd; ++q) {
        (*values)[uint32_t(q)] = (*values)[uint32_t(q + 1)];
        (*mults)[uint32_t(q)] = (*mults)[uint32_t(q + 1)];
    }
    truncate(*values, uint32_t(nd - 1));
    truncate(*mults, uint32_t(nd - 1));
    *n = nd - 1;
    return st::ok;
}

short insert_mean_knots(List<double>* values, List<int>* mults, int n, List<double>* out_values,
                        List<int>* out_mults)
{
    if (!values || !mults || !out_values || !out_mults) return st::bad_input;
    if (n < 2) return st::bad_index;
    if (check_knots(*values, *mults, n, nullptr) != st::ok) return st::bad_input;
    List<double> v{uint32_t(2 * n)};
    List<int> m{uint32_t(2 * n)};
    for (int k = 1; k <= n; ++k) {
        const double a = (*values)[uint32_t(k)];
        if (!v.Append(a) || !m.Append((*mults)[uint32_t(k)])) return st::no_memory;
        if (k == n) break;
        const double b = (*values)[uint32_t(k + 1)];
        // Only an interval of at least twice the tolerance has a midpoint that is a new knot.
        if (b - a >= 2.0 * knot_tol()) {
            if (!v.Append(0.5 * (a + b)) || !m.Append(1)) return st::no_memory;
        }
    }
    *out_values = std::move(v);
    *out_mults = std::move(m);
    return st::ok;
}

short change_knots_vector_range(List<double>* values, int n, double a, double b)
{
    if (!values || n < 2) return st::bad_input;
    const double* first = values->GetPtr(1);
    const double* last = values->GetPtr(uint32_t(n));
    // Beyond the plain rules: unset or NaN ends are invalid data (110), not a range error.
    if (!first || !last || std::isnan(*first) || std::isnan(*last)) return st::bad_input;
    const double u_first = *first;
    const double u_last = *last;
    if (!(u_last - u_first >= knot_tol()) || !(b - a >= knot_tol())) return st::bad_index;
    if (!std::isfinite(a) || !std::isfinite(b)) return st::bad_index;  // beyond the plain rules
    if (std::fabs(a - u_first) < knot_tol() && std::fabs(b - u_last) < knot_tol())
        return st::no_change;
    // Beyond the plain rules: the interior is checked before anything is written.
    for (int k = 2; k < n; ++k) {
        const double* v = values->GetPtr(uint32_t(k));
        if (!v || std::isnan(*v)) return st::bad_input;
    }
    // u -> (u - u_first) (b - a) / (u_last - u_first) + a, knots 1 to n in order; the last
    // is stored as b exactly (the quotient may round it off by an ulp).
    for (int k = 1; k < n; ++k) {
        double& u = (*values)[uint32_t(k)];
        u = (u - u_first) * (b - a) / (u_last - u_first) + a;
    }
    (*values)[uint32_t(n)] = b;
    return st::ok;
}

short normalise_knots_vector(List<double>* values, int n)
{
    if (!values || n < 2) return st::bad_input;
    if (!values->IsSet(1) || !values->IsSet(uint32_t(n))) return st::bad_input;
    List<double>& v = *values;
    const double first = v[1];
    const double last = v[uint32_t(n)];
    if (first == 0.0 && last == 1.0) return st::ok;  // exact: already normalised
    const double span = last - first;
    if (!(span >= knot_tol())) return st::bad_input;
    // Beyond the plain rules: an unset interior slot fails before anything is written.
    for (int k = 2; k < n; ++k) {
        if (!values->IsSet(uint32_t(k))) return st::bad_input;
    }
    for (int k = 1; k <= n; ++k) v[uint32_t(k)] -= first;
    v[1] = 0.0;
    double prev = 0.0;
    for (int k = 2; k < n; ++k) {
        const double u = v[uint32_t(k)] / span;
        v[uint32_t(k)] = u;
        if (!(u - prev > knot_tol())) return st::bad_input;
        prev = u;
    }
    v[uint32_t(n)] = 1.0;
    if (!(prev < 1.0 - knot_tol())) return st::bad_input;
    return st::ok;
}

short normalise(unsigned long n, CNurbs* curves)
{
    if (n == 0) return st::ok;
    if (!curves) return st::bad_input;
    for (unsigned long k = 0; k < n; ++k) {
        if (normalise_knots_vector(curves[k].knots, curves[k].n_knots) != st::ok)
            return st::bad_input;
    }
    return st::ok;
}

short normalise(List<CNurbs>* curves)
{
    if (!curves) return st::bad_input;
    for (uint32_t k = 1; k <= curves->Count(); ++k) {
        CNurbs* c = curves->GetPtr(k);
        if (!c || normalise_knots_vector(c->knots, c->n_knots) != st::ok) return st::bad_input;
    }
    return st::ok;
}

short reverse_array_of_knots(double* values, int* mults, int& n)
{
    if (n < 2) return st::bad_index;
    if (!values) return st::bad_input;
    for (int k = 0; k < n; ++k) {
        if (std::isnan(values[k])) return st::bad_input;
    }
    // u -> first + last - u, the order of the knots reversed; the ends stay exact.
    const double first = values[0];
    const double last = values[n - 1];
    for (int lo = 0, hi = n - 1; lo <= hi; ++lo, --hi) {
        const double a = values[lo];
        const double b = values[hi];
        values[lo] = first + (last - b);
        values[hi] = first + (last - a);
        if (mults) std::swap(mults[lo], mults[hi]);
    }
    values[0] = first;
    values[n - 1] = last;
    return st::ok;
}

short reverse_multiplicity_knots_vector(int n, List<double>* values, List<int>* mults)
{
    if (n < 2) return st::bad_index;
    if (!values || !mults) return st::bad_input;
    if (check_knots(*values, *mults, n, nullptr) != st::ok) return st::bad_input;
    int nn = n;
    return reverse_array_of_knots(values->items, mults->items, nn);
}

// --- ranges and comparisons ---

short _get_start_end_knots(int order, int n_cpts, List<double>& values, List<int>& mults,
                           double* start, double* end, int* start_pos, int* end_pos,
                           int* start_mult, int* end_mult)
{
    if (order < 1 || n_cpts < order) return st::bad_index;
    const int nd = int(mults.Count());
    const long long want_start = order;
    const long long want_end = (long long)n_cpts + 1;
    long long sum = 0;
    int ps = 0;
    int pe = 0;
    for (int k = 1; k <= nd && pe == 0; ++k) {
        const int* m = mults.GetPtr(uint32_t(k));
        if (!m || *m < 1) return st::bad_input;
        sum += *m;
        if (ps == 0 && sum >= want_start) ps = k;
        if (sum >= want_end) pe = k;
    }
    if (pe == 0) return st::bad_index;
    const double* vs = values.GetPtr(uint32_t(ps));
    const double* ve = values.GetPtr(uint32_t(pe));
    if (!vs || !ve) return st::bad_input;
    if (start) *start = *vs;
    if (end) *end = *ve;
    if (start_pos) *start_pos = ps;
    if (end_pos) *end_pos = pe;
    if (start_mult) *start_mult = mults[uint32_t(ps)];
    if (end_mult) *end_mult = mults[uint32_t(pe)];
    return st::ok;
}

short parameter_is_into_valid_range(double& t, int order, int n_cpts, List<double>& values,
                                    List<int>& mults, short* inside)
{
    if (!inside) return st::bad_input;
    *inside = 0;
    double start = 0.0;
    double end = 0.0;
    const short rc = _get_start_end_knots(order, n_cpts, values, mults, &start, &end, nullptr,
                                          nullptr, nullptr, nullptr);
    if (rc != st::ok) return rc;
    if (!(t >= start - knot_tol() && t <= end + knot_tol())) return st::ok;  // NaN too
    if (t < start) t = start;
    if (t > end) t = end;
    *inside = 1;
    return st::ok;
}

bool same_knots_vectors(int n1, List<double>& values1, List<int>& mults1, int n2,
                        List<double>& values2, List<int>& mults2)
{
    if (n1 != n2 || n1 < 1) return false;
    for (int k = 1; k <= n1; ++k) {
        const double* a = values1.GetPtr(uint32_t(k));
        const double* b = values2.GetPtr(uint32_t(k));
        const int* ma = mults1.GetPtr(uint32_t(k));
        const int* mb = mults2.GetPtr(uint32_t(k));
        if (!a || !b || !ma || !mb) return false;
        if (*ma != *mb || !(std::fabs(*a - *b) < knot_tol())) return false;
    }
    return true;
}

short compare_knots_vector_range(List<double>& values1, int n1, List<double>& values2, int n2,
                                 short* same)
{
    if (!same) return st::bad_input;
    *same = 0;
    if (n1 < 2 || n2 < 2) return st::bad_index;
    const double* a0 = values1.GetPtr(1);
    const double* a1 = values1.GetPtr(uint32_t(n1));
    const double* b0 = values2.GetPtr(1);
    const double* b1 = values2.GetPtr(uint32_t(n2));
    if (!a0 || !a1 || !b0 || !b1) return st::bad_input;
    if (std::fabs(*a0 - *b0) < knot_tol() && std::fabs(*a1 - *b1) < knot_tol()) *same = 1;
    return st::ok;
}

short find_common_knots_vector(int n_vectors, List<double>* values, List<int>* mults,
                               List<double>* out_values, List<int>* out_mults)
{
    if (n_vectors < 1) return st::bad_index;
    if (!values || !mults || !out_values || !out_mults) return st::bad_input;
    for (int k = 0; k < n_vectors; ++k) {
        const int n = int(values[k].Count());
        if (n < 2) return st::bad_index;
        if (int(mults[k].Count()) != n) return st::bad_input;
        if (check_knots(values[k], mults[k], n, nullptr) != st::ok) return st::bad_input;
        short same = 0;
        compare_knots_vector_range(values[0], int(values[0].Count()), values[k], n, &same);
        if (!same) return st::bad_index;
    }
    List<double> cv;
    List<int> cm;
    for (int k = 0; k < n_vectors; ++k) {
        const short rc = merge_knots(cv, cm, values[k], mults[k], int(values[k].Count()));
        if (rc != st::ok) return rc;
    }
    *out_values = std::move(cv);
    *out_mults = std::move(cm);
    return st::ok;
}

// --- sets of curves ---

short equalise_order(unsigned long n, CNurbs* curves)
{
    if (n == 0) return st::ok;
    if (!curves) return st::bad_input;
    int order = 0;
    for (unsigned long k = 0; k < n; ++k) {
        if (!usable_curve(curves[k], nullptr) || !clamped(curves[k])) return st::bad_input;
        if (curves[k].order > order) order = curves[k].order;
    }
    if (order > 128) return st::bad_input;
    for (unsigned long k = 0; k < n; ++k) {
        const short rc = raise_curve(curves[k], order);
        if (rc != st::ok) return rc;
    }
    return st::ok;
}

short equalise_knots_vectors(unsigned long n, CNurbs* curves)
{
    if (n == 0) return st::ok;
    if (!curves) return st::bad_input;
    for (unsigned long k = 0; k < n; ++k) {
        if (!usable_curve(curves[k], nullptr) || curves[k].order != curves[0].order)
            return st::bad_input;
    }
    const double a = (*curves[0].knots)[1];
    const double b = (*curves[0].knots)[uint32_t(curves[0].n_knots)];
    // The common vector of all curves, each mapped onto the first curve's range.
    List<double> cv;
    List<int> cm;
    List<double> v;
    for (unsigned long k = 0; k < n; ++k) {
        if (mapped_knots(curves[k], a, b, v) != st::ok) return st::no_memory;
        const short mc = merge_knots(cv, cm, v, *curves[k].mults, curves[k].n_knots);
        if (mc != st::ok) return mc;
    }
    for (unsigned long k = 0; k < n; ++k) {
        const short rc = refine_curve(curves[k], a, b, cv, cm);
        if (rc != st::ok) return rc;
    }
    return st::ok;
}

short equalise(unsigned long n, CNurbs* curves)
{
    const short rc = equalise_order(n, curves);
    if (rc != st::ok) return rc;
    return equalise_knots_vectors(n, curves);
}

// --- Oslo coefficients and periodic knots ---

int compute_olso(int order, int count, VLST* t, int j, VLST* tau, VLST* alpha)
{
    if (order < 1 || count < 1 || j < 1 || !t || !tau || !alpha) return 0;
    const int nt = order + count;
    if (VLST_count(t) < (unsigned long)nt) return 0;
    if (VLST_count(tau) < (unsigned long)j + (unsigned long)order - 1) return 0;
    Scratch tk{size_t(nt) + 1};
    Scratch tj{size_t(order)};
    Scratch al{size_t(nt) + 1};
    if (!tk.p || !tj.p || !al.p) return 0;
    for (int k = 1; k <= nt; ++k) {
        if (VLST_get(t, (unsigned long)k, tk.p + k) != st::ok) return 0;
    }
    for (int r = 0; r < order; ++r) {
        if (VLST_get(tau, (unsigned long)(j + r), tj.p + r) != st::ok) return 0;
    }
    const int i = oslo_alpha(order, count, tk.p, tj.p, al.p);
    // Positions below the written range are padded with zeros so that every position
    // of the range can be stored.
    const int lo = i - order > 1 ? i - order : 1;
    const double zero = 0.0;
    for (unsigned long k = VLST_count(alpha) + 1; k < (unsigned long)lo; ++k) {
        if (VLST_put(alpha, k, &zero) != st::ok) return 0;
    }
    for (int k = lo; k <= i + order && k <= nt; ++k) {
        if (VLST_put(alpha, (unsigned long)k, al.p + k) != st::ok) return 0;
    }
    return i;
}

short periodic_knots(short order, VLST* knots, VLST* out)
{
    if (!knots || !out) return st::bad_input;
    if (order < 1) return st::bad_index;
    const unsigned long L = VLST_count(knots);
    if (L < 2) return st::bad_index;
    if (L > (1ul << 24)) return st::bad_input;
    Scratch u{size_t(L) + 1};
    if (!u.p) return st::no_memory;
    for (unsigned long k = 1; k <= L; ++k) {
        if (VLST_get(knots, k, u.p + k) != st::ok) return st::bad_input;
        if (k > 1 && !(u.p[k] >= u.p[k - 1])) return st::bad_input;  // NaN too
    }
    const double P = u.p[L] - u.p[1];
    if (!(P >= knot_tol())) return st::bad_input;
    // The periodic sequence s(m), m any integer: s(1..L-1) = u[1..L-1] and
    // s(m + L - 1) = s(m) + P; the vector is s(2 - order) .. s(L + order - 1).
    const long per = long(L) - 1;
    VLST_rewind(out);
    unsigned long pos = 1;
    for (long m = 2 - long(order); m <= long(L) + long(order) - 1; ++m) {
        const long q = m - 1 >= 0 ? (m - 1) / per : -((per - m) / per);  // floor((m-1)/per)
        const long idx = m - q * per;                                    // in 1..per
        const double v = u.p[idx] + double(q) * P;
        const short rc = VLST_put(out, pos++, &v);
        if (rc != st::ok) return rc == st::no_memory ? st::no_memory : st::bad_input;
    }
    return st::ok;
}

// --- VertexList ---

int position_dimension(int dimension, short rational)
{
    return rational ? dimension - 1 : dimension;
}

VertexList::VertexList(short rational, int dimension, int count)
{
    Allocate(rational, dimension, count, 1);
}

VertexList::VertexList(short rational, int dimension, int count_u, int count_v)
{
    Allocate(rational, dimension, count_u, count_v);
}

VertexList::VertexList(const VertexList& other)
    : rational(other.rational), dimension(other.dimension), count_u(other.count_u),
      count_v(other.count_v), cursor(other.cursor)
{
    coordinates = kestra::detail::copy_list(other.coordinates);
    KESTRA_REQUIRE(coordinates || !other.coordinates);
}

VertexList& VertexList::operator=(const VertexList& other)
{
    if (this == &other) return *this;
    VertexList copy(other);
    return *this = std::move(copy);
}

VertexList::VertexList(VertexList&& other) noexcept
    : rational(other.rational), dimension(other.dimension), count_u(other.count_u),
      count_v(other.count_v), coordinates(other.coordinates), cursor(other.cursor)
{
    other.rational = 0;
    other.dimension = other.count_u = other.count_v = other.cursor = 0;
    other.coordinates = nullptr;
}

VertexList& VertexList::operator=(VertexList&& other) noexcept
{
    if (this == &other) return *this;
    kestra::detail::tracked_delete(coordinates);
    rational = other.rational;
    dimension = other.dimension;
    count_u = other.count_u;
    count_v = other.count_v;
    coordinates = other.coordinates;
    cursor = other.cursor;
    other.rational = 0;
    other.dimension = other.count_u = other.count_v = other.cursor = 0;
    other.coordinates = nullptr;
    return *this;
}

VertexList::~VertexList()
{
    kestra::detail::tracked_delete(coordinates);
}

void VertexList::Allocate(short rational_, int dimension_, int count)
{
    Allocate(rational_, dimension_, count, 1);
}

void VertexList::Allocate(short rational_, int dimension_, int count_u_, int count_v_)
{
    KESTRA_REQUIRE(rational_ == 0 || rational_ == 1);
    KESTRA_REQUIRE(dimension_ >= 1 && dimension_ <= 4);
    KESTRA_REQUIRE(count_u_ >= 1 && count_v_ >= 1);
    const int64_t len = int64_t(count_u_) * count_v_ * dimension_;
    KESTRA_REQUIRE(len < int64_t(INT_MAX));
    // The growth step is the whole store, bounded so that the first put stays modest.
    List<double>* l =
        kestra::detail::tracked_new<List<double>>(uint32_t(len < 65536 ? len : 65536));
    KESTRA_REQUIRE(l);
    kestra::detail::tracked_delete(coordinates);
    coordinates = l;
    rational = rational_;
    dimension = dimension_;
    count_u = count_u_;
    count_v = count_v_;
    cursor = 0;
}

void VertexList::Get_Dimensions(int* cu, int* cv, int* dim, short* rat) const
{
    if (cu) *cu = count_u;
    if (cv) *cv = count_v;
    if (dim) *dim = dimension;
    if (rat) *rat = rational;
}

int VertexList::Check(int i, int j) const
{
    KESTRA_REQUIRE(coordinates);
    KESTRA_REQUIRE(i >= 1 && i <= count_u && j >= 1 && j <= count_v);
    return (i - 1) * count_v + j;
}

int VertexList::Index(int i) const
{
    KESTRA_REQUIRE(coordinates);
    KESTRA_REQUIRE(i >= 1 && i <= Count_All());
    return (i - 1) * dimension + 1;
}

int VertexList::Index(int i, int j) const
{
    return (Check(i, j) - 1) * dimension + 1;
}

int VertexList::Position_Dimension() const
{
    return position_dimension(dimension, rational);
}

short VertexList::Put_Vertex(int i, const double* v)
{
    const int idx = Index(i);
    KESTRA_REQUIRE(v);
    for (int c = 0; c < dimension; ++c) {
        if (!coordinates->Put(uint32_t(idx + c), v[c])) return st::no_memory;
    }
    return st::ok;
}

short VertexList::Put_Vertex(int i, int j, const double* v)
{
    return Put_Vertex(Check(i, j), v);
}

void VertexList::Get_Vertex(int i, double* v) const
{
    const int idx = Index(i);
    KESTRA_REQUIRE(v);
    for (int c = 0; c < dimension; ++c) {
        const double* p = coordinates->GetPtr(uint32_t(idx + c));
        KESTRA_REQUIRE(p);
        v[c] = *p;
    }
}

void VertexList::Get_Vertex(int i, int j, double* v) const
{
    Get_Vertex(Check(i, j), v);
}

double* VertexList::_Get_Vertex(int i)
{
    const int idx = Index(i);
    for (int c = 0; c < dimension; ++c) KESTRA_REQUIRE(coordinates->IsSet(uint32_t(idx + c)));
    return coordinates->GetPtr(uint32_t(idx));
}

double* VertexList::_Get_Vertex(int i, int j)
{
    return _Get_Vertex(Check(i, j));
}

short VertexList::Put_Cpt(int i, V_POINT p)
{
    const int idx = Index(i);
    KESTRA_REQUIRE(Position_Dimension() == 3);
    double w = 1.0;
    if (rational) {
        const double* pw = coordinates->GetPtr(uint32_t(idx + 3));
        KESTRA_REQUIRE(pw);
        KESTRA_REQUIRE(*pw >= tavo_min_weight);
        w = *pw;
    }
    const double xyz[3] = {p.x * w, p.y * w, p.z * w};
    for (int c = 0; c < 3; ++c) {
        if (!coordinates->Put(uint32_t(idx + c), xyz[c])) return st::no_memory;
    }
    return st::ok;
}

short VertexList::Put_Cpt(int i, int j, V_POINT p)
{
    return Put_Cpt(Check(i, j), p);
}

short VertexList::Put_Cpt_And_Weight(int i, V_POINT p, double w)
{
    const int idx = Index(i);
    KESTRA_REQUIRE(Position_Dimension() == 3);
    if (!rational) w = 1.0;  // a polynomial store keeps the point as it is
    KESTRA_REQUIRE(w >= tavo_min_weight);
    const double v[4] = {p.x * w, p.y * w, p.z * w, w};
    for (int c = 0; c < dimension; ++c) {
        if (!coordinates->Put(uint32_t(idx + c), v[c])) return st::no_memory;
    }
    return st::ok;
}

short VertexList::Put_Cpt_And_Weight(int i, int j, V_POINT p, double w)
{
    return Put_Cpt_And_Weight(Check(i, j), p, w);
}

void VertexList::Get_Cpt_And_Weight(int i, double* c, double* w) const
{
    const int idx = Index(i);
    const int pd = Position_Dimension();
    double wt = 1.0;
    if (rational) {
        const double* pw = coordinates->GetPtr(uint32_t(idx + pd));
        KESTRA_REQUIRE(pw);
        KESTRA_REQUIRE(*pw >= tavo_min_weight);
        wt = *pw;
    }
    for (int k = 0; k < pd; ++k) {
        const double* p = coordinates->GetPtr(uint32_t(idx + k));
        KESTRA_REQUIRE(p);
        if (c) c[k] = rational ? *p / wt : *p;
    }
    if (w) *w = wt;
}

void VertexList::Get_Cpt(int i, double* c) const
{
    Get_Cpt_And_Weight(i, c, nullptr);
}

void VertexList::Get_Cpt(int i, int j, double* c) const
{
    Get_Cpt_And_Weight(Check(i, j), c, nullptr);
}

void VertexList::Get_Cpt(int i, V_POINT* p) const
{
    Get_Cpt_And_Weight(i, p, nullptr);
}

void VertexList::Get_Cpt(int i, int j, V_POINT* p) const
{
    Get_Cpt_And_Weight(Check(i, j), p, nullptr);
}

void VertexList::Get_Cpt_And_Weight(int i, V_POINT* p, double* w) const
{
    KESTRA_REQUIRE(Position_Dimension() == 3);
    double c[3];
    Get_Cpt_And_Weight(i, c, w);
    if (p) *p = V_POINT{c[0], c[1], c[2]};
}

void VertexList::Get_Cpt_And_Weight(int i, int j, V_POINT* p, double* w) const
{
    Get_Cpt_And_Weight(Check(i, j), p, w);
}

short VertexList::Put_Weight(int i, double w)
{
    const int idx = Index(i);
    KESTRA_REQUIRE(rational == 1);
    KESTRA_REQUIRE(w >= tavo_min_weight);
    if (!coordinates->Put(uint32_t(idx + dimension - 1), w)) return st::no_memory;
    return st::ok;
}

short VertexList::Put_Weight(int i, int j, double w)
{
    return Put_Weight(Check(i, j), w);
}

double VertexList::Get_Weight(int i) const
{
    const int idx = Index(i);
    if (!rational) return 1.0;
    const double* pw = coordinates->GetPtr(uint32_t(idx + dimension - 1));
    KESTRA_REQUIRE(pw);
    KESTRA_REQUIRE(*pw >= tavo_min_weight);
    return *pw;
}

double VertexList::Get_Weight(int i, int j) const
{
    return Get_Weight(Check(i, j));
}

void VertexList::Replace_Weight(int i, double w)
{
    KESTRA_REQUIRE(rational == 1);
    KESTRA_REQUIRE(w >= tavo_min_weight);
    double* v = _Get_Vertex(i);
    const double old = v[dimension - 1];
    KESTRA_REQUIRE(old >= tavo_min_weight);
    // (x w_old, w_old) -> (x w, w): the Cartesian x is kept.
    const double s = w / old;
    for (int c = 0; c < dimension - 1; ++c) v[c] *= s;
    v[dimension - 1] = w;
}

void VertexList::Replace_Weight(int i, int j, double w)
{
    Replace_Weight(Check(i, j), w);
}

short VertexList::Append_Vertex(const double* v)
{
    KESTRA_REQUIRE(coordinates);
    uint32_t k = coordinates->Count();
    while (k >= 1 && !coordinates->IsSet(k)) --k;
    const int last = (int(k) + dimension - 1) / dimension;
    return Put_Vertex(last + 1, v);
}

void VertexList::Delete(int i)
{
    const int idx = Index(i);
    for (int c = 0; c < dimension; ++c) coordinates->Delete(uint32_t(idx + c));
}

void VertexList::Delete_Current_Vertex()
{
    if (cursor >= 1 && cursor <= Count_All()) Delete(cursor);
}

int VertexList::Get_First_Vertex(double* v)
{
    cursor = 0;
    return Get_Next_Vertex(v);
}

int VertexList::Get_Next_Vertex(double* v)
{
    const int all = Count_All();
    if (!coordinates || cursor > all) return 0;
    for (int k = (cursor < 0 ? 0 : cursor) + 1; k <= all; ++k) {
        const uint32_t idx = uint32_t((k - 1) * dimension + 1);
        bool complete = true;
        for (int c = 0; c < dimension && complete; ++c) complete = coordinates->IsSet(idx + c);
        if (!complete) continue;
        if (v) {
            for (int c = 0; c < dimension; ++c) v[c] = coordinates->items[idx + c - 1];
        }
        cursor = k;
        return k;
    }
    cursor = all + 1;
    return 0;
}

int VertexList::Count() const
{
    if (!coordinates) return 0;
    int n = 0;
    const int all = Count_All();
    for (int k = 1; k <= all; ++k) {
        const uint32_t idx = uint32_t((k - 1) * dimension + 1);
        bool complete = true;
        for (int c = 0; c < dimension && complete; ++c) complete = coordinates->IsSet(idx + c);
        n += complete ? 1 : 0;
    }
    return n;
}

int VertexList::Count_All() const
{
    return coordinates ? count_u * count_v : 0;
}
