#include <cstdint>

#include <vesk/error.h>
#include <vesk/matrix_slices.h>
#include <vesk/telemetry_matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/telemetry_matrix_internal.hpp"

using strings = std::vector<std::string>;
using seconds = std::vector<long>;

static const char *const two_names[] = {"a", "b"};

static telemetry_matrix *record_of(const owned_matrix &m)
{
    return static_cast<telemetry_matrix *>(m->matrix);
}

static timestamp at(long second)
{
    timestamp t;
    const struct timeval tv = {second, 0};
    timestamp_init_from_timeval(&t, &tv);
    return t;
}

static owned_matrix two_by_two()
{
    return make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {10, 20});
}

TEST(TelemetryMatrix, DressesValuesWithSensorsAndTimestamps)
{
    matrix *values = make_matrix({{1, 2}, {3, 4}, {5, 6}}).release();
    sensor_array *sensors = sensor_array_create_from_names(two_names, 2);
    const timestamp start = at(100);
    timestamp_array *timestamps = timestamp_array_create_dummy(&start, 3);
    const owned_matrix m(telemetry_matrix_create(values, sensors, timestamps));
    EXPECT_EQ(MATRIX_TYPE_TELEMETRY, static_cast<int>(matrix_get_type(m.get())));
    EXPECT_EQ(3u, matrix_get_number_rows(m.get()));
    EXPECT_EQ(2u, matrix_get_number_columns(m.get()));
    EXPECT_EQ(values->values, m->values);
    EXPECT_EQ(2u, telemetry_matrix_get_number_sensors(m.get()));
    EXPECT_EQ(3u, telemetry_matrix_get_number_timestamps(m.get()));
    EXPECT_EQ(sensors, telemetry_matrix_get_sensors(m.get()));
    EXPECT_EQ(timestamps, telemetry_matrix_get_timestamps(m.get()));
    EXPECT_EQ((grid{{1, 2}, {3, 4}, {5, 6}}), elements_of(m.get()));
}

TEST(TelemetryMatrix, IsInitialisedOnStorageOfTheCaller)
{
    matrix m;
    const timestamp start = at(100);
    ASSERT_EQ(0, telemetry_matrix_init(&m, make_matrix({{1, 2}}).release(),
                                       sensor_array_create_from_names(two_names, 2),
                                       timestamp_array_create_dummy(&start, 1)));
    EXPECT_EQ(2, matrix_get(&m, 0, 1));
    matrix_destruct(&m);
    EXPECT_EQ(0, m.version);
    EXPECT_EQ(nullptr, m.matrix);
}

TEST(TelemetryMatrix, FillsAllSlots)
{
    const owned_matrix m = two_by_two();
    EXPECT_TRUE(m->fn_destroy != nullptr && m->fn_get != nullptr && m->fn_set != nullptr &&
                m->fn_create_like != nullptr && m->fn_get_col_slice != nullptr &&
                m->fn_get_row_slice != nullptr && m->fn_copy != nullptr &&
                m->fn_resize != nullptr && m->fn_set_rows != nullptr &&
                m->fn_set_columns != nullptr);
}

TEST(TelemetryMatrix, ReadsAndWritesThroughItsSlots)
{
    const owned_matrix m = two_by_two();
    EXPECT_EQ(3, m->fn_get(m->matrix, 1, 0));
    m->fn_set(m->matrix, 1, 0, 30);
    EXPECT_EQ(30, matrix_get(m.get(), 1, 0));
    EXPECT_ABORTS(m->fn_get(m->matrix, 2, 0), "i < m->nrows");
    EXPECT_ABORTS(m->fn_set(m->matrix, 0, 2, 0), "j < m->ncols");
}

TEST(TelemetryMatrix, MakesAViewThatItDressesRegular)
{
    matrix *view = make_view({{1, 2}, {3, 4}}).release();
    const timestamp start = at(100);
    const owned_matrix m(telemetry_matrix_create(view, sensor_array_create_from_names(two_names, 2),
                                                 timestamp_array_create_dummy(&start, 2)));
    EXPECT_EQ(1u, matrix_get_type(view));
    EXPECT_EQ(view->values, m->values);
    EXPECT_EQ((grid{{1, 2}, {3, 4}}), elements_of(m.get()));
}

