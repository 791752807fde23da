// Curve access, parameter search and evaluation, checked against the plain de Boor evaluator
// of curve_support.h, against central differences and against values worked out by hand.
#include "curve_support.h"
#include <limits>

using curvetest::build;
using curvetest::point;
using curvetest::Ref;
using D = std::vector<double>;
using I = std::vector<int>;

namespace {

const double kInf = std::numeric_limits<double>::infinity();

// A clamped cubic by hand: knots 0 0 0 0 1 2 2 3 3 3 3 (distinct 0 1 2 3), seven points.
Ref hand_cubic()
{
    Ref r = curvetest::make_ref(4, {0, 0, 0, 0, 1, 2, 2, 3, 3, 3, 3}, {});
    for (int i = 0; i < 7; ++i) r.Pw.insert(r.Pw.end(), {double(i), double(i * i), 1.0 - i});
    return r;
}

}  // namespace

// --- parameter search ---

TEST(ParameterSearch, IntervalSpanAndKnotPosition_FollowTheRules)
{
    const CNurbs c = build(hand_cubic());
    // t, interval (the end belongs to the last one), linear span (the last copy of the
    // interval's knot).
    const D rows[] = {{0.0, 1, 4}, {0.5, 1, 4}, {1.0, 2, 5},        {2.0, 3, 7},
                      {2.5, 3, 7}, {3.0, 3, 7}, {3.0 - 5e-12, 3, 7}};
    for (const D& row : rows) {
        int j = 0, s = 0, k = 0;
        ASSERT_EQ(c.Find_Interval(row[0], &j), st::ok) << row[0];
        ASSERT_EQ(c.Find_Span(row[0], &s), st::ok);
        ASSERT_EQ(c.FindSpan(row[0], &k), st::ok);
        EXPECT_EQ((D{double(j), double(s), double(k)}), (D{row[1], row[2], row[1]})) << row[0];
    }
    for (double t : {-1e-15, 3.0 + 1e-13, std::nan(""), kInf}) {  // no tolerance at the start
        int j = 0;
        EXPECT_EQ(c.Find_Interval(t, &j), st::bad_index) << t;
        EXPECT_EQ(c.Find_Span(t, &j), st::bad_index) << t;
    }
    short found = 9;
    int pos = 0;
    EXPECT_EQ(c.Find_Knot_Position(2.0 + 5e-12, &found, &pos), st::ok);
    EXPECT_EQ((I{found, pos}), (I{1, 3}));
    EXPECT_EQ(c.Find_Knot_Position(std::nan(""), &found, &pos), st::bad_index);

    // 200 distinct knots with uneven spacing: every interval is found near both of its ends.
    Ref r;
    r.order = 2;
    r.T = {0};
    for (int i = 0; i < 200; ++i) r.T.push_back(i * i * 0.01);
    r.T.push_back(r.T.back());
    r.Pw.assign(3 * (r.T.size() - 2), 0.0);
    const CNurbs many = build(r);
    for (int i = 1; i < 200; ++i) {
        for (double f : {0.0, 0.3, 0.999}) {
            int j = 0;
            ASSERT_EQ(many.Find_Interval(r.T[i] + f * (r.T[i + 1] - r.T[i]), &j), st::ok);
            EXPECT_EQ(j, i);
        }
    }
}

// --- evaluation ---

TEST(Eval, RandomCurvesOfAnyOrder_MatchDeBoorWithAndWithoutLinearKnots)
{
    std::mt19937 rng(20240611);
    for (int order : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 21, 22, 30}) {
        for (int rational = 0; rational <= 1; ++rational) {
            for (int rep = 0; rep < (order > 10 ? 1 : 4); ++rep) {
                // The last curve of each kind has interior knots of full multiplicity.
                const Ref r = curvetest::random_curve(rng, order, rational, order - (rep < 3));
                const CNurbs c = build(r);
                List<double> lin = curvetest::list_of(r.T);
                for (int i = 0; i <= 200; ++i) {
                    const double t = i / 200.0;
                    const std::vector<double> e = point(r, t);
                    V_POINT a{}, b{};
                    ASSERT_EQ(c.Eval(t, &lin, &a), st::ok);
                    ASSERT_EQ(c.Eval(t, nullptr, &b), st::ok);
                    const double tol =
                        1e-11 * (1 + std::fabs(e[0]) + std::fabs(e[1]) + std::fabs(e[2]));
                    EXPECT_NEAR(a.x, e[0], tol) << "order " << order << " t " << t;
                    EXPECT_NEAR(a.y, e[1], tol);
                    EXPECT_NEAR(a.z, e[2], tol);
                    // Both span paths feed the same knots to the same arithmetic.
                    EXPECT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z) << t;
                }
            }
        }
    }
}

