// The life of a small recorder, the same in every run and on every machine: all stages, several
// rotations, sensors that come, go and change places, missing readings, extreme readings and
// events. The golden files beside this header are its files after each chapter.
//
// The box has the base name "r" in the working directory: state files hold the names of buffers.
#ifndef VESK_TESTS_GOLDEN_RECORDED_LIFE_HPP
#define VESK_TESTS_GOLDEN_RECORDED_LIFE_HPP

#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include <vesk/sensor_value.h>
#include <vesk/vesk.h>
#include <vesk/vesk_cb_record.h>

#include "common/telemetry.hpp"

inline constexpr const char *life_base_name = "r";
inline constexpr uint32_t life_num_cb_samples = 4;
inline constexpr uint32_t life_num_hb_intervals = 2;
inline constexpr long life_begin = 1704067200; // 2024-01-01 00:00:00 UTC

// A part of the life, after which its files are kept.
struct life_chapter {
    std::string name;
    int first_vector;
    int end_of_vectors;
};

// Vector 4 n + 1 finds n full buffers.
inline const std::vector<life_chapter> &life_chapters()
{
    static const std::vector<life_chapter> chapters = {
        {"1-created", 0, 0}, {"2-c00", 0, 3},       {"3-cc0", 3, 6},
        {"4-ccc", 6, 12},    {"5-hcc", 12, 13},     {"6-rotated", 13, 18},
        {"7-full", 18, 24},  {"8-rotated", 24, 27}, {"9-later", 27, 46},
    };
    return chapters;
}

inline long life_time(int i)
{
    return life_begin + 60L * i;
}

// ab and ba share a bucket of the table of sensors, where they change places with every halving.
inline owned_matrix life_vector(int i)
{
    const double missing = sensor_value_to_double(_qe_invalid_sensor_value);
    const double wave = 50 + 40 * ((i * 7) % 11) / 11.0;
    std::vector<reading> readings = {{"cpu", wave}, {"ab", i + 0.5}, {"ba", -i / 3.0}};
    if (i % 5 == 2) {
        readings[1].value = missing;
    }
    if (i >= 5 && i < 9) {
        readings.push_back({"fan", 1000.0 - i});
    }
    if (i == 7) {
        std::swap(readings[0], readings[2]);
    }
    if (i >= 14) {
        readings.push_back({"disk /dev/sda", i == 15 ? missing : 1e6 * i});
    }
    if (i == 16) {
        readings.push_back({"extremes", FLT_MAX});
        readings.push_back({"tiny", 1e-42});
        readings.push_back({"zero", -0.0});
        readings.push_back({"infinity", INFINITY});
    }
    if (i >= 20 && i < 24) {
        readings.erase(readings.begin() + 1);
    }
    return make_vector(life_time(i), readings);
}

inline vesk_current_buffer *life_open_buffer(const vesk *box)
{
    switch (box->state) {
    case VESK_ZCF_STATE_C00:
        return box->c00->cbuf0;
    case VESK_ZCF_STATE_CC0:
        return box->cc0->cbuf1;
    case VESK_ZCF_STATE_CCC:
        return box->ccc->cbuf2;
    default:
        return box->hcc->cbuf2;
    }
}

// Writes an event as a record with its type, which can be read back and summarised.
inline int life_write_event(vesk *box, uint32_t type, long seconds, const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    writer *target = life_open_buffer(box)->writer;
    vesk_cb_record rec;
    vesk_cb_record_init_event(&rec, event.get());
    const int written = binary_serializer_write_vesk_cb_record(&rec, target);
    const int flushed = writer_flush(target);
    return written < 0 ? written : flushed;
}

// Writes the vectors of a chapter, and an event behind every third one. Returns the first result
// that is not 0.
inline int live_chapter(vesk *box, const life_chapter &chapter)
{
    for (int i = chapter.first_vector; i < chapter.end_of_vectors; ++i) {
        const int written = vesk_write_telemetry_vector(box, life_vector(i).get());
        if (written != 0) {
            return written;
        }
        if (i % 3 == 2) {
            const auto type = static_cast<uint32_t>(1 + i % 5);
            const int noted =
                life_write_event(box, type, life_time(i) + 1, "event " + std::to_string(i));
            if (noted < 0) {
                return noted;
            }
        }
    }
    return 0;
}

#endif
