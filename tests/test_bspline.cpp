// B-spline and Bernstein bases, span search, Bezier half-split and degree elevation,
// checked against plain reference computations written here.
#include <kestra/kestra.h>
#include "foundation/status.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

// Knots 1-based (element 0 unused): distinct values 0 = v1 < ... < vd = 1 with random
// interior multiplicities 1..max_mult and end multiplicities order.
std::vector<double> random_knots(std::mt19937& rng, int order, int n_interior, int max_mult)
{
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    std::uniform_int_distribution<int> mult(1, max_mult);
    std::vector<double> vals;
    for (int k = 0; k < n_interior; ++k) vals.push_back(0.05 + 0.9 * uni(rng));
    std::sort(vals.begin(), vals.end());
    std::vector<double> T{0.0};
    for (int r = 0; r < order; ++r) T.push_back(0.0);
    for (double v : vals) {
        const int m = mult(rng);
        for (int r = 0; r < m; ++r) T.push_back(v);
    }
    for (int r = 0; r < order; ++r) T.push_back(1.0);
    return T;
}

// Cox-de Boor by its defining recursion (1-based knots, 0/0 taken as 0).
double cox_de_boor(int i, int k, const std::vector<double>& T, double t)
{
    if (k == 1) return (T[i] <= t && t < T[i + 1]) ? 1.0 : 0.0;
    double v = 0.0;
    const double d0 = T[i + k - 1] - T[i];
    const double d1 = T[i + k] - T[i + 1];
    if (d0 > 0.0) v += (t - T[i]) / d0 * cox_de_boor(i, k - 1, T, t);
    if (d1 > 0.0) v += (T[i + k] - t) / d1 * cox_de_boor(i + 1, k - 1, T, t);
    return v;
}

// Point of a B-spline by de Boor's algorithm; U 0-based (n + order knots), P n points of
// vpp values. The span is the last non-degenerate one starting at or below u.
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

// Spans of non-zero length among order..n (1-based knots).
std::vector<int> live_spans(const std::vector<double>& T, int order)
{
    const int n = int(T.size()) - 1 - order;
    std::vector<int> s;
    for (int k = order; k <= n; ++k)
        if (T[k] < T[k + 1]) s.push_back(k);
    return s;
}

}  // namespace

// --- basis functions ---

TEST(BSplineBasis, MatchesCoxDeBoorRecursion_RandomKnotsOrders1To12)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    for (int order = 1; order <= 12; ++order) {
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<double> T = random_knots(rng, order, 6, order);
            for (int span : live_spans(T, order)) {
                const double t = T[span] + uni(rng) * (T[span + 1] - T[span]);
                std::vector<double> N(size_t(order + 1), -7.0);
                BSpline_Basis_N(order, T.data(), t, span, N.data());
                double sum = 0.0;
                for (int k = 1; k <= order; ++k) {
                    const double ref = cox_de_boor(span - order + k, order, T, t);
                    EXPECT_NEAR(N[k], ref, 1e-12) << "order " << order << " k " << k;
                    EXPECT_GE(N[k], 0.0);
                    sum += N[k];
                }
                EXPECT_NEAR(sum, 1.0, 1e-13);
            }
        }
    }
}

TEST(BSplineBasis, OrderOneIsOneAnywhere)
{
    double T[] = {0, 0.0, 0.5, 1.0};
    for (double t : {0.0, 0.2, 0.49, 0.5, 0.99}) {
        double N[2] = {0, -1};
        double N1[2] = {0, -1};
        double N2[2] = {0, -1};
        BSpline_Basis_N(1, T, t, t < 0.5 ? 1 : 2, N);
        EXPECT_EQ(N[1], 1.0);
        BSpline_Basis_N_N1_N2(1, T, t, t < 0.5 ? 1 : 2, N, N1, N2);
        EXPECT_EQ(N[1], 1.0);
        EXPECT_EQ(N1[1], 0.0);
        EXPECT_EQ(N2[1], 0.0);
    }
}

