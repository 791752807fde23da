#pragma once
// Helpers shared by the curve tests: a curve described independently of the class (linear
// knots, homogeneous points), a plain de Boor evaluator over it, random clamped curves with
// fixed seeds, central differences and the shape-preservation check. Header only.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace curvetest {

// A curve as plain data: order, values per point (weight included when rational), linear
// knots T[0 .. n+order-1] and homogeneous values Pw, vpp per point.
struct Ref {
    int order = 0;
    int vpp = 3;
    bool rational = false;
    std::vector<double> T;
    std::vector<double> Pw;
    int n() const { return static_cast<int>(Pw.size()) / vpp; }
    int dim() const { return rational ? vpp - 1 : vpp; }
};

// A Ref from its parts.
inline Ref make_ref(int order, std::vector<double> T, std::vector<double> Pw, int vpp = 3,
                    bool rational = false)
{
    return Ref{order, vpp, rational, std::move(T), std::move(Pw)};
}

// de Boor's algorithm on 0-based knots U and n points of vpp values in P (homogeneous
// values combined as they are). The span is the last one of non-zero length starting at
// or below u, so the end parameter falls in the last live span.
inline std::vector<double> de_boor(int order, const std::vector<double>& U,
                                   const std::vector<double>& P, int vpp, double u)
{
    const int n = static_cast<int>(P.size()) / vpp, p = order - 1;
    int s = p;
    for (int k = p; k <= n - 1; ++k) {
        if (U[k] <= u && U[k] < U[k + 1]) s = k;
    }
    std::vector<double> d(P.begin() + (s - p) * vpp, P.begin() + (s + 1) * vpp);
    for (int r = 1; r <= p; ++r) {
        for (int j = p; j >= r; --j) {
            const int i = s - p + j;
            const double a = (u - U[i]) / (U[i + p - r + 1] - U[i]);
            for (int c = 0; c < vpp; ++c)
                d[j * vpp + c] = (1.0 - a) * d[(j - 1) * vpp + c] + a * d[j * vpp + c];
        }
    }
    return std::vector<double>(d.begin() + p * vpp, d.end());
}

// Cartesian point of r at t (divided by the weight when rational).
inline std::vector<double> point(const Ref& r, double t)
{
    std::vector<double> h = de_boor(r.order, r.T, r.Pw, r.vpp, t);
    const double w = r.rational ? h.back() : 1.0;
    h.resize(static_cast<size_t>(r.dim()));
    for (double& x : h) x /= w;
    return h;
}

// The curve's fields and lists filled directly from r, equal knots grouped by value.
inline CNurbs build(const Ref& r, bool parametric = false)
{
    CNurbs c;
    c.order = r.order;
    c.n_cpts = r.n();
    c.vpp = r.vpp;
    c.rational = r.rational ? 1 : 0;
    c.parametric = parametric ? 1 : 0;
    std::vector<double> K;
    std::vector<int> M;
    for (double t : r.T) {
        if (K.empty() || K.back() != t) K.push_back(t), M.push_back(0);  // exact: equal values
        ++M.back();
    }
    c.n_knots = static_cast<int>(K.size());
    EXPECT_EQ(c.Init_Lists(false), st::ok);
    for (size_t i = 0; i < K.size(); ++i) c.knots->Append(K[i]), c.mults->Append(M[i]);
    for (double v : r.Pw) c.cpts->Append(v);
    return c;
}

// The plain description of a curve's lists (multiplicities expanded).
inline Ref ref_of(const CNurbs& c)
{
    Ref r;
    r.order = c.order;
    r.vpp = c.vpp;
    r.rational = c.rational != 0;
    for (int k = 0; k < c.n_knots; ++k) r.T.insert(r.T.end(), c.mults->items[k], c.knots->items[k]);
    r.Pw.assign(c.cpts->items, c.cpts->items + c.n_cpts * c.vpp);
    return r;
}