TEST(Eval, CrowdedKnots_CachedSearchAgreesWithTheMultiplicityForm)
{
    // Knots crowded at one end (t^3 spacing) with repeats: the span search over the caller's
    // list must land where the search over the multiplicity form lands.
    Ref r;
    r.order = 3;
    r.T = {0, 0, 0};
    for (int i = 1; i < 300; ++i) {
        r.T.push_back(std::pow(i / 300.0, 3));
        if (i % 37 == 0) r.T.push_back(r.T.back());
    }
    r.T.insert(r.T.end(), {1, 1, 1});
    for (size_t i = 0; i < 3 * (r.T.size() - 3); ++i) r.Pw.push_back(std::sin(0.7 * i));
    const CNurbs c = build(r);
    List<double> lin = curvetest::list_of(r.T);
    std::mt19937 rng(4);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int i = 0; i < 3000; ++i) {
        const double t = i < 300 ? r.T[i] : u(rng);  // the knots themselves, then anywhere
        V_POINT a{}, b{};
        ASSERT_EQ(c.Eval(t, &lin, &a), st::ok);
        ASSERT_EQ(c.Eval(t, nullptr, &b), st::ok);
        ASSERT_TRUE(a.x == b.x && a.y == b.y) << t;
        ASSERT_NEAR(a.z, point(r, t)[2], 1e-12) << t;
    }
}

TEST(Eval, DerivativesMatchCentralDifferences)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.01, 0.99);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            const Ref r = curvetest::random_curve(rng, order, rational, order - 1);
            const CNurbs c = build(r);
            List<double> lin = curvetest::list_of(r.T);
            const auto f = [&](double t) { return point(r, t); };
            for (int checked = 0; checked < 40;) {
                const double t = u(rng), h1 = 1e-6, h2 = 1e-4;
                // Stay away from knots, where derivatives may jump.
                if (std::any_of(r.T.begin(), r.T.end(),
                                [&](double k) { return std::fabs(k - t) < 2 * h2; }))
                    continue;
                ++checked;
                V_POINT p{}, q{};
                V_VECTOR d1{}, d2{}, e1{};
                ASSERT_EQ(c.Eval(t, &lin, &p, &d1, &d2), st::ok);
                ASSERT_EQ(c.Eval(t, nullptr, &q, &e1), st::ok);
                const curvetest::Differences a = curvetest::central_differences(f, t, h1);
                const curvetest::Differences b = curvetest::central_differences(f, t, h2);
                const double D1[3] = {d1.x, d1.y, d1.z}, D2[3] = {d2.x, d2.y, d2.z};
                const double E1[3] = {e1.x, e1.y, e1.z};
                for (int k = 0; k < 3; ++k) {
                    EXPECT_NEAR(D1[k], a.d1[k], 1e-5 * (1 + std::fabs(a.d1[k]))) << order;
                    EXPECT_NEAR(D2[k], b.d2[k], 2e-3 * (1 + std::fabs(b.d2[k]))) << order;
                    EXPECT_NEAR(E1[k], D1[k], 1e-9 * (1 + std::fabs(D1[k])));
                }
            }
        }
    }
}

TEST(Eval, OrdersUpTo21WithoutAllocation_ParametricArrayForm)
{
    std::mt19937 rng(3);
    const CNurbs c = build(curvetest::random_curve(rng, 21, true, 20));
    List<double> lin;
    ASSERT_EQ(c.Get_Linear_Knots_Vector(&lin), st::ok);
    v_memptr_fail_after(0);  // any allocation would now fail
    V_POINT p{};
    V_VECTOR d1{}, d2{};
    const short with_list = c.Eval(0.4, &lin, &p, &d1, &d2);
    const short without = c.Eval(0.4, nullptr, &p, &d1, &d2);
    v_memptr_fail_after(-1);
    EXPECT_EQ((I{with_list, without}), (I{st::ok, st::ok}));

    const Ref r = curvetest::random_curve(rng, 3, false, 2, 2);  // a (U, V) curve
    const CNurbs uv = build(r, true);
    EXPECT_EQ((I{uv.Eval(0.5, nullptr, &p), uv.Eval(0.5, nullptr, &p, &d1),
                 uv.Eval(0.5, nullptr, &p, &d1, &d2)}),
              (I{st::bad_input, st::bad_input, st::bad_input}));  // 3-D forms of a (U, V) curve
    double out[2] = {};
    ASSERT_EQ(uv.Eval(0.3, nullptr, out), st::ok);
    EXPECT_NEAR(out[0], point(r, 0.3)[0], 1e-12);
    EXPECT_NEAR(out[1], point(r, 0.3)[1], 1e-12);
}

