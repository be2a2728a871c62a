// The options of `vesk record`, as they are on the command line.
#ifndef VESK_CLI_VERBS_RECORD_OPTIONS_HPP
#define VESK_CLI_VERBS_RECORD_OPTIONS_HPP

#include <cstdint>
#include <optional>
#include <string>

#include "box/sync_policy.hpp"
#include "verbs/record_event_options.hpp"
#include "verbs/record_push_options.hpp"
#include "verbs/sensor_options.hpp"
#include "verbs/size_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct record_options {
    std::string base;
    std::string config; // a file with more options; empty: none
    std::string interval = "1s";
    std::string duration; // empty: until a signal ends it
    std::string sync = "10s";
    sensor_options sensors;
    std::string from; // a command that gives more sensors; empty: none
    size_options sizes;
    record_event_options events;
    record_push_options push;

    uint64_t event_bytes() const { return sizes.event_bytes(events.event_bytes); }
};

// All that may stand in the file: not the names of the box and of the file.
void add_record_options(option_list &options, record_options &record);

// What the options mean.
struct record_settings {
    int64_t interval;
    std::optional<uint64_t> samples; // nothing: until a signal ends it
    sensor_choice sensors;
    recording_event_options events;
    sync_policy sync;
    int64_t push_every;
};

// Throws a usage failure where the options make no sense or contradict each other.
record_settings settings_of(const record_options &options);

// The options of the command line with those of their file, which is read now. What was @p given on
// the command line wins. Throws a failure that names the file and the line.
record_options with_file(const record_options &line, const option_list::presence &given);

// The options that differ and that a running recording cannot change: "--sync, --root".
std::string unchangeable(const record_options &before, const record_options &now);

} // namespace cli

#endif
