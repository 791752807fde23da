// Global tolerances, tolerance filters, signs and rounding.
#include "foundation/vector_algebra.h"
#include <gtest/gtest.h>
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const double kDenormal = 1e-310;  // below DBL_MIN (about 2.2e-308)

class TolFixture : public ::testing::Test {
protected:
    V_TOLERANCE saved_ = tavotoll;
    void TearDown() override { tavotoll = saved_; }
};

}  // namespace

// --- globals ---

TEST(Globals, InitialValues_AreTheModuleDefaults)
{
    // Runs in its own process before any fixture changes them.
    EXPECT_EQ(tavotoll.point, 1e-08);
    EXPECT_EQ(tavotoll.angle, 1e-11);
    EXPECT_EQ(tavotoll.coarse, 1e-07);
    EXPECT_EQ(tavotoll.param, 1e-11);
    EXPECT_EQ(tavo_min_weight, 1e-11);
    EXPECT_EQ(tavo_chordal_tolerance, 0.0001);
    EXPECT_EQ(tavo_view_depth, 1000.0);
    EXPECT_NEAR(tavo_angular_step, 3.0 * std::acos(-1.0) / 180.0, 1e-15);  // three degrees
    EXPECT_EQ(tavo_angular_step, 0.0523598775598299);
}

// --- tolerance filters ---

TEST_F(TolFixture, Filters_InclusiveBoundNaNKeptDenormalsDropped)
{
    EXPECT_EQ(toll_testp(1e-08), 1e-08);  // tie keeps x
    EXPECT_EQ(toll_testp(-1e-08), -1e-08);
    EXPECT_EQ(toll_testp(9.9e-09), 0.0);
    EXPECT_EQ(toll_testp(-9.9e-09), 0.0);
    EXPECT_TRUE(std::isnan(toll_testp(kNaN)));
    EXPECT_TRUE(std::isnan(toll_testa(kNaN)));
    EXPECT_EQ(toll_testa(-kInf), -kInf);
    // A denormal is noise even when the tolerance would keep it; DBL_MIN is not a denormal.
    tavotoll.point = tavotoll.angle = 0.0;
    EXPECT_EQ(toll_testp(kDenormal), 0.0);
    EXPECT_EQ(toll_testp(-kDenormal), 0.0);
    EXPECT_EQ(toll_testa(kDenormal), 0.0);
    EXPECT_EQ(toll_testp_param(kDenormal, 0.0), 0.0);
    EXPECT_EQ(toll_testp(DBL_MIN), DBL_MIN);
}

TEST_F(TolFixture, Filters_EachReadsItsOwnTolerance)
{
    // Spread the fields apart so that a filter reading the wrong one shows.
    tavotoll.point = 1e-3;
    tavotoll.angle = 1e-9;
    tavotoll.param = 1.0;
    tavotoll.coarse = 1e6;
    EXPECT_EQ(toll_testp(5e-4), 0.0);
    EXPECT_EQ(toll_testp(1e-3), 1e-3);
    EXPECT_EQ(toll_testa(5e-4), 5e-4);
    EXPECT_EQ(toll_testa(5e-10), 0.0);
    EXPECT_EQ(toll_testa(1e-9), 1e-9);
    // The param filter reads only its argument.
    EXPECT_EQ(toll_testp_param(0.5, 0.5), 0.5);
    EXPECT_EQ(toll_testp_param(0.4999, 0.5), 0.0);
    EXPECT_EQ(toll_testp_param(5e-4, 1e-6), 5e-4);
}

TEST_F(TolFixture, Filters_RunTimeChangeTakesEffectAtTheNextCall)
{
    EXPECT_EQ(toll_testp(5e-7), 5e-7);
    tavotoll.point = 1e-6;
    EXPECT_EQ(toll_testp(5e-7), 0.0);
    tavotoll.point = 1e-8;
    EXPECT_EQ(toll_testp(5e-7), 5e-7);
    EXPECT_EQ(toll_testa(5e-12), 0.0);
    tavotoll.angle = 1e-12;
    EXPECT_EQ(toll_testa(5e-12), 5e-12);
}

// --- signs ---

