// Comparison of floats with an absolute tolerance of 1E-6. A NaN, which stands for a missing
// reading, is below every number.
#include <cmath>

#include <vesk/float_util.h>

#include "support/precondition.hpp"

static constexpr float epsilon = 1E-6F;

double float_epsilon(void)
{
    return epsilon;
}

int float_compare(float a, float b)
{
    if (std::isnan(a) || std::isnan(b)) {
        return static_cast<int>(std::isnan(b)) - static_cast<int>(std::isnan(a));
    }
    const float c = a - b;
    if (c > epsilon) {
        return 1;
    }
    if (c < -epsilon) {
        return -1;
    }
    // Equal infinities end here: unlike doubles they have no case of their own.
    VESK_REQUIRE(fabs(static_cast<double>(c)) <= float_epsilon(), "fabs (c) <= ((float) 1E-6)");
    return 0;
}

int float_is_equal(float a, float b)
{
    return static_cast<int>(float_compare(a, b) == 0);
}
