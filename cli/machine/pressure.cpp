// A file has one or both of the lines "some avg10=0.00 avg60=0.10 avg300=0.07 total=123456", and
// "full
// ...".
#include "machine/pressure.hpp"

#include <fmt/format.h>

#include "machine/text_fields.hpp"

namespace cli
{

void parse_pressure(std::string_view prefix, std::string_view text, measurements &out)
{
    const std::size_t most = out.size() + 2;
    while (!text.empty() && out.size() < most) {
        std::string_view line = cut(text, '\n');
        const std::string_view kind = cut(line, ' ');
        const auto total = line.find("total=");
        if ((kind != "some" && kind != "full") || total == std::string_view::npos) {
            continue;
        }
        // The total is in microseconds, so its growth in a second is a share of the time: exact
        // for the interval, which the averages of the kernel are not.
        if (const auto count = parse_count(line.substr(total + 6))) {
            out.push_back(
                {fmt::format("{}{}_percent", prefix, kind), counter{*count, 100.0 / 1e6}});
        }
    }
}

void measure_pressure(const machine_files &files, measurements &out)
{
    for (const char *resource : {"cpu", "io", "memory", "irq"}) {
        const std::string prefix = fmt::format("::pressure.{}.", resource);
        files.parse_file(
            std::string("/proc/pressure/") + resource,
            [&](std::string_view text, measurements &found) {
                parse_pressure(prefix, text, found);
            },
            out);
    }
}

} // namespace cli
