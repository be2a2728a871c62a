// A view that shows another matrix with rows and columns exchanged: writing through it, resizing
// and copying it, and who owns the source.
#include <cstdint>

#include <vesk/error.h>
#include <vesk/transposed_matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/transposed_matrix_internal.hpp"

TEST(TransposedMatrix, ExchangesRowsAndColumns)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    EXPECT_EQ(MATRIX_TYPE_TRANSPOSED, static_cast<int>(matrix_get_type(view.get())));
    EXPECT_EQ(nullptr, view->values);
    EXPECT_EQ((grid{{1, 4}, {2, 5}, {3, 6}}), elements_of(view.get()));
    EXPECT_EQ(matrix_get(source, 0, 2), matrix_get(view.get(), 2, 0));
}

TEST(TransposedMatrix, WritesThrough)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    matrix_set(view.get(), 0, 1, 100);
    EXPECT_EQ(100, matrix_get(source, 1, 0));
    matrix_set(source, 1, 2, 200);
    EXPECT_EQ(200, matrix_get(view.get(), 2, 1));
}

TEST(TransposedMatrix, ShowsMatricesOfAnyType)
{
    const owned_matrix twice(transposed_matrix_create(make_view(two_by_three).release()));
    EXPECT_EQ((grid{{1, 4}, {2, 5}, {3, 6}}), elements_of(twice.get()));
    const owned_matrix telemetry(transposed_matrix_create(
        make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20}).release()));
    EXPECT_EQ((grid{{1, 4}, {2, 5}, {3, 6}}), elements_of(telemetry.get()));
}

TEST(TransposedMatrix, HasTheBoundsOfItsSource)
{
    const owned_matrix view = make_view(two_by_three);
    EXPECT_ABORTS(matrix_get(view.get(), 2, 0), "j < m->ncols");
    EXPECT_ABORTS(matrix_get(view.get(), 0, 3), "i < m->nrows");
    EXPECT_ABORTS(matrix_set(view.get(), 2, 0, 0), "j < m->ncols");
    EXPECT_ABORTS(matrix_set(view.get(), 0, 3, 0), "i < m->nrows");
}

TEST(TransposedMatrix, IsInitialisedOnStorageOfTheCaller)
{
    matrix view;
    ASSERT_EQ(0, transposed_matrix_init(&view, make_matrix(two_by_three).release()));
    EXPECT_EQ(3u, matrix_get_number_rows(&view));
    EXPECT_EQ(2u, matrix_get_number_columns(&view));
    matrix_destruct(&view);
    EXPECT_EQ(0, view.version);
    EXPECT_EQ(nullptr, view.matrix);
}

TEST(TransposedMatrix, FillsAllSlots)
{
    const owned_matrix view = make_view(two_by_three);
    EXPECT_TRUE(view->fn_destroy != nullptr && view->fn_get != nullptr && view->fn_set != nullptr &&
                view->fn_create_like != nullptr && view->fn_get_col_slice != nullptr &&
                view->fn_get_row_slice != nullptr && view->fn_copy != nullptr &&
                view->fn_resize != nullptr && view->fn_set_rows != nullptr &&
                view->fn_set_columns != nullptr);
    EXPECT_EQ(0, view->fn_set_rows(view->matrix, nullptr, nullptr));
    EXPECT_EQ(0, view->fn_set_columns(view->matrix, nullptr, nullptr));
}

TEST(TransposedMatrix, NeedsASourceWithElements)
{
    matrix view;
    const owned_matrix source = make_matrix({{1}});
    EXPECT_ABORTS(transposed_matrix_init(nullptr, source.get()), "m != ((void *)0)");
    EXPECT_ABORTS(transposed_matrix_init(&view, nullptr), "orig_m != ((void *)0)");
    EXPECT_ABORTS(transposed_matrix_create(nullptr), "matrix != ((void *)0)");
    const owned_matrix no_rows(matrix_create_null());
    EXPECT_ABORTS(transposed_matrix_create(no_rows.get()), "matrix->nrows > 0");
    EXPECT_ABORTS(
        {
            no_rows->nrows = 1;
            transposed_matrix_create(no_rows.get());
        },
        "matrix->ncols > 0");
}

TEST(TransposedMatrix, LeavesTheSourceToTheCallerWithoutMemory)
{
    const owned_matrix source = make_matrix(two_by_three);
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, transposed_matrix_create(source.get()));
        EXPECT_EQ(-22, qe_get_last_error());
    }
    matrix view;
    const failing_allocation failure(1);
    EXPECT_EQ(-22, transposed_matrix_init(&view, source.get()));
    EXPECT_EQ(0, view.version);
    EXPECT_EQ(0u, view.type);
    EXPECT_EQ(two_by_three, elements_of(source.get()));
}

TEST(TransposedMatrixDetach, GivesTheSourceBack)
{
    const owned_matrix source = make_matrix(two_by_three);
    {
        const owned_matrix view(transposed_matrix_create(source.get()));
        EXPECT_EQ(source.get(), transposed_matrix_detach_original_matrix(view.get()));
        EXPECT_EQ((grid{{1, 4}, {2, 5}, {3, 6}}), elements_of(view.get()));
    }
    EXPECT_EQ(two_by_three, elements_of(source.get()));
}