TEST(BSplineBasis, FullMultiplicityKnot_SumsToOneWithoutDividingByZero)
{
    // Cubic with an interior knot of multiplicity 4 at 0.5: at t = 0.5 only the vertex
    // at the start of the right piece is active (the curve passes through it).
    double T[] = {0, 0, 0, 0, 0, 0.5, 0.5, 0.5, 0.5, 1, 1, 1, 1};
    double N[5], N1[5], N2[5];
    BSpline_Basis_N_N1_N2(4, T, 0.5, 8, N, N1, N2);
    for (int k = 1; k <= 4; ++k) {
        EXPECT_TRUE(std::isfinite(N[k]) && std::isfinite(N1[k]) && std::isfinite(N2[k]));
    }
    EXPECT_EQ(N[1], 1.0);
    EXPECT_EQ(N[2] + N[3] + N[4], 0.0);
    // Right piece is the Bezier cubic on [0.5, 1]: B0' = -3 / 0.5, B1' = 3 / 0.5.
    EXPECT_NEAR(N1[1], -6.0, 1e-12);
    EXPECT_NEAR(N1[2], 6.0, 1e-12);
    EXPECT_NEAR(N2[1], 24.0, 1e-11);  // 6 / 0.25
}

TEST(BSplineBasis, DerivativesMatchCentralDifferences)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> uni(0.2, 0.8);
    for (int order = 2; order <= 9; ++order) {
        for (int trial = 0; trial < 4; ++trial) {
            std::vector<double> T = random_knots(rng, order, 5, order - 1);
            for (int span : live_spans(T, order)) {
                const double len = T[span + 1] - T[span];
                if (len < 1e-3) continue;
                const double t = T[span] + uni(rng) * len;
                const double h = 1e-6 * len;
                const size_t sz = size_t(order + 1);
                std::vector<double> N(sz), N1(sz), N2(sz), Np(sz), Nm(sz), N1p(sz), N1m(sz),
                    scratch(sz);
                BSpline_Basis_N_N1_N2(order, T.data(), t, span, N.data(), N1.data(), N2.data());
                BSpline_Basis_N_N1(order, T.data(), t + h, span, Np.data(), N1p.data());
                BSpline_Basis_N_N1(order, T.data(), t - h, span, Nm.data(), N1m.data());
                std::vector<double> Nonly(sz), Nn1(sz), N1only(sz);
                BSpline_Basis_N(order, T.data(), t, span, Nonly.data());
                BSpline_Basis_N_N1(order, T.data(), t, span, Nn1.data(), N1only.data());
                double s1 = 0.0, s2 = 0.0;
                for (int k = 1; k <= order; ++k) {
                    const double scale = 1.0 / len;
                    EXPECT_NEAR(N1[k], (Np[k] - Nm[k]) / (2 * h), 1e-5 * scale);
                    EXPECT_NEAR(N2[k], (N1p[k] - N1m[k]) / (2 * h), 1e-4 * scale * scale);
                    EXPECT_NEAR(Nonly[k], N[k], 1e-15);
                    EXPECT_NEAR(Nn1[k], N[k], 1e-15);
                    EXPECT_NEAR(N1only[k], N1[k], 1e-9 * scale);
                    s1 += N1[k];
                    s2 += N2[k];
                }
                // The functions sum to 1, so their derivatives sum to 0.
                EXPECT_NEAR(s1, 0.0, 1e-9 / len);
                EXPECT_NEAR(s2, 0.0, 1e-7 / (len * len));
            }
        }
    }
}

TEST(BSplineBasis, HighOrderStillPartitionsUnity)
{
    // Orders above the usual 21: Bezier of order 30 equals the Bernstein basis.
    const int order = 30;
    std::vector<double> T(size_t(2 * order + 1), 0.0);
    for (int k = order + 1; k <= 2 * order; ++k) T[size_t(k)] = 1.0;
    std::vector<double> N(static_cast<size_t>(order + 1)), B(static_cast<size_t>(order));
    BSpline_Basis_N(order, T.data(), 0.3, order, N.data());
    Bernstein_Base(order - 1, 0.3, B.data());
    for (int k = 1; k <= order; ++k) EXPECT_NEAR(N[k], B[size_t(k - 1)], 1e-14);
}

