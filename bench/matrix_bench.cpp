// Matrix arithmetic beside OpenBLAS (multiplication, one thread) and Eigen (decomposition with full
// pivoting, inverse). A benchmark named X/... is the library, X_floor/... the other one;
// bench/ratios.py divides one by the other.
#include <Eigen/Dense>
#include <benchmark/benchmark.h>
#include <cblas.h>
#include <random>

#include <vesk/matrix.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>
#include <vesk/transposed_matrix.h>

namespace
{

using eigen_matrix = Eigen::MatrixXd;

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

uint32_t size_of(const benchmark::State &state)
{
    return static_cast<uint32_t>(state.range(0));
}

// The result of `operation` on a matrix of n x n, made and destroyed as callers do.
template <typename Operation>
void run(benchmark::State &state, matrix *m, Operation operation)
{
    for (auto _ : state) {
        matrix *result = operation(m);
        benchmark::DoNotOptimize(result->values);
        matrix_destroy(&result);
    }
    matrix_destroy(&m);
}

void multiply(benchmark::State &state)
{
    run(state, random_matrix(size_of(state), size_of(state)),
        [](const matrix *m) { return matrix_multiply(m, m); });
}

void multiply_floor(benchmark::State &state)
{
    const auto n = static_cast<int>(state.range(0));
    matrix *m = random_matrix(size_of(state), size_of(state));
    for (auto _ : state) {
        matrix *result = matrix_create(m->nrows, m->ncols);
        cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, m->values[0], n,
                    m->values[0], n, 0.0, result->values[0], n);
        benchmark::DoNotOptimize(result->values);
        matrix_destroy(&result);
    }
    matrix_destroy(&m);
}

void decompose(benchmark::State &state)
{
    matrix *m = random_matrix(size_of(state), size_of(state));
    for (auto _ : state) {
        matrix_lu *lu = matrix_lu_create(m);
        benchmark::DoNotOptimize(lu->det);
        matrix_lu_destroy(&lu);
    }
    matrix_destroy(&m);
}

eigen_matrix to_eigen(matrix *m)
{
    eigen_matrix copy = Eigen::Map<eigen_matrix>(m->values[0], m->nrows, m->ncols);
    matrix_destroy(&m);
    return copy;
}

void decompose_floor(benchmark::State &state)
{
    const eigen_matrix m = to_eigen(random_matrix(size_of(state), size_of(state)));
    for (auto _ : state) {
        const Eigen::FullPivLU<eigen_matrix> lu(m);
        benchmark::DoNotOptimize(lu.matrixLU().data());
    }
}

void invert(benchmark::State &state)
{
    run(state, random_matrix(size_of(state), size_of(state)),
        [](const matrix *m) { return matrix_inverse(m); });
}

void invert_floor(benchmark::State &state)
{
    const eigen_matrix m = to_eigen(random_matrix(size_of(state), size_of(state)));
    for (auto _ : state) {
        const eigen_matrix inverse = m.fullPivLu().inverse();
        benchmark::DoNotOptimize(inverse.data());
    }
}

// A view beside the regular matrix with the same values: the floor is the library itself.
matrix *random_view(uint32_t n)
{
    return transposed_matrix_create(random_matrix(n, n));
}

#define VESK_VIEW_BENCHMARK(name, operation)                                                       \
    void name(benchmark::State &state)                                                             \
    {                                                                                              \
        run(state, random_view(size_of(state)), [](const matrix *m) { return operation; });        \
    }                                                                                              \
    void name##_floor(benchmark::State &state)                                                     \
    {                                                                                              \
        run(state, random_matrix(size_of(state), size_of(state)),                                  \
            [](const matrix *m) { return operation; });                                            \
    }                                                                                              \
    BENCHMARK(name)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);                           \
    BENCHMARK(name##_floor)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)

VESK_VIEW_BENCHMARK(view_multiply, matrix_multiply(m, m));
VESK_VIEW_BENCHMARK(view_column_sum, matrix_column_sum(m));
VESK_VIEW_BENCHMARK(view_std_dev, matrix_column_std_dev(m));
VESK_VIEW_BENCHMARK(view_length, matrix_euclidean_length(m));

void multiply_sizes(benchmark::internal::Benchmark *b)
{
    for (const int n : {32, 33, 100, 127, 128, 257, 512, 1024}) {
        b->Arg(n);
    }
    b->Unit(benchmark::kMicrosecond);
}

void decompose_sizes(benchmark::internal::Benchmark *b)
{
    for (const int n : {32, 128, 512, 1024}) {
        b->Arg(n);
    }
    b->Unit(benchmark::kMicrosecond);
}

BENCHMARK(multiply)->Apply(multiply_sizes);
BENCHMARK(multiply_floor)->Apply(multiply_sizes);
BENCHMARK(decompose)->Apply(decompose_sizes);
BENCHMARK(decompose_floor)->Apply(decompose_sizes);
BENCHMARK(invert)->Apply(decompose_sizes);
BENCHMARK(invert_floor)->Apply(decompose_sizes);

} // namespace
