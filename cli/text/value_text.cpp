// Parses and formats numbers and times. Parsing is strict and gives the reason for every refusal;
// formatting writes text that parses back to the same value. Times are in the time zone of the
// process, and a day or hour that does not exist is refused.
#include "text/value_text.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>
#include <limits>

#include <vesk/timestamp.h>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::size_t time_length = 17;

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

std::string_view without_blanks(std::string_view text)
{
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return result;
}

enum class outcome { number, not_a_number, too_large };

outcome read_value(std::string_view text, float &value)
{
    text = without_blanks(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return outcome::not_a_number;
    }
    if (!is_digit(text.front()) && text.front() != '.') {
        const std::string word = lower(text);
        if (word == "nan") {
            value = std::numeric_limits<float>::quiet_NaN();
        } else if (word == "inf" || word == "infinity") {
            value = std::numeric_limits<float>::infinity();
        } else {
            return outcome::not_a_number;
        }
        value = negative ? -value : value;
        return outcome::number;
    }
    const char *end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, value);
    if (result.ptr != end || result.ec == std::errc::invalid_argument) {
        return outcome::not_a_number;
    }
    if (result.ec == std::errc::result_out_of_range) {
        // from_chars() gives the same result for numbers that are too large and too small; strtof()
        // distinguishes them.
        value = std::strtof(std::string(text).c_str(), nullptr);
    }
    if (std::isinf(value)) {
        return outcome::too_large;
    }
    value = negative ? -value : value;
    return outcome::number;
}

std::string quoted(std::string_view text)
{
    constexpr std::size_t enough = 40;
    if (text.size() > enough) {
        return "'" + printable(text.substr(0, enough)) + "...'";
    }
    return "'" + printable(text) + "'";
}

int two_digits(std::string_view text, std::size_t at)
{
    return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

int days_in_month(int year, int month)
{
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

void check_calendar(std::string_view text)
{
    const int year = two_digits(text, 0) * 100 + two_digits(text, 2);
    const int month = two_digits(text, 4);
    const int day = two_digits(text, 6);
    if (month < 1 || month > 12 || day < 1 || day > days_in_month(year, month)) {
        throw bad_text("there is no such day: " + quoted(text));
    }
    // 60 is a leap second.
    if (two_digits(text, 9) > 23 || two_digits(text, 12) > 59 || two_digits(text, 15) > 60) {
        throw bad_text("there is no such time of day: " + quoted(text));
    }
}

} // namespace

float parse_value(std::string_view text)
{
    float value = 0;
    switch (read_value(text, value)) {
    case outcome::number:
        return value;
    case outcome::too_large:
        throw bad_text(quoted(text) + " is too large for a single-precision number");
    case outcome::not_a_number:
        break;
    }
    if (without_blanks(text).empty()) {
        throw bad_text("is empty (a missing value is written nan)");
    }
    throw bad_text(quoted(text) + " is not a number");
}

float take_value(std::string_view &fields)
{
    const char *begin = fields.data();
    const char *end = begin + fields.size();
    const char *number = begin != end && *begin == '-' ? begin + 1 : begin;
    if (number != end && is_digit(*number)) {
        float value = 0;
        const auto result = std::from_chars(number, end, value);
        if (result.ec == std::errc{} && (result.ptr == end || *result.ptr == ',')) {
            fields.remove_prefix(static_cast<std::size_t>(result.ptr - begin));
            return number == begin ? value : -value;
        }
    }
    const float value = parse_value(fields.substr(0, fields.find(',')));
    fields.remove_prefix(std::min(fields.find(','), fields.size()));
    return value;
}

bool is_value(std::string_view text)
{
    float value = 0;
    return read_value(text, value) != outcome::not_a_number;
}

void append_value(std::string &out, float value)
{
    if (std::isnan(value)) {
        out += "nan";
        return;
    }
    fmt::format_to(std::back_inserter(out), "{}", value);
}

bool has_time_shape(std::string_view text)
{
    if (text.size() != time_length) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool colon = i == 8 || i == 11 || i == 14;
        if (colon ? text[i] != ':' : !is_digit(text[i])) {
            return false;
        }
    }
    return true;
}

int64_t parse_time(std::string_view text)
{
    if (!has_time_shape(text)) {
        if (text.size() > time_length && has_time_shape(text.substr(0, time_length))) {
            throw bad_text("the time " + quoted(text) +
                           " goes on after the seconds (times have no zone and no fraction)");
        }
        throw bad_text(quoted(text) + " is not a time of the form YYYYMMDD:HH:MM:SS");
    }
    check_calendar(text);
    timestamp time = {};
    const std::string copy(text);
    if (timestamp_init_from_string(&time, copy.c_str()) < 0) {
        throw bad_text("the time " + quoted(text) + " is out of range (1901 to 2038)");
    }
    const int64_t seconds = time.tv.tv_sec;
    if (seconds == 0) {
        throw bad_text("the time " + quoted(text) +
                       " is second 0 of the epoch, which means no time");
    }
    // mktime() changes an hour that the clock skips in spring, which is refused. Only a leap second
    // may be changed.
    if (two_digits(text, 15) != 60 && format_time(seconds) != text) {
        throw bad_text("the time " + quoted(text) +
                       " does not exist in the local time zone (for files in UTC: --utc)");
    }
    return seconds;
}

std::string format_time(int64_t seconds)
{
    timestamp time = {};
    timeval tv = {};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(seconds);
    if (timestamp_init_from_timeval(&time, &tv) < 0) {
        return "(time out of range)";
    }
    char buffer[32];
    return timestamp_to_string(&time, buffer, sizeof buffer);
}

void use_utc()
{
    setenv("TZ", "UTC0", 1);
    tzset();
}

} // namespace cli
