// Makes and takes apart the names of sensors, "::GROUP.REST_UNIT". name_part() cleans a text of the
// machine so that it can be part of a name; group_of() and unit_of() find the group and the unit
// again. Any text may go in.
#include "machine/measurement.hpp"

namespace cli
{
namespace
{

// Longer units stand before the shorter ones that they end with, because the first match counts.
constexpr std::string_view units[] = {
    "bytes_per_s", "packets_per_s",
    "pages_per_s", "per_s",
    "bytes",       "percent",
    "count",       "flag",
    "ms",          "s",
    "MHz",         "C",
    "RPM",         "V",
    "A",           "W",
    "dBm",
};

} // namespace

std::string name_part(std::string_view text)
{
    std::string result(text.substr(0, longest_name_part));
    for (char &c : result) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-' || c == '+';
        if (!plain) {
            c = '_';
        }
    }
    return result;
}

std::string_view group_of(std::string_view name)
{
    name.remove_prefix(name.starts_with("::") ? 2 : 0);
    return name.substr(0, name.find('.'));
}

std::string_view unit_of(std::string_view name)
{
    for (const std::string_view unit : units) {
        if (name.size() > unit.size() && name.ends_with(unit)) {
            const char before = name[name.size() - unit.size() - 1];
            if (before == '_' || before == '.') {
                return name.substr(name.size() - unit.size());
            }
        }
    }
    return {};
}

} // namespace cli
