// Starts a recorder in one call: a box that exists is recovered and opened, and a new one is made
// only if certainly none exists. This folder stands above the recorder and the recovery, because it
// needs both.

#include <string.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_start.h>

#include "box/box_presence.hpp"
#include "recorder/recorder.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

using owned_recorder = owned<vesk, vesk_close>;

// Recovers and opens a box that is there. Null with the code in the cell.
static vesk *_recover_and_open(const char *filename, uint32_t num_cb_samples,
                               uint32_t num_hb_intervals, vesk_start_report *report)
{
    const int result = vesk_recover(filename, num_cb_samples, num_hb_intervals, &report->recovered);
    if (result != 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    return _vesk_open_read_whole(filename);
}

static vesk *_open_or_create(const char *filename, uint32_t num_cb_samples,
                             uint32_t num_hb_intervals, vesk_start_report *report)
{
    const int found = _vesk_find_box(filename);
    if (found > 0) {
        return _recover_and_open(filename, num_cb_samples, num_hb_intervals, report);
    }
    if (found < 0 || (num_cb_samples == 0 && num_hb_intervals == 0)) {
        qe_set_last_error(found < 0 ? found : static_cast<int>(QE_ERROR_ABSENT));
        return nullptr;
    }
    vesk *recorder = vesk_create_new(filename, num_cb_samples, num_hb_intervals);
    report->created = recorder != nullptr ? 1 : 0;
    return recorder;
}

vesk *vesk_start(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                 vesk_start_report *report)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    vesk_start_report unwanted;
    vesk_start_report *filled = report != nullptr ? report : &unwanted;
    *filled = {};
    if (strlen(filename) > VESK_MAX_BASE_LENGTH) {
        qe_set_last_error(QE_ERROR_LIMIT);
        return nullptr;
    }
    owned_recorder recorder(_open_or_create(filename, num_cb_samples, num_hb_intervals, filled));
    if (!recorder) {
        return nullptr;
    }
    if (_vesk_add_safety(recorder.get()) < 0) {
        return nullptr;
    }
    // The process that wrote the box before may never have called vesk_settle().
    safety_of(recorder.get())->settle_due = true;
    filled->settled = vesk_settle(recorder.get());
    return recorder.release();
}
