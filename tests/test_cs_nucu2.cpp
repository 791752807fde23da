// Knot insertion, refinement and removal: the shape is checked against a plain de Boor
// evaluation of the original curve at 1000 parameters, the rules for existing knots by hand.
#include "curve_support.h"
#include "io_support.h"

using curvetest::build;
using curvetest::expect_same_lists;
using curvetest::expect_same_shape;
using curvetest::mult_of;
using curvetest::Ref;
using I = std::vector<int>;

namespace {

using RemoveKnotTest = testsupport::LeakFree;  // restores tavotoll

// Clamped cubic on [0, 1] with the interior knots 0.25 and 0.5; six points.
Ref cubic()
{
    Ref r = curvetest::make_ref(4, {0, 0, 0, 0, 0.25, 0.5, 1, 1, 1, 1}, {});
    for (int i = 0; i < 6; ++i) r.Pw.insert(r.Pw.end(), {double(i), (i % 2) * 3.0, -i * 0.5});
    return r;
}

}  // namespace

// --- insertion ---

TEST(InsertKnot, ExistingKnotsTakeATarget_NewKnotsExactlyRCopies)
{
    const Ref r = cubic();
    const CNurbs original = build(r);
    CNurbs c = original;
    EXPECT_EQ(c.InsertKnot(0.5, 1), st::ok);  // there once already: s >= r inserts nothing
    EXPECT_EQ(c.InsertKnot(0.5, 0), st::ok);  // so does asking for none
    expect_same_lists(c, original);
    CNurbs two = original;
    ASSERT_EQ(two.InsertKnot(0.5, 2), st::ok);
    EXPECT_EQ((I{two.n_cpts, mult_of(two, 0.5)}), (I{8, 3}));  // 2 more points, 3 copies
    expect_same_shape(two, r);
    // Worked on a copy of the curve: the control list keeps its growth step; the knot lists
    // grow by their count (4 distinct knots here, 5 after a new one).
    EXPECT_EQ((I{int(two.cpts->grow_by), int(two.knots->grow_by), int(two.mults->grow_by)}),
              (I{int(original.cpts->grow_by), 4, 4}));
    CNurbs three = original;
    ASSERT_EQ(three.InsertKnot(0.5, 3), st::ok);  // capped at order - 1 = 3 copies
    expect_same_lists(three, two);
    CNurbs full = two;
    EXPECT_EQ(full.InsertKnot(0.5, 3), st::ok);  // already order - 1 copies
    expect_same_lists(full, two);
    CNurbs below = original;  // within the knot tolerance below a knot: that knot
    ASSERT_EQ(below.InsertKnot(0.5 - 5e-12, 2), st::ok);
    expect_same_lists(below, two);
    CNurbs fresh = original;
    ASSERT_EQ(fresh.InsertKnot(0.75, 6), st::ok);  // a new knot: not capped
    EXPECT_EQ((I{fresh.n_cpts, mult_of(fresh, 0.75), int(fresh.knots->grow_by)}), (I{12, 6, 5}));
    expect_same_shape(fresh, r);
    // Copies beyond the order leave points without support: they go without a test.
    int removed = 0;
    ASSERT_EQ(fresh.RemoveKnot(0.75, 6, &removed, 1e-16), st::ok);
    EXPECT_EQ(removed, 6);
    expect_same_lists(fresh, original, 1e-10);
}

TEST(InsertKnot, BadParametersAndRefinementLists_RefusedCurveUnchanged)
{
    CNurbs c = build(cubic());
    const CNurbs before = c;
    using L = List<double>;
    using M = List<int>;
    const auto refine = [&](L v, M m) { return c.knot_refinement(v, m); };
    const auto lst = [](std::initializer_list<double> v) { return curvetest::list_of<double>(v); };
    const auto mls = [](std::initializer_list<int> m) { return curvetest::list_of<int>(m); };
    // clang-format off
    const std::pair<short, short> rows[] = {
        {c.InsertKnot(-1e-12, 1), st::bad_index},                   // before the start
        {c.InsertKnot(1.0 + 1e-9, 1), st::bad_index},               // after the end
        {c.InsertKnot(std::nan(""), 1), st::bad_index},             // not a number
        {c.InsertKnot(0.3, 0), st::bad_input},                      // nothing asked
        {c.InsertKnot(1.0, 2), st::ok},                             // the clamped end is full
        {CNurbs().InsertKnot(0.5, 1), st::bad_input},               // no curve
        {refine(L(), M()), st::ok},                                 // nothing to add
        {refine(lst({0.6, 0.3}), mls({1, 1})), st::bad_input},      // not increasing
        {refine(lst({1.5}), mls({1})), st::bad_index},              // outside the range
        {refine(lst({0.5}), mls({4})), st::bad_input},              // 5 copies in a cubic
        {refine(lst({0.5}), mls({1, 1})), st::bad_input}};          // counts differ
    // clang-format on
    for (size_t k = 0; k < std::size(rows); ++k) EXPECT_EQ(rows[k].first, rows[k].second) << k;
    expect_same_lists(c, before);
}

