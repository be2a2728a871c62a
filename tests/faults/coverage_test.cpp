// No exported function is forgotten: each one is tried with failing calls, or listed as one that
// makes none.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <string>

#include "faults/fault_loop.hpp"

namespace
{

using name_set = std::set<std::string>;

// Neither ask for memory nor read, write, open, flush or close anything: they cannot fail for want
// of it.
const name_set without_failures = {
    // ---- support ----
    "_qe_free",
    "_qe_invalid_sensor_value", // a variable
    "config_destroy",
    "config_destruct",
    "config_get_single_value_for_key",
    "config_init",
    "double_compare",
    "double_epsilon",
    "double_is_equal",
    "double_max",
    "double_min",
    "float_compare",
    "float_epsilon",
    "float_is_equal",
    "qe_error_text",
    "qe_get_last_error",
    "qe_set_last_error",
    "vesk_version",

    // ---- io ----
    "hton_double",
    "hton_float",
    "ntoh_double",
    "ntoh_float",
    "reader_eof", // looks at what reading has left
    "zlib_reader_get_last_savepoint",

    // ---- model ----
    "hist_value_destroy",
    "hist_value_destruct",
    "hist_value_init",
    "hist_value_is_equal",
    "hist_value_list_are_sensors_equal",
    "hist_value_list_clear",
    "hist_value_list_destroy",
    "hist_value_list_destruct",
    "hist_value_list_get_size",
    "hist_value_list_init",
    "hist_value_list_is_empty",
    "hist_value_merge_with",
    "hist_value_update",
    "sensor_array_destroy",
    "sensor_array_destruct",
    "sensor_array_get",
    "sensor_array_get_sensors",
    "sensor_array_get_size",
    "sensor_array_init_null",
    "sensor_array_is_equal",
    "sensor_array_set",
    "sensor_destroy",
    "sensor_destruct",
    "sensor_get_hash_code",
    "sensor_get_name",
    "sensor_init_null",
    "sensor_is_equal",
    "sensor_to_string",
    "sensor_value_compare",
    "sensor_value_from_string",
    "sensor_value_is_equal",
    "sensor_value_is_valid",
    "sensor_value_to_double",
    "sensors_destroy_sensor",
    "timestamp_array_destroy",
    "timestamp_array_destruct",
    "timestamp_array_get_size",
    "timestamp_array_get_timestamps",
    "timestamp_array_init_null",
    "timestamp_array_is_equal",
    "timestamp_compare",
    "timestamp_destroy",
    "timestamp_destruct",
    "timestamp_increment",
    "timestamp_init_current",
    "timestamp_init_from_string",
    "timestamp_init_from_timeval",
    "timestamp_init_null",
    "timestamp_is_equal",
    "timestamp_is_null",
    "timestamp_to_string",
    "timestamp_to_timeval",

    // ---- matrix ----
    "matrix_destroy",
    "matrix_get_number_columns",
    "matrix_get_number_rows",
    "matrix_get_type",
    "matrix_init_null",
    "matrix_lu_destroy",
    "matrix_lu_get_det",
    "matrix_lu_get_rank",
    "matrix_value_compare",
    "matrix_value_from_string",
    "matrix_value_is_equal",
    "matrix_value_max",
    "matrix_value_min",
    "matrix_value_unit_roundoff",
    "telemetry_matrix_detach_original_matrix",
    "telemetry_matrix_get_number_sensors",
    "telemetry_matrix_get_number_timestamps",
    "telemetry_matrix_get_sensors",
    "telemetry_matrix_get_timestamps",
    "telemetry_matrix_is_equal",
    "transposed_matrix_detach_original_matrix",

    // ---- text ----
    "kelt_reader_get_number_sensors",
    "kelt_reader_get_sensors",

    // ---- buffers ----
    "vesk_buffer_detach",
    "vesk_buffer_init_current_buffer",
    "vesk_buffer_init_hist_buffer",
    "vesk_buffer_init_null",
    "vesk_cb_record_destruct",
    "vesk_cb_record_detach",
    "vesk_cb_record_event_destroy",
    "vesk_cb_record_event_destruct",
    "vesk_cb_record_event_get_text",
    "vesk_cb_record_event_get_timestamp",
    "vesk_cb_record_event_get_type",
    "vesk_cb_record_event_init_null",
    "vesk_cb_record_event_is_equal",
    "vesk_cb_record_init_event",
    "vesk_cb_record_init_null",
    "vesk_cb_record_init_sensor_names",
    "vesk_cb_record_init_sensor_values",
    "vesk_cb_record_sensor_names_are_sensors_equal",
    "vesk_cb_record_sensor_names_destroy",
    "vesk_cb_record_sensor_names_destruct",
    "vesk_cb_record_sensor_names_get_number_sensors",
    "vesk_cb_record_sensor_names_get_sensors",
    "vesk_cb_record_sensor_names_get_timestamp",
    "vesk_cb_record_sensor_names_init_null",
    "vesk_cb_record_sensor_names_is_equal",
    "vesk_cb_record_sensor_values_destroy",
    "vesk_cb_record_sensor_values_destruct",
    "vesk_cb_record_sensor_values_get_number_values",
    "vesk_cb_record_sensor_values_get_timestamp",
    "vesk_cb_record_sensor_values_init",
    "vesk_cb_record_sensor_values_init_null",
    "vesk_cb_record_sensor_values_is_equal",
    "vesk_current_buffer_get_filename",
    "vesk_current_buffer_get_sensor_working_set",
    "vesk_hb_record_destruct",
    "vesk_hb_record_detach",
    "vesk_hb_record_events_destroy",
    "vesk_hb_record_events_destruct",
    "vesk_hb_record_events_init_null",
    "vesk_hb_record_events_is_equal",
    "vesk_hb_record_events_merge_with",
    "vesk_hb_record_init_null",
    "vesk_hb_record_init_sensor_names",
    "vesk_hb_record_init_sensor_values",
    "vesk_hb_record_sensor_names_are_sensors_equal",
    "vesk_hb_record_sensor_names_destroy",
    "vesk_hb_record_sensor_names_destruct",
    "vesk_hb_record_sensor_names_get_number_sensors",
    "vesk_hb_record_sensor_names_get_sensors",
    "vesk_hb_record_sensor_names_get_timestamp",
    "vesk_hb_record_sensor_names_init_null",
    "vesk_hb_record_sensor_names_is_equal",
    "vesk_hb_record_sensor_values_destroy",
    "vesk_hb_record_sensor_values_destruct",
    "vesk_hb_record_sensor_values_get_end_timestamp",
    "vesk_hb_record_sensor_values_get_events",
    "vesk_hb_record_sensor_values_get_hist_values",
    "vesk_hb_record_sensor_values_get_number_hist_values",
    "vesk_hb_record_sensor_values_get_start_timestamp",
    "vesk_hb_record_sensor_values_init_null",
    "vesk_hb_record_sensor_values_is_equal",
    "vesk_hist_buffer_get_number_empty_intervals",
    "vesk_hist_buffer_get_sensor_working_set",

    // ---- recorder ----
    "vesk_check_event",
    "vesk_is_full",
    "vesk_state_summary_destruct",
    "vesk_zcf_state_c00_get_filename",
    "vesk_zcf_state_cc0_get_cbuf0_filename",
    "vesk_zcf_state_cc0_get_cbuf1_filename",
    "vesk_zcf_state_ccc_get_cbuf0_filename",
    "vesk_zcf_state_ccc_get_cbuf1_filename",
    "vesk_zcf_state_ccc_get_cbuf2_filename",
    "vesk_zcf_state_hcc_get_cbuf1_filename",
    "vesk_zcf_state_hcc_get_cbuf2_filename",
    "vesk_zcf_state_hcc_get_hbuf_filename",
};

name_set exported()
{
    std::ifstream list(VESK_EXPORTED_LIST);
    return {std::istream_iterator<std::string>(list), std::istream_iterator<std::string>()};
}

name_set tried()
{
    name_set functions;
    for (const fault_case &one : all_cases()) {
        functions.insert(one.function);
    }
    return functions;
}

name_set without(const name_set &all, const name_set &some)
{
    name_set rest;
    std::set_difference(all.begin(), all.end(), some.begin(), some.end(),
                        std::inserter(rest, rest.end()));
    return rest;
}

} // namespace

TEST(FaultCoverage, EveryExportedFunctionThatCanFailIsTried)
{
    ASSERT_LT(400U, exported().size()) << VESK_EXPORTED_LIST;
    EXPECT_EQ(name_set(), without(without(exported(), without_failures), tried()));
}

TEST(FaultCoverage, TheListsNameExportedFunctionsAndNoneTwice)
{
    EXPECT_EQ(name_set(), without(tried(), exported()));
    EXPECT_EQ(name_set(), without(without_failures, exported()));
    EXPECT_EQ(tried(), without(tried(), without_failures));
}
