// Recovering one buffer file.
//
// In: the path of a buffer file, which may be missing, and what is known about it from elsewhere.
// Out: what has to be done, step by step; the recovered buffer, when there is a file for it; and
// what is in it then. Nothing is assumed about the content of the file. Planning and doing are one
// code, so a plan tells what is done.
//
// A stream in which nothing has to be changed is copied as it is. One in which something has to be
// changed is compressed anew.
#ifndef VESK_RECOVERY_BUFFER_MENDER_HPP
#define VESK_RECOVERY_BUFFER_MENDER_HPP

#include <cstddef>
#include <cstdint>

#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "recovery/mended_file.hpp"
#include "recovery/mended_names.hpp"
#include "recovery/step_runs.hpp"
#include "support/growing_list.hpp"

// Times in seconds since the epoch; both are the same for a sample.
struct time_span {
    int64_t start;
    int64_t end;
};

// What is known about a buffer from elsewhere.
struct buffer_expectation {
    uint32_t kind = 0;     // VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST
    uint32_t capacity = 0; // 0 for what its header says
    bool full = false;     // it has to hold its capacity
    // How many files the box has, which share what a scan may cost; see scan_limits.hpp.
    std::size_t files_of_box = 1;
    int64_t time = 0; // for records without a time before the first one with a time
    // Sensors to take where those of the records are lost, when their number agrees: of the first
    // names record of the buffer itself, and of the buffers before and behind it. May be null.
    const vesk_cb_record_sensor_names *first_names = nullptr;
    const vesk_cb_record_sensor_names *names_before = nullptr;
    const vesk_cb_record_sensor_names *names_behind = nullptr;
};

// What is in a buffer once it is recovered, and what was done to it.
struct buffer_contents {
    uint32_t kind = 0;             // the kind that the header states, 0 without header
    uint32_t capacity = 0;         // the capacity that it states
    uint32_t steps = 0;            // things to be done
    bool cut_suffices = false;     // all of them is to cut the file at ...
    uint64_t cut_offset = 0;       // ... this offset
    uint64_t data_records = 0;     // samples or intervals that were there, padding not counted
    uint64_t empty_records = 0;    // those of them without any value, as padding is
    uint64_t events = 0;           // events, those that get their type word included
    uint64_t events_tagged = 0;    // those that do
    uint64_t records_mended = 0;   // records with a time, name or text replaced
    uint64_t records_padded = 0;   // samples or intervals added
    uint64_t records_aside = 0;    // records taken out
    uint64_t bytes_aside = 0;      // bytes of the file taken out
    growing_list<time_span> spans; // of the samples or intervals with values
    owned_names first_names;       // the first sensors that are named, or null
    owned_names last_names;        // the last ones

    // Names can take a thousand times the memory of the file that holds them.
    void forget_names()
    {
        first_names.reset();
        last_names.reset();
    }
};

// Goes through the file `filename` (which may be missing: then all of it is made), with its steps
// going to `receiver`, and writes it to `output` unless that is null. 0, what the receiver returned
// if that was not 0, QE_ERROR_OPEN (-40) or QE_ERROR_IO (-41) when the file cannot be read,
// QE_ERROR_IO (-41) when the output cannot be written, QE_ERROR_NO_MEMORY (-22) without memory.
int _vesk_mend_buffer(const char *filename, const buffer_expectation &expected,
                      const step_receiver &receiver, mended_file *output,
                      buffer_contents *contents);

#endif
