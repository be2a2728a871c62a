// The options that all verbs have which read the content of a box: which box, which sensors, which
// span of time, and the zone of the times that are printed.
#ifndef VESK_CLI_VERBS_READING_OPTIONS_HPP
#define VESK_CLI_VERBS_READING_OPTIONS_HPP

#include <string>
#include <vector>

#include "box/reading.hpp"
#include "text/time_text.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct reading_options {
    std::string name; // of a box or a file
    std::vector<std::string> sensors;
    range_texts range;
    bool local = false;
    std::string time_zone;

    // Refuses what is wrong and sets the time zone. To be called first in a verb.
    void settle() const;
    zone where() const { return local || !time_zone.empty() ? zone::local : zone::utc; }
};

// BASE|FILE, --from, --to and --last.
void add_range(option_list &options, reading_options &chosen);
// --local and --tz. With @p reads_times the help says that times of the command line are meant,
// too.
void add_time_zone(option_list &options, reading_options &chosen, bool reads_times);
// The range with --local and --tz; and --sensor for verbs that show sensors.
void add_reading(option_list &options, reading_options &chosen);
void add_sensor_choice(option_list &options, reading_options &chosen);

// What the help of each such verb says about its options. Macros, so that they become one literal
// with the rest: registrations must not fail before main() begins.
#define VESK_CLI_TIME_HELP                                                                         \
    "TIME is 2024-01-31T23:59:59Z, with another zone (+01:00), without one in local time, like\n"  \
    "'2024-01-31 23:59' or 20240131:23:59:59, in seconds since the epoch, or told from the end "   \
    "of\n"                                                                                         \
    "the box: -10m is ten minutes before its latest sample. Lengths of time are 90s, 10m, "        \
    "1h30m,\n"                                                                                     \
    "2d, 1w."
#define VESK_CLI_READING_HELP                                                                      \
    VESK_CLI_TIME_HELP " Times are printed in UTC unless --local or --tz is given.\n"

// The range of @p options in the box.
time_range range_in(const reading_options &options, const reading &source);

// Notes that nothing lies in the range, and what the box has instead.
void tell_nothing(const reading &source, zone where);

} // namespace cli

#endif
