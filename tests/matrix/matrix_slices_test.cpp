// Rows, columns and blocks of matrices: taking them out, overwriting them, and what becomes of the
// sensors and timestamps of telemetry.
#include <cstdint>

#include <vesk/error.h>
#include <vesk/matrix_slices.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"

static const grid three_by_three = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};

TEST(MatrixGetColumns, FollowsTheListOfIndices)
{
    const owned_matrix m = make_matrix(two_by_three);
    const uint32_t indices[] = {2, 0, 2};
    const owned_matrix columns(matrix_get_columns(m.get(), indices, 3));
    EXPECT_EQ((grid{{3, 1, 3}, {6, 4, 6}}), elements_of(columns.get()));
    EXPECT_EQ(1u, matrix_get_type(columns.get()));
}

TEST(MatrixGetColumns, OfAViewAreAViewOfItsOwn)
{
    const owned_matrix view = make_view(two_by_three);
    const uint32_t indices[] = {2, 0, 2, 1};
    const owned_matrix columns(matrix_get_columns(view.get(), indices, 4));
    EXPECT_EQ((grid{{3, 1, 3, 2}, {6, 4, 6, 5}}), elements_of(columns.get()));
    EXPECT_EQ(2u, matrix_get_type(columns.get()));
    matrix_set(columns.get(), 0, 0, 100);
    EXPECT_EQ(two_by_three, elements_of(view.get()));
}

TEST(MatrixGetColumns, OfTelemetryKeepTheirSensorsAndAllTimestamps)
{
    const owned_matrix m = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    const uint32_t indices[] = {2, 0};
    const owned_matrix columns(matrix_get_columns(m.get(), indices, 2));
    EXPECT_EQ((grid{{3, 1}, {6, 4}}), elements_of(columns.get()));
    EXPECT_EQ(3u, matrix_get_type(columns.get()));
    EXPECT_NE(nullptr, columns->values);
    EXPECT_EQ((std::vector<std::string>{"c", "a"}), sensors_of(columns.get()));
    EXPECT_EQ((std::vector<long>{10, 20}), seconds_of(columns.get()));
}

TEST(MatrixGetRows, FollowTheListOfIndices)
{
    const owned_matrix m = make_matrix(two_by_three);
    const uint32_t indices[] = {1, 1, 0};
    const owned_matrix rows(matrix_get_rows(m.get(), indices, 3));
    EXPECT_EQ((grid{{4, 5, 6}, {4, 5, 6}, {1, 2, 3}}), elements_of(rows.get()));
    EXPECT_EQ(1u, matrix_get_type(rows.get()));
}

TEST(MatrixGetRows, OfAViewAreAViewOfItsOwn)
{
    const owned_matrix view = make_view(two_by_three);
    const uint32_t indices[] = {1, 0, 1};
    const owned_matrix rows(matrix_get_rows(view.get(), indices, 3));
    EXPECT_EQ((grid{{4, 5, 6}, {1, 2, 3}, {4, 5, 6}}), elements_of(rows.get()));
    EXPECT_EQ(2u, matrix_get_type(rows.get()));
}

TEST(MatrixGetRows, OneOfTelemetryIsATelemetryVector)
{
    const owned_matrix m = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    const uint32_t index = 1;
    const owned_matrix row(matrix_get_rows(m.get(), &index, 1));
    EXPECT_EQ((grid{{4, 5, 6}}), elements_of(row.get()));
    EXPECT_EQ(3u, matrix_get_type(row.get()));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), sensors_of(row.get()));
    EXPECT_EQ((std::vector<long>{20}), seconds_of(row.get()));
}

// Each allocation of `slice` in turn fails: the result is null, the code
// QE_ERROR_NO_MEMORY (-22), and nothing is left.
template <typename Slice>
static void expect_failures(int expected, const matrix *m, Slice slice)
{
    const uint32_t indices[] = {1, 0};
    for (int n = 1; n <= expected + 1; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        const owned_matrix made(slice(m, indices, 2));
        EXPECT_EQ(n <= expected, failing_allocation::happened()) << "allocation " << n;
        EXPECT_EQ(n <= expected, made.get() == nullptr) << "allocation " << n;
        EXPECT_EQ(n <= expected ? -22 : 0, qe_get_last_error()) << "allocation " << n;
    }
}

