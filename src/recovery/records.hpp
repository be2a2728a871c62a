// Measures and builds records from bytes in memory, which may hold anything.
//
// In: bytes, and the kind of the buffer that they are from. Out: how long the record is that they
// begin with, and the record itself. A record is measured before anything is made of it, and
// measuring looks at nothing that is not there, so a stored count never asks for memory that the
// bytes do not pay for. Only what was measured may be built. Each form stands once in records.cpp:
// measuring and building are the same walk, without and with a target.
#ifndef VESK_RECOVERY_RECORDS_HPP
#define VESK_RECOVERY_RECORDS_HPP

#include <cstddef>
#include <cstdint>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_scan.h>

#include "support/owner.hpp"

// One record with what was made of it.
struct scanned_record {
    vesk_scan_kind kind = VESK_SCAN_DAMAGE;
    int error = 0;                 // the code with which readers refuse its form, else 0
    bool has_microseconds = false; // in one of its times; they are left out
    bool has_bad_text = false;     // a name or text is empty or ends at a zero byte within
    owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy> names;
    owned<vesk_cb_record_sensor_values, vesk_cb_record_sensor_values_destroy> values;
    owned<vesk_cb_record_event, vesk_cb_record_event_destroy> event;
    owned<vesk_hb_record_sensor_values, vesk_hb_record_sensor_values_destroy> interval;
};

// The length of the record that `bytes` begin with in a buffer of the given kind; 0 when they do
// not begin with a whole one.
std::size_t _vesk_measure_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// How many of the bytes are whole records, from the first byte on; `n` when they are nothing else.
std::size_t _vesk_measure_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// Whether `bytes` are nothing but whole records.
bool _vesk_are_records(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n);

// Whether a sample or an interval says nothing of any sensor, as padding does.
bool _vesk_is_without_values(const vesk_cb_record_sensor_values &sample);
bool _vesk_is_without_values(const vesk_hb_record_sensor_values &interval);
// The same of any record; an event or names are never padding.
bool _vesk_is_without_values(const scanned_record &record);

// Makes the record that was measured to be `n` bytes long. 0, or QE_ERROR_NO_MEMORY (-22).
int _vesk_build_record(uint32_t buffer_kind, const unsigned char *bytes, std::size_t n,
                       scanned_record *record);

#endif
