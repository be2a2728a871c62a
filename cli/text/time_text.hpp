// Moments in time for the verbs that read: every way in which people write one is understood, and
// what is printed is ISO 8601, with the zone.
#ifndef VESK_CLI_TEXT_TIME_TEXT_HPP
#define VESK_CLI_TEXT_TIME_TEXT_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include "text/civil_time.hpp"

namespace cli
{

enum class zone { utc, local };

// "2024-01-01T00:00:00Z", or "2024-01-01T01:00:00+01:00" in the time zone of the process.
std::string iso_time(int64_t seconds, zone where);

// Sets the time zone of the process to @p name of the time zone database, such as "Europe/Zurich".
// Throws a failure when there is no such zone.
void use_time_zone(const std::string &name);

// A moment on the clock, or one that is told by its distance from the end of a box: the clock of a
// box stops with its machine.
struct moment {
    bool from_end = false;
    int64_t seconds = 0; // since the epoch, or behind the end of the box, so mostly below 0
};

// Understands
//   2024-01-31T23:59:59Z, ...+01:00, ...+0100, ...+01       with its zone
//   2024-01-31T23:59:59, 2024-01-31 23:59, 2024-01-31       in the time zone of the process
//   20240131:23:59:59                                       as text telemetry has it, there, too
//   1706745599, @1706745599                                 seconds since the epoch
//   -10m, -1h30m                                            before the end of the box
// A fraction behind the seconds does not count. Anything else, days that a month has not and hours
// that a clock skips included, is a usage failure that names @p option.
moment parse_moment(std::string_view text, std::string_view option, twin which);

// The time of a sample that is read from a text: one of the forms above that can mean one thing
// only. Not the distance from the end of a box, no number that is as well a date (8 digits), no
// fraction of a second. Throws bad_text, as it does for times that no box can hold.
int64_t parse_sample_time(std::string_view text);

// The span between two moments, both of which belong to it.
struct time_range {
    int64_t from = INT64_MIN;
    int64_t to = INT64_MAX;

    bool holds(int64_t time) const { return time >= from && time <= to; }
    bool touches(int64_t start, int64_t end) const { return end >= from && start <= to; }
    bool is_limited() const { return from != INT64_MIN || to != INT64_MAX; }
};

// What --from, --to and --last say; a text that is empty was not given.
struct range_texts {
    std::string from;
    std::string to;
    std::string last;
};
// Throws a usage failure for what cannot be understood and for what contradicts itself, so that it
// is told before a box is read.
void check_range(const range_texts &texts);
// @p end is the time of the latest record of the box. "--last 10m" begins ten minutes before it.
time_range range_of(const range_texts &texts, int64_t end);

} // namespace cli

#endif