TEST(MatrixSlices, SurviveEveryFailedAllocation)
{
    const owned_matrix m = make_matrix(two_by_three);
    expect_failures(3, m.get(), matrix_get_columns);
    expect_failures(3, m.get(), matrix_get_rows);
    const owned_matrix view = make_view(two_by_three);
    expect_failures(5, view.get(), matrix_get_columns);
    expect_failures(5, view.get(), matrix_get_rows);
    // The record, the values (3), the new list of labels (3; timestamps are copied, too), the
    // shared one, the type-specific object.
    const owned_matrix telemetry = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    expect_failures(9, telemetry.get(), matrix_get_columns);
    expect_failures(11, telemetry.get(), matrix_get_rows);
    EXPECT_EQ(two_by_three, elements_of(telemetry.get()));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), sensors_of(telemetry.get()));
    EXPECT_EQ((std::vector<long>{10, 20}), seconds_of(telemetry.get()));
}

using get_slice = matrix *(*)(const matrix *, const uint32_t *, uint32_t);

static void expect_slice_preconditions(get_slice slice, const char *list_text,
                                       const char *slot_text)
{
    const uint32_t index = 0;
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix view = make_view(two_by_three);
    EXPECT_ABORTS(slice(nullptr, &index, 1), "m != ((void *)0)");
    EXPECT_ABORTS(slice(m.get(), nullptr, 1), list_text);
    EXPECT_ABORTS(slice(m.get(), &index, 0), "nindices > 0");
    EXPECT_ABORTS(
        {
            view->fn_get_col_slice = nullptr;
            view->fn_get_row_slice = nullptr;
            slice(view.get(), &index, 1);
        },
        slot_text);
    EXPECT_ABORTS(
        {
            view->matrix = nullptr;
            slice(view.get(), &index, 1);
        },
        "m->matrix != ((void *)0)");
    EXPECT_ABORTS(
        {
            m->ncols = 0;
            slice(m.get(), &index, 1);
        },
        "m->ncols > 0");
    EXPECT_ABORTS(
        {
            m->nrows = 0;
            slice(m.get(), &index, 1);
        },
        "m->nrows > 0");
    const owned_matrix null_record(matrix_create_null());
    EXPECT_ABORTS(slice(null_record.get(), &index, 1), "m->type > 0");
    matrix dead;
    matrix_init(&dead, 1, 1);
    matrix_destruct(&dead);
    EXPECT_ABORTS(slice(&dead, &index, 1), "m->version == ((char) 1)");
}

TEST(MatrixGetColumns, NeedAUsableMatrixAndAList)
{
    expect_slice_preconditions(matrix_get_columns, "col_indices != ((void *)0)",
                               "m->fn_get_col_slice != ((void *)0)");
}

TEST(MatrixGetRows, NeedAUsableMatrixAndAList)
{
    expect_slice_preconditions(matrix_get_rows, "row_indices != ((void *)0)",
                               "m->fn_get_row_slice != ((void *)0)");
}

TEST(MatrixSetColumns, OverwritesTheListedColumns)
{
    const uint32_t indices[] = {2, 0};
    const owned_matrix vals = make_matrix({{10, 20}, {30, 40}});
    const owned_matrix view_of_vals = make_view({{10, 20}, {30, 40}});
    for (const matrix *from : {vals.get(), view_of_vals.get()}) {
        const owned_matrix m = make_matrix(two_by_three);
        EXPECT_EQ(0, matrix_set_columns(m.get(), from, indices));
        EXPECT_EQ((grid{{20, 2, 10}, {40, 5, 30}}), elements_of(m.get()));
        const owned_matrix view = make_view(two_by_three);
        EXPECT_EQ(0, matrix_set_columns(view.get(), from, indices));
        EXPECT_EQ((grid{{20, 2, 10}, {40, 5, 30}}), elements_of(view.get()));
    }
}

