// Recorders on the base name "r" in a folder of their own, and the bytes that they are to write:
// what the tests of the recorder share.
#ifndef VESK_TESTS_RECORDER_RECORDER_FIXTURE_HPP
#define VESK_TESTS_RECORDER_RECORDER_FIXTURE_HPP

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;
using name_set = std::set<std::string>;

// The smallest recorder that has every stage: 4 vectors a buffer, 2 intervals of 2 vectors each.
// The number of the first vector of each stage:
constexpr int first_in_cc0 = 5;
constexpr int first_in_ccc = 9;
constexpr int first_in_hcc = 13;
constexpr int first_after_hcc = 17;

// Recorders on the base name "r" in a folder of their own, which is the working folder.
class Recorder : public testing::Test
{
protected:
    Recorder() : working_folder_(fs::current_path()) { fs::current_path(folder_.path()); }
    ~Recorder() override { fs::current_path(working_folder_); }

    static owned_recorder create() { return owned_recorder(vesk_create("r", 4, 2)); }
    static owned_recorder open() { return owned_recorder(vesk_open("r")); }

    // Vector number i has the time 1000 + i and the value i.
    static int write(vesk *recorder, int i)
    {
        const owned_matrix vector = make_vector(1000 + i, {{"a", static_cast<double>(i)}});
        return vesk_write_telemetry_vector(recorder, vector.get());
    }
    // Writes the vectors `from` to `to`, both included.
    static void write_all(vesk *recorder, int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            ASSERT_EQ(0, write(recorder, i)) << i;
        }
    }
    // A recorder with the vectors 1 to `last`.
    static owned_recorder create_with(int last)
    {
        owned_recorder recorder = create();
        write_all(recorder.get(), 1, last);
        return recorder;
    }
    static int write_event(vesk *recorder, uint32_t type = 3)
    {
        const owned_event event = make_event(type, 1000, "text");
        return vesk_write_event(recorder, event.get());
    }

    static int write_tagged(vesk *recorder, uint32_t type, int i, const std::string &text = "text")
    {
        const owned_event event = make_event(type, 1000 + i, text);
        return vesk_write_tagged_event(recorder, event.get());
    }

    name_set files() const { return folder_.names(); }
    static std::string state() { return read_file("r.state"); }
    // What a buffer contains, however it was cut into streams.
    static std::string content(const std::string &name)
    {
        std::string all;
        for (const std::string &part : zlib_contents(read_file(name))) {
            all += part;
        }
        return all;
    }

    temporary_directory folder_;

private:
    fs::path working_folder_;
};

inline std::string stored_sample(int i)
{
    return stored_values_record(static_cast<uint32_t>(1000 + i), {static_cast<float>(i)});
}

// What a closed current buffer with the vectors `from` to `to` contains.
inline std::string stored_cbuf(int from, int to)
{
    std::string content =
        stored_buffer_header(1, 4) + stored_names_record(static_cast<uint32_t>(1000 + from), {"a"});
    for (int i = from; i <= to; ++i) {
        content += stored_sample(i);
    }
    return content;
}

// The interval of the vectors `from` to `to`.
inline std::string stored_interval(int from, int to)
{
    std::vector<float> samples;
    for (int i = from; i <= to; ++i) {
        samples.push_back(static_cast<float>(i));
    }
    return stored_interval_record(static_cast<uint32_t>(1000 + from),
                                  static_cast<uint32_t>(1000 + to), {stored_summary(samples)});
}

inline std::string stored_hbuf_head()
{
    return stored_buffer_header(2, 4) + stored_names_record(1001, {"a"});
}

// A state file on base name "r".
inline std::string stored_state(uint32_t stage, uint32_t next_file_number,
                                const std::vector<std::string> &buffers)
{
    std::string bytes = "\1" + stored_string("r") + stored_string("r.state") + stored_u32(stage) +
                        stored_u32(4) + stored_u32(2) + stored_u32(2) +
                        stored_u32(next_file_number) + "\1";
    for (const std::string &name : buffers) {
        bytes += stored_string(name);
    }
    return bytes;
}

// What recorders that vesk_close() refuses leave: they were read without their stage.
inline void release_by_hand(vesk *recorder)
{
    free(recorder->filename);
    free(recorder->state_filename);
    free(recorder);
}

#endif
