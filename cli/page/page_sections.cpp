// Writes each section from what was collected. All texts of the box go through html_text().
#include "page/page_sections.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "analysis/ending_text.hpp"
#include "analysis/unusual_text.hpp"
#include "page/page_pictures.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/time_text.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

void write_fact(const page_sink &put, std::string_view title, std::string_view text)
{
    put(fmt::format("<div><dt>{}</dt><dd>{}</dd></div>", title, html_text(text)));
}

std::string span_words(int64_t from, int64_t to)
{
    return fmt::format("{} to {}, {}", page_time(from), page_time(to),
                       format_rough_duration(to - from));
}

std::string machine_words(const machine_identity &who)
{
    std::string words;
    const auto add = [&](const char *what, const std::string &value) {
        if (!value.empty()) {
            words += fmt::format("{}{} {}", words.empty() ? "" : ", ", what, value);
        }
    };
    add("kernel", who.kernel);
    add("machine id", who.machine_id);
    add("boot", who.boot_id);
    return words;
}

// "1.5e3 of type 3" for each type that there is.
std::string count_words(const past_events &past)
{
    std::string words;
    for (std::size_t i = 0; i < past.counts.size(); ++i) {
        if (past.counts[i] > 0) {
            words +=
                fmt::format("{}{} of type {}", words.empty() ? "" : ", ", past.counts[i], i + 1);
        }
    }
    return words;
}

// What a recording told of a time without samples.
std::string reason_of(const gap_row &row, const recording_log &log)
{
    for (const gap &told : log.gaps()) {
        if (told.from <= row.next && told.to >= row.last) {
            return gap_words(told.reason);
        }
    }
    return "no samples";
}

struct happening {
    int64_t time = 0;
    std::string html;
};

std::string time_button(int64_t time)
{
    return fmt::format("<button type=\"button\" class=\"at\" data-time=\"{}\">{}</button>", time,
                       page_time(time));
}

std::string event_html(const shown_event &event)
{
    return fmt::format("<tr class=\"type{}{}\" data-time=\"{}\" data-type=\"{}\"><td>{}</td>"
                       "<td>{}</td><td>{}{}</td></tr>\n",
                       std::min<uint32_t>(event.type, last_event_type), event.waits ? " waits" : "",
                       event.time, event.type, time_button(event.time), event.type,
                       html_text(event.text), event.waits ? " (waits for the next sample)" : "");
}

std::string gap_html(const gap_row &row, const recording_log &log)
{
    return fmt::format("<tr class=\"gap\" data-time=\"{}\" data-end=\"{}\"><td>{}</td><td>gap</td>"
                       "<td>{}: {}</td></tr>\n",
                       row.last, row.next, time_button(row.last),
                       format_duration(row.next - row.last), html_text(reason_of(row, log)));
}

std::string past_html(const past_events &past)
{
    return fmt::format("<tr class=\"past\"><td>{}</td><td></td><td>until {}: {}</td></tr>\n",
                       time_button(past.start), page_time(past.end), count_words(past));
}

std::vector<happening> all_happenings(const page_content &content)
{
    std::vector<happening> all;
    for (const past_events &past : content.happened.past()) {
        all.push_back({past.start, past_html(past)});
    }
    for (const gap_row &row : content.happened.gaps()) {
        all.push_back({row.last, gap_html(row, content.log())});
    }
    for (const shown_event &event : content.happened.events()) {
        all.push_back({event.time, event_html(event)});
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const happening &a, const happening &b) { return a.time < b.time; });
    std::reverse(all.begin(), all.end());
    return all;
}

// A sentence begins with the name of its sensor, which stands above it already.
std::string sentence_without_name(const unusual_ranking &unusual, std::size_t rank)
{
    std::string sentence = unusual.sentence(rank, amounts::with_units);
    const std::string &name = unusual.names[unusual.order[rank]];
    if (sentence.starts_with(name + " ")) {
        sentence.erase(0, name.size() + 1);
    }
    return sentence;
}

void write_suspect(const page_content &content, std::size_t rank, const page_sink &put)
{
    const std::size_t sensor = content.unusual.order[rank];
    const finding &found = content.unusual.findings[sensor];
    put(fmt::format("<li class=\"suspect\"><h3><a class=\"sensor\" href=\"#s{0}\" "
                    "data-sensor=\"{0}\">{1}</a> <span class=\"score\" title=\"score: above 0.3 is "
                    "unusual\">{2} {3:.2f}</span></h3>\n",
                    sensor, html_text(short_name(content.names[sensor])), level_of(found),
                    found.score));
    write_end_picture(content, sensor, put);
    put(fmt::format("<p>{}</p></li>\n", html_text(sentence_without_name(content.unusual, rank))));
}

