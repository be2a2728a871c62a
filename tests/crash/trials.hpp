// Many trials of something that may end the process, one after another in processes of their own,
// as few as possible.
#ifndef VESK_TESTS_CRASH_TRIALS_HPP
#define VESK_TESTS_CRASH_TRIALS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct trial_results {
    std::size_t tried = 0;
    std::size_t failed = 0;
    std::string complaints; // the first ones
    // What the trials counted, by an index of their own.
    std::vector<uint64_t> counts;
};

// In a trial.
void count_trial(std::size_t index, uint64_t n = 1);

// Runs trial(0) to trial(n - 1). A trial returns a complaint, or nothing. One that ends the
// process, or takes more than so many seconds of the processor, has failed; gives up when too many
// have. With VESK_CRASH_EVERY=K in the environment only one of K trials is made.
trial_results run_trials(std::size_t n, const std::function<std::string(std::size_t)> &trial,
                         unsigned seconds = 20);

// Whether the long form is asked for: the variable VESK_CRASH_LONG is set.
bool is_long_form();

#endif
