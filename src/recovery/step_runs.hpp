// Steps of a mender, summed up.
//
// In: what is done to records, one by one, and other steps. Out: the steps for the receiver. The
// same thing done to records of one stream, or of streams that follow each other without a gap, is
// one step with their number; so a file has no more steps than a small multiple of its streams,
// however many records they hold. Steps of other kinds pass through. Order is that of the first
// record of each.
#ifndef VESK_RECOVERY_STEP_RUNS_HPP
#define VESK_RECOVERY_STEP_RUNS_HPP

#include <cstdint>

#include <vesk/vesk_recover.h>

// Where the steps of a mender go.
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
    // Hands over what is not complete yet.
    int flush();

private:
    vesk_recover_step *find(vesk_recover_action action, int error);
    int hand_over(const vesk_recover_step &step);

    // More than there are kinds of steps for records, with their errors.
    static constexpr uint32_t most_runs = 16;

    const char *filename_;
    const step_receiver &receiver_;
    uint32_t *steps_;
    vesk_recover_step runs_[most_runs] = {};
    uint32_t n_runs_ = 0;
};

#endif
