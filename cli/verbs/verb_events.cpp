// vesk events BASE|FILE: prints the events of a span of time with their texts, and for intervals of
// history how many there were of each type. The events can be filtered by type and by text. The
// texts come from anybody and are made printable.
#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <utility>

#include "box/reading.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/machine_text.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct events_options {
    reading_options source;
    std::string types;
    std::string text;
    bool json = false;
};

// Ranges of types, "1,3-5". Without any, all fit.
class type_choice
{
public:
    explicit type_choice(std::string_view text)
    {
        for (std::string_view rest = text; !text.empty();) {
            const auto comma = rest.find(',');
            add(text, rest.substr(0, comma));
            if (comma == std::string_view::npos) {
                break;
            }
            rest.remove_prefix(comma + 1);
        }
    }
    bool holds(uint32_t type) const
    {
        return ranges_.empty() ||
               std::any_of(ranges_.begin(), ranges_.end(), [type](const auto &range) {
                   return type >= range.first && type <= range.second;
               });
    }

private:
    void add(std::string_view whole, std::string_view range)
    {
        uint32_t from = 0;
        const char *const end = range.data() + range.size();
        auto found = std::from_chars(range.data(), end, from);
        uint32_t to = from;
        if (found.ec == std::errc() && found.ptr != end && *found.ptr == '-') {
            found = std::from_chars(found.ptr + 1, end, to);
        }
        if (found.ec != std::errc() || found.ptr != end || from > to) {
            throw failure(exit_usage, fmt::format("--type {}: not a number, or a range of numbers, "
                                                  "such as 3 or 1,3-5",
                                                  whole.substr(0, 40)));
        }
        ranges_.emplace_back(from, to);
    }

    std::vector<std::pair<uint32_t, uint32_t>> ranges_;
};

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Large and small letters are the same.
bool contains(std::string_view text, std::string_view part)
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return lower(a) == lower(b); }) != text.end();
}

struct type_count {
    uint32_t type;
    uint32_t count;
};

// Picks the events that are asked for; how they are printed is up to what is derived from it.
class event_output : public row_visitor
{
public:
    event_output(const events_options &options, const type_choice &types)
        : text_(options.text), types_(types), where_(options.source.where())
    {
    }

    void on_interval(const interval_row &row) override
    {
        const vesk_hb_record_events &events = *row.events;
        const std::array<type_count, 5> all = {{{1, events.n_type1_events},
                                                {2, events.n_type2_events},
                                                {3, events.n_type3_events},
                                                {4, events.n_type4_events},
                                                {5, events.n_type5_events}}};
        std::vector<type_count> counts;
        for (const type_count &one : all) {
            if (one.count > 0 && types_.holds(one.type)) {
                counts.push_back(one);
                past_ += one.count;
            }
        }
        // The history keeps the numbers of events and not their texts.
        if (!counts.empty() && text_.empty()) {
            print(row, counts);
        }
    }
    void on_event(const event_row &row) override
    {
        if (types_.holds(row.type) && contains(row.text, text_)) {
            print(row);
            ++shown_;
        }
    }

    uint64_t past() const { return past_; }

protected:
    virtual void print(const interval_row &row, const std::vector<type_count> &counts) = 0;
    virtual void print(const event_row &row) = 0;
    std::string time(int64_t seconds) const { return iso_time(seconds, where_); }
    bool any_shown() const { return shown_ > 0; }

private:
    const std::string &text_;
    const type_choice &types_;
    zone where_;
    uint64_t shown_ = 0;
    uint64_t past_ = 0;
};

class event_list : public event_output
{
public:
    using event_output::event_output;

private:
    void print(const interval_row &row, const std::vector<type_count> &counts) override
    {
        std::string text;
        for (const type_count &one : counts) {
            text += fmt::format("{}{} of type {}", text.empty() ? "" : ", ", one.count, one.type);
        }
        put(fmt::format("{} to {}  {}\n", time(row.start), time(row.end), text));
    }
    void print(const event_row &row) override
    {
        put(fmt::format("{}  {}  {}{}\n", time(row.time), row.type, printable(row.text),
                        row.waits ? "  (waits for the next sample)" : ""));
    }
};

// History comes first, so that both lists can be written as they are read.
class event_json : public event_output
{
public:
    event_json(const events_options &options, const type_choice &types)
        : event_output(options, types)
    {
        put(fmt::format("{{\"box\": {}, \"history\": [", json_string(options.source.name)));
    }
    void finish()
    {
        begin_events();
        put(any_shown() ? "\n]}\n" : "]}\n");
    }

private:
    void print(const interval_row &row, const std::vector<type_count> &counts) override
    {
        // History comes first in a box. A file in which it does not must not break the JSON object.
        if (in_events_) {
            return;
        }
        std::string text;
        for (const type_count &one : counts) {
            text += fmt::format("{}\"{}\": {}", text.empty() ? "" : ", ", one.type, one.count);
        }
        put(fmt::format("{}\n  {{\"from\": \"{}\", \"to\": \"{}\", \"events\": {{{}}}}}",
                        any_history_ ? "," : "", time(row.start), time(row.end), text));
        any_history_ = true;
    }
    void print(const event_row &row) override
    {
        begin_events();
        put(fmt::format("{}\n  {{\"time\": \"{}\", \"type\": {}, \"text\": {}, \"waits\": {}}}",
                        any_shown() ? "," : "", time(row.time), row.type, json_string(row.text),
                        row.waits));
    }
    void begin_events()
    {
        if (!in_events_) {
            put(any_history_ ? "\n], \"events\": [" : "], \"events\": [");
            in_events_ = true;
        }
    }

    bool any_history_ = false;
    bool in_events_ = false;
};

exit_code events(const events_options &options)
{
    options.source.settle();
    const type_choice types(options.types);
    // Tiers hold no events.
    reading source(options.source.name, reading::tiers::none);
    const time_range range = range_in(options.source, source);
    uint64_t past = 0;
    if (options.json) {
        event_json output(options, types);
        source.read(range, {}, output);
        output.finish();
        past = output.past();
    } else {
        event_list output(options, types);
        source.read(range, {}, output);
        past = output.past();
    }
    flush_output();
    if (!options.text.empty() && past > 0) {
        note(fmt::format("{} of history cannot be searched: only their number is kept",
                         counted(past, "event")));
    }
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<events_options>();
    add_reading(options, chosen->source);
    options.text("--type", "N,N-M", chosen->types, "Only events of these types");
    options.text("--grep", "WORDS", chosen->text,
                 "Only events whose text holds this, in large or small letters");
    options.flag("--json", chosen->json, "Print one JSON object");
    return [chosen] { return events(*chosen); };
}

constexpr const char *more =
    "Events with their texts, oldest first. Before them stands for each interval of history how "
    "many\n"
    "there were: their texts are gone. An event that waits for a sample stands at the end.\n"
    "\n" VESK_CLI_READING_HELP "\n"
    "Examples:\n"
    "  vesk events box\n"
    "  vesk events box --last 1h --type 3-5\n"
    "  vesk events box --grep 'out of memory'\n"
    "  vesk events box --json | jq '.events[].text'\n";

const registration registered({58, "events", "Tell what happened, and when", more, prepare});

} // namespace
} // namespace cli
