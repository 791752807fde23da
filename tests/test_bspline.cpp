// B-spline and Bernstein bases, span search, Bezier half-split and GenMatrix, checked
// against plain reference computations written here.
#include "curve_support.h"
#include "curves/curves_internal.h"  // the inline span search

using curvetest::de_boor;

namespace {

// 1-based knots (element 0 unused) of a random clamped curve on [0, 1].
std::vector<double> random_knots(std::mt19937& rng, int order, int max_mult)
{
    std::vector<double> T{0.0};
    const curvetest::Ref r = curvetest::random_curve(rng, order, false, max_mult);
    T.insert(T.end(), r.T.begin(), r.T.end());
    return T;
}

// Cox-de Boor by its defining recursion (1-based knots, 0/0 taken as 0).
double cox_de_boor(int i, int k, const std::vector<double>& T, double t)
{
    if (k == 1) return (T[i] <= t && t < T[i + 1]) ? 1.0 : 0.0;
    double v = 0.0;
    const double d0 = T[i + k - 1] - T[i], d1 = T[i + k] - T[i + 1];
    if (d0 > 0.0) v += (t - T[i]) / d0 * cox_de_boor(i, k - 1, T, t);
    if (d1 > 0.0) v += (T[i + k] - t) / d1 * cox_de_boor(i + 1, k - 1, T, t);
    return v;
}

// Spans of non-zero length among order..n (1-based knots).
std::vector<int> live_spans(const std::vector<double>& T, int order)
{
    std::vector<int> s;
    for (int k = order; k <= int(T.size()) - 1 - order; ++k)
        if (T[k] < T[k + 1]) s.push_back(k);
    return s;
}

}  // namespace

// --- basis functions ---

TEST(BSplineBasis, RecursionPartitionOfUnityAndCentralDifferences_AllThreeFormsAgree)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> uni(0.2, 0.8);
    for (int order = 1; order <= 12; ++order) {
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<double> T = random_knots(rng, order, order);  // full knots too
            for (int span : live_spans(T, order)) {
                const double len = T[span + 1] - T[span], t = T[span] + uni(rng) * len;
                const size_t sz = size_t(order + 1);
                std::vector<double> N(sz), N1(sz), N2(sz), Nonly(sz), Nn1(sz), N1only(sz);
                BSpline_Basis_N_N1_N2(order, T.data(), t, span, N.data(), N1.data(), N2.data());
                BSpline_Basis_N(order, T.data(), t, span, Nonly.data());
                BSpline_Basis_N_N1(order, T.data(), t, span, Nn1.data(), N1only.data());
                // Values and first derivatives as functions of t, for the differences.
                const auto basis = [&](double x) {
                    std::vector<double> b(sz), b1(sz);
                    BSpline_Basis_N_N1(order, T.data(), x, span, b.data(), b1.data());
                    b.insert(b.end(), b1.begin(), b1.end());
                    return b;
                };
                const curvetest::Differences fd =
                    curvetest::central_differences(basis, t, 1e-6 * len);
                const double s = 1.0 / len;
                double sum = 0.0;
                for (int k = 1; k <= order; ++k) {
                    EXPECT_NEAR(N[k], cox_de_boor(span - order + k, order, T, t), 1e-12) << order;
                    EXPECT_GE(N[k], 0.0);
                    EXPECT_NEAR(Nonly[k], N[k], 1e-15);
                    EXPECT_NEAR(Nn1[k], N[k], 1e-15);
                    EXPECT_NEAR(N1only[k], N1[k], 1e-9 * s);
                    if (len > 1e-3) {
                        EXPECT_NEAR(N1[k], fd.d1[k], 1e-5 * s) << order;
                        EXPECT_NEAR(N2[k], fd.d1[sz + k], 1e-4 * s * s) << order;
                    }
                    sum += N[k];
                }
                EXPECT_NEAR(sum, 1.0, 1e-13);
            }
        }
    }
}

// --- span search ---

TEST(FindSpanLinear, EndInTheLastLiveSpan_OutsideIsZero)
{
    // Cubic, interior knots 0.25 (x2), 0.5, 0.75 (x3): 10 control points. A knot starts the
    // span whose first knot it is; the end belongs to the last span, [0.75, 1).
    const std::vector<double> T{0, 0, 0, 0, 0, 0.25, 0.25, 0.5, 0.75, 0.75, 0.75, 1, 1, 1, 1};
    using kestra::detail::find_span_linear;
    const std::pair<double, int> rows[] = {{0.0, 4},         {0.25, 6},        {0.3, 6},
                                           {0.75, 10},       {1.0, 10},        {-1e-15, 0},
                                           {1.0 + 1e-15, 0}, {std::nan(""), 0}};
    for (auto [t, span] : rows) EXPECT_EQ(find_span_linear(10, 4, T.data(), t), span) << t;
    EXPECT_EQ(find_span_linear(3, 4, T.data(), 0.5), 0);  // fewer points than the order
    // Order 2, T[n+1] = T[n] = 1: span n is empty, the end belongs to span n - 1.
    const std::vector<double> U{0, 0, 0, 0.5, 1, 1, 2};
    EXPECT_EQ(find_span_linear(4, 2, U.data(), 1.0), 3);
}