// --- removal ---

TEST(RemoveKnot, ToleranceIsASquaredDistance)
{
    // Polyline (0,0,0) (1,0.5,0) (2,0,0) with the knot 0.5: without it the middle point
    // would be the midpoint (1,0,0), at distance 0.5, squared 0.25.
    CNurbs c = build(curvetest::make_ref(2, {0, 0, 0.5, 1, 1}, {0, 0, 0, 1, 0.5, 0, 2, 0, 0}));
    const CNurbs before = c;
    int removed = -1;
    EXPECT_EQ(c.RemoveKnot(0.5, 1, &removed, 0.2), st::bad_input);
    EXPECT_EQ(removed, 0);
    expect_same_lists(c, before);
    ASSERT_EQ(c.RemoveKnot(0.5, 1, &removed, 0.3), st::ok);  // 0.25 <= 0.3 although 0.5 > 0.3
    EXPECT_EQ(removed, 1);
    EXPECT_EQ(curvetest::items(*c.cpts), (std::vector<double>{0, 0, 0, 2, 0, 0}));
}

TEST_F(RemoveKnotTest, Guards_WeightsMagnitudeRangeAndKnots)
{
    Ref light = cubic();  // weights of 5e-10 lie below 100 times the minimum weight
    light.rational = true;
    light.vpp = 4;
    light.Pw.clear();
    for (int i = 0; i < 6; ++i)
        light.Pw.insert(light.Pw.end(), {i * 5e-10, (i % 2) * 5e-10, 0.0, 5e-10});
    Ref big = cubic();  // coordinates of 5000 and beyond are never removed either
    for (double& v : big.Pw) v += 6000.0;
    int removed = -1;
    for (const Ref& r : {light, big}) {
        CNurbs c = build(r);
        ASSERT_EQ(c.InsertKnot(0.75, 1), st::ok);
        EXPECT_EQ(c.RemoveKnot(0.75, 1, &removed, 1e-6), st::bad_input);
        EXPECT_EQ(removed, 0);
    }
    CNurbs d = build(cubic());
    EXPECT_EQ(d.RemoveKnot(-1e-12, 1, &removed, 1.0), st::bad_index);
    EXPECT_EQ(d.RemoveKnot(std::nan(""), 1, &removed, 1.0), st::bad_index);
    EXPECT_EQ(d.RemoveKnot(0.3, 1, &removed, 1e9), st::bad_input);   // not a knot
    EXPECT_EQ(d.RemoveKnot(0.0, 1, &removed, 1e9), st::bad_input);   // an end knot
    EXPECT_EQ(d.RemoveKnot(0.25, 0, &removed, 1e9), st::bad_input);  // nothing asked
    EXPECT_EQ(d.RemoveKnot(0.25, 1, nullptr, 1e9), st::bad_input);
    EXPECT_EQ(d.RemoveKnot(0.25, 1, &removed, 1e-6), st::bad_input);  // the knot is needed
    // Just below 0.25 lies in [0, 0.25): the knot starting that interval is 0, not 0.25.
    EXPECT_EQ(d.RemoveKnot(0.25 - 5e-12, 1, &removed, 1e6), st::bad_input);
    ASSERT_EQ(d.RemoveKnot(0.25 + 5e-12, 1, &removed, 1e6), st::ok);  // a large tolerance
    EXPECT_EQ((I{d.n_cpts, d.n_knots}), (I{5, 3}));
    EXPECT_EQ(d.cpts->grow_by, build(cubic()).cpts->grow_by);  // the copy's lists, trimmed
    // The match includes the tolerance itself: 0.3125 - 0.25 is exactly 2^-4.
    tavotoll.param = 0.0625;
    CNurbs e = build(cubic());
    ASSERT_EQ(e.RemoveKnot(0.3125, 1, &removed, 1e6), st::ok);
    EXPECT_EQ(mult_of(e, 0.25), 0);
}