TEST_F(TolFixture, Dsgn_DeadZoneWithInclusiveBounds)
{
    EXPECT_EQ(dsgn(1e-08), 1);
    EXPECT_EQ(dsgn(-1e-08), -1);
    EXPECT_EQ(dsgn(9.9e-09), 0);
    EXPECT_EQ(dsgn(-9.9e-09), 0);
    EXPECT_EQ(dsgn(0.0), 0);
    EXPECT_EQ(dsgn(kInf), 1);
    EXPECT_EQ(dsgn(-kInf), -1);
    EXPECT_EQ(dsgn(kNaN), 0);
    tavotoll.point = 0.5;
    EXPECT_EQ(dsgn(0.4), 0);
    EXPECT_EQ(dsgn(-0.5), -1);
    // With no dead zone the inclusive upper bound claims zero itself.
    tavotoll.point = 0.0;
    EXPECT_EQ(dsgn(0.0), 1);
}

TEST_F(TolFixture, Fsgn_WidensTheFloatFirstAndIntegerSignsAreExact)
{
    EXPECT_EQ(fsgn(2e-8f), 1);
    EXPECT_EQ(fsgn(-2e-8f), -1);
    EXPECT_EQ(fsgn(1e-8f), 0);  // 1e-8 as a float is 9.99999993922529e-09, inside the dead zone
    tavotoll.point = 1e6;       // not read by the integer signs
    EXPECT_EQ(lsgn(LONG_MIN), -1);
    EXPECT_EQ(lsgn(0L), 0);
    EXPECT_EQ(isgn(1), 1);
    EXPECT_EQ(isgn(INT_MIN), -1);
    EXPECT_EQ(ssgn(static_cast<short>(-32768)), -1);
    EXPECT_EQ(ssgn(static_cast<short>(0)), 0);
}

// --- rounding ---

TEST(RoundsInt, TiesGoTowardZeroAndOutOfRangeSaturates)
{
    EXPECT_EQ(rounds(2.5), 2);
    EXPECT_EQ(rounds(-2.5), -2);
    EXPECT_EQ(rounds(-0.5), 0);
    EXPECT_EQ(rounds(-2.6), -3);
    EXPECT_EQ(rounds(2.75), 3);
    EXPECT_EQ(rounds(2.49), 2);
    EXPECT_EQ(rounds(kNaN), 0);
    EXPECT_EQ(rounds(kInf), INT_MAX);
    EXPECT_EQ(rounds(-1e300), INT_MIN);
    EXPECT_EQ(rounds(2147483646.6), 2147483647);
}

TEST_F(TolFixture, RoundsDigits_HalfUpInSizeWithTheDeadZoneOfDsgn)
{
    EXPECT_DOUBLE_EQ(rounds(1.23456, 2), 1.23);
    EXPECT_DOUBLE_EQ(rounds(-0.126, 2), -0.13);
    EXPECT_DOUBLE_EQ(rounds(2.5, 0), 3.0);  // unlike the int form, halves go up in size
    EXPECT_DOUBLE_EQ(rounds(-2.5, 0), -3.0);
    EXPECT_DOUBLE_EQ(rounds(1234.5678, -2), 1234.57);  // the sign of digits is ignored
    EXPECT_EQ(rounds(5e-09, 9), 0.0);                  // below tavotoll.point
    tavotoll.point = 1e-12;
    EXPECT_DOUBLE_EQ(rounds(5e-09, 9), 5e-09);
    tavotoll.point = 0.1;
    EXPECT_EQ(rounds(0.05, 3), 0.0);
}

TEST_F(TolFixture, RoundsDigits_NonFiniteAndExtremeDigitsKeepX)
{
    EXPECT_TRUE(std::isnan(rounds(kNaN, 3)));
    EXPECT_EQ(rounds(-kInf, 3), -kInf);
    EXPECT_EQ(rounds(0.1, 400), 0.1);  // 10^400 is not representable
    EXPECT_EQ(rounds(0.0, 400), 0.0);
    EXPECT_EQ(rounds(-3.0, -32768), -3.0);
    EXPECT_EQ(rounds(1e300, 10), 1e300);
    EXPECT_TRUE(std::isnan(rounds_real(kNaN, 2)));
    EXPECT_EQ(rounds_real(kInf, 2), kInf);
    EXPECT_EQ(rounds_real(123.0, -400), 0.0);  // 10^-400 underflows: everything rounds to 0
    EXPECT_EQ(rounds_real(0.1, 400), 0.1);
}

