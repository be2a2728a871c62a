// Comparison of doubles with an absolute tolerance of 1E-6, and the range of doubles. A NaN, which
// stands for a missing reading, is below every number.
#include <cfloat>
#include <cmath>

#include <vesk/double_util.h>

#include "support/precondition.hpp"

static constexpr double epsilon = 1E-6;

double double_epsilon(void)
{
    return epsilon;
}

double double_min(void)
{
    return -DBL_MAX;
}

double double_max(void)
{
    return DBL_MAX;
}

static bool _are_equal_infinities(double a, double b)
{
    return std::isinf(a) && a == b;
}

int double_compare(double a, double b)
{
    VESK_REQUIRE(!std::isnan(HUGE_VAL), "!isnan ((__extension__ 0x1.0p2047))");
    if (std::isnan(a) || std::isnan(b)) {
        return static_cast<int>(std::isnan(b)) - static_cast<int>(std::isnan(a));
    }
    // Their difference is not a number.
    if (_are_equal_infinities(a, b)) {
        return 0;
    }
    const double c = a - b;
    if (c > epsilon) {
        return 1;
    }
    if (c < -epsilon) {
        return -1;
    }
    VESK_REQUIRE(fabs(c) <= epsilon, "fabs (c) <= ((double) 1E-6)");
    return 0;
}

int double_is_equal(double a, double b)
{
    return static_cast<int>(double_compare(a, b) == 0);
}
