// Applies the patterns of --sensor to the sensors of a box, in their order, and returns the numbers
// of those that are chosen. A pattern that fits no sensor is a usage failure with the nearest name,
// because a table without an expected sensor would mislead.
#include "text/sensor_choice.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "text/glob.hpp"
#include "text/suggestion.hpp"

namespace cli
{
namespace
{

std::string_view without_colons(std::string_view name)
{
    return name.starts_with("::") ? name.substr(2) : name;
}

bool fits(std::string_view pattern, std::string_view sensor)
{
    return matches_glob(pattern, sensor) || matches_glob(pattern, without_colons(sensor));
}

// What was likely meant by a pattern that fits nothing. The time that the search takes grows with
// the squares of the lengths, and nobody mistypes names that are longer.
std::string suggestion_for(std::string_view pattern, const std::vector<std::string> &sensors)
{
    constexpr std::size_t longest = 128;
    std::string plain(without_colons(pattern));
    std::erase_if(plain, [](char c) { return c == '*' || c == '?'; });
    if (plain.size() < 2 || plain.size() > longest) {
        return {};
    }
    std::vector<std::string_view> names;
    for (const std::string &sensor : sensors) {
        if (!is_glob(pattern) && sensor.find(plain) != std::string::npos) {
            return fmt::format("; did you mean '*{}*'?", plain);
        }
        if (sensor.size() <= longest) {
            names.push_back(without_colons(sensor));
        }
    }
    const std::string_view meant = nearest_word(plain, names);
    return meant.empty() ? std::string() : fmt::format("; did you mean '{}'?", meant);
}

[[noreturn]] void refuse(std::string_view pattern, const std::vector<std::string> &sensors)
{
    constexpr std::size_t enough = 60;
    throw failure(
        exit_usage,
        fmt::format("--sensor {}{}: none of the {} of the box fits{}", pattern.substr(0, enough),
                    pattern.size() > enough ? "..." : "",
                    sensors.size() == 1 ? "one sensor" : fmt::format("{} sensors", sensors.size()),
                    suggestion_for(pattern, sensors)));
}

} // namespace

std::vector<std::size_t> choose_sensors(const std::vector<std::string> &sensors,
                                        const std::vector<std::string> &patterns)
{
    const bool from_all = patterns.empty() || patterns.front().starts_with('!');
    std::vector<bool> chosen(sensors.size(), from_all);
    for (const std::string &text : patterns) {
        const bool takes_away = text.starts_with('!');
        const std::string_view pattern = std::string_view(text).substr(takes_away ? 1 : 0);
        bool any = sensors.empty();
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            if (fits(pattern, sensors[i])) {
                chosen[i] = !takes_away;
                any = true;
            }
        }
        if (!any) {
            refuse(pattern, sensors);
        }
    }
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        if (chosen[i]) {
            numbers.push_back(i);
        }
    }
    if (numbers.empty() && !sensors.empty()) {
        throw failure(exit_usage, "--sensor: no sensor is left");
    }
    return numbers;
}

std::vector<std::string> names_of(const std::vector<std::string> &sensors,
                                  const std::vector<std::size_t> &numbers)
{
    std::vector<std::string> names;
    names.reserve(numbers.size());
    for (const std::size_t number : numbers) {
        names.push_back(sensors[number]);
    }
    return names;
}

} // namespace cli
