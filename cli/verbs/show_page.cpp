// Lays out the page: a title in the first eleven columns, text behind it. All that comes from a box
// passes shown_text() or json_string() on its way out.
#include "verbs/show_page.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "analysis/unusual_text.hpp"
#include "draw/sparkline.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/event_words.hpp"
#include "text/glob.hpp"

namespace cli
{
namespace
{

constexpr std::size_t title_width = 11;
constexpr std::size_t most_gaps_shown = 3;

// Two units are enough for people: "3d4h", "12m5s".
std::string about(int64_t seconds)
{
    constexpr int64_t minute = 60;
    constexpr int64_t hour = 3600;
    int64_t grain = 1;
    if (seconds >= 14 * seconds_per_day) {
        grain = seconds_per_day;
    } else if (seconds >= seconds_per_day) {
        grain = hour;
    } else if (seconds >= hour) {
        grain = minute;
    }
    return format_duration(seconds - seconds % grain);
}

// As one word of a shell.
std::string shell_word(const std::string &text)
{
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                       "0123456789_./:@%+,-";
    std::string safe = text.starts_with('-') ? "./" + text : text;
    if (!safe.empty() && safe.find_first_not_of(plain) == std::string::npos) {
        return safe;
    }
    std::string quoted = "'";
    for (const char c : safe) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string_view without_colons(std::string_view name)
{
    return name.starts_with("::") ? name.substr(2) : name;
}

class page_writer
{
public:
    page_writer(const shown_box &what, const page_look &look)
        : what_(what), look_(look), rows_(what.rows),
          ending_(what.rows.ending().result(what.source.source().writer.has_value()))
    {
    }

    std::vector<std::string> write()
    {
        entry(what_.source.source().is_file ? "file" : "box", what_.name);
        write_machine();
        write_ending();
        entry("files", what_.health.words());
        write_spans();
        write_gaps();
        write_events();
        write_unusual();
        write_next();
        return std::move(lines_);
    }

private:
    // A title with lines of text behind it.
    void entry(std::string_view title, std::string_view text)
    {
        for (const std::string &line : wrapped(text, look_.width - title_width, look_.characters)) {
            lines_.push_back(fmt::format("{:<{}}{}", title, title_width, line));
            title = "";
        }
    }
    void line(std::string_view text)
    {
        lines_.push_back(fitted(text, look_.width, look_.characters));
    }
    std::string time(int64_t seconds) const { return iso_time(seconds, what_.where); }

    void write_machine()
    {
        const auto &who = what_.rows.ending().log().identity();
        if (!who) {
            entry("machine", "the box does not tell where it was recorded");
            return;
        }
        std::string words = who->host.empty() ? "without a name" : who->host;
        words += who->kernel.empty() ? "" : ", kernel " + who->kernel;
        const std::string &version = rows_.ending().log().version();
        words += version.empty() ? "" : ", vesk " + version;
        entry("machine", words);
    }

    void write_ending()
    {
        entry("verdict", sentence_of(ending_, what_.where));
        const std::optional<int64_t> end = what_.source.end();
        if (!end) {
            return;
        }
        const int64_t ago = what_.now - *end;
        entry("", ago >= 0 ? fmt::format("the latest sample was taken {} ago", about(ago))
                           : "the latest sample is of the future, by the clock of this machine");
    }

    std::string span_text(const counted_span &span) const
    {
        return fmt::format("{} to {} ({})", time(span.range.from), time(span.range.to),
                           about(span.range.to - span.range.from));
    }

    void write_spans()
    {
        const counted_span &raw = rows_.raw();
        entry("raw", raw.rows == 0 ? "no samples" : span_text(raw));
        if (raw.rows > 0) {
            const int64_t step = what_.source.usual_step();
            entry("", fmt::format("{} of {}{}", counted(raw.rows, "sample"),
                                  counted(what_.source.sensors().size(), "sensor"),
                                  step > 0 ? fmt::format(", one every {}", about(step)) : ""));
        }
        const counted_span &history = rows_.history();
        if (history.rows == 0) {
            entry("history", "none yet");
            return;
        }
        entry("history", span_text(history));
        // An interval reaches to where the next one begins.
        const int64_t step = std::max<int64_t>(what_.source.usual_step(), 1);
        const std::string shortest = about(rows_.shortest() + step);
        const std::string longest = about(rows_.longest() + step);
        entry("", fmt::format("{} of {}", counted(history.rows, "interval"),
                              shortest == longest ? shortest
                                                  : fmt::format("{} to {}", shortest, longest)));
        if (rows_.horizon() && what_.source.end()) {
            entry("horizon", fmt::format("{} before the end; what is older is one interval",
                                         about(*what_.source.end() - *rows_.horizon())));
        }
    }

    void write_gaps()
    {
        const recording_log &log = rows_.ending().log();
        if (log.number_of_gaps() == 0) {
            entry("gaps", "none that is told of");
            return;
        }
        const std::size_t shown = std::min(log.gaps().size(), most_gaps_shown);
        entry("gaps", log.number_of_gaps() > shown
                          ? fmt::format("{}, of which the latest are", log.number_of_gaps())
                          : fmt::format("{}", log.number_of_gaps()));
        for (auto each = log.gaps().end() - static_cast<std::ptrdiff_t>(shown);
             each != log.gaps().end(); ++each) {
            line(fmt::format("  {}  {:>8}  {}", time(each->from), gap_length(*each),
                             gap_words(each->reason)));
        }
    }

    void write_events()
    {
        const auto latest = rows_.latest_events();
        entry("events", fmt::format("{} with their texts, {} counted in history{}", rows_.events(),
                                    rows_.events_of_history(),
                                    latest.empty() ? "" : "; the latest, with their types"));
        for (const dated_event &one : latest) {
            line(fmt::format("  {}  {}  {}", time(one.time), one.type, event_words(one.text)));
        }
    }

    std::size_t number_shown() const
    {
        return std::min(most_unusual_shown, what_.ranking.unusual() + what_.ranking.perhaps());
    }

    void write_unusual()
    {
        entry("at the end", what_.ranking.summary());
        const std::size_t width = look_.sparkline();
        const std::size_t indent = 4 + width + 2;
        for (std::size_t rank = 0; rank < number_shown(); ++rank) {
            const std::string drawn =
                what_.sparklines && rank < what_.sparklines->sensors.size()
                    ? text_sparkline(what_.sparklines->sensors[rank].columns, look_.characters)
                    : std::string(width, ' ');
            const auto said = wrapped(what_.ranking.sentence(rank, amounts::with_units),
                                      look_.width - indent, look_.characters);
            lines_.push_back(fmt::format("{:>2}  {}  {}", rank + 1, drawn, said.front()));
            for (std::size_t i = 1; i < said.size(); ++i) {
                lines_.push_back(std::string(indent, ' ') + said[i]);
            }
        }
    }

    void write_next()
    {
        if (!what_.source.end()) {
            return;
        }
        const std::string name = shell_word(what_.name);
        std::vector<std::string> commands = {fmt::format("vesk suspects {}", name)};
        if (ending_.it_ended == box_ending::how::recording && ending_.time) {
            commands.front() += fmt::format(" --before {}", time(*ending_.time));
        }
        if (number_shown() > 0) {
            const std::string &first = what_.ranking.names[what_.ranking.order.front()];
            // In a pattern, some characters stand for others.
            if (!is_glob(first) && !first.starts_with('!')) {
                commands.push_back(fmt::format("vesk plot {} {}", name,
                                               shell_word(std::string(without_colons(first)))));
            }
        }
        commands.push_back(fmt::format("vesk events {} --last 10m", name));
        commands.push_back(fmt::format("vesk report {} -o report.html", name));
        if (!what_.health.is_whole() && !what_.health.is_file) {
            commands.push_back(fmt::format("vesk check {}", name));
        }
        std::string_view title = "next";
        for (const std::string &command : commands) {
            // A command that is cut would be a wrong one.
            const std::string shown = shown_text(command, look_.characters);
            if (shown == command) {
                lines_.push_back(fmt::format("{:<{}}{}", title, title_width, command));
                title = "";
            }
        }
    }

    const shown_box &what_;
    const page_look &look_;
    const summary_rows &rows_;
    box_ending ending_;
    std::vector<std::string> lines_;
};

} // namespace

std::vector<std::string> show_page(const shown_box &what, const page_look &look)
{
    std::vector<std::string> lines = page_writer(what, look).write();
    for (std::string &line : lines) {
        line.erase(line.find_last_not_of(' ') + 1);
    }
    return lines;
}

} // namespace cli
