// Sums, products and statistics of matrices: bit for bit those of the plain order of arithmetic, by
// each of the kernels.
#include <algorithm>
#include <functional>

#include <vesk/error.h>
#include <vesk/matrix_ops.h>

#include "common/aborts.hpp"
#include "matrix/all_kernels.hpp"
#include "matrix/plain_arithmetic.hpp"

namespace
{

using plain::table;

class MatrixOps : public AllKernels
{
};
INSTANTIATE_TEST_SUITE_P(Levels, MatrixOps, testing::ValuesIn(AllKernels::levels()),
                         AllKernels::name);

table map(const table &a, const std::function<double(double)> &f)
{
    table result = a;
    for (auto &row : result) {
        for (auto &x : row) {
            x = f(x);
        }
    }
    return result;
}

table map(const table &a, const table &b, const std::function<double(double, double)> &f)
{
    table result = a;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = 0; j < a[0].size(); ++j) {
            result[i][j] = f(a[i][j], b[i][j]);
        }
    }
    return result;
}

table column_statistic(const table &a, const std::function<double(const std::vector<double> &)> &f)
{
    table result = plain::zeros(1, a[0].size());
    for (std::size_t j = 0; j < a[0].size(); ++j) {
        std::vector<double> column;
        for (const auto &row : a) {
            column.push_back(row[j]);
        }
        result[0][j] = f(column);
    }
    return result;
}

double sum_of(const std::vector<double> &column)
{
    double sum = 0.0;
    for (const double x : column) {
        sum = sum + x;
    }
    return sum;
}

double deviation_of(const std::vector<double> &column)
{
    double count = 0.0;
    double mean = 0.0;
    double m2 = 0.0;
    for (const double x : column) {
        count = count + 1.0;
        const double d = x - mean;
        mean = mean + d / count;
        m2 = fma(d, x - mean, m2);
    }
    return sqrt(m2 / static_cast<double>(column.size()));
}

table row_statistic(const table &a, const std::function<double(std::size_t)> &f)
{
    table result = plain::zeros(a.size(), 1);
    for (std::size_t i = 0; i < a.size(); ++i) {
        result[i][0] = f(i);
    }
    return result;
}

double distance_sq(const std::vector<double> &a, const std::vector<double> &b)
{
    double sum = 0.0;
    for (std::size_t j = 0; j < a.size(); ++j) {
        const double d = a[j] - b[j];
        const double square = d * d;
        sum = sum + square;
    }
    return sum;
}

void expect_plain_norms(const table &a, const matrix *m)
{
    double largest = 0.0;
    double squares = 0.0;
    for (const auto &row : a) {
        double sum = 0.0;
        for (const double x : row) {
            sum = sum + fabs(x);
            squares = fma(x, x, squares);
        }
        largest = sum > largest ? sum : largest;
    }
    EXPECT_EQ(largest, matrix_norm_inf(m));
    if (!std::isnan(squares)) {
        EXPECT_EQ(sqrt(squares), matrix_norm_F(m));
    }
}