TEST(Eval, BadParametersDataAndWeights_Refused)
{
    const Ref r = hand_cubic();
    const CNurbs c = build(r);
    List<double> lin = curvetest::list_of(r.T);
    V_POINT p{};
    for (List<double>* l : {&lin, static_cast<List<double>*>(nullptr)}) {
        for (double t : {std::nan(""), -kInf, -1e-9, 3.0 + 1e-9})
            EXPECT_EQ(c.Eval(t, l, &p), st::bad_index) << t;
    }
    List<double> two = curvetest::list_of<double>({0.0, 3.0});
    EXPECT_EQ(c.Eval(1.0, &two, &p), st::bad_input);  // linear knots of the wrong count
    CNurbs broken = build(r);
    broken.mults->items[1] = 2;  // a multiplicity sum that disagrees with the counts
    EXPECT_EQ(broken.Eval(1.0, nullptr, &p), st::bad_input);
    EXPECT_EQ(CNurbs().Eval(0.0, nullptr, &p), st::bad_input);
    // Weights of 1e-13 sum below the minimum weight.
    const Ref light =
        curvetest::make_ref(2, {0, 0, 1, 1}, {0, 0, 0, 1e-13, 1e-13, 0, 0, 1e-13}, 4, true);
    EXPECT_EQ(build(light).Eval(0.5, nullptr, &p), st::bad_input);

    // Uniform knots 0..7 for a cubic with 4 points: the range is [3, 4].
    Ref u = curvetest::make_ref(4, {0, 1, 2, 3, 4, 5, 6, 7}, {});
    for (int i = 0; i < 12; ++i) u.Pw.push_back(i % 5);
    const CNurbs uc = build(u);
    List<double> ul = curvetest::list_of(u.T);
    EXPECT_EQ(uc.Eval(2.5, &ul, &p), st::bad_index);
    EXPECT_EQ(uc.Eval(2.5, nullptr, &p), st::bad_index);
    for (double t : {3.0, 3.5, 4.0}) {
        V_POINT q{};
        ASSERT_EQ(uc.Eval(t, &ul, &p), st::ok);
        ASSERT_EQ(uc.Eval(t, nullptr, &q), st::ok);
        EXPECT_NEAR(p.x, point(u, t)[0], 1e-12);
        EXPECT_EQ(p.y, q.y);
    }
    double s = 0, e = 0;
    EXPECT_EQ(uc.Get_Start_End_Knots(&s, &e), st::ok);
    EXPECT_EQ((D{s, e}), (D{3, 4}));
}

// --- knots and control points ---

TEST(KnotAccess, LinearFormsReplacementsAndRawArrays)
{
    CNurbs c = build(hand_cubic());
    List<double> lin;
    ASSERT_EQ(c.Get_Linear_Knots_Vector(&lin), st::ok);
    EXPECT_EQ(curvetest::items(lin), hand_cubic().T);
    // Replacing through the linear form merges values closer than the knot tolerance.
    List<double> nl = curvetest::list_of<double>({0, 0, 0, 0, 0.5, 0.5 + 5e-12, 1, 1, 1, 1});
    ASSERT_EQ(c.Put_Linear_Knots_Vector(nl), st::ok);
    EXPECT_EQ(curvetest::items(*c.mults), (I{4, 2, 4}));
    EXPECT_EQ(c.n_knots, 3);
    List<double> lv = curvetest::list_of<double>({0.0});
    List<int> lm = curvetest::list_of<int>({1});
    EXPECT_EQ(c.Put_Knots_Vector(lv, lm), st::bad_input);  // one knot only
    lv.Append(1.0);
    EXPECT_EQ(c.Put_Knots_Vector(lv, lm), st::bad_input);  // counts differ
    lm.Append(1);
    ASSERT_EQ(c.Put_Knots_Vector(lv, lm), st::ok);
    EXPECT_EQ(c.n_knots, 2);
    EXPECT_EQ(CNurbs().Get_Knots_Vector(&lv, &lm), st::bad_input);
    CNurbs e;  // empty lists get their storage; a missing list gives null
    e.n_cpts = e.n_knots = 2;
    e.vpp = 3;
    ASSERT_EQ(e.Init_Lists(true), st::ok);
    double* cp = nullptr;
    double* kv = nullptr;
    int* mv = nullptr;
    ASSERT_EQ(e.Get_Arrays(&cp, &kv, &mv), st::ok);
    EXPECT_TRUE(cp && kv && !mv);
}

