// Using a matrix that is there: its elements and shape, direct access to its values, resizing and
// copying it.
#include <cstdint>

#include <vesk/error.h>
#include <vesk/matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/foreign_matrix.hpp"
#include "matrix/telemetry_matrix_internal.hpp"

TEST(MatrixElement, IsReadAndWrittenWhereItLies)
{
    const owned_matrix m(matrix_create(2, 3));
    matrix_set(m.get(), 1, 2, 5.5);
    EXPECT_EQ(5.5, matrix_get(m.get(), 1, 2));
    EXPECT_EQ(5.5, m->values[1][2]);
    EXPECT_EQ((grid{{0, 0, 0}, {0, 0, 5.5}}), elements_of(m.get()));
}

TEST(MatrixElement, IsLookedForWithinTheMatrixOnly)
{
    const owned_matrix m(matrix_create(2, 3));
    EXPECT_ABORTS(matrix_get(m.get(), 2, 0), "i < m->nrows");
    EXPECT_ABORTS(matrix_get(m.get(), 2, 3), "i < m->nrows");
    EXPECT_ABORTS(matrix_get(m.get(), 1, 3), "j < m->ncols");
    EXPECT_ABORTS(matrix_set(m.get(), 2, 0, 0), "i < m->nrows");
    EXPECT_ABORTS(matrix_set(m.get(), 2, 3, 0), "i < m->nrows");
    EXPECT_ABORTS(matrix_set(m.get(), 1, 3, 0), "j < m->ncols");
}

TEST(MatrixElement, NeedsALiveMatrix)
{
    EXPECT_ABORTS(matrix_get(nullptr, 0, 0), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_set(nullptr, 0, 0, 0), "m != ((void *)0)");
    matrix dead = make_foreign();
    dead.version = 0;
    dead.type = 0;
    EXPECT_ABORTS(matrix_get(&dead, 0, 0), "m->version == ((char) 1)");
    EXPECT_ABORTS(matrix_set(&dead, 0, 0, 0), "m->version == ((char) 1)");
}

TEST(MatrixElement, ComesThroughTheSlotWithoutDirectAccess)
{
    matrix m = make_foreign();
    EXPECT_EQ(12, matrix_get(&m, 1, 2)); // the slot minds its bounds, or not
    m.fn_get = nullptr;
    EXPECT_ABORTS(matrix_get(&m, 0, 0), "m->fn_get != ((void *)0)");
    m.fn_set = nullptr;
    EXPECT_ABORTS(matrix_set(&m, 0, 0, 0), "m->fn_set != ((void *)0)");
    m.matrix = nullptr;
    EXPECT_ABORTS(matrix_get(&m, 0, 0), "m->matrix != ((void *)0)");
    EXPECT_ABORTS(matrix_set(&m, 0, 0, 0), "m->matrix != ((void *)0)");
    m.type = MATRIX_TYPE_REGULAR;
    EXPECT_ABORTS(matrix_get(&m, 0, 0), "m->type != MATRIX_TYPE_REGULAR");
    EXPECT_ABORTS(matrix_set(&m, 0, 0, 0), "m->type != MATRIX_TYPE_REGULAR");
}

