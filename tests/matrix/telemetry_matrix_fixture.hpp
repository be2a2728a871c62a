// A small telemetry matrix, and the parts that such matrices are made of: what the tests of
// telemetry matrices share.
#ifndef VESK_TESTS_MATRIX_TELEMETRY_MATRIX_FIXTURE_HPP
#define VESK_TESTS_MATRIX_TELEMETRY_MATRIX_FIXTURE_HPP

#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/telemetry_matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/telemetry_matrix_internal.hpp"

using strings = std::vector<std::string>;
using seconds = std::vector<long>;

inline constexpr const char *two_names[] = {"a", "b"};

inline telemetry_matrix *record_of(const owned_matrix &m)
{
    return static_cast<telemetry_matrix *>(m->matrix);
}

inline timestamp at(long second)
{
    timestamp t;
    const struct timeval tv = {second, 0};
    timestamp_init_from_timeval(&t, &tv);
    return t;
}

inline owned_matrix two_by_two()
{
    return make_telemetry({{1, 2}, {3, 4}}, {"a", "b"}, {10, 20});
}

#endif
