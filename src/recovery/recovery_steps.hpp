// Reports what the phases of a recovery find and do: each step goes to the visitor of the caller,
// and the sums go into the report.
#ifndef VESK_RECOVERY_RECOVERY_STEPS_HPP
#define VESK_RECOVERY_RECOVERY_STEPS_HPP

#include <cstdint>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_recover.h>

#include "recovery/buffer_mender.hpp"

class recovery_steps
{
public:
    recovery_steps(vesk_recover_visitor visit, void *context, vesk_recover_report *report)
        : visit_(visit), context_(context), report_(report)
    {
    }

    vesk_recover_report *report() { return report_; }

    // What the visitor returns; a result other than 0 ends the planning.
    int tell(const vesk_recover_step &step)
    {
        if (step.action != VESK_RECOVER_KEEP) {
            ++report_->steps;
        }
        const int result = visit_ == nullptr ? 0 : visit_(&step, context_);
        stopped_ = result != 0;
        return result;
    }

    // Whether the last result was the visitor's own.
    bool stopped() const { return stopped_; }

    int tell_file(vesk_recover_action action, const char *path, uint64_t size, int error)
    {
        vesk_recover_step step = {};
        step.action = action;
        step.filename = path;
        step.length = size;
        step.error = error;
        return tell(step);
    }

    // For phases that report their steps themselves.
    step_receiver receiver()
    {
        return {[](const vesk_recover_step *step, void *self) {
                    return static_cast<recovery_steps *>(self)->tell(*step);
                },
                this};
    }

    void count_contents(uint32_t kind, const buffer_contents &contents)
    {
        if (kind == VESK_BUFFER_TYPE_CURRENT) {
            report_->samples_kept += contents.data_records;
            report_->samples_padded += contents.records_padded;
        } else {
            report_->intervals_kept += contents.data_records;
            report_->intervals_padded += contents.records_padded;
        }
        report_->events_kept += contents.events;
        report_->events_tagged += contents.events_tagged;
        report_->records_mended += contents.records_mended;
        report_->records_aside += contents.records_aside;
        report_->bytes_aside += contents.bytes_aside;
    }

private:
    vesk_recover_visitor visit_;
    void *context_;
    vesk_recover_report *report_;
    bool stopped_ = false;
};

inline int ignore_step(const vesk_recover_step *, void *)
{
    return 0;
}

#endif
