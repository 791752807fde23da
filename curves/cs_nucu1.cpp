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

namespace {

using kestra::detail::make_list;
using kestra::detail::replace_list;
using kestra::detail::tracked_delete;
using kestra::detail::tracked_new;

// Orders up to this evaluate with stack buffers only; higher orders take one tracked block.
constexpr int kStackOrder = 21;
// Largest vpp whose results fit the fixed output of eval_curve.
constexpr int kMaxEvalVpp = 16;

// Basis and knot-window buffers of one evaluation: N, N1, N2 (1-based, order + 1 each) and
// a 1-based window of 2 * order knots.
class EvalScratch {
public:
    explicit EvalScratch(int order)
    {
        if (order <= kStackOrder) {
            N = local_n;
            N1 = local_n1;
            N2 = local_n2;
            W = local_w;
            return;
        }
        const size_t per = static_cast<size_t>(order) + 1;
        heap = static_cast<double*>(v_memptr_alloc(nullptr, (3 * per + 2 * per) * sizeof(double)));
        if (!heap) return;
        N = heap;
        N1 = heap + per;
        N2 = heap + 2 * per;
        W = heap + 3 * per;
    }
    ~EvalScratch()
    {
        if (heap) v_memptr_free(heap);
    }
    EvalScratch(const EvalScratch&) = delete;
    EvalScratch& operator=(const EvalScratch&) = delete;
    bool ok() const { return N != nullptr; }

