// Arithmetic written as plainly as it is defined: the reference whose bits the library must give.
// Matrices here are vectors of rows.
#ifndef VESK_TESTS_MATRIX_PLAIN_ARITHMETIC_HPP
#define VESK_TESTS_MATRIX_PLAIN_ARITHMETIC_HPP

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string.h>
#include <string>
#include <vector>

#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp_array.h>
#include <vesk/transposed_matrix.h>

namespace plain
{

using table = std::vector<std::vector<double>>;

inline table zeros(std::size_t nrows, std::size_t ncols)
{
    return table(nrows, std::vector<double>(ncols, 0.0));
}

inline table identity(std::size_t n)
{
    table result = zeros(n, n);
    for (std::size_t i = 0; i < n; ++i) {
        result[i][i] = 1.0;
    }
    return result;
}

inline table multiply(const table &a, const table &b)
{
    table c = zeros(a.size(), b[0].size());
    for (std::size_t i = 0; i < c.size(); ++i) {
        for (std::size_t j = 0; j < c[0].size(); ++j) {
            for (std::size_t k = 0; k < b.size(); ++k) {
                c[i][j] = fma(a[i][k], b[k][j], c[i][j]);
            }
        }
    }
    return c;
}

struct lu_result {
    table matrix;
    std::vector<std::size_t> p;
    std::vector<std::size_t> q;
    uint32_t rank = 1;
    double det = 1.0;
};

inline void exchange_rows(table &a, std::size_t i, std::size_t j)
{
    std::swap(a[i], a[j]);
}

inline void exchange_columns(table &a, std::size_t i, std::size_t j)
{
    for (auto &row : a) {
        std::swap(row[i], row[j]);
    }
}

inline lu_result lu(table a)
{
    lu_result result;
    const std::size_t n = a.size();
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t pr = k;
        std::size_t pc = k;
        for (std::size_t r = k; r < n; ++r) {
            for (std::size_t c = k; c < n; ++c) {
                if (fabs(a[r][c]) > fabs(a[pr][pc])) {
                    pr = r;
                    pc = c;
                }
            }
        }
        result.p.push_back(pr);
        result.q.push_back(pc);
        exchange_rows(a, k, pr);
        exchange_columns(a, k, pc);
        if (fabs(a[k][k]) > 2.2e-16) {
            result.rank = static_cast<uint32_t>(k + 1);
            for (std::size_t r = k + 1; r < n; ++r) {
                a[r][k] = a[r][k] / a[k][k];
            }
            for (std::size_t r = k + 1; r < n; ++r) {
                for (std::size_t c = k + 1; c < n; ++c) {
                    const double product = a[r][k] * a[k][c];
                    a[r][c] = a[r][c] - product;
                }
            }
        }
    }
    for (std::size_t k = 0; k < n; ++k) {
        result.det = result.det * a[k][k];
    }
    result.matrix = a;
    return result;
}

// Of a factorised matrix of full rank.
inline table inverse(const lu_result &factors)
{
    const std::size_t n = factors.matrix.size();
    const table &f = factors.matrix;
    table lower = identity(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            double sum = 0.0;
            for (std::size_t k = j; k < i; ++k) {
                const double product = f[i][k] * lower[k][j];
                sum = sum + product;
            }
            lower[i][j] = -sum;
        }
    }
    table upper = zeros(n, n);
    for (std::size_t i = n; i-- > 0;) {
        upper[i][i] = 1.0 / f[i][i];
        for (std::size_t j = i + 1; j < n; ++j) {
            double sum = 0.0;
            for (std::size_t k = i + 1; k <= j; ++k) {
                const double product = f[i][k] * upper[k][j];
                sum = sum + product;
            }
            upper[i][j] = -sum / f[i][i];
        }
    }
    for (std::size_t k = n - 1; k-- > 0;) {
        exchange_columns(lower, k, factors.p[k]);
        exchange_rows(upper, k, factors.q[k]);
    }
    return multiply(upper, lower);
}

