// Reads every record of a box before a recorder opens it. The recorder trusts its files, and some
// damage in them would end the process. The sensors and the time of the newest record come out, or
// a failure that names the file and the first obstacle in it.
#include "box/box_check.hpp"

#include <fmt/format.h>

#include <vesk/timestamp.h>

#include "box/box.hpp"
#include "box/event.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

[[noreturn]] void refuse_damaged(const std::string &what)
{
    throw failure(exit_damaged, what + "; nothing was written");
}

// Why the recorder could not go on behind or with this item, or nothing.
std::string obstacle_in(const vesk_scan_item &item)
{
    if (item.kind == VESK_SCAN_BARE_EVENT) {
        return fmt::format("the event at {} cannot be read by the recorder", item.offset);
    }
    if (item.error != 0) {
        return damage_text(item);
    }
    if (item.kind == VESK_SCAN_EVENT && item.event->type > last_event_type) {
        return fmt::format("the event at {} is of the unknown type {}", item.offset,
                           item.event->type);
    }
    if (item.kind == VESK_SCAN_SENSOR_VALUES && timestamp_is_null(&item.values->timestamp) != 0) {
        return fmt::format("the sample at {} has no time", item.offset);
    }
    return {};
}

int64_t seconds_of(const timestamp &moment)
{
    timeval tv = {};
    timestamp_to_timeval(&moment, &tv);
    return tv.tv_sec;
}

void take(const vesk_scan_item &item, box_content &content)
{
    if (item.kind == VESK_SCAN_SENSOR_NAMES) {
        for (std::string &name : sensor_names(*item.names)) {
            content.sensors.insert(std::move(name));
        }
    } else if (item.kind == VESK_SCAN_SENSOR_VALUES) {
        content.last_time = seconds_of(item.values->timestamp);
    } else if (item.kind == VESK_SCAN_INTERVAL) {
        content.last_time = seconds_of(item.interval->end);
    }
}

void check_buffer(const stored_file &file, box_content &content)
{
    bool any_names = false;
    bool any = false;
    scan_file(file.path, [&](const vesk_scan_item &item) {
        const std::string obstacle = obstacle_in(item);
        if (!obstacle.empty()) {
            refuse_damaged(file.path + ": " + obstacle);
        }
        any = true;
        any_names = any_names || item.kind == VESK_SCAN_SENSOR_NAMES;
        take(item, content);
    });
    if (!any) {
        refuse_damaged(file.path + ": the header is missing");
    }
    if (!any_names && file.role != VESK_SCAN_OPEN) {
        refuse_damaged(file.path + ": holds nothing");
    }
}

} // namespace

box_content require_sound(const std::string &base)
{
    const box found = find_box(base);
    if (found.state.error != 0) {
        refuse_damaged(found.state.path + ": " + state_words(found.state));
    }
    box_content content;
    for (const stored_file &file : found.files) {
        if (file.missing) {
            refuse_damaged(file.path + ": is missing");
        }
        check_buffer(file, content);
    }
    return content;
}

} // namespace cli
