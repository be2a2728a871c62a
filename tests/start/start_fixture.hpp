// A recorder that is started on the base name "r" in a folder of its own, written to and settled:
// what the tests of starting share.
#ifndef VESK_TESTS_START_START_FIXTURE_HPP
#define VESK_TESTS_START_START_FIXTURE_HPP

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_start.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;
using folder_content = std::map<std::string, std::string>;
using strings = std::vector<std::string>;

// The last vector with which a box is in each of its stages, and full.
inline constexpr int full_c00 = 4;
inline constexpr int full_cc0 = 8;
inline constexpr int full_ccc = 12;
inline constexpr int full_hcc = 16;

class Start : public testing::Test
{
protected:
    Start() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~Start() override { fs::current_path(working_folder_); }

    static owned_recorder start(vesk_start_report *report = nullptr)
    {
        qe_set_last_error(0);
        return owned_recorder(vesk_start("r", 4, 2, report));
    }
    static int write(const owned_recorder &recorder, int i)
    {
        return vesk_write_telemetry_vector(
            recorder.get(), make_vector(1000 + i, {{"a", static_cast<double>(i)}}).get());
    }
    static int write_event(const owned_recorder &recorder, int i)
    {
        return vesk_write_tagged_event(recorder.get(), make_event(3, 1000 + i, "text").get());
    }
    static void write_all(const owned_recorder &recorder, int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            ASSERT_EQ(0, write(recorder, i)) << i;
            ASSERT_EQ(0, vesk_settle(recorder.get())) << i;
        }
    }
    static owned_recorder start_with(int last)
    {
        owned_recorder recorder = start();
        write_all(recorder, 1, last);
        return recorder;
    }

    static folder_content files()
    {
        folder_content content;
        for (const auto &entry : fs::directory_iterator(".")) {
            const std::string name = entry.path().filename();
            content[name] = fs::is_regular_file(entry.symlink_status()) ? read_file(name) : "";
        }
        return content;
    }
    static std::vector<std::string> names()
    {
        std::vector<std::string> found;
        for (const auto &[name, bytes] : files()) {
            found.push_back(name);
        }
        return found;
    }
    static void clear()
    {
        for (const std::string &name : names()) {
            fs::remove(name);
        }
    }
    static void put_back(const folder_content &content)
    {
        clear();
        for (const auto &[name, bytes] : content) {
            write_file(name, bytes);
        }
    }
    // What a box needs to take another vector in every stage is there, and nothing is lost.
    static void expect_goes_on(int next)
    {
        vesk_start_report report;
        const owned_recorder recorder = start(&report);
        ASSERT_TRUE(recorder) << qe_get_last_error();
        EXPECT_EQ(0, report.created);
        write_all(recorder, next, next + 8);
    }

private:
    // Syncing costs nothing in memory.
    static std::string fast_folder()
    {
        const char *memory = "/dev/shm";
        return access(memory, W_OK) == 0 ? memory : fs::temp_directory_path().string();
    }

    temporary_directory folder_;
    fs::path working_folder_;
};

// The copy of a state file: its bytes, and a checksum of them behind it.
inline std::string copy_of(const std::string &state)
{
    const uLong sum =
        crc32(0, reinterpret_cast<const Bytef *>(state.data()), static_cast<uInt>(state.size()));
    std::string copy = state + "VSKC";
    for (const int shift : {24, 16, 8, 0}) {
        copy += static_cast<char>(sum >> shift & 0xff);
    }
    return copy;
}

#endif
