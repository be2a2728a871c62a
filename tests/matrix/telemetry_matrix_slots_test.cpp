// What a telemetry matrix does through its slots: resizing, slices, and setting columns and rows,
// with the sensors and timestamps that go along.
#include <cstdint>

#include <vesk/matrix_slices.h>

#include "matrix/telemetry_matrix_fixture.hpp"

TEST(TelemetryResize, LeavesNewLabelsEmpty)
{
    const owned_matrix m = two_by_two();
    EXPECT_EQ(0, matrix_resize(m.get(), 3, 2));
    EXPECT_EQ((grid{{1, 2}, {3, 4}, {0, 0}}), elements_of(m.get()));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20, -1}), seconds_of(m.get()));
    EXPECT_EQ(3u, telemetry_matrix_get_number_timestamps(m.get()));
    EXPECT_EQ(record_of(m)->matrix->values, m->values);
}

TEST(TelemetryResize, GrowsTwiceOverEmptyLabels)
{
    const owned_matrix m = two_by_two();
    EXPECT_EQ(0, matrix_resize(m.get(), 3, 3));
    EXPECT_EQ(0, matrix_resize(m.get(), 4, 4));
    EXPECT_EQ((strings{"a", "b", "", ""}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20, -1, -1}), seconds_of(m.get()));
}

TEST(TelemetryResize, DropsLabelsWithTheirRowsAndColumns)
{
    const owned_matrix m = make_telemetry({{1, 2}, {3, 4}, {5, 6}}, {"a", "b"}, {10, 20, 30});
    EXPECT_EQ(0, matrix_resize(m.get(), 1, 1));
    EXPECT_EQ((grid{{1}}), elements_of(m.get()));
    EXPECT_EQ((strings{"a"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10}), seconds_of(m.get()));
}

TEST(TelemetryResize, LeavesCopiesAlone)
{
    const owned_matrix m = two_by_two();
    const owned_matrix copy(matrix_copy(m.get()));
    EXPECT_EQ(0, matrix_resize(m.get(), 1, 1));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(copy.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(copy.get()));
}

