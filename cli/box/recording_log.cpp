// Collects what recordings wrote about themselves into a box: identity, beginning, end and gaps.
// Events go in, oldest first, in the form that own_events parses; any other event is ignored.
// gap_until() compares the identities before and after a gap to tell a reboot, a crash and a killed
// process apart.
#include "box/recording_log.hpp"

#include "box/waiting_events.hpp"
#include "process/failure.hpp"

namespace cli
{

void recording_log::take(const vesk_scan_item &item)
{
    if (item.kind == VESK_SCAN_SENSOR_VALUES) {
        last_time_ = item.values->timestamp.tv.tv_sec;
    } else if (item.kind == VESK_SCAN_EVENT && item.event != nullptr &&
               item.event->text != nullptr) {
        take_event(item.event->timestamp.tv.tv_sec, item.event->text);
    }
}

void recording_log::take_event(int64_t time, const std::string &text)
{
    const std::optional<parsed_event> event = parse_event_text(text);
    if (!event) {
        return;
    }
    if (event->word == event_word::start || event->word == event_word::resume) {
        state_ = state::begun;
        take_identity(*event);
    } else if (event->word == event_word::machine) {
        // The beginning may be in the history by now.
        state_ = state_ == state::silent ? state::begun : state_;
        take_identity(*event);
    } else if (event->word == event_word::end) {
        state_ = state::ended;
        end_time_ = time;
        end_reason_ = event->value("reason");
        end_error_ = event->value("error");
        take_identity(*event);
    } else if (event->word == event_word::gap) {
        take_gap(*event);
    }
    last_time_ = time;
}

void recording_log::take_identity(const parsed_event &event)
{
    if (const std::optional<int64_t> interval = event.number("interval")) {
        interval_ = interval;
    }
    machine_identity who = identity_in(event);
    if (who.host.empty() && who.machine_id.empty() && who.boot_id.empty() && who.kernel.empty()) {
        return;
    }
    identity_ = std::move(who);
    version_ = event.value("version");
}

void recording_log::take_gap(const parsed_event &event)
{
    if (std::optional<gap> found = gap_in(event)) {
        ++number_of_gaps_;
        gaps_.push_back(std::move(*found));
    }
    if (gaps_.size() > most_gaps) {
        gaps_.pop_front();
    }
}

// A failure to read them is ignored here; the code that writes to the file reports it.
void recording_log::take_waiting(const box &found)
{
    try {
        for (const event &waiting : waiting_events_of(found)) {
            take_event(waiting.time, waiting.text);
        }
    } catch (const failure &) {
        return;
    }
}

recording_log read_recording_log(const box &found)
{
    recording_log log;
    for (const stored_file *file : found.current_buffers()) {
        scan_file(*file, [&](const vesk_scan_item &item) { log.take(item); });
    }
    log.take_waiting(found);
    return log;
}

std::optional<gap> gap_until(const recording_log &past, const machine_identity &machine,
                             int64_t now)
{
    if (!past.last_time()) {
        return std::nullopt;
    }
    const std::string before = past.identity() ? past.identity()->boot_id : "";
    const bool is_known = !before.empty() && !machine.boot_id.empty();
    const bool same_boot = is_known && before == machine.boot_id;
    std::string_view reason = gap_reason::unknown;
    if (past.last_state() == recording_log::state::ended) {
        reason = is_known && !same_boot ? gap_reason::reboot : gap_reason::stop;
    } else if (past.last_state() == recording_log::state::begun && is_known) {
        reason = same_boot ? gap_reason::killed : gap_reason::crash;
    }
    return gap{*past.last_time(), now, now - *past.last_time(), std::string(reason), 0};
}

} // namespace cli