    double* N = nullptr;
    double* N1 = nullptr;
    double* N2 = nullptr;
    double* W = nullptr;

private:
    double* heap = nullptr;
    double local_n[kStackOrder + 1];
    double local_n1[kStackOrder + 1];
    double local_n2[kStackOrder + 1];
    double local_w[2 * kStackOrder + 1];
};

// The knot lists hold n_knots entries each.
bool knot_lists_usable(const CNurbs& c)
{
    return c.knots && c.mults && c.n_knots >= 2 &&
           c.knots->Count() >= static_cast<uint32_t>(c.n_knots) &&
           c.mults->Count() >= static_cast<uint32_t>(c.n_knots);
}

// Makes v and m the curve's knot lists when ok and both exist; frees them otherwise.
// True when they were installed.
bool install_knots(CNurbs& c, List<double>* v, List<int>* m, bool ok)
{
    if (!ok || !v || !m) {
        tracked_delete(v);
        tracked_delete(m);
        return false;
    }
    replace_list(c.knots, v);
    replace_list(c.mults, m);
    return true;
}

// Replaces the curve's knot lists by copies of values[0 .. n-1] and mult[0 .. n-1].
// 0 ok; 115 no memory (curve unchanged).
short put_knot_arrays(CNurbs& c, const double* values, const int* mult, uint32_t n)
{
    List<double>* v = make_list(values, n, n);
    List<int>* m = make_list(mult, n, n);
    return install_knots(c, v, m, true) ? st::ok : st::no_memory;
}

// Order, counts and control list allow an evaluation: the span search and the sums then
// stay inside the lists.
bool cpts_usable(const CNurbs& c)
{
    if (c.order < 1 || c.n_cpts < c.order || c.vpp < 1 || (c.rational && c.vpp < 2)) return false;
    if (!c.cpts) return false;
    const uint64_t len = static_cast<uint64_t>(c.n_cpts) * static_cast<uint64_t>(c.vpp);
    return len <= c.cpts->Count();
}

// Sum of M[from .. to-1]; *bad gets a non-zero bit when one lies outside
// 1..kestra_max_multiplicity. Branch-free, in blocks summed in 32 bits (exact for valid
// values: 65536 * 4096 < 2^32), so the pass runs at vector speed.
int64_t sum_multiplicities(const int* M, int from, int to, int* bad)
{
    int64_t total = 0;
    int flag = 0;
    for (int b = from; b < to; b += 65536) {
        const int end = to - b > 65536 ? b + 65536 : to;
        uint32_t acc = 0;
        for (int d = b; d < end; ++d) {
            flag |= (M[d] < 1) | (M[d] > kestra_max_multiplicity);
            acc += static_cast<uint32_t>(M[d]);
        }
        total += acc;
    }
    *bad |= flag;
    return total;
}

// Linear span and knot window from the multiplicity form, without building the linear
// vector: the span rule of find_span_linear (t in [T[order], T[n_cpts + 1]], the end
// parameter in the last span of non-zero length). W[1 .. 2*order] receives
// T[span - order + 1 .. span + order]. One pass checks the multiplicities; the rest reads
// only the ends and the neighbourhood of the span. 0 ok; 110 unusable knots; 111 t outside
// the range.
short span_from_multiplicities(const CNurbs& c, double t, int* span, double* W)
{
    if (!knot_lists_usable(c)) return st::bad_input;
    const double* K = c.knots->items;
    const int* M = c.mults->items;
    const int nk = c.n_knots;
    const int p = c.order;
    const int64_t n = c.n_cpts;
    if (!(t >= K[0] && t <= K[nk - 1])) return st::bad_index;  // outside or NaN
    // j0: the last distinct knot <= t.
    int j0 = 0, hi = nk - 1;
    if (t >= K[hi]) j0 = hi;
    while (hi - j0 > 1) {  // K[j0] <= t < K[hi]
        const int mid = (j0 + hi) / 2;
        if (K[mid] <= t)
            j0 = mid;
        else
            hi = mid;
    }
    // One pass checks the multiplicities, sums those up to j0 (the span) and all of them.
    int bad = 0;
    const int64_t before = sum_multiplicities(M, 0, j0 + 1, &bad);
    const int64_t total = before + sum_multiplicities(M, j0 + 1, nk, &bad);
    if (bad || total != n + p) return st::bad_input;
    // T[p] from the front; T[n + 1] and the first copy of its knot (K[e]) from the back.
    int d = 0;
    for (int64_t cum = M[0]; cum < p; cum += M[++d]) {}
    const double Tp = K[d];
    int e = nk - 1;
    int64_t tail = M[e];
    while (total - tail + 1 > n + 1) tail += M[--e];
    const double Tn1 = K[e];
    if (!(t >= Tp && t <= Tn1)) return st::bad_index;
    int j;      // distinct knot (0-based) whose last copy is the span
    int64_t s;  // the span
    if (t >= Tn1) {
        j = e - 1;  // the end parameter: last span of non-zero length
        s = total - tail;
    } else {
        j = j0;
        s = before;
    }
    if (j < 0 || s < p || s > n) return st::bad_index;
    // W[p] = T[s] = K[j] downwards, W[p + 1] = T[s + 1] = K[j + 1] upwards.
    int dk = j;
    int left = M[dk];
    for (int k = p; k >= 1; --k) {
        W[k] = K[dk];
        if (--left == 0 && dk > 0) left = M[--dk];
    }
    dk = j + 1;
    left = M[dk];
    for (int k = p + 1; k <= 2 * p; ++k) {
        W[k] = K[dk];
        if (--left == 0 && dk + 1 < nk) left = M[++dk];
    }
    *span = static_cast<int>(s);
    return st::ok;
}

// Linear span of t in the caller's 1-based knots T[1 .. n + p] (n points, order p), the
// same as find_span_linear: T[span] <= t < T[span + 1], span in p..n. The search starts at
// the span that t would fall in if the knots were uniform over the range, gallops from
// there and halves the bracket: O(1) for uniform knots, O(log distance) otherwise. The end
// parameter, values outside the range and NaN go to find_span_linear.
inline int find_span_hinted(int n, int p, const double* T, double t)
{
    const double a = T[p], b = T[n + 1];
    if (!(t >= a && t < b)) return kestra::detail::find_span_linear(n, p, T, t);
    int g = p + static_cast<int>((t - a) / (b - a) * (n + 1 - p));
    if (g > n) g = n;
    if (g < p) g = p;
    int lo, hi;  // T[lo] <= t < T[hi]
    if (T[g] <= t) {
        if (t < T[g + 1]) return g;
        lo = g + 1;
        int step = 1;
        hi = lo + 1;
        while (hi <= n && T[hi] <= t) {
            lo = hi;
            step *= 2;
            hi = lo + step;
        }
        if (hi > n + 1) hi = n + 1;  // T[n + 1] = b > t
    } else {
        hi = g;
        int step = 1;
        lo = hi - 1;
        while (lo > p && T[lo] > t) {
            hi = lo;
            step *= 2;
            lo = hi - step;
        }
        if (lo < p) lo = p;  // T[p] = a <= t
    }
    while (hi - lo > 1) {
        const int mid = (lo + hi) >> 1;
        if (T[mid] <= t)
            lo = mid;
        else
            hi = mid;
    }
    return lo;
}

// Homogeneous sums A[c] = sum_k B[k] * Pw[first + k - 1][c], k = 1..order.
template <int V> inline void sum_fixed(const double* P, const double* B, int order, double* A)
{
    // Two interleaved sums shorten the chain of dependent additions.
    double a[V] = {}, b[V] = {};
    int k = 1;
    for (; k + 1 <= order; k += 2, P += 2 * V) {
        for (int c = 0; c < V; ++c) {
            a[c] += B[k] * P[c];
            b[c] += B[k + 1] * P[V + c];
        }
    }
    if (k == order) {
        for (int c = 0; c < V; ++c) a[c] += B[k] * P[c];
    }
    for (int c = 0; c < V; ++c) A[c] = a[c] + b[c];
}

inline void sum_points(const double* P, int vpp, const double* B, int order, double* A)
{
    if (vpp == 3) return sum_fixed<3>(P, B, order, A);
    if (vpp == 4) return sum_fixed<4>(P, B, order, A);
    for (int c = 0; c < vpp; ++c) A[c] = 0.0;
    for (int k = 1; k <= order; ++k, P += vpp) {
        for (int c = 0; c < vpp; ++c) A[c] += B[k] * P[c];
    }
}

// Point and nder derivatives (0..2) of c at t, Cartesian: out[d * dim + c] for derivative
// d and coordinate c, dim = vpp - rational. Codes as CNurbs::Eval.
// Beyond the plain span rule (Find_Span over [K[1], K[n]]): t must lie in the parameter
// range [T[order], T[n_cpts + 1]], so an unclamped curve never reads outside its points.
short eval_curve(const CNurbs& c, double t, List<double>* linear, int nder, double* out)
{
    if (!std::isfinite(t)) return st::bad_index;  // beyond the plain rules: NaN, infinities
    if (!cpts_usable(c) || c.vpp > kMaxEvalVpp) return st::bad_input;
    const int p = c.order;
    const int V = c.vpp;
    EvalScratch s(p);
    if (!s.ok()) return st::no_memory;
    int span = 0;        // linear span of t: control points span - p + 1 .. span
    int basis_span = 0;  // the same span in T's indexing
    double* T;
    if (linear) {
        if (linear->Count() != static_cast<uint32_t>(c.n_cpts + p)) return st::bad_input;
        T = linear->items - 1;  // 1-based view of the caller's linear knots
        span = find_span_hinted(c.n_cpts, p, T, t);
        if (span == 0) return st::bad_index;
        basis_span = span;
    } else {
        const short rc = span_from_multiplicities(c, t, &span, s.W);
        if (rc != st::ok) return rc;
        T = s.W;  // W[1..2p] = T[span - p + 1 .. span + p]
        basis_span = p;
    }
    const double* P = c.cpts->items + static_cast<size_t>(span - p) * V;
    double A[3][kMaxEvalVpp];
    if (nder == 0) {
        BSpline_Basis_N(p, T, t, basis_span, s.N);
    } else if (nder == 1) {
        BSpline_Basis_N_N1(p, T, t, basis_span, s.N, s.N1);
        sum_points(P, V, s.N1, p, A[1]);
    } else {
        BSpline_Basis_N_N1_N2(p, T, t, basis_span, s.N, s.N1, s.N2);
        sum_points(P, V, s.N1, p, A[1]);
        sum_points(P, V, s.N2, p, A[2]);
    }
    sum_points(P, V, s.N, p, A[0]);

    const int dim = c.rational ? V - 1 : V;
    if (!c.rational) {
        for (int d = 0; d <= nder; ++d) {
            double* o = out + d * dim;
            if (dim == 3) {  // element by element: a block copy costs more than the sums
                o[0] = A[d][0];
                o[1] = A[d][1];
                o[2] = A[d][2];
            } else {
                for (int k = 0; k < dim; ++k) o[k] = A[d][k];
            }
        }
        return st::ok;
    }
    // C = A / w;  C' = (A' - w' C) / w;  C'' = (A'' - 2 w' C' - w'' C) / w  (one division).
    const double w = A[0][dim];
    if (w < tavo_min_weight) return st::bad_input;
    const double inv = 1.0 / w;
    for (int k = 0; k < dim; ++k) {
        const double C = A[0][k] * inv;
        out[k] = C;
        if (nder >= 1) {
            const double C1 = (A[1][k] - A[1][dim] * C) * inv;
            out[dim + k] = C1;
            if (nder >= 2)
                out[2 * dim + k] = (A[2][k] - 2.0 * A[1][dim] * C1 - A[2][dim] * C) * inv;
        }
    }
    return st::ok;
}

}  // namespace

