// Curve access, parameter search and evaluation, checked against a plain de Boor evaluator
// written here, against finite differences and against values worked out by hand.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// A curve described independently of the class: linear knots, homogeneous points.
struct Ref {
    int order = 0;
    int vpp = 0;
    bool rational = false;
    std::vector<double> T;   // linear knots, 0-based
    std::vector<double> Pw;  // homogeneous values, vpp per point
    int n() const { return static_cast<int>(Pw.size()) / vpp; }
    int dim() const { return rational ? vpp - 1 : vpp; }
};

// The curve's fields and lists filled directly from the reference description.
CNurbs build(const Ref& r, bool parametric = false)
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
        if (!K.empty() && K.back() == t) {
            ++M.back();
        } else {
            K.push_back(t);
            M.push_back(1);
        }
    }
    c.n_knots = static_cast<int>(K.size());
    EXPECT_EQ(c.Init_Lists(false), st::ok);
    for (size_t i = 0; i < K.size(); ++i) {
        c.knots->Append(K[i]);
        c.mults->Append(M[i]);
    }
    for (double v : r.Pw) c.cpts->Append(v);
    return c;
}

// de Boor's algorithm on the homogeneous points, then the division by the weight.
std::vector<double> de_boor(const Ref& r, double t)
{
    const int p = r.order - 1, n = r.n(), V = r.vpp;
    const std::vector<double>& T = r.T;
    int k;
    if (t >= T[n]) {  // the end: last span of non-zero length
        k = n - 1;
        while (!(T[k] < T[k + 1])) --k;
    } else {
        k = p;
        while (k + 1 < n && T[k + 1] <= t) ++k;
    }
    std::vector<std::vector<double>> d(p + 1, std::vector<double>(V));
    for (int j = 0; j <= p; ++j) {
        for (int c = 0; c < V; ++c) d[j][c] = r.Pw[(j + k - p) * V + c];
    }
    for (int s = 1; s <= p; ++s) {
        for (int j = p; j >= s; --j) {
            const double a = (t - T[j + k - p]) / (T[j + 1 + k - s] - T[j + k - p]);
            for (int c = 0; c < V; ++c) d[j][c] = (1.0 - a) * d[j - 1][c] + a * d[j][c];
        }
    }
    std::vector<double> out(r.dim());
    const double w = r.rational ? d[p][V - 1] : 1.0;
    for (int c = 0; c < r.dim(); ++c) out[c] = d[p][c] / w;
    return out;
}

// Clamped knots on [0, 1] with random interior knots, some repeated (up to order - 1
// copies, or order copies when allow_full), and random points (weights in [0.5, 2]).
Ref random_curve(std::mt19937& rng, int order, bool rational, int dim = 3, bool allow_full = false)
{
    Ref r;
    r.order = order;
    r.rational = rational;
    r.vpp = dim + (rational ? 1 : 0);
    std::uniform_int_distribution<int> extra(0, 10);
    const int n = std::max(2, order + extra(rng));
    std::uniform_real_distribution<double> u01(0.0, 1.0);
    std::vector<double> interior;
    const int max_mult = std::max(1, allow_full ? order : order - 1);
    std::uniform_int_distribution<int> mult(1, max_mult);
    while (static_cast<int>(interior.size()) < n - order) {
        const double v = 0.02 + 0.96 * u01(rng);
        const int m = std::min(mult(rng), n - order - static_cast<int>(interior.size()));
        for (int i = 0; i < m; ++i) interior.push_back(v);
    }
    std::sort(interior.begin(), interior.end());
    r.T.assign(order, 0.0);
    r.T.insert(r.T.end(), interior.begin(), interior.end());
    r.T.insert(r.T.end(), order, 1.0);
    std::uniform_real_distribution<double> coord(-10.0, 10.0), weight(0.5, 2.0);
    for (int i = 0; i < n; ++i) {
        const double w = rational ? weight(rng) : 1.0;
        for (int c = 0; c < dim; ++c) r.Pw.push_back(coord(rng) * w);
        if (rational) r.Pw.push_back(w);
    }
    return r;
}