TEST(MatrixSetColumns, WritesTheLastOfRepeatedIndices)
{
    const uint32_t indices[] = {1, 1};
    const owned_matrix vals = make_matrix({{10, 20}, {30, 40}});
    const owned_matrix m = make_matrix(two_by_three);
    EXPECT_EQ(0, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{1, 20, 3}, {4, 40, 6}}), elements_of(m.get()));
}

TEST(MatrixSetColumns, GoesElementByElementWhenValuesAreShared)
{
    // Column 1 is overwritten by column 0 before it would be copied itself.
    const uint32_t indices[] = {1, 0};
    const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
    EXPECT_EQ(0, matrix_set_columns(m.get(), m.get(), indices));
    EXPECT_EQ((grid{{1, 1}, {3, 3}}), elements_of(m.get()));
}

TEST(MatrixSetColumns, BringsTheSensorsOfTelemetry)
{
    const uint32_t indices[] = {2, 0};
    const owned_matrix m = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    const owned_matrix vals = make_telemetry({{10, 20}, {30, 40}}, {"x", "y"}, {11, 21});
    EXPECT_EQ(0, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{20, 2, 10}, {40, 5, 30}}), elements_of(m.get()));
    EXPECT_EQ((std::vector<std::string>{"y", "b", "x"}), sensors_of(m.get()));
    EXPECT_EQ((std::vector<long>{11, 21}), seconds_of(m.get()));
}

TEST(MatrixSetColumns, AbortsOutOfRangeAsSettingDoes)
{
    const uint32_t indices[] = {3};
    const owned_matrix vals = make_matrix({{10}, {30}});
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix view = make_view(two_by_three);
    EXPECT_ABORTS(matrix_set_columns(m.get(), vals.get(), indices), "j < m->ncols");
    EXPECT_DEATH(matrix_set_columns(m.get(), vals.get(), indices), "matrix_set: Assertion");
    EXPECT_ABORTS(matrix_set_columns(view.get(), vals.get(), indices), "i < m->nrows");
}

TEST(MatrixSetColumns, NeedsAsManyRows)
{
    const uint32_t indices[] = {0};
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix vals = make_matrix({{1}, {2}});
    const owned_matrix other = make_matrix({{1}, {2}, {3}});
    EXPECT_ABORTS(matrix_set_columns(nullptr, vals.get(), indices), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_set_columns(m.get(), nullptr, indices), "vals != ((void *)0)");
    EXPECT_ABORTS(matrix_set_columns(m.get(), other.get(), indices), "m->nrows == vals->nrows");
    EXPECT_ABORTS(matrix_set_columns(m.get(), vals.get(), nullptr), "col_indices != ((void *)0)");
    const owned_matrix view = make_view(two_by_three);
    EXPECT_ABORTS(
        {
            view->fn_set_columns = nullptr;
            matrix_set_columns(view.get(), vals.get(), indices);
        },
        "m->fn_set_columns != ((void *)0)");
}

TEST(MatrixSetRows, OverwritesTheListedRows)
{
    const uint32_t indices[] = {2, 0};
    const grid expected = {{40, 50, 60}, {4, 5, 6}, {10, 20, 30}};
    const owned_matrix vals = make_matrix({{10, 20, 30}, {40, 50, 60}});
    const owned_matrix view_of_vals = make_view({{10, 20, 30}, {40, 50, 60}});
    for (const matrix *from : {vals.get(), view_of_vals.get()}) {
        const owned_matrix m = make_matrix(three_by_three);
        EXPECT_EQ(0, matrix_set_rows(m.get(), from, indices));
        EXPECT_EQ(expected, elements_of(m.get()));
        const owned_matrix view = make_view(three_by_three);
        EXPECT_EQ(0, matrix_set_rows(view.get(), from, indices));
        EXPECT_EQ(expected, elements_of(view.get()));
    }
}

