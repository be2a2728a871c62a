// Adds --samples, --intervals, --keep and --disk, and turns them into what the search for a shape
// needs. Sizes by shape and sizes in people's terms exclude each other.
#include "verbs/size_options.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "box/event_budget.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/byte_size.hpp"
#include "text/duration.hpp"
#include "verbs/common_options.hpp"

namespace cli
{
namespace
{

// Five such shares are for events: those of four buffers, and those that wait.
constexpr uint64_t event_share_of_disk = 20;

} // namespace

void size_options::check() const
{
    for (const auto &[people, is_given] :
         {std::pair{"--keep", !keep.empty()}, std::pair{"--disk", !disk.empty()}}) {
        for (const auto &[shaped, value] :
             {std::pair{"--samples", shape.samples}, std::pair{"--intervals", shape.intervals}}) {
            if (is_given && value) {
                throw failure(exit_usage, fmt::format("{} and {} exclude each other: {} chooses it",
                                                      people, shaped, people));
            }
        }
    }
    if (!are_in_peoples_terms()) {
        complete_shape(shape);
    }
    if (!keep.empty()) {
        parse_duration(keep, "--keep");
    }
    if (!disk.empty()) {
        parse_byte_size(disk, "--disk");
    }
}

size_wish size_options::wish(int64_t interval, uint64_t event_bytes) const
{
    size_wish result;
    if (!keep.empty()) {
        result.keep = parse_duration(keep, "--keep");
    }
    if (!disk.empty()) {
        result.disk = parse_byte_size(disk, "--disk");
    }
    result.interval = interval;
    result.event_bytes = event_bytes;
    return result;
}

uint64_t size_options::event_bytes(std::optional<uint32_t> wanted) const
{
    if (wanted || disk.empty()) {
        return wanted.value_or(default_event_bytes);
    }
    return std::clamp(parse_byte_size(disk, "--disk") / event_share_of_disk, least_event_bytes,
                      default_event_bytes);
}

void add_size_options(option_list &options, size_options &sizes)
{
    add_shape(options, sizes.shape);
    options.text("--keep", "TIME", sizes.keep,
                 "Choose both so that a new box reaches back so far, its summaries included");
    options.text(
        "--disk", "SIZE", sizes.disk,
        "Choose both so that a new box never takes more than so many bytes: 500k, 20M, 1G");
}

std::string size_words(const whole_shape &shape, int64_t interval, const record_bytes &largest,
                       uint64_t event_bytes)
{
    const auto span = [&](uint64_t samples) {
        return format_rough_duration(static_cast<int64_t>(samples) * interval);
    };
    const reach raw = raw_reach(shape);
    const reach all = history_reach(shape);
    return fmt::format("raw {} to {}, in summary {} to {}, at most {}", span(raw.least),
                       span(raw.most), span(all.least), span(all.most),
                       format_byte_size(most_bytes(shape, largest, event_bytes)));
}

void note_other_size(const std::string &base, const whole_shape &shape, const record_bytes &largest,
                     const size_options &sizes, int64_t interval, uint64_t event_bytes)
{
    const size_wish wish = sizes.wish(interval, event_bytes);
    const auto reached = static_cast<int64_t>(history_reach(shape).least) * interval;
    if (wish.keep && reached < *wish.keep) {
        note(fmt::format("{}: reaches back {}, not --keep {}; the shape of a box cannot be changed",
                         base, format_rough_duration(reached), sizes.keep));
    }
    const uint64_t bytes = most_bytes(shape, largest, event_bytes);
    if (wish.disk && bytes > *wish.disk) {
        note(fmt::format("{}: may take up to {}, more than --disk {}; the shape of a box cannot "
                         "be changed",
                         base, format_byte_size(bytes), sizes.disk));
    }
}

} // namespace cli
