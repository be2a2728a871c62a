// Adds the options of all verbs that read a box, checks them and computes the span of time that
// they ask for. The grammar of sensors and times is in text/sensor_choice and text/time_text; here
// is only what the options are called.
#include "verbs/reading_options.hpp"

#include <fmt/format.h>

#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{

void reading_options::settle() const
{
    if (!time_zone.empty()) {
        use_time_zone(time_zone);
    }
    check_range(range);
}

void add_range(option_list &options, reading_options &chosen)
{
    options.required_word("BASE|FILE", chosen.name, "Name of a box, or one of its buffer files");
    options.text("--from", "TIME", chosen.range.from, "Only what is not before this time");
    options.text("--to", "TIME", chosen.range.to, "Only what is not after this time");
    options.text("--last", "LENGTH", chosen.range.last,
                 "Only so much before the end of the box, such as 10m");
}

void add_time_zone(option_list &options, reading_options &chosen, bool reads_times)
{
    options.flag("--local", chosen.local, "Print times in the local time zone, not in UTC");
    options.text("--tz", "ZONE", chosen.time_zone,
                 reads_times ? "Read and print times in this zone, such as Europe/Zurich"
                             : "Print times in this zone, such as Europe/Zurich");
}

void add_reading(option_list &options, reading_options &chosen)
{
    add_range(options, chosen);
    add_time_zone(options, chosen, true);
}

void add_sensor_choice(option_list &options, reading_options &chosen)
{
    options.texts("--sensor", "GLOB", chosen.sensors,
                  "Only sensors that fit, such as 'cpu.*'; '!GLOB' takes away; may be repeated");
}

time_range range_in(const reading_options &options, const reading &source)
{
    return range_of(options.range, source.end().value_or(0));
}

void tell_nothing(const reading &source, zone where)
{
    if (source.begin() && source.end()) {
        note(fmt::format("nothing in that span of time; the box has {} to {}",
                         iso_time(*source.begin(), where), iso_time(*source.end(), where)));
    } else {
        note("the box holds no samples");
    }
}

} // namespace cli