TEST(MatrixShape, IsAskedOfLiveMatrices)
{
    const owned_matrix m(matrix_create(2, 3));
    EXPECT_EQ(2u, matrix_get_number_rows(m.get()));
    EXPECT_EQ(3u, matrix_get_number_columns(m.get()));
    EXPECT_ABORTS(matrix_get_number_rows(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_get_number_columns(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_get_type(nullptr), "m != ((void *)0)");
    matrix dead = make_foreign();
    dead.version = 0;
    EXPECT_ABORTS(matrix_get_number_rows(&dead), "m->version == ((char) 1)");
    EXPECT_ABORTS(matrix_get_number_columns(&dead), "m->version == ((char) 1)");
    EXPECT_ABORTS(matrix_get_type(&dead), "m->version == ((char) 1)");
}

TEST(MatrixDirectAccess, IsThereInARegularMatrix)
{
    const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
    EXPECT_EQ(m->values, matrix_enable_direct_access(m.get()));
    EXPECT_EQ(3, m->values[1][0]);
}

TEST(MatrixDirectAccess, NeedsALiveMatrix)
{
    EXPECT_ABORTS(matrix_enable_direct_access(nullptr), "m != ((void *)0)");
    matrix m = make_foreign();
    m.version = 0;
    EXPECT_ABORTS(matrix_enable_direct_access(&m), "m->version == ((char) 1)");
    m.version = 1;
    m.type = MATRIX_TYPE_REGULAR;
    EXPECT_ABORTS(matrix_enable_direct_access(&m), "m->type != MATRIX_TYPE_REGULAR");
}

TEST(MatrixDirectAccess, IsBorrowedByATelemetryMatrix)
{
    owned_matrix values = make_matrix({{1, 2}});
    matrix *inner = values.get();
    const char *names[] = {"a", "b"};
    const timestamp start = {1, {100, 0}};
    const owned_matrix m(telemetry_matrix_create(values.release(),
                                                 sensor_array_create_from_names(names, 2),
                                                 timestamp_array_create_dummy(&start, 1)));
    EXPECT_EQ(inner->values, m->values);
    EXPECT_EQ(inner->values, matrix_enable_direct_access(m.get()));
    matrix_set(m.get(), 0, 1, 7);
    EXPECT_EQ(7, matrix_get(inner, 0, 1));
}

TEST(MatrixDirectAccess, OfATelemetryMatrixNeedsItsValues)
{
    const owned_matrix m = make_telemetry({{1}}, {"a"}, {10});
    auto *record = static_cast<telemetry_matrix *>(m->matrix);
    EXPECT_ABORTS(
        {
            m->values = nullptr;
            record->matrix = nullptr;
            matrix_enable_direct_access(m.get());
        },
        "tmatrix->matrix != ((void *)0)");
}

TEST(MatrixDirectAccess, MakesAViewARegularMatrixOfItsOwn)
{
    owned_matrix source = make_matrix({{1, 2, 3}, {4, 5, 6}});
    const owned_matrix view(transposed_matrix_create(source.get()));
    EXPECT_EQ(source.get(), transposed_matrix_detach_original_matrix(view.get()));
    double **rows = matrix_enable_direct_access(view.get());
    ASSERT_NE(nullptr, rows);
    EXPECT_EQ(rows, view->values);
    EXPECT_EQ(1u, matrix_get_type(view.get()));
    EXPECT_EQ(nullptr, view->matrix);
    EXPECT_TRUE(has_no_slots(*view));
    EXPECT_EQ((grid{{1, 4}, {2, 5}, {3, 6}}), elements_of(view.get()));
    matrix_set(source.get(), 0, 0, 100);
    EXPECT_EQ(1, matrix_get(view.get(), 0, 0));
    matrix_set(view.get(), 1, 0, 200);
    EXPECT_EQ(2, matrix_get(source.get(), 0, 1));
}

TEST(MatrixDirectAccess, DestroysTheSourceOfAView)
{
    // That it is gone shows where leaks are looked for.
    const owned_matrix view = make_view({{1, 2, 3}, {4, 5, 6}});
    ASSERT_NE(nullptr, matrix_enable_direct_access(view.get()));
    EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(view.get()));
}

TEST(MatrixDirectAccess, LeavesAViewAsItIsWithoutMemory)
{
    const owned_matrix view = make_view({{1, 2, 3}, {4, 5, 6}});
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, matrix_enable_direct_access(view.get()));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(2u, matrix_get_type(view.get()));
        EXPECT_EQ(nullptr, view->values);
        EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(view.get()));
    }
}

TEST(MatrixDirectAccess, NeedsAViewThatCanBeDestroyed)
{
    matrix m = make_foreign();
    m.fn_destroy = nullptr;
    EXPECT_ABORTS(matrix_enable_direct_access(&m), "m->fn_destroy != ((void *)0)");
    m.fn_destroy = [](void **) {};
    EXPECT_ABORTS(matrix_enable_direct_access(&m), "m->matrix == ((void *)0)");
    m.matrix = nullptr;
    EXPECT_ABORTS(matrix_enable_direct_access(&m), "m->matrix != ((void *)0)");
}

