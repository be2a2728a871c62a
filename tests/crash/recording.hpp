// The life of a folder, step by step: what it held after each call that changed it. Cut between any
// two steps, and inside of each write, it is what a process leaves that is killed there.
#ifndef VESK_TESTS_CRASH_RECORDING_HPP
#define VESK_TESTS_CRASH_RECORDING_HPP

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "crash/box.hpp"

// How far the recorded function has come, in its own units.
struct life_progress {
    std::size_t acknowledged = 0;
    std::size_t synced = 0;
};

struct moment {
    folder_content files;
    folder_content synced; // what of them is on the medium, as far as they were synced
    folder_content names;  // the names on the medium; where another file has the name now, or none,
                           // with what was synced of the file that had it
    std::string call;      // that led here
    life_progress progress;
};

class recording
{
public:
    // Runs `life` in the working folder; it tells how far it has come by changing its argument.
    // What is there before counts as synced.
    explicit recording(const std::function<void(life_progress *progress)> &life);

    const std::vector<moment> &moments() const { return moments_; }
    // What cannot have been one call: a change of several files at once, for example.
    const std::string &complaints() const { return complaints_; }

private:
    void look(const char *call, int synced, const life_progress &progress);

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

// What a loss of power does to what was not synced: it is gone, it is zeros, a half of it is gone,
// the file is as it was when it was synced, or each file meets something else. With `names` the
// folder is as it was when it was synced: new files have no names, and deleted ones are back.
enum class power_loss { cut, zeros, half, before, mixed_1, mixed_2, names, names_and_zeros };
inline constexpr power_loss power_losses[] = {power_loss::cut,     power_loss::zeros,
                                              power_loss::half,    power_loss::before,
                                              power_loss::mixed_1, power_loss::mixed_2};

// Those in which the folder may be lost, too.
inline constexpr power_loss all_power_losses[] = {
    power_loss::cut,     power_loss::zeros,   power_loss::half,  power_loss::before,
    power_loss::mixed_1, power_loss::mixed_2, power_loss::names, power_loss::names_and_zeros};

folder_content lose_power(const recording &life, std::size_t moment, power_loss how);

std::string describe(const recording &life, const cut_place &place);

#endif