// Clamped knots on [0, 1] with random interior knots of multiplicity 1..max_mult (at least
// 1), n = order + 0..10 points of dim coordinates in [-10, 10], weights in [0.5, 2].
inline Ref random_curve(std::mt19937& rng, int order, bool rational, int max_mult, int dim = 3)
{
    Ref r;
    r.order = order;
    r.rational = rational;
    r.vpp = dim + (rational ? 1 : 0);
    const int n = std::max(2, order + std::uniform_int_distribution<int>(0, 10)(rng));
    std::uniform_real_distribution<double> u01(0.0, 1.0), coord(-10.0, 10.0), weight(0.5, 2.0);
    std::uniform_int_distribution<int> mult(1, std::max(1, max_mult));
    std::vector<double> interior;
    while (static_cast<int>(interior.size()) < n - order) {
        const double v = 0.02 + 0.96 * u01(rng);
        const int m = std::min(mult(rng), n - order - static_cast<int>(interior.size()));
        interior.insert(interior.end(), m, v);
    }
    std::sort(interior.begin(), interior.end());
    r.T.assign(order, 0.0);
    r.T.insert(r.T.end(), interior.begin(), interior.end());
    r.T.insert(r.T.end(), order, 1.0);
    for (int i = 0; i < n; ++i) {
        const double w = rational ? weight(rng) : 1.0;
        for (int c = 0; c < dim; ++c) r.Pw.push_back(coord(rng) * w);
        if (rational) r.Pw.push_back(w);
    }
    return r;
}

// Central differences of f at t with step h: (f(t+h) - f(t-h)) / 2h and
// (f(t+h) - 2 f(t) + f(t-h)) / h^2, coordinate by coordinate.
struct Differences {
    std::vector<double> d1, d2;
};
inline Differences central_differences(const std::function<std::vector<double>(double)>& f,
                                       double t, double h)
{
    const std::vector<double> a = f(t - h), m = f(t), b = f(t + h);
    Differences d;
    for (size_t k = 0; k < m.size(); ++k) {
        d.d1.push_back((b[k] - a[k]) / (2 * h));
        d.d2.push_back((b[k] - 2 * m[k] + a[k]) / (h * h));
    }
    return d;
}

// The 3-D curve c, sampled through Eval at 1000 parameters over its range, lies on r (whose
// range is mapped onto c's) within tol relative to the size of the point.
inline void expect_same_shape(const CNurbs& c, const Ref& r, double tol = 1e-10)
{
    const double a = c.knots->items[0], b = c.knots->items[c.n_knots - 1];
    const double ra = r.T.front(), rb = r.T.back();
    for (int i = 0; i < 1000; ++i) {
        const double s = i / 999.0;
        V_POINT p{};
        ASSERT_EQ(c.Eval(i == 999 ? b : a + s * (b - a), nullptr, &p), st::ok) << s;
        const std::vector<double> e = point(r, i == 999 ? rb : ra + s * (rb - ra));
        const double q = tol * (1.0 + std::fabs(e[0]) + std::fabs(e[1]) + std::fabs(e[2]));
        const double got[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k)
            ASSERT_NEAR(got[k], e[k], q) << "s " << s << " order " << r.order;
    }
}

// Counts, knots and multiplicities equal, control values within tol.
inline void expect_same_lists(const CNurbs& a, const CNurbs& b, double tol = 0.0)
{
    ASSERT_EQ(a.n_cpts, b.n_cpts);
    ASSERT_EQ(a.n_knots, b.n_knots);
    for (int k = 0; k < a.n_knots; ++k) {
        EXPECT_EQ(a.knots->items[k], b.knots->items[k]);
        EXPECT_EQ(a.mults->items[k], b.mults->items[k]);
    }
    for (int k = 0; k < a.n_cpts * a.vpp; ++k) EXPECT_NEAR(a.cpts->items[k], b.cpts->items[k], tol);
}

// The multiplicity of the knot exactly u, 0 when there is none.
inline int mult_of(const CNurbs& c, double u)
{
    for (int k = 0; k < c.n_knots; ++k) {
        if (c.knots->items[k] == u) return c.mults->items[k];
    }
    return 0;
}

// A list holding the given items in order (the linear knots of a Ref: list_of(r.T)).
template <class T> List<T> list_of(const std::vector<T>& xs)
{
    List<T> l;
    for (const T& x : xs) l.Append(x);
    return l;
}

// The items of slots 1..Count() of a list.
template <class T> std::vector<T> items(const List<T>& l)
{
    return std::vector<T>(l.items, l.items + l.Count());
}

// Joined diagnostic texts split into lines.
inline std::vector<std::string> split_lines(const std::vector<std::string>& texts)
{
    std::string all;
    for (const std::string& t : texts) all += t;
    std::vector<std::string> out;
    std::istringstream in(all);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

}  // namespace curvetest
