// Parses and formats durations such as "1h30m". The units must descend, so that slips such as
// "30m1h" are refused instead of being guessed at. Seconds are the smallest unit, because times in
// a box are whole seconds.
#include "text/duration.hpp"

#include <charconv>
#include <fmt/format.h>
#include <utility>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr int64_t longest = int64_t{100} * 366 * 86400;

int64_t seconds_of(std::string_view unit)
{
    if (unit == "s") {
        return 1;
    }
    if (unit == "m" || unit == "min") {
        return 60;
    }
    if (unit == "h") {
        return 3600;
    }
    if (unit == "d") {
        return 86400;
    }
    return unit == "w" ? 7 * 86400 : 0;
}

[[noreturn]] void refuse(std::string_view text, std::string_view option, std::string_view why)
{
    throw failure(exit_usage, fmt::format("{} {}: {}", option, text, why));
}

// The letters at the beginning of @p rest, or what makes a fraction.
std::string_view unit_at(std::string_view rest)
{
    const auto end = rest.find_first_of("0123456789+-");
    return rest.substr(0, end);
}

} // namespace

int64_t parse_duration(std::string_view text, std::string_view option)
{
    int64_t total = 0;
    int64_t last_factor = 0; // none yet
    std::string_view rest = text;
    do {
        int64_t number = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(error == std::errc() ? static_cast<std::size_t>(end - rest.data()) : 0);
        const std::string_view unit = unit_at(rest);
        rest.remove_prefix(unit.size());
        if (unit == "ms" || unit == "us" || unit == "ns" || unit.starts_with('.')) {
            refuse(text, option, "timestamps are whole seconds, so this must be too");
        }
        const bool is_first = last_factor == 0;
        const int64_t factor = unit.empty() && rest.empty() && is_first ? 1 : seconds_of(unit);
        // "30m1h" and "1h-30m" are slips, not durations.
        const bool in_order = is_first || (factor < last_factor && number >= 0);
        if (error != std::errc() || factor == 0 || !in_order) {
            refuse(text, option, "not a duration such as 30s, 5m, 2h or 1d");
        }
        if (number > (longest - total) / factor) {
            refuse(text, option, "is longer than a century");
        }
        if (number < 0) {
            refuse(text, option, "must be at least 1s: timestamps are whole seconds");
        }
        total += number * factor;
        last_factor = factor;
    } while (!rest.empty());
    if (total < 1) {
        refuse(text, option, "must be at least 1s: timestamps are whole seconds");
    }
    return total;
}

std::string format_duration(int64_t seconds)
{
    std::string text;
    for (const auto &[factor, unit] :
         {std::pair{86400, 'd'}, std::pair{3600, 'h'}, std::pair{60, 'm'}, std::pair{1, 's'}}) {
        if (seconds / factor != 0) {
            text += fmt::format("{}{}", seconds / factor, unit);
            seconds %= factor;
        }
    }
    return text.empty() ? "0s" : text;
}

std::string format_rough_duration(int64_t seconds)
{
    int64_t finest = 1;
    for (const auto &[from, unit] : {std::pair{86400, 3600}, std::pair{3600, 60}}) {
        if (seconds >= from) {
            finest = unit;
            break;
        }
    }
    return format_duration(seconds / finest * finest);
}

} // namespace cli
