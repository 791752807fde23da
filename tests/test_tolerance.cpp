// Global tolerances, tolerance filters, signs and rounding.
#include "base_support.h"
#include <cfloat>
#include <climits>

using namespace basetest;

namespace {

const double kDenormal = 1e-310;  // below DBL_MIN (about 2.2e-308)

double dimension(double value, double offset, double step, double threshold)
{
    double r = -1.0;
    rounding_dimension(value, offset, step, threshold, &r);
    return r;
}

}  // namespace

TEST(Globals, InitialValues_AreTheModuleDefaults)
{
    // Runs in its own process before any fixture changes them.
    EXPECT_TRUE(tavotoll.point == 1e-08 && tavotoll.angle == 1e-11 && tavotoll.coarse == 1e-07 &&
                tavotoll.param == 1e-11);
    EXPECT_TRUE(tavo_min_weight == 1e-11 && tavo_chordal_tolerance == 0.0001 &&
                tavo_view_depth == 1000.0);
    EXPECT_NEAR(tavo_angular_step, 3.0 * kPi / 180.0, 1e-15);  // three degrees
}

TEST_F(TolFixture, Filters_InclusiveBoundEachReadsItsOwnFieldDenormalsDropped)
{
    expect_rows({{toll_testp(1e-08), 1e-08, "the tie keeps x"},
                 {toll_testp(-1e-08), -1e-08, "the tie keeps x"},
                 {toll_testp(9.9e-09), 0.0, "below point"},
                 {toll_testp(kNaN), kNaN, "NaN stays NaN"},
                 {toll_testa(-kInf), -kInf, "infinity stays"}});
    // Changed at run time, the fields take effect at the next call; spread apart, a filter
    // reading the wrong field shows.
    tavotoll = V_TOLERANCE{1e-3, 1e-9, 1e6, 1.0};
    expect_rows({{toll_testp(5e-4), 0.0, "point 1e-3"},
                 {toll_testa(5e-4), 5e-4, "angle 1e-9, not point"},
                 {toll_testa(1e-9), 1e-9, "angle tie"},
                 {toll_testp_param(0.5, 0.5), 0.5, "argument tie"},
                 {toll_testp_param(0.4999, 0.5), 0.0, "below the argument"},
                 {toll_testp_param(5e-4, 1e-6), 5e-4, "no field read"}});
    tavotoll = V_TOLERANCE{0.0, 0.0, 0.0, 0.0};
    expect_rows({{toll_testp(kDenormal), 0.0, "a denormal is noise"},
                 {toll_testa(kDenormal), 0.0, "a denormal is noise"},
                 {toll_testp_param(kDenormal, 0.0), 0.0, "a denormal is noise"},
                 {toll_testp(DBL_MIN), DBL_MIN, "DBL_MIN is not a denormal"},
                 {toll_testa(5e-12), 5e-12, "angle 0 now, not the default 1e-11"}});
}

TEST_F(TolFixture, Signs_DeadZoneWithInclusiveBoundsIntegerSignsExact)
{
    expect_rows({{dsgn(1e-08), 1, "inclusive"},
                 {dsgn(-1e-08), -1, "inclusive"},
                 {dsgn(9.9e-09), 0, "dead zone"},
                 {dsgn(kNaN), 0, "NaN"},
                 {fsgn(2e-8f), 1, "float widened"},
                 {fsgn(1e-8f), 0, "1e-8f is 9.99999993922529e-09, inside the dead zone"}});
    tavotoll.point = 0.5;
    expect_rows({{dsgn(0.4), 0, "dead zone 0.5, read at the call"}});
    tavotoll.point = 0.0;
    expect_rows({{dsgn(0.0), 1, "no dead zone: the inclusive upper bound claims zero"}});
    tavotoll.point = 1e6;  // not read by the integer signs
    expect_rows({{lsgn(LONG_MIN), -1, "long"},
                 {lsgn(1L), 1, "long"},
                 {isgn(1), 1, "int"},
                 {isgn(INT_MIN), -1, "int"},
                 {ssgn(static_cast<short>(0)), 0, "short"}});
}

