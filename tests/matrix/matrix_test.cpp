// The life of a matrix: making it, alone or modelled on another one, its record and slots, what is
// left without memory, and its end.
#include <cstdint>
#include <string.h>

#include <vesk/error.h>
#include <vesk/matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/foreign_matrix.hpp"
#include "matrix/matrix_internal.hpp"

TEST(Matrix, BeginsWithOneZero)
{
    const owned_matrix m(matrix_create(1, 1));
    EXPECT_EQ((grid{{0}}), elements_of(m.get()));
    EXPECT_EQ(1, m->version);
    EXPECT_EQ(MATRIX_TYPE_REGULAR, static_cast<int>(matrix_get_type(m.get())));
    EXPECT_EQ(nullptr, m->matrix);
    EXPECT_TRUE(has_no_slots(*m));
}

TEST(Matrix, KeepsItsValuesInOneBlockRowByRow)
{
    const owned_matrix m(matrix_create_with_dimensions(3, 2));
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(m->values[0] + i * 2, m->values[i]);
    }
    for (uint32_t k = 0; k < 6; ++k) {
        m->values[0][k] = k;
    }
    EXPECT_EQ((grid{{0, 1}, {2, 3}, {4, 5}}), elements_of(m.get()));
}

TEST(Matrix, IsInitialisedOnStorageOfTheCaller)
{
    matrix m;
    memset(&m, 0x55, sizeof m);
    ASSERT_EQ(0, matrix_init(&m, 2, 3));
    EXPECT_EQ((grid{{0, 0, 0}, {0, 0, 0}}), elements_of(&m));
    EXPECT_EQ(nullptr, m.matrix);
    EXPECT_TRUE(has_no_slots(m));
    matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
    EXPECT_EQ(0u, m.type);
    EXPECT_EQ(0u, m.nrows);
    EXPECT_EQ(0u, m.ncols);
    EXPECT_EQ(nullptr, m.values);
}

TEST(Matrix, NeedsStorageRowsAndColumns)
{
    matrix m;
    EXPECT_ABORTS(matrix_init(nullptr, 0, 0), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_init(&m, 0, 0), "nrows > 0");
    EXPECT_ABORTS(matrix_init(&m, 1, 0), "ncols > 0");
    EXPECT_ABORTS(matrix_create(0, 1), "nrows > 0");
    EXPECT_ABORTS(matrix_create(1, 0), "ncols > 0");
    EXPECT_ABORTS(matrix_create_with_dimensions(0, 1), "nrows > 0");
}

TEST(Matrix, WhoseSizeDoesNotExistIsOutOfMemory)
{
    const uint32_t shapes[][2] = {
        {UINT32_MAX, UINT32_MAX}, {1U << 31, 1U << 30}, {1U << 30, 1U << 30}};
    for (const auto &shape : shapes) {
        matrix m;
        qe_set_last_error(0);
        EXPECT_EQ(-22, matrix_init(&m, shape[0], shape[1]));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(0, m.version);
        EXPECT_EQ(0u, m.type);
        EXPECT_EQ(0u, m.nrows);
        EXPECT_EQ(0u, m.ncols);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, matrix_create(shape[0], shape[1]));
        EXPECT_EQ(-22, qe_get_last_error());
    }
}

TEST(Matrix, WhoseSizeDoesNotExistOn32BitIsOutOfMemoryThere)
{
    if (sizeof(std::size_t) > 4) {
        GTEST_SKIP() << "this machine could try";
    }
    EXPECT_EQ(nullptr, matrix_create(1U << 16, 1U << 16));
    EXPECT_EQ(nullptr, matrix_create(1U << 15, 1U << 14));
}

// Each allocation of `make` in turn fails: the result is null, the code
// QE_ERROR_NO_MEMORY (-22), and nothing is left.
template <typename Make>
static int count_failures(Make make)
{
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        matrix *made = nullptr;
        {
            const failing_allocation failure(n);
            made = make();
            if (!failing_allocation::happened()) {
                matrix_destroy(&made);
                return n - 1;
            }
        }
        EXPECT_EQ(nullptr, made) << "allocation " << n;
        EXPECT_EQ(-22, qe_get_last_error()) << "allocation " << n;
    }
}

