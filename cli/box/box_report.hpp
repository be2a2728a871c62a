// What a box is made of: its files and what each of them holds, spans of time, damage, events that
// wait and what its events tell about recordings. The verb info shows it, and the Python module
// hands it out.
#ifndef VESK_CLI_BOX_BOX_REPORT_HPP
#define VESK_CLI_BOX_BOX_REPORT_HPP

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/companions.hpp"
#include "box/event.hpp"
#include "box/recording_log.hpp"
#include "box/waiting_events.hpp"

namespace cli
{

struct time_span {
    bool any = false;
    int64_t from = 0;
    int64_t to = 0;

    void add(int64_t first, int64_t last);
    void add(const time_span &other);
};

// By type, from 1 to 5.
using event_counts = std::array<uint64_t, last_event_type>;

// What one buffer file holds.
struct file_contents {
    const stored_file *file = nullptr;
    uint32_t capacity = 0;
    uint64_t samples = 0;
    uint64_t intervals = 0;
    uint64_t events = 0;      // as records
    uint64_t bare_events = 0; // without type word
    event_counts counted_events = {};
    uint64_t sensor_changes = 0;
    std::vector<std::string> sensors; // the latest
    time_span span;
    bool readable = false;
    std::vector<std::string> damage; // at most most_told_of_a_kind
    uint64_t more_damage = 0;        // that is not listed
    std::string unread;              // why the file cannot be read although it is there
    bool failed = false;             // and that the machine is the reason
};

// The files point into the box, so a report is moved and not copied.
struct box_report {
    box_report() = default;
    box_report(const box_report &) = delete;
    box_report &operator=(const box_report &) = delete;
    box_report(box_report &&) = default;
    box_report &operator=(box_report &&) = default;
    ~box_report() = default;

    box what;
    std::vector<file_contents> files;
    file_contents all;
    time_span history;
    time_span raw;
    waiting_report waiting;
    std::vector<foreign_companion> foreign;
    recording_log log;
    uint64_t bytes = 0;
    bool damaged = false;
    bool incomplete = false; // there are files that could not be read
};

// Reads each file of the box, or the one buffer file, that @p name stands for once. Throws a
// failure as find_box() does.
box_report make_report(const std::string &name);

// A word for programs: "c00", "unknown".
const char *stage_name(uint32_t stage);
// "history", "full", "open", "other"; of a lone file "history" or "current".
const char *role_name(const stored_file &file, bool lone);

} // namespace cli

#endif
