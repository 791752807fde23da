// Knot insertion, refinement and removal: the shape is checked against a plain de Boor
// evaluation of the original curve, the rules for existing knots by hand.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

struct Ref {
    int order = 0;
    int vpp = 0;
    bool rational = false;
    std::vector<double> T;   // linear knots
    std::vector<double> Pw;  // homogeneous values
    int n() const { return static_cast<int>(Pw.size()) / vpp; }
};

CNurbs build(const Ref& r)
{
    CNurbs c;
    c.order = r.order;
    c.n_cpts = r.n();
    c.vpp = r.vpp;
    c.rational = r.rational ? 1 : 0;
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

// de Boor on the homogeneous points; Cartesian result.
std::vector<double> de_boor(const Ref& r, double t)
{
    const int p = r.order - 1, n = r.n(), V = r.vpp;
    const std::vector<double>& T = r.T;
    int k;
    if (t >= T[n]) {
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
    const int dim = r.rational ? V - 1 : V;
    std::vector<double> out(dim);
    for (int c = 0; c < dim; ++c) out[c] = d[p][c] / (r.rational ? d[p][V - 1] : 1.0);
    return out;
}

Ref random_curve(std::mt19937& rng, int order, bool rational)
{
    Ref r;
    r.order = order;
    r.rational = rational;
    r.vpp = rational ? 4 : 3;
    std::uniform_int_distribution<int> extra(0, 10);
    const int n = std::max(2, order + extra(rng));
    std::uniform_real_distribution<double> u01(0.0, 1.0);
    std::uniform_int_distribution<int> mult(1, std::max(1, order - 1));
    std::vector<double> interior;
    while (static_cast<int>(interior.size()) < n - order) {
        const double v = 0.05 + 0.9 * u01(rng);
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
        for (int c = 0; c < 3; ++c) r.Pw.push_back(coord(rng) * w);
        if (rational) r.Pw.push_back(w);
    }
    return r;
}

// The curve's point at 1000 parameters agrees with the reference curve.
void expect_same_shape(const CNurbs& c, const Ref& r, double tol = 1e-10)
{
    for (int i = 0; i < 1000; ++i) {
        const double t = i / 999.0;
        V_POINT p{};
        ASSERT_EQ(c.Eval(t, nullptr, &p), st::ok) << t;
        const std::vector<double> e = de_boor(r, t);
        const double s = tol * (1.0 + std::fabs(e[0]) + std::fabs(e[1]) + std::fabs(e[2]));
        ASSERT_NEAR(p.x, e[0], s) << "t " << t << " order " << r.order;
        ASSERT_NEAR(p.y, e[1], s) << "t " << t;
        ASSERT_NEAR(p.z, e[2], s) << "t " << t;
    }
}

// Counts, knots and control values agree (values within tol).
void expect_same_curve(const CNurbs& a, const CNurbs& b, double tol = 0.0)
{
    ASSERT_EQ(a.n_cpts, b.n_cpts);
    ASSERT_EQ(a.n_knots, b.n_knots);
    for (int k = 0; k < a.n_knots; ++k) {
        EXPECT_EQ(a.knots->items[k], b.knots->items[k]);
        EXPECT_EQ(a.mults->items[k], b.mults->items[k]);
    }
    for (int k = 0; k < a.n_cpts * a.vpp; ++k) {
        EXPECT_NEAR(a.cpts->items[k], b.cpts->items[k], tol) << k;
    }
}

int mult_of(const CNurbs& c, double u)
{
    for (int k = 0; k < c.n_knots; ++k) {
        if (c.knots->items[k] == u) return c.mults->items[k];
    }
    return 0;
}

// Clamped cubic on [0, 1] with the single interior knot 0.5; six points.
Ref cubic_with_half()
{
    Ref r;
    r.order = 4;
    r.vpp = 3;
    r.T = {0, 0, 0, 0, 0.25, 0.5, 1, 1, 1, 1};
    for (int i = 0; i < 6; ++i) {
        r.Pw.push_back(i);
        r.Pw.push_back((i % 2) * 3.0);
        r.Pw.push_back(-i * 0.5);
    }
    return r;
}

}  // namespace

// --- insertion ---

TEST(InsertKnot, ExistingKnot_MultiplicityActsAsATarget)
{
    const Ref r = cubic_with_half();
    CNurbs c = build(r);
    const CNurbs before = c;
    EXPECT_EQ(c.InsertKnot(0.5, 1), st::ok);  // already there once: nothing to do
    expect_same_curve(c, before);

    CNurbs two = build(r);
    ASSERT_EQ(two.InsertKnot(0.5, 2), st::ok);
    EXPECT_EQ(two.n_cpts, 8);
    EXPECT_EQ(mult_of(two, 0.5), 3);
    expect_same_shape(two, r);

    CNurbs three = build(r);
    ASSERT_EQ(three.InsertKnot(0.5, 3), st::ok);  // capped at order - 1 = 3 copies
    expect_same_curve(three, two);

    CNurbs full = two;
    const CNurbs snap = full;
    EXPECT_EQ(full.InsertKnot(0.5, 3), st::ok);  // already order - 1 copies
    expect_same_curve(full, snap);
}

TEST(InsertKnot, JustBelowAKnot_UsesThatKnot)
{
    const Ref r = cubic_with_half();
    CNurbs c = build(r);
    ASSERT_EQ(c.InsertKnot(0.5 - 5e-12, 2), st::ok);
    EXPECT_EQ(c.n_knots, 4);  // no new distinct knot
    EXPECT_EQ(mult_of(c, 0.5), 3);
    CNurbs d = build(r);
    ASSERT_EQ(d.InsertKnot(0.5, 2), st::ok);
    expect_same_curve(c, d);
}

TEST(InsertKnot, NewKnot_TakesExactlyRCopies)
{
    const Ref r = cubic_with_half();
    CNurbs c = build(r);
    ASSERT_EQ(c.InsertKnot(0.75, 6), st::ok);  // beyond order - 1: carried out as asked
    EXPECT_EQ(c.n_cpts, 12);
    EXPECT_EQ(mult_of(c, 0.75), 6);
    expect_same_shape(c, r);
    CNurbs d = build(r);
    ASSERT_EQ(d.InsertKnot(0.1, 1), st::ok);
    EXPECT_EQ(d.n_knots, 5);
    EXPECT_EQ(d.knots->items[1], 0.1);
    expect_same_shape(d, r);
}

TEST(InsertKnot, BoehmByHand_QuadraticMidpoint)
{
    // Quadratic Bezier P0 P1 P2 with u = 0.5 inserted once: P0, (P0+P1)/2, (P1+P2)/2, P2.
    Ref r;
    r.order = 3;
    r.vpp = 3;
    r.T = {0, 0, 0, 1, 1, 1};
    r.Pw = {0, 0, 0, 2, 4, 0, 4, 0, 2};
    CNurbs c = build(r);
    ASSERT_EQ(c.InsertKnot(0.5, 1), st::ok);
    const double want[] = {0, 0, 0, 1, 2, 0, 3, 2, 1, 4, 0, 2};
    ASSERT_EQ(c.n_cpts, 4);
    for (int k = 0; k < 12; ++k) EXPECT_DOUBLE_EQ(c.cpts->items[k], want[k]) << k;
}

TEST(InsertKnot, RandomCurves_KeepTheirShape)
{
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            for (int rep = 0; rep < 3; ++rep) {
                const Ref r = random_curve(rng, order, rational != 0);
                CNurbs c = build(r);
                const int copies = 1 + static_cast<int>(u(rng) * order);
                const int n0 = c.n_cpts;
                ASSERT_EQ(c.InsertKnot(u(rng), copies), st::ok);
                EXPECT_EQ(c.n_cpts, n0 + copies);
                expect_same_shape(c, r);
                // And again at an existing interior knot, when there is one.
                if (c.n_knots > 2) {
                    ASSERT_EQ(c.InsertKnot(c.knots->items[1], order), st::ok);
                    expect_same_shape(c, r);
                }
            }
        }
    }
}

