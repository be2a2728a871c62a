// Takes the ways of writing a moment to pieces, one function for each part of one. What the
// calendar and the local clock make of the parts is in text/civil_time.
#include "text/time_text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "process/failure.hpp"
#include "text/civil_time.hpp"
#include "text/duration.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

// Takes texts to pieces from the left.
class cursor
{
public:
    explicit cursor(std::string_view text) : rest_(text) {}

    bool at_end() const { return rest_.empty(); }
    bool skip(char c)
    {
        const bool is_there = rest_.starts_with(c);
        rest_.remove_prefix(is_there ? 1 : 0);
        return is_there;
    }
    bool skip_any(std::string_view characters)
    {
        const bool is_there =
            !rest_.empty() && characters.find(rest_.front()) != std::string_view::npos;
        rest_.remove_prefix(is_there ? 1 : 0);
        return is_there;
    }
    // Exactly so many digits.
    std::optional<int> digits(std::size_t count)
    {
        int number = 0;
        if (rest_.size() < count ||
            !std::all_of(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(count),
                         [](char c) { return c >= '0' && c <= '9'; })) {
            return std::nullopt;
        }
        std::from_chars(rest_.data(), rest_.data() + count, number);
        rest_.remove_prefix(count);
        return number;
    }
    bool two_digits(int &field)
    {
        const std::optional<int> number = digits(2);
        field = number.value_or(0);
        return number.has_value();
    }

private:
    std::string_view rest_;
};

struct read_moment {
    civil_time time;
    std::optional<int64_t> offset; // none for a local time
};

bool is_in_calendar(const civil_time &time)
{
    // 60 is a leap second.
    return time.month >= 1 && time.month <= 12 && time.day >= 1 &&
           time.day <= days_in(time.year, time.month) && time.hour <= 23 && time.minute <= 59 &&
           time.second <= 60 && time.year >= 1;
}

bool read_date(cursor &text, civil_time &time)
{
    const std::optional<int> year = text.digits(4);
    time.year = year.value_or(0);
    return year && text.skip('-') && text.two_digits(time.month) && text.skip('-') &&
           text.two_digits(time.day);
}

// "23:59", "23:59:59" or "23:59:59.999".
bool read_clock(cursor &text, civil_time &time)
{
    if (!text.two_digits(time.hour) || !text.skip(':') || !text.two_digits(time.minute)) {
        return false;
    }
    if (!text.skip(':')) {
        return true;
    }
    if (!text.two_digits(time.second)) {
        return false;
    }
    if (text.skip_any(".,")) {
        if (!text.digits(1)) {
            return false;
        }
        while (text.digits(1)) {
        }
    }
    return true;
}

// "Z", "+01:00", "+0100", "+01" or nothing.
bool read_offset(cursor &text, std::optional<int64_t> &offset)
{
    if (text.at_end()) {
        return true;
    }
    if (text.skip_any("Zz")) {
        offset = 0;
        return text.at_end();
    }
    const bool is_west = text.skip('-');
    if (!is_west && !text.skip('+')) {
        return false;
    }
    int hours = 0;
    int minutes = 0;
    if (!text.two_digits(hours)) {
        return false;
    }
    if (!text.at_end()) {
        text.skip(':');
        if (!text.two_digits(minutes)) {
            return false;
        }
    }
    offset = (is_west ? -1 : 1) * (int64_t{hours} * 3600 + minutes * 60);
    return text.at_end() && hours <= 23 && minutes <= 59;
}

bool read_iso(std::string_view whole, read_moment &found)
{
    cursor text(whole);
    if (!read_date(text, found.time)) {
        return false;
    }
    if (text.at_end()) {
        return true;
    }
    return text.skip_any("Tt ") && read_clock(text, found.time) && read_offset(text, found.offset);
}

// The form of text telemetry, "20240131:23:59:59".
bool read_plain(std::string_view whole, civil_time &time)
{
    if (!has_time_shape(whole)) {
        return false;
    }
    cursor text(whole);
    time.year = text.digits(4).value_or(0);
    return text.two_digits(time.month) && text.two_digits(time.day) && text.skip(':') &&
           text.two_digits(time.hour) && text.skip(':') && text.two_digits(time.minute) &&
           text.skip(':') && text.two_digits(time.second);
}

