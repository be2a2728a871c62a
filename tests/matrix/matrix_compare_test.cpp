// Comparing matrices with each other and with a number: where a tolerance holds, where none does,
// and what NaN and infinities give.
#include <cmath>
#include <limits>

#include <vesk/matrix_compare.h>

#include "common/aborts.hpp"
#include "common/matrices.hpp"

static constexpr double infinity = std::numeric_limits<double>::infinity();

using compare_two = int (*)(const matrix *, const matrix *);
using compare_scalar = int (*)(const matrix *, double);

// All ways in which two matrices can hold the given values: regular, view and telemetry.
static void expect_comparison(int expected, compare_two compare, const grid &a, const grid &b)
{
    const auto dressed = [](const grid &rows) {
        const std::vector<std::string> names = {"a", "b", "c"};
        return make_telemetry(rows,
                              {names.begin(), names.begin() + static_cast<long>(rows[0].size())},
                              std::vector<long>(rows.size(), 1));
    };
    const owned_matrix first[] = {make_matrix(a), make_view(a), dressed(a)};
    const owned_matrix second[] = {make_matrix(b), make_view(b), dressed(b)};
    for (const owned_matrix &m1 : first) {
        for (const owned_matrix &m2 : second) {
            EXPECT_EQ(expected, compare(m1.get(), m2.get())) << m1->type << " and " << m2->type;
        }
    }
}

static void expect_scalar(int expected, compare_scalar compare, const grid &a, double s)
{
    const owned_matrix m = make_matrix(a);
    const owned_matrix view = make_view(a);
    EXPECT_EQ(expected, compare(m.get(), s));
    EXPECT_EQ(expected, compare(view.get(), s));
}

TEST(MatrixIsEqualDimensions, ComparesRowsAndColumns)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    const owned_matrix same = make_view({{0, 0, 0}, {0, 0, 0}});
    const owned_matrix fewer_columns = make_matrix({{1, 2}, {4, 5}});
    const owned_matrix fewer_rows = make_matrix({{1, 2, 3}});
    EXPECT_EQ(1, matrix_is_equal_dimensions(m.get(), same.get()));
    EXPECT_EQ(0, matrix_is_equal_dimensions(m.get(), fewer_columns.get()));
    EXPECT_EQ(0, matrix_is_equal_dimensions(m.get(), fewer_rows.get()));
}

TEST(MatrixIsEqual, ToleratesSmallDifferences)
{
    expect_comparison(1, matrix_is_equal, {{1, 2}, {3, 4}}, {{1, 2}, {3, 4}});
    expect_comparison(1, matrix_is_equal, {{1, 2}, {3, 4}}, {{1, 2}, {3, 4.0000005}});
    expect_comparison(0, matrix_is_equal, {{1, 2}, {3, 4}}, {{1, 2}, {3, 4.000002}});
    expect_comparison(0, matrix_is_equal, {{1, 2}, {3, 4}}, {{0, 2}, {3, 4}});
}

TEST(MatrixIsEqual, TakesEqualInfinitiesAndNaNAsEqual)
{
    expect_comparison(1, matrix_is_equal, {{infinity, -infinity, NAN}},
                      {{infinity, -infinity, NAN}});
    expect_comparison(0, matrix_is_equal, {{infinity}}, {{-infinity}});
    expect_comparison(0, matrix_is_equal, {{NAN}}, {{1}});
    expect_comparison(0, matrix_is_equal, {{1}}, {{NAN}});
}

TEST(MatrixOrder, HoldsOnlyIfItHoldsEverywhere)
{
    expect_comparison(1, matrix_is_less, {{1, 2}, {3, 4}}, {{2, 3}, {4, 5}});
    expect_comparison(0, matrix_is_less, {{1, 2}, {3, 4}}, {{2, 3}, {4, 4}});
    expect_comparison(1, matrix_is_less_equal, {{1, 2}, {3, 4}}, {{2, 3}, {4, 4}});
    expect_comparison(0, matrix_is_less_equal, {{1, 2}, {3, 4}}, {{2, 3}, {4, 3}});
    expect_comparison(1, matrix_is_greater, {{2, 3}, {4, 5}}, {{1, 2}, {3, 4}});
    expect_comparison(0, matrix_is_greater, {{2, 3}, {4, 4}}, {{1, 2}, {3, 4}});
    expect_comparison(1, matrix_is_greater_equal, {{2, 3}, {4, 4}}, {{1, 2}, {3, 4}});
    expect_comparison(0, matrix_is_greater_equal, {{0, 3}, {4, 4}}, {{1, 2}, {3, 4}});
}

