// The rows that all reading verbs share.
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <numeric>

#include "box/box_writer.hpp"
#include "box/reading.hpp"
#include "box/waiting_events.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// Writes each row down as a word.
class row_list : public row_visitor
{
public:
    void on_interval(const interval_row &row) override
    {
        std::string text = fmt::format("[{}-{}", row.start - new_year, row.end - new_year);
        for (const interval_summary *value : row.values) {
            text += value != nullptr ? fmt::format(" {}", value->count) : " none";
        }
        rows.push_back(text + "]");
    }
    void on_sample(const sample_row &row) override
    {
        std::string text = std::to_string(row.time - new_year) + ":";
        for (const float value : row.values) {
            text += std::isnan(value) ? " none" : fmt::format(" {}", value);
        }
        rows.push_back(text);
    }
    void on_gap(const gap_row &row) override
    {
        rows.push_back(fmt::format("gap {}-{}", row.last - new_year, row.next - new_year));
    }
    void on_event(const event_row &row) override
    {
        rows.push_back(fmt::format("event {} {} {}{}", row.time - new_year, row.type, row.text,
                                   row.waits ? " waits" : ""));
    }

    std::vector<std::string> rows;
};

std::vector<std::size_t> all_of(const reading &source)
{
    std::vector<std::size_t> numbers(source.sensors().size());
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return numbers;
}

class Reading : public ::testing::Test
{
protected:
    std::string base() const { return folder.file("box"); }

    void add(box_writer &writer, int64_t second, const std::vector<float> &values)
    {
        writer.write(new_year + second, values);
    }

    // Samples 0 to @p count - 1 of sensors whose hash order is another one than theirs.
    void fill(int count)
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(names);
        for (int i = 0; i < count; ++i) {
            add(writer, i, {static_cast<float>(i), 0.5F, -1.0F});
        }
    }

    std::vector<std::string> rows_of(reading &source, const time_range &range = {})
    {
        row_list list;
        source.read(range, all_of(source), list);
        return list.rows;
    }

    const std::vector<std::string> names = {"::z", "::a", "::m"};
    temporary_directory folder{quick_folder()};
};

TEST_F(Reading, HandsOutHistoryFirstAndThenTheRawSamples)
{
    fill(14);
    reading source(base());
    EXPECT_THAT(rows_of(source),
                ElementsAre("[0-1 2 2 2]", "[2-3 2 2 2]", "[4-5 2 2 2]", "[6-7 2 2 2]",
                            "8: 8 0.5 -1", "9: 9 0.5 -1", "10: 10 0.5 -1", "11: 11 0.5 -1",
                            "12: 12 0.5 -1", "13: 13 0.5 -1"));
    EXPECT_EQ(source.begin(), new_year);
    EXPECT_EQ(source.end(), new_year + 13);
    EXPECT_EQ(source.usual_step(), 1);
    EXPECT_EQ(source.samples(), 6U);
    EXPECT_EQ(source.intervals(), 4U);
    EXPECT_EQ(source.code(), exit_done);
}

TEST_F(Reading, SensorsHaveTheOrderInWhichTheMachineNamesThem)
{
    fill(14);
    EXPECT_EQ(reading(base()).sensors(), names);
}

TEST_F(Reading, ChosenSensorsHaveTheirPlacesWhateverTheRecordsHold)
{
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a", "::b"});
        add(writer, 0, {1, 2});
        writer.set_sensors(std::vector<std::string>{"::b", "::c"});
        add(writer, 1, {3, 4});
    }
    reading source(base());
    row_list list;
    source.read({}, {0, 1}, list);
    EXPECT_THAT(list.rows, ElementsAre("0: 1 2", "1: none 3"));
    row_list last;
    source.read({}, {2}, last);
    EXPECT_THAT(last.rows, ElementsAre("0: none", "1: 4"));
}

TEST_F(Reading, TellsOnlyWhatIsInTheRange)
{
    fill(14);
    reading source(base());
    const time_range range = {new_year + 7, new_year + 9};
    EXPECT_THAT(rows_of(source, range), ElementsAre("[6-7 2 2 2]", "8: 8 0.5 -1", "9: 9 0.5 -1"));
}

