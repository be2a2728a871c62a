// Elements of matrices as numbers: their comparison with a tolerance, their range, how they are
// read from text, and the unit roundoff that thresholds are built on.
#include <stdlib.h>

#include <vesk/double_util.h>
#include <vesk/matrix_value.h>

#include "support/precondition.hpp"

double matrix_value_max(double, double)
{
    return double_max();
}

double matrix_value_min(double, double)
{
    return double_min();
}

int matrix_value_compare(double a, double b)
{
    return double_compare(a, b);
}

int matrix_value_is_equal(double a, double b)
{
    return double_is_equal(a, b);
}

double matrix_value_from_string(const char *str)
{
    VESK_REQUIRE(str != nullptr, "str != ((void *)0)");
    return atof(str);
}

double matrix_value_unit_roundoff(void)
{
    // Not 2^-52: the thresholds built on it are stated with this decimal.
    return 2.2e-16;
}
