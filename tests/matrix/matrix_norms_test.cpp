// Norms of matrices and the condition number: their rounding, and what NaN, singular matrices and
// missing memory give.
#include <cmath>

#include <vesk/matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"

TEST(MatrixNormInf, IsTheLargestRowSumOfMagnitudes)
{
    const owned_matrix m = make_matrix({{1, -2}, {3, 0}});
    EXPECT_EQ(3, matrix_norm_inf(m.get()));
    const owned_matrix view = make_view({{1, -2}, {3, 0.5}});
    EXPECT_EQ(3.5, matrix_norm_inf(view.get()));
    const owned_matrix zero = make_matrix({{0, -0.0}});
    EXPECT_EQ(0, matrix_norm_inf(zero.get()));
}

TEST(MatrixNormInf, LeavesOutRowsWithNaN)
{
    const owned_matrix m = make_matrix({{NAN, 100}, {1, -2}});
    EXPECT_EQ(3, matrix_norm_inf(m.get()));
}

TEST(MatrixNormF, IsTheRootOfTheSumOfSquares)
{
    const owned_matrix m = make_matrix({{1, -2}, {3, 0}});
    EXPECT_EQ(std::sqrt(14.0), matrix_norm_F(m.get()));
    const owned_matrix view = make_view({{1, -2}, {3, 0}});
    EXPECT_EQ(std::sqrt(14.0), matrix_norm_F(view.get()));
}

TEST(MatrixNormF, RoundsOnceForEachElement)
{
    // With the squares rounded before they are added, it would be 0.41231056256176613.
    const owned_matrix m = make_matrix({{0.1, 0.4}});
    EXPECT_EQ(0.41231056256176607, matrix_norm_F(m.get()));
}

TEST(MatrixNormF, AbortsOnNaN)
{
    const owned_matrix m = make_matrix({{1, NAN}});
    EXPECT_ABORTS(matrix_norm_F(m.get()), "norm >= 0");
}

TEST(MatrixConditionNumber, IsTheNormTimesThatOfTheInverse)
{
    const owned_matrix m = make_matrix({{2, 0}, {0, 8}});
    EXPECT_EQ(4, matrix_condition_number_inf(m.get()));
    const owned_matrix view = make_view({{1, 1}, {0, 1}});
    EXPECT_EQ(4, matrix_condition_number_inf(view.get()));
    EXPECT_EQ((grid{{1, 1}, {0, 1}}), elements_of(view.get()));
}

TEST(MatrixConditionNumber, OfASingularMatrixIsMinusOne)
{
    const owned_matrix m = make_matrix({{1, 2}, {2, 4}});
    EXPECT_EQ(-1, matrix_condition_number_inf(m.get()));
}

TEST(MatrixConditionNumber, IsMinusOneWithoutMemory)
{
    const owned_matrix m = make_matrix({{2, 0}, {0, 8}});
    const failing_allocation failure(1);
    EXPECT_EQ(-1, matrix_condition_number_inf(m.get()));
}

TEST(MatrixNorm, NeedsALiveMatrix)
{
    const owned_matrix null_record(matrix_create_null());
    matrix dead;
    matrix_init(&dead, 1, 1);
    matrix_destruct(&dead);
    for (double (*norm)(const matrix *) :
         {matrix_norm_F, matrix_norm_inf, matrix_condition_number_inf}) {
        EXPECT_ABORTS(norm(nullptr), "m != ((void *)0)");
        EXPECT_ABORTS(norm(&dead), "m->version == ((char) 1)");
        EXPECT_ABORTS(norm(null_record.get()), "m->type > 0");
    }
}
