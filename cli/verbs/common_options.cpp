// Adds options that several verbs share, with their help: the shape of a box, --sync and --utc.
// They stand here once, so that an option means the same and reads the same in every verb.
#include "verbs/common_options.hpp"

#include <fmt/format.h>

namespace cli
{

void add_shape(option_list &options, box_shape &shape)
{
    options.number(
        "--samples", "N", shape.samples,
        fmt::format("Samples in a buffer of a new box, even (default {})", default_samples));
    options.number("--intervals", "M", shape.intervals,
                   fmt::format("Intervals that sum up a full buffer of a new box, even, dividing "
                               "N (default {} or what divides N below it)",
                               default_intervals));
}

void add_known_shape(option_list &options, box_shape &shape)
{
    options.number("--samples", "N", shape.samples,
                   "Samples in a buffer of the box, if nothing on the disk tells");
    options.number("--intervals", "M", shape.intervals,
                   "Intervals that sum up a full buffer, if nothing on the disk tells");
}

void add_sync(option_list &options, std::string &when, const char *later)
{
    options.text("--sync", "never|vector|end|TIME", when,
                 fmt::format("When to bring what was written onto the medium, so that it "
                             "survives the loss of power: never, after each vector, at the end, "
                             "or {}",
                             later));
}

void add_utc_output(option_list &options, bool &utc)
{
    options.flag("--utc", utc, "Print times in UTC, not in the local time zone");
}

} // namespace cli