// --- Bernstein basis ---

TEST(BernsteinBase, BinomialFormulaUpToDegree400WithoutOverflow)
{
    for (int n : {0, 1, 2, 3, 7, 20, 60, 100, 400}) {
        for (double t : {0.1, 0.37, 0.5, 0.93}) {
            std::vector<double> B(size_t(n + 1), -1.0);
            Bernstein_Base(n, t, B.data());
            double sum = 0.0;
            for (int i = 0; i <= n; ++i) {
                // C(n, i) t^i (1 - t)^(n - i) in logarithms, so that nothing overflows.
                const double ref =
                    std::exp(std::lgamma(n + 1.0) - std::lgamma(i + 1.0) -
                             std::lgamma(n - i + 1.0) + i * std::log(t) + (n - i) * std::log1p(-t));
                ASSERT_TRUE(std::isfinite(B[i]));
                EXPECT_NEAR(B[i], ref, 1e-14 + 1e-9 * ref) << n << " " << i;
                sum += B[i];
            }
            EXPECT_NEAR(sum, 1.0, 1e-12);
        }
        std::vector<double> B(size_t(n + 1));
        Bernstein_Base(n, 1.0, B.data());  // only the last polynomial is 1 at t = 1
        EXPECT_EQ(B[n] - B[0], n > 0 ? 1.0 : 0.0);
    }
}

// --- half split ---

TEST(HalfSplit, HalvesReproduceTheSegment_BadDegrees111_NoMemory115)
{
    // Bezier value by de Casteljau, one coefficient per control point.
    const auto casteljau = [](std::vector<double> b, double s) {
        for (size_t r = 1; r < b.size(); ++r)
            for (size_t i = 0; i + r < b.size(); ++i) b[i] = (1 - s) * b[i] + s * b[i + 1];
        return b[0];
    };
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> uni(-5.0, 5.0);
    for (int n : {0, 1, 2, 3, 7, 15}) {
        GenMatrix<double> M;
        std::vector<double> R(size_t((n + 1) * (n + 1)), -99.0);
        ASSERT_EQ(init_half_split_coefficients(n, M, R.data()), st::ok);
        ASSERT_TRUE(M.Rows() == n + 1 && M.Cols() == n + 1);
        std::vector<double> P(size_t(n + 1)), L(size_t(n + 1), 0.0), Rt(size_t(n + 1), 0.0);
        for (double& p : P) p = uni(rng);
        for (int i = 0; i <= n; ++i)
            for (int j = 0; j <= n; ++j) {
                L[i] += M(i, j) * P[j];
                Rt[i] += R[size_t(i * (n + 1) + j)] * P[j];
            }
        for (double s = 0.0; s <= 1.0; s += 0.125) {
            EXPECT_NEAR(casteljau(L, s), casteljau(P, 0.5 * s), 1e-12);
            EXPECT_NEAR(casteljau(Rt, s), casteljau(P, 0.5 + 0.5 * s), 1e-12);
        }
    }
    GenMatrix<double> M;
    EXPECT_EQ(init_half_split_coefficients(-1, M, nullptr), st::bad_index);
    EXPECT_EQ(init_half_split_coefficients(kestra_max_half_split_degree + 1, M, nullptr),
              st::bad_index);
    v_memptr_fail_after(0);
    EXPECT_EQ(init_half_split_coefficients(4, M, nullptr), st::no_memory);
    v_memptr_fail_after(-1);
    EXPECT_EQ(M.Rows(), 0);
}

// --- GenMatrix ---

TEST(GenMatrix, DeepCopyMoveAndEntryLimit)
{
    GenMatrix<int> a(2, 3);
    a(1, 2) = 7;
    EXPECT_EQ(a.At1(2, 3), 7);  // 1-based view of the same entry
    GenMatrix<int> b(a);
    b(0, 0) = 1;
    EXPECT_EQ((std::vector<int>{a(0, 0), b(1, 2)}), (std::vector<int>{0, 7}));  // deep copy
    GenMatrix<int> c(std::move(b));
    EXPECT_EQ((std::vector<int>{b.Rows(), c(0, 0)}), (std::vector<int>{0, 1}));
    EXPECT_FALSE(c.Resize(1 << 14, 1 << 14));  // above the entry limit
    EXPECT_EQ(c.Rows(), 0);
}

TEST(BSplineDeathTest, OrderBelowOneAndOutsideEntriesStop)
{
    double T[] = {0, 0, 1};
    double N[2];
    EXPECT_DEATH(BSpline_Basis_N(0, T, 0.5, 1, N), "assertion failed in bspline.cpp line");
    GenMatrix<double> m(2, 2);
    EXPECT_DEATH(m(2, 0) = 1.0, "assertion failed in genmatrix.h line");
    EXPECT_DEATH(m.At1(0, 1) = 1.0, "assertion failed in genmatrix.h line");
    EXPECT_DEATH(m.Resize(-1, 2), "assertion failed in genmatrix.h line");
}