List<double> linear_list(const Ref& r)
{
    List<double> l;
    for (double t : r.T) l.Append(t);
    return l;
}

// A clamped cubic by hand: knots 0 0 0 0 1 2 2 3 3 3 3, seven points.
Ref hand_cubic()
{
    Ref r;
    r.order = 4;
    r.vpp = 3;
    r.T = {0, 0, 0, 0, 1, 2, 2, 3, 3, 3, 3};
    for (int i = 0; i < 7; ++i) {
        r.Pw.push_back(i);
        r.Pw.push_back(i * i);
        r.Pw.push_back(1.0 - i);
    }
    return r;
}

}  // namespace

// --- parameter search ---

TEST(FindInterval, EndsAndInterior_FollowTheIntervalRule)
{
    CNurbs c = build(hand_cubic());  // distinct 0 1 2 3
    int j = -1;
    EXPECT_EQ(c.Find_Interval(0.0, &j), st::ok);
    EXPECT_EQ(j, 1);
    EXPECT_EQ(c.Find_Interval(1.0, &j), st::ok);
    EXPECT_EQ(j, 2);
    EXPECT_EQ(c.Find_Interval(2.5, &j), st::ok);
    EXPECT_EQ(j, 3);
    EXPECT_EQ(c.Find_Interval(3.0, &j), st::ok);  // the end belongs to the last interval
    EXPECT_EQ(j, 3);
    EXPECT_EQ(c.Find_Interval(3.0 - 5e-12, &j), st::ok);
    EXPECT_EQ(j, 3);
    EXPECT_EQ(c.Find_Interval(-1e-15, &j), st::bad_index);  // no tolerance at the start
    EXPECT_EQ(c.Find_Interval(3.0 + 1e-13, &j), st::bad_index);
    EXPECT_EQ(c.Find_Interval(std::nan(""), &j), st::bad_index);
    EXPECT_EQ(c.Find_Interval(std::numeric_limits<double>::infinity(), &j), st::bad_index);
    int k = -1;
    EXPECT_EQ(c.FindSpan(2.0, &k), st::ok);
    EXPECT_EQ(k, 3);
}

TEST(FindInterval, ManyKnots_MatchesLinearScan)
{
    // 200 distinct knots with uneven spacing; every interval and its ends are found.
    Ref r;
    r.order = 2;
    r.vpp = 3;
    std::vector<double> K;
    for (int i = 0; i < 200; ++i) K.push_back(i * i * 0.01);
    r.T.push_back(K.front());
    for (double k : K) r.T.push_back(k);
    r.T.push_back(K.back());
    r.Pw.assign(3 * (r.T.size() - 2), 0.0);
    CNurbs c = build(r);
    for (int i = 0; i + 1 < 200; ++i) {
        for (double f : {0.0, 0.3, 0.999}) {
            const double t = K[i] + f * (K[i + 1] - K[i]);
            int j = 0;
            ASSERT_EQ(c.Find_Interval(t, &j), st::ok);
            EXPECT_EQ(j, i + 1) << t;
        }
    }
}

TEST(FindSpan, LastCopyOfTheIntervalKnot)
{
    CNurbs c = build(hand_cubic());
    int s = 0;
    EXPECT_EQ(c.Find_Span(0.5, &s), st::ok);
    EXPECT_EQ(s, 4);  // last copy of 0
    EXPECT_EQ(c.Find_Span(1.5, &s), st::ok);
    EXPECT_EQ(s, 5);
    EXPECT_EQ(c.Find_Span(2.0, &s), st::ok);
    EXPECT_EQ(s, 7);
    EXPECT_EQ(c.Find_Span(3.0, &s), st::ok);  // interval 3, last copy of 2
    EXPECT_EQ(s, 7);
    EXPECT_EQ(c.Find_Span(4.0, &s), st::bad_index);
}

