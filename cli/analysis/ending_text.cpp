// The sentence tells what the box holds and draws no conclusion: words of the kernel stand beside
// the end, not as its reason.
#include "analysis/ending_text.hpp"

#include <array>
#include <fmt/format.h>
#include <string_view>

#include "text/civil_time.hpp"
#include "text/duration.hpp"
#include "text/fitting.hpp"

namespace cli
{
namespace
{

// Longer words of the kernel are cut: the sentence has to be one.
constexpr std::size_t longest_words = 160;

std::string on(const std::optional<int64_t> &time, zone where)
{
    return time ? " on " + spoken_time(*time, where) : std::string();
}

std::string words(std::string_view text)
{
    return fitted(text, longest_words, charset::utf8);
}

std::string kernel_text(const box_ending &ending)
{
    if (!ending.kernel || !ending.time) {
        return {};
    }
    const int64_t before = *ending.time - ending.kernel->time;
    const std::string when = before <= 0   ? "in the same second"
                             : before < 60 ? fmt::format("{} s before", before)
                                           : fmt::format("{} before", format_duration(before));
    return fmt::format("; {}, the kernel reported: {}", when, words(ending.kernel->text));
}

} // namespace

std::string spoken_time(int64_t seconds, zone where)
{
    constexpr std::array<std::string_view, 12> months = {
        "January", "February", "March",     "April",   "May",      "June",
        "July",    "August",   "September", "October", "November", "December"};
    const std::string iso = iso_time(seconds, where);
    const int64_t offset = where == zone::local ? local_offset(seconds).value_or(0) : 0;
    const civil_time time = civil_of(seconds + offset);
    // What follows the seconds is the zone.
    const std::size_t clock = iso.find('T') + 1;
    const std::string shown_zone = iso.substr(clock + 8);
    return fmt::format("{} {} {} {} {}", time.day, months[static_cast<std::size_t>(time.month - 1)],
                       time.year, iso.substr(clock, 8), shown_zone == "Z" ? "UTC" : shown_zone);
}

std::string_view name_of(box_ending::how it_ended)
{
    switch (it_ended) {
    case box_ending::how::empty:
        return "empty";
    case box_ending::how::untold:
        return "untold";
    case box_ending::how::recording:
        return "recording";
    case box_ending::how::clean:
        return "clean";
    case box_ending::how::failed:
        return "failed";
    case box_ending::how::cut_short:
        break;
    }
    return "cut short";
}

std::string sentence_of(const box_ending &ending, zone where)
{
    const std::string when = on(ending.time, where);
    switch (ending.it_ended) {
    case box_ending::how::empty:
        return "holds nothing yet";
    case box_ending::how::untold:
        return fmt::format("does not tell how it ended; its latest record is of {}",
                           ending.time ? spoken_time(*ending.time, where) : "no time");
    case box_ending::how::recording:
        return ending.time ? fmt::format("is being written; an earlier recording broke off{}{}",
                                         when, kernel_text(ending))
                           : "is being written";
    case box_ending::how::clean:
        return fmt::format("ended cleanly{}{}", when,
                           ending.reason.empty() ? "" : fmt::format(" ({})", words(ending.reason)));
    case box_ending::how::failed:
        return fmt::format("ended with an error{}: {}", when, words(ending.error));
    case box_ending::how::cut_short:
        break;
    }
    return fmt::format("ended without a clean stop{}{}", when, kernel_text(ending));
}

} // namespace cli
