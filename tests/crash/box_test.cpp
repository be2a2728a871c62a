// What looks at the boxes must see what is wrong with them.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include <vesk/vesk.h>

#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/recording.hpp"
#include "crash/trials.hpp"

namespace
{

namespace fs = std::filesystem;

constexpr box_sizes sizes = {4, 2};

// A box of 18 vectors, the first 12 of them in the history.
class Box : public testing::Test
{
protected:
    Box() : working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
        const owned_recorder recorder(vesk_create("r", sizes.samples, sizes.intervals));
        for (int i = 1; i <= 18; ++i) {
            given_.push_back(vector_entry(i, 1));
            given_.push_back(event_entry(i, i));
        }
        for (entry &one : given_) {
            EXPECT_EQ(0, write_entry(recorder.get(), one));
            one.acknowledged = true;
        }
    }
    ~Box() override { fs::current_path(working_folder_); }

    std::string compare() const
    {
        entries given = given_;
        return compare_box(&given, sizes);
    }

    entries given_;

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

} // namespace

TEST_F(Box, AsItWasWrittenGivesNoComplaint)
{
    EXPECT_EQ("", compare());
    EXPECT_EQ("", go_on(&given_, 19, 30, 1));
    EXPECT_EQ("", compare());
}

TEST_F(Box, WhatWasNotAcknowledgedMayBeThereOrNot)
{
    given_.back().acknowledged = false;
    entry next = vector_entry(19, 1);
    given_.push_back(next);
    EXPECT_EQ("", compare_box(&given_, sizes));
    EXPECT_EQ(36U, given_.size());
    EXPECT_TRUE(given_.back().acknowledged);
}

TEST_F(Box, EveryDifferenceIsSeen)
{
    const entries right = given_;
    for (std::size_t i = 0; i < right.size(); ++i) {
        // Behind the last vector of a full buffer that was summarised, an event is in no interval.
        const int number = right[i].number;
        const bool uncounted = right[i].is_event && number <= 12 && number % 4 == 0;
        given_ = right;
        given_.erase(given_.begin() + static_cast<long>(i));
        EXPECT_EQ(uncounted, compare().empty()) << "without " << i;
        given_ = right;
        given_.insert(given_.begin() + static_cast<long>(i), right[i]);
        EXPECT_EQ(uncounted, compare().empty()) << "twice " << i;
        given_ = right;
        if (given_[i].is_event) {
            given_[i].type = given_[i].type % 5 + 1;
        } else {
            given_[i].readings.back().value += 1;
        }
        EXPECT_EQ(uncounted, compare().empty()) << "other " << i;
        given_ = right;
        if (!given_[i].is_event) {
            given_[i].readings.back().sensor += "x";
            EXPECT_NE("", compare()) << "renamed " << i;
        }
    }
    given_ = right;
    std::swap(given_[30], given_[31]);
    EXPECT_NE("", compare());
}

TEST_F(Box, ABufferThatIsMissingOrTornIsSeen)
{
    for (const char *name : {"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z", "r.state"}) {
        const std::string bytes = read_file(name);
        fs::remove(name);
        EXPECT_NE("", compare()) << name;
        write_file(name, bytes.substr(0, bytes.size() - 1));
        EXPECT_NE("", compare()) << name;
        write_file(name, bytes);
        EXPECT_EQ("", compare());
    }
}

TEST_F(Box, TheLifeOfAFolderIsSeenCallByCall)
{
    write_folder({});
    const recording life([](life_progress *progress) {
        FILE *file = fopen("a", "w");
        (void)fwrite("12345", 1, 5, file);
        (void)fflush(file);
        ++progress->acknowledged;
        (void)fwrite("67", 1, 2, file);
        (void)fclose(file);
        (void)rename("a", "b");
        (void)unlink("b");
    });
    EXPECT_EQ("", life.complaints());
    std::vector<std::string> cuts;
    for (const cut_place &place : find_cuts(life, true)) {
        std::string text = std::to_string(life.moments()[place.behind].progress.acknowledged);
        for (const auto &[name, bytes] : cut_life(life, place)) {
            text += " " + name + ":" + *bytes;
        }
        if (cuts.empty() || cuts.back() != text) {
            cuts.push_back(text);
        }
    }
    EXPECT_EQ((std::vector<std::string>{"0", "0 a:", "0 a:1", "0 a:12", "0 a:123", "0 a:1234",
                                        "0 a:12345", "1 a:12345", "1 a:123456", "1 a:1234567",
                                        "1 b:1234567", "1"}),
              cuts);
}

TEST_F(Box, AChangeThatNoCallMadeIsSeen)
{
    const recording life([](life_progress *) { write_file("behind.the.back", "x"); });
    EXPECT_NE("", life.complaints());
}

TEST(Trials, TellWhatEndedTheProcess)
{
    const trial_results results = run_trials(6, [](std::size_t i) -> std::string {
        count_trial(1, i);
        if (i == 2) {
            fputs("last words", stderr);
            abort();
        }
        return i == 4 ? "a complaint" : "";
    });
    EXPECT_EQ(6U, results.tried);
    EXPECT_EQ(2U, results.failed);
    EXPECT_EQ(15U, results.counts[1]);
    EXPECT_NE(std::string::npos, results.complaints.find("last words"));
    EXPECT_NE(std::string::npos, results.complaints.find("trial 4: a complaint"));
}

TEST(Trials, EndWhatTakesTooLong)
{
    const trial_results results = run_trials(
        2,
        [](std::size_t i) -> std::string {
            while (i == 0) {
            }
            return "";
        },
        1);
    EXPECT_EQ(2U, results.tried);
    EXPECT_EQ(1U, results.failed);
}