TEST(FindKnotPosition, WithinTheKnotTolerance)
{
    CNurbs c = build(hand_cubic());
    short found = 9;
    int pos = 0;
    EXPECT_EQ(c.Find_Knot_Position(2.0 + 5e-12, &found, &pos), st::ok);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(c.Find_Knot_Position(2.5, &found, &pos), st::ok);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(c.Find_Knot_Position(std::nan(""), &found, &pos), st::bad_index);
}

// --- evaluation ---

TEST(Eval, RandomCurves_MatchDeBoor)
{
    std::mt19937 rng(20240611);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            for (int rep = 0; rep < 4; ++rep) {
                const Ref r = random_curve(rng, order, rational != 0, 3, rep == 3);
                CNurbs c = build(r);
                List<double> lin = linear_list(r);
                for (int i = 0; i <= 200; ++i) {
                    const double t = i / 200.0;
                    const std::vector<double> e = de_boor(r, t);
                    V_POINT a{}, b{};
                    ASSERT_EQ(c.Eval(t, &lin, &a), st::ok);
                    ASSERT_EQ(c.Eval(t, nullptr, &b), st::ok);
                    const double tol =
                        1e-11 * (1.0 + std::fabs(e[0]) + std::fabs(e[1]) + std::fabs(e[2]));
                    EXPECT_NEAR(a.x, e[0], tol) << "order " << order << " t " << t;
                    EXPECT_NEAR(a.y, e[1], tol);
                    EXPECT_NEAR(a.z, e[2], tol);
                    // Both span paths feed the same knots to the same arithmetic.
                    EXPECT_EQ(a.x, b.x);
                    EXPECT_EQ(a.y, b.y);
                    EXPECT_EQ(a.z, b.z);
                }
            }
        }
    }
}

TEST(Eval, UnevenKnots_CachedSearchAgreesWithTheMultiplicityForm)
{
    // Knots crowded at one end (t^3 spacing) with repeats: the span search over the caller's
    // list must land where the search over the multiplicity form lands.
    Ref r;
    r.order = 3;
    r.vpp = 3;
    r.T = {0, 0, 0};
    for (int i = 1; i < 300; ++i) {
        const double k = std::pow(i / 300.0, 3);
        r.T.push_back(k);
        if (i % 37 == 0) r.T.push_back(k);
    }
    r.T.insert(r.T.end(), {1, 1, 1});
    const int n = static_cast<int>(r.T.size()) - 3;
    for (int i = 0; i < 3 * n; ++i) r.Pw.push_back(std::sin(0.7 * i));
    CNurbs c = build(r);
    List<double> lin = linear_list(r);
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int i = 0; i < 3000; ++i) {
        const double t = i < 300 ? r.T[i] : u(rng);  // knots themselves, then anywhere
        V_POINT a{}, b{};
        ASSERT_EQ(c.Eval(t, &lin, &a), st::ok);
        ASSERT_EQ(c.Eval(t, nullptr, &b), st::ok);
        ASSERT_EQ(a.x, b.x) << t;
        ASSERT_EQ(a.y, b.y) << t;
        const std::vector<double> e = de_boor(r, t);
        ASSERT_NEAR(a.z, e[2], 1e-12) << t;
    }
}

