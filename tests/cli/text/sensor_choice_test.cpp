// Patterns of sensors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "text/glob.hpp"
#include "text/sensor_choice.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::vector<std::string> machine = {"::cpu.total.busy_percent", "::cpu.0.busy_percent",
                                          "::mem.free_bytes", "plain", "::odd[name]"};

std::string refusal_of_choice(const std::vector<std::string> &patterns,
                              const std::vector<std::string> &sensors = machine)
{
    try {
        choose_sensors(sensors, patterns);
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
    return "(accepted)";
}

TEST(Glob, StarsStandForAnyTextAndQuestionMarksForOneByte)
{
    EXPECT_TRUE(matches_glob("*", ""));
    EXPECT_TRUE(matches_glob("", ""));
    EXPECT_FALSE(matches_glob("", "a"));
    EXPECT_FALSE(matches_glob("?", ""));
    EXPECT_TRUE(matches_glob("a*c", "abc"));
    EXPECT_TRUE(matches_glob("a*c", "ac"));
    EXPECT_TRUE(matches_glob("a*b*c", "aXbYbZc"));
    EXPECT_FALSE(matches_glob("a*b*c", "aXcYb"));
    EXPECT_TRUE(matches_glob("**a**", "xay"));
    EXPECT_FALSE(matches_glob("a?c", "ac"));
    EXPECT_TRUE(matches_glob("a?c", "a.c"));
}

TEST(Glob, BracketsStandForSets)
{
    EXPECT_TRUE(matches_glob("cpu.[0-3]", "cpu.2"));
    EXPECT_FALSE(matches_glob("cpu.[0-3]", "cpu.4"));
    EXPECT_TRUE(matches_glob("cpu.[!0-3]", "cpu.4"));
    EXPECT_FALSE(matches_glob("cpu.[^0-3]", "cpu.2"));
    EXPECT_TRUE(matches_glob("[]]", "]"));
    EXPECT_FALSE(matches_glob("[!]]", "]"));
    EXPECT_TRUE(matches_glob("[a-]", "-"));
    EXPECT_TRUE(matches_glob("a[b", "a[b"));
    EXPECT_TRUE(matches_glob("[", "["));
    EXPECT_TRUE(matches_glob("*[0-9]x", "aa1b2x"));
    EXPECT_TRUE(matches_glob("[\x80-\xff]", "\xc3"));
}

TEST(Glob, AHostilePatternTakesNoLongerThanItsLength)
{
    // A matcher that tried all stars again would take for ever here.
    std::string pattern;
    for (int i = 0; i < 2000; ++i) {
        pattern += "*a";
    }
    EXPECT_FALSE(matches_glob(pattern + "b", std::string(10000, 'a')));
    EXPECT_FALSE(matches_glob(std::string(10000, '['), std::string(5000, '[')));
}

TEST(SensorChoice, TakesNamesWithAndWithoutColons)
{
    EXPECT_THAT(choose_sensors(machine, {"cpu.*"}), ElementsAre(0, 1));
    EXPECT_THAT(choose_sensors(machine, {"::cpu.*"}), ElementsAre(0, 1));
    EXPECT_THAT(choose_sensors(machine, {"plain"}), ElementsAre(3));
    EXPECT_THAT(choose_sensors(machine, {}), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(choose_sensors(machine, {"odd[[]name]"}), ElementsAre(4));
}

TEST(SensorChoice, KeepsTheOrderOfTheBox)
{
    EXPECT_THAT(choose_sensors(machine, {"plain", "mem*", "cpu.total*"}), ElementsAre(0, 2, 3));
}

TEST(SensorChoice, TakesAwayWhatFollowsAnExclamationMark)
{
    EXPECT_THAT(choose_sensors(machine, {"!cpu.*"}), ElementsAre(2, 3, 4));
    EXPECT_THAT(choose_sensors(machine, {"cpu.*", "!*total*"}), ElementsAre(1));
    EXPECT_THAT(choose_sensors(machine, {"!cpu.*", "cpu.0*"}), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(refusal_of_choice({"cpu.*", "!*"}), HasSubstr("no sensor is left"));
}

TEST(SensorChoice, NamesTheNearestSensorWhereAPatternFitsNone)
{
    EXPECT_THAT(refusal_of_choice({"mem.fre_bytes"}), HasSubstr("did you mean 'mem.free_bytes'?"));
    EXPECT_THAT(refusal_of_choice({"::mem.free_byte*"}), HasSubstr("accepted"));
    EXPECT_THAT(refusal_of_choice({"!plian"}), HasSubstr("did you mean 'plain'?"));
    EXPECT_THAT(refusal_of_choice({"busy"}), HasSubstr("did you mean '*busy*'?"));
    EXPECT_THAT(refusal_of_choice({"zzzz*"}), Not(HasSubstr("did you mean")));
    EXPECT_THAT(refusal_of_choice({""}), HasSubstr("none of the 5 sensors"));
}

TEST(SensorChoice, AnEmptyBoxHasNothingToChooseFrom)
{
    EXPECT_THAT(choose_sensors({}, {"cpu"}), IsEmpty());
}

TEST(SensorChoice, ManyLongNamesCostLittle)
{
    const std::vector<std::string> many(10000, std::string(10000, 'x'));
    EXPECT_THAT(refusal_of_choice({std::string(10000, 'y')}, many), HasSubstr("none of the 10000"));
}

} // namespace
