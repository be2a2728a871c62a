// The content of a box as a push needs it: intervals and raw records, each with a place in the
// files that stays the same, so that what is sent twice can be known for the same.
//
// All files are held open from one moment on: what is read belongs together, also while a recorder
// makes them take turns.
#ifndef VESK_CLI_PUSH_PUSHED_BOX_HPP
#define VESK_CLI_PUSH_PUSHED_BOX_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "box/raw_position.hpp"
#include "box/reading.hpp"

namespace cli
{

// The summaries of one interval, by sensor; null for a sensor that is not in it.
struct pushed_interval {
    uint32_t file;    // the number of the history buffer
    uint32_t ordinal; // its place in it
    int64_t start;
    int64_t end;
    std::span<const interval_summary *const> values;
};

// A sample or an event. The same time may come again when a clock is set back: the file, and how
// many of its kind came at this time before in this file, tell them apart.
struct raw_record {
    raw_position behind; // the place behind it
    uint32_t ordinal;
    int64_t time;
    const std::vector<std::string> *sensors = nullptr; // of a sample; null for an event
    std::span<const float> values;
    uint8_t type = 0;
    std::string_view text;
};

class pushed_box
{
public:
    // Looks over the box; damage is told. Throws a failure where there is none.
    explicit pushed_box(const std::string &name);

    const std::vector<std::string> &sensors() const { return source_.sensors(); }
    std::optional<int64_t> begin() const { return source_.begin(); }
    std::optional<int64_t> end() const { return source_.end(); }
    summing how_summed() const { return source_.how_summed(); }
    // The machine that the newest recording has named; empty where none did.
    const std::string &host() const { return host_; }
    uint64_t waiting_events() const { return waiting_; }
    uint64_t samples() const { return source_.samples(); }
    // 0 where there is no history.
    uint32_t history_file() const { return history_file_; }
    std::optional<uint32_t> oldest_raw_file() const;
    exit_code code() const { return source_.code(); }

    void for_each_interval(const std::function<void(const pushed_interval &)> &visit);
    void for_each_raw(const std::function<void(const raw_record &)> &visit);
    // The time of the record before a place; nothing where the box has no such record.
    std::optional<int64_t> time_before(const raw_position &place);

private:
    reading source_;
    uint32_t history_file_ = 0;
    std::string host_;
    uint64_t waiting_ = 0;
};

} // namespace cli

#endif
