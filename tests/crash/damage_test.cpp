// Files that rot: whatever became of their bytes, looking at the box and bringing it back end with
// a stated code, in bounded time and without an abort, and every stream that was not touched comes
// back.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/recording.hpp"
#include "crash/stored_records.hpp"
#include "crash/trials.hpp"

namespace
{

namespace fs = std::filesystem;

class Damage : public testing::Test
{
protected:
    Damage() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~Damage() override { fs::current_path(working_folder_); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

// ---- Boxes and what happens to them -----------------------------------------------------------

struct whole_box {
    box_sizes sizes;
    int vectors = 0;
    folder_content files;
    std::vector<stored_record> records;
};

whole_box make_box(const box_sizes &sizes, int vectors, bool with_backup)
{
    write_folder({});
    whole_box box;
    box.sizes = sizes;
    box.vectors = vectors;
    owned_recorder recorder(vesk_create("r", sizes.samples, sizes.intervals));
    for (int i = 1; i <= vectors; ++i) {
        EXPECT_EQ(0, write_entry(recorder.get(), vector_entry(i, 1)));
        if (i % 3 == 0) {
            EXPECT_EQ(0, write_entry(recorder.get(), event_entry(i, i)));
        }
        if (with_backup) {
            EXPECT_EQ(0, vesk_backup_state(recorder.get()));
        }
    }
    recorder.reset();
    box.files = read_folder();
    box.records = read_named_records();
    return box;
}

// A box in each stage, at its beginning and at its end.
std::vector<whole_box> make_boxes()
{
    std::vector<whole_box> boxes;
    const bool all = is_long_form();
    for (const int vectors : all ? std::vector<int>{1, 4, 5, 8, 9, 12, 13, 16, 22, 37}
                                 : std::vector<int>{3, 7, 11, 18}) {
        for (const bool with_backup : {false, true}) {
            boxes.push_back(make_box({4, 2}, vectors, with_backup));
        }
    }
    return boxes;
}

enum counted { came_back, refused, kept_beside, code_base };

// The box goes on under its own name: what is written now is found in it.
std::string go_on_from(const whole_box &box)
{
    entries given;
    std::string complaint =
        go_on(&given, box.vectors + 1000, 2 * static_cast<int>(box.sizes.samples) + 1, 1);
    if (!complaint.empty()) {
        return complaint;
    }
    const box_found found = look_into_box();
    complaint = found.complaint;
    // The last buffer full of vectors is never summarised.
    const int newest = given.back().number;
    for (const entry &one : given) {
        const auto &kept = found.samples_and_events;
        if (newest - one.number <= static_cast<int>(box.sizes.samples) &&
            std::count(kept.begin(), kept.end(), one) != 1) {
            complaint += "what was written after the recovery is not in the box\n";
            break;
        }
    }
    return complaint;
}

int take_step(const vesk_recover_step *step, void *context)
{
    auto *steps = static_cast<uint32_t *>(context);
    *steps += step->action != VESK_RECOVER_KEEP ? 1 : 0;
    return 0;
}

// Neither a state file nor a buffer.
bool is_nothing_left(const folder_content &files)
{
    return std::all_of(files.begin(), files.end(),
                       [](const auto &file) { return file.first == "r.state.bak"; });
}

int take_header(const vesk_scan_item *item, void *context)
{
    if (item->kind == VESK_SCAN_HEADER) {
        static_cast<std::set<uint32_t> *>(context)->insert(item->capacity);
    }
    return 0;
}

// The capacities in the headers of the buffers of a kind.
std::set<uint32_t> capacities(const folder_content &files, const char *kind)
{
    std::set<uint32_t> found;
    for (const auto &[name, bytes] : files) {
        if (name.find(kind) != std::string::npos) {
            (void)vesk_scan_buffer(name.c_str(), take_header, &found);
        }
    }
    return found;
}

// No state file that agrees with the buffers, nor the buffers of both kinds, tell the sizes.
bool are_sizes_lost(const folder_content &files)
{
    const std::set<uint32_t> samples = capacities(files, "cbuf");
    const std::set<uint32_t> intervals = capacities(files, "hbuf");
    for (const char *name : {"r.state", "r.state.bak"}) {
        vesk_state_summary summary;
        const bool whole = vesk_scan_state(name, &summary) == 0;
        const bool agrees =
            (samples.empty() || samples.count(summary.num_cb_samples) != 0) &&
            (intervals.empty() || intervals.count(2 * summary.num_hb_intervals) != 0);
        vesk_state_summary_destruct(&summary);
        if (whole && agrees) {
            return false;
        }
    }
    return samples.empty() || intervals.empty();
}

// The working folder is the damaged box.
std::string check_damaged(const whole_box &box, const std::vector<wound> &wounds, bool state_is_hit,
                          bool sizes_are_told)
{
    const uint32_t samples = sizes_are_told ? box.sizes.samples : 0;
    const uint32_t intervals = sizes_are_told ? box.sizes.intervals : 0;
    const folder_content damaged = read_folder();
    vesk_recover_report plan;
    uint32_t steps = 0;
    const int planned = vesk_recover_plan("r", samples, intervals, take_step, &steps, &plan);
    std::string complaint;
    if (read_folder(damaged) != damaged) {
        complaint += "planning changed a file\n";
    }
    vesk_recover_report report;
    const int result = vesk_recover("r", samples, intervals, &report);
    const std::set<int> stated = {0, -40, -41, -6, -49, -22};
    if (stated.count(result) == 0) {
        return complaint + "recovery gives " + std::to_string(result) + "\n";
    }
    if (planned != result || plan.steps != report.steps || steps != plan.steps) {
        complaint += "planned " + std::to_string(planned) + " with " + std::to_string(plan.steps) +
                     " steps, told " + std::to_string(steps) + ", done " + std::to_string(result) +
                     " with " + std::to_string(report.steps) + "\n";
    }
    if (result != 0) {
        count_trial(refused);
        const bool is_lost = result == QE_ERROR_OPEN && is_nothing_left(damaged);
        const bool is_untold =
            result == QE_ERROR_MALFORMED && !sizes_are_told && are_sizes_lost(damaged);
        if ((is_lost || is_untold) && read_folder(damaged) == damaged) {
            return complaint;
        }
        const folder_content now = read_folder(damaged);
        return complaint + (now == damaged ? "" : "a refused box was changed\n") +
               "recovery gives " + std::to_string(result) + "\n";
    }
    count_trial(came_back);
    const std::vector<std::string> missing =
        missing_records(box.records, wounds, read_named_records());
    if (!missing.empty()) {
        const bool beside = missing_records(box.records, wounds, read_all_records()).empty();
        count_trial(kept_beside, beside ? 1 : 0);
        if (!beside || !state_is_hit) {
            complaint += std::to_string(missing.size()) + " records missing" +
                         (beside ? ", kept beside" : "") + ", the first is " + missing[0] + "\n";
        }
    }
    vesk_recover_report again;
    const int second = vesk_recover("r", 0, 0, &again);
    if (second != 0 || again.steps != 0) {
        complaint += "recovering again gives " + std::to_string(second) + " and takes " +
                     std::to_string(again.steps) + " steps\n";
    }
    return complaint + go_on_from(box);
}

// ---- Sweeps -----------------------------------------------------------------------------------

// One way to damage a box.
struct injury {
    const whole_box *box = nullptr;
    folder_content files;
    std::vector<wound> wounds;
    std::string what;
};

std::string changed(const std::string &bytes, std::size_t at, const std::string &by)
{
    std::string other = bytes;
    other.replace(at, std::min(by.size(), other.size() - at), by, 0,
                  std::min(by.size(), other.size() - at));
    return other;
}

// Makes injuries when they are asked for, not all at once.
using injury_list = std::vector<std::function<injury()>>;

injury change_file(const whole_box &box, const std::string &name, const std::string &bytes,
                   std::size_t from, std::size_t to, const std::string &what)
{
    injury one = {&box, box.files, {{name, from, to}}, what + " in " + name};
    one.files[name] = shared_bytes(bytes);
    return one;
}

void add_flips(const whole_box &box, injury_list *list)
{
    for (const auto &[name, bytes] : box.files) {
        const bool is_buffer = name.find("buf") != std::string::npos;
        const std::size_t step = is_buffer && !is_long_form() ? 3 : 1;
        for (std::size_t at = 0; at < bytes->size(); at += step) {
            for (const int kind : {0, 1, 2, 3}) {
                if (!is_long_form() && is_buffer && kind != static_cast<int>(at / step % 4)) {
                    continue;
                }
                list->push_back([&box, name = name, bytes = bytes, at, kind] {
                    const char old = (*bytes)[at];
                    const char flipped = static_cast<char>(kind == 0   ? ~old
                                                           : kind == 1 ? old ^ (1 << at % 8)
                                                           : kind == 2 ? old + 1
                                                                       : 0);
                    return change_file(box, name, changed(*bytes, at, {flipped}), at, at + 1,
                                       "byte " + std::to_string(at) + " changed to " +
                                           std::to_string(static_cast<unsigned char>(flipped)));
                });
            }
        }
    }
}

void add_ends(const whole_box &box, injury_list *list)
{
    for (const auto &[name, bytes] : box.files) {
        const std::size_t size = bytes->size();
        for (std::size_t n = 1; n <= size; ++n) {
            list->push_back([&box, name = name, bytes = bytes, size, n] {
                return change_file(box, name, bytes->substr(0, size - n), size - n, size,
                                   std::to_string(n) + " bytes cut off");
            });
            list->push_back([&box, name = name, bytes = bytes, size, n] {
                return change_file(box, name, bytes->substr(0, size - n) + std::string(n, '\0'),
                                   size - n, size, "the last " + std::to_string(n) + " bytes 0");
            });
        }
        for (const std::size_t n : {1U, 2U, 3U, 9U, 100U, 511U, 512U, 4096U, 70000U}) {
            list->push_back([&box, name = name, bytes = bytes, size, n] {
                return change_file(box, name, *bytes + std::string(n, '\0'), size, size + n,
                                   std::to_string(n) + " zeros behind the end");
            });
        }
        list->push_back([&box, name = name, size] {
            injury one = {&box, box.files, {{name, 0, size}}, name + " removed"};
            one.files.erase(name);
            return one;
        });
    }
}

void add_exchanges(const whole_box &box, injury_list *list)
{
    for (const auto &first : box.files) {
        for (const auto &second : box.files) {
            const std::string a = first.first;
            const std::string b = second.first;
            if (a == b) {
                continue;
            }
            list->push_back([&box, a, b] {
                injury one = {&box, box.files, {}, b + " is a copy of " + a};
                one.wounds = {{b, 0, box.files.at(b)->size()}};
                one.files[b] = box.files.at(a);
                return one;
            });
            if (a < b) {
                list->push_back([&box, a, b] {
                    injury one = {&box, box.files, {}, a + " and " + b + " exchanged"};
                    one.wounds = {{a, 0, box.files.at(a)->size()}, {b, 0, box.files.at(b)->size()}};
                    std::swap(one.files[a], one.files[b]);
                    return one;
                });
                list->push_back([&box, a, b] {
                    injury one = {&box, box.files, {}, a + " and " + b + " removed"};
                    one.wounds = {{a, 0, box.files.at(a)->size()}, {b, 0, box.files.at(b)->size()}};
                    one.files.erase(a);
                    one.files.erase(b);
                    return one;
                });
            }
        }
    }
}

// The state of another time, as a restored copy is: with the buffers of today, with a copy of its
// own age, or as the copy alone. And buffers of another time that came back with it.
void add_other_times(const whole_box &box, const whole_box &other, injury_list *list)
{
    const auto state = other.files.at("r.state");
    const wound state_wound = {"r.state", 0, SIZE_MAX};
    const std::string age = " of " + std::to_string(other.vectors) + " vectors";
    list->push_back([&box, state, state_wound, age] {
        injury one = {&box, box.files, {state_wound}, "state" + age};
        one.files["r.state"] = state;
        return one;
    });
    list->push_back([&box, state, state_wound, age] {
        injury one = {&box, box.files, {state_wound}, "state and backup" + age};
        one.files["r.state"] = state;
        one.files["r.state.bak"] = state;
        return one;
    });
    list->push_back([&box, state, state_wound, age] {
        injury one = {&box, box.files, {state_wound}, "only a backup" + age};
        one.files.erase("r.state");
        one.files["r.state.bak"] = state;
        return one;
    });
    list->push_back([&box, state, state_wound, age] {
        injury one = {&box, box.files, {state_wound}, "a cut state and a backup" + age};
        one.files["r.state"] = shared_bytes(state->substr(0, 20));
        one.files["r.state.bak"] = state;
        return one;
    });
    if (other.vectors < box.vectors) {
        list->push_back([&box, &other, age] {
            injury one = {&box, box.files, {}, "further buffers" + age};
            one.files.insert(other.files.begin(), other.files.end());
            return one;
        });
    }
}

// Blocks of noise, of zeros, and of another part of the same file.
void add_blocks(const whole_box &box, uint32_t seed, int n, injury_list *list)
{
    for (int k = 0; k < n; ++k) {
        list->push_back([&box, seed, k] {
            uint32_t x = seed + static_cast<uint32_t>(k) * 2654435761U;
            const auto draw = [&x](std::size_t below) {
                x = x * 1664525 + 1013904223;
                return (x >> 8) % below;
            };
            injury one = {&box, box.files, {}, "blocks " + std::to_string(k)};
            for (std::size_t i = 0; i <= draw(3); ++i) {
                auto file = box.files.begin();
                std::advance(file, static_cast<long>(draw(box.files.size())));
                const std::string &bytes = *one.files[file->first];
                const std::size_t at = draw(bytes.size());
                std::string block(1 + draw(64), '\0');
                const std::size_t kind = draw(3);
                for (char &byte : block) {
                    byte = kind == 0 ? static_cast<char>(draw(256)) : '\0';
                }
                if (kind == 2) {
                    block = bytes.substr(draw(bytes.size()), block.size());
                }
                one.wounds.push_back({file->first, at, at + block.size()});
                one.files[file->first] = shared_bytes(changed(bytes, at, block));
                one.what += ", " + std::to_string(block.size()) + " bytes at " +
                            std::to_string(at) + " of " + file->first;
            }
            return one;
        });
    }
}

// The recovery of a damaged box is killed, and done again.
std::string check_cut_recovery(const injury &one, bool all)
{
    const auto recover = [&] {
        return vesk_recover("r", one.box->sizes.samples, one.box->sizes.intervals, nullptr);
    };
    write_folder(one.files);
    int result = 0;
    const recording recovery([&](life_progress *) { result = recover(); });
    if (!recovery.complaints().empty() || result != 0) {
        return recovery.complaints();
    }
    // What an undisturbed recovery has brought back, that of a killed one has, too.
    const std::vector<stored_record> expected = read_named_records();
    for (const cut_place &place : find_cuts(recovery, all)) {
        count_trial(came_back);
        write_folder(cut_life(recovery, place));
        std::string complaint;
        result = recover();
        if (result != 0) {
            complaint = "recovery gives " + std::to_string(result) + "\n";
        }
        const std::vector<stored_record> found = read_named_records();
        const auto same = [](const stored_record &a, const stored_record &b) {
            return a.what == b.what;
        };
        if (!std::equal(found.begin(), found.end(), expected.begin(), expected.end(), same)) {
            complaint += std::to_string(found.size()) + " records, not " +
                         std::to_string(expected.size()) + "\n";
        }
        complaint += go_on_from(*one.box);
        if (!complaint.empty()) {
            return describe(recovery, place) + "\n" + complaint;
        }
    }
    return "";
}

bool is_state(const wound &one)
{
    return one.file.find("buf") == std::string::npos;
}

void sweep(const char *name, const injury_list &list)
{
    const trial_results results = run_trials(
        list.size(),
        [&](std::size_t i) {
            const injury one = list[i]();
            write_folder(one.files);
            const bool state = std::any_of(one.wounds.begin(), one.wounds.end(), is_state);
            const std::string complaint = check_damaged(*one.box, one.wounds, state, i % 2 == 0);
            return complaint.empty() ? ""
                                     : std::to_string(one.box->vectors) + " vectors, " + one.what +
                                           "\n" + complaint;
        },
        10);
    printf("%s: %zu damaged boxes, %zu failed; %llu came back, %llu refused, %llu with something "
           "kept beside\n",
           name, results.tried, results.failed,
           static_cast<unsigned long long>(results.counts[came_back]),
           static_cast<unsigned long long>(results.counts[refused]),
           static_cast<unsigned long long>(results.counts[kept_beside]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

} // namespace

TEST_F(Damage, OfAnyByteCostsItsStreamOnly)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (const whole_box &box : boxes) {
        add_flips(box, &list);
    }
    sweep("flipped", list);
}

TEST_F(Damage, OfTheEndOfAFileCostsItsStreamsOnly)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (const whole_box &box : boxes) {
        add_ends(box, &list);
    }
    if (!is_long_form()) {
        injury_list some;
        for (std::size_t i = 0; i < list.size(); i += 5) {
            some.push_back(list[i]);
        }
        list.swap(some);
    }
    sweep("ends", list);
}

TEST_F(Damage, OfWholeFilesCostsThoseFilesOnly)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (const whole_box &box : boxes) {
        add_exchanges(box, &list);
    }
    sweep("exchanged", list);
}

TEST_F(Damage, OfAStateFromAnotherTimeCostsNothing)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (const whole_box &box : boxes) {
        for (const whole_box &other : boxes) {
            add_other_times(box, other, &list);
        }
    }
    sweep("other times", list);
}

TEST_F(Damage, InBlocksCostsTheirStreamsOnly)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        add_blocks(boxes[i], static_cast<uint32_t>(i + 1), is_long_form() ? 3000 : 100, &list);
    }
    sweep("blocks", list);
}

TEST_F(Damage, ComesBackFromARecoveryThatWasKilledToo)
{
    const std::vector<whole_box> boxes = make_boxes();
    injury_list list;
    for (const whole_box &box : boxes) {
        add_flips(box, &list);
        add_ends(box, &list);
        add_exchanges(box, &list);
        add_blocks(box, 77, 200, &list);
    }
    const std::size_t every = is_long_form() ? 13 : 211;
    const trial_results results = run_trials(
        list.size() / every,
        [&](std::size_t i) {
            const injury one = list[i * every]();
            const std::string complaint = check_cut_recovery(one, is_long_form());
            return complaint.empty() ? ""
                                     : std::to_string(one.box->vectors) + " vectors, " + one.what +
                                           "\n" + complaint;
        },
        600);
    printf("%zu recoveries of damaged boxes, killed in %llu places, %zu failed\n", results.tried,
           static_cast<unsigned long long>(results.counts[came_back]), results.failed);
    EXPECT_EQ(0U, results.failed) << results.complaints;
}
