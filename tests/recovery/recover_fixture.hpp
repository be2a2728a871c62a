// Boxes on the base name "r" in a folder of their own, damaged and recovered: what the tests of
// recovering share.
#ifndef VESK_TESTS_RECOVERY_RECOVER_FIXTURE_HPP
#define VESK_TESTS_RECOVERY_RECOVER_FIXTURE_HPP

#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;
using file_names = std::set<std::string>;

// What a step says, without the parts that depend on how well zlib compresses.
struct recover_step {
    vesk_recover_action action;
    std::string file;
    uint32_t count;

    friend bool operator==(const recover_step &, const recover_step &) = default;
};

inline void PrintTo(const recover_step &s, std::ostream *out)
{
    *out << "{" << s.action << ", " << s.file << ", " << s.count << "}";
}

using steps = std::vector<recover_step>;

// Boxes on the base name "r" in a folder of their own, which is the working folder: 4 vectors a
// buffer, 2 intervals of 2 vectors each.
class Recover : public testing::Test
{
protected:
    Recover() : working_folder_(fs::current_path()) { fs::current_path(folder_.path()); }
    ~Recover() override { fs::current_path(working_folder_); }

    // A box with vectors 1 to `last`, closed. Vector i has the time 1000 + i and the value i.
    static void make_box(int last)
    {
        owned_recorder recorder(vesk_create("r", 4, 2));
        for (int i = 1; i <= last; ++i) {
            write(recorder.get(), i);
        }
    }

    static void write(vesk *recorder, int i)
    {
        const owned_matrix vector = make_vector(1000 + i, {{"a", static_cast<double>(i)}});
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder, vector.get())) << i;
    }

    static void add_event(uint32_t type, const std::string &text)
    {
        owned_recorder recorder(vesk_open("r"));
        const owned_event event = make_event(type, 1500, text);
        ASSERT_EQ(0, vesk_write_event(recorder.get(), event.get()));
    }

    static steps plan(uint32_t samples = 0, uint32_t intervals = 0)
    {
        steps found;
        const auto take = [](const vesk_recover_step *s, void *to) {
            static_cast<steps *>(to)->push_back({s->action, s->filename, s->count});
            return 0;
        };
        vesk_recover_report report;
        EXPECT_EQ(0, vesk_recover_plan("r", samples, intervals, take, &found, &report));
        uint32_t changing = 0;
        for (const recover_step &s : found) {
            changing += s.action != VESK_RECOVER_KEEP ? 1 : 0;
        }
        EXPECT_EQ(changing, report.steps);
        return found;
    }

    // Recovers, and sees that a second time finds nothing to do.
    static vesk_recover_report recover(uint32_t samples = 0, uint32_t intervals = 0)
    {
        vesk_recover_report planned;
        EXPECT_EQ(0, vesk_recover_plan("r", samples, intervals, nullptr, nullptr, &planned));
        vesk_recover_report report;
        EXPECT_EQ(0, vesk_recover("r", samples, intervals, &report));
        EXPECT_EQ(0, memcmp(&planned, &report, sizeof report));
        vesk_recover_report again;
        EXPECT_EQ(0, vesk_recover("r", 0, 0, &again));
        EXPECT_EQ(0U, again.steps);
        return report;
    }

    // Opens the box and writes vectors from `next` on through two more rotations.
    static void goes_on(int next)
    {
        qe_set_last_error(0);
        const owned_recorder recorder(vesk_open("r"));
        ASSERT_TRUE(recorder);
        ASSERT_EQ(0, qe_get_last_error());
        for (int i = next; i < next + 17; ++i) {
            write(recorder.get(), i);
        }
    }

    // The values of the first sensor in the samples of a file.
    static std::vector<float> samples_in(const std::string &file)
    {
        std::vector<float> found;
        EXPECT_EQ(0, vesk_scan_buffer(
                         file.c_str(),
                         [](const vesk_scan_item *item, void *to) {
                             EXPECT_EQ(0, item->error);
                             if (item->kind == VESK_SCAN_SENSOR_VALUES) {
                                 static_cast<std::vector<float> *>(to)->push_back(
                                     item->values->values[0]);
                             }
                             return 0;
                         },
                         &found));
        return found;
    }

    // The names of the sensors of the last samples of a file.
    static std::vector<std::string> sensors_in(const std::string &file)
    {
        std::vector<std::string> found;
        EXPECT_EQ(0, vesk_scan_buffer(
                         file.c_str(),
                         [](const vesk_scan_item *item, void *to) {
                             auto *list = static_cast<std::vector<std::string> *>(to);
                             if (item->kind == VESK_SCAN_SENSOR_VALUES ||
                                 item->kind == VESK_SCAN_INTERVAL) {
                                 list->clear();
                                 const sensor_array *s = item->names->sensors;
                                 for (uint32_t i = 0; i < sensor_array_get_size(s); ++i) {
                                     char name[10001];
                                     list->emplace_back(
                                         sensor_get_name(sensor_array_get(s, static_cast<int>(i)),
                                                         name, sizeof name));
                                 }
                             }
                             return 0;
                         },
                         &found));
        return found;
    }

    static std::vector<std::string> events_in(const std::string &file)
    {
        std::vector<std::string> found;
        EXPECT_EQ(0, vesk_scan_buffer(
                         file.c_str(),
                         [](const vesk_scan_item *item, void *to) {
                             if (item->kind == VESK_SCAN_EVENT) {
                                 static_cast<std::vector<std::string> *>(to)->push_back(
                                     std::to_string(item->event->type) + " " + item->event->text);
                             }
                             return 0;
                         },
                         &found));
        return found;
    }

    static void append(const std::string &file, const std::string &bytes)
    {
        write_file(file, read_file(file) + bytes);
    }
    static void cut(const std::string &file, std::size_t bytes)
    {
        const std::string content = read_file(file);
        write_file(file, content.substr(0, content.size() - bytes));
    }

    file_names files() const { return folder_.names(); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

#endif