TEST(TransposedMatrixDetach, NeedsAView)
{
    const owned_matrix m = make_matrix({{1}});
    EXPECT_ABORTS(transposed_matrix_detach_original_matrix(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(transposed_matrix_detach_original_matrix(m.get()),
                  "m->type == MATRIX_TYPE_TRANSPOSED");
    const owned_matrix view = make_view({{1}});
    EXPECT_ABORTS(
        {
            view->matrix = nullptr;
            transposed_matrix_detach_original_matrix(view.get());
        },
        "tmatrix != ((void *)0)");
}

TEST(TransposedMatrixResize, ResizesTheSourceTheOtherWayRound)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    EXPECT_EQ(0, matrix_resize(view.get(), 4, 5));
    EXPECT_EQ(5u, matrix_get_number_rows(source));
    EXPECT_EQ(4u, matrix_get_number_columns(source));
    EXPECT_EQ((grid{{1, 4, 0, 0, 0}, {2, 5, 0, 0, 0}, {3, 6, 0, 0, 0}, {0, 0, 0, 0, 0}}),
              elements_of(view.get()));
    EXPECT_EQ(nullptr, view->values);
}

TEST(TransposedMatrixResize, ToTheSameShapeDoesNothing)
{
    const owned_matrix view = make_view(two_by_three);
    EXPECT_EQ(0, matrix_resize(view.get(), 2, 3));
    EXPECT_EQ(two_by_three, elements_of(view.get()));
}

TEST(TransposedMatrixResize, AbortsWhenTheSourceHasTheShapeAlready)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    ASSERT_EQ(0, matrix_resize(source, 5, 4));
    EXPECT_ABORTS(matrix_resize(view.get(), 4, 5),
                  "matrix_get_number_rows (tmatrix->matrix) != ncols || "
                  "matrix_get_number_columns (tmatrix->matrix) != nrows");
}

TEST(TransposedMatrixResize, KeepsEverythingWithoutMemory)
{
    const owned_matrix view = make_view(two_by_three);
    const failing_allocation failure(1);
    EXPECT_EQ(-22, matrix_resize(view.get(), 4, 5));
    EXPECT_EQ(two_by_three, elements_of(view.get()));
}

TEST(TransposedMatrixCopy, IsAViewOfADeepCopy)
{
    const owned_matrix view = make_view(two_by_three);
    const owned_matrix copy(matrix_copy(view.get()));
    EXPECT_EQ(2u, matrix_get_type(copy.get()));
    EXPECT_EQ(two_by_three, elements_of(copy.get()));
    matrix_set(copy.get(), 0, 0, 100);
    EXPECT_EQ(two_by_three, elements_of(view.get()));
}

TEST(TransposedMatrixCopy, OfADetachedViewOwnsItsSource)
{
    const owned_matrix source = make_matrix(two_by_three);
    const owned_matrix view(transposed_matrix_create(source.get()));
    transposed_matrix_detach_original_matrix(view.get());
    const owned_matrix copy(matrix_copy(view.get()));
    EXPECT_EQ(1u, static_cast<transposed_matrix *>(copy->matrix)->owns_matrix);
}

TEST(TransposedMatrixSlots, NeedALiveRecordWithASource)
{
    const owned_matrix view = make_view(two_by_three);
    auto *record = static_cast<transposed_matrix *>(view->matrix);
    const uint32_t index = 0;
    EXPECT_ABORTS(view->fn_get(nullptr, 0, 0), "tmatrix != ((void *)0)");
    EXPECT_ABORTS(view->fn_set(nullptr, 0, 0, 0), "tmatrix != ((void *)0)");
    EXPECT_ABORTS(view->fn_get_col_slice(record, nullptr, 1), "slices != ((void *)0)");
    EXPECT_ABORTS(view->fn_get_row_slice(record, nullptr, 1), "slices != ((void *)0)");
    EXPECT_ABORTS(view->fn_get_col_slice(record, &index, 0), "n > 0");
    EXPECT_ABORTS(view->fn_get_row_slice(record, &index, 0), "n > 0");
    EXPECT_ABORTS(
        {
            record->version = 0;
            matrix_get(view.get(), 0, 0);
        },
        "tmatrix->version == ((char) 1)");
    EXPECT_ABORTS(
        {
            record->matrix = nullptr;
            matrix_set(view.get(), 0, 0, 0);
        },
        "tmatrix->matrix != ((void *)0)");
}

TEST(TransposedMatrixSlots, DestroyNothingOfADeadRecord)
{
    matrix view;
    ASSERT_EQ(0, transposed_matrix_init(&view, make_matrix({{1}}).release()));
    auto *record = static_cast<transposed_matrix *>(view.matrix);
    void *object = record;
    record->version = 0;
    view.fn_destroy(&object);
    record->version = 1;
    EXPECT_EQ(1, matrix_get(&view, 0, 0));
    matrix_destruct(&view);
    view.fn_destroy(&view.matrix);
}
