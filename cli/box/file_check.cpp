// Collects the findings of one file. A check is used again only while file, size and times are the
// same, so that it tells of the file as it is.
#include "box/file_check.hpp"

#include <algorithm>
#include <fmt/format.h>

#include <vesk/error.h>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr finding_kind all_kinds[] = {finding_kind::damage, finding_kind::refused_record,
                                      finding_kind::bare_event};

std::optional<file_stamp> stamp_of(const stored_file &file)
{
    return file.bytes && file.bytes->is_open() ? file.bytes->stamp() : std::nullopt;
}

} // namespace

const char *words_of(finding_kind kind)
{
    switch (kind) {
    case finding_kind::damage:
        return "places without a record";
    case finding_kind::refused_record:
        return "records that readers refuse";
    case finding_kind::bare_event:
        break;
    }
    return "events without a type word";
}

void checked_file::look_at(const vesk_scan_item &item)
{
    samples += item.kind == VESK_SCAN_SENSOR_VALUES ? 1 : 0;
    intervals += item.kind == VESK_SCAN_INTERVAL ? 1 : 0;
    const bool bare = item.kind == VESK_SCAN_BARE_EVENT;
    events += bare || item.kind == VESK_SCAN_EVENT ? 1 : 0;
    if (bare) {
        add(finding_kind::bare_event,
            {item.offset, item.length, item.error,
             fmt::format("the event at {} lacks its type word", item.offset)});
    } else if (is_damage(item)) {
        add(item.kind == VESK_SCAN_DAMAGE ? finding_kind::damage : finding_kind::refused_record,
            {item.offset, item.length, item.error, damage_text(item)});
    }
}

void checked_file::add(finding_kind kind, const file_finding &what)
{
    if (++found[static_cast<std::size_t>(kind)] <= most_told_of_a_kind) {
        findings.push_back(what);
    }
}

uint64_t checked_file::unlisted(finding_kind kind) const
{
    const uint64_t count = found[static_cast<std::size_t>(kind)];
    return count - std::min<uint64_t>(count, most_told_of_a_kind);
}

std::string checked_file::contents_text() const
{
    if (file->missing) {
        return file->problem;
    }
    const std::string records =
        file->is_history() ? counted(intervals, "interval") : counted(samples, "sample");
    const std::string and_events = events > 0 ? ", " + counted(events, "event") : "";
    return fmt::format("{}{}, {}", records, and_events, counted(file->size, "byte"));
}

std::vector<std::string> checked_file::lines() const
{
    std::vector<std::string> result;
    if (file->missing) {
        return result;
    }
    for (const file_finding &what : findings) {
        result.push_back(what.what);
    }
    for (const finding_kind kind : all_kinds) {
        if (unlisted(kind) > 0) {
            result.push_back(fmt::format("and {} more {}", unlisted(kind), words_of(kind)));
        }
    }
    return result;
}

checked_file check_file(const stored_file &file)
{
    checked_file found = {};
    found.file = &file;
    if (file.missing) {
        found.add(finding_kind::damage, {0, 0, QE_ERROR_OPEN, file.problem});
        return found;
    }
    scan_file(file, [&](const vesk_scan_item &item) { found.look_at(item); });
    return found;
}

kept_checks::scan::scan(const stored_file &file)
    : check_{}, stamp_(stamp_of(file)), was_live_(file.is_live)
{
    check_.file = &file;
}

// What a torn end counts for depends on whether somebody writes to the file.
std::optional<checked_file> kept_checks::check_of(const stored_file &file) const
{
    const auto same = std::find_if(scans_.begin(), scans_.end(), [&](const scan &one) {
        return one.check_.file->path == file.path && one.was_live_ == file.is_live;
    });
    if (same == scans_.end() || !same->stamp_ || stamp_of(file) != same->stamp_) {
        return std::nullopt;
    }
    checked_file found = same->check_;
    found.file = &file;
    return found;
}

} // namespace cli
