// Converts machine identities and gaps to pairs of an event and back, and gives gaps their words
// and their level. Both directions stand here so that they cannot drift apart. What is parsed may
// come from any box: pairs of another form count as absent.
#include "text/own_events.hpp"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>

#include "process/terminal.hpp"
#include "text/duration.hpp"

namespace cli
{
namespace
{

struct reason_meaning {
    std::string_view reason;
    event_level level;
    const char *words;
};

constexpr reason_meaning meanings[] = {
    {gap_reason::stop, level_note, "the recording was stopped"},
    {gap_reason::reboot, level_note, "the machine was restarted"},
    {gap_reason::killed, level_warning, "the recorder was killed"},
    {gap_reason::crash, level_error, "the machine crashed, was reset or lost its power"},
    {gap_reason::unknown, level_notice, "the box does not tell why"},
    {gap_reason::suspend, level_note, "the machine slept"},
    {gap_reason::clock, level_notice, "the clock was set"},
    {gap_reason::late, level_warning, "samples came too late"},
};

const reason_meaning *meaning_of(const std::string &reason)
{
    const auto *const end = std::end(meanings);
    const auto *const found = std::find_if(std::begin(meanings), end,
                                           [&](const auto &each) { return each.reason == reason; });
    return found != end ? found : nullptr;
}

void add_if_known(event_text &text, std::string_view key, const std::string &value)
{
    if (!value.empty()) {
        text.add(key, value);
    }
}

} // namespace

std::string id_or_nothing(const std::string &text)
{
    constexpr std::size_t digits = 32;
    const auto is_digit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
    const auto count = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_digit));
    const auto dashes = static_cast<std::size_t>(std::count(text.begin(), text.end(), '-'));
    const bool is_id =
        count == digits && count + dashes == text.size() && (dashes == 0 || dashes == 4);
    return is_id ? text : std::string();
}

void add_identity(event_text &text, const machine_identity &who)
{
    add_if_known(text, "host", who.host);
    add_if_known(text, "machine_id", who.machine_id);
    add_if_known(text, "boot_id", who.boot_id);
    add_if_known(text, "kernel", who.kernel);
}

machine_identity identity_in(const parsed_event &event)
{
    return {event.value("host"), id_or_nothing(event.value("machine_id")),
            id_or_nothing(event.value("boot_id")), event.value("kernel")};
}

std::string gap_words(const std::string &reason)
{
    const reason_meaning *meaning = meaning_of(reason);
    return meaning != nullptr ? meaning->words : printable(reason);
}

std::string gap_length(const gap &what)
{
    const int64_t seconds = std::max(what.seconds, -std::numeric_limits<int64_t>::max());
    return fmt::format("{}{}", seconds < 0 ? "-" : "", format_duration(std::abs(seconds)));
}

event_level gap_level(const std::string &reason)
{
    const reason_meaning *meaning = meaning_of(reason);
    return meaning != nullptr ? meaning->level : level_notice;
}

std::string gap_text(const gap &what)
{
    event_text text(event_word::gap);
    text.add("from", what.from);
    text.add("to", what.to);
    text.add("seconds", what.seconds);
    text.add("reason", what.reason);
    if (what.missed > 0) {
        text.add("missed", static_cast<int64_t>(what.missed));
    }
    return text.text();
}

std::optional<gap> gap_in(const parsed_event &event)
{
    const auto from = event.number("from");
    const auto to = event.number("to");
    const auto seconds = event.number("seconds");
    const std::string reason = event.value("reason");
    const int64_t missed = event.number("missed").value_or(0);
    if (event.word != event_word::gap || !from || !to || !seconds || reason.empty() || missed < 0) {
        return std::nullopt;
    }
    return gap{*from, *to, *seconds, reason, static_cast<uint64_t>(missed)};
}

} // namespace cli
