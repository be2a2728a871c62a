// Reads memory pressure, swap use and load of the machine from three files of /proc, and finds out
// which of them has just passed a mark. A file that is missing or has another form counts as no
// strain, since older kernels have no /proc/pressure.
#include "machine/strain.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "machine/small_file.hpp"

namespace cli
{
namespace
{

// Each value has two marks: one where the machine becomes slow, and one where it hardly works any
// more.
constexpr double memory_marks[] = {10, 40};
constexpr double swap_marks[] = {50, 90};
constexpr double load_marks[] = {2, 8};

// The number at the beginning of @p text; 0 where there is none.
double leading_number(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    double value = 0;
    const auto result =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return result.ec == std::errc() && std::isfinite(value) && value >= 0 ? value : 0;
}

double number_behind(std::string_view text, std::string_view key)
{
    const auto at = text.find(key);
    return at == std::string_view::npos ? 0 : leading_number(text.substr(at + key.size()));
}

template <std::size_t count>
int marks_reached(const double (&marks)[count], double value)
{
    return static_cast<int>(
        std::count_if(marks, marks + count, [&](double mark) { return value >= mark; }));
}

} // namespace

double parse_memory_pressure(std::string_view text)
{
    return text.starts_with("some ") ? number_behind(text, "avg10=") : 0;
}

double parse_swap_used(std::string_view text)
{
    const double total = number_behind(text, "SwapTotal:");
    const double free = number_behind(text, "SwapFree:");
    return total > 0 && free <= total ? 100 * (total - free) / total : 0;
}

double parse_load(std::string_view text)
{
    return leading_number(text);
}

strain_values read_strain(const std::string &root, unsigned processors)
{
    return {parse_memory_pressure(read_small_file(root + "/proc/pressure/memory")),
            parse_swap_used(read_small_file(root + "/proc/meminfo")),
            parse_load(read_small_file(root + "/proc/loadavg")) / std::max(processors, 1U)};
}

strain_levels levels_of(const strain_values &values)
{
    return {marks_reached(memory_marks, values.memory_pressure),
            marks_reached(swap_marks, values.swap_used), marks_reached(load_marks, values.load)};
}

std::string strain_watch::look(const strain_values &now)
{
    const strain_levels before = levels_;
    levels_ = levels_of(now);
    if (levels_.memory > before.memory) {
        return "memory";
    }
    if (levels_.swap > before.swap) {
        return "swap";
    }
    return levels_.load > before.load ? "load" : "";
}

} // namespace cli
