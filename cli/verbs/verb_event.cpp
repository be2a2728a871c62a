// vesk event BASE TYPE TEXT: puts an event into a box. If a recording has the box, the event is
// sent to it and its answer decides the outcome; otherwise it is written from here. Both may change
// at any moment, so the two ways are tried again until a time limit.
#include <charconv>
#include <ctime>
#include <fmt/format.h>
#include <memory>

#include <vesk/vesk_limits.h>

#include "box/box_writer.hpp"
#include "box/event_channel.hpp"
#include "box/limited_events.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct event_options {
    std::string base;
    std::string type;
    std::string text;
};

// How long a recorder may take to answer, and how often it is looked for.
constexpr double patience = 10;
constexpr int tries = 50;
constexpr timespec between_tries = {0, 100'000'000};

uint32_t parse_type(const std::string &text)
{
    uint32_t type = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, type);
    if (error != std::errc() || rest != end || type < VESK_MIN_EVENT_TYPE ||
        type > last_event_type) {
        throw failure(exit_usage, fmt::format("TYPE {}: must be a number from 1 to {}",
                                              printable(text), last_event_type));
    }
    return type;
}

event make_event(const event_options &options)
{
    if (options.base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    if (options.text.empty() || options.text.size() > longest_event) {
        throw failure(exit_usage, fmt::format("TEXT: must have 1 to {} bytes", longest_event));
    }
    return {parse_type(options.type), std::time(nullptr), options.text};
}

void note_waiting(const event_options &options)
{
    note(
        fmt::format("{0}: the event waits in {0}.events and goes into the box with the next sample",
                    options.base));
}

exit_code conclude(const event_options &options, const event_reply &reply)
{
    using outcome = event_reply::outcome;
    if (reply.what == outcome::ended) {
        throw failure(exit_failed, options.base + ": the recording ended without an answer; the "
                                                  "event may be in the box or not");
    }
    if (reply.what == outcome::no_answer) {
        throw failure(exit_failed,
                      fmt::format("{}: no answer from the recording in {} seconds; the event may "
                                  "be in the box or not",
                                  options.base, patience));
    }
    if (reply.answer == event_answer::refused) {
        throw failure(exit_failed, fmt::format("{}: the event is not recorded: {}", options.base,
                                               printable(reply.reason)));
    }
    if (reply.answer == event_answer::waits) {
        note_waiting(options);
    }
    return exit_done;
}

// No recording has the box, so the event is written from here.
exit_code write_into_box(const event_options &options, const event &what)
{
    box_writer box(options.base, {}, {}, box_writer::if_missing::refuse);
    const event_budget budget = budget_of(find_box(options.base), default_event_bytes);
    if (!budget.has_room_for(event_source::user, what)) {
        throw event_limit_reached(budget.limit_for(event_source::user));
    }
    waiting_events events(box, options.base);
    if (events.write(what) == event_result::waits) {
        note_waiting(options);
    }
    box.finish();
    return exit_done;
}

exit_code put_event(const event_options &options)
{
    const event what = make_event(options);
    for (int i = 0; i < tries; ++i) {
        const event_reply reply = send_event(options.base, what, patience);
        if (reply.what != event_reply::outcome::nobody) {
            return conclude(options, reply);
        }
        try {
            return write_into_box(options, what);
        } catch (const box_in_use &) {
            if (i + 1 == tries) {
                throw;
            }
        }
        // A recording takes its lock before it opens its socket, and keeps it after it has closed
        // the socket, so both attempts may fail for a moment.
        nanosleep(&between_tries, nullptr);
    }
    return exit_failed;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<event_options>();
    options.required_word("BASE", chosen->base, "Name of the box");
    options.required_word(
        "TYPE", chosen->type,
        "1 note, 2 notice, 3 warning, 4 error or 5 critical, as recordings use them");
    options.required_word("TEXT", chosen->text, "What happened, up to 10000 bytes");
    return [chosen] { return put_event(*chosen); };
}

constexpr const char *more =
    "The recording that has the box takes the event and answers when it is recorded; where "
    "nothing\n"
    "records, it is put into the box at once. The text is kept with the raw samples, the history\n"
    "counts the events of each type.\n"
    "\n"
    "An event that no buffer can take yet (before the first sample, behind the last one of a full\n"
    "buffer, while the disk is full) waits in the file BASE.events, with a note and exit code 0, "
    "and\n"
    "goes into the box with the next sample. `vesk info` tells how many wait.\n"
    "\n"
    "Examples:\n"
    "  vesk event box 1 'database restarted'\n"
    "  vesk dump --events box\n";

const registration registered({30, "event", "Put an event into a box", more, prepare});

} // namespace
} // namespace cli
