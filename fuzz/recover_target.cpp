// A box of any content is recovered: that never aborts, and what it made is a box. It opens, takes
// vectors through its next rotations, and recovering it again finds nothing to do.
#include <array>
#include <string>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "common/telemetry.hpp"
#include "file_set.hpp"
#include "harness.hpp"
#include "scan_bounds.hpp"

static constexpr int codes[] = {0, -6, -40, -49};

// Larger boxes are not driven to a rotation, and not filled up.
static constexpr uint32_t most_samples = 32;
static constexpr uint64_t most_padding = 10000;

static constexpr guard_rules rules = {.largest_block = std::size_t{1} << 28};

static int _count_step(const vesk_recover_step *step, void *context)
{
    *static_cast<uint32_t *>(context) += step->action != VESK_RECOVER_KEEP ? 1 : 0;
    return 0;
}

static int _count_record(const vesk_scan_item *item, void *context)
{
    expect(item->kind != VESK_SCAN_DAMAGE, "nothing damaged is left");
    expect(item->kind != VESK_SCAN_BARE_EVENT, "no bare event is left");
    expect_equal(0, item->error, "no record is left that readers refuse");
    auto *report = static_cast<vesk_recover_report *>(context);
    report->samples_kept -= item->kind == VESK_SCAN_SENSOR_VALUES ? 1 : 0;
    report->intervals_kept -= item->kind == VESK_SCAN_INTERVAL ? 1 : 0;
    report->events_kept -= item->kind == VESK_SCAN_EVENT ? 1 : 0;
    return 0;
}

static int _count_file(const vesk_scan_file *file, void *context)
{
    if (file->role == VESK_SCAN_ORPHAN) {
        return 0;
    }
    expect_equal(0, file->missing, "the files of the box are there");
    return vesk_scan_buffer(file->filename, _count_record, context);
}

// The files hold just what the report says.
static void _expect_reported(const vesk_recover_report &report)
{
    guarded(rules, [&] {
        vesk_recover_report left = report;
        expect_equal(0, vesk_scan_files("r", _count_file, &left), "the box can be scanned");
        expect(left.samples_kept + left.samples_padded == 0, "as many samples as reported");
        expect(left.intervals_kept + left.intervals_padded == 0, "as many intervals as reported");
        expect(left.events_kept == 0, "as many events as reported");
    });
}

// The box takes vectors until every buffer that was recovered went into the history.
static void _go_on(uint32_t num_cb_samples)
{
    const owned_matrix vector = make_vector(2000000000, {{"cpu", 1}, {"fan", 2}});
    guarded(rules, [&] {
        qe_set_last_error(0);
        vesk *box = vesk_open("r");
        expect_equal(0, qe_get_last_error(), "a recovered box opens");
        for (uint32_t i = 0; i < 3 * num_cb_samples + 1; ++i) {
            expect_equal(0, vesk_write_telemetry_vector(box, vector.get()),
                         "a recovered box goes on");
        }
        vesk_close(&box);
    });
}

static void _run(std::string_view input)
{
    clear_scratch_folder();
    for (const file_set_member &member : split_file_set(input)) {
        put_file(std::string(member.name()).c_str(), member.content);
    }
    vesk_recover_report report = {};
    vesk_recover_report planned = {};
    int plan = 0;
    int result = 0;
    const guard_rules bounds = {.largest_block = rules.largest_block,
                                .most_memory = most_memory_of_a_plan(input.size()),
                                .most_inflated = most_inflated_by_a_plan(input.size())};
    guarded(bounds, [&] {
        uint32_t steps = 0;
        plan = vesk_recover_plan("r", 4, 2, _count_step, &steps, &planned);
        expect_documented(plan, codes, "vesk_recover_plan");
        expect_equal(planned.steps, steps, "a plan shows all steps");
        expect(steps <= input.size() + 64, "steps are bounded by the size of the files");
    });
    guarded(rules, [&] {
        result = -1;
        if (planned.samples_padded + planned.intervals_padded > most_padding) {
            return;
        }
        result = vesk_recover("r", 4, 2, &report);
        expect_equal(plan, result, "recovering ends as planned");
        expect_equal(planned.steps, report.steps, "recovering does what was planned");
        if (result == 0) {
            vesk_recover_report again;
            expect_equal(0, vesk_recover("r", 0, 0, &again), "a recovered box is one");
            expect_equal(0, again.steps, "a recovered box needs nothing");
        }
    });
    if (result == 0) {
        _expect_reported(report);
        if (report.num_cb_samples <= most_samples) {
            _go_on(report.num_cb_samples);
        }
    }
}

const fuzz_target target = {"recover", input_form::file_set, 16384, _run};