// --- shape ---

TEST(KnotOperations, RandomCurves_InsertionRefinementAndRemovalKeepTheShape)
{
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int order = 1; order <= 10; ++order) {
        for (int rational = 0; rational <= 1; ++rational) {
            for (int rep = 0; rep < 3; ++rep) {
                const Ref r = curvetest::random_curve(rng, order, rational, order - 1);
                const CNurbs original = build(r);
                // A new knot, 1..order copies, then an existing interior knot to the full.
                CNurbs c = original;
                const int copies = 1 + static_cast<int>(u(rng) * order);
                ASSERT_EQ(c.InsertKnot(u(rng), copies), st::ok);
                EXPECT_EQ(c.n_cpts, original.n_cpts + copies);
                expect_same_shape(c, r);
                if (c.n_knots > 2) {
                    ASSERT_EQ(c.InsertKnot(c.knots->items[1], order), st::ok);
                    expect_same_shape(c, r);
                }
                // New knots on a grid plus an existing interior knot, in one refinement.
                CNurbs f = original;
                std::vector<double> xs;
                for (int i = 1; i <= 5; ++i) xs.push_back(i / 6.0 + 0.01 * u(rng));
                if (f.n_knots > 2) xs.push_back(f.knots->items[1]);
                std::sort(xs.begin(), xs.end());
                List<double> v;
                List<int> m;
                int added = 0;
                for (double x : xs) {
                    const int k = std::min(order - mult_of(f, x), 1 + static_cast<int>(u(rng) * 2));
                    if (k < 1) continue;
                    v.Append(x);
                    m.Append(k);
                    added += k;
                }
                ASSERT_EQ(f.knot_refinement(v, m), st::ok) << order;
                EXPECT_EQ(f.n_cpts, original.n_cpts + added);
                expect_same_shape(f, r);
                // A knot just inserted order - 1 times comes out again, however many are asked.
                CNurbs g = original;
                double x = u(rng);
                while (mult_of(g, x) != 0) x = u(rng);
                const int full = std::max(1, order - 1);
                ASSERT_EQ(g.InsertKnot(x, full), st::ok);
                int removed = -1;
                ASSERT_EQ(g.RemoveKnot(x, full + 3, &removed, 1e-16), st::ok) << order;
                EXPECT_EQ(removed, full);
                expect_same_lists(g, original, 1e-8);
                expect_same_shape(g, r);
            }
        }
    }
}

// --- failures leave the curve as it was ---

TEST(KnotOperations, AllocationFailures_LeaveTheCurveUnchanged)
{
    std::mt19937 rng(3);
    const CNurbs original = build(curvetest::random_curve(rng, 4, true, 3));
    CNurbs inserted = original;
    ASSERT_EQ(inserted.InsertKnot(0.37, 2), st::ok);
    List<double> v = curvetest::list_of<double>({0.37});
    List<int> m = curvetest::list_of<int>({2});
    const long live = v_memptr_live_count();
    int removed = 0;
    const std::function<short(CNurbs&)> ops[] = {
        [](CNurbs& c) { return c.InsertKnot(0.37, 2); },
        [&](CNurbs& c) { return c.knot_refinement(v, m); },
        [&](CNurbs& c) { return c.RemoveKnot(0.37, 2, &removed, 1e-16); }};
    for (int op = 0; op < 3; ++op) {
        const CNurbs& start = op < 2 ? original : inserted;
        bool succeeded = false;
        for (long n = 0; n < 60 && !succeeded; ++n) {
            CNurbs c = start;
            v_memptr_fail_after(n);
            const short rc = ops[op](c);
            v_memptr_fail_after(-1);
            succeeded = rc == st::ok;
            if (!succeeded) {
                EXPECT_TRUE(rc == st::bad_input || rc == st::no_memory) << rc;
                expect_same_lists(c, start);
            }
        }
        EXPECT_TRUE(succeeded) << op;
    }
    EXPECT_EQ(v_memptr_live_count(), live);
}