// --- knots ---

short CNurbs::Get_Knots_Vector(List<double>* values, List<int>* mult) const
{
    if (!values || !mult || !knot_lists_usable(*this)) return st::bad_input;
    List<double> v(static_cast<uint32_t>(n_knots));
    List<int> m(static_cast<uint32_t>(n_knots));
    if (!v.Reserve(static_cast<uint32_t>(n_knots)) || !m.Reserve(static_cast<uint32_t>(n_knots)))
        return st::no_memory;
    for (uint32_t k = 1; k <= static_cast<uint32_t>(n_knots); ++k) {
        if (!knots->IsSet(k) || !mults->IsSet(k)) return st::bad_input;
        v.Append(knots->items[k - 1]);
        m.Append(mults->items[k - 1]);
    }
    *values = std::move(v);
    *mult = std::move(m);
    return st::ok;
}

short CNurbs::Get_Knots_Vector(double* values, int* mult) const
{
    if (!values || !mult || !knot_lists_usable(*this)) return st::bad_input;
    for (uint32_t k = 1; k <= static_cast<uint32_t>(n_knots); ++k) {
        if (!knots->IsSet(k) || !mults->IsSet(k)) return st::bad_input;
    }
    std::memcpy(values, knots->items, static_cast<size_t>(n_knots) * sizeof(double));
    std::memcpy(mult, mults->items, static_cast<size_t>(n_knots) * sizeof(int));
    return st::ok;
}

