// Writes and parses the records of the file BASE.events. The bytes of the file go in, whole records
// with correct checksums come out, and everything else is counted as unreadable. A record of an
// event that no box can hold is passed over, because it would keep back all events behind it for
// ever.
#include "box/waiting_record.hpp"

#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <zlib.h>

#include "box/event_record.hpp"

namespace cli
{
namespace
{

constexpr std::string_view magic = "vesk-event ";
constexpr std::size_t mark_at = magic.size();
constexpr std::size_t checksum_at = mark_at + waiting_mark_waits.size() + 1;
constexpr std::size_t checked_at = checksum_at + 9;
constexpr std::size_t longest_head = 80;

std::string checksum_of(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const Bytef *>(text.data());
    return fmt::format("{:08x}", crc32(0, bytes, static_cast<uInt>(text.size())));
}

// The next number of a line, and what ends it.
template <typename Number>
bool take_number(std::string_view &text, Number &number, char end)
{
    const char *last = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || rest == last || *rest != end) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()) + 1);
    return true;
}

// An event that no box can hold would block all events behind it, so it is passed over.
bool is_recordable(const event &what)
{
    try {
        make_event_record(what);
        return true;
    } catch (const unrecordable_event &) {
        return false;
    }
}

// The record that begins with @p text, or nothing.
std::optional<waiting_record> parse(std::string_view text)
{
    const std::size_t line_end = text.substr(0, longest_head).find('\n');
    if (line_end == std::string_view::npos || line_end < checked_at ||
        text[checksum_at - 1] != ' ' || text[checked_at - 1] != ' ') {
        return std::nullopt;
    }
    waiting_record found = {0, 0, std::string(text.substr(mark_at, waiting_mark_waits.size())), {}};
    std::string_view rest = text.substr(checked_at);
    std::size_t length = 0;
    if (!take_number(rest, found.what.type, ' ') || !take_number(rest, found.what.time, ' ') ||
        !take_number(rest, length, '\n') || length > longest_event || rest.size() < length + 1) {
        return std::nullopt;
    }
    found.what.text = rest.substr(0, length);
    found.size = line_end + 1 + length + 1;
    const std::string_view checked = text.substr(checked_at, found.size - checked_at);
    if (text.substr(checksum_at, 8) != checksum_of(checked) || !is_recordable(found.what)) {
        return std::nullopt;
    }
    return found;
}

} // namespace

std::size_t waiting_record::mark_offset() const
{
    return offset + mark_at;
}

std::string waiting_record_text(const event &what)
{
    const std::string checked =
        fmt::format("{} {} {}\n{}\n", what.type, what.time, what.text.size(), what.text);
    return fmt::format("{}{} {} {}", magic, waiting_mark_waits, checksum_of(checked), checked);
}

waiting_content parse_waiting_records(std::string_view bytes)
{
    waiting_content content;
    std::size_t end_of_latest = 0;
    const auto note_gap_before = [&](std::size_t at) {
        if (at > end_of_latest) {
            content.damage.push_back({end_of_latest, at - end_of_latest});
        }
    };
    // The checksum proves a record behind another one even where its first word has rotted.
    for (std::size_t at = 0; at < bytes.size();) {
        std::optional<waiting_record> found = parse(bytes.substr(at));
        if (!found) {
            at = bytes.find(magic, at + 1);
            continue;
        }
        note_gap_before(at);
        found->offset = at;
        at += found->size;
        end_of_latest = at;
        content.records.push_back(std::move(*found));
    }
    note_gap_before(bytes.size());
    return content;
}

bool is_waiting_content(std::string_view bytes)
{
    return magic.starts_with(bytes.substr(0, magic.size())) ||
           bytes.find_first_not_of('\0') == std::string_view::npos ||
           !parse_waiting_records(bytes).records.empty();
}

} // namespace cli
