// A flood of events stays within its budget, and what is left out is told.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "box/box_writer.hpp"
#include "box/limited_events.hpp"
#include "box/storage_failure.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"
#include "text/event_text.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;

// Takes events as a box does, and remembers them.
class taker
{
public:
    limited_events::writer writer()
    {
        return [this](const event &what) {
            if (fails) {
                throw storage_failure("no room");
            }
            texts.push_back(what.text);
            bytes += stored_size_of(what);
            return waits ? event_result::waits : event_result::recorded;
        };
    }
    std::vector<std::string> texts;
    uint64_t bytes = 0;
    bool fails = false;
    bool waits = false;
};

event text_of(std::size_t size)
{
    return {level_note, 1000, std::string(size, 'x')};
}

TEST(LimitedEvents, LeaveRoomForWhatIsMoreImportant)
{
    taker box;
    limited_events events(box.writer(), {100000, 0, 0});
    while (events.write(event_source::kernel, text_of(500))) {
    }
    EXPECT_LE(box.bytes, 50000U);
    EXPECT_GT(box.bytes, 49000U);
    EXPECT_FALSE(events.write(event_source::top, text_of(500)));
    try {
        for (;;) {
            events.write_of_user(text_of(500));
        }
    } catch (const event_limit_reached &reason) {
        EXPECT_STREQ(reason.what(), "the events of this buffer take 75000 bytes already, and more "
                                    "are taken only when the next one begins");
    }
    EXPECT_LE(box.bytes, 75000U);
    EXPECT_GT(box.bytes, 74000U);
    while (events.write(event_source::recording, text_of(500))) {
    }
    EXPECT_LE(box.bytes, 100000U);
    EXPECT_GT(box.bytes, 99000U);
}

TEST(LimitedEvents, TellsOnceInAMinuteWhatWasLeftOut)
{
    taker box;
    limited_events events(box.writer(), {100000, 0, 0});
    events.count_lost(event_source::kernel, 12);
    events.tell(100, 5000);
    events.count_lost(event_source::user, 3);
    events.tell(159, 5059);
    EXPECT_TRUE(box.texts.empty());
    events.tell(160, 5060);
    EXPECT_THAT(box.texts, ElementsAre("omitted kernel=12 user=3"));
    events.tell(500, 5400);
    EXPECT_EQ(box.texts.size(), 1U);
    events.count_lost(event_source::top, 1);
    events.tell(501, 5401, true);
    EXPECT_THAT(box.texts, ElementsAre("omitted kernel=12 user=3", "omitted top=1"));
}

TEST(LimitedEvents, KeepsWhatItCannotTellForTheNextBuffer)
{
    taker box;
    limited_events events(box.writer(), {100000, 100000, 0});
    EXPECT_FALSE(events.write(event_source::recording, text_of(10)));
    events.tell(0, 5000, true);
    EXPECT_EQ(events.untold(), 1U);
    events.vector_written(true);
    events.tell(0, 5000, true);
    EXPECT_THAT(box.texts, ElementsAre("omitted recording=1"));
    EXPECT_EQ(events.untold(), 0U);
}

TEST(LimitedEvents, CountsWhatADiskDoesNotTake)
{
    taker box;
    box.fails = true;
    limited_events events(box.writer(), {100000, 0, 0});
    EXPECT_FALSE(events.write(event_source::kernel, text_of(10)));
    for (int i = 0; i < 10; ++i) {
        events.tell(i, 5000, true);
    }
    EXPECT_EQ(events.untold(), 1U);
    EXPECT_THROW(events.write_of_user(text_of(10)), storage_failure);
    box.fails = false;
    events.tell(100, 5000, true);
    EXPECT_THAT(box.texts, ElementsAre("omitted kernel=1"));
}

TEST(LimitedEvents, CountsWhatWaitsWithTheBufferThatItGoesInto)
{
    taker box;
    limited_events events(box.writer(), {100000, 90000, 0});
    box.waits = true;
    EXPECT_TRUE(events.write(event_source::recording, text_of(5000)));
    EXPECT_FALSE(events.write(event_source::recording, text_of(5000)));
    events.vector_written(true);
    for (int i = 0; i < 8; ++i) {
        EXPECT_TRUE(events.write(event_source::recording, text_of(10000))) << i;
    }
    EXPECT_TRUE(events.write(event_source::recording, text_of(9000)));
    EXPECT_FALSE(events.write(event_source::recording, text_of(10000)));
}

// A recording that is started again and again before it has taken a sample.
TEST(LimitedEvents, OfARecordingLeaveRoomAmongTheWaitingOnesForThoseOfUsers)
{
    taker box;
    box.waits = true;
    limited_events events(box.writer(), {default_event_bytes, 0, 0});
    int taken = 0;
    while (taken < 2000 && events.write(event_source::recording, text_of(230))) {
        ++taken;
    }
    EXPECT_GT(taken, 100);
    EXPECT_LT(taken, 500); // of the thousand that may wait
    EXPECT_EQ(events.write_of_user(text_of(230)), event_result::waits);
    events.vector_written(false);
    EXPECT_TRUE(events.write(event_source::recording, text_of(230)));
}

// Texts that no compression makes smaller, of all lengths.
TEST(LimitedEvents, KeepABoxAsSmallAsTheySay)
{
    const temporary_directory folder(quick_folder());
    const std::string base = folder.file("box");
    constexpr uint64_t budget = 100000;
    const std::vector<std::string> sensors = {"::a"};
    const std::vector<float> values = {1};
    box_writer box(base, {4, 2}, {sync_policy::moment::never});
    ASSERT_TRUE(box.admit("::a"));
    box.set_sensors(sensors);
    limited_events events([&](const event &what) { return box.write(what); }, {budget, 0, 0});
    std::mt19937 random(3);
    const auto fill = [&] {
        for (int misses = 0; misses < 20;) {
            std::string text(1 + random() % 9000, '\0');
            for (char &c : text) {
                c = static_cast<char>(1 + random() % 255);
            }
            misses += events.write(event_source::recording, {5, 1000, text}) ? 0 : 1;
        }
    };
    for (int64_t time = 1000; time < 1010; ++time) {
        const bool turn = box.is_full();
        box.write(time, values);
        events.vector_written(turn);
        fill();
    }
    box.finish();
    uint64_t largest = 0;
    for (const std::string &name : folder.names()) {
        largest = std::max<uint64_t>(largest, std::filesystem::file_size(folder.file(name)));
    }
    EXPECT_LE(largest, budget + 1000);
    EXPECT_GT(largest, budget * 9 / 10);
    EXPECT_GT(event_bytes_in_open_buffer(find_box(base)), budget * 9 / 10);
    EXPECT_LE(event_bytes_in_open_buffer(find_box(base)), budget);
}

} // namespace
