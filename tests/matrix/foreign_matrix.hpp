// A matrix of a type that nobody knows, and what functions require of any matrix they are given:
// what the tests of matrices share.
#ifndef VESK_TESTS_MATRIX_FOREIGN_MATRIX_HPP
#define VESK_TESTS_MATRIX_FOREIGN_MATRIX_HPP

#include <cstdint>

#include <vesk/matrix.h>

#include "common/aborts.hpp"
#include "matrix/matrix_internal.hpp"

// A record with slots of its own, around an object that is nobody's.
inline matrix make_foreign()
{
    static int object;
    matrix m;
    matrix_init_null(&m);
    _matrix_init(&m, 9, 2, 2);
    m.matrix = &object;
    m.fn_destroy = [](void **destroyed) { *destroyed = nullptr; };
    m.fn_get = [](void *, uint32_t i, uint32_t j) { return 10.0 * i + j; };
    m.fn_set = [](void *, uint32_t, uint32_t, double) {};
    m.fn_create_like = [](void *) -> void * { return &object; };
    m.fn_get_col_slice = [](void *, const uint32_t *, uint32_t) -> void * { return &object; };
    m.fn_get_row_slice = [](void *, const uint32_t *, uint32_t) -> void * { return &object; };
    m.fn_copy = [](void *) -> void * { return &object; };
    m.fn_resize = [](void *, uint32_t, uint32_t) { return 0; };
    m.fn_set_rows = [](void *, const matrix *, const uint32_t *) { return 0; };
    m.fn_set_columns = [](void *, const matrix *, const uint32_t *) { return 0; };
    return m;
}

inline bool has_no_slots(const matrix &m)
{
    return m.fn_destroy == nullptr && m.fn_get == nullptr && m.fn_set == nullptr &&
           m.fn_create_like == nullptr && m.fn_get_col_slice == nullptr &&
           m.fn_get_row_slice == nullptr && m.fn_copy == nullptr && m.fn_resize == nullptr &&
           m.fn_set_rows == nullptr && m.fn_set_columns == nullptr;
}

// What every function that models a matrix on another one requires of it.
template <typename Call>
void expect_usable_is_required(Call call)
{
    EXPECT_ABORTS(call(nullptr), "m != ((void *)0)");
    matrix m = make_foreign();
    m.nrows = 0;
    m.ncols = 0;
    EXPECT_ABORTS(call(&m), "m->nrows > 0");
    m.nrows = 1;
    EXPECT_ABORTS(call(&m), "m->ncols > 0");
    m.type = 0;
    EXPECT_ABORTS(call(&m), "m->type > 0");
    m.version = 0;
    EXPECT_ABORTS(call(&m), "m->version == ((char) 1)");
}

#endif