TEST_F(TolFixture, RoundsReal_NoDeadZoneAndNegativeDigitsRoundToTens)
{
    EXPECT_DOUBLE_EQ(rounds_real(5e-09, 9), 5e-09);  // 5.5 truncates to 5
    EXPECT_DOUBLE_EQ(rounds_real(1e-09, 10), 1e-09);
    EXPECT_DOUBLE_EQ(rounds_real(1.23456, 3), 1.235);
    EXPECT_DOUBLE_EQ(rounds_real(-2.5, 0), -3.0);
    EXPECT_DOUBLE_EQ(rounds_real(1260.0, -2), 1300.0);
    EXPECT_DOUBLE_EQ(rounds_real(-1240.0, -2), -1200.0);
    EXPECT_DOUBLE_EQ(rounds_real(1234.5678, -2), 1200.0);  // the sign of digits counts here
    tavotoll.point = 1.0;                                  // not read
    EXPECT_DOUBLE_EQ(rounds_real(0.25, 1), 0.3);
}

TEST_F(TolFixture, RoundInRange_TiesAwayFromZero)
{
    EXPECT_DOUBLE_EQ(round_in_range(7.5, 5.0), 10.0);
    EXPECT_DOUBLE_EQ(round_in_range(-7.4, 5.0), -5.0);
    EXPECT_DOUBLE_EQ(round_in_range(-12.5, 5.0), -15.0);
    EXPECT_DOUBLE_EQ(round_in_range(12.4, 5.0), 10.0);
    EXPECT_DOUBLE_EQ(round_in_range(7.5, -5.0), 10.0);  // only |step| counts
    EXPECT_DOUBLE_EQ(round_in_range(0.3, 0.25), 0.25);
    EXPECT_EQ(round_in_range(2.0, 5.0), 0.0);  // no multiple reached
}

TEST_F(TolFixture, RoundInRange_DeadZonesAndNonFiniteInput)
{
    EXPECT_EQ(round_in_range(3.0, 0.0), 3.0);
    EXPECT_EQ(round_in_range(-3.0, 5e-9), -3.0);  // step inside the dead zone
    EXPECT_EQ(round_in_range(5e-9, 5.0), 0.0);    // value inside the dead zone
    EXPECT_EQ(round_in_range(kNaN, 5.0), 0.0);    // dsgn(NaN) is 0
    EXPECT_EQ(round_in_range(3.0, kNaN), 3.0);
    EXPECT_EQ(round_in_range(3.0, kInf), 0.0);  // the only finite multiple is 0
    tavotoll.point = 1.0;
    EXPECT_EQ(round_in_range(3.0, 0.5), 3.0);  // step now inside the dead zone
    EXPECT_EQ(round_in_range(0.9, 0.1), 0.0);
}

TEST_F(TolFixture, RoundingDimension_OffsetCountsTwice)
{
    double r = -1.0;
    // t = 12, k = 2, m = 10, r = 2.
    rounding_dimension(12.0, 0.0, 5.0, 1.0, &r);
    EXPECT_DOUBLE_EQ(r, 15.0);
    rounding_dimension(12.0, 0.0, 5.0, 3.0, &r);
    EXPECT_DOUBLE_EQ(r, 10.0);
    rounding_dimension(12.0, 0.0, 5.0, 2.0, &r);  // threshold == remainder: not greater
    EXPECT_DOUBLE_EQ(r, 15.0);
    // Offset 1 twice: t = 14, r = 4 > 3.5 gives 15 (once would give t = 13, r = 3, so 10).
    rounding_dimension(12.0, 1.0, 5.0, 3.5, &r);
    EXPECT_DOUBLE_EQ(r, 15.0);
    // Truncation toward zero for negative t: k = -2, m = -10, r = -2.
    rounding_dimension(-12.0, 0.0, 5.0, 1.0, &r);
    EXPECT_DOUBLE_EQ(r, -10.0);
}

TEST_F(TolFixture, RoundingDimension_SmallOrNonFiniteStepKeepsValue)
{
    double r = 0.0;
    rounding_dimension(12.3, 4.0, 1e-08, 0.5, &r);  // step == tavotoll.point: inclusive
    EXPECT_EQ(r, 12.3);
    rounding_dimension(12.3, 4.0, -5.0, 0.5, &r);
    EXPECT_EQ(r, 12.3);
    rounding_dimension(12.3, 4.0, kInf, 0.5, &r);
    EXPECT_EQ(r, 12.3);
    rounding_dimension(12.3, 4.0, kNaN, 0.5, &r);
    EXPECT_EQ(r, 12.3);
    tavotoll.point = 10.0;
    rounding_dimension(12.3, 0.0, 5.0, 0.5, &r);
    EXPECT_EQ(r, 12.3);
}