void write_row(const page_content &content, std::size_t sensor, const page_sink &put)
{
    const sensor_statistics &all = content.statistics[sensor];
    const std::string &name = content.names[sensor];
    put(fmt::format("<tr id=\"s{0}\" data-sensor=\"{0}\"><th scope=\"row\">{1}</th>", sensor,
                    html_text(short_name(name))));
    const moments &numbers = all.numbers();
    if (numbers.count() == 0) {
        put("<td>-</td><td>-</td><td>-</td><td>-</td><td>-</td><td>0</td></tr>\n");
        return;
    }
    const estimate deviation = numbers.deviation();
    const auto cell = [&](double value) {
        return fmt::format("<td>{}</td>", html_text(with_unit(value, name)));
    };
    put(cell(static_cast<double>(all.last())) + cell(static_cast<double>(all.least())) +
        cell(numbers.mean()) + cell(static_cast<double>(all.greatest())));
    put(fmt::format("<td>{}{}</td><td>{}</td></tr>\n",
                    deviation.is_rough && deviation.value == deviation.value ? "~" : "",
                    html_text(with_unit(deviation.value, name)), numbers.count()));
}

void write_file(const diagnosis &health, const checked_file &file, const page_sink &put)
{
    const std::vector<std::string> lines = file.lines();
    const bool is_bad = file.file->missing || file.found[0] + file.found[1] > 0;
    put(fmt::format("<li class=\"{}\"><code>{}</code>: {}{}", is_bad ? "bad" : "good",
                    html_text(file.file->path), html_text(file.contents_text()),
                    health.is_other(file) ? ", does not belong to the box" : ""));
    if (!lines.empty()) {
        put(fmt::format("<details{}><summary>{}</summary><ul>", is_bad ? " open" : "",
                        counted(lines.size(), "finding")));
        for (const std::string &line : lines) {
            put("<li>" + html_text(line) + "</li>");
        }
        put("</ul></details>");
    }
    put("</li>\n");
}

void write_repair(const diagnosis &health, const page_sink &put)
{
    if (health.live || health.plan.is_empty() || !health.is_repairable()) {
        return;
    }
    put("<h3>What a repair would do</h3><ul>");
    for (const recovery_step &step : health.plan.steps) {
        put("<li>" + html_text(step.path + ": " + step_text(step)) + "</li>");
        if (step.more > 0) {
            put(fmt::format("<li>{}: and {} more of the same kind</li>", html_text(step.path),
                            step.more));
        }
    }
    put("</ul><p>" + html_text(report_text(health.plan.report)) + "</p>\n");
}

} // namespace

std::string_view short_name(std::string_view sensor)
{
    return sensor.size() > 2 && sensor.starts_with("::") ? sensor.substr(2) : sensor;
}

std::string page_time(int64_t seconds)
{
    std::string text = iso_time(seconds, zone::utc);
    if (const std::size_t t = text.find('T'); t != std::string::npos) {
        text[t] = ' ';
    }
    if (!text.empty() && text.back() == 'Z') {
        text.pop_back();
    }
    return text;
}

void write_title(const page_content &content, const page_sink &put)
{
    write_machine(content, put);
    put(", " + (content.charts.columns().empty() ? "no samples" : page_time(content.end())));
}

void write_machine(const page_content &content, const page_sink &put)
{
    const auto &who = content.log().identity();
    put(html_text(who && !who->host.empty() ? who->host : content.name));
}

void write_verdict(const page_content &content, const page_sink &put)
{
    put(html_text(sentence_of(content.ending, zone::utc)));
}

std::string_view verdict_kind(const box_ending &ending)
{
    using how = box_ending::how;
    if (ending.it_ended == how::failed || ending.it_ended == how::cut_short) {
        return "hard";
    }
    if (ending.it_ended == how::empty || ending.it_ended == how::untold) {
        return "untold";
    }
    return ending.it_ended == how::recording ? "live" : "calm";
}

void write_verdict_kind(const page_content &content, const page_sink &put)
{
    put(verdict_kind(content.ending));
}