// Every operation on operands of two types against its plain form.
void expect_plain_bits(const table &a, const table &b, uint32_t type1, uint32_t type2)
{
    SCOPED_TRACE(testing::Message()
                 << a.size() << " x " << a[0].size() << ", types " << type1 << " and " << type2);
    matrix *m1 = plain::make(a, type1);
    matrix *m2 = plain::make(b, type2);
    plain::expect_same(map(a, [](double x) { return x * 0.1; }), matrix_scalar_multiply(m1, 0.1));
    plain::expect_same(map(a, [](double x) { return x / 0.3; }), matrix_scalar_divide(m1, 0.3));
    plain::expect_same(map(a, [](double x) { return x * x; }), matrix_elemental_square(m1));
    plain::expect_same(map(a, [](double x) { return exp(x); }), matrix_elemental_exp(m1));
    plain::expect_same(map(a, [](double x) { return fabs(x); }), matrix_elemental_abs(m1));
    plain::expect_same(map(a, b, std::plus<>()), matrix_add(m1, m2));
    plain::expect_same(map(a, b, std::minus<>()), matrix_subtract(m1, m2));
    plain::expect_same(column_statistic(a, sum_of), matrix_column_sum(m1));
    plain::expect_same(column_statistic(a,
                                        [](const auto &column) {
                                            return sum_of(column) /
                                                   static_cast<double>(column.size());
                                        }),
                       matrix_column_mean(m1));
    plain::expect_same(column_statistic(a, deviation_of), matrix_column_std_dev(m1));
    plain::expect_same(row_statistic(a,
                                     [&](std::size_t i) {
                                         double sum = 0.0;
                                         for (const double x : a[i]) {
                                             sum = fma(x, x, sum);
                                         }
                                         return sqrt(sum);
                                     }),
                       matrix_euclidean_length(m1));
    plain::expect_same(
        row_statistic(a, [&](std::size_t i) { return sqrt(distance_sq(a[i], b[i])); }),
        matrix_euclidean_distance(m1, m2));

    expect_plain_norms(a, m1);

    table magnitudes = map(a, [](double x) { return fabs(x); });
    matrix *positive = plain::make(magnitudes, type1);
    plain::expect_same(map(magnitudes, [](double x) { return sqrt(x); }),
                       matrix_elemental_sqrt(positive));
    matrix_destroy(&positive);

    const table first = {b[0]};
    matrix *vector = plain::make(first, type2);
    plain::expect_same(row_statistic(a, [&](std::size_t i) { return distance_sq(a[i], b[0]); }),
                       matrix_euclidean_distance_sq_with_row_vector(m1, vector));
    table deviations = map(first, [](double x) { return fabs(x) < 1e-6 ? 0.0 : fabs(x); });
    matrix *std = plain::make(deviations, type1);
    const auto divisor = [&](std::size_t j) {
        return deviations[0][j] == 0.0 ? 1.0 : deviations[0][j];
    };
    table normalized = a;
    table denormalized = a;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = 0; j < a[0].size(); ++j) {
            normalized[i][j] = (a[i][j] - b[0][j]) / divisor(j);
            denormalized[i][j] = fma(a[i][j], divisor(j), b[0][j]);
        }
    }
    plain::expect_same(normalized, matrix_gaussian_normalize(m1, vector, std));
    plain::expect_same(denormalized, matrix_gaussian_denormalize(m1, vector, std));
    matrix_destroy(&std);
    matrix_destroy(&vector);
    matrix_destroy(&m2);
    matrix_destroy(&m1);
}

TEST_P(MatrixOps, HaveTheBitsOfThePlainOrder)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<std::size_t> size(1, 70);
    for (int round = 0; round < 12; ++round) {
        for (const uint32_t type1 : all_types) {
            for (const uint32_t type2 : all_types) {
                const std::size_t nrows = size(random);
                const std::size_t ncols = size(random);
                const bool special = round % 2 == 1;
                expect_plain_bits(plain::random_values(random, nrows, ncols, special),
                                  plain::random_values(random, nrows, ncols, special), type1,
                                  type2);
            }
        }
    }
}

TEST_P(MatrixOps, OfManyBlocksHaveTheBitsOfThePlainOrder)
{
    std::mt19937 random(10);
    for (const auto &[nrows, ncols] :
         {std::pair<std::size_t, std::size_t>{141, 137}, {3, 1030}, {1030, 3}}) {
        for (const uint32_t type1 : all_types) {
            for (const uint32_t type2 : all_types) {
                expect_plain_bits(plain::random_values(random, nrows, ncols),
                                  plain::random_values(random, nrows, ncols), type1, type2);
            }
        }
    }
}

TEST_P(MatrixOps, MultiplyHasTheBitsOfThePlainOrder)
{
    std::mt19937 random(2);
    std::uniform_int_distribution<std::size_t> size(1, 70);
    for (int round = 0; round < 90; ++round) {
        const std::size_t nrows = size(random);
        const std::size_t depth = size(random);
        const std::size_t ncols = size(random);
        const table a = plain::random_values(random, nrows, depth, round % 3 == 0);
        const table b = plain::random_values(random, depth, ncols, round % 3 == 0);
        const uint32_t type1 = all_types[round % 3];
        const uint32_t type2 = all_types[round / 3 % 3];
        SCOPED_TRACE(testing::Message() << nrows << " x " << depth << " x " << ncols << ", types "
                                        << type1 << " and " << type2);
        matrix *m1 = plain::make(a, type1);
        matrix *m2 = plain::make(b, type2);
        plain::expect_same(plain::multiply(a, b), matrix_multiply(m1, m2));
        matrix_destroy(&m2);
        matrix_destroy(&m1);
    }
}