TEST(InsertKnot, OutOfRangeOrBadInput_Refused)
{
    CNurbs c = build(cubic_with_half());
    const CNurbs before = c;
    EXPECT_EQ(c.InsertKnot(-1e-12, 1), st::bad_index);
    EXPECT_EQ(c.InsertKnot(1.0 + 1e-9, 1), st::bad_index);
    EXPECT_EQ(c.InsertKnot(std::nan(""), 1), st::bad_index);
    EXPECT_EQ(c.InsertKnot(0.3, 0), st::bad_input);
    EXPECT_EQ(c.InsertKnot(1.0, 2), st::ok);  // the clamped end is already full
    expect_same_curve(c, before);
    CNurbs empty;
    EXPECT_EQ(empty.InsertKnot(0.5, 1), st::bad_input);
}

// --- refinement ---

TEST(KnotRefinement, RandomCurves_KeepTheirShape)
{
    std::mt19937 rng(99);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            const Ref r = random_curve(rng, order, rational != 0);
            CNurbs c = build(r);
            // New knots on a grid plus one existing interior knot (when there is one).
            std::vector<double> xs;
            for (int i = 1; i <= 5; ++i) xs.push_back(i / 6.0 + 0.01 * u(rng));
            if (c.n_knots > 2) xs.push_back(c.knots->items[1]);
            std::sort(xs.begin(), xs.end());
            List<double> v;
            List<int> m;
            int added = 0;
            for (double x : xs) {
                const int room = order - mult_of(c, x);
                const int k = std::max(1, std::min(room, 1 + static_cast<int>(u(rng) * 2)));
                if (room < 1) continue;
                v.Append(x);
                m.Append(k);
                added += k;
            }
            const int n0 = c.n_cpts;
            ASSERT_EQ(c.knot_refinement(v, m), st::ok) << order;
            EXPECT_EQ(c.n_cpts, n0 + added);
            expect_same_shape(c, r);
        }
    }
}

