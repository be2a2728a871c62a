// Parses and formats sizes in bytes. A letter alone means a power of 1024, as for du and truncate;
// with a B behind it a power of 1000.
#include "text/byte_size.hpp"

#include <charconv>
#include <fmt/format.h>

#include "process/failure.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

constexpr uint64_t most_bytes = uint64_t{1} << 50;

// 0 for what is no unit.
uint64_t factor_of(std::string_view unit)
{
    constexpr std::string_view letters = "kMGT";
    if (unit.empty() || unit == "B") {
        return 1;
    }
    const char first = unit.front() == 'K' ? 'k' : unit.front();
    const std::size_t power = letters.find(first);
    const std::string_view rest = unit.substr(1);
    if (power == std::string_view::npos || (!rest.empty() && rest != "iB" && rest != "B")) {
        return 0;
    }
    uint64_t factor = 1;
    for (std::size_t i = 0; i <= power; ++i) {
        factor *= rest == "B" ? 1000U : 1024U;
    }
    return factor;
}

} // namespace

uint64_t parse_byte_size(std::string_view text, std::string_view option)
{
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<std::size_t>(end - text.data());
    const uint64_t factor = error == std::errc() ? factor_of(text.substr(length)) : 0;
    if (factor == 0 || number == 0) {
        throw failure(exit_usage,
                      fmt::format("{} {}: not a size such as 500k, 20M or 1G", option, text));
    }
    if (number > most_bytes / factor) {
        throw failure(exit_usage, fmt::format("{} {}: is more than 1024T", option, text));
    }
    return number * factor;
}

std::string format_byte_size(uint64_t bytes)
{
    return with_unit(static_cast<double>(bytes), "total_bytes");
}

} // namespace cli
