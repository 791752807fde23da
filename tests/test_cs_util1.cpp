// Knot-vector forms, edits, ranges, Oslo coefficients, periodic knots, curve sets and
// VertexList. Expected values are worked out by hand or by reference computations here.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <cmath>
#include <random>
#include <vector>

namespace {

class KnotTest : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    long live_ = v_memptr_live_count();
    void TearDown() override
    {
        tavotoll = saved_;
        v_memptr_fail_after(-1);
    }
};

List<double> dlist(std::initializer_list<double> v)
{
    List<double> l;
    for (double x : v) l.Append(x);
    return l;
}

List<int> ilist(std::initializer_list<int> v)
{
    List<int> l;
    for (int x : v) l.Append(x);
    return l;
}

std::vector<double> items(const List<double>& l)
{
    std::vector<double> v;
    for (uint32_t k = 1; k <= l.Count(); ++k) v.push_back(l.items[k - 1]);
    return v;
}

std::vector<int> items(const List<int>& l)
{
    std::vector<int> v;
    for (uint32_t k = 1; k <= l.Count(); ++k) v.push_back(l.items[k - 1]);
    return v;
}

// A VLST of doubles holding v.
struct DoubleVlst {
    VLST l{};
    explicit DoubleVlst(const std::vector<double>& v = {})
    {
        VLST_init(&l, sizeof(double), 16);
        for (size_t k = 0; k < v.size(); ++k) VLST_put(&l, k + 1, &v[k]);
    }
    ~DoubleVlst() { VLST_free(&l); }
    std::vector<double> values()
    {
        std::vector<double> v(VLST_count(&l));
        for (size_t k = 0; k < v.size(); ++k) VLST_get(&l, k + 1, &v[k]);
        return v;
    }
};

// Point of a B-spline by de Boor's algorithm; U 0-based (n + order knots), P n points of
// vpp values (homogeneous values are combined as they are).
std::vector<double> de_boor(int order, const std::vector<double>& U, const std::vector<double>& P,
                            int vpp, double u)
{
    const int n = int(P.size()) / vpp;
    const int p = order - 1;
    int s = p;
    for (int k = p; k <= n - 1; ++k) {
        if (U[k] <= u && U[k] < U[k + 1]) s = k;
    }
    std::vector<double> d(size_t((p + 1) * vpp));
    for (int j = 0; j <= p; ++j)
        for (int c = 0; c < vpp; ++c) d[j * vpp + c] = P[(s - p + j) * vpp + c];
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

// Linear knots of a multiplicity form, written out here.
std::vector<double> expand(const std::vector<double>& v, const std::vector<int>& m)
{
    std::vector<double> U;
    for (size_t k = 0; k < v.size(); ++k)
        for (int r = 0; r < m[k]; ++r) U.push_back(v[k]);
    return U;
}

// A curve with the given distinct knots, multiplicities and homogeneous points.
void make_curve(CNurbs& c, int order, const std::vector<double>& v, const std::vector<int>& m,
                const std::vector<double>& P, int vpp)
{
    c.order = order;
    c.vpp = vpp;
    c.rational = vpp == 4 ? 1 : 0;
    c.n_cpts = int(P.size()) / vpp;
    c.n_knots = int(v.size());
    ASSERT_EQ(c.Init_Lists(false), st::ok);
    for (double x : P) c.cpts->Append(x);
    for (size_t k = 0; k < v.size(); ++k) {
        c.knots->Append(v[k]);
        c.mults->Append(m[k]);
    }
}

// Point of a curve by de Boor over its own lists.
std::vector<double> curve_point(const CNurbs& c, double u)
{
    return de_boor(c.order, expand(items(*c.knots), items(*c.mults)), items(*c.cpts), c.vpp, u);
}

}  // namespace

// --- forms ---

TEST_F(KnotTest, LinearToMultiplicity_GroupsRunsWithinTolerance)
{
    double knots[] = {0, 0, 0, 0.5, 0.5 + 5e-12, 1, 1, 1};
    List<double> v;
    List<int> m;
    int count = -1;
    ASSERT_EQ(linear_knots_to_multiplicity_knots(8, knots, &v, &m, &count), st::ok);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(items(v), (std::vector<double>{0, 0.5, 1}));
    EXPECT_EQ(items(m), (std::vector<int>{3, 2, 3}));
}

TEST_F(KnotTest, LinearToMultiplicity_ComparesWithTheRunsFirstValueNotThePrevious)
{
    // Each knot is within 1e-11 of the previous one, but the third is 1.2e-11 from the
    // first: it opens a new run.
    double knots[] = {0.0, 0.6e-11, 1.2e-11, 1.8e-11};
    List<double> v;
    List<int> m;
    int count = 0;
    ASSERT_EQ(linear_knots_to_multiplicity_knots(4, knots, &v, &m, &count), st::ok);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(items(m), (std::vector<int>{2, 2}));
    EXPECT_EQ(items(v), (std::vector<double>{0.0, 1.2e-11}));
    // A wider tolerance read at the call merges all four.
    tavotoll.param = 1e-10;
    ASSERT_EQ(linear_knots_to_multiplicity_knots(4, knots, &v, &m, &count), st::ok);
    EXPECT_EQ(count, 1);
}

