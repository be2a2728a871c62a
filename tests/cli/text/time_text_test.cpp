// Times as people write them, and as they are printed.
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/usual_values.hpp"
#include "process/failure.hpp"
#include "text/time_text.hpp"
#include "text/value_text.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

class MomentText : public ::testing::Test
{
protected:
    MomentText() { use_utc(); }
    ~MomentText() override { use_utc(); }

    static int64_t at(const std::string &text, twin which = twin::earlier)
    {
        const moment found = parse_moment(text, "--from", which);
        EXPECT_FALSE(found.from_end) << text;
        return found.seconds;
    }

    static std::string refusal_of(const std::string &text)
    {
        try {
            parse_moment(text, "--from", twin::earlier);
        } catch (const failure &reason) {
            EXPECT_EQ(reason.code(), exit_usage);
            return reason.what();
        }
        return "(accepted)";
    }

    static bool set_zone(const std::string &name)
    {
        try {
            use_time_zone(name);
            return true;
        } catch (const failure &) {
            return false; // there is no database here
        }
    }
};

TEST_F(MomentText, ReadsIsoTimesWithTheirZone)
{
    EXPECT_EQ(at("2024-01-01T00:00:00Z"), new_year);
    EXPECT_EQ(at("2024-01-01t00:00:00z"), new_year);
    EXPECT_EQ(at("2024-01-01 00:00:00Z"), new_year);
    EXPECT_EQ(at("2024-01-01T00:00Z"), new_year);
    EXPECT_EQ(at("2024-01-01T01:00:00+01:00"), new_year);
    EXPECT_EQ(at("2024-01-01T01:00:00+0100"), new_year);
    EXPECT_EQ(at("2024-01-01T01:00+01"), new_year);
    EXPECT_EQ(at("2023-12-31T18:30:00-05:30"), new_year);
}

TEST_F(MomentText, ReadsTimesWithoutAZoneInThatOfTheProcess)
{
    EXPECT_EQ(at("2024-01-01T00:00:00"), new_year);
    EXPECT_EQ(at("2024-01-01 00:00"), new_year);
    EXPECT_EQ(at("2024-01-01"), new_year);
    EXPECT_EQ(at("20240101:00:00:00"), new_year);
    setenv("TZ", "CET-1", 1);
    tzset();
    EXPECT_EQ(at("2024-01-01 01:00"), new_year);
    EXPECT_EQ(at("20240101:01:00:00"), new_year);
    EXPECT_EQ(at("2024-01-01T00:00:00Z"), new_year);
}

TEST_F(MomentText, ReadsSecondsSinceTheEpoch)
{
    EXPECT_EQ(at("1704067200"), new_year);
    EXPECT_EQ(at("@1704067200"), new_year);
    EXPECT_EQ(at("0"), 0);
    EXPECT_EQ(at("@-86400"), -86400);
}

TEST_F(MomentText, ReadsDistancesFromTheEndOfTheBox)
{
    for (const auto &[text, seconds] :
         {std::pair{"-10m", -600}, {"-1h30m", -5400}, {"-90", -90}, {"-2w", -14 * 86400}}) {
        const moment found = parse_moment(text, "--from", twin::earlier);
        EXPECT_TRUE(found.from_end) << text;
        EXPECT_EQ(found.seconds, seconds) << text;
    }
    EXPECT_THAT(refusal_of("-10x"), HasSubstr("not a duration"));
    EXPECT_THAT(refusal_of("-"), HasSubstr("not a duration"));
    EXPECT_THAT(refusal_of("--5"), HasSubstr("at least 1s"));
}

TEST_F(MomentText, DropsFractionsOfASecond)
{
    EXPECT_EQ(at("2024-01-01T00:00:00.999999999Z"), new_year);
    EXPECT_EQ(at("2024-01-01T00:00:00,5"), new_year);
    EXPECT_THAT(refusal_of("2024-01-01T00:00:00.Z"), HasSubstr("not a time"));
}

TEST_F(MomentText, KnowsTheCalendar)
{
    EXPECT_EQ(at("2024-02-29"), 1709164800);
    EXPECT_EQ(at("2000-02-29"), 951782400);
    EXPECT_EQ(at("1900-03-01") - at("1900-02-28"), 86400);
    EXPECT_EQ(at("2038-01-19T03:14:08Z"), int64_t{1} << 31);
    EXPECT_EQ(at("1969-12-31T23:59:59Z"), -1);
    EXPECT_EQ(at("1901-12-13T20:45:52Z"), -(int64_t{1} << 31));
    EXPECT_EQ(at("9999-12-31T23:59:59Z"), 253402300799);
    EXPECT_EQ(at("0001-01-01T00:00:00Z"), -62135596800);
    EXPECT_EQ(at("2016-12-31T23:59:60Z"), 1483228800);
    for (const char *text : {"2023-02-29", "1900-02-29", "2024-13-01", "2024-00-01", "2024-01-00",
                             "2024-04-31", "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z",
                             "2024-01-01T00:00:61Z", "0000-01-01", "20230229:00:00:00"}) {
        EXPECT_THAT(refusal_of(text), HasSubstr("the calendar has no such time")) << text;
    }
}

