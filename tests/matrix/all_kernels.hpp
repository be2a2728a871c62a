// Runs a test at every level of the kernels that this processor has.
#ifndef VESK_TESTS_MATRIX_ALL_KERNELS_HPP
#define VESK_TESTS_MATRIX_ALL_KERNELS_HPP

#include <gtest/gtest.h>
#include <vector>

#include "matrix/kernels/kernels.hpp"

class AllKernels : public testing::TestWithParam<const matrix_kernels *>
{
protected:
    AllKernels() { _matrix_force_kernels(GetParam()); }
    ~AllKernels() override { _matrix_force_kernels(nullptr); }

public:
    static std::vector<const matrix_kernels *> levels()
    {
        std::vector<const matrix_kernels *> found;
        for (const auto find :
             {_matrix_kernels_avx512, _matrix_kernels_avx2, _matrix_kernels_plain}) {
            if (const matrix_kernels *kernels = find()) {
                found.push_back(kernels);
            }
        }
        return found;
    }

    static std::string name(const testing::TestParamInfo<const matrix_kernels *> &level)
    {
        return level.param->name;
    }
};

#endif