TEST(Matrix, CreatorsSurviveEveryFailedAllocation)
{
    const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
    EXPECT_EQ(3, count_failures([] { return matrix_create(2, 2); }));
    EXPECT_EQ(1, count_failures([] { return matrix_create_null(); }));
    EXPECT_EQ(3, count_failures([] { return matrix_create_identity(2); }));
    EXPECT_EQ(3, count_failures([] { return matrix_create_ones(2, 2); }));
    EXPECT_EQ(3, count_failures([&] { return matrix_create_like(m.get()); }));
    EXPECT_EQ(3, count_failures([&] { return matrix_copy(m.get()); }));
}

TEST(Matrix, CopiesOfOtherTypesSurviveEveryFailedAllocation)
{
    const owned_matrix view = make_view({{1, 2}, {3, 4}});
    EXPECT_EQ(5, count_failures([&] { return matrix_create_like(view.get()); }));
    EXPECT_EQ(5, count_failures([&] { return matrix_copy(view.get()); }));
    const owned_matrix telemetry = make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {10, 20});
    EXPECT_EQ(7, count_failures([&] { return matrix_create_like(telemetry.get()); }));
    EXPECT_EQ(7, count_failures([&] { return matrix_copy(telemetry.get()); }));
    EXPECT_EQ((grid{{1, 2}, {3, 4}}), elements_of(telemetry.get()));
}

TEST(Matrix, FailedInitLeavesADeadRecord)
{
    for (int n = 1; n <= 2; ++n) {
        matrix m;
        const failing_allocation failure(n);
        EXPECT_EQ(-22, matrix_init(&m, 2, 2));
        EXPECT_EQ(0, m.version);
        EXPECT_EQ(0u, m.type);
        EXPECT_EQ(0u, m.nrows);
        EXPECT_EQ(0u, m.ncols);
    }
}

TEST(MatrixNull, IsLiveWithoutTypeRowsAndSlots)
{
    matrix m;
    memset(&m, 0x55, sizeof m);
    EXPECT_EQ(0, matrix_init_null(&m));
    EXPECT_EQ(1, m.version);
    EXPECT_EQ(0u, matrix_get_type(&m));
    EXPECT_EQ(0u, m.nrows);
    EXPECT_EQ(0u, m.ncols);
    EXPECT_EQ(nullptr, m.values);
    EXPECT_EQ(nullptr, m.matrix);
    EXPECT_TRUE(has_no_slots(m));
    matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
    EXPECT_ABORTS(matrix_init_null(nullptr), "m != ((void *)0)");
}

TEST(MatrixNull, CannotBeUsed)
{
    const owned_matrix m(matrix_create_null());
    EXPECT_ABORTS(matrix_get(m.get(), 0, 0), "m->type > 0");
    EXPECT_ABORTS(matrix_set(m.get(), 0, 0, 0), "m->type > 0");
    EXPECT_ABORTS(matrix_enable_direct_access(m.get()), "m->type > 0");
    EXPECT_ABORTS(matrix_create_like(m.get()), "m->type > 0");
    EXPECT_ABORTS(matrix_copy(m.get()), "m->type > 0");
    EXPECT_ABORTS(matrix_get_number_rows(m.get()), "m->nrows > 0");
    EXPECT_ABORTS(matrix_get_number_columns(m.get()), "m->ncols > 0");
    EXPECT_ABORTS(matrix_resize(m.get(), 1, 1), "matrix->fn_resize != ((void *)0)");
}

TEST(MatrixHeader, NeedsATypeRowsAndColumns)
{
    matrix m;
    EXPECT_ABORTS(_matrix_init(&m, 0, 0, 0), "type > 0");
    EXPECT_ABORTS(_matrix_init(&m, 1, 0, 0), "nrows > 0");
    EXPECT_ABORTS(_matrix_init(&m, 1, 1, 0), "ncols > 0");
}

TEST(MatrixHeader, LeavesObjectAndSlotsAlone)
{
    matrix m = make_foreign();
    void *object = m.matrix;
    EXPECT_EQ(0, _matrix_init(&m, 8, 3, 4));
    EXPECT_EQ(object, m.matrix);
    EXPECT_NE(nullptr, m.fn_copy);
    EXPECT_EQ(8u, m.type);
    EXPECT_EQ(3u, m.nrows);
    EXPECT_EQ(4u, m.ncols);
    _matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
    EXPECT_ABORTS(_matrix_destruct(&m), "m->version == ((char) 1)");
}

