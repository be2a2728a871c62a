// Comparison of two matrices: of their dimensions, and of their elements with a tolerance.
// Elements are compared row by row up to the first pair that differs.
#include <cstdint>

#include <vesk/matrix_compare.h>
#include <vesk/matrix_value.h>

#include "matrix/element_access.hpp"
#include "support/precondition.hpp"

// Whether `holds` is true of every pair of elements, asked row by row up to the first failure.
template <typename Holds>
static int _matrix_holds_for_pairs(const matrix *m1, const matrix *m2, Holds holds)
{
    if (!matrix_is_equal_dimensions(m1, m2)) {
        return 0;
    }
    const uint32_t nrows = m1->nrows;
    const uint32_t ncols = m1->ncols;
    const element_reader elements1(m1);
    const element_reader elements2(m2);
    for (uint32_t i = 0; i < nrows; ++i) {
        const element_row row1(elements1, i);
        const element_row row2(elements2, i);
        for (uint32_t j = 0; j < ncols; ++j) {
            if (!holds(row1[j], row2[j])) {
                return 0;
            }
        }
    }
    return 1;
}

// The same of every element of one matrix.
template <typename Holds>
static int _matrix_holds_for_elements(const matrix *m, Holds holds)
{
    const uint32_t nrows = matrix_get_number_rows(m);
    const uint32_t ncols = matrix_get_number_columns(m);
    const element_reader elements(m);
    for (uint32_t i = 0; i < nrows; ++i) {
        const element_row row(elements, i);
        for (uint32_t j = 0; j < ncols; ++j) {
            if (!holds(row[j])) {
                return 0;
            }
        }
    }
    return 1;
}

int matrix_is_equal_dimensions(const matrix *m1, const matrix *m2)
{
    VESK_REQUIRE(m1 != nullptr, "m1 != ((void *)0)");
    VESK_REQUIRE(m2 != nullptr, "m2 != ((void *)0)");
    return matrix_get_number_rows(m1) == matrix_get_number_rows(m2) &&
           matrix_get_number_columns(m1) == matrix_get_number_columns(m2);
}

int matrix_is_equal(const matrix *m1, const matrix *m2)
{
    // Values that are exactly equal need not be asked about their distance.
    return _matrix_holds_for_pairs(
        m1, m2, [](double a, double b) { return a == b || matrix_value_is_equal(a, b); });
}

int matrix_is_less(const matrix *m1, const matrix *m2)
{
    return _matrix_holds_for_pairs(m1, m2, [](double a, double b) { return a < b; });
}

int matrix_is_less_equal(const matrix *m1, const matrix *m2)
{
    return _matrix_holds_for_pairs(m1, m2, [](double a, double b) { return a <= b; });
}

int matrix_is_greater(const matrix *m1, const matrix *m2)
{
    return _matrix_holds_for_pairs(m1, m2, [](double a, double b) { return a > b; });
}

int matrix_is_greater_equal(const matrix *m1, const matrix *m2)
{
    return _matrix_holds_for_pairs(m1, m2, [](double a, double b) { return a >= b; });
}

int matrix_is_equal_scalar(const matrix *m, double s)
{
    return _matrix_holds_for_elements(m, [s](double a) { return a == s; });
}

int matrix_is_less_scalar(const matrix *m, double s)
{
    return _matrix_holds_for_elements(m, [s](double a) { return a < s; });
}

int matrix_is_less_equal_scalar(const matrix *m, double s)
{
    return _matrix_holds_for_elements(m, [s](double a) { return a <= s; });
}

int matrix_is_greater_scalar(const matrix *m, double s)
{
    return _matrix_holds_for_elements(m, [s](double a) { return a > s; });
}

int matrix_is_greater_equal_scalar(const matrix *m, double s)
{
    return _matrix_holds_for_elements(m, [s](double a) { return a >= s; });
}