TEST_P(MatrixOps, MultiplyOfManyBlocksHasTheBitsOfThePlainOrder)
{
    struct shape {
        std::size_t m;
        std::size_t depth;
        std::size_t n;
    };
    std::mt19937 random(8);
    // More rows and depth, and more columns, than a block of any level has.
    for (const auto &[m, depth, n] : {shape{67, 517, 260}, shape{9, 33, 4085}}) {
        const table a = plain::random_values(random, m, depth);
        const table b = plain::random_values(random, depth, n);
        const table expected = plain::multiply(a, b);
        for (const uint32_t type : all_types) {
            matrix *m1 = plain::make(a, type);
            matrix *m2 = plain::make(b, type);
            plain::expect_same(expected, matrix_multiply(m1, m2));
            matrix_destroy(&m2);
            matrix_destroy(&m1);
        }
    }
}

TEST_P(MatrixOps, StatisticsOfLongColumnsHaveTheBitsOfThePlainOrder)
{
    std::mt19937 random(9);
    for (const uint32_t type : all_types) {
        const table a = plain::random_values(random, 300, 130);
        matrix *m = plain::make(a, type);
        plain::expect_same(column_statistic(a, sum_of), matrix_column_sum(m));
        plain::expect_same(column_statistic(a, deviation_of), matrix_column_std_dev(m));
        matrix_destroy(&m);
    }
}

TEST_P(MatrixOps, MultiplyFusesEachStep)
{
    // What rounding the square loses is all that is left; rounded twice, nothing would be.
    const double x = 1.0 + ldexp(1.0, -30);
    matrix *m1 = plain::make({{1.0, x}});
    matrix *m2 = plain::make({{-(x * x)}, {x}});
    matrix *product = matrix_multiply(m1, m2);
    EXPECT_EQ(ldexp(1.0, -60), matrix_get(product, 0, 0));
    matrix_destroy(&product);
    matrix_destroy(&m2);
    matrix_destroy(&m1);
}

TEST(MatrixScalarDivide, RefusesWhatIsZeroWithinTolerance)
{
    matrix *m = plain::make({{1, 2}});
    for (const double zero : {0.0, 1e-7, -1e-7, 1e-6}) {
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, matrix_scalar_divide(m, zero));
        EXPECT_EQ(-10, qe_get_last_error());
    }
    plain::expect_same({{1 / 1e-5, 2 / 1e-5}}, matrix_scalar_divide(m, 1e-5));
    matrix_destroy(&m);
}

TEST(MatrixColumnStdDev, IsThatOfThePopulation)
{
    matrix *m = plain::make({{1}, {2}, {3}, {4}});
    plain::expect_same({{sqrt(1.25)}}, matrix_column_std_dev(m));
    matrix_destroy(&m);
}

TEST(MatrixElementalSqrt, RefusesNegativeElementsOnly)
{
    matrix *m = plain::make({{4, -0.0}});
    plain::expect_same({{2, -0.0}}, matrix_elemental_sqrt(m));
    matrix_set(m, 0, 1, -1e-300);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, matrix_elemental_sqrt(m));
    EXPECT_EQ(-50, qe_get_last_error());
    matrix_destroy(&m);
}

TEST(MatrixMultiply, IsRegularWhateverTheOperands)
{
    matrix *row = plain::make({{1, 2, 3}}, MATRIX_TYPE_TELEMETRY);
    matrix *column = plain::make({{4}, {5}, {6}}, MATRIX_TYPE_TELEMETRY);
    matrix *product = matrix_multiply(row, column);
    EXPECT_EQ(static_cast<uint32_t>(MATRIX_TYPE_REGULAR), matrix_get_type(product));
    plain::expect_same({{32}}, product);
    matrix_destroy(&column);
    matrix_destroy(&row);
}

TEST(MatrixOpsResults, KeepTheTypeOfTheFirstOperand)
{
    for (const uint32_t type : all_types) {
        matrix *m1 = plain::make({{1, 2}, {3, 4}}, type);
        matrix *m2 = plain::make({{1, 2}, {3, 4}});
        for (matrix *result : {matrix_scalar_multiply(m1, 2), matrix_elemental_abs(m1),
                               matrix_add(m1, m2), matrix_subtract(m1, m2)}) {
            EXPECT_EQ(type, matrix_get_type(result));
            matrix_destroy(&result);
        }
        matrix_destroy(&m2);
        matrix_destroy(&m1);
    }
}

