// Matrix arithmetic beside OpenBLAS (multiplication, one thread) and Eigen (decomposition with full
// pivoting, inverse, and the rest that Eigen has), and each operation on views, on telemetry and on
// operands of two kinds beside the same on regular matrices. X_floor is what X is compared with;
// view_X, telemetry_X and mixed_X are compared with X. bench/ratios.py divides one by the other.
//
// VESK_KERNELS=avx2 or plain in the environment forces a level of the kernels.
#include <Eigen/Dense>
#include <benchmark/benchmark.h>
#include <cblas.h>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <vesk/matrix.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>
#include <vesk/sensor_array.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp_array.h>
#include <vesk/transposed_matrix.h>

#include "matrix/kernels/kernels.hpp"

namespace
{

using eigen_columns = Eigen::MatrixXd;
using eigen_rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

matrix *random_matrix(uint32_t nrows, uint32_t ncols)
{
    std::mt19937 random(nrows + ncols);
    std::normal_distribution<double> element;
    matrix *m = matrix_create(nrows, ncols);
    for (uint32_t i = 0; i < nrows; ++i) {
        for (uint32_t j = 0; j < ncols; ++j) {
            matrix_set(m, i, j, element(random));
        }
    }
    return m;
}

matrix *random_view(uint32_t nrows, uint32_t ncols)
{
    return transposed_matrix_create(random_matrix(ncols, nrows));
}

matrix *random_telemetry(uint32_t nrows, uint32_t ncols)
{
    std::vector<std::string> names;
    std::vector<const char *> pointers;
    for (uint32_t j = 0; j < ncols; ++j) {
        names.push_back("::sensor" + std::to_string(j));
    }
    for (const std::string &name : names) {
        pointers.push_back(name.c_str());
    }
    timestamp start;
    const timeval time = {1000000000, 0};
    timestamp_init_from_timeval(&start, &time);
    return telemetry_matrix_create(random_matrix(nrows, ncols),
                                   sensor_array_create_from_names(pointers.data(), ncols),
                                   timestamp_array_create_dummy(&start, nrows));
}

using maker = matrix *(*)(uint32_t nrows, uint32_t ncols);

// --- operations of the library ------------------------------------------------------------------

struct operands {
    matrix *m;
    matrix *other;
    matrix *row;
    matrix *positive;
};

void discard(matrix *result)
{
    benchmark::DoNotOptimize(result->values);
    matrix_destroy(&result);
}

void discard(double result)
{
    benchmark::DoNotOptimize(result);
}

void discard(matrix_lu *lu)
{
    benchmark::DoNotOptimize(lu->det);
    matrix_lu_destroy(&lu);
}

// Results are made and destroyed as callers do.
struct operation {
    const char *name;
    void (*run)(const operands &);
};

constexpr operation unary[] = {
    {"multiply_by_scalar", [](const operands &o) { discard(matrix_scalar_multiply(o.m, 0.1)); }},
    {"divide_by_scalar", [](const operands &o) { discard(matrix_scalar_divide(o.m, 0.3)); }},
    {"square", [](const operands &o) { discard(matrix_elemental_square(o.m)); }},
    {"sqrt", [](const operands &o) { discard(matrix_elemental_sqrt(o.positive)); }},
    {"exp", [](const operands &o) { discard(matrix_elemental_exp(o.m)); }},
    {"abs", [](const operands &o) { discard(matrix_elemental_abs(o.m)); }},
    {"clear", [](const operands &o) { matrix_clear(o.other); }},
    {"column_sum", [](const operands &o) { discard(matrix_column_sum(o.m)); }},
    {"column_mean", [](const operands &o) { discard(matrix_column_mean(o.m)); }},
    {"column_std_dev", [](const operands &o) { discard(matrix_column_std_dev(o.m)); }},
    {"length", [](const operands &o) { discard(matrix_euclidean_length(o.m)); }},
    {"norm_F", [](const operands &o) { discard(matrix_norm_F(o.m)); }},
    {"norm_inf", [](const operands &o) { discard(matrix_norm_inf(o.m)); }},
    {"lu", [](const operands &o) { discard(matrix_lu_create(o.m)); }},
    {"inverse", [](const operands &o) { discard(matrix_inverse(o.m)); }},
};

constexpr operation binary[] = {
    {"accum", [](const operands &o) { matrix_accum(o.positive, o.other); }},
    {"add", [](const operands &o) { discard(matrix_add(o.m, o.other)); }},
    {"subtract", [](const operands &o) { discard(matrix_subtract(o.m, o.other)); }},
    {"multiply", [](const operands &o) { discard(matrix_multiply(o.m, o.other)); }},
    {"distance", [](const operands &o) { discard(matrix_euclidean_distance(o.m, o.other)); }},
    {"distance_sq_with_row",
     [](const operands &o) { discard(matrix_euclidean_distance_sq_with_row_vector(o.m, o.row)); }},
    {"normalize", [](const operands &o) { discard(matrix_gaussian_normalize(o.m, o.row, o.row)); }},
    {"denormalize",
     [](const operands &o) { discard(matrix_gaussian_denormalize(o.m, o.row, o.row)); }},
    {"solve", [](const operands &o) { discard(matrix_lu_solve_for(o.m, o.other)); }},
};

void count_elements(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(0));
}

