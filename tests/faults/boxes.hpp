// Boxes of one sensor on the base name "r" in the working folder: how far they are, what is in
// them, and that nothing of it is lost.
#ifndef VESK_TESTS_FAULTS_BOXES_HPP
#define VESK_TESTS_FAULTS_BOXES_HPP

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <unistd.h>

#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_check.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>
#include <vesk/vesk_start.h>

#include "common/buffer_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"
#include "common/zlib_streams.hpp"
#include "faults/fault_loop.hpp"

namespace fs = std::filesystem;

// Recorders on the base name "r", the smallest that have every stage: 4 vectors a buffer, 2
// intervals of 2 vectors each. After so many vectors the next one needs another stage:
constexpr int full_c00 = 4;
constexpr int full_cc0 = 8;
constexpr int full_ccc = 12;
constexpr int full_hcc = 16;

using owned_recorder = owned<vesk, vesk_close>;

// Vector number i has the time 1000 + i and the value i.
inline owned_matrix vector_number(int i)
{
    return make_vector(1000 + i, {{"a", static_cast<double>(i)}});
}

inline int write(vesk *recorder, int i)
{
    return vesk_write_telemetry_vector(recorder, vector_number(i).get());
}

// The names of the files of the box.
inline std::vector<std::string> box_files()
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(".")) {
        const std::string name = entry.path().filename();
        if (name.rfind("r.", 0) == 0) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline void remove_box()
{
    for (const std::string &name : box_files()) {
        fs::remove(name);
    }
}

using box_content = std::map<std::string, std::string>;

inline box_content read_box()
{
    box_content content;
    for (const std::string &name : box_files()) {
        content[name] = read_file(name);
    }
    return content;
}

inline void write_box(const box_content &content)
{
    remove_box();
    for (const auto &[name, bytes] : content) {
        write_file(name, bytes);
    }
}

// A closed box with the vectors 1 to `last`.
inline void make_box(int last)
{
    remove_box();
    const owned_recorder recorder(vesk_create("r", 4, 2));
    for (int i = 1; i <= last; ++i) {
        ASSERT_EQ(0, write(recorder.get(), i)) << i;
    }
}

// Makes the box the first time, and afterwards brings back what it was.
inline std::function<void()> box_with(int last)
{
    auto made = std::make_shared<box_content>();
    return [=] {
        if (made->empty()) {
            make_box(last);
            *made = read_box();
        } else {
            write_box(*made);
        }
    };
}

// What the current buffers and the history contain, in whatever file, as far as complete streams
// hold it.
class box_records
{
public:
    box_records()
    {
        for (const std::string &name : box_files()) {
            if (name != "r.state") {
                EXPECT_EQ(0, vesk_scan_buffer(name.c_str(), look_at, this)) << name;
            }
        }
    }

    // All of these vectors can be read, each by its own or in an interval. An interval summarises
    // just those of its time, no others.
    void expect(const std::set<int> &vectors) const
    {
        std::set<int> missing = vectors;
        for (const auto &[i, value] : samples_) {
            EXPECT_EQ(static_cast<float>(i), value);
            missing.erase(i);
        }
        for (const interval &one : intervals_) {
            uint32_t count = 0;
            float sum = 0;
            for (auto i = vectors.lower_bound(one.first); i != vectors.end() && *i <= one.last;
                 ++i) {
                ++count;
                sum += static_cast<float>(*i);
                missing.erase(*i);
            }
            EXPECT_EQ(count, one.summary.count) << one.first << " to " << one.last;
            EXPECT_EQ(sum, one.summary.sum) << one.first << " to " << one.last;
        }
        EXPECT_EQ(std::set<int>(), missing);
    }

private:
    struct interval {
        int first;
        int last;
        hist_value summary;
    };

    static int number_at(const timestamp &t) { return static_cast<int>(t.tv.tv_sec - 1000); }

    static int look_at(const vesk_scan_item *item, void *context)
    {
        auto *found = static_cast<box_records *>(context);
        if (item->values != nullptr) {
            found->samples_.emplace(number_at(item->values->timestamp), item->values->values[0]);
        }
        if (item->interval != nullptr) {
            found->intervals_.push_back({number_at(item->interval->start),
                                         number_at(item->interval->end),
                                         item->interval->hvalues[0]});
        }
        return 0;
    }

    std::map<int, float> samples_;
    std::vector<interval> intervals_;
};

// The vectors 1 to `last` were acknowledged, and so they are in the box, whatever became of its
// state file.
inline void nothing_is_lost(int last)
{
    std::set<int> vectors;
    for (int i = 1; i <= last; ++i) {
        vectors.insert(i);
    }
    box_records().expect(vectors);
}

// A recorder in part cannot be closed without its stage.
inline void close_any(vesk *recorder)
{
    if (recorder->state != 0 && recorder->stage == nullptr) {
        free(recorder->filename);
        free(recorder->state_filename);
        free(recorder);
    } else {
        vesk_close(&recorder);
    }
}

#endif