TEST_F(MomentText, RefusesWhatIsNoTime)
{
    for (const char *text : {"",
                             " ",
                             "yesterday",
                             "2024",
                             "2024-1-1",
                             "2024-01",
                             "2024-01-01T",
                             "2024-01-01T1",
                             "2024-01-01T00:00:00+",
                             "2024-01-01T00:00:00+1",
                             "2024-01-01T00:00:00+01:0",
                             "2024-01-01T00:00:00+24:00",
                             "2024-01-01T00:00:00Z ",
                             "2024-01-01Z",
                             "99999999999999999999",
                             "999999999999999",
                             "@",
                             "@x",
                             "17e8",
                             "+5",
                             "12:00",
                             "20240101:00:00:00Z",
                             "2024\xe2\x80\x93"
                             "01\xe2\x80\x93"
                             "01"}) {
        if (std::string(text) == "2024") {
            EXPECT_EQ(at(text), 2024); // seconds since the epoch
            continue;
        }
        EXPECT_THAT(refusal_of(text), HasSubstr("not a time such as")) << text;
    }
    const std::string zeros("2024-01-01\0", 11);
    EXPECT_NE(refusal_of(zeros), "(accepted)");
    EXPECT_LT(refusal_of(std::string(1000000, '1')).size(), 300U);
}

TEST_F(MomentText, TellsTheTwoHoursOfAutumnApartAndRefusesTheSkippedOneOfSpring)
{
    if (!set_zone("Europe/Zurich")) {
        GTEST_SKIP() << "no time zone database";
    }
    // 2023-10-29: 02:00 to 03:00 came twice, first as summer time (+02:00).
    EXPECT_EQ(at("2023-10-29 02:30", twin::earlier), at("2023-10-29T02:30:00+02:00"));
    EXPECT_EQ(at("2023-10-29 02:30", twin::later), at("2023-10-29T02:30:00+01:00"));
    EXPECT_EQ(at("2023-10-29 01:59:59", twin::later), at("2023-10-29T01:59:59+02:00"));
    EXPECT_EQ(at("2023-10-29 03:00", twin::earlier), at("2023-10-29T03:00:00+01:00"));
    EXPECT_THAT(refusal_of("2024-03-31 02:30"), HasSubstr("does not exist"));
    EXPECT_EQ(at("2024-03-31 03:00"), at("2024-03-31T01:00:00Z"));
    EXPECT_EQ(at("2024-07-01 12:00"), at("2024-07-01T10:00:00Z"));
    EXPECT_EQ(iso_time(at("2024-07-01T10:00:00Z"), zone::local), "2024-07-01T12:00:00+02:00");
    EXPECT_EQ(iso_time(at("2024-07-01T10:00:00Z"), zone::utc), "2024-07-01T10:00:00Z");
}

TEST_F(MomentText, RefusesADayThatAZoneHasLeftOut)
{
    if (!set_zone("Pacific/Apia")) {
        GTEST_SKIP() << "no time zone database";
    }
    EXPECT_THAT(refusal_of("2011-12-30 12:00"), HasSubstr("does not exist"));
    EXPECT_EQ(at("2011-12-31 00:00"), at("2011-12-30T10:00:00Z"));
}

TEST_F(MomentText, PrintsWhatItReads)
{
    for (const int64_t time : {new_year, int64_t{0}, int64_t{-1}, int64_t{1} << 31,
                               -(int64_t{1} << 31), int64_t{951782399}, int64_t{253402300799}}) {
        EXPECT_EQ(at(iso_time(time, zone::utc)), time);
        EXPECT_EQ(at(iso_time(time, zone::local)), time);
    }
    EXPECT_EQ(iso_time(new_year, zone::utc), "2024-01-01T00:00:00Z");
    setenv("TZ", "NST3:30", 1);
    tzset();
    EXPECT_EQ(iso_time(new_year, zone::local), "2023-12-31T20:30:00-03:30");
}

TEST_F(MomentText, CountsDaysAsTheCLibraryDoes)
{
    // Two prime numbers: every month and every phase of the leap years is met.
    for (int64_t time = -62135596800; time < 253402300799; time += 86399 * int64_t{997}) {
        const auto seconds = static_cast<time_t>(time);
        tm civil = {};
        ASSERT_NE(gmtime_r(&seconds, &civil), nullptr);
        char text[40];
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", civil.tm_year + 1900,
                      civil.tm_mon + 1, civil.tm_mday, civil.tm_hour, civil.tm_min, civil.tm_sec);
        ASSERT_EQ(iso_time(time, zone::utc), text);
        ASSERT_EQ(at(text), time);
    }
}

