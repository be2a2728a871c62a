#include "machine/proc_files.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <optional>

namespace cli
{
namespace
{

std::string read_text(const std::string &path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Cuts the first part off @p text, up to @p separator or the end.
std::string_view cut(std::string_view &text, char separator)
{
    const auto at = text.find(separator);
    const std::string_view part = text.substr(0, at);
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
    return part;
}

std::optional<uint64_t> parse_count(std::string_view text)
{
    uint64_t value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

// The sixteen numbers after the name of an interface.
std::optional<std::array<uint64_t, 16>> parse_interface(std::string_view text)
{
    std::array<uint64_t, 16> counts = {};
    for (uint64_t &count : counts) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        const auto value = parse_count(cut(text, ' '));
        if (!value) {
            return std::nullopt;
        }
        count = *value;
    }
    return counts;
}

} // namespace

void parse_network(std::string_view text, measurements &out)
{
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const auto colon = line.rfind(':');
        if (colon == std::string_view::npos) {
            continue; // the two lines of headings
        }
        std::string_view name = line.substr(0, colon);
        name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
        // The ends of containers come and go under names that never come again.
        if (name.starts_with("veth")) {
            continue;
        }
        const auto counts = parse_interface(line.substr(colon + 1));
        if (!counts || (counts->at(0) == 0 && counts->at(8) == 0)) {
            continue;
        }
        const std::string prefix = fmt::format("::net.{}.", name_part(std::string(name)));
        const auto add = [&](const char *what, std::size_t field) {
            out.push_back({prefix + what, counter{counts->at(field), 1}});
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
}

void measure_network(const std::string &root, measurements &out)
{
    parse_network(read_text(root + "/proc/net/dev"), out);
}

void parse_pressure(std::string_view resource, std::string_view text, measurements &out)
{
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view kind = cut(line, ' ');
        const auto total = line.find("total=");
        if ((kind != "some" && kind != "full") || total == std::string_view::npos) {
            continue;
        }
        // The total is in microseconds, so its growth in a second is a share of the time: exact
        // for the interval, which the averages of the kernel are not.
        if (const auto count = parse_count(line.substr(total + 6))) {
            out.push_back({fmt::format("::pressure.{}.{}_percent", resource, kind),
                           counter{*count, 100.0 / 1e6}});
        }
    }
}

void measure_pressure(const std::string &root, measurements &out)
{
    for (const char *resource : {"cpu", "io", "memory", "irq"}) {
        parse_pressure(resource, read_text(root + "/proc/pressure/" + resource), out);
    }
}

} // namespace cli
