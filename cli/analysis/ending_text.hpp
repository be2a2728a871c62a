// How a box ended, in one sentence: what somebody asks first after a crash.
#ifndef VESK_CLI_ANALYSIS_ENDING_TEXT_HPP
#define VESK_CLI_ANALYSIS_ENDING_TEXT_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "text/time_text.hpp"

namespace cli
{

struct kernel_words {
    int64_t time = 0;
    std::string text;
};

struct box_ending {
    enum class how {
        empty,     // the box holds nothing yet
        untold,    // no recording has told anything
        recording, // somebody is writing to the box
        clean,     // the recording was ended
        failed,    // the recording gave up
        cut_short  // the recording broke off
    };

    how it_ended = how::empty;
    // Of the end; while somebody is recording, of the last time that a recording broke off.
    std::optional<int64_t> time;
    std::string reason; // of an end, as the recording told it
    std::string error;  // of a failure
    // The last words of the kernel before the recording broke off, if they were near.
    std::optional<kernel_words> kernel;

    // Words of the kernel that are older say nothing about an end.
    static constexpr int64_t nearest_words = 3600;
};

// "ended without a clean stop on 21 November 2026 04:39:31 UTC; 14 s before, the kernel reported:
// Out of memory". It has no capital and no full stop, and is printable, although the words in it
// come from the box.
std::string sentence_of(const box_ending &ending, zone where);

// One word for programs: "empty", "untold", "recording", "clean", "failed", "cut short".
std::string_view name_of(box_ending::how it_ended);

// "21 November 2026 04:39:31 UTC", or with "+01:00" for the local time zone.
std::string spoken_time(int64_t seconds, zone where);

} // namespace cli

#endif