TEST_F(MomentText, TakesNoZoneThatIsNotInTheDatabase)
{
    for (const char *name :
         {"", "Europe", "Europe/Atlantis", "../../../etc/passwd", "/etc/localtime", "CET-1CEST",
          "zone.tab", "Europe/Zurich\n", "Europe/../Europe/Zurich"}) {
        EXPECT_THROW(use_time_zone(name), failure) << name;
    }
    EXPECT_NO_THROW(use_time_zone("UTC"));
}

TEST_F(MomentText, ARangeIsToldByTheClockOrFromTheEnd)
{
    const time_range all = range_of({}, new_year);
    EXPECT_FALSE(all.is_limited());
    EXPECT_TRUE(all.holds(0));
    const time_range last = range_of({"", "", "10m"}, new_year);
    EXPECT_FALSE(last.holds(new_year - 601));
    EXPECT_TRUE(last.holds(new_year - 600));
    EXPECT_TRUE(last.holds(new_year + 5)); // an event behind the latest sample
    const time_range middle = range_of({"-10m", "-5m", ""}, new_year);
    EXPECT_TRUE(middle.holds(new_year - 300));
    EXPECT_FALSE(middle.holds(new_year - 299));
    const time_range day = range_of({"2024-01-01", "2024-01-02", ""}, 0);
    EXPECT_TRUE(day.holds(new_year));
    EXPECT_TRUE(day.holds(new_year + 86400));
    EXPECT_FALSE(day.holds(new_year + 86401));
    EXPECT_TRUE(day.touches(new_year - 5, new_year));
    EXPECT_FALSE(day.touches(new_year - 5, new_year - 1));
}

TEST_F(MomentText, ARangeThatContradictsItselfIsRefused)
{
    EXPECT_THROW(check_range({"2024-01-02", "2024-01-01", ""}), failure);
    EXPECT_THROW(check_range({"-5m", "-10m", ""}), failure);
    EXPECT_THROW(check_range({"-5m", "", "10m"}), failure);
    EXPECT_THROW(check_range({"", "x", ""}), failure);
    EXPECT_THROW(check_range({"", "", "0"}), failure);
    // Only the box can tell.
    EXPECT_NO_THROW(check_range({"-5m", "2024-01-01", ""}));
}

class SampleTime : public MomentText
{
protected:
    static std::string sample_refusal(const std::string &text)
    {
        try {
            (void)parse_sample_time(text);
        } catch (const bad_text &reason) {
            return reason.what();
        }
        return "(accepted)";
    }
};

TEST_F(SampleTime, AllFormsThatMeanOneThingAreRead)
{
    for (const char *text :
         {"20240101:00:00:00", "2024-01-01T00:00:00Z", "2024-01-01T01:00:00+01:00", "2024-01-01",
          "2024-01-01 00:00", "2024-01-01T00:00:00", "2024-01-01T00:00:00.000Z", "1704067200",
          "@1704067200"}) {
        EXPECT_EQ(parse_sample_time(text), new_year) << text;
    }
    EXPECT_EQ(parse_sample_time("@5"), 5);
}

TEST_F(SampleTime, WhatMayMeanTwoThingsIsRefused)
{
    EXPECT_THAT(sample_refusal("20240101"), HasSubstr("may be a date or a number of seconds"));
    EXPECT_THAT(sample_refusal("1704067200000"), HasSubstr("may be a date"));
    EXPECT_THAT(sample_refusal("5"), HasSubstr("write 2024-01-31T23:59:59"));
}

TEST_F(SampleTime, WhatABoxCannotHoldIsRefused)
{
    EXPECT_THAT(sample_refusal("2024-01-01T00:00:00.5Z"), HasSubstr("has a fraction"));
    EXPECT_THAT(sample_refusal("1704067200.25"), HasSubstr("has a fraction"));
    EXPECT_THAT(sample_refusal("2038-01-20T00:00:00Z"), HasSubstr("out of range (1901 to 2038)"));
    EXPECT_THAT(sample_refusal("1900-01-01T00:00:00Z"), HasSubstr("out of range"));
    EXPECT_THAT(sample_refusal("1970-01-01T00:00:00Z"), HasSubstr("second 0 of the epoch"));
    EXPECT_THAT(sample_refusal("@0"), HasSubstr("second 0 of the epoch"));
    EXPECT_THAT(sample_refusal("2024-02-30"), HasSubstr("the calendar has no such time"));
}

TEST_F(SampleTime, ADistanceFromTheEndOfABoxIsNoTime)
{
    EXPECT_THAT(sample_refusal("-10m"), HasSubstr("is not a time such as"));
    EXPECT_THAT(sample_refusal(""), HasSubstr("is not a time such as"));
    EXPECT_THAT(sample_refusal("now"), HasSubstr("'now' is not a time such as"));
}

} // namespace