TEST(Eval, DerivativesMatchCentralDifferences)
{
    std::mt19937 rng(7);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            const Ref r = random_curve(rng, order, rational != 0);
            CNurbs c = build(r);
            List<double> lin = linear_list(r);
            std::uniform_real_distribution<double> u(0.01, 0.99);
            int checked = 0;
            while (checked < 40) {
                const double t = u(rng);
                const double h1 = 1e-6, h2 = 1e-4;
                // Stay away from knots, where derivatives may jump.
                bool near = false;
                for (double k : r.T) near = near || std::fabs(k - t) < 2 * h2;
                if (near) continue;
                ++checked;
                V_POINT p{}, q{};
                V_VECTOR d1{}, d2{}, e1{};
                ASSERT_EQ(c.Eval(t, &lin, &p, &d1, &d2), st::ok);
                ASSERT_EQ(c.Eval(t, nullptr, &q, &e1), st::ok);
                const std::vector<double> f0 = de_boor(r, t);
                const std::vector<double> fp1 = de_boor(r, t + h1), fm1 = de_boor(r, t - h1);
                const std::vector<double> fp2 = de_boor(r, t + h2), fm2 = de_boor(r, t - h2);
                const double D1[3] = {d1.x, d1.y, d1.z}, D2[3] = {d2.x, d2.y, d2.z};
                const double E1[3] = {e1.x, e1.y, e1.z};
                for (int k = 0; k < 3; ++k) {
                    const double fd1 = (fp1[k] - fm1[k]) / (2 * h1);
                    const double fd2 = (fp2[k] - 2 * f0[k] + fm2[k]) / (h2 * h2);
                    EXPECT_NEAR(D1[k], fd1, 1e-5 * (1.0 + std::fabs(fd1))) << order;
                    EXPECT_NEAR(D2[k], fd2, 2e-3 * (1.0 + std::fabs(fd2))) << order;
                    EXPECT_NEAR(E1[k], D1[k], 1e-9 * (1.0 + std::fabs(D1[k])));
                }
                if (order == 1) {
                    EXPECT_EQ(d1.x, 0.0);
                }
                if (order <= 2 && rational == 0) {  // piecewise linear
                    EXPECT_EQ(d2.y, 0.0);
                }
            }
        }
    }
}

TEST(Eval, EndParameter_GivesTheEndControlPoints)
{
    std::mt19937 rng(11);
    for (int order = 2; order <= 9; ++order) {
        const Ref r = random_curve(rng, order, order % 2 == 0);
        CNurbs c = build(r);
        V_POINT a{}, b{};
        ASSERT_EQ(c.Eval(1.0, nullptr, &a), st::ok);
        ASSERT_EQ(c.Eval(0.0, nullptr, &b), st::ok);
        const int n = r.n(), V = r.vpp;
        const double wl = r.rational ? r.Pw[n * V - 1] : 1.0;
        const double wf = r.rational ? r.Pw[V - 1] : 1.0;
        EXPECT_NEAR(a.x, r.Pw[(n - 1) * V] / wl, 1e-12);
        EXPECT_NEAR(a.z, r.Pw[(n - 1) * V + 2] / wl, 1e-12);
        EXPECT_NEAR(b.y, r.Pw[1] / wf, 1e-12);
    }
}

TEST(Eval, HighOrders_MatchDeBoor)
{
    // Beyond 21 the buffers come from the heap; the result must not change.
    std::mt19937 rng(5);
    for (int order : {21, 22, 30}) {
        const Ref r = random_curve(rng, order, true);
        CNurbs c = build(r);
        List<double> lin = linear_list(r);
        for (double t : {0.0, 0.123, 0.5, 0.77, 1.0}) {
            const std::vector<double> e = de_boor(r, t);
            V_POINT a{};
            ASSERT_EQ(c.Eval(t, &lin, &a), st::ok);
            EXPECT_NEAR(a.x, e[0], 1e-9 * (1 + std::fabs(e[0])));
            EXPECT_NEAR(a.y, e[1], 1e-9 * (1 + std::fabs(e[1])));
        }
    }
}

TEST(Eval, UpToOrder21_NoAllocation)
{
    std::mt19937 rng(3);
    const Ref r = random_curve(rng, 21, true);
    CNurbs c = build(r);
    List<double> lin = linear_list(r);
    v_memptr_fail_after(0);  // any allocation would now fail
    V_POINT p{};
    V_VECTOR d1{}, d2{};
    const short with_cache = c.Eval(0.4, &lin, &p, &d1, &d2);
    const short without = c.Eval(0.4, nullptr, &p, &d1, &d2);
    v_memptr_fail_after(-1);
    EXPECT_EQ(with_cache, st::ok);
    EXPECT_EQ(without, st::ok);
}

