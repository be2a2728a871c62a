// What a page shows and what the stream of its box tells behind it are, together, each sample once.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "box/box_writer.hpp"
#include "box/reading.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "page/html.hpp"
#include "serve/box_stream.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class time_list : public row_visitor
{
public:
    void on_sample(const sample_row &row) override { times.push_back(row.time - new_year); }
    std::vector<int64_t> times;
};

// What a message is, without what changes from one run to the next: "names", "sample 3".
std::string kind_of(const std::string &message)
{
    const std::size_t event = message.find("event: ");
    std::string kind = message.substr(event + 7, message.find('\n', event) - event - 7);
    const std::size_t data = message.find("data: ");
    if (kind == "sample") {
        kind += " " + std::to_string(std::stoll(message.substr(data + 6)) - new_year);
    }
    return kind;
}

class BoxStream : public ::testing::Test
{
protected:
    std::string base() const { return folder.file("box"); }

    // What a page would be made of: the times of its raw samples, and where they end.
    std::vector<int64_t> page_times(raw_position &behind)
    {
        reading source(base());
        time_list list;
        source.read({}, {}, list);
        behind = source.position();
        return list.times;
    }

    // Without how the box stands: in the process that writes, nobody is seen to write.
    std::vector<std::string> kinds(stream_place &place)
    {
        std::vector<std::string> all;
        while (const shared_text next = stream.next(place)) {
            if (const std::string kind = kind_of(*next); kind != "state") {
                all.push_back(kind);
            }
        }
        return all;
    }

    temporary_directory folder{quick_folder()};
    box_stream stream{base(), {}, "abc"};
};

TEST_F(BoxStream, GoesOnBehindAPageThroughRotationsAndNewRecordings)
{
    std::mt19937 chance(1);
    auto writer = std::make_unique<box_writer>(base(), box_shape{4, 2});
    writer->set_sensors(std::vector<std::string>{"::a"});
    int64_t second = 0;
    for (; second < 3; ++second) {
        writer->write(new_year + second, std::vector<float>{1});
    }
    for (int pages = 0; pages < 60; ++pages) {
        raw_position behind;
        const std::vector<int64_t> shown = page_times(behind);
        ASSERT_EQ(shown.back(), second - 1);
        stream_place place = stream.place_behind(stream.id_of(behind));
        std::vector<std::string> expected;
        for (auto more = chance() % 4; more > 0; --more, ++second) {
            writer->write(new_year + second, std::vector<float>{1});
            expected.push_back("sample " + std::to_string(second));
        }
        if (chance() % 5 == 0) {
            writer.reset();
            writer = std::make_unique<box_writer>(base(), box_shape{4, 2});
            writer->set_sensors(std::vector<std::string>{"::a"});
        }
        stream.look();
        std::vector<std::string> found = kinds(place);
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [](const auto &kind) { return !kind.starts_with("sample"); }),
                    found.end());
        EXPECT_EQ(found, expected) << "page " << pages;
        if (chance() % 3 == 0) {
            stream.rest();
        }
    }
}

TEST_F(BoxStream, HasTheValuesOfTheChosenSensorsInTheOrderOfTheirNames)
{
    box_stream chosen(base(), {"b*"}, "abc");
    box_writer writer(base(), {8, 2});
    writer.set_sensors(std::vector<std::string>{"::b1", "::a", "::b2"});
    writer.write(new_year, std::vector<float>{1, 2, 3});
    stream_place place = chosen.place_behind(chosen.id_of({}));
    EXPECT_THAT(*chosen.next(place), HasSubstr("event: state"));
    EXPECT_THAT(*chosen.next(place), HasSubstr("data: [\"::b1\",\"::b2\"]\n"));
    const std::vector<float> values = {1, 3};
    EXPECT_THAT(*chosen.next(place),
                HasSubstr("data: " + std::to_string(new_year) + " " + base64_of(values) + "\n"));
    EXPECT_EQ(chosen.next(place), nullptr);
}

TEST_F(BoxStream, TellsNewNamesBeforeTheirValues)
{
    box_writer writer(base(), {8, 2});
    writer.set_sensors(std::vector<std::string>{"::a"});
    writer.write(new_year, std::vector<float>{1});
    stream_place place = stream.place_behind(stream.id_of({}));
    EXPECT_THAT(kinds(place), ElementsAre("names", "sample 0"));
    writer.set_sensors(std::vector<std::string>{"::a", "::b"});
    writer.write(new_year + 1, std::vector<float>{1, 2});
    writer.write(new_year + 2, std::vector<float>{1, 2});
    stream.look();
    EXPECT_THAT(kinds(place), ElementsAre("names", "sample 1", "sample 2"));
}

TEST_F(BoxStream, MessagesAreMadeOnceForAllWatchers)
{
    box_writer writer(base(), {8, 2});
    writer.set_sensors(std::vector<std::string>{"::a"});
    writer.write(new_year, std::vector<float>{1});
    stream_place first = stream.place_behind(stream.id_of({}));
    stream_place second = stream.place_behind(stream.id_of({}));
    while (const shared_text one = stream.next(first)) {
        EXPECT_EQ(one, stream.next(second));
    }
}

