// Numbers have as many digits as are needed to see that they differ.
#include "analysis/unusual_text.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "text/units.hpp"

namespace cli
{
namespace
{

// Three digits, or more where the difference would be lost.
int digits_for(double from, double to)
{
    constexpr int fewest = 3;
    constexpr int most = 9;
    const double size = std::max(std::fabs(from), std::fabs(to));
    const double distance = std::fabs(to - from);
    if (distance <= 0 || size <= 0) {
        return fewest;
    }
    return std::clamp(2 + static_cast<int>(std::ceil(std::log10(size / distance))), fewest, most);
}

// Writes the values of one sensor.
class value_words
{
public:
    // The rate of a sensor has its unit for each second: "B/s" for bytes.
    value_words(std::string_view sensor, const finding &found, amounts how)
        : name_(fmt::format("{}{}", sensor, found.is_rate ? "_per_s" : "")), how_(how)
    {
    }

    std::string operator()(double value, int digits) const
    {
        return how_ == amounts::plain ? plain_number(value, digits)
                                      : with_unit(value, name_, digits);
    }

private:
    std::string name_;
    amounts how_;
};

std::string swing_text(const finding &found, const value_words &words)
{
    if (found.first_move) {
        return "it had never moved before";
    }
    if (found.usual_swing <= 0) {
        return "it did not move within any past interval";
    }
    const double factor = found.factor();
    return fmt::format("{} times its usual swing ({})",
                       factor >= 100 || factor < 0.1 ? plain_number(factor, 3)
                                                     : fmt::format("{:.1f}", factor),
                       words(found.usual_swing, 3));
}

std::string reached_text(const finding &found)
{
    constexpr double percent = 100;
    if (found.first_move) {
        return "";
    }
    if (found.reached <= 0) {
        return "; no past interval reached that far";
    }
    return fmt::format("; {} % of past intervals reached that far",
                       plain_number(found.reached * percent, 3));
}

std::string remark(const finding &found)
{
    return found.few_intervals ? fmt::format(" (only {} past interval{})", found.intervals,
                                             found.intervals == 1 ? "" : "s")
                               : "";
}

std::string moved(const finding &found, std::string_view sensor, const value_words &words)
{
    const std::string_view rate = found.is_rate ? "'s rate in a second" : "";
    const int digits = digits_for(found.from, found.to);
    if (found.from == found.to) {
        return fmt::format("{}{} stayed at {} within the last {} samples", sensor, rate,
                           words(found.to, digits), found.within);
    }
    return fmt::format("{}{} {} from {} to {} within the last {} samples, {}{}", sensor, rate,
                       found.to > found.from ? "rose" : "fell", words(found.from, digits),
                       words(found.to, digits), found.within, swing_text(found, words),
                       reached_text(found));
}

} // namespace

std::string sentence_of(const finding &found, std::string_view sensor, uint64_t newest, amounts how)
{
    const value_words words(sensor, found, how);
    switch (found.kind) {
    case verdict::judged:
        return moved(found, sensor, words) + remark(found);
    case verdict::stuck:
        return fmt::format("{} has not changed for {} samples, at {}{}", sensor, found.unchanged,
                           words(found.value, 3), remark(found));
    case verdict::missing:
        return fmt::format("{} has no value within the last {} samples, and had values before",
                           sensor, newest);
    case verdict::appeared:
        return fmt::format("{} is new within the last {} samples: it has no past to compare with",
                           sensor, newest);
    case verdict::never_moved:
        return fmt::format("{} has never moved from {}", sensor, words(found.value, 3));
    case verdict::not_judged:
        break;
    }
    return fmt::format("{} has too few values to be judged", sensor);
}

std::string_view level_of(const finding &found)
{
    if (found.kind == verdict::never_moved) {
        return "never moved";
    }
    if (found.kind == verdict::not_judged) {
        return "not judged";
    }
    if (found.score > unusual_from) {
        return "unusual";
    }
    return found.score >= perhaps_from ? "perhaps" : "nothing unusual";
}

} // namespace cli