std::optional<int64_t> read_epoch(std::string_view text)
{
    const bool is_marked = text.starts_with('@');
    text.remove_prefix(is_marked ? 1 : 0);
    // Only behind "@" may a number of seconds have a sign; otherwise the sign means a distance from
    // the end.
    if (text.empty() || (!is_marked && (text.front() < '0' || text.front() > '9'))) {
        return std::nullopt;
    }
    int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    // A time beyond the year 9999 can only be a mistake.
    constexpr int64_t furthest = 253402300799;
    if (error != std::errc() || end != text.data() + text.size() || seconds > furthest ||
        seconds < -furthest) {
        return std::nullopt;
    }
    return seconds;
}

constexpr const char *not_a_time =
    "not a time such as 2024-01-31T23:59:59Z, '2024-01-31 23:59', 1706745599 or -10m (before the "
    "end of the box)";

// Nothing, and why, for what is not an absolute time.
std::optional<int64_t> read_absolute(std::string_view text, twin which, const char *&problem)
{
    if (const std::optional<int64_t> seconds = read_epoch(text)) {
        return seconds;
    }
    read_moment found;
    if (!read_iso(text, found)) {
        found = {};
        if (!read_plain(text, found.time)) {
            problem = not_a_time;
            return std::nullopt;
        }
    }
    if (!is_in_calendar(found.time)) {
        problem = "the calendar has no such time";
        return std::nullopt;
    }
    if (found.offset) {
        return as_if_utc(found.time) - *found.offset;
    }
    const bool is_leap_second = found.time.second == 60;
    found.time.second = is_leap_second ? 59 : found.time.second;
    const std::optional<int64_t> seconds = local_moment(found.time, which);
    if (!seconds) {
        problem = "does not exist in the local time zone, whose clock skips that hour";
        return std::nullopt;
    }
    return *seconds + (is_leap_second ? 1 : 0);
}

// Digits other than 0 behind a point or comma.
bool has_fraction(std::string_view text)
{
    const std::size_t point = text.find_first_of(".,");
    if (point == std::string_view::npos) {
        return false;
    }
    const std::string_view fraction = text.substr(point + 1);
    return fraction.substr(0, fraction.find_first_not_of("0123456789")).find_first_not_of('0') !=
           std::string_view::npos;
}

[[noreturn]] void refuse(std::string_view text, std::string_view option, std::string_view why)
{
    constexpr std::size_t enough = 60;
    throw failure(exit_usage, fmt::format("{} {}{}: {}", option, text.substr(0, enough),
                                          text.size() > enough ? "..." : "", why));
}

// The folder in which the C library looks for zones.
std::string zone_folder()
{
    const char *chosen = getenv("TZDIR");
    return chosen != nullptr && chosen[0] != '\0' ? chosen : "/usr/share/zoneinfo";
}

// A zone is a file that begins so; "Europe" is a folder and "zone.tab" a table.
bool is_zone_file(const std::string &path)
{
    struct closer {
        void operator()(FILE *file) const { (void)std::fclose(file); }
    };
    const std::unique_ptr<FILE, closer> file(std::fopen(path.c_str(), "rbe"));
    std::array<char, 4> magic = {};
    return file && std::fread(magic.data(), 1, magic.size(), file.get()) == magic.size() &&
           std::memcmp(magic.data(), "TZif", magic.size()) == 0;
}

bool is_zone_name(std::string_view name)
{
    constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789_+-/";
    return !name.empty() && name.size() < 256 && name.front() != '/' &&
           name.find_first_not_of(allowed) == std::string_view::npos;
}

} // namespace

std::string iso_time(int64_t seconds, zone where)
{
    std::optional<int64_t> offset;
    if (where == zone::local) {
        offset = local_offset(seconds);
    }
    const civil_time time = civil_of(seconds + offset.value_or(0));
    std::string text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", time.year, time.month,
                                   time.day, time.hour, time.minute, time.second);
    if (!offset) {
        return text + "Z";
    }
    const int64_t distance = *offset < 0 ? -*offset : *offset;
    text +=
        fmt::format("{}{:02}:{:02}", *offset < 0 ? '-' : '+', distance / 3600, distance / 60 % 60);
    // Local mean times of long ago.
    return distance % 60 == 0 ? text : text + fmt::format(":{:02}", distance % 60);
}

