// Reads the files of a box once and counts what they hold. Damage is listed, up to a number for
// each file, and does not stop the reading.
#include "box/box_report.hpp"

#include <algorithm>
#include <functional>

#include <vesk/vesk_limits.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

void add_events(const vesk_hb_record_events &events, event_counts &counts)
{
    const event_counts more = {events.n_type1_events, events.n_type2_events, events.n_type3_events,
                               events.n_type4_events, events.n_type5_events};
    std::transform(counts.begin(), counts.end(), more.begin(), counts.begin(), std::plus<>());
}

void count_item(const vesk_scan_item &item, file_contents &found)
{
    if (is_damage(item)) {
        if (found.damage.size() < most_told_of_a_kind) {
            found.damage.push_back(damage_text(item));
        } else {
            ++found.more_damage;
        }
    }
    if (item.kind != VESK_SCAN_DAMAGE) {
        found.readable = true;
        found.capacity = item.capacity;
    }
    switch (item.kind) {
    case VESK_SCAN_SENSOR_NAMES:
        ++found.sensor_changes;
        found.sensors = sensor_names(*item.names);
        break;
    case VESK_SCAN_SENSOR_VALUES:
        ++found.samples;
        found.span.add(item.values->timestamp.tv.tv_sec, item.values->timestamp.tv.tv_sec);
        break;
    case VESK_SCAN_INTERVAL:
        ++found.intervals;
        add_events(item.interval->events, found.counted_events);
        found.span.add(item.interval->start.tv.tv_sec, item.interval->end.tv.tv_sec);
        break;
    case VESK_SCAN_EVENT:
        ++found.events;
        break;
    case VESK_SCAN_BARE_EVENT:
        ++found.bare_events;
        break;
    case VESK_SCAN_HEADER:
    case VESK_SCAN_DAMAGE:
        break;
    }
}

file_contents read_contents(const stored_file &file, recording_log &log)
{
    file_contents found;
    found.file = &file;
    if (file.missing) {
        found.damage.push_back(file.problem);
        return found;
    }
    try {
        scan_file(file, [&](const vesk_scan_item &item) {
            count_item(item, found);
            log.take(item);
        });
    } catch (const read_failure &reason) {
        found.unread = reason.what();
        found.failed = reason.code() == exit_failed;
    }
    return found;
}

} // namespace

void time_span::add(int64_t first, int64_t last)
{
    from = any ? std::min(from, first) : first;
    to = any ? std::max(to, last) : last;
    any = true;
}

void time_span::add(const time_span &other)
{
    if (other.any) {
        add(other.from, other.to);
    }
}

box_report make_report(const std::string &name)
{
    box_report result;
    result.what = find_box(name);
    const box &what = result.what;
    result.bytes = what.is_file ? 0 : what.state.size;
    result.waiting = report_waiting_events(what);
    if (!what.is_file) {
        result.foreign = foreign_companions(what.name);
    }
    result.damaged = (!what.is_file && what.state.error != 0) || result.waiting.is_damaged();
    for (const stored_file &file : what.files) {
        file_contents found = read_contents(file, result.log);
        result.bytes += file.size;
        result.all.samples += found.samples;
        result.all.intervals += found.intervals;
        result.all.events += found.events;
        result.all.bare_events += found.bare_events;
        std::transform(found.counted_events.begin(), found.counted_events.end(),
                       result.all.counted_events.begin(), result.all.counted_events.begin(),
                       std::plus<>());
        const bool empty = !file.missing && found.unread.empty() && file.size == 0;
        result.all.readable = result.all.readable || found.readable || empty;
        if (!found.sensors.empty()) {
            result.all.sensors = found.sensors;
        }
        (file.is_history() ? result.history : result.raw).add(found.span);
        result.damaged = result.damaged || !found.damage.empty();
        result.incomplete = result.incomplete || !found.unread.empty();
        result.all.failed = result.all.failed || found.failed;
        result.files.push_back(std::move(found));
    }
    result.log.take_waiting(what);
    return result;
}

const char *stage_name(uint32_t stage)
{
    switch (stage) {
    case VESK_ZCF_STATE_C00:
        return "c00";
    case VESK_ZCF_STATE_CC0:
        return "cc0";
    case VESK_ZCF_STATE_CCC:
        return "ccc";
    case VESK_ZCF_STATE_HCC:
        return "hcc";
    default:
        return "unknown";
    }
}

const char *role_name(const stored_file &file, bool lone)
{
    if (lone) {
        return file.is_history() ? "history" : "current";
    }
    switch (file.role) {
    case VESK_SCAN_HISTORY:
        return "history";
    case VESK_SCAN_FULL:
        return "full";
    case VESK_SCAN_OPEN:
        return "open";
    case VESK_SCAN_ORPHAN:
        break;
    }
    return "other";
}

} // namespace cli
