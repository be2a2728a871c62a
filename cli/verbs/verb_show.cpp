// vesk show BASE: one page that tells what a box holds and how it ended, the first thing to look at
// after a crash.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <numeric>
#include <optional>

#include "box/box_health.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "process/terminal_look.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/show_page.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct show_options {
    reading_options source; // without sensors and range
    std::optional<uint32_t> width;
    bool json = false;
};

page_look look_for(const show_options &options)
{
    constexpr uint32_t narrowest = 40;
    constexpr uint32_t widest = 200;
    constexpr std::size_t page = 80;
    const terminal_look terminal = look_of_output();
    if (options.width && (*options.width < narrowest || *options.width > widest)) {
        throw failure(exit_usage, fmt::format("--width {}: not from {} to {}", *options.width,
                                              narrowest, widest));
    }
    page_look look;
    look.width = options.width.value_or(std::clamp<std::size_t>(terminal.width, narrowest, page));
    look.characters = terminal.utf8 ? charset::utf8 : charset::ascii;
    return look;
}

// The samples that were compared, and three times as many before them.
time_range end_of(const reading &source, const unusual_ranking &ranking)
{
    constexpr int64_t times = 4;
    time_range range;
    if (source.end()) {
        const auto newest = static_cast<int64_t>(ranking.newest);
        range.from = *source.end() - times * newest * std::max<int64_t>(source.usual_step(), 1);
        range.to = *source.end();
    }
    return range;
}

std::optional<charted_span> draw_sparklines(reading &source, const unusual_ranking &ranking,
                                            std::size_t width)
{
    const std::size_t shown = std::min(most_unusual_shown, ranking.unusual() + ranking.perhaps());
    if (shown == 0) {
        return std::nullopt;
    }
    const auto end = ranking.order.begin() + static_cast<std::ptrdiff_t>(shown);
    return read_charted(source, end_of(source, ranking), {ranking.order.begin(), end}, width);
}

// How long ago the box ended cannot be told without it.
int64_t time_of_this_machine()
{
    const double now = clock_seconds();
    if (now == 0) {
        throw failure(exit_failed, "the clock of this machine cannot be read");
    }
    return static_cast<int64_t>(now);
}

exit_code show(const show_options &options)
{
    options.source.settle();
    const page_look look = look_for(options);
    reading source(options.source.name);
    std::vector<std::size_t> all(source.sensors().size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    const cell_plan plan = plan_of(source.samples(), source.usual_step(), 0, all.size());
    summary_rows rows(plan, all.size());
    source.read({}, all, rows);
    const uint64_t newest = std::min<uint64_t>(source.samples(), plan.newest * plan.unit);
    const unusual_ranking ranking = rank_sensors(rows.tracks(), source.sensors(), newest);
    shown_box shown = {options.source.name,
                       source,
                       rows,
                       ranking,
                       std::nullopt,
                       health_of(options.source.name, source)};
    shown.now = time_of_this_machine();
    shown.where = options.source.where();
    if (options.json) {
        put(show_json(shown) + "\n");
    } else {
        shown.sparklines = draw_sparklines(source, ranking, look.sparkline());
        for (const std::string &line : show_page(shown, look)) {
            put(line + "\n");
        }
    }
    flush_output();
    if (shown.health.failed) {
        throw failure(exit_failed, shown.health.failure_words());
    }
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<show_options>();
    reading_options &source = chosen->source;
    options.required_word("BASE|FILE", source.name, "Name of a box, or one of its buffer files");
    add_time_zone(options, source, false);
    options.number("--width", "N", chosen->width,
                   "Characters in a line, from 40 on (80, or those of a narrower terminal)");
    options.flag("--json", chosen->json, "Print one JSON object");
    return [chosen] { return show(*chosen); };
}

constexpr const char *more =
    "One page, the first thing to look at after a crash: which machine the box is from, how and\n"
    "when it ended, whether its files are whole, which times it covers and how finely, gaps, the\n"
    "latest events, and the sensors that were unusual at the end, each with its course: the last\n"
    "quarter of it is what was compared with the past. The other verbs tell each of these in "
    "full.\n"
    "\n"
    "Examples:\n"
    "  vesk show box\n"
    "  vesk show box --tz Europe/Zurich\n"
    "  vesk show box --json | jq .sentence\n";

const registration registered({48, "show", "Tell on one page what happened", more, prepare});

} // namespace
} // namespace cli