TEST(BSplineBasisDeathTest, OrderBelowOneStops)
{
    double T[] = {0, 0, 1};
    double N[2];
    EXPECT_DEATH(BSpline_Basis_N(0, T, 0.5, 1, N), "assertion failed in bspline.cpp line");
}

// --- span search ---

TEST(FindSpanLinear, AgreesWithScanAndPlacesTheEndInTheLastLiveSpan)
{
    // Cubic, interior knots 0.25 (x2), 0.5, 0.75 (x3): n = 10 control points.
    std::vector<double> T{0, 0, 0, 0, 0, 0.25, 0.25, 0.5, 0.75, 0.75, 0.75, 1, 1, 1, 1};
    const int order = 4, n = 10;
    for (int s = 0; s <= 1000; ++s) {
        const double t = s / 1000.0;
        int expect = 0;
        for (int k = order; k <= n; ++k)
            if (T[k] <= t && t < T[k + 1]) expect = k;
        if (t == 1.0) expect = n;  // last span [0.75, 1)
        EXPECT_EQ(kestra::detail::find_span_linear(n, order, T.data(), t), expect) << t;
    }
    EXPECT_EQ(kestra::detail::find_span_linear(n, order, T.data(), 0.25), 6);
    EXPECT_EQ(kestra::detail::find_span_linear(n, order, T.data(), -1e-15), 0);
    EXPECT_EQ(kestra::detail::find_span_linear(n, order, T.data(), 1.0 + 1e-15), 0);
    EXPECT_EQ(kestra::detail::find_span_linear(n, order, T.data(), std::nan("")), 0);
    EXPECT_EQ(kestra::detail::find_span_linear(3, order, T.data(), 0.5), 0);  // n < order
}

TEST(FindSpanLinear, EndOfUnclampedVectorSkipsZeroLengthSpans)
{
    // Order 2, last knot repeated beyond the range end: T[n+1] = T[n] = 1 makes span n
    // degenerate, the end parameter belongs to span n - 1.
    std::vector<double> T{0, 0, 0, 0.5, 1, 1, 2};
    EXPECT_EQ(kestra::detail::find_span_linear(4, 2, T.data(), 1.0), 3);
}

// --- Bernstein ---

TEST(BernsteinBase, MatchesBinomialFormulaForSmallDegrees)
{
    for (int n = 0; n <= 20; ++n) {
        for (double t : {0.0, 0.1, 0.37, 0.5, 0.93, 1.0}) {
            std::vector<double> B(size_t(n + 1), -1.0);
            Bernstein_Base(n, t, B.data());
            double binom = 1.0;  // C(n, i), built as i advances
            double sum = 0.0;
            for (int i = 0; i <= n; ++i) {
                const double ref = binom * std::pow(t, i) * std::pow(1.0 - t, n - i);
                EXPECT_NEAR(B[size_t(i)], ref, 1e-14) << n << " " << i;
                binom = binom * (n - i) / (i + 1);
                sum += B[size_t(i)];
            }
            EXPECT_NEAR(sum, 1.0, 1e-13);
        }
    }
}

TEST(BernsteinBase, HighDegreesStayFinite)
{
    for (int n : {60, 100, 400}) {
        std::vector<double> B(size_t(n + 1));
        Bernstein_Base(n, 0.4, B.data());
        double sum = 0.0;
        for (int i = 0; i <= n; ++i) {
            ASSERT_TRUE(std::isfinite(B[size_t(i)]));
            EXPECT_GE(B[size_t(i)], 0.0);
            sum += B[size_t(i)];
            // log C(n, i) + i log t + (n - i) log (1 - t)
            const double ref =
                std::exp(std::lgamma(n + 1.0) - std::lgamma(i + 1.0) - std::lgamma(n - i + 1.0) +
                         i * std::log(0.4) + (n - i) * std::log(0.6));
            EXPECT_NEAR(B[size_t(i)], ref, 1e-12 + 1e-9 * ref);
        }
        EXPECT_NEAR(sum, 1.0, 1e-12);
    }
}

// --- half split ---

