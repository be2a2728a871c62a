// Reading times such as "10s" and "2h".
#include "text/duration.hpp"

#include <charconv>
#include <fmt/format.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

int64_t seconds_of(std::string_view unit)
{
    if (unit.empty() || unit == "s") {
        return 1;
    }
    if (unit == "m" || unit == "min") {
        return 60;
    }
    if (unit == "h") {
        return 3600;
    }
    return unit == "d" ? 86400 : 0;
}

[[noreturn]] void refuse(std::string_view text, std::string_view option, std::string_view why)
{
    throw failure(exit_usage, fmt::format("{} {}: {}", option, text, why));
}

} // namespace

int64_t parse_duration(std::string_view text, std::string_view option)
{
    constexpr int64_t longest = int64_t{100} * 366 * 86400;
    int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [unit_begin, error] = std::from_chars(text.data(), end, number);
    const std::string_view unit(unit_begin, static_cast<std::size_t>(end - unit_begin));
    if (unit == "ms" || unit == "us" || unit == "ns" || unit.starts_with('.')) {
        refuse(text, option, "timestamps are whole seconds, so this must be too");
    }
    const int64_t factor = seconds_of(unit);
    if (error != std::errc() || factor == 0) {
        refuse(text, option, "not a duration such as 30s, 5m, 2h or 1d");
    }
    if (number < 1) {
        refuse(text, option, "must be at least 1s: timestamps are whole seconds");
    }
    if (number > longest / factor) {
        refuse(text, option, "is longer than a century");
    }
    return number * factor;
}

} // namespace cli
