// vesk plot BASE SENSOR...: draws sensors over a span of time, in the terminal or as a picture. The
// drawing is that of cli/draw; here is what is drawn, how large, and where it goes.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "box/charting.hpp"
#include "box/reading.hpp"
#include "draw/svg_chart.hpp"
#include "draw/text_chart.hpp"
#include "export/sink.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "process/terminal_look.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

// More charts than this are no picture any more.
constexpr std::size_t most_charts = 20;

struct plot_options {
    reading_options source;
    std::vector<std::string> sensors;
    std::optional<uint32_t> width;
    std::optional<uint32_t> height;
    bool blocks = false;
    bool ascii = false;
    std::string svg;
    bool force = false;
};

void check(const plot_options &options)
{
    if (options.sensors.empty() && options.source.sensors.empty()) {
        throw failure(exit_usage,
                      "which sensors? 'vesk plot BASE cpu.total.busy_percent' draws one, "
                      "'vesk suspects BASE' tells which were unusual at the end");
    }
    if (options.blocks && options.ascii) {
        throw failure(exit_usage, "--blocks and --ascii exclude each other");
    }
    if (!options.svg.empty() && (options.blocks || options.ascii)) {
        throw failure(exit_usage, "--svg draws no characters: --blocks and --ascii do not fit it");
    }
    if (options.force && options.svg.empty()) {
        throw failure(exit_usage, "--force belongs to --svg FILE");
    }
}

uint32_t size_within(std::optional<uint32_t> wanted, std::size_t otherwise, uint32_t least,
                     uint32_t most, const char *option)
{
    if (wanted && (*wanted < least || *wanted > most)) {
        throw failure(exit_usage,
                      fmt::format("{} {}: not from {} to {}", option, *wanted, least, most));
    }
    return wanted.value_or(static_cast<uint32_t>(std::clamp<std::size_t>(otherwise, least, most)));
}

text_look text_look_for(const plot_options &options)
{
    const terminal_look terminal = look_of_output();
    text_look look;
    const dot_form best = terminal.utf8 ? dot_form::braille : dot_form::ascii;
    look.form = options.ascii ? dot_form::ascii : options.blocks ? dot_form::blocks : best;
    look.colour = terminal.colour;
    look.width = size_within(options.width, terminal.width, 20, 1000, "--width");
    // One line stays for the prompt that follows, and one is the heading.
    const std::size_t free = terminal.height - std::min<std::size_t>(terminal.height, 2);
    look.height = size_within(options.height, free, 6, 1000, "--height");
    look.where = options.source.where();
    return look;
}

svg_look svg_look_for(const plot_options &options)
{
    svg_look look;
    look.width = size_within(options.width, look.width, 200, 4000, "--width");
    look.height = size_within(options.height, look.height, 80, 2000, "--height");
    look.where = options.source.where();
    return look;
}

std::vector<std::size_t> chosen_sensors(const plot_options &options, const reading &source)
{
    std::vector<std::string> patterns = options.sensors;
    patterns.insert(patterns.end(), options.source.sensors.begin(), options.source.sensors.end());
    std::vector<std::size_t> chosen = choose_sensors(source.sensors(), patterns);
    if (chosen.size() > most_charts) {
        throw failure(exit_usage, fmt::format("{} sensors fit; {} can be drawn at once",
                                              chosen.size(), most_charts));
    }
    return chosen;
}

void write_picture(const plot_options &options, const svg_look &look, const charted_span &found)
{
    const std::unique_ptr<sink> out = open_sink(options.svg, options.force);
    out->write(svg_charts(found, look));
    out->finish();
}

void print_charts(const charted_span &found, const text_look &look)
{
    const time_range &range = found.grid.range();
    put(fmt::format("{} to {}\n", iso_time(range.from, look.where),
                    iso_time(range.to, look.where)));
    for (const std::string &line : text_charts(found, look)) {
        put(line + "\n");
    }
}

exit_code plot(const plot_options &options)
{
    options.source.settle();
    check(options);
    const bool is_picture = !options.svg.empty();
    const svg_look picture = svg_look_for(is_picture ? options : plot_options());
    const text_look text = text_look_for(is_picture ? plot_options() : options);
    reading source(options.source.name);
    const auto chosen = chosen_sensors(options, source);
    const auto found = read_charted(source, range_in(options.source, source), chosen,
                                    is_picture ? columns_of(picture) : columns_of(text));
    if (!found) {
        tell_nothing(source, options.source.where());
        // Who asked for a file must not take an old one for it.
        return is_picture && source.code() == exit_done ? exit_failed : source.code();
    }
    if (is_picture) {
        write_picture(options, picture, *found);
    } else {
        print_charts(*found, text);
    }
    flush_output();
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<plot_options>();
    add_reading(options, chosen->source);
    options.number("--width", "N", chosen->width,
                   "Characters in a line (that of the terminal if not given); pixels with --svg");
    options.number("--height", "N", chosen->height,
                   "Lines in all (those of the terminal if not given); pixels of each chart with "
                   "--svg");
    options.flag("--blocks", chosen->blocks, "Draw with half blocks, not with braille");
    options.flag("--ascii", chosen->ascii, "Draw with ASCII, as where the locale is not UTF-8");
    options.text("--svg", "FILE", chosen->svg, "Write a picture; '-' is standard output");
    options.flag("--force", chosen->force, "Replace a picture that is there");
    add_sensor_choice(options, chosen->source);
    options.words("SENSOR", chosen->sensors, "As with --sensor: names, or patterns like 'cpu.*'");
    return [chosen] { return plot(*chosen); };
}

constexpr const char *more =
    "Draws each sensor over the time that the box holds, several one above the other on the same\n"
    "axis of time. Where the history is, a band reaches from the least to the greatest value of\n"
    "each interval; a line runs through its mean and on through the samples. No extreme is left\n"
    "out, however much time a character stands for. Where values are missing there is no line, "
    "and\n"
    "the axis below is broken. Digits below the charts are the types of events.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk plot box cpu.total.busy_percent\n"
    "  vesk plot box 'mem.*_bytes' load.1min --last 1h\n"
    "  vesk plot box load.1min --from -2d --to -1d --tz Europe/Zurich --ascii\n"
    "  vesk plot box load.1min --svg load.svg\n";

const registration registered({53, "plot", "Draw sensors over time", more, prepare});

} // namespace
} // namespace cli
