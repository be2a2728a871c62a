// Measures the interfaces in /proc/net/dev and /proc/net/wireless. Both files begin with two lines
// of headings, and then have a line " NAME: FIELD FIELD ..." for each interface. A line of another
// form is skipped, and the number of interfaces is bounded.
#include "machine/network.hpp"

#include <array>
#include <fmt/format.h>
#include <optional>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

struct interface_line {
    std::string_view name;
    std::string_view fields;
};

// An alias has a colon in its name ("eth0:1"), the fields have none.
std::optional<interface_line> split(std::string_view line)
{
    const auto colon = line.rfind(':');
    if (colon == std::string_view::npos) {
        return std::nullopt; // a heading
    }
    std::string_view before = line.substr(0, colon);
    return interface_line{cut_word(before), line.substr(colon + 1)};
}

void measure_interface(std::string_view name, std::span<const uint64_t, 16> counts,
                       measurements &out)
{
    const std::string prefix = fmt::format("::net.{}.", name_part(name));
    const auto add = [&](const char *what, std::size_t field) {
        out.push_back({prefix + what, counter{counts[field], 1}});
    };
    add("receive_bytes_per_s", 0);
    add("receive_packets_per_s", 1);
    add("receive_errors_per_s", 2);
    add("receive_drops_per_s", 3);
    add("transmit_bytes_per_s", 8);
    add("transmit_packets_per_s", 9);
    add("transmit_errors_per_s", 10);
    add("transmit_drops_per_s", 11);
}

// "-56." stands for what the driver has measured since it was last asked.
std::optional<double> parse_level(std::string_view word)
{
    word.remove_suffix(word.ends_with('.') ? 1 : 0);
    return parse_decimal(word);
}

} // namespace

void parse_network(std::string_view text, measurements &out)
{
    std::size_t interfaces = 0;
    while (!text.empty() && interfaces < most_interfaces) {
        const auto line = split(cut(text, '\n'));
        // The interfaces of containers have a new name each time, which would use up the names that
        // a box can hold.
        if (!line || line->name.starts_with("veth")) {
            continue;
        }
        std::array<uint64_t, 16> counts = {};
        const bool whole = parse_counts(line->fields, counts) == counts.size();
        if (!whole || (counts[0] == 0 && counts[8] == 0)) {
            continue;
        }
        measure_interface(line->name, counts, out);
        ++interfaces;
    }
}

// The fields are STATUS LINK LEVEL NOISE and counts of what was thrown away.
void parse_wireless(std::string_view text, measurements &out)
{
    std::size_t interfaces = 0;
    while (!text.empty() && interfaces < most_interfaces) {
        const auto line = split(cut(text, '\n'));
        if (!line) {
            continue;
        }
        // Levels that are not negative have no unit.
        const auto level = parse_level(word_at(line->fields, 2));
        if (level && *level < 0) {
            out.push_back(
                {fmt::format("::wireless.{}.signal_dBm", name_part(line->name)), gauge{*level}});
            ++interfaces;
        }
    }
}

void measure_network(const machine_files &files, measurements &out)
{
    files.parse_file(files.of_network("dev"), parse_network, out);
}

void measure_wireless(const machine_files &files, measurements &out)
{
    files.parse_file(files.of_network("wireless"), parse_wireless, out);
}

} // namespace cli