TEST(MatrixOrder, KnowsNoTolerance)
{
    expect_comparison(1, matrix_is_less, {{1}}, {{1.0000005}});
    expect_comparison(0, matrix_is_greater_equal, {{1}}, {{1.0000005}});
    expect_comparison(1, matrix_is_greater, {{1.0000005}}, {{1}});
    expect_comparison(0, matrix_is_less_equal, {{1.0000005}}, {{1}});
}

TEST(MatrixOrder, NeverHoldsForNaN)
{
    for (const compare_two compare :
         {matrix_is_less, matrix_is_less_equal, matrix_is_greater, matrix_is_greater_equal}) {
        expect_comparison(0, compare, {{NAN}}, {{NAN}});
        expect_comparison(0, compare, {{NAN}}, {{1}});
    }
}

TEST(MatrixComparison, OfDifferentShapesIsFalse)
{
    for (const compare_two compare : {matrix_is_equal, matrix_is_less, matrix_is_less_equal,
                                      matrix_is_greater, matrix_is_greater_equal}) {
        expect_comparison(0, compare, {{1, 1}}, {{1}, {1}});
        expect_comparison(0, compare, {{1, 1}}, {{1, 1, 1}});
    }
}

TEST(MatrixComparison, NeedsTwoUsableMatrices)
{
    const owned_matrix m = make_matrix({{1}});
    const owned_matrix no_rows(matrix_create_null());
    matrix dead;
    matrix_init(&dead, 1, 1);
    matrix_destruct(&dead);
    for (const compare_two compare :
         {matrix_is_equal_dimensions, matrix_is_equal, matrix_is_less, matrix_is_less_equal,
          matrix_is_greater, matrix_is_greater_equal}) {
        EXPECT_ABORTS(compare(nullptr, m.get()), "m1 != ((void *)0)");
        EXPECT_ABORTS(compare(m.get(), nullptr), "m2 != ((void *)0)");
        EXPECT_ABORTS(compare(m.get(), &dead), "m->version == ((char) 1)");
        EXPECT_ABORTS(compare(no_rows.get(), m.get()), "m->nrows > 0");
    }
}

TEST(MatrixScalarComparison, IsExact)
{
    expect_scalar(1, matrix_is_equal_scalar, {{1, 1}, {1, 1}}, 1);
    expect_scalar(0, matrix_is_equal_scalar, {{1, 1}, {1, 1.0000005}}, 1);
    expect_scalar(0, matrix_is_equal_scalar, {{2, 1}, {1, 1}}, 1);
    expect_scalar(1, matrix_is_equal_scalar, {{0.0}}, -0.0);
    expect_scalar(0, matrix_is_equal_scalar, {{NAN}}, NAN);
}

TEST(MatrixScalarComparison, HoldsOnlyIfItHoldsEverywhere)
{
    expect_scalar(1, matrix_is_less_scalar, {{1, 2}, {0, 2.9}}, 3);
    expect_scalar(0, matrix_is_less_scalar, {{1, 2}, {0, 3}}, 3);
    expect_scalar(1, matrix_is_less_equal_scalar, {{1, 2}, {0, 3}}, 3);
    expect_scalar(0, matrix_is_less_equal_scalar, {{1, 2}, {0, 3.0000005}}, 3);
    expect_scalar(1, matrix_is_greater_scalar, {{4, 5}, {6, 3.1}}, 3);
    expect_scalar(0, matrix_is_greater_scalar, {{4, 5}, {6, 3}}, 3);
    expect_scalar(1, matrix_is_greater_equal_scalar, {{4, 5}, {6, 3}}, 3);
    expect_scalar(0, matrix_is_greater_equal_scalar, {{2.9999995, 5}, {6, 3}}, 3);
}

TEST(MatrixScalarComparison, NeedsAUsableMatrix)
{
    const owned_matrix no_rows(matrix_create_null());
    for (const compare_scalar compare :
         {matrix_is_equal_scalar, matrix_is_less_scalar, matrix_is_less_equal_scalar,
          matrix_is_greater_scalar, matrix_is_greater_equal_scalar}) {
        EXPECT_ABORTS(compare(nullptr, 0), "m != ((void *)0)");
        EXPECT_ABORTS(compare(no_rows.get(), 0), "m->nrows > 0");
    }
}