TEST(KnotRefinement, SameAsRepeatedInsertion)
{
    std::mt19937 rng(5);
    const Ref r = random_curve(rng, 5, true);
    CNurbs a = build(r), b = build(r);
    List<double> v;
    List<int> m;
    v.Append(0.2);
    m.Append(2);
    v.Append(0.7);
    m.Append(1);
    ASSERT_EQ(a.knot_refinement(v, m), st::ok);
    ASSERT_EQ(b.InsertKnot(0.2, 2), st::ok);
    ASSERT_EQ(b.InsertKnot(0.7, 1), st::ok);
    expect_same_curve(a, b, 1e-12);
}

TEST(KnotRefinement, BadLists_Refused)
{
    CNurbs c = build(cubic_with_half());
    const CNurbs before = c;
    List<double> v;
    List<int> m;
    EXPECT_EQ(c.knot_refinement(v, m), st::ok);  // nothing to add
    v.Append(0.6);
    m.Append(1);
    v.Append(0.3);
    m.Append(1);
    EXPECT_EQ(c.knot_refinement(v, m), st::bad_input);  // not increasing
    v.Clear();
    m.Clear();
    v.Append(1.5);
    m.Append(1);
    EXPECT_EQ(c.knot_refinement(v, m), st::bad_index);
    v.Clear();
    m.Clear();
    v.Append(0.5);
    m.Append(4);
    EXPECT_EQ(c.knot_refinement(v, m), st::bad_input);  // 5 copies in a cubic
    m.Append(1);
    EXPECT_EQ(c.knot_refinement(v, m), st::bad_input);  // counts differ
    expect_same_curve(c, before);
}

// --- removal ---

TEST(RemoveKnot, JustInsertedKnot_RestoresTheCurve)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            const Ref r = random_curve(rng, order, rational != 0);
            const CNurbs original = build(r);
            CNurbs c = original;
            double x = u(rng);
            while (mult_of(c, x) != 0) x = u(rng);
            const int copies = std::max(1, order - 1);
            ASSERT_EQ(c.InsertKnot(x, copies), st::ok);
            int removed = -1;
            ASSERT_EQ(c.RemoveKnot(x, copies + 3, &removed, 1e-16), st::ok) << order;
            EXPECT_EQ(removed, copies);
            expect_same_curve(c, original, 1e-9);
            expect_same_shape(c, r);
        }
    }
}

TEST(RemoveKnot, BeyondTheOrder_DropsUnsupportedPoints)
{
    const Ref r = cubic_with_half();
    CNurbs c = build(r);
    ASSERT_EQ(c.InsertKnot(0.75, 6), st::ok);
    int removed = 0;
    ASSERT_EQ(c.RemoveKnot(0.75, 6, &removed, 1e-16), st::ok);
    EXPECT_EQ(removed, 6);
    expect_same_curve(c, build(r), 1e-10);
}

TEST(RemoveKnot, NeededKnot_StaysUnlessToleranceAllows)
{
    const Ref r = cubic_with_half();
    CNurbs c = build(r);
    const CNurbs before = c;
    int removed = -1;
    EXPECT_EQ(c.RemoveKnot(0.25, 1, &removed, 1e-6), st::bad_input);
    EXPECT_EQ(removed, 0);
    expect_same_curve(c, before);
    // The tolerance is a squared distance: a large one lets the knot go.
    ASSERT_EQ(c.RemoveKnot(0.25, 1, &removed, 1e6), st::ok);
    EXPECT_EQ(removed, 1);
    EXPECT_EQ(c.n_cpts, 5);
    EXPECT_EQ(c.n_knots, 3);
}

