// Makes and takes apart the names of sensors, "::GROUP.REST_UNIT". name_part() cleans a text of the
// machine so that it can be part of a name; group_of() and unit_of() find the group and the unit
// again, the latter in the table that also tells how values are shown. Any text may go in.
#include "machine/measurement.hpp"

#include "text/units.hpp"

namespace cli
{

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
    return unit_name_of(name);
}

} // namespace cli
