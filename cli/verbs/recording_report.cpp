// Shows a recording_log: the machine, the last end and the gaps, as lines for people or as JSON.
// All texts in it come from the box and may hold anything; they are made printable or escaped here.
#include "verbs/recording_report.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "process/terminal.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

using nlohmann::ordered_json;
using state = recording_log::state;

// At most so many gaps are shown to people, the latest ones.
constexpr std::size_t most_shown = 20;

void print_line(const char *title, const std::string &text)
{
    fmt::print("{:<11}{}\n", title, text);
}

std::string identity_words(const recording_log &log)
{
    const machine_identity &who = *log.identity();
    std::string words = who.host.empty() ? "without a name" : printable(who.host);
    const auto add = [&](const char *what, const std::string &value) {
        if (!value.empty()) {
            words += fmt::format(", {} {}", what, printable(value));
        }
    };
    add("machine id", who.machine_id);
    add("boot", who.boot_id);
    add("kernel", who.kernel);
    add("vesk", log.version());
    return words;
}

std::string end_words(const recording_log &log)
{
    if (log.last_state() == state::begun) {
        return "not clean: the box tells of no end";
    }
    return fmt::format("{} at {} ({})", log.end_error().empty() ? "clean" : "with an error",
                       format_time(log.end_time()),
                       printable(log.end_error().empty() ? log.end_reason() : log.end_error()));
}

void print_gaps(const recording_log &log)
{
    if (log.number_of_gaps() == 0) {
        return;
    }
    const std::size_t shown = std::min(log.gaps().size(), most_shown);
    print_line("gaps", log.number_of_gaps() > shown
                           ? fmt::format("{}, the last {} are", log.number_of_gaps(), shown)
                           : fmt::format("{}", shown));
    for (auto each = log.gaps().end() - static_cast<std::ptrdiff_t>(shown);
         each != log.gaps().end(); ++each) {
        fmt::print("  {} to {} {:>10}  {}\n", format_time(each->from), format_time(each->to),
                   gap_length(*each), gap_words(each->reason));
    }
}

ordered_json text_or_null(const std::string &text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json machine_json(const recording_log &log)
{
    if (!log.identity()) {
        return nullptr;
    }
    const machine_identity &who = *log.identity();
    return {{"host", text_or_null(who.host)},
            {"machine_id", text_or_null(who.machine_id)},
            {"boot_id", text_or_null(who.boot_id)},
            {"kernel", text_or_null(who.kernel)},
            {"version", text_or_null(log.version())},
            {"interval", log.interval() ? ordered_json(*log.interval()) : ordered_json(nullptr)}};
}

ordered_json end_json(const recording_log &log, bool is_writing)
{
    if (log.last_state() == state::silent || (log.last_state() == state::begun && is_writing)) {
        return nullptr;
    }
    if (log.last_state() == state::begun) {
        return {{"clean", false}, {"time", nullptr}, {"reason", nullptr}, {"error", nullptr}};
    }
    return {{"clean", log.end_error().empty()},
            {"time", log.end_time()},
            {"reason", text_or_null(log.end_reason())},
            {"error", text_or_null(log.end_error())}};
}

ordered_json gap_json(const gap &what)
{
    ordered_json result = {
        {"from", what.from}, {"to", what.to}, {"seconds", what.seconds}, {"reason", what.reason}};
    if (what.missed > 0) {
        result["missed"] = what.missed;
    }
    return result;
}

} // namespace

void print_recordings(const recording_log &log, std::optional<pid_t> writer)
{
    if (log.identity()) {
        print_line("machine", identity_words(log));
    }
    if (writer) {
        print_line("writer", *writer > 0 ? fmt::format("process {}", *writer) : "some process");
    }
    if (log.last_state() == state::ended || (log.last_state() == state::begun && !writer)) {
        print_line("last end", end_words(log));
    }
    print_gaps(log);
}

void add_recordings(const recording_log &log, std::optional<pid_t> writer, ordered_json &report)
{
    report["machine"] = machine_json(log);
    report["writer"] = writer ? ordered_json(*writer) : ordered_json(nullptr);
    report["last_end"] = end_json(log, writer.has_value());
    report["gaps"] = ordered_json::array();
    for (const gap &each : log.gaps()) {
        report["gaps"].push_back(gap_json(each));
    }
    report["number_of_gaps"] = log.number_of_gaps();
}

} // namespace cli
