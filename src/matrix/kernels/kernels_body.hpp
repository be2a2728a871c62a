// The inner loops of one level and the table of them. A source of a level defines `struct simd`
// (the vector of the level and its operations), then includes this file, then hands out the table.
//
// The headers of the loops are written over `struct simd`, so they compile only behind its
// definition. They call no inline function of a header outside this folder: a level is compiled for
// newer processors, and of several copies of an inline function the linker keeps any one, which an
// older processor may not be able to run.
#ifndef VESK_MATRIX_KERNELS_KERNELS_BODY_HPP
#define VESK_MATRIX_KERNELS_KERNELS_BODY_HPP

// Each of them may build on those before it.
// clang-format off
#include "matrix/kernels/vectors.hpp"
#include "matrix/kernels/transposition.hpp"
#include "matrix/kernels/multiplication.hpp"
#include "matrix/kernels/elimination.hpp"
#include "matrix/kernels/triangular_inverses.hpp"
#include "matrix/kernels/folds.hpp"
#include "matrix/kernels/moments.hpp"
// clang-format on

namespace
{

// Every level has its own table.
// NOLINTNEXTLINE(misc-definitions-in-headers)
constexpr matrix_kernels level = {
    simd::name,         _multiply_scratch, _multiply,     _eliminate,  _eliminate_two,
    _largest_magnitude, _invert_lower,     _invert_upper, _fold_along, _fold_across,
    _moments,           _fold_differences, _transpose};

} // namespace

#endif
