// What sensors and label_list are called in exports.
#include <gtest/gtest.h>

#include "export/export_names.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;

using name_list = std::vector<std::string>;
using label_list = std::vector<label>;

TEST(ExportNames, NamesThatCanBeShownStayAsTheyAre)
{
    const name_list sensors = {"::cpu.total", "a b", "\u00e9,=\"\\x"};
    EXPECT_EQ(export_names(sensors), sensors);
}

TEST(ExportNames, NamesThatCannotBeShownStayApart)
{
    EXPECT_EQ(export_names(name_list{"a\n", "a\t", "a\xff", "a?", ""}),
              (name_list{"a?_2", "a?_3", "a?_4", "a?", "?"}));
}

TEST(ExportNames, NoTagEndsWithABackslash)
{
    EXPECT_EQ(export_names(name_list{"a\\", "a?"}, true), (name_list{"a?_2", "a?"}));
    EXPECT_EQ(export_names(name_list{"a\\", "a?"}), (name_list{"a\\", "a?"}));
}

TEST(ExportNames, AMetricIsNamedByLettersAndDigits)
{
    EXPECT_EQ(metric_name("::cpu.0-busy %"), "vesk_cpu_0_busy__");
    EXPECT_EQ(metric_name("1\u00e9"), "vesk_1__");
    EXPECT_EQ(metric_name("::"), "vesk_");
}

TEST(Labels, TheBoxAndTheHostAreLabels)
{
    const machine_identity who = {"north-1", "", "", ""};
    EXPECT_EQ(labels_of("/var/lib/box", who, {}),
              (label_list{{"box", "box"}, {"host", "north-1"}}));
    EXPECT_EQ(labels_of("box", {}, {}), (label_list{{"box", "box"}}));
}

TEST(Labels, ToldOnesReplaceThemAndEmptyOnesTakeThemAway)
{
    const machine_identity who = {"north-1", "", "", ""};
    EXPECT_EQ(labels_of("box", who, name_list{"host=a=b", "box=", "site=x", "site=y"}),
              (label_list{{"host", "a=b"}, {"site", "y"}}));
}

TEST(Labels, AHostNameCannotBringEscapes)
{
    const machine_identity who = {"a\x1b[31m\n", "", "", ""};
    EXPECT_EQ(labels_of("", who, {}), (label_list{{"host", "a?[31m?"}}));
}

TEST(Labels, KeysThatAFormatCannotHoldAreRefused)
{
    for (const char *wrong : {"site", "=x", "1a=x", "a-b=x", "a b=x", "sensor=x", "__name__=x",
                              "time=x", "le=x", "\u00e9=x"}) {
        try {
            (void)labels_of("box", {}, name_list{wrong});
            ADD_FAILURE() << wrong;
        } catch (const failure &reason) {
            EXPECT_EQ(reason.code(), exit_usage) << wrong;
        }
    }
    EXPECT_THROW((void)labels_of("box", {}, name_list{"a=" + std::string(1025, 'x')}), failure);
}

} // namespace