TEST_F(Reading, TellsHolesAmongTheSamples)
{
    {
        box_writer writer(base(), {8, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        for (const int64_t second : {0, 10, 20, 40, 61, 71}) {
            add(writer, second, {1});
        }
    }
    reading source(base());
    EXPECT_EQ(source.usual_step(), 10);
    EXPECT_THAT(rows_of(source),
                ElementsAre("0: 1", "10: 1", "20: 1", "40: 1", "gap 40-61", "61: 1", "71: 1"));
}

TEST_F(Reading, ABoxWithoutSamplesHasNoEnd)
{
    {
        box_writer writer(base(), {4, 2});
    }
    reading source(base());
    EXPECT_THAT(rows_of(source), ElementsAre());
    EXPECT_EQ(source.end(), std::nullopt);
    EXPECT_EQ(source.code(), exit_done);
    EXPECT_EQ(source.usual_step(), 0);
}

TEST_F(Reading, EventsStandAmongTheSamplesAndWaitingOnesBehindThem)
{
    {
        box_writer writer(base(), {4, 2});
        waiting_events events(writer, base());
        writer.set_sensors(std::vector<std::string>{"::a"});
        add(writer, 0, {1});
        EXPECT_EQ(events.write({3, new_year, "here"}), event_result::recorded);
        for (int64_t second = 1; second < 4; ++second) {
            add(writer, second, {1});
        }
        EXPECT_EQ(events.write({5, new_year + 4, "late"}), event_result::waits);
    }
    reading source(base());
    EXPECT_THAT(rows_of(source), ElementsAre("0: 1", "event 0 3 here", "1: 1", "2: 1", "3: 1",
                                             "event 4 5 late waits"));
}

TEST_F(Reading, WithoutAStateFileNothingIsCountedTwice)
{
    fill(14);
    const std::vector<std::string> whole = [&] {
        reading source(base());
        return rows_of(source);
    }();
    std::filesystem::remove(base() + ".state");
    CaptureStderr();
    reading source(base());
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("box.state: is missing"));
    EXPECT_EQ(rows_of(source), whole);
    EXPECT_EQ(source.code(), exit_damaged);
}

// What a rotation leaves that was killed before it deleted the files that it had summed up.
TEST_F(Reading, SamplesThatAreStillThereAreNotTakenFromHistoryAgain)
{
    fill(12);
    std::filesystem::create_directory(folder.file("kept"));
    for (const std::string &name : folder.names()) {
        if (name.ends_with(".cbuf.z")) {
            std::filesystem::copy(folder.file(name), folder.file("kept/" + name));
        }
    }
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(names);
        add(writer, 12, {12, 0.5, -1});
    }
    for (const auto &entry : std::filesystem::directory_iterator(folder.file("kept"))) {
        std::filesystem::copy(entry.path(), folder.file(entry.path().filename()),
                              std::filesystem::copy_options::skip_existing);
    }
    std::filesystem::remove(base() + ".state");
    CaptureStderr();
    reading source(base());
    GetCapturedStderr();
    EXPECT_EQ(source.samples(), 13U);
    EXPECT_EQ(source.intervals(), 0U);
}

TEST_F(Reading, ReadsOneFileAlone)
{
    fill(14);
    std::vector<std::string> files;
    for (const std::string &name : folder.names()) {
        if (name.ends_with(".hbuf.z")) {
            files.push_back(name);
        }
    }
    ASSERT_EQ(files.size(), 1U);
    reading source(folder.file(files.front()));
    EXPECT_EQ(rows_of(source).size(), 4U);
}

TEST_F(Reading, WhatIsNotThereIsAFailure)
{
    EXPECT_THROW(reading(folder.file("nothing")), failure);
}

// Every byte of a small box, one after the other, in the buffers and in the state file.
TEST_F(Reading, DamageAnywhereIsBorneAndTold)
{
    fill(14);
    std::size_t changed = 0;
    for (const std::string &name : folder.names()) {
        const std::string path = folder.file(name);
        std::ifstream in(path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        for (std::size_t i = 0; i < bytes.size(); i += 7) {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ (i % 2 == 0 ? 0x01 : 0xff));
            std::ofstream(path, std::ios::binary) << damaged;
            CaptureStderr();
            try {
                reading source(base());
                rows_of(source);
                EXPECT_THAT((std::vector{exit_done, exit_damaged, exit_unreadable}),
                            ::testing::Contains(source.code()));
            } catch (const failure &reason) {
                EXPECT_NE(reason.code(), exit_usage);
            }
            GetCapturedStderr();
            ++changed;
        }
        std::ofstream(path, std::ios::binary) << bytes;
    }
    EXPECT_GT(changed, 100U);
}

} // namespace