TEST(CptAccess, HomogeneousStorageAndWeights)
{
    CNurbs c;
    ASSERT_EQ(c.Init_As_Bezier_Curve(3), st::ok);
    c.rational = 1;
    c.vpp = 4;
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    ASSERT_EQ(c.Put_Cpt_And_Weight(1, V_POINT{1, 2, 3}, 2.0), st::ok);
    EXPECT_EQ(curvetest::items(*c.cpts), (D{2, 4, 6, 2}));
    EXPECT_EQ(c.Put_Cpt_And_Weight(2, V_POINT{1, 1, 1}, 1e-12), st::low_weight);
    EXPECT_FALSE(c.cpts->IsSet(5));                            // nothing changed
    EXPECT_EQ(c.Put_Cpt(2, V_POINT{1, 1, 1}), st::bad_input);  // no weight stored yet
    ASSERT_EQ(c.Put_Cpt_And_Weight(2, V_POINT{0, 0, 0}, 0.5), st::ok);
    ASSERT_EQ(c.Put_Cpt(2, V_POINT{4, 6, 8}), st::ok);  // keeps the weight 0.5
    EXPECT_EQ(c.cpts->items[4], 2.0);
    V_POINT p{};
    double w = 0;
    ASSERT_EQ(c.Get_Cpt_And_Weight(2, &p, &w), st::ok);
    EXPECT_EQ((D{p.y, w}), (D{6, 0.5}));
    EXPECT_EQ(c.Get_Cpt(3, &p), st::bad_input);  // unset
    ASSERT_EQ(c.Put_Cpt_And_Weight(3, V_POINT{-1, 0, 1}, 1.0), st::ok);
    List<V_POINT> pts;
    List<double> ws;
    ASSERT_EQ(c.Get_Cpts_And_Weights(&pts, &ws), st::ok);
    ASSERT_EQ(pts.Count(), 3u);
    EXPECT_EQ((D{pts[1].z, ws[2]}), (D{3, 0.5}));
    // Replacing every point switches between polynomial and rational storage.
    ASSERT_EQ(c.Put_Cpts_And_Weights(pts, nullptr), st::ok);
    EXPECT_EQ((I{c.rational, c.vpp, int(c.cpts->Count())}), (I{0, 3, 9}));
    ws.items[0] = 1e-20;
    EXPECT_EQ(c.Put_Cpts_And_Weights(pts, &ws), st::low_weight);
    ws.items[0] = 4.0;
    v_memptr_fail_after(0);
    EXPECT_EQ(c.Put_Cpts_And_Weights(pts, &ws), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ((I{c.rational, c.vpp, int(c.cpts->Count())}), (I{0, 3, 9}));  // unchanged
    ASSERT_EQ(c.Put_Cpts_And_Weights(pts, &ws), st::ok);
    EXPECT_EQ(c.cpts->items[0], 4.0);
    ASSERT_EQ(c.Get_Cpts(&pts), st::ok);
    EXPECT_EQ(pts[1].x, 1.0);
}

TEST(AccessDeathTest, IndexAndLayoutViolations_Assert)
{
    const CNurbs c = build(hand_cubic());
    CNurbs m = c;
    double t;
    V_POINT p{};
    const char* msg = "assertion failed in cs_nucu1.cpp line";
    EXPECT_DEATH(c.Get_Knot(0, &t), msg);
    EXPECT_DEATH(m.Put_Knot(5, 1.0), msg);
    EXPECT_DEATH(c.Get_Cpt(8, &p), msg);
    EXPECT_DEATH(c.Get_Linear_Knot(12, &t), msg);
    std::mt19937 rng(1);
    CNurbs flat = build(curvetest::random_curve(rng, 3, false, 2, 2), true);
    EXPECT_DEATH(flat.Put_Cpt_And_Weight(1, p, 1.0), msg);
}