TEST(TelemetryResize, OfValuesThatHaveTheShapeAlreadyChangesNothing)
{
    const owned_matrix m = two_by_two();
    EXPECT_EQ(0, matrix_resize(record_of(m)->matrix, 3, 2));
    EXPECT_EQ(0, matrix_resize(m.get(), 3, 2));
    EXPECT_EQ(3u, matrix_get_number_rows(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
    EXPECT_EQ(record_of(m)->matrix->values, m->values);
}

TEST(TelemetryResize, FailsWithoutMemory)
{
    // Two for the values; the array, its list and its counter for sensors and for timestamps, whose
    // entries are copied, too.
    for (int n = 1; n <= 10; ++n) {
        const owned_matrix m = two_by_two();
        const failing_allocation failure(n);
        EXPECT_EQ(-22, matrix_resize(m.get(), 3, 3)) << n;
        EXPECT_TRUE(failing_allocation::happened()) << n;
        EXPECT_EQ(2u, m->nrows);
        EXPECT_EQ(2u, m->ncols);
        EXPECT_EQ(record_of(m)->matrix->values, m->values);
        EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
        EXPECT_EQ(n <= 5 ? (strings{"a", "b"}) : (strings{"a", "b", ""}), sensors_of(m.get()));
    }
}

TEST(TelemetryEmptyLabels, CannotBeSliced)
{
    const owned_matrix m = two_by_two();
    EXPECT_EQ(0, matrix_resize(m.get(), 3, 3));
    const uint32_t empty = 2;
    EXPECT_DEATH(matrix_get_rows(m.get(), &empty, 1), "timestamp_copy: Assertion");
    EXPECT_DEATH(matrix_get_columns(m.get(), &empty, 1), "sensor_copy: Assertion");
    const uint32_t filled = 1;
    const owned_matrix row(matrix_get_rows(m.get(), &filled, 1));
    EXPECT_EQ((strings{"a", "b", ""}), sensors_of(row.get()));
}

TEST(TelemetrySlices, NeedIndicesInRange)
{
    const owned_matrix m = two_by_two();
    const uint32_t indices[] = {0, 2};
    EXPECT_ABORTS(matrix_get_columns(m.get(), indices, 2),
                  "indices[i] < matrix_get_number_columns (tmatrix->matrix)");
    EXPECT_ABORTS(matrix_get_rows(m.get(), indices, 2),
                  "indices[i] < matrix_get_number_rows (tmatrix->matrix)");
    EXPECT_ABORTS(m->fn_get_col_slice(m->matrix, nullptr, 1), "indices != ((void *)0)");
    EXPECT_ABORTS(m->fn_get_row_slice(m->matrix, nullptr, 1), "indices != ((void *)0)");
    EXPECT_ABORTS(m->fn_get_col_slice(m->matrix, indices, 0), "n > 0");
    EXPECT_ABORTS(m->fn_get_row_slice(m->matrix, indices, 0), "n > 0");
}

TEST(TelemetrySlots, NeedALiveRecordWithItsParts)
{
    const owned_matrix m = two_by_two();
    const auto call_all = [&](void *object, const char *text) {
        EXPECT_ABORTS(m->fn_get(object, 0, 0), text);
        EXPECT_ABORTS(m->fn_set(object, 0, 0, 0), text);
        EXPECT_ABORTS(m->fn_create_like(object), text);
        EXPECT_ABORTS(m->fn_copy(object), text);
        EXPECT_ABORTS(m->fn_resize(object, 1, 1), text);
    };
    call_all(nullptr, "tmatrix != ((void *)0)");
    telemetry_matrix broken = *record_of(m);
    broken.timestamps = nullptr;
    EXPECT_ABORTS(m->fn_create_like(&broken), "tmatrix->timestamps != ((void *)0)");
    EXPECT_ABORTS(m->fn_resize(&broken, 1, 1), "tmatrix->timestamps != ((void *)0)");
    broken.sensors = nullptr;
    EXPECT_ABORTS(m->fn_copy(&broken), "tmatrix->sensors != ((void *)0)");
    broken.matrix = nullptr;
    call_all(&broken, "tmatrix->matrix != ((void *)0)");
    broken.version = 0;
    call_all(&broken, "tmatrix->version == ((char) 1)");
    EXPECT_ABORTS(m->fn_resize(m->matrix, 0, 1), "nrows > 0");
    EXPECT_ABORTS(m->fn_resize(m->matrix, 1, 0), "ncols > 0");
}

TEST(TelemetrySlots, DestroyNothingOfADeadRecord)
{
    matrix m;
    const timestamp t = at(100);
    ASSERT_EQ(0, telemetry_matrix_init_vector(&m, make_matrix({{1, 2}}).release(),
                                              sensor_array_create_from_names(two_names, 2), &t));
    auto *record = static_cast<telemetry_matrix *>(m.matrix);
    void *object = record;
    record->version = 0;
    m.fn_destroy(&object);
    record->version = 1;
    EXPECT_EQ(2, matrix_get(&m, 0, 1));
    matrix_destruct(&m);
    m.fn_destroy(&m.matrix);
}

TEST(TelemetrySetColumns, LeavesLabelsAloneForOtherTypes)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_matrix({{7}, {8}});
    EXPECT_EQ(0, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{1, 7}, {3, 8}}), elements_of(m.get()));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetColumns, ShowsTheSensorsInCopiesThatShareTheList)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix copy(matrix_copy(m.get()));
    const owned_matrix vals = make_telemetry({{7}, {8}}, {"x"}, {11, 21});
    EXPECT_EQ(0, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((strings{"a", "x"}), sensors_of(m.get()));
    EXPECT_EQ((strings{"a", "x"}), sensors_of(copy.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(copy.get()));
}

TEST(TelemetrySetColumns, TakesItsOwnColumns)
{
    const uint32_t indices[] = {0, 1};
    const owned_matrix m = two_by_two();
    EXPECT_EQ(0, matrix_set_columns(m.get(), m.get(), indices));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetColumns, FillsEmptyLabels)
{
    const uint32_t indices[] = {2};
    const owned_matrix m = two_by_two();
    ASSERT_EQ(0, matrix_resize(m.get(), 2, 3));
    const owned_matrix vals = make_telemetry({{7}, {8}}, {"x"}, {11, 21});
    EXPECT_EQ(0, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((strings{"a", "b", "x"}), sensors_of(m.get()));
}

TEST(TelemetrySetColumns, FailsWithoutMemoryForTheTimestamps)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_telemetry({{7}, {8}}, {"x"}, {11, 21});
    const failing_allocation failure(1);
    EXPECT_EQ(-22, matrix_set_columns(m.get(), vals.get(), indices));
    EXPECT_EQ((strings{"a", "x"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetColumns, ChecksIndicesInItsSlot)
{
    const uint32_t indices[] = {2};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_telemetry({{7}, {8}}, {"x"}, {11, 21});
    EXPECT_ABORTS(m->fn_set_columns(m->matrix, vals.get(), indices),
                  "indices[i] < matrix_get_number_columns (tmatrix->matrix)");
    EXPECT_ABORTS(m->fn_set_rows(m->matrix, vals.get(), indices),
                  "indices[i] < matrix_get_number_rows (tmatrix->matrix)");
}

TEST(TelemetrySetColumns, KeepsTimestampsWhenTheRowCountsDiffer)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_telemetry({{7}}, {"x"}, {11});
    EXPECT_EQ(0, m->fn_set_columns(m->matrix, vals.get(), indices));
    EXPECT_EQ((strings{"a", "x"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetRows, LeavesLabelsAloneForOtherTypes)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_matrix({{7, 8}});
    EXPECT_EQ(0, matrix_set_rows(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{1, 2}, {7, 8}}), elements_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetRows, LeavesTimestampsOfCopiesAlone)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix copy(matrix_copy(m.get()));
    const owned_matrix vals = make_telemetry({{7, 8}}, {"x", "y"}, {11});
    EXPECT_EQ(0, matrix_set_rows(m.get(), vals.get(), indices));
    EXPECT_EQ((seconds{10, 11}), seconds_of(m.get()));
    EXPECT_EQ((strings{"x", "y"}), sensors_of(m.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(copy.get()));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(copy.get()));
}

TEST(TelemetrySetRows, WritesTheLastOfRepeatedIndices)
{
    const uint32_t indices[] = {0, 0};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_telemetry({{5, 6}, {7, 8}}, {"a", "b"}, {11, 12});
    EXPECT_EQ(0, matrix_set_rows(m.get(), vals.get(), indices));
    EXPECT_EQ((grid{{7, 8}, {3, 4}}), elements_of(m.get()));
    EXPECT_EQ((seconds{12, 20}), seconds_of(m.get()));
}

TEST(TelemetrySetRows, KeepsEmptyLabelsEmpty)
{
    const uint32_t indices[] = {2};
    const owned_matrix m = two_by_two();
    ASSERT_EQ(0, matrix_resize(m.get(), 4, 2));
    const owned_matrix vals = make_telemetry({{7, 8}}, {"a", "b"}, {11});
    EXPECT_EQ(0, matrix_set_rows(m.get(), vals.get(), indices));
    EXPECT_EQ((seconds{10, 20, 11, -1}), seconds_of(m.get()));
}

TEST(TelemetrySetRows, KeepsTheLabelsWithoutMemory)
{
    const uint32_t indices[] = {1};
    const owned_matrix vals = make_telemetry({{7, 8}}, {"x", "y"}, {11});
    // The array (3), two timestamps, then the copy of the sensors.
    for (int n = 1; n <= 6; ++n) {
        const owned_matrix m = two_by_two();
        const failing_allocation failure(n);
        EXPECT_EQ(-22, matrix_set_rows(m.get(), vals.get(), indices)) << n;
        EXPECT_EQ(n <= 5 ? (seconds{10, 20}) : (seconds{10, 11}), seconds_of(m.get())) << n;
        EXPECT_EQ((strings{"a", "b"}), sensors_of(m.get())) << n;
    }
}

TEST(TelemetrySetRows, KeepsSensorsWhenTheColumnCountsDiffer)
{
    const uint32_t indices[] = {1};
    const owned_matrix m = two_by_two();
    const owned_matrix vals = make_telemetry({{7}}, {"x"}, {11});
    EXPECT_EQ(0, m->fn_set_rows(m->matrix, vals.get(), indices));
    EXPECT_EQ((seconds{10, 11}), seconds_of(m.get()));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(m.get()));
}