TEST(MatrixAdd, KeepsSensorsAndTimestampsOfTheFirst)
{
    matrix *m1 = plain::make({{1, 2}}, MATRIX_TYPE_TELEMETRY);
    matrix *m2 = plain::make({{3, 4}}, MATRIX_TYPE_TELEMETRY);
    matrix *sum = matrix_add(m1, m2);
    EXPECT_TRUE(
        sensor_array_is_equal(telemetry_matrix_get_sensors(m1), telemetry_matrix_get_sensors(sum)));
    EXPECT_TRUE(timestamp_array_is_equal(telemetry_matrix_get_timestamps(m1),
                                         telemetry_matrix_get_timestamps(sum)));
    plain::expect_same({{4, 6}}, sum);
    matrix_destroy(&m2);
    matrix_destroy(&m1);
}

TEST(MatrixAccum, GoesRowByRowWhereTheOrderShows)
{
    // A matrix and a view of it: later elements see the sums of earlier ones.
    matrix *m = plain::make({{1, 2}, {3, 4}});
    matrix *view = transposed_matrix_create(m);
    matrix_accum(m, view);
    EXPECT_EQ((table{{2, 5}, {8, 8}}), plain::values_of(m));
    matrix_accum(view, m);
    EXPECT_EQ((table{{4, 18}, {13, 16}}), plain::values_of(m));
    matrix_accum(m, m);
    EXPECT_EQ((table{{8, 36}, {26, 32}}), plain::values_of(m));
    matrix_destroy(&view);
}

TEST(MatrixGaussianNormalize, OnlyShiftsAConstantColumn)
{
    matrix *m = plain::make({{1, 7}, {3, 7.5}}, MATRIX_TYPE_TRANSPOSED);
    matrix *mean = plain::make({{2, 7}});
    matrix *std = plain::make({{2, 1e-7}});
    matrix *result = matrix_gaussian_normalize(m, mean, std);
    EXPECT_EQ(static_cast<uint32_t>(MATRIX_TYPE_REGULAR), matrix_get_type(result));
    plain::expect_same({{-0.5, 0}, {0.5, 0.5}}, result);
    plain::expect_same({{4, 14}, {8, 14.5}}, matrix_gaussian_denormalize(m, mean, std));
    EXPECT_EQ(static_cast<uint32_t>(MATRIX_TYPE_TRANSPOSED), matrix_get_type(m));
    matrix_destroy(&std);
    matrix_destroy(&mean);
    matrix_destroy(&m);
}

TEST(MatrixInPlace, ClearAndAccumElement)
{
    for (const uint32_t type : all_types) {
        matrix *m = plain::make({{1, 2, 3}, {4, 5, 6}}, type);
        matrix_accum_element(m, 1, 2, 0.5);
        EXPECT_EQ((table{{1, 2, 3}, {4, 5, 6.5}}), plain::values_of(m));
        matrix_clear(m);
        EXPECT_EQ(plain::zeros(2, 3), plain::values_of(m));
        matrix_destroy(&m);
    }
}