short CNurbs::Put_Knots_Vector(double* values, int* mult)
{
    if (!values || !mult || n_knots < 2) return st::bad_input;
    return put_knot_arrays(*this, values, mult, static_cast<uint32_t>(n_knots));
}

short CNurbs::Put_Knots_Vector(List<double>& values, List<int>& mult)
{
    const uint32_t n = values.Count();
    if (n != mult.Count() || n < 2 || n > INT32_MAX) return st::bad_input;
    for (uint32_t k = 1; k <= n; ++k) {
        if (!values.IsSet(k) || !mult.IsSet(k)) return st::bad_input;
    }
    const short rc = put_knot_arrays(*this, values.items, mult.items, n);
    if (rc == st::ok) n_knots = static_cast<int32_t>(n);
    return rc;
}

short CNurbs::Get_Knot(int i, double* value) const
{
    KESTRA_REQUIRE(i >= 1 && i <= n_knots);
    if (!knots || !value || !knots->Get(static_cast<uint32_t>(i), value)) return st::bad_input;
    return st::ok;
}

short CNurbs::Get_Knot_Mult(int i, int* mult) const
{
    KESTRA_REQUIRE(i >= 1 && i <= n_knots);
    if (!mults || !mult || !mults->Get(static_cast<uint32_t>(i), mult)) return st::bad_input;
    return st::ok;
}

short CNurbs::Put_Knot(int i, double value)
{
    KESTRA_REQUIRE(i >= 1 && i <= n_knots);
    if (!knots) return st::bad_input;
    return knots->Put(static_cast<uint32_t>(i), value) ? st::ok : st::no_memory;
}