TEST(MatrixMetadata, IsAllTenSlots)
{
    const matrix from = make_foreign();
    matrix to;
    matrix_init_null(&to);
    to.type = 9;
    EXPECT_EQ(0, _matrix_copy_metadata(&from, &to));
    EXPECT_EQ(from.fn_destroy, to.fn_destroy);
    EXPECT_EQ(from.fn_get, to.fn_get);
    EXPECT_EQ(from.fn_set, to.fn_set);
    EXPECT_EQ(from.fn_create_like, to.fn_create_like);
    EXPECT_EQ(from.fn_get_col_slice, to.fn_get_col_slice);
    EXPECT_EQ(from.fn_get_row_slice, to.fn_get_row_slice);
    EXPECT_EQ(from.fn_copy, to.fn_copy);
    EXPECT_EQ(from.fn_resize, to.fn_resize);
    EXPECT_EQ(from.fn_set_rows, to.fn_set_rows);
    EXPECT_EQ(from.fn_set_columns, to.fn_set_columns);
    EXPECT_EQ(nullptr, to.values);
}

TEST(MatrixMetadata, NeedsTwoLiveMatricesWithTypes)
{
    matrix m1 = make_foreign();
    matrix m2 = make_foreign();
    EXPECT_ABORTS(_matrix_copy_metadata(nullptr, &m2), "from != ((void *)0)");
    EXPECT_ABORTS(_matrix_copy_metadata(&m1, nullptr), "to != ((void *)0)");
    m2.version = 0;
    EXPECT_ABORTS(_matrix_copy_metadata(&m1, &m2), "to->version == ((char) 1)");
    m2.version = 1;
    m2.type = 0;
    EXPECT_ABORTS(_matrix_copy_metadata(&m1, &m2), "to->type > 0");
    m2.type = 9;
    m1.version = 0;
    EXPECT_ABORTS(_matrix_copy_metadata(&m1, &m2), "from->version == ((char) 1)");
    m1.version = 1;
    m1.type = 0;
    EXPECT_ABORTS(_matrix_copy_metadata(&m1, &m2), "from->type > 0");
}

TEST(MatrixCreateLike, GivesZerosOfTheSameShape)
{
    const owned_matrix m = make_matrix({{1, 2, 3}, {4, 5, 6}});
    const owned_matrix like(matrix_create_like(m.get()));
    EXPECT_EQ(1u, matrix_get_type(like.get()));
    EXPECT_EQ((grid{{0, 0, 0}, {0, 0, 0}}), elements_of(like.get()));
}

TEST(MatrixCreateLike, GivesAViewOfANewMatrixForAView)
{
    const owned_matrix view = make_view({{1, 2, 3}, {4, 5, 6}});
    const owned_matrix like(matrix_create_like(view.get()));
    EXPECT_EQ(2u, matrix_get_type(like.get()));
    EXPECT_EQ(nullptr, like->values);
    EXPECT_EQ((grid{{0, 0, 0}, {0, 0, 0}}), elements_of(like.get()));
    matrix_set(like.get(), 0, 1, 7);
    EXPECT_EQ((grid{{0, 7, 0}, {0, 0, 0}}), elements_of(like.get()));
    EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 6}}), elements_of(view.get()));
}

TEST(MatrixCreateLike, GivesSensorsAndTimestampsAlong)
{
    const owned_matrix m = make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {10, 20});
    const owned_matrix like(matrix_create_like(m.get()));
    EXPECT_EQ(3u, matrix_get_type(like.get()));
    EXPECT_EQ((grid{{0, 0}, {0, 0}}), elements_of(like.get()));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), sensors_of(like.get()));
    EXPECT_EQ((std::vector<long>{10, 20}), seconds_of(like.get()));
    EXPECT_NE(nullptr, like->values);
}

TEST(MatrixCreateLike, NeedsAUsableMatrix)
{
    expect_usable_is_required(matrix_create_like);
    matrix m = make_foreign();
    m.fn_create_like = nullptr;
    EXPECT_ABORTS(matrix_create_like(&m), "m->fn_create_like != ((void *)0)");
    m.matrix = nullptr;
    EXPECT_ABORTS(matrix_create_like(&m), "m->matrix != ((void *)0)");
}

