// What the tables of the buffers are tried with: two times, a vector and summaries of two sensors.
#ifndef VESK_TESTS_FAULTS_BUFFER_VALUES_HPP
#define VESK_TESTS_FAULTS_BUFFER_VALUES_HPP

#include "common/history.hpp"
#include "common/telemetry.hpp"

inline const timestamp noon = make_timestamp(1000);
inline const timestamp later = make_timestamp(2000);

inline owned_matrix two_readings(long seconds = 1000)
{
    return make_vector(seconds, {{"a", 1}, {"b", 2}});
}

inline owned_hist_list make_summaries()
{
    return make_list({{"a", {1, 2}}, {"b", {3}}});
}

#endif