short CNurbs::Put_Knot_Mult(int i, int mult)
{
    KESTRA_REQUIRE(i >= 1 && i <= n_knots);
    if (!mults) return st::bad_input;
    return mults->Put(static_cast<uint32_t>(i), mult) ? st::ok : st::no_memory;
}

short CNurbs::Get_Linear_Knot(int i, double* value) const
{
    KESTRA_REQUIRE(i >= 1 && static_cast<int64_t>(i) <= static_cast<int64_t>(n_cpts) + order);
    if (!knots || !mults || !value) return st::bad_input;
    return get_linear_knot(knots, mults, n_knots, i, value);
}

short CNurbs::Get_Linear_Knot_Mult(int i, int* mult) const
{
    KESTRA_REQUIRE(i >= 1 && static_cast<int64_t>(i) <= static_cast<int64_t>(n_cpts) + order);
    if (!mults || !mult) return st::bad_input;
    return get_linear_knot_mult(mults, n_knots, i, mult);
}

short CNurbs::Get_Linear_Knots_Vector(List<double>* out) const
{
    if (!out || !knots || !mults) return st::bad_input;
    return multiplicity_knots_to_linear_knots(*knots, *mults, out);
}

short CNurbs::Put_Linear_Knots_Vector(List<double>& linear)
{
    const uint32_t n = linear.Count();
    if (n < 2 || n > INT32_MAX) return st::bad_index;
    for (uint32_t k = 1; k <= n; ++k) {
        if (!linear.IsSet(k)) return st::bad_input;
    }
    List<double>* v = tracked_new<List<double>>(16u);
    List<int>* m = tracked_new<List<int>>(16u);
    int count = 0;
    short rc = st::no_memory;
    if (v && m)
        rc = linear_knots_to_multiplicity_knots(static_cast<int>(n), linear.items, v, m, &count);
    if (!install_knots(*this, v, m, rc == st::ok)) return rc;
    n_knots = count;
    return st::ok;
}

short CNurbs::Get_Start_End_Knots(double* start, double* end) const
{
    if (!knots || !mults) return st::bad_input;
    return _get_start_end_knots(order, n_cpts, *knots, *mults, start, end, nullptr, nullptr,
                                nullptr, nullptr);
}

short CNurbs::Get_Arrays(double** cpt_values, double** knot_values, int** mult_values)
{
    // A list without storage gets its first growth step, so that its array exists.
    bool ok = true;
    auto expose = [&ok](auto* list, auto** out) {
        if (!out) return;
        *out = nullptr;
        if (!list) return;
        if (list->capacity != 0 || list->Reserve(list->grow_by ? list->grow_by : 1))
            *out = list->items;
        else
            ok = false;
    };
    expose(cpts, cpt_values);
    expose(knots, knot_values);
    expose(mults, mult_values);
    return ok ? st::ok : st::no_memory;
}

// --- control points ---

short CNurbs::Put_Cpt(int i, V_POINT p)
{
    KESTRA_REQUIRE(vpp - (rational ? 1 : 0) == 3);
    KESTRA_REQUIRE(i >= 1 && i <= n_cpts);
    if (!cpts) return st::bad_input;
    const uint32_t base = static_cast<uint32_t>(i - 1) * static_cast<uint32_t>(vpp);
    double w = 1.0;
    if (rational && !cpts->Get(base + 4, &w)) return st::bad_input;
    if (rational && w < tavo_min_weight) return st::low_weight;
    const bool ok = cpts->Put(base + 1, p.x * w) && cpts->Put(base + 2, p.y * w) &&
                    cpts->Put(base + 3, p.z * w);
    return ok ? st::ok : st::no_memory;
}