TEST(RemoveKnot, ToleranceIsASquaredDistance)
{
    // Polyline (0,0,0) (1,0.5,0) (2,0,0) with the knot 0.5: without it the middle point
    // would be the midpoint (1,0,0), at distance 0.5, squared 0.25.
    Ref r;
    r.order = 2;
    r.vpp = 3;
    r.T = {0, 0, 0.5, 1, 1};
    r.Pw = {0, 0, 0, 1, 0.5, 0, 2, 0, 0};
    CNurbs c = build(r);
    int removed = -1;
    EXPECT_EQ(c.RemoveKnot(0.5, 1, &removed, 0.2), st::bad_input);
    ASSERT_EQ(c.RemoveKnot(0.5, 1, &removed, 0.3), st::ok);  // 0.25 <= 0.3 although 0.5 > 0.3
    EXPECT_EQ(removed, 1);
    ASSERT_EQ(c.n_cpts, 2);
    EXPECT_EQ(c.cpts->items[3], 2.0);
    EXPECT_EQ(c.cpts->items[4], 0.0);
}

TEST(RemoveKnot, Guards_WeightsMagnitudeRangeAndKnots)
{
    // Weights of 5e-10 lie below 100 times the minimum weight: never removable.
    Ref light = cubic_with_half();
    light.rational = true;
    light.vpp = 4;
    light.Pw.clear();
    for (int i = 0; i < 6; ++i) {
        const double w = 5e-10;
        light.Pw.insert(light.Pw.end(), {i * w, (i % 2) * w, 0.0, w});
    }
    CNurbs c = build(light);
    ASSERT_EQ(c.InsertKnot(0.75, 1), st::ok);
    int removed = -1;
    EXPECT_EQ(c.RemoveKnot(0.75, 1, &removed, 1e-6), st::bad_input);
    EXPECT_EQ(removed, 0);

    // Coordinates of 5000 and beyond are never removed either.
    Ref big = cubic_with_half();
    for (double& v : big.Pw) v += 6000.0;
    CNurbs b = build(big);
    ASSERT_EQ(b.InsertKnot(0.75, 1), st::ok);
    EXPECT_EQ(b.RemoveKnot(0.75, 1, &removed, 1e-6), st::bad_input);

    CNurbs d = build(cubic_with_half());
    EXPECT_EQ(d.RemoveKnot(-1e-12, 1, &removed, 1.0), st::bad_index);
    EXPECT_EQ(d.RemoveKnot(std::nan(""), 1, &removed, 1.0), st::bad_index);
    EXPECT_EQ(d.RemoveKnot(0.3, 1, &removed, 1e9), st::bad_input);    // not a knot
    EXPECT_EQ(d.RemoveKnot(0.0, 1, &removed, 1e9), st::bad_input);    // an end knot
    EXPECT_EQ(d.RemoveKnot(0.25, 0, &removed, 1e9), st::bad_input);   // nothing asked
    EXPECT_EQ(d.RemoveKnot(0.25 - 5e-12, 1, &removed, 1e9), st::ok);  // within tolerance
}

// --- failures leave the curve as it was ---

TEST(KnotOperations, AllocationFailures_LeaveTheCurveUnchanged)
{
    std::mt19937 rng(3);
    const Ref r = random_curve(rng, 4, true);
    const CNurbs original = build(r);
    const long live = v_memptr_live_count();
    for (int op = 0; op < 3; ++op) {
        bool succeeded = false;
        for (long n = 0; n < 60 && !succeeded; ++n) {
            CNurbs c = original;
            CNurbs withknot = original;
            ASSERT_EQ(withknot.InsertKnot(0.37, 2), st::ok);
            List<double> v;
            List<int> m;
            v.Append(0.37);
            m.Append(2);
            int removed = 0;
            v_memptr_fail_after(n);
            short rc;
            if (op == 0)
                rc = c.InsertKnot(0.37, 2);
            else if (op == 1)
                rc = c.knot_refinement(v, m);
            else
                rc = withknot.RemoveKnot(0.37, 2, &removed, 1e-16);
            v_memptr_fail_after(-1);
            if (rc == st::ok) {
                succeeded = true;
            } else {
                if (op < 2)
                    expect_same_curve(c, original);
                else
                    EXPECT_EQ(withknot.n_cpts, original.n_cpts + 2);
                EXPECT_TRUE(rc == st::bad_input || rc == st::no_memory) << rc;
            }
        }
        EXPECT_TRUE(succeeded) << op;
    }
    EXPECT_EQ(v_memptr_live_count(), live);
}