TEST(MatrixSetRows, BringsTheTimestampsOfTelemetry)
{
    const uint32_t indices[] = {2, 0};
    const owned_matrix m = make_telemetry({{1}, {2}, {3}}, {"a"}, {10, 20, 30});
    const owned_matrix vals = make_telemetry({{7}, {8}}, {"x"}, {11, 12});
    EXPECT_EQ(0, matrix_set_rows(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{8}, {2}, {7}}), elements_of(m.get()));
    EXPECT_EQ((std::vector<long>{12, 20, 11}), seconds_of(m.get()));
    EXPECT_EQ((std::vector<std::string>{"x"}), sensors_of(m.get()));
}

TEST(MatrixSetRows, AbortsOutOfRangeAsSettingDoes)
{
    const uint32_t indices[] = {2};
    const owned_matrix vals = make_matrix({{1, 2, 3}});
    const owned_matrix m = make_matrix(two_by_three);
    EXPECT_ABORTS(matrix_set_rows(m.get(), vals.get(), indices), "i < m->nrows");
}

TEST(MatrixSetRows, NeedsAsManyColumns)
{
    const uint32_t indices[] = {0};
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix vals = make_matrix({{1, 2, 3}});
    const owned_matrix other = make_matrix({{1, 2}});
    EXPECT_ABORTS(matrix_set_rows(nullptr, vals.get(), indices), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_set_rows(m.get(), nullptr, indices), "vals != ((void *)0)");
    EXPECT_ABORTS(matrix_set_rows(m.get(), other.get(), indices), "m->ncols == vals->ncols");
    EXPECT_ABORTS(matrix_set_rows(m.get(), vals.get(), nullptr), "row_indices != ((void *)0)");
    const owned_matrix view = make_view(two_by_three);
    EXPECT_ABORTS(
        {
            view->fn_set_rows = nullptr;
            matrix_set_rows(view.get(), vals.get(), indices);
        },
        "m->fn_set_rows != ((void *)0)");
}

TEST(MatrixSetSlices, ReturnWhatTheSlotReturns)
{
    const uint32_t indices[] = {0};
    const owned_matrix view = make_view({{1}});
    const owned_matrix vals = make_matrix({{2}});
    view->fn_set_rows = [](void *, const matrix *, const uint32_t *) { return -7; };
    view->fn_set_columns = [](void *, const matrix *, const uint32_t *) { return -8; };
    EXPECT_EQ(-7, matrix_set_rows(view.get(), vals.get(), indices));
    EXPECT_EQ(-8, matrix_set_columns(view.get(), vals.get(), indices));
    EXPECT_EQ((grid{{2}}), elements_of(view.get()));
}

TEST(MatrixGetSubmatrix, IsARegularBlock)
{
    const owned_matrix m = make_matrix(three_by_three);
    const owned_matrix view = make_view(three_by_three);
    const owned_matrix telemetry = make_telemetry(three_by_three, {"a", "b", "c"}, {10, 20, 30});
    for (const matrix *from : {m.get(), view.get(), telemetry.get()}) {
        const owned_matrix column(matrix_get_submatrix(from, 1, 2, 0, 1));
        EXPECT_EQ((grid{{4}, {7}}), elements_of(column.get()));
        EXPECT_EQ(1u, matrix_get_type(column.get()));
        const owned_matrix corner(matrix_get_submatrix(from, 1, 2, 1, 2));
        EXPECT_EQ((grid{{5, 6}, {8, 9}}), elements_of(corner.get()));
        const owned_matrix all(matrix_get_submatrix(from, 0, 3, 0, 3));
        EXPECT_EQ(three_by_three, elements_of(all.get()));
    }
}

TEST(MatrixGetSubmatrix, NeedsABlockInside)
{
    const owned_matrix m = make_matrix(three_by_three);
    EXPECT_ABORTS(matrix_get_submatrix(nullptr, 0, 1, 0, 1), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 3, 1, 3, 1),
                  "start_row < matrix_get_number_rows(m)");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 2, 2, 0, 1),
                  "start_row + nrows - 1 < matrix_get_number_rows(m)");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 2, 1, 3, 1),
                  "start_col < matrix_get_number_columns(m)");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 2, 1, 1, 3),
                  "start_col + ncols - 1 < matrix_get_number_columns(m)");
}

