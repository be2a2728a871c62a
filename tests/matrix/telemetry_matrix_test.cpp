// Telemetry matrices and vectors: making them of values, sensors and timestamps, comparing, cloning
// and taking them apart, and the timestamp of a vector.
#include "matrix/telemetry_matrix_fixture.hpp"

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
