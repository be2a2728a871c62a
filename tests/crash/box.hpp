// A box that is written, killed, damaged and brought back: what was given to it, what its folder
// held, and whether all that was acknowledged is still there.
#ifndef VESK_TESTS_CRASH_BOX_HPP
#define VESK_TESTS_CRASH_BOX_HPP

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <vesk/vesk.h>

#include "common/telemetry.hpp"
#include "support/owner.hpp"

using owned_recorder = owned<vesk, vesk_close>;

// Boxes have the base name "r" in the working folder.
struct box_sizes {
    uint32_t samples = 4;
    uint32_t intervals = 2;
};

// ---- What is in a folder ----------------------------------------------------------------------

using folder_content = std::map<std::string, std::shared_ptr<const std::string>>;

// Where the folders of tests are: in memory where that can be, because cases are many.
std::string fast_folder();

// Looks at the files of the working folder; files that are as in `before` share their content.
folder_content read_folder(const folder_content &before = {});
void write_folder(const folder_content &content);
std::shared_ptr<const std::string> shared_bytes(std::string bytes);

// ---- What was recorded ------------------------------------------------------------------------

// A vector or an event that was given to the recorder. Number i has the time 1000 + i; an event has
// the number of the vector before it and, in its text, one of its own.
struct entry {
    bool is_event = false;
    int number = 0;
    std::vector<reading> readings; // of a vector
    uint32_t type = 0;             // of an event
    std::string text;
    bool acknowledged = false;

    bool operator==(const entry &other) const
    {
        return is_event == other.is_event && number == other.number && type == other.type &&
               text == other.text && same_readings(other);
    }

private:
    bool same_readings(const entry &other) const;
};

using entries = std::vector<entry>;

// The readings of vector i: their sensors change every few vectors, unless the width is this one.
inline constexpr int steady = -1;
std::vector<reading> readings_of(int i, int width);

entry vector_entry(int i, int width);
entry event_entry(int i, int which);
int write_entry(vesk *recorder, const entry &one);

// ---- What a box holds -------------------------------------------------------------------------

struct interval_found {
    int first = 0; // number of the vector that begins it
    int last = 0;
    std::map<std::string, std::pair<uint32_t, float>> sensors; // how many readings, and their sum
    uint32_t events[6] = {};                                   // by type
};

// What is in the files that the state file names, oldest first. Complaints are gathered.
struct box_found {
    std::vector<interval_found> intervals;
    entries samples_and_events;
    std::string complaint;
};

box_found look_into_box();

// Compares what the box holds with what it was given: everything that was acknowledged is there
// once and in its order, and what was not is there whole or not at all. What is found of that is
// marked acknowledged, the rest is removed from `given`. Returns a complaint, or nothing.
std::string compare_box(entries *given, const box_sizes &sizes);

// Opens the box and writes `n` vectors from number `from` on, with an event behind every third.
// Returns a complaint, or nothing; what was written is added to `given`.
std::string go_on(entries *given, int from, int n, int width);

#endif