TEST_F(TolFixture, Rounds_IntTiesTowardZeroDigitsHalfUpInSizeDeadZoneOnlyForRounds)
{
    expect_rows({{rounds(2.5), 2, "int form: tie toward zero"},
                 {rounds(-2.5), -2, "int form: tie toward zero"},
                 {rounds(-2.6), -3, "nearest"},
                 {rounds(2.75), 3, "nearest"},
                 {rounds(kNaN), 0, "NaN"},
                 {rounds(kInf), INT_MAX, "saturates"},
                 {rounds(-1e300), INT_MIN, "saturates"},
                 {rounds(1.23456, 2), 1.23, "two decimals"},
                 {rounds(-0.126, 2), -0.13, "half up in size"},
                 {rounds(2.5, 0), 3.0, "unlike the int form, halves go up in size"},
                 {rounds(1234.5678, -2), 1234.57, "the sign of digits is ignored"},
                 {rounds(5e-09, 9), 0.0, "below tavotoll.point"},
                 {rounds(kNaN, 3), kNaN, "NaN kept"},
                 {rounds(-kInf, 3), -kInf, "infinity kept"},
                 {rounds(0.1, 400), 0.1, "10^400 is not representable"},
                 {rounds(0.0, 400), 0.0, "no NaN from 0 times infinity"},
                 {rounds(1e300, 10), 1e300, "product not finite"},
                 {rounds(5e-9, 400), 0.0, "product not finite, dead zone kept"},
                 {rounds_real(5e-09, 9), 5e-09, "no dead zone"},
                 {rounds_real(1.23456, 3), 1.235, "three decimals"},
                 {rounds_real(-2.5, 0), -3.0, "half up in size"},
                 {rounds_real(1260.0, -2), 1300.0, "hundreds"},
                 {rounds_real(1234.5678, -2), 1200.0, "the sign of digits counts"},
                 {rounds_real(kNaN, 2), kNaN, "NaN kept"},
                 {rounds_real(123.0, -400), 0.0, "10^-400 underflows: all round to 0"},
                 {rounds_real(0.1, 400), 0.1, "10^400 overflows"}});
    tavotoll.point = 1e-12;
    expect_rows({{rounds(5e-09, 9), 5e-09, "above the smaller tolerance, read at the call"},
                 {rounds_real(2e-13, 13), 2e-13, "tolerance not read"}});
}

TEST_F(TolFixture, Steps_RoundInRangeTiesAwayFromZeroRoundingDimensionOffsetCountsTwice)
{
    expect_rows({{round_in_range(7.5, 5.0), 10.0, "tie away from zero"},
                 {round_in_range(-7.4, 5.0), -5.0, "nearest"},
                 {round_in_range(-12.5, 5.0), -15.0, "tie away from zero"},
                 {round_in_range(7.5, -5.0), 10.0, "only |step| counts"},
                 {round_in_range(2.0, 5.0), 0.0, "no multiple reached"},
                 {round_in_range(3.0, 0.0), 3.0, "zero step keeps x"},
                 {round_in_range(-3.0, 5e-9), -3.0, "step inside the dead zone"},
                 {round_in_range(5e-9, 5.0), 0.0, "value inside the dead zone"},
                 {round_in_range(kNaN, 5.0), 0.0, "dsgn(NaN) is 0"},
                 {round_in_range(3.0, kNaN), 3.0, "dsgn(NaN) step is 0"},
                 {round_in_range(3.0, kInf), 0.0, "the only finite multiple is 0"}});
    // No multiple reached: 0 * |step| * s keeps the sign of x in the zero.
    EXPECT_TRUE(std::signbit(round_in_range(-2.0, 5.0)) &&
                std::signbit(round_in_range(-3.0, kInf)));
    EXPECT_FALSE(std::signbit(round_in_range(2.0, 5.0)));
    expect_rows({{dimension(12.0, 0.0, 5.0, 1.0), 15.0, "t 12, m 10, r 2: threshold not above"},
                 {dimension(12.0, 0.0, 5.0, 3.0), 10.0, "threshold above r"},
                 {dimension(12.0, 0.0, 5.0, 2.0), 15.0, "threshold == r is not greater"},
                 {dimension(12.0, 1.0, 5.0, 3.5), 15.0, "t 14 (once would give 13 and 10)"},
                 {dimension(-12.0, 0.0, 5.0, 4.0), -10.0, "k truncated toward zero: m -10, r -2"},
                 {dimension(12.3, 4.0, 1e-08, 0.5), 12.3, "step == tavotoll.point: inclusive"},
                 {dimension(12.3, 4.0, kInf, 0.5), 12.3, "infinite step"},
                 {dimension(12.3, 4.0, kNaN, 0.5), 12.3, "NaN step"}});
    tavotoll.point = 10.0;
    expect_rows({{dimension(12.3, 0.0, 5.0, 0.5), 12.3, "step inside the larger tolerance"},
                 {round_in_range(32.0, 5.0), 32.0, "step now inside the dead zone"}});
}