TEST(MatrixGetSubmatrix, CountsOfZeroAreSeenByUnsignedArithmetic)
{
    const owned_matrix m = make_matrix(three_by_three);
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 0, 0, 0, 1),
                  "start_row + nrows - 1 < matrix_get_number_rows(m)");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 1, 0, 0, 1), "nrows > 0");
    EXPECT_ABORTS(matrix_get_submatrix(m.get(), 1, 1, 1, 0), "ncols > 0");
}

TEST(MatrixGetSubmatrix, IsNullWithoutMemory)
{
    const owned_matrix m = make_matrix(three_by_three);
    for (int n = 1; n <= 3; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, matrix_get_submatrix(m.get(), 0, 2, 0, 2));
        EXPECT_EQ(-22, qe_get_last_error());
    }
}

TEST(MatrixSetSubmatrix, CopiesABlockIntoABlock)
{
    const owned_matrix vals = make_matrix({{10, 20, 30}, {40, 50, 60}});
    const owned_matrix m = make_matrix(three_by_three);
    matrix_set_submatrix(m.get(), vals.get(), 1, 2, 0, 2, 0, 1);
    EXPECT_EQ((grid{{1, 2, 3}, {20, 30, 6}, {50, 60, 9}}), elements_of(m.get()));
    const owned_matrix view = make_view(three_by_three);
    matrix_set_submatrix(view.get(), vals.get(), 1, 2, 0, 2, 0, 1);
    EXPECT_EQ((grid{{1, 2, 3}, {20, 30, 6}, {50, 60, 9}}), elements_of(view.get()));
}

TEST(MatrixSetSubmatrix, LeavesSensorsAndTimestampsAlone)
{
    const owned_matrix m = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    const owned_matrix vals = make_telemetry({{7}}, {"x"}, {11});
    matrix_set_submatrix(m.get(), vals.get(), 0, 1, 1, 1, 0, 0);
    EXPECT_EQ((grid{{1, 7}}), elements_of(m.get()));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), sensors_of(m.get()));
    EXPECT_EQ((std::vector<long>{10}), seconds_of(m.get()));
}

TEST(MatrixSetSubmatrix, GoesElementByElementWhenBlocksOverlap)
{
    const owned_matrix m = make_matrix({{1, 2, 3, 4}});
    matrix_set_submatrix(m.get(), m.get(), 0, 1, 1, 3, 0, 0);
    EXPECT_EQ((grid{{1, 1, 1, 1}}), elements_of(m.get()));
}

TEST(MatrixSetSubmatrix, OfNoRowsBehindTheFirstDoesNothing)
{
    const owned_matrix m = make_matrix(three_by_three);
    matrix_set_submatrix(m.get(), m.get(), 1, 0, 0, 1, 1, 0);
    EXPECT_EQ(three_by_three, elements_of(m.get()));
}

TEST(MatrixSetSubmatrix, NeedsBlocksInside)
{
    const owned_matrix m = make_matrix(three_by_three);
    const owned_matrix v = make_matrix({{1, 2}, {3, 4}});
    EXPECT_ABORTS(matrix_set_submatrix(nullptr, v.get(), 0, 1, 0, 1, 0, 0), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), nullptr, 0, 1, 0, 1, 0, 0), "m != ((void *)0)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 3, 1, 0, 1, 9, 9),
                  "start_row < matrix_get_number_rows(m)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 2, 2, 0, 1, 9, 9),
                  "start_row + nrows - 1 < matrix_get_number_rows(m)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 1, 3, 1, 9, 9),
                  "start_col < matrix_get_number_columns(m)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 1, 2, 2, 9, 9),
                  "start_col + ncols - 1 < matrix_get_number_columns(m)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 2, 0, 2, 2, 2),
                  "v_start_row < matrix_get_number_rows(vals)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 2, 0, 2, 1, 2),
                  "v_start_row + nrows - 1 < matrix_get_number_rows(vals)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 2, 0, 2, 0, 2),
                  "v_start_col < matrix_get_number_columns(vals)");
    EXPECT_ABORTS(matrix_set_submatrix(m.get(), v.get(), 0, 2, 0, 2, 0, 1),
                  "v_start_col + ncols - 1 < matrix_get_number_columns(vals)");
}
