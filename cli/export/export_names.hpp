// What sensors, machines and boxes are called outside of a box. Their names may hold any bytes;
// what comes out is printable, and no two sensors get the same name.
#ifndef VESK_CLI_EXPORT_EXPORT_NAMES_HPP
#define VESK_CLI_EXPORT_EXPORT_NAMES_HPP

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "text/own_events.hpp"

namespace cli
{

struct label {
    std::string key;
    std::string value;

    bool operator==(const label &) const = default;
};

// A text for the value of a label: printable, and without a backslash at its end, which line
// protocol cannot hold. '?' stands in for what has to go.
std::string label_text(std::string_view text);

// The names as they can be shown, with '?' for what cannot be; or, @p as_tags, the label_text() of
// each. Where two would become the same, "_2" and so on tells them apart.
std::vector<std::string> export_names(std::span<const std::string> sensors, bool as_tags = false);

// The name of a metric: "vesk_", then the sensor without the "::" that names begin with, with '_'
// for all but the letters of ASCII and digits. Two sensors may get the same one: a label with the
// whole name is what tells them apart.
std::string metric_name(std::string_view sensor);

// "box", and "host" where it is known, then those that the user tells as "KEY=VALUE", which replace
// these two if they have their keys; "KEY=" takes one away. Throws a usage failure for keys that
// some format has no place for.
std::vector<label> labels_of(const std::string &box_name, const machine_identity &who,
                             std::span<const std::string> told);

} // namespace cli

#endif