TEST(Eval, ParametricCurve_ArrayFormOnly)
{
    std::mt19937 rng(17);
    const Ref r = random_curve(rng, 3, false, 2);
    CNurbs c = build(r, true);
    V_POINT p{};
    V_VECTOR d{};
    EXPECT_EQ(c.Eval(0.5, nullptr, &p), st::bad_input);
    EXPECT_EQ(c.Eval(0.5, nullptr, &p, &d), st::bad_input);
    EXPECT_EQ(c.Eval(0.5, nullptr, &p, &d, &d), st::bad_input);
    double uv[2] = {};
    ASSERT_EQ(c.Eval(0.3, nullptr, uv), st::ok);
    const std::vector<double> e = de_boor(r, 0.3);
    EXPECT_NEAR(uv[0], e[0], 1e-12);
    EXPECT_NEAR(uv[1], e[1], 1e-12);
}

TEST(Eval, BadParametersAndData_Refused)
{
    const Ref r = hand_cubic();
    CNurbs c = build(r);
    List<double> lin = linear_list(r);
    V_POINT p{};
    for (List<double>* l : {&lin, static_cast<List<double>*>(nullptr)}) {
        EXPECT_EQ(c.Eval(std::nan(""), l, &p), st::bad_index);
        EXPECT_EQ(c.Eval(-std::numeric_limits<double>::infinity(), l, &p), st::bad_index);
        EXPECT_EQ(c.Eval(-1e-9, l, &p), st::bad_index);
        EXPECT_EQ(c.Eval(3.0 + 1e-9, l, &p), st::bad_index);
    }
    List<double> short_list;
    short_list.Append(0.0);
    short_list.Append(3.0);
    EXPECT_EQ(c.Eval(1.0, &short_list, &p), st::bad_input);

    // A multiplicity sum that disagrees with the counts.
    CNurbs broken = build(r);
    broken.mults->items[1] = 2;
    EXPECT_EQ(broken.Eval(1.0, nullptr, &p), st::bad_input);
    CNurbs empty;
    EXPECT_EQ(empty.Eval(0.0, nullptr, &p), st::bad_input);
}

TEST(Eval, RationalWeightSumBelowMinimum_Refused)
{
    Ref r;
    r.order = 2;
    r.vpp = 4;
    r.rational = true;
    r.T = {0, 0, 1, 1};
    r.Pw = {0, 0, 0, 1e-13, 1e-13, 0, 0, 1e-13};
    CNurbs c = build(r);
    V_POINT p{};
    EXPECT_EQ(c.Eval(0.5, nullptr, &p), st::bad_input);
}

TEST(Eval, UnclampedCurve_RangeIsTheValidDomain)
{
    // Uniform knots 0..7 for a cubic with 4 points: range [3, 4].
    Ref r;
    r.order = 4;
    r.vpp = 3;
    for (int i = 0; i < 8; ++i) r.T.push_back(i);
    for (int i = 0; i < 12; ++i) r.Pw.push_back(i % 5);
    CNurbs c = build(r);
    List<double> lin = linear_list(r);
    V_POINT p{}, q{};
    EXPECT_EQ(c.Eval(2.5, &lin, &p), st::bad_index);
    EXPECT_EQ(c.Eval(2.5, nullptr, &p), st::bad_index);
    for (double t : {3.0, 3.5, 4.0}) {
        ASSERT_EQ(c.Eval(t, &lin, &p), st::ok);
        ASSERT_EQ(c.Eval(t, nullptr, &q), st::ok);
        const std::vector<double> e = de_boor(r, t);
        EXPECT_NEAR(p.x, e[0], 1e-12);
        EXPECT_EQ(p.y, q.y);
    }
    double s = 0, e = 0;
    EXPECT_EQ(c.Get_Start_End_Knots(&s, &e), st::ok);
    EXPECT_EQ(s, 3.0);
    EXPECT_EQ(e, 4.0);
}

// --- knots and control points ---