short CNurbs::Put_Cpt_And_Weight(int i, V_POINT p, double w)
{
    KESTRA_REQUIRE(vpp - (rational ? 1 : 0) == 3);
    KESTRA_REQUIRE(i >= 1 && i <= n_cpts);
    if (rational && !(w >= tavo_min_weight)) return st::low_weight;
    if (!cpts) return st::bad_input;
    const uint32_t base = static_cast<uint32_t>(i - 1) * static_cast<uint32_t>(vpp);
    if (!rational) w = 1.0;
    // Grow once for the whole point so that a failure cannot leave it half written.
    if (!cpts->Reserve(base + static_cast<uint32_t>(vpp))) return st::no_memory;
    cpts->Put(base + 1, p.x * w);
    cpts->Put(base + 2, p.y * w);
    cpts->Put(base + 3, p.z * w);
    if (rational) cpts->Put(base + 4, w);
    return st::ok;
}

short CNurbs::Get_Cpt(int i, V_POINT* p) const
{
    double w;
    return Get_Cpt_And_Weight(i, p, &w);
}

short CNurbs::Get_Cpt_And_Weight(int i, V_POINT* p, double* w) const
{
    KESTRA_REQUIRE(vpp - (rational ? 1 : 0) == 3);
    KESTRA_REQUIRE(i >= 1 && i <= n_cpts);
    if (!cpts || !p || !w) return st::bad_input;
    const uint32_t base = static_cast<uint32_t>(i - 1) * static_cast<uint32_t>(vpp);
    for (uint32_t c = 1; c <= static_cast<uint32_t>(vpp); ++c) {
        if (!cpts->IsSet(base + c)) return st::bad_input;
    }
    const double* v = cpts->items + base;
    const double weight = rational ? v[3] : 1.0;
    if (rational && !(weight >= tavo_min_weight)) return st::low_weight;
    *p = V_POINT{v[0] / weight, v[1] / weight, v[2] / weight};
    *w = weight;
    return st::ok;
}

short CNurbs::Get_Cpts(List<V_POINT>* pts) const
{
    return Get_Cpts_And_Weights(pts, nullptr);
}

short CNurbs::Get_Cpts_And_Weights(List<V_POINT>* pts, List<double>* weights) const
{
    KESTRA_REQUIRE(vpp - (rational ? 1 : 0) == 3);
    if (!pts || !cpts || n_cpts < 1) return st::bad_input;
    const uint32_t n = static_cast<uint32_t>(n_cpts);
    List<V_POINT> out(n);
    List<double> wout(n);
    if (!out.Reserve(n) || (weights && !wout.Reserve(n))) return st::no_memory;
    for (int i = 1; i <= n_cpts; ++i) {
        V_POINT p;
        double w;
        const short rc = Get_Cpt_And_Weight(i, &p, &w);
        if (rc != st::ok) return rc;
        out.Append(p);
        if (weights) wout.Append(w);
    }
    *pts = std::move(out);
    if (weights) *weights = std::move(wout);
    return st::ok;
}

short CNurbs::Put_Cpts_And_Weights(List<V_POINT>& pts, List<double>* weights)
{
    const uint32_t n = pts.Count();
    if (n < 1 || n > INT32_MAX / 4) return st::bad_input;
    if (weights && weights->Count() != n) return st::bad_input;
    for (uint32_t k = 1; k <= n; ++k) {
        if (!pts.IsSet(k) || (weights && !weights->IsSet(k))) return st::bad_input;
        if (weights && !(weights->items[k - 1] >= tavo_min_weight)) return st::low_weight;
    }
    const uint32_t v = weights ? 4 : 3;
    List<double>* list = tracked_new<List<double>>(n * v);
    if (!list || !list->Reserve(n * v)) {
        tracked_delete(list);
        return st::no_memory;
    }
    for (uint32_t k = 0; k < n; ++k) {
        const V_POINT& p = pts.items[k];
        const double w = weights ? weights->items[k] : 1.0;
        list->Append(p.x * w);
        list->Append(p.y * w);
        list->Append(p.z * w);
        if (weights) list->Append(w);
    }
    tracked_delete(cpts);
    cpts = list;
    n_cpts = static_cast<int32_t>(n);
    vpp = static_cast<int32_t>(v);
    rational = weights ? 1 : 0;
    parametric = 0;
    return st::ok;
}

// --- parameter search and evaluation ---

