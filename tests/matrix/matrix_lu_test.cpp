// The factors of a matrix, its inverse and solutions: bit for bit those of the plain order of
// arithmetic, by each of the kernels.
#include <algorithm>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>

#include "common/aborts.hpp"
#include "matrix/all_kernels.hpp"
#include "matrix/plain_arithmetic.hpp"

namespace
{

using plain::table;

class MatrixLu : public AllKernels
{
};
INSTANTIATE_TEST_SUITE_P(Levels, MatrixLu, testing::ValuesIn(AllKernels::levels()),
                         AllKernels::name);

void expect_factors(const plain::lu_result &expected, matrix_lu *lu)
{
    ASSERT_NE(nullptr, lu);
    EXPECT_EQ(expected.rank, matrix_lu_get_rank(lu));
    EXPECT_TRUE(plain::same_bits(expected.det, matrix_lu_get_det(lu)));
    for (uint32_t k = 0; k < expected.p.size(); ++k) {
        ASSERT_EQ(expected.p[k], matrix_get(lu->p, k, 0)) << "step " << k;
        ASSERT_EQ(expected.q[k], matrix_get(lu->q, k, 0)) << "step " << k;
    }
    plain::expect_same(expected.matrix, matrix_copy(lu->matrix));
}

TEST_P(MatrixLu, HasTheBitsOfThePlainOrder)
{
    std::mt19937 random(3);
    for (uint32_t n = 1; n <= 70; ++n) {
        for (const uint32_t type : all_types) {
            SCOPED_TRACE(testing::Message() << "n " << n << ", type " << type);
            const table values = plain::random_values(random, n, n);
            matrix *m = plain::make(values, type);
            matrix_lu *lu = matrix_lu_create(m);
            expect_factors(plain::lu(values), lu);
            matrix_lu_destroy(&lu);
            matrix_destroy(&m);
        }
    }
}

TEST_P(MatrixLu, HasTheBitsOfThePlainOrderWithSpecialValues)
{
    std::mt19937 random(4);
    for (int round = 0; round < 300; ++round) {
        const uint32_t n = 1 + static_cast<uint32_t>(round) % 37;
        const table values = plain::random_values(random, n, n, true);
        SCOPED_TRACE(testing::Message() << "round " << round);
        matrix *m = plain::make(values);
        matrix_lu *lu = matrix_lu_create(m);
        const plain::lu_result expected = plain::lu(values);
        expect_factors(expected, lu);
        matrix_lu_destroy(&lu);
        matrix *inverse = matrix_inverse(m);
        if (expected.rank == n) {
            plain::expect_same(plain::inverse(expected), inverse);
        } else {
            EXPECT_EQ(nullptr, inverse);
        }
        matrix_destroy(&m);
    }
}

void expect_factors_of(const table &values)
{
    matrix *m = plain::make(values);
    matrix_lu *lu = matrix_lu_create(m);
    expect_factors(plain::lu(values), lu);
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

// Of so many rows two steps are made in one visit.
constexpr uint32_t sizes_of_many_rows[] = {129, 130, 131, 136, 137, 150, 191};

TEST_P(MatrixLu, OfManyRowsHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(7);
    for (const uint32_t n : sizes_of_many_rows) {
        SCOPED_TRACE(testing::Message() << "n " << n);
        expect_factors_of(plain::random_values(random, n, n));
    }
}

// Most of the magnitudes are the same, so which one is found first counts in each step.
TEST_P(MatrixLu, OfManyEqualMagnitudesHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(8);
    for (const uint32_t n : {5U, 40U, 129U, 150U}) {
        SCOPED_TRACE(testing::Message() << "n " << n);
        table values = plain::zeros(n, n);
        for (auto &row : values) {
            for (double &value : row) {
                value = static_cast<double>(random() % 3) - 1;
            }
        }
        expect_factors_of(values);
    }
}

// The pivots end somewhere between the first and the last row: an even or an odd number of steps.
TEST_P(MatrixLu, OfManyRowsAndLowRankHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(9);
    for (const uint32_t rank : {1U, 2U, 3U, 8U, 9U}) {
        SCOPED_TRACE(testing::Message() << "rank " << rank);
        const uint32_t n = 150;
        table values = plain::zeros(n, n);
        for (uint32_t i = 0; i < rank; ++i) {
            values[random() % n][random() % n] = static_cast<double>(random() % 1000) + 1;
        }
        expect_factors_of(values);
    }
}

// Behind an even or an odd number of steps nothing is left but what rounding leaves, which is too
// small to go on with and yet has to be right.
TEST_P(MatrixLu, OfManyRowsStopsAtNegligiblePivots)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<double> element(-1, 1);
    for (uint32_t rank = 1; rank <= 6; ++rank) {
        SCOPED_TRACE(testing::Message() << "rank " << rank);
        table wide = plain::zeros(rank, 140);
        for (auto &row : wide) {
            std::generate(row.begin(), row.end(), [&] { return element(random); });
        }
        table values = plain::zeros(140, 140);
        for (uint32_t i = 0; i < 140; ++i) {
            for (uint32_t j = 0; j < 140; ++j) {
                for (uint32_t k = 0; k < rank; ++k) {
                    values[i][j] += 1e-3 * wide[k][i] * wide[k][139 - j];
                }
            }
        }
        ASSERT_EQ(rank, plain::lu(values).rank);
        expect_factors_of(values);
    }
}

// A NaN that comes to the diagonal stays there, whatever the other elements are.
TEST_P(MatrixLu, OfManyRowsKeepsANotANumberOnTheDiagonal)
{
    std::mt19937 random(12);
    for (uint32_t steps = 1; steps <= 4; ++steps) {
        SCOPED_TRACE(testing::Message() << "steps " << steps);
        table values = plain::random_values(random, 140, 140);
        for (uint32_t k = 0; k < steps; ++k) {
            values[k][k] = 1e40;
        }
        values[steps][steps] = std::numeric_limits<double>::quiet_NaN();
        ASSERT_TRUE(std::isnan(plain::lu(values).matrix[steps][steps]));
        expect_factors_of(values);
    }
}

// What is not a number comes into the pivots at once, after some steps or never.
TEST_P(MatrixLu, OfManyRowsWithSpecialValuesHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(10);
    const double special[] = {std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(), 1e300, -1e308};
    for (uint32_t round = 0; round < 12; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const uint32_t n = 140 + round % 3;
        table values = plain::random_values(random, n, n);
        for (uint32_t i = 0; i <= round / 4 % 3; ++i) {
            values[random() % n][random() % n] = special[round % 4];
        }
        // A step that meets it late: a diagonal element that nothing has touched before.
        if (round % 2 == 0) {
            values[round][round] = special[0];
        }
        expect_factors_of(values);
    }
}

TEST_P(MatrixLu, InverseHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(5);
    for (uint32_t n = 1; n <= 140; n += n < 70 ? 1 : 23) {
        SCOPED_TRACE(testing::Message() << "n " << n);
        const table values = plain::random_values(random, n, n);
        const plain::lu_result factors = plain::lu(values);
        ASSERT_EQ(n, factors.rank);
        matrix *m = plain::make(values, all_types[n % 3]);
        plain::expect_same(plain::inverse(factors), matrix_inverse(m));
        matrix_destroy(&m);
    }
}

TEST_P(MatrixLu, SolvesWithTheBitsOfThePlainOrder)
{
    std::mt19937 random(6);
    for (uint32_t n = 1; n <= 40; ++n) {
        SCOPED_TRACE(testing::Message() << "n " << n);
        const table values = plain::random_values(random, n, n);
        const table right = plain::random_values(random, n, 1);
        matrix *m = plain::make(values, all_types[n % 3]);
        matrix *b = plain::make(right, all_types[(n + 1) % 3]);
        plain::expect_same(plain::solve(plain::lu(values), right), matrix_lu_solve_for(m, b));
        matrix_destroy(&b);
        matrix_destroy(&m);
    }
}

TEST_P(MatrixLu, NeverFusesTheElimination)
{
    // Fused, the last pivot would vanish and the rank be 2.
    matrix *m = plain::make({{1, 2, 4}, {3, 5, 7}, {4, 7, 11}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(3U, matrix_lu_get_rank(lu));
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, TakesTheLargestElementOfAllAsPivot)
{
    matrix *m = plain::make({{0, 1}, {2, 0}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(1.0, matrix_get(lu->p, 0, 0));
    EXPECT_EQ(0.0, matrix_get(lu->q, 0, 0));
    EXPECT_EQ(2.0, matrix_lu_get_det(lu)) << "the sign of the exchanges is not counted";
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, TakesTheFirstOfEqualPivotsRowByRow)
{
    matrix *m = plain::make({{1, 2, 7}, {7, 3, 4}, {5, -7, 6}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(0.0, matrix_get(lu->p, 0, 0));
    EXPECT_EQ(2.0, matrix_get(lu->q, 0, 0));
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, OfRankTwoHasNoInverse)
{
    matrix *m = plain::make({{1, 2, 3}, {2, 4, 6}, {1, 0, 1}});
    matrix *b = plain::make({{1}, {2}, {3}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(2U, matrix_lu_get_rank(lu));
    matrix_lu_destroy(&lu);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, matrix_inverse(m));
    EXPECT_EQ(nullptr, matrix_lu_solve_for(m, b));
    EXPECT_EQ(0, qe_get_last_error()) << "a singular matrix is no error";
    EXPECT_EQ(-1.0, matrix_condition_number_inf(m));
    matrix_destroy(&b);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, OfOneElement)
{
    matrix *m = plain::make({{5}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(1U, matrix_lu_get_rank(lu));
    EXPECT_EQ(5.0, matrix_lu_get_det(lu));
    matrix_lu_destroy(&lu);
    plain::expect_same({{0.2}}, matrix_inverse(m));
    EXPECT_EQ(1.0, matrix_condition_number_inf(m));
    matrix_destroy(&m);
}

TEST_P(MatrixLu, CountsTinyPivotsAsZero)
{
    matrix *m = plain::make({{1, 0}, {0, 1e-16}});
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(1U, matrix_lu_get_rank(lu));
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
    m = plain::make({{1, 0}, {0, 2.3e-16}});
    lu = matrix_lu_create(m);
    EXPECT_EQ(2U, matrix_lu_get_rank(lu));
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, OfZerosHasRankOne)
{
    matrix *m = matrix_create(3, 3);
    matrix_lu *lu = matrix_lu_create(m);
    EXPECT_EQ(1U, matrix_lu_get_rank(lu));
    EXPECT_EQ(0.0, matrix_lu_get_det(lu));
    matrix_lu_destroy(&lu);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, FactorsMultiplyToTheMatrix)
{
    std::mt19937 random(7);
    std::normal_distribution<double> element;
    for (const uint32_t n : {1U, 2U, 5U, 24U}) {
        matrix *m = matrix_create(n, n);
        for (uint32_t i = 0; i < n * n; ++i) {
            matrix_set(m, i / n, i % n, element(random));
        }
        matrix_lu *lu = matrix_lu_create(m);
        matrix *lower = matrix_lu_get_lower(lu);
        matrix *upper = matrix_lu_get_upper(lu);
        EXPECT_EQ(lower, matrix_lu_get_lower(lu)) << "made once";
        EXPECT_EQ(upper, matrix_lu_get_upper(lu)) << "made once";
        matrix *product = matrix_multiply(lower, upper);
        EXPECT_TRUE(matrix_is_equal(m, product));
        matrix_destroy(&product);
        matrix_lu_destroy(&lu);
        EXPECT_EQ(nullptr, lu);
        matrix_destroy(&m);
    }
}

TEST_P(MatrixLu, InverseOfTheInverseIsTheMatrix)
{
    matrix *m = plain::make({{4, 7, 2}, {3, 6, 1}, {2, 5, 3}}, MATRIX_TYPE_TELEMETRY);
    matrix *inverse = matrix_inverse(m);
    EXPECT_EQ(static_cast<uint32_t>(MATRIX_TYPE_REGULAR), matrix_get_type(inverse));
    matrix *again = matrix_inverse(inverse);
    EXPECT_TRUE(matrix_is_equal(m, again));
    matrix_destroy(&again);
    matrix_destroy(&inverse);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, SolvesTheFirstColumnOnly)
{
    matrix *m = plain::make({{0, 2}, {4, 0}});
    matrix *b = plain::make({{2, 10}, {4, 20}});
    // The second column comes back with its rows exchanged as those of the first were.
    plain::expect_same({{1, 20}, {1, 10}}, matrix_lu_solve_for(m, b));
    matrix_destroy(&b);
    matrix_destroy(&m);
}

TEST_P(MatrixLu, SolvesForAViewAsForWhatItShows)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<double> element(-1, 1);
    const table values = plain::random_values(random, 6, 6);
    const table right = plain::random_values(random, 6, 3);
    matrix *m = plain::make(values, MATRIX_TYPE_TRANSPOSED);
    matrix *view = plain::make(right, MATRIX_TYPE_TRANSPOSED);
    matrix *regular = plain::make(right);
    matrix *expected = matrix_lu_solve_for(m, regular);
    plain::expect_same(plain::values_of(expected), matrix_lu_solve_for(m, view));
    for (matrix **used : {&m, &view, &regular, &expected}) {
        matrix_destroy(used);
    }
}

TEST(MatrixLuPreconditions, Abort)
{
    matrix *wide = matrix_create(2, 3);
    matrix *square = matrix_create_identity(2);
    matrix *long_b = matrix_create(3, 1);
    matrix_lu *none = nullptr;
    EXPECT_ABORTS(matrix_lu_create(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_create(wide), "rows == cols");
    EXPECT_ABORTS(matrix_lu_destroy(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_destroy(&none), "*m != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_get_rank(nullptr), "lu != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_get_det(nullptr), "lu != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_get_lower(nullptr), "lu != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_get_upper(nullptr), "lu != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_solve_for(nullptr, square), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_solve_for(square, nullptr), "b != ((void *)0)");
    EXPECT_ABORTS(matrix_lu_solve_for(wide, square), "matrix_get_number_columns(m) == n");
    EXPECT_ABORTS(matrix_lu_solve_for(square, long_b), "matrix_get_number_rows(b) == n");
    EXPECT_ABORTS(matrix_inverse(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_inverse(wide), "rows == cols");
    matrix_destroy(&long_b);
    matrix_destroy(&square);
    matrix_destroy(&wide);
}

TEST(MatrixLuPreconditions, DestroyWantsAWholeRecord)
{
    matrix *square = matrix_create_identity(2);
    matrix_lu *lu = matrix_lu_create(square);
    matrix_lu broken = *lu;
    matrix_lu *pointer = &broken;
    broken.matrix = nullptr;
    EXPECT_ABORTS(matrix_lu_destroy(&pointer), "(*m)->matrix != ((void *)0)");
    broken = *lu;
    broken.p = nullptr;
    EXPECT_ABORTS(matrix_lu_destroy(&pointer), "(*m)->p != ((void *)0)");
    broken = *lu;
    broken.q = nullptr;
    EXPECT_ABORTS(matrix_lu_destroy(&pointer), "(*m)->q != ((void *)0)");
    matrix_lu_destroy(&lu);
    matrix_destroy(&square);
}

} // namespace