TEST_F(BoxStream, TextsOfEventsCannotEndAMessage)
{
    box_writer writer(base(), {8, 2});
    writer.set_sensors(std::vector<std::string>{"::a"});
    writer.write(new_year, std::vector<float>{1});
    writer.write({4, new_year, "one\n\nevent: reload\rdata: x\n\n</script>"});
    stream_place place = stream.place_behind(stream.id_of({}));
    std::string message;
    while (const shared_text next = stream.next(place)) {
        message = *next;
    }
    EXPECT_EQ(kind_of(message), "event");
    EXPECT_EQ(message.find('\r'), std::string::npos);
    EXPECT_EQ(message.find("\n\n"), message.size() - 2);
}

TEST_F(BoxStream, PlacesThatItDoesNotKnowMakeThePageLoadAnew)
{
    {
        box_writer writer(base(), {8, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(new_year, std::vector<float>{1});
    }
    for (const char *id : {"", "abc", "abc-", "abc-1", "abc-1.1", "abc-1.1.9", "abc-1.2.0",
                           "abc-2.1.0", "abd-1.1.0", "abc-1.1.0.0", "abc-1.1.0 ", "abc--1.1.0",
                           "abc-1.99999999999.0", "abc-1.1.99999999999999999999", "abc-1.1.x"}) {
        stream_place place = stream.place_behind(id);
        EXPECT_THAT(kinds(place), ElementsAre("reload")) << id;
        EXPECT_TRUE(place.is_over) << id;
    }
}

// Its file may have been full before it was deleted, and the files that are there may be the next
// ones: then nothing but the missing file tells of the loss.
TEST_F(BoxStream, WhatWasDeletedBeforeItWasReadMakesThePageLoadAnew)
{
    int reloads = 0;
    for (int64_t begin = 1; begin < 5; ++begin) {
        for (int64_t more = 0; more < 24; ++more) {
            temporary_directory other{quick_folder()};
            const std::string name = other.file("box");
            box_writer writer(name, {4, 2});
            writer.set_sensors(std::vector<std::string>{"::a"});
            int64_t second = 0;
            while (second < 12 + begin) {
                writer.write(new_year + second++, std::vector<float>{1});
            }
            time_list list;
            reading source(name);
            source.read({}, {}, list);
            std::vector<std::string> expected;
            for (int64_t i = 0; i < more; ++i, ++second) {
                writer.write(new_year + second, std::vector<float>{1});
                expected.push_back("sample " + std::to_string(second));
            }
            box_stream late(name, {}, "abc");
            stream_place place = late.place_behind(late.id_of(source.position()));
            std::vector<std::string> found;
            while (const shared_text next = late.next(place)) {
                if (const std::string kind = kind_of(*next); kind != "state" && kind != "names") {
                    found.push_back(kind);
                }
            }
            if (found == std::vector<std::string>{"reload"}) {
                ++reloads;
            } else {
                EXPECT_EQ(found, expected) << begin << " and " << more;
            }
        }
    }
    EXPECT_GT(reloads, 4);
    EXPECT_LT(reloads, 4 * 20);
}

TEST_F(BoxStream, AWatcherThatIsFarBehindLoadsAnewAndCostsNothing)
{
    box_writer writer(base(), {20000, 2});
    writer.set_sensors(std::vector<std::string>{"::a"});
    writer.write(new_year, std::vector<float>{1});
    stream_place slow = stream.place_behind(stream.id_of({}));
    for (int64_t second = 1; second < 9000; ++second) {
        writer.write(new_year + second, std::vector<float>{1});
    }
    stream.look();
    EXPECT_THAT(kinds(slow), ElementsAre("reload"));
}

TEST_F(BoxStream, ABoxThatGoesAndComesBackIsToldAndLoadedAnew)
{
    {
        box_writer writer(base(), {8, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        writer.write(new_year, std::vector<float>{1});
    }
    stream_place place = stream.place_behind(stream.id_of({}));
    (void)kinds(place);
    const std::string other = folder.file("elsewhere");
    std::filesystem::create_directory(other);
    const auto move_all = [&](const std::filesystem::path &from, const std::filesystem::path &to) {
        std::vector<std::filesystem::path> files;
        for (const auto &entry : std::filesystem::directory_iterator(from)) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
        for (const auto &file : files) {
            std::filesystem::rename(file, to / file.filename());
        }
    };
    const std::filesystem::path home = std::filesystem::path(base()).parent_path();
    move_all(home, other);
    stream.look();
    const shared_text state = stream.next(place);
    ASSERT_TRUE(state);
    EXPECT_THAT(*state, HasSubstr("event: state"));
    EXPECT_THAT(*state, ::testing::Not(HasSubstr("\"problem\":\"\"")));
    EXPECT_EQ(stream.next(place), nullptr);
    move_all(other, home);
    stream.look();
    EXPECT_THAT(kinds(place), ElementsAre("reload"));
}

TEST_F(BoxStream, AnotherBoxUnderTheNameIsLoadedAnew)
{
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        for (int64_t second = 0; second < 30; ++second) {
            writer.write(new_year + second, std::vector<float>{1});
        }
    }
    raw_position behind;
    (void)page_times(behind);
    stream_place place = stream.place_behind(stream.id_of(behind));
    (void)kinds(place);
    for (const auto &entry : std::filesystem::directory_iterator(folder.file(""))) {
        std::filesystem::remove(entry.path());
    }
    box_writer writer(base(), {4, 2});
    writer.set_sensors(std::vector<std::string>{"::a"});
    writer.write(new_year, std::vector<float>{1});
    stream.look();
    EXPECT_THAT(kinds(place), ElementsAre("reload"));
}

} // namespace