TEST_F(KnotTest, LinearToMultiplicity_BadInputClearsOutputs)
{
    double knots[] = {0, 1, std::nan("")};
    List<double> v = dlist({5, 6});
    List<int> m = ilist({1, 1});
    int count = 9;
    EXPECT_EQ(linear_knots_to_multiplicity_knots(1, knots, &v, &m, &count), st::bad_index);
    EXPECT_EQ(v.Count(), 0u);
    EXPECT_EQ(m.Count(), 0u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(linear_knots_to_multiplicity_knots(3, knots, &v, &m, &count), st::bad_input);
    EXPECT_EQ(v.Count(), 0u);
    EXPECT_EQ(linear_knots_to_multiplicity_knots(2, nullptr, &v, &m, nullptr), st::bad_input);
    List<double> fresh_v;
    List<int> fresh_m;
    v_memptr_fail_after(1);  // the values list grows, the multiplicities cannot
    EXPECT_EQ(linear_knots_to_multiplicity_knots(2, knots, &fresh_v, &fresh_m, nullptr),
              st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(fresh_v.Count(), 0u);
    EXPECT_EQ(fresh_m.Count(), 0u);
}

TEST_F(KnotTest, MultiplicityToLinear_BothFormsAndRoundTrip)
{
    List<double> v = dlist({0, 0.3, 1});
    List<int> m = ilist({3, 1, 3});
    List<double> lin;
    ASSERT_EQ(multiplicity_knots_to_linear_knots(v, m, &lin), st::ok);
    EXPECT_EQ(items(lin), (std::vector<double>{0, 0, 0, 0.3, 1, 1, 1}));
    double arr[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    unsigned long n = 0;
    ASSERT_EQ(multiplicity_knots_to_linear_knots(v, m, arr, &n), st::ok);
    EXPECT_EQ(n, 7ul);
    EXPECT_EQ(arr[3], 0.3);
    EXPECT_EQ(arr[7], -1.0);  // nothing beyond the sum of the multiplicities
    EXPECT_EQ(multiplicity_knots_to_linear_knots(v, m, arr, nullptr), st::ok);
    List<double> v2;
    List<int> m2;
    int count = 0;
    ASSERT_EQ(linear_knots_to_multiplicity_knots(7, lin.items, &v2, &m2, &count), st::ok);
    EXPECT_EQ(items(v2), items(v));
    EXPECT_EQ(items(m2), items(m));
    // The output may be the input list of values.
    ASSERT_EQ(multiplicity_knots_to_linear_knots(v, m, &v), st::ok);
    EXPECT_EQ(v.Count(), 7u);
}

TEST_F(KnotTest, MultiplicityToLinear_RejectsBadLists)
{
    List<double> one = dlist({0});
    List<int> mone = ilist({2});
    List<double> out;
    EXPECT_EQ(multiplicity_knots_to_linear_knots(one, mone, &out), st::bad_index);
    List<double> v = dlist({0, 1});
    List<int> short_m = ilist({2});
    EXPECT_EQ(multiplicity_knots_to_linear_knots(v, short_m, &out), st::bad_input);
    List<int> zero = ilist({2, 0});
    EXPECT_EQ(multiplicity_knots_to_linear_knots(v, zero, &out), st::bad_input);
    List<int> huge = ilist({2, 2000000000});  // a corrupt count allocates nothing
    EXPECT_EQ(multiplicity_knots_to_linear_knots(v, huge, &out), st::bad_input);
    List<int> m = ilist({2, 2});
    v_memptr_fail_after(0);
    EXPECT_EQ(multiplicity_knots_to_linear_knots(v, m, &out), st::no_memory);
    v_memptr_fail_after(-1);
}

TEST_F(KnotTest, MultiplicityToMultiplicity_ArraysAndBack)
{
    List<double> v = dlist({0, 0.5, 1});
    List<int> m = ilist({2, 1, 2});
    double va[3];
    int ma[3];
    ASSERT_EQ(multiplicity_knots_to_multiplicity_knots(v, m, 3, va, ma), st::ok);
    EXPECT_EQ(va[1], 0.5);
    EXPECT_EQ(ma[2], 2);
    EXPECT_EQ(multiplicity_knots_to_multiplicity_knots(v, m, 4, va, ma), st::bad_input);
    EXPECT_EQ(multiplicity_knots_to_multiplicity_knots(v, m, 0, va, ma), st::bad_index);
    List<double> v2;
    List<int> m2;
    ASSERT_EQ(multiplicity_knots_to_multiplicity_knots(3, va, ma, &v2, &m2), st::ok);
    EXPECT_EQ(items(v2), items(v));
    EXPECT_EQ(items(m2), items(m));
}

TEST_F(KnotTest, VlstConversions_RoundTripAndCount)
{
    List<double> v = dlist({0, 0.25, 1});
    List<int> m = ilist({2, 1, 2});
    DoubleVlst lin({9, 9, 9, 9, 9, 9, 9, 9});
    ASSERT_EQ(knots_vector_from_List_to_VLST(v, m, &lin.l), st::ok);
    EXPECT_EQ(lin.values(), (std::vector<double>{0, 0, 0.25, 1, 1}));  // rewound first
    int count = 0;
    ASSERT_EQ(count_distinct_knots(lin.l, count), st::ok);
    EXPECT_EQ(count, 3);
    List<double> v2;
    List<int> m2;
    ASSERT_EQ(knots_vector_from_VLST_to_List(&lin.l, &v2, &m2, &count), st::ok);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(items(v2), items(v));
    EXPECT_EQ(items(m2), items(m));
    DoubleVlst empty;
    ASSERT_EQ(count_distinct_knots(empty.l, count), st::ok);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(knots_vector_from_VLST_to_List(&empty.l, &v2, &m2, nullptr), st::bad_index);
    // Drift: the run rule holds for the VLST forms too.
    DoubleVlst drift({0.0, 0.6e-11, 1.2e-11});
    ASSERT_EQ(count_distinct_knots(drift.l, count), st::ok);
    EXPECT_EQ(count, 2);
}

// --- linear access ---

TEST_F(KnotTest, GetLinearKnot_SumsMultiplicitiesAndChecksRange)
{
    List<double> v = dlist({0, 0.4, 1});
    List<int> m = ilist({3, 2, 3});
    double r = -1;
    int mm = -1;
    EXPECT_EQ(get_linear_knot(&v, &m, 3, 0, &r), st::bad_index);
    EXPECT_EQ(get_linear_knot(&v, &m, 0, 1, &r), st::bad_index);
    ASSERT_EQ(get_linear_knot(&v, &m, 3, 3, &r), st::ok);
    EXPECT_EQ(r, 0.0);
    ASSERT_EQ(get_linear_knot(&v, &m, 3, 4, &r), st::ok);
    EXPECT_EQ(r, 0.4);
    ASSERT_EQ(get_linear_knot(&v, &m, 3, 8, &r), st::ok);  // the total: the last knot
    EXPECT_EQ(r, 1.0);
    EXPECT_EQ(get_linear_knot(&v, &m, 3, 9, &r), st::bad_index);
    ASSERT_EQ(get_linear_knot_mult(&m, 3, 5, &mm), st::ok);
    EXPECT_EQ(mm, 2);
    EXPECT_EQ(get_linear_knot_mult(&m, 3, 9, &mm), st::bad_index);
    EXPECT_EQ(get_linear_knot(nullptr, &m, 3, 1, &r), st::bad_input);
    EXPECT_EQ(linear_knot_position(1, &m), 1);
    EXPECT_EQ(linear_knot_position(0, &m), 1);
    EXPECT_EQ(linear_knot_position(2, &m), 4);
    EXPECT_EQ(linear_knot_position(3, &m), 6);
    EXPECT_EQ(linear_knot_position(5, &m), 0);  // slot 4 unset
}

TEST_F(KnotTest, FindKnotPosition_FirstWithinTolerance)
{
    List<double> v = dlist({0, 0.5, 0.5 + 2e-11, 1});
    short found = 7;
    int pos = 0;
    ASSERT_EQ(find_knot_position(0.5 + 9e-12, v, 4, &found, &pos), st::ok);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(pos, 2);
    ASSERT_EQ(find_knot_position(0.75, v, 4, &found, &pos), st::ok);
    EXPECT_EQ(found, 0);
    ASSERT_EQ(find_knot_position(0.0, v, 0, &found, &pos), st::ok);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(find_knot_position(0.75, v, 5, &found, &pos), st::bad_input);  // slot 5 unset
}

// --- edits ---

TEST_F(KnotTest, InsertKnot_PlacesTheKnotAfterJ)
{
    List<double> v = dlist({0, 0.5, 1});
    List<int> m = ilist({3, 1, 3});
    List<double> ov;
    List<int> om;
    ASSERT_EQ(insert_knot(&v, &m, 3, 2, 0.75, 2, &ov, &om), st::ok);
    EXPECT_EQ(items(ov), (std::vector<double>{0, 0.5, 0.75, 1}));
    EXPECT_EQ(items(om), (std::vector<int>{3, 1, 2, 3}));
    EXPECT_EQ(v.Count(), 3u);                                       // inputs unchanged
    ASSERT_EQ(insert_knot(&v, &m, 3, 0, -1.0, 1, &v, &m), st::ok);  // in place, at the front
    EXPECT_EQ(items(v), (std::vector<double>{-1, 0, 0.5, 1}));
    EXPECT_EQ(items(m), (std::vector<int>{1, 3, 1, 3}));
    EXPECT_EQ(insert_knot(&v, &m, 4, 2, 0.7, 1, &ov, &om), st::bad_input);    // out of order
    EXPECT_EQ(insert_knot(&v, &m, 4, 2, 1e-12, 1, &ov, &om), st::bad_input);  // same as 0
    EXPECT_EQ(insert_knot(&v, &m, 4, 5, 2.0, 1, &ov, &om), st::bad_index);
    EXPECT_EQ(insert_knot(&v, &m, 4, 4, 2.0, 0, &ov, &om), st::bad_input);
    ASSERT_EQ(insert_knot(&v, &m, 4, 4, 2.0, 1, &ov, &om), st::ok);  // at the end
    EXPECT_EQ(ov[5], 2.0);
}

TEST_F(KnotTest, RemoveKnot_LowersMultiplicityThenDeletes)
{
    List<double> v = dlist({0, 0.4, 0.7, 1});
    List<int> m = ilist({2, 2, 1, 2});
    int n = 4;
    ASSERT_EQ(remove_knot(&v, &m, &n, 3), st::ok);  // linear knot 3 is 0.4
    EXPECT_EQ(items(m), (std::vector<int>{2, 1, 1, 2}));
    EXPECT_EQ(n, 4);
    ASSERT_EQ(remove_knot(&v, &m, &n, 4), st::ok);  // linear knot 4 is now 0.7
    EXPECT_EQ(n, 3);
    EXPECT_EQ(items(v), (std::vector<double>{0, 0.4, 1}));
    EXPECT_EQ(items(m), (std::vector<int>{2, 1, 2}));
    EXPECT_EQ(remove_knot(&v, &m, &n, 6), st::bad_index);
    EXPECT_EQ(remove_knot(&v, &m, &n, 0), st::bad_index);
}

TEST_F(KnotTest, InsertMeanKnots_MidpointsOfRealIntervals)
{
    List<double> v = dlist({0, 0.5, 0.5 + 1.5e-11, 1});
    List<int> m = ilist({2, 1, 1, 2});
    ASSERT_EQ(insert_mean_knots(&v, &m, 4, &v, &m), st::ok);
    // The 1.5e-11 interval has no midpoint that would be a separate knot.
    EXPECT_EQ(items(v), (std::vector<double>{0, 0.25, 0.5, 0.5 + 1.5e-11, 0.75 + 0.75e-11, 1}));
    EXPECT_EQ(items(m), (std::vector<int>{2, 1, 1, 1, 1, 2}));
}

TEST_F(KnotTest, ChangeRange_MapsAffinelyOrReportsNoChange)
{
    List<double> v = dlist({1, 2, 4, 5});
    ASSERT_EQ(change_knots_vector_range(&v, 4, 0.0, 8.0), st::ok);
    EXPECT_EQ(items(v), (std::vector<double>{0, 2, 6, 8}));  // u -> 2 (u - 1)
    EXPECT_EQ(change_knots_vector_range(&v, 4, 5e-12, 8.0), st::no_change);
    EXPECT_EQ(items(v), (std::vector<double>{0, 2, 6, 8}));
    EXPECT_EQ(change_knots_vector_range(&v, 4, 1.0, 1.0 + 5e-12), st::bad_index);
    EXPECT_EQ(change_knots_vector_range(&v, 4, 2.0, 1.0), st::bad_index);
    EXPECT_EQ(change_knots_vector_range(&v, 1, 0.0, 1.0), st::bad_input);
    EXPECT_EQ(change_knots_vector_range(nullptr, 4, 0.0, 1.0), st::bad_input);
    EXPECT_EQ(change_knots_vector_range(&v, 5, 0.0, 1.0), st::bad_input);  // slot 5 unset
    List<double> flat = dlist({3, 3 + 1e-12});
    EXPECT_EQ(change_knots_vector_range(&flat, 2, 0.0, 1.0), st::bad_index);
}

TEST_F(KnotTest, NormaliseKnots_StrictRules)
{
    List<double> v = dlist({2, 3, 4, 6});
    ASSERT_EQ(normalise_knots_vector(&v, 4), st::ok);
    EXPECT_EQ(items(v), (std::vector<double>{0, 0.25, 0.5, 1}));
    // Already from exactly 0 to exactly 1: untouched even when not increasing.
    List<double> bad = dlist({0, 0.7, 0.3, 1});
    EXPECT_EQ(normalise_knots_vector(&bad, 4), st::ok);
    EXPECT_EQ(items(bad), (std::vector<double>{0, 0.7, 0.3, 1}));
    List<double> close = dlist({2, 2 + 1e-12, 3});
    EXPECT_EQ(normalise_knots_vector(&close, 3), st::bad_input);
    List<double> last_close = dlist({1, 2 - 1e-12, 2});
    EXPECT_EQ(normalise_knots_vector(&last_close, 3), st::bad_input);
    List<double> flat = dlist({1, 1});
    EXPECT_EQ(normalise_knots_vector(&flat, 2), st::bad_input);
    EXPECT_EQ(normalise_knots_vector(&flat, 1), st::bad_input);
    List<double> nan = dlist({0, std::nan(""), 2});
    EXPECT_EQ(normalise_knots_vector(&nan, 3), st::bad_input);
}

TEST_F(KnotTest, Reverse_ArraysAndLists)
{
    double va[] = {0, 0.2, 0.7, 1};
    int ma[] = {3, 1, 2, 3};
    int n = 4;
    ASSERT_EQ(reverse_array_of_knots(va, ma, n), st::ok);
    EXPECT_NEAR(va[1], 0.3, 1e-15);
    EXPECT_NEAR(va[2], 0.8, 1e-15);
    EXPECT_EQ(va[0], 0.0);
    EXPECT_EQ(va[3], 1.0);
    EXPECT_EQ(ma[1], 2);
    EXPECT_EQ(ma[2], 1);
    double lin[] = {1, 1, 2, 5, 5};  // linear array, no multiplicities
    int nl = 5;
    ASSERT_EQ(reverse_array_of_knots(lin, nullptr, nl), st::ok);
    EXPECT_EQ(std::vector<double>(lin, lin + 5), (std::vector<double>{1, 1, 4, 5, 5}));
    List<double> v = dlist({-1, 0, 3});
    List<int> m = ilist({2, 1, 2});
    ASSERT_EQ(reverse_multiplicity_knots_vector(3, &v, &m), st::ok);
    EXPECT_EQ(items(v), (std::vector<double>{-1, 2, 3}));
    int one = 1;
    EXPECT_EQ(reverse_array_of_knots(va, ma, one), st::bad_index);
}

// --- ranges and comparisons ---

TEST_F(KnotTest, StartEndKnots_OfClampedAndUnclampedVectors)
{
    List<double> v = dlist({0, 0.5, 1});
    List<int> m = ilist({3, 1, 3});  // order 3, 4 points
    double a = -1, b = -1;
    int pa = 0, pb = 0, ma = 0, mb = 0;
    ASSERT_EQ(_get_start_end_knots(3, 4, v, m, &a, &b, &pa, &pb, &ma, &mb), st::ok);
    EXPECT_EQ(a, 0.0);
    EXPECT_EQ(b, 1.0);
    EXPECT_EQ(pa, 1);
    EXPECT_EQ(pb, 3);
    EXPECT_EQ(ma, 3);
    EXPECT_EQ(mb, 3);
    // Uniform order 3 with 5 points: knots 0..7, range [T3, T6] = [2, 5].
    List<double> u = dlist({0, 1, 2, 3, 4, 5, 6, 7});
    List<int> um = ilist({1, 1, 1, 1, 1, 1, 1, 1});
    ASSERT_EQ(_get_start_end_knots(3, 5, u, um, &a, &b, &pa, &pb, nullptr, nullptr), st::ok);
    EXPECT_EQ(a, 2.0);
    EXPECT_EQ(b, 5.0);
    EXPECT_EQ(pa, 3);
    EXPECT_EQ(pb, 6);
    EXPECT_EQ(_get_start_end_knots(3, 9, u, um, &a, &b, nullptr, nullptr, nullptr, nullptr),
              st::bad_index);
    double t = 5.0 + 5e-12;
    short inside = 0;
    ASSERT_EQ(parameter_is_into_valid_range(t, 3, 5, u, um, &inside), st::ok);
    EXPECT_EQ(inside, 1);
    EXPECT_EQ(t, 5.0);  // moved onto the end
    t = 2.0 - 2e-11;
    ASSERT_EQ(parameter_is_into_valid_range(t, 3, 5, u, um, &inside), st::ok);
    EXPECT_EQ(inside, 0);
    EXPECT_EQ(t, 2.0 - 2e-11);
    t = std::nan("");
    ASSERT_EQ(parameter_is_into_valid_range(t, 3, 5, u, um, &inside), st::ok);
    EXPECT_EQ(inside, 0);
}

TEST_F(KnotTest, SameAndCompareRange)
{
    List<double> a = dlist({0, 0.5, 1});
    List<double> b = dlist({0, 0.5 + 5e-12, 1});
    List<int> ma = ilist({2, 1, 2});
    List<int> mb = ilist({2, 2, 2});
    EXPECT_TRUE(same_knots_vectors(3, a, ma, 3, b, ma));
    EXPECT_FALSE(same_knots_vectors(3, a, ma, 3, b, mb));
    EXPECT_FALSE(same_knots_vectors(3, a, ma, 2, b, ma));
    short same = 0;
    List<double> c = dlist({0, 0.2, 0.4, 1});
    ASSERT_EQ(compare_knots_vector_range(a, 3, c, 4, &same), st::ok);
    EXPECT_EQ(same, 1);
    List<double> d = dlist({0, 2});
    ASSERT_EQ(compare_knots_vector_range(a, 3, d, 2, &same), st::ok);
    EXPECT_EQ(same, 0);
    EXPECT_EQ(compare_knots_vector_range(a, 1, d, 2, &same), st::bad_index);
}

TEST_F(KnotTest, CommonKnotsVector_UnionWithLargestMultiplicity)
{
    List<double> v[3] = {dlist({0, 0.5, 1}), dlist({0, 0.25, 0.5 + 3e-12, 1}), dlist({0, 0.75, 1})};
    List<int> m[3] = {ilist({3, 1, 3}), ilist({3, 2, 2, 3}), ilist({3, 1, 3})};
    List<double> ov;
    List<int> om;
    ASSERT_EQ(find_common_knots_vector(3, v, m, &ov, &om), st::ok);
    EXPECT_EQ(items(ov), (std::vector<double>{0, 0.25, 0.5, 0.75, 1}));
    EXPECT_EQ(items(om), (std::vector<int>{3, 2, 2, 1, 3}));
    List<double> w[2] = {dlist({0, 1}), dlist({0, 2})};
    List<int> wm[2] = {ilist({2, 2}), ilist({2, 2})};
    EXPECT_EQ(find_common_knots_vector(2, w, wm, &ov, &om), st::bad_index);
    EXPECT_EQ(find_common_knots_vector(0, w, wm, &ov, &om), st::bad_index);
}

// --- Oslo coefficients ---

TEST_F(KnotTest, Oslo_MidpointInsertionOfALineByHand)
{
    // Order 2 on {0, 0, 1, 1} refined to {0, 0, 0.5, 1, 1}: new vertex 2 is the midpoint.
    DoubleVlst t({0, 0, 1, 1});
    DoubleVlst tau({0, 0, 0.5, 1, 1});
    DoubleVlst alpha;
    EXPECT_EQ(compute_olso(2, 2, &t.l, 2, &tau.l, &alpha.l), 2);
    std::vector<double> a = alpha.values();
    ASSERT_GE(a.size(), 3u);
    EXPECT_EQ(a[0], 0.5);
    EXPECT_EQ(a[1], 0.5);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(compute_olso(2, 2, &t.l, 3, &tau.l, &alpha.l), 2);
    a = alpha.values();
    EXPECT_EQ(a[0], 0.0);
    EXPECT_EQ(a[1], 1.0);
    EXPECT_EQ(compute_olso(0, 2, &t.l, 2, &tau.l, &alpha.l), 0);
    EXPECT_EQ(compute_olso(2, 2, &t.l, 5, &tau.l, &alpha.l), 0);  // tau too short
}

TEST_F(KnotTest, Oslo_RefinedControlPointsReproduceTheCurve)
{
    std::mt19937 rng(21);
    std::uniform_real_distribution<double> uni(-2.0, 2.0);
    for (int order = 1; order <= 6; ++order) {
        const std::vector<double> tv{0, 0.3, 0.6, 1};
        const std::vector<int> tm{order, order > 1 ? order - 1 : 1, 1, order};
        const std::vector<double> U = expand(tv, tm);
        const int count = int(U.size()) - order;
        // Refined: 0.3 raised to full multiplicity order - 1 (not above), 0.15 and 0.8 added twice.
        const std::vector<double> rv{0, 0.15, 0.3, 0.6, 0.8, 1};
        const std::vector<int> rm{order, 2, order > 1 ? order - 1 : 1, 1, 2, order};
        const std::vector<double> R = expand(rv, rm);
        const int new_count = int(R.size()) - order;
        std::vector<double> P(size_t(count * 3));
        for (double& x : P) x = uni(rng);
        DoubleVlst t(U), tau(R);
        std::vector<double> Q(size_t(new_count * 3), 0.0);
        for (int j = 1; j <= new_count; ++j) {
            DoubleVlst alpha;
            const int i = compute_olso(order, count, &t.l, j, &tau.l, &alpha.l);
            ASSERT_GE(i, 1);
            for (int k = std::max(1, i - order + 1); k <= i; ++k) {
                double a = 0.0;
                ASSERT_EQ(VLST_get(&alpha.l, (unsigned long)k, &a), 0);
                for (int c = 0; c < 3; ++c) Q[(j - 1) * 3 + c] += a * P[(k - 1) * 3 + c];
            }
        }
        for (int s = 0; s <= 500; ++s) {
            const double u = s / 500.0;
            const std::vector<double> p = de_boor(order, U, P, 3, u);
            const std::vector<double> q = de_boor(order, R, Q, 3, u);
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(p[c], q[c], 1e-12) << order << " " << u;
        }
    }
}

// --- periodic knots ---

TEST_F(KnotTest, PeriodicKnots_WrapsBothEnds)
{
    DoubleVlst in({0, 1, 2, 3, 4});
    DoubleVlst out({7});
    ASSERT_EQ(periodic_knots(4, &in.l, &out.l), st::ok);
    EXPECT_EQ(out.values(), (std::vector<double>{-3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7}));
    DoubleVlst uneven({0, 1, 3, 4});  // period 4
    ASSERT_EQ(periodic_knots(3, &uneven.l, &out.l), st::ok);
    EXPECT_EQ(out.values(), (std::vector<double>{-3, -1, 0, 1, 3, 4, 5, 7}));
    DoubleVlst one({0});
    EXPECT_EQ(periodic_knots(3, &one.l, &out.l), st::bad_index);
    DoubleVlst down({0, 2, 1});
    EXPECT_EQ(periodic_knots(3, &down.l, &out.l), st::bad_input);
    EXPECT_EQ(periodic_knots(0, &in.l, &out.l), st::bad_index);
}

TEST_F(KnotTest, PeriodicKnots_ClosedCurveJoinsSmoothly)
{
    // A wrapped cubic on the periodic knots closes with equal points and derivatives.
    DoubleVlst in({0, 0.7, 1.5, 2, 3.1, 4});
    DoubleVlst out;
    const int order = 4;
    ASSERT_EQ(periodic_knots(order, &in.l, &out.l), st::ok);
    const std::vector<double> U = out.values();
    const int L = 6, n = L + order - 2;
    ASSERT_EQ(int(U.size()), n + order);
    std::vector<double> P{1, 0, 3, 2, -1, 1, 0, -2, 4, 1};  // L - 1 = 5 distinct 2-D points
    for (int k = 0; k < order - 1; ++k) {
        P.push_back(P[size_t(2 * k)]);
        P.push_back(P[size_t(2 * k + 1)]);
    }
    const double h = 1e-6;
    auto pt = [&](double u) { return de_boor(order, U, P, 2, u); };
    for (int c = 0; c < 2; ++c) {
        EXPECT_NEAR(pt(0.0)[c], pt(4.0)[c], 1e-12);
        EXPECT_NEAR((pt(h)[c] - pt(0)[c]) / h, (pt(4.0)[c] - pt(4.0 - h)[c]) / h, 1e-4);
    }
}

// --- sets of curves ---

TEST_F(KnotTest, NormaliseCurves_StopsAtTheFirstFailure)
{
    CNurbs c[3];
    make_curve(c[0], 2, {2, 4}, {2, 2}, {0, 0, 0, 1, 1, 1}, 3);
    make_curve(c[1], 2, {1, 1 + 1e-12, 3}, {2, 1, 2}, {0, 0, 0, 1, 1, 1, 2, 2, 2}, 3);
    make_curve(c[2], 2, {5, 6}, {2, 2}, {0, 0, 0, 1, 1, 1}, 3);
    EXPECT_EQ(normalise(3ul, c), st::bad_input);
    EXPECT_EQ(items(*c[0].knots), (std::vector<double>{0, 1}));
    EXPECT_EQ(items(*c[2].knots), (std::vector<double>{5, 6}));
    EXPECT_EQ(normalise(1ul, &c[2]), st::ok);
    EXPECT_EQ(items(*c[2].knots), (std::vector<double>{0, 1}));
    EXPECT_EQ(normalise(1ul, nullptr), st::bad_input);
}

TEST_F(KnotTest, EqualiseOrder_RaisesEveryCurveKeepingItsShape)
{
    CNurbs c[2];
    make_curve(c[0], 2, {0, 0.5, 1}, {2, 1, 2}, {0, 0, 0, 1, 2, 0, 2, 0, 1}, 3);
    // Rational quadratic (a quarter circle in homogeneous form) with an interior knot.
    const double w = std::sqrt(0.5);
    make_curve(c[1], 3, {0, 0.4, 1}, {3, 1, 3}, {1, 0, 0, 1, w, w, 0, w, 0.5, 1, 0, 1, 0, 1, 0, 1},
               4);
    CNurbs before[2] = {c[0], c[1]};
    ASSERT_EQ(equalise_order(2ul, c), st::ok);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(c[k].order, 3);
        EXPECT_EQ(int(c[k].cpts->Count()), c[k].n_cpts * c[k].vpp);
        int sum = 0;
        for (int m : items(*c[k].mults)) sum += m;
        EXPECT_EQ(sum, c[k].n_cpts + c[k].order);
        for (int s = 0; s <= 1000; ++s) {
            const std::vector<double> a = curve_point(before[k], s / 1000.0);
            const std::vector<double> b = curve_point(c[k], s / 1000.0);
            for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-12);
        }
    }
    EXPECT_EQ(items(*c[0].mults), (std::vector<int>{3, 2, 3}));
}

TEST_F(KnotTest, EqualiseKnots_GivesOneVectorAndKeepsShapes)
{
    CNurbs c[2];
    make_curve(c[0], 3, {0, 0.5, 1}, {3, 1, 3}, {0, 0, 0, 1, 2, 0, 2, 0, 1, 3, 1, 1}, 3);
    make_curve(c[1], 3, {0, 2, 3, 4}, {3, 2, 1, 3},
               {0, 1, 0, 1, 1, 0, 2, 3, 0, 3, 3, 1, 4, 0, 0, 5, 1, 1}, 3);
    CNurbs before[2] = {c[0], c[1]};
    ASSERT_EQ(equalise(2ul, c), st::ok);
    EXPECT_TRUE(same_knots_vectors(c[0].n_knots, *c[0].knots, *c[0].mults, c[1].n_knots,
                                   *c[1].knots, *c[1].mults));
    // Curve 1 was mapped from [0, 4] onto [0, 1]: its knots 2, 3 became 0.5, 0.75.
    EXPECT_EQ(items(*c[0].knots), (std::vector<double>{0, 0.5, 0.75, 1}));
    EXPECT_EQ(items(*c[0].mults), (std::vector<int>{3, 2, 1, 3}));
    for (int s = 0; s <= 1000; ++s) {
        const double u = s / 1000.0;
        const std::vector<double> a0 = curve_point(before[0], u);
        const std::vector<double> b0 = curve_point(c[0], u);
        const std::vector<double> a1 = curve_point(before[1], 4.0 * u);
        const std::vector<double> b1 = curve_point(c[1], u);
        for (int i = 0; i < 3; ++i) {
            ASSERT_NEAR(a0[i], b0[i], 1e-12);
            ASSERT_NEAR(a1[i], b1[i], 1e-12);
        }
    }
    CNurbs d[2] = {c[0], c[1]};
    d[1].order = 2;  // now inconsistent: refused before anything changes
    EXPECT_EQ(equalise_knots_vectors(2ul, d), st::bad_input);
}

TEST_F(KnotTest, EqualiseOrder_RefusesUnclampedCurves)
{
    CNurbs c[2];
    make_curve(c[0], 2, {0, 1, 2, 3}, {1, 1, 1, 1}, {0, 0, 0, 1, 1, 1}, 3);
    make_curve(c[1], 3, {0, 1}, {3, 3}, {0, 0, 0, 1, 1, 1, 2, 2, 2}, 3);
    EXPECT_EQ(equalise_order(2ul, c), st::bad_input);
    EXPECT_EQ(c[0].order, 2);
}

// --- VertexList ---

TEST_F(KnotTest, VertexList_RationalStoresHomogeneousValues)
{
    VertexList vl(1, 4, 3);
    EXPECT_EQ(vl.Position_Dimension(), 3);
    EXPECT_EQ(vl.Index(2), 5);
    ASSERT_EQ(vl.Put_Cpt_And_Weight(1, V_POINT{1, 2, 3}, 2.0), st::ok);
    double h[4];
    vl.Get_Vertex(1, h);
    EXPECT_EQ(std::vector<double>(h, h + 4), (std::vector<double>{2, 4, 6, 2}));
    V_POINT p;
    double w = 0;
    vl.Get_Cpt_And_Weight(1, &p, &w);
    EXPECT_EQ(p.x, 1.0);
    EXPECT_EQ(p.z, 3.0);
    EXPECT_EQ(w, 2.0);
    // Put_Cpt multiplies by the weight already there.
    ASSERT_EQ(vl.Put_Cpt(1, V_POINT{5, 0, -1}), st::ok);
    vl.Get_Vertex(1, h);
    EXPECT_EQ(std::vector<double>(h, h + 4), (std::vector<double>{10, 0, -2, 2}));
    // Replace_Weight keeps the Cartesian point, Put_Weight keeps the stored values.
    vl.Replace_Weight(1, 4.0);
    vl.Get_Cpt(1, &p);
    EXPECT_EQ(p.x, 5.0);
    EXPECT_EQ(vl.Get_Weight(1), 4.0);
    ASSERT_EQ(vl.Put_Weight(1, 8.0), st::ok);
    vl.Get_Cpt(1, &p);
    EXPECT_EQ(p.x, 2.5);  // 20 / 8
    double* raw = vl._Get_Vertex(1);
    EXPECT_EQ(raw[0], 20.0);
}

TEST_F(KnotTest, VertexList_SurfaceIndexingAndTraversal)
{
    VertexList s(0, 2, 2, 3);
    int cu = 0, cv = 0, dim = 0;
    short rat = 9;
    s.Get_Dimensions(&cu, &cv, &dim, &rat);
    EXPECT_EQ(cu, 2);
    EXPECT_EQ(cv, 3);
    EXPECT_EQ(dim, 2);
    EXPECT_EQ(rat, 0);
    EXPECT_EQ(s.Index(2, 1), 7);  // ((2-1)*3 + 0) * 2 + 1
    EXPECT_EQ(s.Count_All(), 6);
    EXPECT_EQ(s.Count(), 0);
    for (int k = 1; k <= 6; ++k) {
        const double v[2] = {double(k), -double(k)};
        ASSERT_EQ(s.Append_Vertex(v), st::ok);
    }
    double v[2];
    s.Get_Vertex(2, 3, v);
    EXPECT_EQ(v[0], 6.0);
    EXPECT_EQ(s.Get_Weight(2, 3), 1.0);  // polynomial
    std::vector<int> seen;
    for (int k = s.Get_First_Vertex(v); k != 0; k = s.Get_Next_Vertex(v)) {
        seen.push_back(k);
        if (k % 2 == 0) s.Delete_Current_Vertex();
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(s.Count(), 3);
    seen.clear();
    for (int k = s.Get_First_Vertex(nullptr); k != 0; k = s.Get_Next_Vertex(nullptr))
        seen.push_back(k);
    EXPECT_EQ(seen, (std::vector<int>{1, 3, 5}));
    EXPECT_EQ(s.Get_Next_Vertex(v), 0);  // stays at the end
    VertexList copy(s);
    copy.Delete(1);
    EXPECT_EQ(s.Count(), 3);
    EXPECT_EQ(copy.Count(), 2);
    VertexList moved(std::move(copy));
    EXPECT_EQ(moved.Count(), 2);
    EXPECT_EQ(copy.Count_All(), 0);
}

TEST_F(KnotTest, VertexList_ReleasesEverything)
{
    const long live = v_memptr_live_count();
    {
        VertexList a(1, 4, 5);
        ASSERT_EQ(a.Put_Cpt_And_Weight(5, V_POINT{1, 1, 1}, 1.0), st::ok);
        VertexList b;
        b = a;
        b.Allocate(0, 3, 2);
        a = std::move(b);
    }
    EXPECT_EQ(v_memptr_live_count(), live);
}

using KnotDeathTest = KnotTest;

TEST_F(KnotDeathTest, VertexList_ContractViolationsStop)
{
    const char* msg = "assertion failed in cs_util1.cpp line";
    EXPECT_DEATH(VertexList(0, 5, 3), msg);
    EXPECT_DEATH(VertexList(2, 3, 3), msg);
    EXPECT_DEATH(VertexList(0, 0, 3), msg);
    EXPECT_DEATH(VertexList(0, 3, 0), msg);
    EXPECT_DEATH(VertexList(0, 3, 2, 0), msg);
    VertexList vl(1, 4, 2);
    V_POINT p{1, 2, 3};
    EXPECT_DEATH(vl.Put_Cpt_And_Weight(3, p, 1.0), msg);
    EXPECT_DEATH(vl.Put_Cpt_And_Weight(0, p, 1.0), msg);
    EXPECT_DEATH(vl.Put_Cpt_And_Weight(1, p, 1e-12), msg);
    EXPECT_DEATH(vl.Put_Cpt(1, p), msg);              // no weight stored yet
    EXPECT_DEATH(vl.Get_Cpt(2, &p), msg);             // unset slots
    EXPECT_DEATH(vl.Get_Vertex(1, 2, nullptr), msg);  // j outside 1..1
    double h[4] = {1, 1, 1, 1e-13};
    ASSERT_EQ(vl.Put_Vertex(2, h), st::ok);
    EXPECT_DEATH(vl.Get_Cpt(2, &p), msg);  // weight below the minimum
    VertexList flat(0, 2, 2);
    EXPECT_DEATH(flat.Put_Cpt(1, p), msg);       // not 3-D
    EXPECT_DEATH(flat.Put_Weight(1, 1.0), msg);  // not rational
    VertexList empty;
    EXPECT_DEATH(empty.Get_Weight(1), msg);
    const double v[2] = {0, 0};
    ASSERT_EQ(flat.Append_Vertex(v), st::ok);
    ASSERT_EQ(flat.Append_Vertex(v), st::ok);
    EXPECT_DEATH(flat.Append_Vertex(v), msg);  // beyond the store
}

TEST_F(KnotTest, Equalise_AllocationFailuresLeaveConsistentCurvesAndNoLeak)
{
    // Every allocation in turn fails: each run either succeeds or reports 115, and every
    // curve is always a consistent curve of the original shape.
    int failures = 0;
    for (long fail = 0; fail < 200; ++fail) {
        const long live = v_memptr_live_count();
        short rc = 0;
        {
            CNurbs c[2];
            make_curve(c[0], 2, {0, 0.5, 1}, {2, 1, 2}, {0, 0, 0, 1, 2, 0, 2, 0, 1}, 3);
            make_curve(c[1], 3, {0, 0.25, 1}, {3, 1, 3}, {0, 1, 0, 1, 1, 0, 2, 3, 0, 3, 3, 1}, 3);
            CNurbs before[2] = {c[0], c[1]};
            v_memptr_fail_after(fail);
            rc = equalise(2ul, c);
            v_memptr_fail_after(-1);
            ASSERT_TRUE(rc == st::ok || rc == st::no_memory) << rc;
            for (int k = 0; k < 2; ++k) {
                int sum = 0;
                for (int m : items(*c[k].mults)) sum += m;
                ASSERT_EQ(sum, c[k].n_cpts + c[k].order);
                ASSERT_EQ(int(c[k].cpts->Count()), c[k].n_cpts * c[k].vpp);
                for (int s = 0; s <= 50; ++s) {
                    const std::vector<double> a = curve_point(before[k], s / 50.0);
                    const std::vector<double> b = curve_point(c[k], s / 50.0);
                    for (int i = 0; i < 3; ++i) ASSERT_NEAR(a[i], b[i], 1e-12);
                }
            }
        }
        EXPECT_EQ(v_memptr_live_count(), live);
        if (rc == st::ok) break;
        ++failures;
    }
    EXPECT_GT(failures, 10);  // the injection reached deep into the work
}

TEST_F(KnotTest, NormaliseCurveList_SkipsNothingAndStopsOnHoles)
{
    List<CNurbs> curves;
    CNurbs a;
    make_curve(a, 2, {-1, 3}, {2, 2}, {0, 0, 0, 1, 1, 1}, 3);
    curves.Put(1, a);
    curves.Put(3, a);
    EXPECT_EQ(normalise(&curves), st::bad_input);  // slot 2 is a hole
    EXPECT_EQ(items(*curves[1].knots), (std::vector<double>{0, 1}));
    EXPECT_EQ(items(*curves[3].knots), (std::vector<double>{-1, 3}));
    curves.Put(2, a);
    EXPECT_EQ(normalise(&curves), st::ok);
    EXPECT_EQ(items(*curves[2].knots), (std::vector<double>{0, 1}));
}
