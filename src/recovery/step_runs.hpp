// Sums up the steps that a mender reports.
//
// In: what is done to records, one by one, and other steps. Out: the steps for the receiver. The
// same thing done to records of one stream, or of streams that follow each other without a gap, is
// one step with their number. Steps of other kinds pass through. Order is that of the first record
// of each. What repeats all the same, with whole streams between, is told a number of times; the
// rest of the same kind is one more step at the end, so a file has no more steps than there are
// kinds of them, times that number.
#ifndef VESK_RECOVERY_STEP_RUNS_HPP
#define VESK_RECOVERY_STEP_RUNS_HPP

#include <cstdint>

#include <vesk/vesk_recover.h>

// Receives the steps of a mender.
struct step_receiver {
    int (*take)(const vesk_recover_step *step, void *context);
    void *context;
};

// All functions return 0, or what the receiver returned.
class step_runs
{
public:
    // Counts the steps that reach the receiver in `*steps`.
    step_runs(const char *filename, const step_receiver &receiver, uint32_t *steps)
        : filename_(filename), receiver_(receiver), steps_(steps)
    {
    }

    // A record of the stream of `length` bytes at `offset`.
    int add_record(vesk_recover_action action, int error, uint64_t offset, uint64_t length);
    // Anything else.
    int add(vesk_recover_action action, int error, uint64_t offset, uint64_t length,
            uint32_t count);
    // Behind the last step: hands over what is not complete yet, and what was summed up.
    int finish();

    // The steps of the same kind that are reported for one file: about as many as fit on a screen.
    static constexpr uint32_t most_told = 64;

private:
    // Steps with the same action and error, and how often they were reported.
    struct repetition {
        vesk_recover_action action;
        int error;
        uint32_t told;
        vesk_recover_step rest; // of its action once something was not told
    };

    vesk_recover_step *find(vesk_recover_action action, int error);
    repetition *find_repetition(const vesk_recover_step &step);
    int flush();
    int hand_over(const vesk_recover_step &step);
    int tell(const vesk_recover_step &step);

    // This is more than there are kinds of steps for records, combined with their errors.
    static constexpr uint32_t most_runs = 16;

    const char *filename_;
    const step_receiver &receiver_;
    uint32_t *steps_;
    vesk_recover_step runs_[most_runs] = {};
    uint32_t n_runs_ = 0;
    // Room for all actions with every error that a scan gives.
    static constexpr uint32_t most_repetitions = 64;
    repetition repetitions_[most_repetitions] = {};
    uint32_t n_repetitions_ = 0;
};

#endif
