// Sums up equal steps to records into one step. A run continues as long as the next record is in
// the same stream as the last one, or in the stream behind it.
#include "recovery/step_runs.hpp"

#include <algorithm>

vesk_recover_step *step_runs::find(vesk_recover_action action, int error)
{
    vesk_recover_step *end = runs_ + n_runs_;
    vesk_recover_step *run = std::find_if(runs_, end, [=](const vesk_recover_step &step) {
        return step.action == action && step.error == error;
    });
    return run == end ? nullptr : run;
}

int step_runs::add_record(vesk_recover_action action, int error, uint64_t offset, uint64_t length)
{
    vesk_recover_step *run = find(action, error);
    const bool goes_on =
        run != nullptr && run->offset + run->length >= offset && run->count < UINT32_MAX;
    if (goes_on) {
        run->length = std::max(run->length, offset + length - run->offset);
        ++run->count;
        return 0;
    }
    if (run != nullptr || n_runs_ == most_runs) {
        const int flushed = flush();
        if (flushed != 0) {
            return flushed;
        }
    }
    runs_[n_runs_++] = {action, filename_, offset, length, 1, error};
    return 0;
}

int step_runs::add(vesk_recover_action action, int error, uint64_t offset, uint64_t length,
                   uint32_t count)
{
    const int flushed = flush();
    return flushed != 0 ? flushed : hand_over({action, filename_, offset, length, count, error});
}

int step_runs::flush()
{
    const uint32_t n = n_runs_;
    n_runs_ = 0;
    int result = 0;
    for (uint32_t i = 0; i < n && result == 0; ++i) {
        result = hand_over(runs_[i]);
    }
    return result;
}

// Null when there is no room for another kind; its steps are then reported one by one.
step_runs::repetition *step_runs::find_repetition(const vesk_recover_step &step)
{
    repetition *end = repetitions_ + n_repetitions_;
    repetition *found = std::find_if(repetitions_, end, [&](const repetition &one) {
        return one.action == step.action && one.error == step.error;
    });
    if (found != end) {
        return found;
    }
    if (n_repetitions_ == most_repetitions) {
        return nullptr;
    }
    ++n_repetitions_;
    *found = {step.action, step.error, 0, {}};
    return found;
}

int step_runs::hand_over(const vesk_recover_step &step)
{
    repetition *same = find_repetition(step);
    if (same == nullptr || same->told < most_told) {
        if (same != nullptr) {
            ++same->told;
        }
        return tell(step);
    }
    vesk_recover_step *rest = &same->rest;
    if (rest->action != step.action) {
        *rest = step;
        rest->count = 0;
    }
    rest->length = std::max(rest->length, step.offset + step.length - rest->offset);
    // A place without a record counts as one of the steps that are not reported, too.
    rest->count += std::min(std::max(step.count, uint32_t{1}), UINT32_MAX - rest->count);
    return 0;
}

int step_runs::tell(const vesk_recover_step &step)
{
    ++*steps_;
    return receiver_.take(&step, receiver_.context);
}

int step_runs::finish()
{
    int result = flush();
    for (const repetition &one : repetitions_) {
        if (result == 0 && one.rest.action == one.action && one.action != 0) {
            result = tell(one.rest);
        }
    }
    n_repetitions_ = 0;
    return result;
}
