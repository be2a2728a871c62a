// Moves events from BASE.events into the box as soon as there is a sample that they can follow, in
// their order and each of them once. Before an event is put into the box its record is marked with
// the number of equal events at the end of the box; after a crash that number tells whether the
// event had arrived.
#include "box/waiting_events.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <tuple>
#include <unistd.h>

#include "box/box_writer.hpp"
#include "box/event_record.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::size_t most_alike = 9999; // four digits

using identity = std::tuple<uint32_t, int64_t, std::string>;

identity identity_of(const event &what)
{
    return {what.type, what.time, what.text};
}

// The events among the raw samples, oldest first.
std::vector<identity> events_in(const box &found)
{
    std::vector<identity> events;
    for (const stored_file *file : found.current_buffers()) {
        scan_file(*file, [&](const vesk_scan_item &item) {
            if (item.kind == VESK_SCAN_EVENT && item.event != nullptr &&
                item.event->text != nullptr) {
                events.emplace_back(item.event->type, item.event->timestamp.tv.tv_sec,
                                    item.event->text);
            }
        });
    }
    return events;
}

// How many events like this one @p events ends with.
std::size_t alike_at_end(const std::vector<identity> &events, const event &what)
{
    const identity wanted = identity_of(what);
    const auto other = std::find_if(events.rbegin(), events.rend(),
                                    [&](const identity &each) { return each != wanted; });
    return std::min<std::size_t>(static_cast<std::size_t>(other - events.rbegin()), most_alike);
}

// Whether a process that was killed had put the event into the box already.
bool is_in_box(const waiting_record &waiting, const std::vector<identity> &events)
{
    std::size_t before = 0;
    const char *end = waiting.mark.data() + waiting.mark.size();
    const auto [rest, error] = std::from_chars(waiting.mark.data(), end, before);
    return error == std::errc() && rest == end && alike_at_end(events, waiting.what) > before;
}

} // namespace

std::vector<event> waiting_events_of(const box &found)
{
    std::vector<event> events;
    if (found.is_file) {
        return events;
    }
    const waiting_file file = read_waiting_file(found.name);
    if (file.records.empty()) {
        return events;
    }
    const std::vector<identity> recorded = events_in(found);
    for (const waiting_record &each : file.records) {
        if (!is_in_box(each, recorded)) {
            events.push_back(each.what);
        }
    }
    return events;
}

const char *waiting_report::condition_name() const
{
    switch (is) {
    case condition::absent:
        return "absent";
    case condition::whole:
        return "whole";
    case condition::damaged:
        return "damaged";
    case condition::foreign:
        return "foreign";
    }
    return "unknown";
}

std::string waiting_report::text() const
{
    if (is == condition::foreign) {
        return "is no file of waiting events, not looked into";
    }
    std::string words = counted(events, "event") + (events == 1 ? " waits" : " wait");
    if (is_damaged()) {
        words += fmt::format(", {} at {} hold no event", counted(unreadable_bytes, "byte"),
                             first_unreadable);
    }
    return words;
}

waiting_report report_waiting_events(const box &found)
{
    using condition = waiting_report::condition;
    waiting_report report;
    report.path = waiting_file_of(found.name);
    if (found.is_file) {
        return report;
    }
    try {
        const waiting_file file = read_waiting_file(found.name);
        if (file.is_there) {
            report.is = file.damage.empty() ? condition::whole : condition::damaged;
            report.bytes = file.size;
            report.events = waiting_events_of(found).size();
            report.unreadable_bytes = file.unreadable_bytes();
            report.first_unreadable = file.damage.empty() ? 0 : file.damage.front().offset;
        }
    } catch (const foreign_waiting_file &) {
        report.is = condition::foreign;
    }
    return report;
}

waiting_events::waiting_events(box_writer &box, const std::string &base) : box_(box), base_(base)
{
    take_over();
}

event_result waiting_events::write(const event &what)
{
    make_event_record(what);
    count_ = read_waiting_file(base_).records.size();
    if (count_ == 0) {
        try {
            if (box_.write(what) == event_result::recorded) {
                return event_result::recorded;
            }
        } catch (const storage_failure &) {
            // The file may have room although the box has none. But the event may have come into
            // the box in spite of the failure, and must not come there twice.
            if (alike_at_end(events_in(find_box(base_)), what) > 0) {
                throw;
            }
        }
    }
    append_to_waiting_file(base_, what, count_);
    ++count_;
    return event_result::waits;
}

void waiting_events::take_over()
{
    try {
        write_all();
        complained_ = false;
    } catch (const failure &reason) {
        if (!complained_) {
            note(fmt::format("{}; the events that wait are tried again", reason.what()));
        }
        complained_ = true;
    }
}

void waiting_events::put_into_box(const std::vector<waiting_record> &waiting)
{
    std::vector<identity> recorded = events_in(find_box(base_));
    const waiting_marks marks(base_);
    for (const waiting_record &each : waiting) {
        if (!is_in_box(each, recorded)) {
            marks.set(each, fmt::format("{:04}", alike_at_end(recorded, each.what)));
            if (box_.write(each.what) != event_result::recorded) {
                marks.set(each, waiting_mark_waits);
                return;
            }
            recorded.push_back(identity_of(each.what));
        }
        marks.set(each, waiting_mark_done);
        --count_;
    }
}

void waiting_events::write_all()
{
    const waiting_file file = read_waiting_file(base_);
    count_ = file.records.size();
    if (!file.is_there) {
        return;
    }
    if (!file.records.empty()) {
        put_into_box(file.records);
    }
    if (count_ > 0) {
        return;
    }
    const std::string path = waiting_file_of(base_);
    if (!file.damage.empty()) {
        keep_unreadable_apart(base_);
        note(fmt::format("{}: {} hold no event: kept in {}.torn", path,
                         counted(file.unreadable_bytes(), "byte"), path));
    }
    unlink(path.c_str());
}

} // namespace cli