namespace {
// Bezier point by de Casteljau (coefficients one value per control point).
double de_casteljau(std::vector<double> b, double s)
{
    for (size_t r = 1; r < b.size(); ++r)
        for (size_t i = 0; i + r < b.size(); ++i) b[i] = (1 - s) * b[i] + s * b[i + 1];
    return b[0];
}
}  // namespace

TEST(HalfSplit, HalvesReproduceTheSegment)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> uni(-5.0, 5.0);
    for (int n : {0, 1, 2, 3, 7, 15}) {
        GenMatrix<double> M;
        std::vector<double> R(size_t((n + 1) * (n + 1)), -99.0);
        ASSERT_EQ(init_half_split_coefficients(n, M, R.data()), st::ok);
        ASSERT_EQ(M.Rows(), n + 1);
        ASSERT_EQ(M.Cols(), n + 1);
        std::vector<double> P(size_t(n + 1));
        for (double& p : P) p = uni(rng);
        std::vector<double> L(size_t(n + 1), 0.0), Rt(size_t(n + 1), 0.0);
        for (int i = 0; i <= n; ++i)
            for (int j = 0; j <= n; ++j) {
                L[size_t(i)] += M(i, j) * P[size_t(j)];
                Rt[size_t(i)] += R[size_t(i * (n + 1) + j)] * P[size_t(j)];
            }
        for (double s = 0.0; s <= 1.0; s += 0.125) {
            EXPECT_NEAR(de_casteljau(L, s), de_casteljau(P, 0.5 * s), 1e-12);
            EXPECT_NEAR(de_casteljau(Rt, s), de_casteljau(P, 0.5 + 0.5 * s), 1e-12);
        }
    }
}

TEST(HalfSplit, RejectsBadDegreesAndAcceptsNullRight)
{
    GenMatrix<double> M;
    EXPECT_EQ(init_half_split_coefficients(-1, M, nullptr), st::bad_index);
    EXPECT_EQ(init_half_split_coefficients(kestra_max_half_split_degree + 1, M, nullptr),
              st::bad_index);
    ASSERT_EQ(init_half_split_coefficients(2, M, nullptr), st::ok);
    // Degree 2 by hand: rows (1 0 0), (1/2 1/2 0), (1/4 1/2 1/4).
    EXPECT_EQ(M.At1(2, 1), 0.5);
    EXPECT_EQ(M.At1(3, 2), 0.5);
    EXPECT_EQ(M.At1(3, 3), 0.25);
    EXPECT_EQ(M.At1(1, 3), 0.0);
}

TEST(HalfSplit, AllocationFailureReports115WithoutLeak)
{
    const long live = v_memptr_live_count();
    {
        GenMatrix<double> M;
        v_memptr_fail_after(0);
        EXPECT_EQ(init_half_split_coefficients(4, M, nullptr), st::no_memory);
        v_memptr_fail_after(-1);
        EXPECT_EQ(M.Rows(), 0);
    }
    EXPECT_EQ(v_memptr_live_count(), live);
}

// --- GenMatrix ---

TEST(GenMatrix, CopiesAndMovesAndIndexesBothWays)
{
    GenMatrix<int> a(2, 3);
    a(1, 2) = 7;
    EXPECT_EQ(a.At1(2, 3), 7);
    GenMatrix<int> b(a);
    b(0, 0) = 1;
    EXPECT_EQ(a(0, 0), 0);
    EXPECT_EQ(b(1, 2), 7);
    GenMatrix<int> c(std::move(b));
    EXPECT_EQ(b.Rows(), 0);
    EXPECT_EQ(c(0, 0), 1);
    EXPECT_FALSE(c.Resize(1 << 14, 1 << 14));  // above the entry limit
    EXPECT_EQ(c.Rows(), 0);
}

TEST(GenMatrixDeathTest, OutsideIndexStops)
{
    GenMatrix<double> m(2, 2);
    EXPECT_DEATH(m(2, 0) = 1.0, "assertion failed in genmatrix.h line");
    EXPECT_DEATH(m.At1(0, 1) = 1.0, "assertion failed in genmatrix.h line");
    EXPECT_DEATH(m.Resize(-1, 2), "assertion failed in genmatrix.h line");
}

// --- degree elevation ---