// Binary search over the distinct knots K[1..n]: the invariant low <= j < high holds for
// increasing knots, so the loop ends within log2(n) steps; the step guard only stops a
// corrupt, non-increasing vector.
short CNurbs::Find_Interval(double t, int* j) const
{
    if (!std::isfinite(t)) return st::bad_index;  // beyond the plain rules: NaN, infinities
    if (!knot_lists_usable(*this) || !j) return st::bad_input;
    const double* K0 = knots->items;  // K(i) = K0[i - 1]
    const int n = n_knots;
    if (!knots->IsSet(1) || !knots->IsSet(static_cast<uint32_t>(n))) return st::bad_input;
    if (t < K0[0] || t > K0[n - 1]) return st::bad_index;
    if (std::fabs(K0[n - 1] - t) < tavotoll.param) {  // the end belongs to the last interval
        *j = n - 1;
        return st::ok;
    }
    int low = 1, high = n, mid = (n + 1) / 2;
    for (int steps = 0;; ++steps) {
        if (mid < 1 || mid >= n || steps > 64) return st::bad_input;
        if (!knots->IsSet(static_cast<uint32_t>(mid)) ||
            !knots->IsSet(static_cast<uint32_t>(mid) + 1))
            return st::bad_input;
        if (K0[mid - 1] <= t && t < K0[mid]) break;
        if (t < K0[mid - 1])
            high = mid;
        else
            low = mid;
        mid = (low + high) / 2;
    }
    *j = mid;
    return st::ok;
}

short CNurbs::Find_Span(double t, int* span) const
{
    int j = 0;
    const short rc = Find_Interval(t, &j);
    if (rc != st::ok) return rc;
    if (!span) return st::bad_input;
    int64_t sum = 0;
    for (int k = 0; k < j; ++k) {
        if (!mults->IsSet(static_cast<uint32_t>(k) + 1)) return st::bad_input;
        sum += mults->items[k];
    }
    if (sum < 1 || sum > INT32_MAX) return st::bad_input;
    *span = static_cast<int>(sum);
    return st::ok;
}

short CNurbs::Find_Knot_Position(double t, short* found, int* pos) const
{
    if (!found || !pos) return st::bad_input;
    *found = 0;
    if (!std::isfinite(t)) return st::bad_index;  // beyond the plain rules: NaN, infinities
    if (!knots) return st::ok;
    const int n = knots->Count() < static_cast<uint32_t>(n_knots) ? static_cast<int>(knots->Count())
                                                                  : n_knots;
    return find_knot_position(t, *knots, n, found, pos);
}

short CNurbs::Eval(double t, List<double>* linear, V_POINT* p) const
{
    if (vpp - (rational ? 1 : 0) != 3) return st::bad_input;
    double out[3];
    const short rc = eval_curve(*this, t, linear, 0, out);
    if (rc != st::ok) return rc;
    *p = V_POINT{out[0], out[1], out[2]};
    return st::ok;
}

short CNurbs::Eval(double t, List<double>* linear, V_POINT* p, V_VECTOR* d1) const
{
    if (vpp - (rational ? 1 : 0) != 3) return st::bad_input;
    double out[6];
    const short rc = eval_curve(*this, t, linear, 1, out);
    if (rc != st::ok) return rc;
    *p = V_POINT{out[0], out[1], out[2]};
    *d1 = V_VECTOR{out[3], out[4], out[5]};
    return st::ok;
}

short CNurbs::Eval(double t, List<double>* linear, V_POINT* p, V_VECTOR* d1, V_VECTOR* d2) const
{
    if (vpp - (rational ? 1 : 0) != 3) return st::bad_input;
    double out[9];
    const short rc = eval_curve(*this, t, linear, 2, out);
    if (rc != st::ok) return rc;
    *p = V_POINT{out[0], out[1], out[2]};
    *d1 = V_VECTOR{out[3], out[4], out[5]};
    *d2 = V_VECTOR{out[6], out[7], out[8]};
    return st::ok;
}

short CNurbs::Eval(double t, List<double>* linear, double* out) const
{
    if (!out) return st::bad_input;
    return eval_curve(*this, t, linear, 0, out);
}
