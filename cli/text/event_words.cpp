// Events that a recording writes are pairs for programs; a person wants to read what they say.
// Texts come from any box, so whatever is not as a recording writes it is shown as it is.
#include "text/event_words.hpp"

#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <string_view>

#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/event_text.hpp"
#include "text/own_events.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

// "97.5,1234,stress" as "stress 97.5 %". The unit is that of a sensor whose name ends so.
std::optional<std::string> process_words(const parsed_event &event, const char *key,
                                         std::string_view ending)
{
    const std::string value = event.value(key);
    const std::size_t first = value.find(',');
    const std::size_t second = first == std::string::npos ? first : value.find(',', first + 1);
    if (second == std::string::npos) {
        return std::nullopt;
    }
    double figure = 0;
    const char *const end = value.data() + first;
    const auto read = std::from_chars(value.data(), end, figure);
    if (read.ec != std::errc() || read.ptr != end) {
        return std::nullopt;
    }
    return fmt::format("{} {}", value.substr(second + 1), with_unit(figure, ending));
}

std::string top_words(const parsed_event &event)
{
    std::string words;
    const auto add = [&](const char *what, const char *key, std::string_view ending) {
        if (const auto found = process_words(event, key, ending)) {
            words += fmt::format("{}{}: {}", words.empty() ? "most " : ", ", what, *found);
        }
    };
    add("processor", "cpu1", "_percent");
    add("memory", "memory1", "_bytes");
    add("I/O", "io1", "_bytes_per_s");
    return words;
}

std::string on_host(const parsed_event &event)
{
    const std::string host = event.value("host");
    return host.empty() ? host : " on " + host;
}

std::string machine_words(const parsed_event &event)
{
    const int64_t interval = event.number("interval").value_or(0);
    return "still recording" + on_host(event) +
           (interval > 0 ? ", every " + format_duration(interval) : "");
}

// " (exit code 3)", or nothing.
std::string in_brackets(const std::string &text)
{
    return text.empty() ? text : " (" + text + ")";
}

std::string program_words(const parsed_event &event)
{
    const std::string program = "the program of --from";
    const std::string state = event.value("state");
    const int64_t pause = event.number("pause").value_or(0);
    const std::string how = in_brackets(event.value("how"));
    const auto again = [&](const char *what) {
        return pause > 0 ? fmt::format("; it is {} again in {}", what, format_duration(pause))
                         : std::string();
    };
    if (state == "started") {
        const std::string pid = event.value("pid");
        return program + " started" + in_brackets(pid.empty() ? pid : "process " + pid);
    }
    if (state == "ended") {
        return program + " ended" + how + again("started");
    }
    if (state == "failed") {
        return program + " cannot be started" + how + again("tried");
    }
    const int64_t lines = event.number("lines").value_or(0);
    if (state == "refused" && lines > 0) {
        const std::string reason = event.value("reason");
        return fmt::format("{} of {} refused{}", counted(static_cast<uint64_t>(lines), "line"),
                           program, reason.empty() ? reason : ": " + reason);
    }
    return {};
}

std::string omitted_words(const parsed_event &event)
{
    struct source {
        const char *key;
        const char *one;
        const char *several;
    };
    constexpr source sources[] = {
        {"kernel", "message of the kernel", "messages of the kernel"},
        {"top", "list of processes", "lists of processes"},
        {"user", "event of users", "events of users"},
        {"recording", "event of the recording", "events of the recording"},
    };
    std::string words;
    for (const source &each : sources) {
        const int64_t count = event.number(each.key).value_or(0);
        if (count > 0) {
            words += fmt::format("{}{} {}", words.empty() ? "left out: " : ", ", count,
                                 count == 1 ? each.one : each.several);
        }
    }
    return words;
}

std::string words_of(const parsed_event &event)
{
    if (event.word == event_word::kernel) {
        const std::string *const said = event.find("text");
        return said != nullptr ? "kernel: " + *said : std::string();
    }
    if (event.word == event_word::top) {
        return top_words(event);
    }
    if (event.word == event_word::machine) {
        return machine_words(event);
    }
    if (event.word == event_word::program) {
        return program_words(event);
    }
    if (event.word == event_word::omitted) {
        return omitted_words(event);
    }
    if (event.word == event_word::start) {
        return "the recording began" + on_host(event);
    }
    if (event.word == event_word::resume) {
        return "the recording went on" + on_host(event);
    }
    if (event.word == event_word::end) {
        const std::string error = event.value("error");
        return error.empty() ? fmt::format("the recording ended ({})", event.value("reason"))
                             : "the recording ended with an error: " + error;
    }
    if (event.word == event_word::gap) {
        const std::optional<gap> found = gap_in(event);
        return found ? fmt::format("gap of {}: {}", gap_length(*found), gap_words(found->reason))
                     : std::string();
    }
    return {};
}

} // namespace

std::string event_words(const std::string &text)
{
    const std::optional<parsed_event> event = parse_event_text(text);
    const std::string words = event ? words_of(*event) : std::string();
    return words.empty() ? text : words;
}

} // namespace cli
