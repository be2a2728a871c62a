// Matrices written out as rows of numbers.
#ifndef VESK_TESTS_COMMON_MATRICES_HPP
#define VESK_TESTS_COMMON_MATRICES_HPP

#include <string>
#include <vector>

#include <vesk/matrix.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/transposed_matrix.h>

#include "support/owner.hpp"

using owned_matrix = owned<matrix, matrix_destroy>;
using grid = std::vector<std::vector<double>>;

inline const grid two_by_three = {{1, 2, 3}, {4, 5, 6}};
inline constexpr uint32_t all_types[] = {MATRIX_TYPE_REGULAR, MATRIX_TYPE_TRANSPOSED,
                                         MATRIX_TYPE_TELEMETRY};

inline owned_matrix make_matrix(const grid &rows)
{
    matrix *m =
        matrix_create(static_cast<uint32_t>(rows.size()), static_cast<uint32_t>(rows[0].size()));
    for (uint32_t i = 0; i < rows.size(); ++i) {
        for (uint32_t j = 0; j < rows[i].size(); ++j) {
            matrix_set(m, i, j, rows[i][j]);
        }
    }
    return owned_matrix(m);
}

// A view that shows `rows`; its source has them as columns.
inline owned_matrix make_view(const grid &rows)
{
    matrix *source =
        matrix_create(static_cast<uint32_t>(rows[0].size()), static_cast<uint32_t>(rows.size()));
    matrix *view = transposed_matrix_create(source);
    for (uint32_t i = 0; i < rows.size(); ++i) {
        for (uint32_t j = 0; j < rows[i].size(); ++j) {
            matrix_set(view, i, j, rows[i][j]);
        }
    }
    return owned_matrix(view);
}

// Row i of the values was taken at second seconds[i].
inline owned_matrix make_telemetry(const grid &rows, const std::vector<std::string> &sensors,
                                   const std::vector<long> &seconds)
{
    std::vector<const char *> names;
    for (const std::string &name : sensors) {
        names.push_back(name.c_str());
    }
    timestamp_array *timestamps =
        timestamp_array_create_empty(static_cast<uint32_t>(seconds.size()));
    for (std::size_t i = 0; i < seconds.size(); ++i) {
        const struct timeval tv = {seconds[i], 0};
        timestamp_array_get_timestamps(timestamps)[i] = timestamp_create_from_timeval(&tv);
    }
    return owned_matrix(telemetry_matrix_create(
        make_matrix(rows).release(),
        sensor_array_create_from_names(names.data(), static_cast<uint32_t>(names.size())),
        timestamps));
}

inline grid elements_of(const matrix *m)
{
    grid rows(matrix_get_number_rows(m), std::vector<double>(matrix_get_number_columns(m)));
    for (uint32_t i = 0; i < rows.size(); ++i) {
        for (uint32_t j = 0; j < rows[i].size(); ++j) {
            rows[i][j] = matrix_get(m, i, j);
        }
    }
    return rows;
}

// The names of the sensors; an empty entry is "".
inline std::vector<std::string> sensors_of(const matrix *m)
{
    const sensor_array *sensors = telemetry_matrix_get_sensors(m);
    std::vector<std::string> names;
    for (uint32_t i = 0; i < sensor_array_get_size(sensors); ++i) {
        const sensor *entry = sensor_array_get_sensors(sensors)[i];
        names.emplace_back(entry == nullptr ? "" : entry->canonical->name);
    }
    return names;
}

// The seconds of the timestamps; an empty entry is -1.
inline std::vector<long> seconds_of(const matrix *m)
{
    const timestamp_array *timestamps = telemetry_matrix_get_timestamps(m);
    std::vector<long> seconds;
    for (uint32_t i = 0; i < timestamp_array_get_size(timestamps); ++i) {
        const timestamp *entry = timestamp_array_get_timestamps(timestamps)[i];
        seconds.push_back(entry == nullptr ? -1 : static_cast<long>(entry->tv.tv_sec));
    }
    return seconds;
}

#endif