TEST(KnotAccess, ListsArraysAndLinearForm)
{
    CNurbs c = build(hand_cubic());
    List<double> v;
    List<int> m;
    ASSERT_EQ(c.Get_Knots_Vector(&v, &m), st::ok);
    ASSERT_EQ(v.Count(), 4u);
    EXPECT_EQ(v[4], 3.0);
    EXPECT_EQ(m[3], 2);
    double va[4];
    int ma[4];
    ASSERT_EQ(c.Get_Knots_Vector(va, ma), st::ok);
    EXPECT_EQ(va[1], 1.0);
    EXPECT_EQ(ma[0], 4);

    double t = 0;
    int mult = 0;
    EXPECT_EQ(c.Get_Linear_Knot(6, &t), st::ok);
    EXPECT_EQ(t, 2.0);
    EXPECT_EQ(c.Get_Linear_Knot_Mult(5, &mult), st::ok);
    EXPECT_EQ(mult, 1);
    List<double> lin;
    ASSERT_EQ(c.Get_Linear_Knots_Vector(&lin), st::ok);
    ASSERT_EQ(lin.Count(), 11u);
    EXPECT_EQ(lin[7], 2.0);
    EXPECT_EQ(lin[8], 3.0);

    // Replacing through the linear form merges values closer than the knot tolerance.
    List<double> nl;
    for (double k : {0.0, 0.0, 0.0, 0.0, 0.5, 0.5 + 5e-12, 1.0, 1.0, 1.0, 1.0}) nl.Append(k);
    ASSERT_EQ(c.Put_Linear_Knots_Vector(nl), st::ok);
    EXPECT_EQ(c.n_knots, 3);
    ASSERT_EQ(c.Get_Knot_Mult(2, &mult), st::ok);
    EXPECT_EQ(mult, 2);

    double nv[3] = {0.0, 2.0, 4.0};
    int nm[3] = {4, 3, 4};
    ASSERT_EQ(c.Put_Knots_Vector(nv, nm), st::ok);
    ASSERT_EQ(c.Get_Knot(2, &t), st::ok);
    EXPECT_EQ(t, 2.0);
    ASSERT_EQ(c.Put_Knot(3, 5.0), st::ok);
    ASSERT_EQ(c.Put_Knot_Mult(2, 1), st::ok);
    ASSERT_EQ(c.Get_Knots_Vector(&v, &m), st::ok);
    EXPECT_EQ(v[3], 5.0);
    EXPECT_EQ(m[2], 1);

    List<double> lv;
    List<int> lm;
    lv.Append(0.0);
    lm.Append(1);
    EXPECT_EQ(c.Put_Knots_Vector(lv, lm), st::bad_input);  // one knot only
    lv.Append(1.0);
    EXPECT_EQ(c.Put_Knots_Vector(lv, lm), st::bad_input);  // counts differ
    lm.Append(1);
    EXPECT_EQ(c.Put_Knots_Vector(lv, lm), st::ok);
    EXPECT_EQ(c.n_knots, 2);

    CNurbs bare;
    EXPECT_EQ(bare.Get_Knots_Vector(&v, &m), st::bad_input);
}

