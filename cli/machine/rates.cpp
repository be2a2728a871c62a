// Turns two snapshots of the machine into values. A gauge is taken as it is; a counter, a share or
// a mean needs the same measurement in the earlier snapshot, and gets no value without it. A count
// that has decreased gives NaN, because it began anew in between and its growth is unknown.
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

double mean(const mean_of_new &before, const mean_of_new &now)
{
    const double number = growth(before.number, now.number);
    if (!(number > 0)) {
        return missing;
    }
    return growth(before.sum, now.sum) * now.unit / number;
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

// Both are of the same kind, which is no gauge.
double difference(const measurement::kind &before, const measurement::kind &now, double seconds)
{
    if (const auto *as_counter = std::get_if<counter>(&now)) {
        return rate(*std::get_if<counter>(&before), *as_counter, seconds);
    }
    if (const auto *as_portion = std::get_if<portion>(&now)) {
        return percentage(*std::get_if<portion>(&before), *as_portion);
    }
    return mean(*std::get_if<mean_of_new>(&before), *std::get_if<mean_of_new>(&now));
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
            value = difference(found->second->what, m.what, seconds);
        }
        result.names.push_back(m.name);
        result.values.push_back(static_cast<float>(value));
    }
    return result;
}

} // namespace cli
