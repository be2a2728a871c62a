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

// The tiers that are named, with commas between.
std::vector<tier_kind> named_tiers(std::string_view list)
{
    std::vector<tier_kind> found;
    for (const tier_kind &kind : all_tiers()) {
        std::string_view rest = list;
        while (!rest.empty() && rest.substr(0, rest.find(',')) != kind.name) {
            rest.remove_prefix(std::min(rest.size(), std::min(rest.find(','), rest.size()) + 1));
        }
        if (!rest.empty()) {
            found.push_back(kind);
        }
    }
    const auto commas = static_cast<std::size_t>(std::count(list.begin(), list.end(), ','));
    if (found.size() != commas + 1) {
        throw failure(exit_usage, fmt::format("--tiers {}: is not auto, none, 1m, 1h or 1m,1h",
                                              std::string(list)));
    }
    return found;
}

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
    if (tiers != "auto" && tiers != "none") {
        named_tiers(tiers);
    }
}

std::vector<tier_kind> size_options::wanted_tiers(int64_t interval) const
{
    std::vector<tier_kind> found;
    if (tiers != "auto") {
        found = tiers == "none" ? found : named_tiers(tiers);
        for (const tier_kind &kind : found) {
            if (kind.period < 2 * interval) {
                throw failure(exit_usage,
                              fmt::format("--tiers {}: has no use with a sample every {}",
                                          kind.name, format_duration(interval)));
            }
        }
        return found;
    }
    const int64_t wanted = keep.empty() ? 0 : parse_duration(keep, "--keep");
    int64_t finer = interval;
    for (const tier_kind &kind : all_tiers()) {
        if (kind.period >= 2 * interval && wanted / finer > most_samples_kept) {
            found.push_back(kind);
            finer = kind.period;
        }
    }
    return found;
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
    add_tiers(options, sizes, "as --keep needs them");
}

void add_tiers(option_list &options, size_options &sizes, std::string_view when_auto)
{
    options.text("--tiers", "auto|none|LIST", sizes.tiers,
                 fmt::format("Boxes beside it with a row for each minute (1m) or hour (1h), or "
                             "both (1m,1h); auto: {}",
                             when_auto));
}

std::string size_words(const sized_box &what)
{
    const auto span = [&](uint64_t samples) {
        return format_rough_duration(static_cast<int64_t>(samples) * what.interval);
    };
    const reach raw = raw_reach(what.shape);
    const reach all = history_reach(what.shape);
    return fmt::format("raw {} to {}, in summary {} to {}, at most {}", span(raw.least),
                       span(raw.most), span(all.least), span(all.most),
                       format_byte_size(what.bytes()));
}

void note_other_size(const std::string &base, const std::vector<sized_box> &all,
                     const size_options &sizes)
{
    const size_wish wish = sizes.wish(1, 0);
    int64_t reached = 0;
    uint64_t bytes = 0;
    for (const sized_box &each : all) {
        reached = std::max(reached,
                           static_cast<int64_t>(history_reach(each.shape).least) * each.interval);
        bytes += each.bytes();
    }
    if (wish.keep && reached < *wish.keep) {
        note(fmt::format("{}: reaches back {}, not --keep {}; the shape of a box cannot be changed",
                         base, format_rough_duration(reached), sizes.keep));
    }
    if (wish.disk && bytes > *wish.disk) {
        note(fmt::format("{}: may take up to {}, more than --disk {}; the shape of a box cannot "
                         "be changed",
                         base, format_byte_size(bytes), sizes.disk));
    }
}

} // namespace cli
