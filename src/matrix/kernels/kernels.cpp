// The choice among the levels of the inner loops: the best one that the processor has, found at the
// first use. Tests and benchmarks may force another.
#include "matrix/kernels/kernels.hpp"

#include <initializer_list>

static const matrix_kernels *kernels_in_use = nullptr;

static const matrix_kernels *_matrix_best_kernels()
{
    for (const auto find : {_matrix_kernels_avx512, _matrix_kernels_avx2}) {
        if (const matrix_kernels *found = find()) {
            return found;
        }
    }
    return _matrix_kernels_plain();
}

const matrix_kernels &_matrix_kernels()
{
    if (kernels_in_use == nullptr) {
        kernels_in_use = _matrix_best_kernels();
    }
    return *kernels_in_use;
}

void _matrix_force_kernels(const matrix_kernels *kernels)
{
    kernels_in_use = kernels;
}
