#include "machine/rates.hpp"

#include <limits>
#include <string_view>
#include <unordered_map>

namespace cli
{
namespace
{

constexpr double missing = std::numeric_limits<double>::quiet_NaN();

double growth(uint64_t before, uint64_t now)
{
    return now >= before ? static_cast<double>(now - before) : missing;
}

double rate(const counter &before, const counter &now, double seconds)
{
    return seconds > 0 ? growth(before.count, now.count) * now.unit / seconds : missing;
}

double percentage(const portion &before, const portion &now)
{
    const double whole = growth(before.whole, now.whole);
    if (!(whole > 0)) {
        return missing;
    }
    // The kernel lets the time that a processor waits run backwards by a tick now and then.
    const double part = now.part >= before.part ? growth(before.part, now.part) : 0;
    return 100 * part / whole;
}

} // namespace

readings readings_between(const snapshot &before, const snapshot &now)
{
    std::unordered_map<std::string_view, const measurement *> earlier;
    for (const measurement &m : before.taken) {
        earlier.emplace(m.name, &m);
    }
    const double seconds = now.seconds - before.seconds;
    readings result;
    for (const measurement &m : now.taken) {
        double value = 0;
        if (const auto *as_gauge = std::get_if<gauge>(&m.what)) {
            value = as_gauge->value;
        } else {
            const auto found = earlier.find(m.name);
            if (found == earlier.end() || found->second->what.index() != m.what.index()) {
                continue;
            }
            const auto &old = found->second->what;
            if (const auto *as_counter = std::get_if<counter>(&m.what)) {
                value = rate(std::get<counter>(old), *as_counter, seconds);
            } else {
                value = percentage(std::get<portion>(old), std::get<portion>(m.what));
            }
        }
        result.names.push_back(m.name);
        result.values.push_back(static_cast<float>(value));
    }
    return result;
}

} // namespace cli