TEST(TelemetryMatrix, NeedsAllItsParts)
{
    matrix m;
    const owned_matrix values = make_matrix({{1, 2}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    const timestamp start = at(100);
    owned<timestamp_array, timestamp_array_destroy> timestamps(
        timestamp_array_create_dummy(&start, 1));
    EXPECT_ABORTS(telemetry_matrix_init(nullptr, nullptr, nullptr, nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_init(&m, nullptr, nullptr, nullptr), "matrix != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_init(&m, values.get(), nullptr, nullptr),
                  "sensors != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_init(&m, values.get(), sensors.get(), nullptr),
                  "timestamps != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_create(nullptr, sensors.get(), timestamps.get()),
                  "matrix != ((void *)0)");
}

TEST(TelemetryMatrix, NeedsALabelForEachColumnAndRow)
{
    const owned_matrix three_columns = make_matrix({{1, 2, 3}});
    const owned_matrix two_rows = make_matrix({{1, 2}, {3, 4}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    const timestamp start = at(100);
    owned<timestamp_array, timestamp_array_destroy> timestamps(
        timestamp_array_create_dummy(&start, 1));
    EXPECT_ABORTS(telemetry_matrix_create(three_columns.get(), sensors.get(), timestamps.get()),
                  "matrix_get_number_columns (m) == sensor_array_get_size (sensors)");
    EXPECT_ABORTS(telemetry_matrix_create(two_rows.get(), sensors.get(), timestamps.get()),
                  "matrix_get_number_rows (m) == timestamp_array_get_size (timestamps)");
}

TEST(TelemetryMatrix, LeavesItsPartsToTheCallerWithoutMemory)
{
    const owned_matrix values = make_matrix({{1, 2}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    const timestamp start = at(100);
    owned<timestamp_array, timestamp_array_destroy> timestamps(
        timestamp_array_create_dummy(&start, 1));
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, telemetry_matrix_create(values.get(), sensors.get(), timestamps.get()));
        EXPECT_EQ(-22, qe_get_last_error());
    }
    matrix m;
    const failing_allocation failure(1);
    EXPECT_EQ(-22, telemetry_matrix_init(&m, values.get(), sensors.get(), timestamps.get()));
    EXPECT_EQ(0, m.version);
    EXPECT_EQ(0u, m.type);
    EXPECT_EQ((grid{{1, 2}}), elements_of(values.get()));
}

TEST(TelemetryMatrix, LeavesAViewToTheCallerWhenItCannotBeMadeRegular)
{
    const owned_matrix view = make_view({{1, 2}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    const timestamp start = at(100);
    owned<timestamp_array, timestamp_array_destroy> timestamps(
        timestamp_array_create_dummy(&start, 1));
    for (int n = 2; n <= 3; ++n) {
        matrix m;
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(-22, telemetry_matrix_init(&m, view.get(), sensors.get(), timestamps.get()));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(0, m.version);
        EXPECT_EQ(2u, matrix_get_type(view.get()));
    }
    EXPECT_EQ(2u, sensor_array_get_size(sensors.get()));
}

TEST(TelemetryVector, CopiesItsTimestamp)
{
    timestamp t = at(100);
    const char *names[] = {"a", "b", "c"};
    const owned_matrix m(telemetry_matrix_create_vector(
        make_matrix({{1, 2, 3}}).release(), sensor_array_create_from_names(names, 3), &t));
    t.tv.tv_sec = 0;
    EXPECT_EQ(1u, telemetry_matrix_get_number_timestamps(m.get()));
    EXPECT_EQ(3u, telemetry_matrix_get_number_sensors(m.get()));
    EXPECT_EQ((seconds{100}), seconds_of(m.get()));
    EXPECT_EQ((strings{"a", "b", "c"}), sensors_of(m.get()));
}

TEST(TelemetryVector, IsInitialisedOnStorageOfTheCaller)
{
    matrix m;
    const timestamp t = at(100);
    ASSERT_EQ(0, telemetry_matrix_init_vector(&m, make_matrix({{1, 2}}).release(),
                                              sensor_array_create_from_names(two_names, 2), &t));
    EXPECT_EQ(2, matrix_get(&m, 0, 1));
    matrix_destruct(&m);
}

TEST(TelemetryVector, NeedsOneRowAndAllParts)
{
    matrix m;
    const timestamp t = at(100);
    const owned_matrix row = make_matrix({{1, 2}});
    const owned_matrix rows = make_matrix({{1, 2}, {3, 4}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    EXPECT_ABORTS(telemetry_matrix_init_vector(nullptr, row.get(), sensors.get(), &t),
                  "m != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_init_vector(&m, nullptr, sensors.get(), &t),
                  "matrix != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_init_vector(&m, row.get(), nullptr, &t),
                  "sensors != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_create_vector(row.get(), sensors.get(), nullptr),
                  "timestamp != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_create_vector(rows.get(), sensors.get(), &t),
                  "matrix_get_number_rows (matrix) == 1");
}

TEST(TelemetryVector, LeavesItsPartsToTheCallerWithoutMemory)
{
    const timestamp t = at(100);
    const owned_matrix row = make_matrix({{1, 2}});
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_from_names(two_names, 2));
    // The matrix, the array of timestamps (3), the timestamp, the record.
    for (int n = 1; n <= 6; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, telemetry_matrix_create_vector(row.get(), sensors.get(), &t));
        EXPECT_TRUE(failing_allocation::happened()) << n;
        EXPECT_EQ(-22, qe_get_last_error()) << n;
    }
    EXPECT_EQ((grid{{1, 2}}), elements_of(row.get()));
    EXPECT_EQ(2u, sensor_array_get_size(sensors.get()));
}

TEST(TelemetryAccessors, NeedATelemetryMatrixWithItsParts)
{
    const owned_matrix plain = make_matrix({{1}});
    const owned_matrix m = two_by_two();
    const auto call_all = [](const matrix *of, const char *text) {
        EXPECT_ABORTS(telemetry_matrix_get_number_sensors(of), text);
        EXPECT_ABORTS(telemetry_matrix_get_number_timestamps(of), text);
        EXPECT_ABORTS(telemetry_matrix_get_sensors(of), text);
        EXPECT_ABORTS(telemetry_matrix_get_timestamps(of), text);
    };
    call_all(nullptr, "m != ((void *)0)");
    call_all(plain.get(), "m->type == MATRIX_TYPE_TELEMETRY");
    telemetry_matrix broken = *record_of(m);
    matrix holder = *m;
    holder.matrix = &broken;
    broken.sensors = nullptr;
    broken.timestamps = nullptr;
    EXPECT_ABORTS(telemetry_matrix_get_sensors(&holder), "tmatrix->sensors != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_get_timestamps(&holder), "tmatrix->timestamps != ((void *)0)");
    broken.matrix = nullptr;
    call_all(&holder, "tmatrix->matrix != ((void *)0)");
    holder.matrix = nullptr;
    call_all(&holder, "tmatrix != ((void *)0)");
}

TEST(TelemetryIsEqual, ComparesValuesSensorsAndTimestamps)
{
    const owned_matrix m = two_by_two();
    const owned_matrix same = make_telemetry({{1, 2}, {3, 4.0000005}}, {"a", "b"}, {10, 20});
    const owned_matrix values = make_telemetry({{1, 2}, {3, 5}}, {"a", "b"}, {10, 20});
    const owned_matrix sensors = make_telemetry({{1, 2}, {3, 4}}, {"a", "c"}, {10, 20});
    const owned_matrix order = make_telemetry({{1, 2}, {3, 4}}, {"b", "a"}, {10, 20});
    const owned_matrix timestamps = make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {10, 21});
    const owned_matrix shape = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    EXPECT_EQ(1, telemetry_matrix_is_equal(m.get(), m.get()));
    EXPECT_EQ(1, telemetry_matrix_is_equal(m.get(), same.get()));
    EXPECT_EQ(0, telemetry_matrix_is_equal(m.get(), values.get()));
    EXPECT_EQ(0, telemetry_matrix_is_equal(m.get(), sensors.get()));
    EXPECT_EQ(0, telemetry_matrix_is_equal(m.get(), order.get()));
    EXPECT_EQ(0, telemetry_matrix_is_equal(m.get(), timestamps.get()));
    EXPECT_EQ(0, telemetry_matrix_is_equal(m.get(), shape.get()));
}

TEST(TelemetryIsEqual, NeedsTwoTelemetryMatrices)
{
    const owned_matrix plain = make_matrix({{1, 2}, {3, 4}});
    const owned_matrix m = two_by_two();
    EXPECT_ABORTS(telemetry_matrix_is_equal(nullptr, m.get()), "m1 != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_is_equal(m.get(), nullptr), "m2 != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_is_equal(plain.get(), m.get()),
                  "matrix_get_type (m1) == MATRIX_TYPE_TELEMETRY");
    EXPECT_ABORTS(telemetry_matrix_is_equal(m.get(), plain.get()),
                  "matrix_get_type (m2) == MATRIX_TYPE_TELEMETRY");
    telemetry_matrix broken = *record_of(m);
    matrix holder = *m;
    holder.matrix = &broken;
    broken.timestamps = nullptr;
    EXPECT_ABORTS(telemetry_matrix_is_equal(&holder, m.get()), "timestamps1 != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_is_equal(m.get(), &holder), "timestamps2 != ((void *)0)");
    broken.sensors = nullptr;
    EXPECT_ABORTS(telemetry_matrix_is_equal(&holder, m.get()), "sensors1 != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_is_equal(m.get(), &holder), "sensors2 != ((void *)0)");
}

TEST(TelemetryClone, TakesOverTheValues)
{
    const owned_matrix m = two_by_two();
    matrix *values = make_matrix({{5, 6}, {7, 8}}).release();
    const owned_matrix clone(telemetry_matrix_clone_with_values(m.get(), values));
    EXPECT_EQ(values, record_of(clone)->matrix);
    EXPECT_EQ(values->values, clone->values);
    EXPECT_EQ(3u, matrix_get_type(clone.get()));
    EXPECT_EQ((grid{{5, 6}, {7, 8}}), elements_of(clone.get()));
    EXPECT_EQ((strings{"a", "b"}), sensors_of(clone.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(clone.get()));
    EXPECT_EQ((grid{{1, 2}, {3, 4}}), elements_of(m.get()));
}

TEST(TelemetryClone, OutlivesTheOriginal)
{
    owned_matrix m = two_by_two();
    const owned_matrix clone(
        telemetry_matrix_clone_with_values(m.get(), make_matrix({{5, 6}, {7, 8}}).release()));
    m.reset();
    EXPECT_EQ((strings{"a", "b"}), sensors_of(clone.get()));
    EXPECT_EQ((seconds{10, 20}), seconds_of(clone.get()));
}

TEST(TelemetryClone, MakesValuesOfAViewRegular)
{
    const owned_matrix m = two_by_two();
    const owned_matrix clone(
        telemetry_matrix_clone_with_values(m.get(), make_view({{5, 6}, {7, 8}}).release()));
    EXPECT_EQ(1u, matrix_get_type(record_of(clone)->matrix));
    EXPECT_EQ((grid{{5, 6}, {7, 8}}), elements_of(clone.get()));
}

TEST(TelemetryClone, NeedsValuesOfTheSameShape)
{
    const owned_matrix m = two_by_two();
    const owned_matrix plain = make_matrix({{1, 2}, {3, 4}});
    const owned_matrix other = make_matrix({{1, 2, 3}});
    EXPECT_ABORTS(telemetry_matrix_clone_with_values(nullptr, plain.get()), "m != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_clone_with_values(plain.get(), plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    EXPECT_ABORTS(telemetry_matrix_clone_with_values(m.get(), nullptr), "vals != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_clone_with_values(m.get(), other.get()),
                  "matrix_is_equal_dimensions (m, vals)");
}

TEST(TelemetryClone, LeavesTheValuesToTheCallerWithoutMemory)
{
    const owned_matrix m = two_by_two();
    const owned_matrix view = make_view({{5, 6}, {7, 8}});
    // The matrix, two arrays, the record, the row pointers and the values of the view.
    for (int n = 1; n <= 6; ++n) {
        qe_set_last_error(0);
        const failing_allocation failure(n);
        EXPECT_EQ(nullptr, telemetry_matrix_clone_with_values(m.get(), view.get()));
        EXPECT_TRUE(failing_allocation::happened()) << n;
        EXPECT_EQ(-22, qe_get_last_error()) << n;
    }
    EXPECT_EQ((grid{{5, 6}, {7, 8}}), elements_of(view.get()));
    EXPECT_EQ(2u, matrix_get_type(view.get()));
    EXPECT_EQ(1, *telemetry_matrix_get_sensors(m.get())->ref_count);
    EXPECT_EQ(1, *telemetry_matrix_get_timestamps(m.get())->ref_count);
}

TEST(TelemetryDetach, LeavesTheValuesToSomebodyElse)
{
    const owned_matrix values = make_matrix({{1, 2}});
    {
        const timestamp t = at(100);
        const owned_matrix m(telemetry_matrix_create_vector(
            values.get(), sensor_array_create_from_names(two_names, 2), &t));
        telemetry_matrix_detach_original_matrix(m.get());
        EXPECT_EQ((grid{{1, 2}}), elements_of(m.get()));
    }
    EXPECT_EQ((grid{{1, 2}}), elements_of(values.get()));
}

TEST(TelemetryDetach, NeedsATelemetryMatrixWithValues)
{
    const owned_matrix plain = make_matrix({{1}});
    const owned_matrix m = two_by_two();
    EXPECT_ABORTS(telemetry_matrix_detach_original_matrix(nullptr), "m != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_detach_original_matrix(plain.get()),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    EXPECT_ABORTS(
        {
            record_of(m)->matrix = nullptr;
            telemetry_matrix_detach_original_matrix(m.get());
        },
        "tmatrix->matrix != ((void *)0)");
    EXPECT_ABORTS(
        {
            record_of(m)->version = 0;
            telemetry_matrix_detach_original_matrix(m.get());
        },
        "tmatrix->version == ((char) 1)");
}

TEST(TelemetryUpdateTimestamp, ReplacesTheOneOfAVector)
{
    const owned_matrix m = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    const owned_matrix copy(matrix_copy(m.get()));
    timestamp t = at(11);
    EXPECT_EQ(0, telemetry_matrix_update_vector_timestamp(m.get(), &t));
    t.tv.tv_sec = 0;
    EXPECT_EQ((seconds{11}), seconds_of(m.get()));
    EXPECT_EQ((seconds{10}), seconds_of(copy.get()));
}

TEST(TelemetryUpdateTimestamp, TakesTheVectorsOwnTimestamp)
{
    const owned_matrix m = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    const timestamp *own =
        timestamp_array_get_timestamps(telemetry_matrix_get_timestamps(m.get()))[0];
    EXPECT_EQ(0, telemetry_matrix_update_vector_timestamp(m.get(), own));
    EXPECT_EQ((seconds{10}), seconds_of(m.get()));
}

TEST(TelemetryUpdateTimestamp, NeedsALiveVector)
{
    const timestamp t = at(11);
    const owned_matrix m = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    const owned_matrix plain = make_matrix({{1}});
    const owned_matrix rows = two_by_two();
    EXPECT_ABORTS(telemetry_matrix_update_vector_timestamp(nullptr, &t), "m != ((void *)0)");
    EXPECT_ABORTS(telemetry_matrix_update_vector_timestamp(plain.get(), &t),
                  "m->type == MATRIX_TYPE_TELEMETRY");
    EXPECT_ABORTS(telemetry_matrix_update_vector_timestamp(rows.get(), &t), "m->nrows == 1");
    EXPECT_ABORTS(telemetry_matrix_update_vector_timestamp(m.get(), nullptr),
                  "timestamp != ((void *)0)");
    EXPECT_ABORTS(
        {
            record_of(m)->timestamps = nullptr;
            telemetry_matrix_update_vector_timestamp(m.get(), &t);
        },
        "tmatrix->timestamps != ((void *)0)");
    EXPECT_ABORTS(
        {
            m->version = 0;
            telemetry_matrix_update_vector_timestamp(m.get(), &t);
        },
        "m->version == ((char) 1)");
}

TEST(TelemetryUpdateTimestamp, KeepsTheOldOneWithoutMemory)
{
    const timestamp t = at(11);
    const owned_matrix m = make_telemetry({{1, 2}}, {"a", "b"}, {10});
    for (int n = 1; n <= 4; ++n) {
        const failing_allocation failure(n);
        EXPECT_EQ(-22, telemetry_matrix_update_vector_timestamp(m.get(), &t)) << n;
    }
    EXPECT_EQ((seconds{10}), seconds_of(m.get()));
}

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
