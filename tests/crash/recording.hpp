// The life of a folder, step by step: what it held after each call that changed it. Cut between any
// two steps, and inside of each write, it is what a process leaves that is killed there.
#ifndef VESK_TESTS_CRASH_RECORDING_HPP
#define VESK_TESTS_CRASH_RECORDING_HPP

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "crash/box.hpp"

struct moment {
    folder_content files;
    std::string call;     // that led here
    std::size_t progress; // what the recorded function had reached when it was made
};

class recording
{
public:
    // Runs `life` in the working folder; it may tell how far it has come by changing its argument.
    explicit recording(const std::function<void(std::size_t *progress)> &life);

    const std::vector<moment> &moments() const { return moments_; }
    // What cannot have been one call: a change of several files at once, for example.
    const std::string &complaints() const { return complaints_; }

private:
    void look(const char *call, std::size_t progress);

    std::vector<moment> moments_;
    std::string complaints_;
};

// A place where a life is cut: behind a moment, and so many bytes of the write that follows.
struct cut_place {
    std::size_t behind = 0;
    std::size_t bytes = 0;
};

// All of them, or only those at the ends and a few in the middle of long writes.
std::vector<cut_place> find_cuts(const recording &life, bool all);

folder_content cut_life(const recording &life, const cut_place &place);

std::string describe(const recording &life, const cut_place &place);

#endif