inline table solve(const lu_result &factors, table b)
{
    const std::size_t n = factors.matrix.size();
    const table &f = factors.matrix;
    for (std::size_t k = 0; k + 1 < n; ++k) {
        exchange_rows(b, k, factors.p[k]);
    }
    for (std::size_t i = 0; i < n; ++i) {
        double sum = 0.0;
        for (std::size_t j = 0; j < i; ++j) {
            sum = fma(f[i][j], b[j][0], sum);
        }
        b[i][0] = (b[i][0] - sum) / 1.0;
    }
    for (std::size_t i = n; i-- > 0;) {
        double sum = 0.0;
        for (std::size_t j = i + 1; j < n; ++j) {
            sum = fma(f[i][j], b[j][0], sum);
        }
        b[i][0] = (b[i][0] - sum) / f[i][i];
    }
    for (std::size_t k = n - 1; k-- > 0;) {
        exchange_rows(b, k, factors.q[k]);
    }
    return b;
}

// ---- between tables and matrices ----

inline void fill(matrix *m, const table &values)
{
    for (uint32_t i = 0; i < m->nrows; ++i) {
        for (uint32_t j = 0; j < m->ncols; ++j) {
            matrix_set(m, i, j, values[i][j]);
        }
    }
}

// A matrix of the given type that shows `values`.
inline matrix *make(const table &values, uint32_t type = MATRIX_TYPE_REGULAR)
{
    const auto nrows = static_cast<uint32_t>(values.size());
    const auto ncols = static_cast<uint32_t>(values[0].size());
    matrix *m = nullptr;
    if (type == MATRIX_TYPE_TRANSPOSED) {
        m = transposed_matrix_create(matrix_create(ncols, nrows));
    } else if (type == MATRIX_TYPE_TELEMETRY) {
        std::vector<std::string> names;
        std::vector<const char *> pointers;
        for (uint32_t j = 0; j < ncols; ++j) {
            names.push_back("::sensor" + std::to_string(j));
        }
        for (const auto &name : names) {
            pointers.push_back(name.c_str());
        }
        timestamp start;
        const timeval time = {1000000000, 0};
        timestamp_init_from_timeval(&start, &time);
        m = telemetry_matrix_create(matrix_create(nrows, ncols),
                                    sensor_array_create_from_names(pointers.data(), ncols),
                                    timestamp_array_create_dummy(&start, nrows));
    } else {
        m = matrix_create(nrows, ncols);
    }
    fill(m, values);
    return m;
}

inline table values_of(const matrix *m)
{
    table values = zeros(m->nrows, m->ncols);
    for (uint32_t i = 0; i < m->nrows; ++i) {
        for (uint32_t j = 0; j < m->ncols; ++j) {
            values[i][j] = matrix_get(m, i, j);
        }
    }
    return values;
}

// Which NaN an operation on two of them gives is the processor's choice: the library promises that
// it is one.
inline bool same_bits(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || memcmp(&a, &b, sizeof a) == 0;
}

// Compares and destroys `m`.
inline void expect_same(const table &expected, matrix *m)
{
    ASSERT_NE(nullptr, m);
    ASSERT_EQ(expected.size(), m->nrows);
    ASSERT_EQ(expected[0].size(), m->ncols);
    int differences = 0;
    for (uint32_t i = 0; i < m->nrows && differences == 0; ++i) {
        for (uint32_t j = 0; j < m->ncols && differences == 0; ++j) {
            if (!same_bits(expected[i][j], matrix_get(m, i, j))) {
                ++differences;
                ADD_FAILURE() << "element (" << i << ", " << j << "): expected " << std::hexfloat
                              << expected[i][j] << ", found " << matrix_get(m, i, j);
            }
        }
    }
    matrix_destroy(&m);
}

// Random values of very different size; with `special`, some zeros, infinities, NaN and denormals.
inline table random_values(std::mt19937 &random, std::size_t nrows, std::size_t ncols,
                           bool special = false)
{
    std::normal_distribution<double> mantissa;
    std::uniform_int_distribution<int> exponent(-20, 20);
    std::uniform_int_distribution<int> kind(0, 99);
    table values = zeros(nrows, ncols);
    for (auto &row : values) {
        for (auto &value : row) {
            value = ldexp(mantissa(random), exponent(random));
            if (special) {
                switch (kind(random)) {
                case 0:
                    value = std::numeric_limits<double>::quiet_NaN();
                    break;
                case 1:
                    value = std::numeric_limits<double>::infinity();
                    break;
                case 2:
                    value = -std::numeric_limits<double>::infinity();
                    break;
                case 3:
                    value = -0.0;
                    break;
                case 4:
                    value = 0.0;
                    break;
                case 5:
                    value = std::numeric_limits<double>::denorm_min();
                    break;
                default:
                    break;
                }
            }
        }
    }
    return values;
}

} // namespace plain

#endif