TEST(MatrixOpsPreconditions, Abort)
{
    matrix *a = matrix_create(2, 3);
    matrix *b = matrix_create(3, 2);
    matrix *row = matrix_create(1, 3);
    matrix *short_row = matrix_create(1, 2);
    const char *m1_null = "m1 != ((void *)0)";
    const char *m2_null = "m2 != ((void *)0)";
    const char *m_null = "m != ((void *)0)";
    EXPECT_ABORTS(matrix_scalar_multiply(nullptr, 1), m_null);
    EXPECT_ABORTS(matrix_scalar_divide(nullptr, 1), m_null);
    EXPECT_ABORTS(matrix_elemental_square(nullptr), m_null);
    EXPECT_ABORTS(matrix_elemental_sqrt(nullptr), m_null);
    EXPECT_ABORTS(matrix_elemental_exp(nullptr), m_null);
    EXPECT_ABORTS(matrix_elemental_abs(nullptr), m_null);
    EXPECT_ABORTS(matrix_column_sum(nullptr), m_null);
    EXPECT_ABORTS(matrix_column_mean(nullptr), m_null);
    EXPECT_ABORTS(matrix_column_std_dev(nullptr), m_null);
    EXPECT_ABORTS(matrix_euclidean_length(nullptr), m_null);
    EXPECT_ABORTS(matrix_clear(nullptr), m_null);
    EXPECT_ABORTS(matrix_accum_element(nullptr, 0, 0, 1), m_null);
    EXPECT_ABORTS(matrix_accum_element(a, 2, 0, 1), "i < m->nrows");
    EXPECT_ABORTS(matrix_accum_element(a, 0, 3, 1), "j < m->ncols");
    EXPECT_ABORTS(matrix_accum(nullptr, a), m1_null);
    EXPECT_ABORTS(matrix_accum(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_accum(a, b), "matrix_is_equal_dimensions (m1, m2)");
    EXPECT_ABORTS(matrix_add(nullptr, a), m1_null);
    EXPECT_ABORTS(matrix_add(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_add(a, b), "matrix_is_equal_dimensions (m1, m2)");
    EXPECT_ABORTS(matrix_subtract(nullptr, a), m1_null);
    EXPECT_ABORTS(matrix_subtract(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_subtract(a, b), "matrix_is_equal_dimensions(m1, m2) > 0");
    EXPECT_ABORTS(matrix_multiply(nullptr, a), m1_null);
    EXPECT_ABORTS(matrix_multiply(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_multiply(a, a),
                  "matrix_get_number_columns(m1) == matrix_get_number_rows(m2)");
    EXPECT_ABORTS(matrix_euclidean_distance(nullptr, a), m1_null);
    EXPECT_ABORTS(matrix_euclidean_distance(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_euclidean_distance(a, b), "rows1 == matrix_get_number_rows (m2)");
    EXPECT_ABORTS(matrix_euclidean_distance(row, short_row),
                  "cols1 == matrix_get_number_columns (m2)");
    EXPECT_ABORTS(matrix_euclidean_distance_sq_with_row_vector(nullptr, row), m1_null);
    EXPECT_ABORTS(matrix_euclidean_distance_sq_with_row_vector(a, nullptr), m2_null);
    EXPECT_ABORTS(matrix_euclidean_distance_sq_with_row_vector(a, a),
                  "matrix_get_number_rows (m2) == 1");
    EXPECT_ABORTS(matrix_euclidean_distance_sq_with_row_vector(a, short_row),
                  "ncols == matrix_get_number_columns (m2)");
    matrix_destroy(&short_row);
    matrix_destroy(&row);
    matrix_destroy(&b);
    matrix_destroy(&a);
}

TEST(MatrixOpsPreconditions, AreReportedByTheFunctionThatWasCalled)
{
#define EXPECT_NAMES_ITSELF(function, ...)                                                         \
    EXPECT_DEATH(function(__VA_ARGS__), ": " #function ": Assertion `m != ")
    EXPECT_NAMES_ITSELF(matrix_scalar_multiply, nullptr, 1);
    EXPECT_NAMES_ITSELF(matrix_scalar_divide, nullptr, 1);
    EXPECT_NAMES_ITSELF(matrix_elemental_square, nullptr);
    EXPECT_NAMES_ITSELF(matrix_elemental_sqrt, nullptr);
    EXPECT_NAMES_ITSELF(matrix_elemental_exp, nullptr);
    EXPECT_NAMES_ITSELF(matrix_elemental_abs, nullptr);
    EXPECT_NAMES_ITSELF(matrix_column_sum, nullptr);
    EXPECT_NAMES_ITSELF(matrix_column_mean, nullptr);
    EXPECT_NAMES_ITSELF(matrix_column_std_dev, nullptr);
    EXPECT_NAMES_ITSELF(matrix_euclidean_length, nullptr);
    EXPECT_NAMES_ITSELF(matrix_clear, nullptr);
    EXPECT_NAMES_ITSELF(matrix_gaussian_normalize, nullptr, nullptr, nullptr);
    EXPECT_NAMES_ITSELF(matrix_gaussian_denormalize, nullptr, nullptr, nullptr);
#undef EXPECT_NAMES_ITSELF
}

TEST(MatrixGaussianPreconditions, Abort)
{
    matrix *a = matrix_create(2, 3);
    matrix *row = matrix_create(1, 3);
    matrix *short_row = matrix_create(1, 2);
    for (const auto operation : {matrix_gaussian_normalize, matrix_gaussian_denormalize}) {
        EXPECT_ABORTS(operation(nullptr, row, row), "m != ((void *)0)");
        EXPECT_ABORTS(operation(a, nullptr, row), "mean != ((void *)0)");
        EXPECT_ABORTS(operation(a, row, nullptr), "std != ((void *)0)");
        EXPECT_ABORTS(operation(a, a, row), "matrix_get_number_rows (mean) == 1");
        EXPECT_ABORTS(operation(a, short_row, row), "matrix_get_number_columns (mean) == cols");
        EXPECT_ABORTS(operation(a, row, short_row), "matrix_is_equal_dimensions (mean, std)");
    }
    matrix_destroy(&short_row);
    matrix_destroy(&row);
    matrix_destroy(&a);
}

} // namespace