TEST(CptAccess, HomogeneousStorageAndWeights)
{
    CNurbs c;
    ASSERT_EQ(c.Init_As_Bezier_Curve(3), st::ok);
    c.rational = 1;
    c.vpp = 4;
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    ASSERT_EQ(c.Put_Cpt_And_Weight(1, V_POINT{1, 2, 3}, 2.0), st::ok);
    EXPECT_EQ(c.cpts->items[0], 2.0);  // stored times the weight
    EXPECT_EQ(c.cpts->items[3], 2.0);
    EXPECT_EQ(c.Put_Cpt_And_Weight(2, V_POINT{1, 1, 1}, 1e-12), st::low_weight);
    EXPECT_FALSE(c.cpts->IsSet(5));                            // nothing changed
    EXPECT_EQ(c.Put_Cpt(2, V_POINT{1, 1, 1}), st::bad_input);  // no weight stored yet
    ASSERT_EQ(c.Put_Cpt_And_Weight(2, V_POINT{0, 0, 0}, 0.5), st::ok);
    ASSERT_EQ(c.Put_Cpt(2, V_POINT{4, 6, 8}), st::ok);  // keeps the weight 0.5
    EXPECT_EQ(c.cpts->items[4], 2.0);
    V_POINT p{};
    double w = 0;
    ASSERT_EQ(c.Get_Cpt_And_Weight(2, &p, &w), st::ok);
    EXPECT_EQ(p.y, 6.0);
    EXPECT_EQ(w, 0.5);
    EXPECT_EQ(c.Get_Cpt(3, &p), st::bad_input);  // unset
    ASSERT_EQ(c.Put_Cpt_And_Weight(3, V_POINT{-1, 0, 1}, 1.0), st::ok);
    List<V_POINT> pts;
    List<double> ws;
    ASSERT_EQ(c.Get_Cpts_And_Weights(&pts, &ws), st::ok);
    ASSERT_EQ(pts.Count(), 3u);
    EXPECT_EQ(pts[1].z, 3.0);
    EXPECT_EQ(ws[2], 0.5);

    // Replacing every point switches between polynomial and rational storage.
    ASSERT_EQ(c.Put_Cpts_And_Weights(pts, nullptr), st::ok);
    EXPECT_EQ(c.rational, 0);
    EXPECT_EQ(c.vpp, 3);
    EXPECT_EQ(c.cpts->Count(), 9u);
    ws.items[0] = 1e-20;
    EXPECT_EQ(c.Put_Cpts_And_Weights(pts, &ws), st::low_weight);
    EXPECT_EQ(c.vpp, 3);
    ws.items[0] = 4.0;
    ASSERT_EQ(c.Put_Cpts_And_Weights(pts, &ws), st::ok);
    EXPECT_EQ(c.cpts->items[0], 4.0);
    ASSERT_EQ(c.Get_Cpts(&pts), st::ok);
    EXPECT_EQ(pts[1].x, 1.0);
}

TEST(GetArrays, RawStorageOfTheLists)
{
    CNurbs c = build(hand_cubic());
    double* cp = nullptr;
    double* kv = nullptr;
    int* mv = nullptr;
    ASSERT_EQ(c.Get_Arrays(&cp, &kv, &mv), st::ok);
    EXPECT_EQ(cp, c.cpts->items);
    EXPECT_EQ(kv[2], 2.0);
    EXPECT_EQ(mv[0], 4);
    CNurbs e;
    e.n_cpts = 2;
    e.vpp = 3;
    e.n_knots = 2;
    ASSERT_EQ(e.Init_Lists(true), st::ok);
    ASSERT_EQ(e.Get_Arrays(&cp, &kv, &mv), st::ok);
    EXPECT_NE(cp, nullptr);  // empty lists get their storage
    EXPECT_NE(kv, nullptr);
    EXPECT_EQ(mv, nullptr);  // no multiplicity list
}

// --- contract violations ---

TEST(AccessDeathTest, IndexAndLayoutViolations_Assert)
{
    CNurbs c = build(hand_cubic());
    double t;
    V_POINT p{};
    EXPECT_DEATH(c.Get_Knot(0, &t), "assertion failed in cs_nucu1.cpp line");
    EXPECT_DEATH(c.Put_Knot(5, 1.0), "assertion failed in cs_nucu1.cpp line");
    EXPECT_DEATH(c.Get_Cpt(8, &p), "assertion failed in cs_nucu1.cpp line");
    EXPECT_DEATH(c.Get_Linear_Knot(12, &t), "assertion failed in cs_nucu1.cpp line");
    std::mt19937 rng(1);
    CNurbs flat = build(random_curve(rng, 3, false, 2), true);
    EXPECT_DEATH(flat.Put_Cpt_And_Weight(1, p, 1.0), "assertion failed in cs_nucu1.cpp line");
}
