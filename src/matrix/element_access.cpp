// Where the elements of a matrix lie: a view is followed to its source as long as matrix_get()
// would go there, too.
#include "matrix/element_access.hpp"

#include "matrix/transposed_matrix_internal.hpp"

// Whether matrix_get() would go on to the source of the view for every element of the view, and
// find it there: the source may have been resized behind the view's back.
static const matrix *_matrix_get_whole_source(const matrix *view)
{
    const auto *tmatrix = static_cast<const transposed_matrix *>(view->matrix);
    if (tmatrix == nullptr || !_transposed_matrix_has_own_access(view) || tmatrix->version != 1 ||
        tmatrix->matrix == nullptr || view->nrows > tmatrix->matrix->ncols ||
        view->ncols > tmatrix->matrix->nrows) {
        return nullptr;
    }
    return tmatrix->matrix;
}

element_rows _matrix_find_rows(const matrix *m)
{
    bool exchanged = false;
    while (m != nullptr && m->version == 1 && m->values == nullptr &&
           m->type == MATRIX_TYPE_TRANSPOSED) {
        m = _matrix_get_whole_source(m);
        exchanged = !exchanged;
    }
    if (m == nullptr || m->version != 1 || m->type == 0) {
        return {nullptr, false};
    }
    return {m->values, exchanged};
}