void run(benchmark::State &state, const operation &op, maker make, maker make_other)
{
    const auto n = static_cast<uint32_t>(state.range(0));
    operands o = {make(n, n), make_other(n, n), make_other(1, n), nullptr};
    o.positive = matrix_elemental_abs(o.m);
    for (auto _ : state) {
        op.run(o);
    }
    count_elements(state);
    for (matrix **m : {&o.m, &o.other, &o.row, &o.positive}) {
        matrix_destroy(m);
    }
}

// --- the others ----------------------------------------------------------------------------------

template <typename Matrix>
Matrix random_eigen(Eigen::Index n)
{
    std::mt19937 random(static_cast<unsigned>(n));
    std::normal_distribution<double> element;
    Matrix m(n, n);
    for (Eigen::Index i = 0; i < m.size(); ++i) {
        m.data()[i] = element(random);
    }
    return m;
}

void multiply_floor(benchmark::State &state)
{
    const auto n = static_cast<int>(state.range(0));
    const auto size = static_cast<uint32_t>(n);
    matrix *m = random_matrix(size, size);
    matrix *other = random_matrix(size, size);
    for (auto _ : state) {
        matrix *result = matrix_create(size, size);
        cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, m->values[0], n,
                    other->values[0], n, 0.0, result->values[0], n);
        discard(result);
    }
    count_elements(state);
    matrix_destroy(&other);
    matrix_destroy(&m);
}

// evaluate(a, b) gives an expression of Eigen, which is evaluated into a new matrix.
template <typename Matrix, typename Evaluate>
void run_eigen(benchmark::State &state, Evaluate evaluate)
{
    const auto a = random_eigen<Matrix>(state.range(0));
    const auto b = Matrix(a.cwiseAbs());
    for (auto _ : state) {
        const Matrix result = evaluate(a, b);
        benchmark::DoNotOptimize(result.data());
    }
    count_elements(state);
}

void lu_floor(benchmark::State &state)
{
    const auto m = random_eigen<eigen_columns>(state.range(0));
    for (auto _ : state) {
        const Eigen::FullPivLU<eigen_columns> lu(m);
        benchmark::DoNotOptimize(lu.matrixLU().data());
    }
}

void inverse_floor(benchmark::State &state)
{
    run_eigen<eigen_columns>(state,
                             [](const auto &a, const auto &) { return a.fullPivLu().inverse(); });
}

void add_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state, [](const auto &a, const auto &b) { return a + b; });
}

void divide_by_scalar_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state, [](const auto &a, const auto &) { return a / 0.3; });
}

void sqrt_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state, [](const auto &, const auto &b) { return b.cwiseSqrt(); });
}

void column_sum_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state, [](const auto &a, const auto &) { return a.colwise().sum(); });
}

void length_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state, [](const auto &a, const auto &) { return a.rowwise().norm(); });
}

void distance_floor(benchmark::State &state)
{
    run_eigen<eigen_rows>(state,
                          [](const auto &a, const auto &b) { return (a - b).rowwise().norm(); });
}

// --- registration --------------------------------------------------------------------------------

void add_sizes(benchmark::internal::Benchmark *b, const std::string &name)
{
    std::vector<int> sizes = {100, 1000, 1024};
    if (name == "multiply") {
        sizes = {32, 33, 100, 127, 128, 257, 512, 1000, 1024};
    } else if (name == "lu" || name == "inverse") {
        sizes = {32, 100, 128, 512, 1000, 1024};
    }
    for (const int n : sizes) {
        b->Arg(n);
    }
    b->Unit(benchmark::kMicrosecond);
}

void add_library(const operation &op, const std::string &prefix, maker make, maker make_other)
{
    add_sizes(benchmark::RegisterBenchmark((prefix + op.name).c_str(), run, op, make, make_other),
              prefix + op.name);
}

void add_floor(const std::string &name, void (*floor)(benchmark::State &))
{
    add_sizes(benchmark::RegisterBenchmark((name + "_floor").c_str(), floor), name);
}

void add_benchmarks()
{
    for (const operation &op : unary) {
        add_library(op, "", random_matrix, random_matrix);
        add_library(op, "view_", random_view, random_view);
        add_library(op, "telemetry_", random_telemetry, random_telemetry);
    }
    for (const operation &op : binary) {
        add_library(op, "", random_matrix, random_matrix);
        add_library(op, "view_", random_view, random_view);
        add_library(op, "telemetry_", random_telemetry, random_telemetry);
        add_library(op, "mixed_", random_matrix, random_view);
        add_library(op, "mixed_view_", random_view, random_matrix);
    }
    add_floor("multiply", multiply_floor);
    add_floor("lu", lu_floor);
    add_floor("inverse", inverse_floor);
    add_floor("add", add_floor);
    add_floor("divide_by_scalar", divide_by_scalar_floor);
    add_floor("sqrt", sqrt_floor);
    add_floor("column_sum", column_sum_floor);
    add_floor("length", length_floor);
    add_floor("distance", distance_floor);
}

// False when this processor has no such level.
bool force_kernels(const char *name)
{
    for (const auto find : {_matrix_kernels_avx512, _matrix_kernels_avx2, _matrix_kernels_plain}) {
        const matrix_kernels *kernels = find();
        if (kernels != nullptr && strcmp(kernels->name, name) == 0) {
            _matrix_force_kernels(kernels);
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    const char *forced = getenv("VESK_KERNELS");
    if (forced != nullptr && !force_kernels(forced)) {
        fprintf(stderr, "No kernels named %s on this processor\n", forced);
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    add_benchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
