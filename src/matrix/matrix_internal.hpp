// What the three types of matrix share: what they require of a matrix, its header, and how a matrix
// of the same type is made. Not exported.
#ifndef VESK_MATRIX_MATRIX_INTERNAL_HPP
#define VESK_MATRIX_MATRIX_INTERNAL_HPP

#include <vesk/matrix.h>

#include "support/owner.hpp"
#include "support/precondition.hpp"

// What a matrix can be modelled on, taken from or put into. A macro, so that the report of a
// violation names the function that was called.
#define MATRIX_REQUIRE_USABLE(m)                                                                   \
    VESK_REQUIRE((m) != nullptr, "m != ((void *)0)");                                              \
    VESK_REQUIRE((m)->version == 1, "m->version == ((char) 1)");                                   \
    VESK_REQUIRE((m)->type > 0, "m->type > 0");                                                    \
    VESK_REQUIRE((m)->nrows > 0, "m->nrows > 0");                                                  \
    VESK_REQUIRE((m)->ncols > 0, "m->ncols > 0")

// Sets the header of `m`, without touching its type-specific object and its slots. Returns 0.
int _matrix_init(matrix *m, uint32_t type, uint32_t nrows, uint32_t ncols);

// Clears the header of `m`.
void _matrix_destruct(matrix *m);

// Copies the slots of `from` to `to` and gives `to` direct access when `from` has it. Returns 0, or
// the negative last error when direct access fails.
int _matrix_copy_metadata(const matrix *from, matrix *to);

// A matrix of the type of `m`, which is not a regular one, with the given shape: `make` builds its
// type-specific object from that of `m`, or returns null after setting the last error.
template <typename Make>
matrix *_matrix_create_same_type(const matrix *m, uint32_t nrows, uint32_t ncols, Make make)
{
    owned<matrix, matrix_destroy> result(matrix_create_null());
    if (!result) {
        return nullptr;
    }
    _matrix_init(result.get(), m->type, nrows, ncols);
    result->matrix = make(m->matrix);
    if (result->matrix == nullptr || _matrix_copy_metadata(m, result.get()) < 0) {
        return nullptr;
    }
    return result.release();
}

#endif