void use_time_zone(const std::string &name)
{
    if (name == "UTC") {
        use_utc();
        return;
    }
    if (!is_zone_name(name) || !is_zone_file(zone_folder() + "/" + name)) {
        throw failure(
            exit_usage,
            fmt::format("--tz {}: {} has no such time zone (names are like Europe/Zurich)",
                        name.substr(0, 60), zone_folder()));
    }
    setenv("TZ", (":" + name).c_str(), 1);
    tzset();
}

moment parse_moment(std::string_view text, std::string_view option, twin which)
{
    if (text.starts_with('-')) {
        return {true, -parse_duration(text.substr(1), option)};
    }
    const char *problem = nullptr;
    const std::optional<int64_t> seconds = read_absolute(text, which, problem);
    if (!seconds) {
        refuse(text, option, problem);
    }
    return {false, *seconds};
}

int64_t parse_sample_time(std::string_view text)
{
    constexpr std::size_t plain_length = 17;
    if (has_time_shape(text.substr(0, plain_length))) {
        return parse_time(text);
    }
    const auto quoted = [text] {
        constexpr std::size_t enough = 60;
        return fmt::format("'{}{}'", text.substr(0, enough), text.size() > enough ? "..." : "");
    };
    if (has_fraction(text)) {
        throw bad_text("the time " + quoted() + " has a fraction; times are whole seconds");
    }
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (!text.empty() && digits == std::string_view::npos &&
        (text.size() < 9 || text.size() > 10)) {
        throw bad_text(quoted() +
                       " may be a date or a number of seconds: write 2024-01-31T23:59:59 "
                       "or, for seconds since 1970, @1706745599");
    }
    const char *problem = nullptr;
    const std::optional<int64_t> seconds =
        text.starts_with('-') ? std::nullopt : read_absolute(text, twin::earlier, problem);
    if (!seconds) {
        const bool is_time = problem != nullptr && problem != not_a_time;
        throw bad_text(is_time ? fmt::format("the time {} is wrong: {}", quoted(), problem)
                               : quoted() + " is not a time such as 20240131:23:59:59, "
                                            "2024-01-31T23:59:59Z or 1706745599");
    }
    if (*seconds == 0) {
        throw bad_text("the time " + quoted() + " is second 0 of the epoch, which means no time");
    }
    if (*seconds < INT32_MIN || *seconds > INT32_MAX) {
        throw bad_text("the time " + quoted() + " is out of range (1901 to 2038)");
    }
    return *seconds;
}

void check_range(const range_texts &texts)
{
    if (!texts.last.empty() && (!texts.from.empty() || !texts.to.empty())) {
        throw failure(exit_usage, "--last goes to the end of the box: it needs no --from and --to");
    }
    (void)range_of(texts, 0);
}

time_range range_of(const range_texts &texts, int64_t end)
{
    const auto resolve = [end](const moment &what) {
        return what.from_end ? end + what.seconds : what.seconds;
    };
    if (!texts.last.empty()) {
        // Events may follow the latest sample, and they are what is looked for after a crash.
        return {end - parse_duration(texts.last, "--last"), INT64_MAX};
    }
    time_range range;
    const bool has_from = !texts.from.empty();
    const bool has_to = !texts.to.empty();
    moment from;
    moment to;
    if (has_from) {
        from = parse_moment(texts.from, "--from", twin::earlier);
        range.from = resolve(from);
    }
    if (has_to) {
        to = parse_moment(texts.to, "--to", twin::later);
        range.to = resolve(to);
    }
    // If one time is absolute and the other is counted from the end, they may lie in any order, and
    // the range may be empty. That is no mistake of the user.
    if (has_from && has_to && from.from_end == to.from_end && range.from > range.to) {
        throw failure(exit_usage, "--from is later than --to");
    }
    return range;
}

} // namespace cli