TEST(MatrixCreateLike, IsNullWhenTheSlotFails)
{
    matrix m = make_foreign();
    m.fn_create_like = [](void *) -> void * {
        qe_set_last_error(-22);
        return nullptr;
    };
    EXPECT_EQ(nullptr, matrix_create_like(&m));
}

TEST(MatrixCreateLikeBinaryOperands, TakesTheTypeOfTheFirst)
{
    const owned_matrix view = make_view({{1, 2}});
    const owned_matrix m = make_matrix({{1, 2}});
    const owned_matrix like1(matrix_create_like_binary_operands(view.get(), m.get()));
    const owned_matrix like2(matrix_create_like_binary_operands(m.get(), view.get()));
    EXPECT_EQ(2u, matrix_get_type(like1.get()));
    EXPECT_EQ(1u, matrix_get_type(like2.get()));
    EXPECT_EQ((grid{{0, 0}}), elements_of(like1.get()));
}

TEST(MatrixCreateLikeBinaryOperands, NeedsEqualShapes)
{
    const owned_matrix m1 = make_matrix({{1, 2}});
    const owned_matrix m2 = make_matrix({{1}, {2}});
    EXPECT_ABORTS(matrix_create_like_binary_operands(nullptr, m2.get()), "m1 != ((void *)0)");
    EXPECT_ABORTS(matrix_create_like_binary_operands(m1.get(), nullptr), "m2 != ((void *)0)");
    EXPECT_ABORTS(matrix_create_like_binary_operands(m1.get(), m2.get()),
                  "matrix_is_equal_dimensions (m1, m2)");
}

TEST(MatrixCreateIdentity, HasOnesOnTheDiagonal)
{
    const owned_matrix m(matrix_create_identity(3));
    EXPECT_EQ((grid{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}), elements_of(m.get()));
    EXPECT_EQ(1u, matrix_get_type(m.get()));
    EXPECT_ABORTS(matrix_create_identity(0), "m > 0");
}

TEST(MatrixCreateOnes, IsOneEverywhere)
{
    const owned_matrix m(matrix_create_ones(2, 3));
    EXPECT_EQ((grid{{1, 1, 1}, {1, 1, 1}}), elements_of(m.get()));
    EXPECT_ABORTS(matrix_create_ones(0, 0), "m > 0");
    EXPECT_ABORTS(matrix_create_ones(1, 0), "n > 0");
}

TEST(MatrixDestruct, HappensOnce)
{
    matrix m;
    matrix_init(&m, 2, 2);
    matrix_destruct(&m);
    EXPECT_ABORTS(matrix_destruct(&m), "m->version == ((char) 1)");
    EXPECT_ABORTS(matrix_destruct(nullptr), "m != ((void *)0)");
}

TEST(MatrixDestruct, LeavesValuesOfOthersAlone)
{
    owned_matrix values = make_matrix({{1, 2}});
    matrix m = make_foreign();
    m.values = values->values;
    matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
    EXPECT_EQ((grid{{1, 2}}), elements_of(values.get()));
}

TEST(MatrixDestruct, TakesARegularMatrixThatNeverGotValues)
{
    matrix m;
    matrix_init_null(&m);
    m.type = MATRIX_TYPE_REGULAR; // as a reader leaves it that failed
    matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
}

TEST(MatrixDestruct, NeedsConsistentRecords)
{
    matrix m = make_foreign();
    m.fn_destroy = nullptr;
    EXPECT_ABORTS(matrix_destruct(&m), "m->fn_destroy != ((void *)0)");
    m.type = MATRIX_TYPE_REGULAR;
    EXPECT_ABORTS(matrix_destruct(&m), "m->matrix == ((void *)0)");
}

TEST(MatrixDestroy, ClearsThePointer)
{
    matrix *m = matrix_create(2, 2);
    matrix_destroy(&m);
    EXPECT_EQ(nullptr, m);
    EXPECT_ABORTS(matrix_destroy(&m), "*m != ((void *)0)");
    EXPECT_ABORTS(matrix_destroy(nullptr), "m != ((void *)0)");
}
