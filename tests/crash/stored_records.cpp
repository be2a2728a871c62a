// Reads the records of a box as lines of text, and finds those that are missing although they were
// not damaged.
#include "crash/stored_records.hpp"

#include <algorithm>
#include <set>

#include <vesk/vesk_scan.h>

namespace
{

struct record_list {
    std::string file;
    std::vector<stored_record> records;
};

std::string text_of(const vesk_scan_item &item)
{
    char text[64];
    std::string what;
    if (item.event != nullptr) {
        snprintf(text, sizeof text, "event %u ", item.event->type);
        return text + std::string(item.event->text);
    }
    if (item.values != nullptr) {
        snprintf(text, sizeof text, "sample %ld",
                 static_cast<long>(item.values->timestamp.tv.tv_sec));
        what = text;
        const uint32_t n = vesk_cb_record_sensor_values_get_number_values(item.values);
        for (uint32_t i = 0; i < n; ++i) {
            snprintf(text, sizeof text, " %a",
                     static_cast<double>(vesk_cb_record_sensor_values_get_values(item.values)[i]));
            what += text;
        }
        return what;
    }
    const vesk_hb_record_sensor_values &interval = *item.interval;
    snprintf(text, sizeof text, "interval %ld %ld %u", static_cast<long>(interval.start.tv.tv_sec),
             static_cast<long>(interval.end.tv.tv_sec), interval.events.n_type3_events);
    what = text;
    for (uint32_t i = 0; i < vesk_hb_record_sensor_values_get_number_hist_values(&interval); ++i) {
        snprintf(text, sizeof text, " %u:%a", interval.hvalues[i].count,
                 static_cast<double>(interval.hvalues[i].sum));
        what += text;
    }
    return what;
}

int take_record(const vesk_scan_item *item, void *context)
{
    auto *list = static_cast<record_list *>(context);
    if (item->values != nullptr || item->event != nullptr || item->interval != nullptr) {
        list->records.push_back({list->file, static_cast<std::size_t>(item->offset),
                                 static_cast<std::size_t>(item->length), text_of(*item)});
    }
    return 0;
}

int take_named_file(const vesk_scan_file *file, void *context)
{
    auto *list = static_cast<record_list *>(context);
    list->file = file->filename;
    if (file->role != VESK_SCAN_ORPHAN && file->missing == 0) {
        (void)vesk_scan_buffer(file->filename, take_record, context);
    }
    return 0;
}

int take_any_file(const vesk_scan_file *file, void *context)
{
    auto *list = static_cast<record_list *>(context);
    list->file = file->filename;
    if (file->missing == 0) {
        (void)vesk_scan_buffer(file->filename, take_record, context);
    }
    return 0;
}

std::vector<stored_record> read_records(int (*visit)(const vesk_scan_file *, void *))
{
    record_list list;
    (void)vesk_scan_files("r", visit, &list);
    return list.records;
}

bool is_hit(const stored_record &record, const std::vector<wound> &wounds)
{
    return std::any_of(wounds.begin(), wounds.end(), [&](const wound &one) {
        return one.file == record.file && one.from < record.offset + record.length &&
               one.to > record.offset;
    });
}

} // namespace

std::vector<stored_record> read_named_records()
{
    return read_records(take_named_file);
}

std::vector<stored_record> read_all_records()
{
    return read_records(take_any_file);
}

std::vector<std::string> missing_records(const std::vector<stored_record> &before,
                                         const std::vector<wound> &wounds,
                                         const std::vector<stored_record> &found)
{
    std::multiset<std::string> there;
    for (const stored_record &record : found) {
        there.insert(record.what);
    }
    std::vector<std::string> missing;
    for (const stored_record &record : before) {
        const auto place = there.find(record.what);
        if (place != there.end()) {
            there.erase(place);
        } else if (!is_hit(record, wounds)) {
            missing.push_back(record.what);
        }
    }
    return missing;
}