void write_facts(const page_content &content, const page_sink &put)
{
    // A lone file was not looked at, which is neither.
    const char *health = content.health.is_whole() ? "good"
                         : content.health.is_file  ? "unknown"
                                                   : "bad";
    put(fmt::format("<div id=\"health\" class=\"{}\"><dt>Files</dt><dd><span>{}</span> "
                    "<a href=\"#files\">details</a></dd></div>",
                    health, html_text(content.health.words())));
    const auto &columns = content.charts.columns();
    if (!columns.empty()) {
        write_fact(put, "Covers", span_words(content.begin(), content.end()));
    }
    const std::string history =
        content.intervals > 0 ? counted(content.intervals, "history interval") : "no history";
    const std::string each =
        content.step > 0 ? ", one sample each " + format_duration(content.step) : "";
    write_fact(put, "Holds",
               fmt::format("{}, {}{}", counted(content.samples, "raw sample"), history, each));
    write_fact(put, "Sensors",
               content.sensors_left_out == 0
                   ? std::to_string(content.names.size())
                   : fmt::format("{}, {} more are left out", content.names.size(),
                                 content.sensors_left_out));
    if (const auto &who = content.log().identity()) {
        write_fact(put, "Machine", machine_words(*who));
    }
    if (!content.log().version().empty()) {
        write_fact(put, "Recorded by", "vesk " + content.log().version());
    }
}

void write_unusual(const page_content &content, const page_sink &put)
{
    const std::size_t worth = content.unusual.count_if(is_worth_a_look);
    const std::size_t shown = std::min(worth, most_unusual_shown);
    put("<p>" + html_text(content.unusual.summary()) + ". ");
    if (shown > 0) {
        put(fmt::format("The newest {} beside the past of each sensor: where to look first, and no "
                        "claim of a cause.",
                        counted(content.unusual.newest, "sample")));
    }
    put("</p>\n<ol class=\"suspects\">\n");
    for (std::size_t rank = 0; rank < shown; ++rank) {
        write_suspect(content, rank, put);
    }
    put("</ol>\n");
    if (shown < worth) {
        put(fmt::format("<p>{} more: <code>vesk suspects --all</code> lists them.</p>\n",
                        worth - shown));
    }
}

void write_happened(const page_content &content, const page_sink &put)
{
    const std::vector<happening> all = all_happenings(content);
    if (all.empty()) {
        put("<p>No events and no gaps.</p>");
        return;
    }
    put("<div class=\"scroll list\" tabindex=\"0\" role=\"region\" aria-label=\"Events and gaps, "
        "newest first\"><table class=\"events\"><thead><tr><th scope=\"col\">Time (UTC)</th>"
        "<th scope=\"col\">Type</th><th scope=\"col\">What</th></tr></thead><tbody>\n");
    for (const happening &one : all) {
        put(one.html);
    }
    put("</tbody></table></div>\n");
    if (const uint64_t more = content.happened.events_left_out(); more > 0) {
        put(fmt::format("<p>{} older than these are left out.</p>", counted(more, "event")));
    }
    if (const uint64_t more = content.happened.gaps_left_out(); more > 0) {
        put(fmt::format("<p>{} older than these are left out.</p>", counted(more, "gap")));
    }
}

void write_numbers(const page_content &content, const page_sink &put)
{
    put("<p>Of all that the page covers, history and raw samples together.</p>"
        "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Numbers of all "
        "sensors\">"
        "<table class=\"numbers\"><thead><tr><th scope=\"col\">Sensor</th><th scope=\"col\">Last"
        "</th><th scope=\"col\">Least</th><th scope=\"col\">Mean</th><th "
        "scope=\"col\">Greatest</th>"
        "<th scope=\"col\">Deviation</th><th scope=\"col\">Readings</th></tr></thead><tbody>\n");
    for (std::size_t sensor = 0; sensor < content.names.size(); ++sensor) {
        write_row(content, sensor, put);
    }
    put("</tbody></table></div>\n");
    const bool any = std::any_of(
        content.statistics.begin(), content.statistics.end(),
        [](const sensor_statistics &one) { return one.numbers().deviation().is_rough; });
    if (any) {
        put("<p>~ may be off by more than 5 %: the sums of history have single precision.</p>\n");
    }
}

void write_files(const page_content &content, const page_sink &put)
{
    put("<p>" + html_text(content.health.words()) + "</p>\n");
    if (!content.health.found) {
        return;
    }
    const diagnosis &health = *content.health.found;
    const box_state &state = health.what.state;
    put("<ul class=\"files\">\n");
    put(fmt::format("<li class=\"{}\"><code>{}</code>: {}</li>\n",
                    state.error == 0 ? "good" : "bad", html_text(state.path),
                    html_text(state.error == 0 ? "whole" : state_words(state))));
    for (const checked_file &file : health.files) {
        write_file(health, file, put);
    }
    if (health.waiting.is_there()) {
        put(fmt::format("<li class=\"{}\"><code>{}</code>: {}</li>\n",
                        health.waiting.is_damaged() ? "bad" : "good",
                        html_text(health.waiting.path), html_text(health.waiting.text())));
    }
    put("</ul>\n");
    write_repair(health, put);
}

} // namespace cli
