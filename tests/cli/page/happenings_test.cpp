// A page keeps the newest events and gaps, and notes do not push out what is worse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "page/happenings.hpp"

namespace
{

using namespace cli;

TEST(Happenings, NotesDoNotPushOutAnError)
{
    happenings all;
    all.on_event({1, 4, "disk error", false});
    for (int64_t i = 0; i < 5000; ++i) {
        all.on_event({2 + i, 1, "note", false});
    }
    const auto events = all.events();
    ASSERT_EQ(events.size(), happenings::most_events + 1);
    EXPECT_EQ(events.front().text, "disk error");
    EXPECT_EQ(events.back().time, 5001);
    EXPECT_EQ(all.events_left_out(), 4000U);
}

TEST(Happenings, EventsOfOneSecondKeepTheirOrderWhateverTheirTypes)
{
    happenings all;
    const uint32_t types[] = {1, 5, 2, 3, 1};
    for (const uint32_t type : types) {
        all.on_event({7, type, "x", false});
    }
    const auto events = all.events();
    ASSERT_EQ(events.size(), 5U);
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].type, types[i]);
    }
}

TEST(Happenings, LongTextsAreCutAndUnprintableOnesAreShownSo)
{
    happenings all;
    all.on_event({1, 4, std::string(60000, 'x'), false});
    all.on_event({2, 4, "a\x1b[31mb\n", false});
    const auto events = all.events();
    EXPECT_LT(events[0].text.size(), 1010U);
    EXPECT_EQ(events[1].text, "a?[31mb?");
}

TEST(Happenings, GapsAreBounded)
{
    happenings all;
    for (int64_t i = 0; i < 2000; ++i) {
        all.on_gap({i, i + 1});
    }
    EXPECT_EQ(all.gaps().size(), happenings::most_gaps);
    EXPECT_EQ(all.gaps().back().last, 1999);
    EXPECT_EQ(all.gaps_left_out(), 2000 - happenings::most_gaps);
}

} // namespace