TEST(DegreeElevation, ShapeIsPreservedAtAThousandParameters)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> uni(-3.0, 3.0);
    for (int order = 1; order <= 6; ++order) {
        for (int t = 1; t <= 3; ++t) {
            for (int vpp = 1; vpp <= 4; vpp += 3) {
                std::vector<double> T1 =
                    random_knots(rng, order, order == 1 ? 0 : 5, order > 1 ? order - 1 : 1);
                std::vector<double> U(T1.begin() + 1, T1.end());
                const int n = int(U.size()) - order;
                std::vector<double> P(size_t(n * vpp));
                for (double& v : P) v = uni(rng);
                const int n_new = kestra::detail::bspline_elevated_count(n, order, U.data(), t);
                // distinct values of a clamped vector minus one spans, t more points each
                int distinct = 1;
                for (size_t k = 1; k < U.size(); ++k) distinct += U[k] != U[k - 1];
                ASSERT_EQ(n_new, n + t * (distinct - 1));
                std::vector<double> U2(size_t(n_new + order + t), -1.0), P2(size_t(n_new * vpp));
                int n_out = 0;
                ASSERT_EQ(kestra::detail::bspline_elevate_degree(n, order, vpp, U.data(), P.data(),
                                                                 t, &n_out, U2.data(), P2.data()),
                          st::ok);
                ASSERT_EQ(n_out, n_new);
                for (size_t k = 1; k < U2.size(); ++k) ASSERT_LE(U2[k - 1], U2[k]);
                for (int s = 0; s <= 1000; ++s) {
                    const double u = s / 1000.0;
                    const std::vector<double> a = de_boor(order, U, P, vpp, u);
                    const std::vector<double> b = de_boor(order + t, U2, P2, vpp, u);
                    for (int c = 0; c < vpp; ++c)
                        ASSERT_NEAR(a[size_t(c)], b[size_t(c)], 1e-10)
                            << "order " << order << " t " << t << " u " << u;
                }
            }
        }
    }
}

TEST(DegreeElevation, RejectsUnclampedAndBadArguments)
{
    std::vector<double> U{0, 0, 0.5, 1, 1.5};  // order 2, 3 points, unclamped end
    std::vector<double> P{0, 1, 2}, U2(16), P2(16);
    int n_out = 0;
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(3, 2, 1, U.data(), P.data(), 1, &n_out,
                                                     U2.data(), P2.data()),
              st::bad_input);
    std::vector<double> C{0, 0, 0.5, 1, 1};
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(3, 2, 1, C.data(), P.data(), -1, &n_out,
                                                     U2.data(), P2.data()),
              st::bad_index);
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(3, 2, 0, C.data(), P.data(), 1, &n_out,
                                                     U2.data(), P2.data()),
              st::bad_input);
    std::vector<double> D{0, 0, 0.5, 0.5, 1, 1};  // order 2 with a full interior knot
    std::vector<double> P4{0, 1, 2, 3};
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(4, 2, 1, D.data(), P4.data(), 1, &n_out,
                                                     U2.data(), P2.data()),
              st::bad_input);
    std::vector<double> N{0, 0, std::nan(""), 1, 1};
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(3, 2, 1, N.data(), P.data(), 1, &n_out,
                                                     U2.data(), P2.data()),
              st::bad_input);
}

TEST(DegreeElevation, ZeroStepsCopiesAndScratchFailureReports115)
{
    std::vector<double> U{0, 0, 0, 1, 1, 1}, P{1, 2, 3}, U2(6), P2(3);
    int n_out = 0;
    ASSERT_EQ(kestra::detail::bspline_elevate_degree(3, 3, 1, U.data(), P.data(), 0, &n_out,
                                                     U2.data(), P2.data()),
              st::ok);
    EXPECT_EQ(n_out, 3);
    EXPECT_EQ(P2, P);
    std::vector<double> U3(8), P3(4);
    v_memptr_fail_after(0);
    EXPECT_EQ(kestra::detail::bspline_elevate_degree(3, 3, 1, U.data(), P.data(), 1, &n_out,
                                                     U3.data(), P3.data()),
              st::no_memory);
    v_memptr_fail_after(-1);
}