TEST(MatrixResize, KeepsTheElementsOfBothShapes)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    EXPECT_EQ(0, matrix_resize(m.get(), 3, 2));
    EXPECT_EQ((grid{{1, 2}, {4, 5}, {0, 0}}), elements_of(m.get()));
    EXPECT_EQ(m->values[0] + 2, m->values[1]);
    EXPECT_EQ(0, matrix_resize(m.get(), 1, 4));
    EXPECT_EQ((grid{{1, 2, 0, 0}}), elements_of(m.get()));
}

TEST(MatrixResize, ToTheSameShapeChangesNothing)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    double **values = m->values;
    EXPECT_EQ(0, matrix_resize(m.get(), 2, 3));
    EXPECT_EQ(values, m->values);
    EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(m.get()));
}

TEST(MatrixResize, KeepsEverythingWithoutMemory)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    double **values = m->values;
    for (int n = 1; n <= 2; ++n) {
        const failing_allocation failure(n);
        EXPECT_EQ(-22, matrix_resize(m.get(), 5, 5));
    }
    EXPECT_EQ(-22, matrix_resize(m.get(), UINT32_MAX, UINT32_MAX));
    EXPECT_EQ(values, m->values);
    EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(m.get()));
}

TEST(MatrixResize, NeedsALiveMatrixRowsAndColumns)
{
    matrix m = make_foreign();
    EXPECT_ABORTS(matrix_resize(nullptr, 1, 1), "matrix != ((void *)0)");
    EXPECT_ABORTS(matrix_resize(&m, 0, 1), "nrows > 0");
    EXPECT_ABORTS(matrix_resize(&m, 1, 0), "ncols > 0");
    m.matrix = nullptr;
    EXPECT_ABORTS(matrix_resize(&m, 1, 1), "matrix->matrix != ((void *)0)");
    m.fn_resize = nullptr;
    EXPECT_ABORTS(matrix_resize(&m, 1, 1), "matrix->fn_resize != ((void *)0)");
    m.type = MATRIX_TYPE_REGULAR;
    EXPECT_ABORTS(matrix_resize(&m, 1, 1), "matrix->values != ((void *)0)");
    m.version = 0;
    EXPECT_ABORTS(matrix_resize(&m, 1, 1), "matrix->version == ((char) 1)");
}

TEST(MatrixResize, TakesTheNewShapeOnlyWhenTheSlotSucceeds)
{
    matrix m = make_foreign();
    EXPECT_EQ(0, matrix_resize(&m, 4, 5));
    EXPECT_EQ(4u, m.nrows);
    EXPECT_EQ(5u, m.ncols);
    m.fn_resize = [](void *, uint32_t, uint32_t) { return -22; };
    EXPECT_EQ(-22, matrix_resize(&m, 6, 7));
    EXPECT_EQ(4u, m.nrows);
    EXPECT_EQ(5u, m.ncols);
}

TEST(MatrixCopy, IsDeep)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    const owned_matrix copy(matrix_copy(m.get()));
    matrix_set(copy.get(), 0, 0, 9);
    EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(m.get()));
    EXPECT_EQ((grid{{9, 2, 3}, {4, 5, 6}}), elements_of(copy.get()));
    EXPECT_EQ(1u, matrix_get_type(copy.get()));
}

TEST(MatrixCopy, NeedsAUsableMatrix)
{
    expect_usable_is_required(matrix_copy);
    matrix m = make_foreign();
    m.fn_copy = nullptr;
    EXPECT_ABORTS(matrix_copy(&m), "m->fn_copy != ((void *)0)");
    m.matrix = nullptr;
    EXPECT_ABORTS(matrix_copy(&m), "m->matrix != ((void *)0)");
}

TEST(MatrixCopy, IsNullWhenTheSlotFailsWithACode)
{
    matrix m = make_foreign();
    m.fn_copy = [](void *) -> void * {
        qe_set_last_error(-22);
        return nullptr;
    };
    EXPECT_EQ(nullptr, matrix_copy(&m));
    m.fn_copy = [](void *) -> void * { return nullptr; };
    qe_set_last_error(0);
    EXPECT_ABORTS(matrix_copy(&m), "qe_get_last_error() < 0");
}
