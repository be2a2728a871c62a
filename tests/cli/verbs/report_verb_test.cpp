// The verb report: one page, the same for the same box, whatever the names in it, and never through
// a link.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>

#include "box/box.hpp"
#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "verbs/command_line.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

constexpr const char *hostile =
    "::</script><script>alert(1)</script>\"'><img src=x onerror=f()>{{data}}";

class ReportVerb : public ::testing::Test
{
protected:
    ReportVerb()
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a_bytes", hostile});
        for (int i = 0; i < 19; ++i) {
            writer.write(1704067200 + i, std::vector<float>{static_cast<float>(i), -0.5F});
        }
    }

    std::string base() const { return folder.file("box"); }
    std::string page() const { return folder.file("page.html"); }

    // What the verb says where it gives up; nothing otherwise.
    static std::string run(const std::vector<std::string> &words, std::string *output = nullptr)
    {
        CaptureStdout();
        CaptureStderr();
        std::string thrown;
        try {
            EXPECT_EQ(run_command_line(words, "test"), exit_done);
        } catch (const failure &reason) {
            thrown = reason.what();
        }
        const std::string printed = GetCapturedStdout();
        if (output != nullptr) {
            *output = printed;
        }
        EXPECT_EQ(GetCapturedStderr(), "");
        return thrown;
    }

    static std::string content_of(const std::string &path)
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    temporary_directory folder{quick_folder()};
};

TEST_F(ReportVerb, TheSameBoxGivesTheSamePageInAFileAndOnStandardOutput)
{
    std::string printed;
    EXPECT_EQ(run({"report", base(), "-o", "-"}, &printed), "");
    EXPECT_EQ(run({"report", base(), "-o", page()}), "");
    EXPECT_EQ(content_of(page()), printed);
    EXPECT_THAT(printed, ::testing::StartsWith("<!doctype html>"));
    EXPECT_THAT(printed, ::testing::EndsWith("</html>\n"));
}

TEST_F(ReportVerb, ANameIsNeverMarkupAndNoPartOfTheFrame)
{
    std::string printed;
    run({"report", base(), "-o", "-"}, &printed);
    EXPECT_EQ(printed.find("alert(1)</script>"), std::string::npos);
    EXPECT_EQ(printed.find("<img"), std::string::npos);
    EXPECT_THAT(printed, HasSubstr("&lt;/script&gt;&lt;script&gt;alert(1)&lt;/script&gt;"));
    EXPECT_THAT(printed, HasSubstr("onerror=f()&gt;{{data}}"));
}

TEST_F(ReportVerb, ThePageHasAPolicyAndAsksForNothing)
{
    std::string printed;
    run({"report", base(), "-o", "-"}, &printed);
    EXPECT_THAT(printed, HasSubstr("content=\"default-src 'none'; script-src 'sha256-"));
    EXPECT_EQ(printed.find("unsafe"), std::string::npos);
    EXPECT_EQ(printed.find("<script src"), std::string::npos);
    EXPECT_EQ(printed.find("<link rel=\"stylesheet"), std::string::npos);
    EXPECT_EQ(printed.find("sourceMappingURL"), std::string::npos);
}

TEST_F(ReportVerb, TheNumbersOfThePageAreJson)
{
    std::string printed;
    run({"report", base(), "-o", "-"}, &printed);
    const std::string begin = "<script type=\"application/json\" id=\"data\">";
    const std::size_t from = printed.find(begin) + begin.size();
    const auto data =
        nlohmann::json::parse(printed.substr(from, printed.find("</script>", from) - from));
    EXPECT_EQ(data["sensors"][0]["name"], "::a_bytes");
    EXPECT_EQ(data["sensors"][1]["name"], hostile);
    EXPECT_EQ(data["sensors"][0]["numbers"]["count"], 19);
    EXPECT_EQ(data["sensors"][0]["numbers"]["greatest"], 18);
    EXPECT_EQ(data["sensors"][0]["unit"], nlohmann::json::array({"B", 1024}));
    EXPECT_EQ(data["starts"].size(), data["lengths"].size());
    EXPECT_GT(data["intervals"], 0);
    const std::size_t columns = data["starts"].size();
    const std::size_t wide = data["wide"];
    EXPECT_EQ(data["sensors"][0]["values"].get<std::string>().size(),
              ((columns + 2 * wide) * 4 + 2) / 3 * 4);
}

// The newest samples that are compared with the past are counted, also across an hour without any.
TEST_F(ReportVerb, ThePictureOfTheEndReachesAcrossAGap)
{
    const std::string other = folder.file("gap");
    {
        box_writer writer(other, {600, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        for (int i = 0; i < 400; ++i) {
            const float value = i < 380 ? static_cast<float>(i % 7) : 100;
            writer.write(1704067200 + i + (i < 390 ? 0 : 3600), std::vector<float>{value});
        }
    }
    std::string printed;
    run({"report", other, "-o", "-"}, &printed);
    EXPECT_THAT(printed, HasSubstr("<span class=\"to\">01-01 01:06:39</span>"));
    EXPECT_THAT(printed, ::testing::ContainsRegex("<span class=\"from\">01-01 00:0[0-6]:"));
}

TEST_F(ReportVerb, AFileThatIsThereStaysUnlessForced)
{
    std::ofstream(page()) << "mine";
    EXPECT_THAT(run({"report", base(), "-o", page()}), HasSubstr("--force"));
    EXPECT_EQ(content_of(page()), "mine");
    EXPECT_EQ(run({"report", base(), "-o", page(), "--force"}), "");
    EXPECT_THAT(content_of(page()), HasSubstr("</html>"));
}

TEST_F(ReportVerb, NothingIsWrittenThroughALink)
{
    const std::string other = folder.file("other");
    std::ofstream(other) << "other";
    std::filesystem::create_symlink(other, page());
    EXPECT_NE(run({"report", base(), "-o", page(), "--force"}), "");
    EXPECT_EQ(content_of(other), "other");
    EXPECT_TRUE(std::filesystem::is_symlink(page()));
}

TEST_F(ReportVerb, ABoxThatIsNotThereLeavesNoFile)
{
    EXPECT_NE(run({"report", folder.file("none"), "-o", page()}), "");
    EXPECT_FALSE(std::filesystem::exists(page()));
}

TEST_F(ReportVerb, AFileThatWasNotCheckedIsNeitherGoodNorBad)
{
    EXPECT_EQ(run({"report", find_box(base()).files.back().path, "-o", page()}), "");
    EXPECT_THAT(content_of(page()), HasSubstr("<div id=\"health\" class=\"unknown\">"));
}

// Rows of a tier stand on the page for the time that the box itself has forgotten.
TEST_F(ReportVerb, APageShowsTheTiersOfABoxAndTellsOfTheirHealth)
{
    const std::string tier = base() + ".1m";
    {
        box_writer writer(tier, {4, 2});
        writer.set_sensors(std::vector<std::string>{"::tier.1m.samples_count", "::a_bytes"});
        for (int i = 0; i < 5; ++i) {
            writer.write(1704060000 + 60 * i, std::vector<float>{60, 4711});
        }
    }
    EXPECT_EQ(run({"report", base(), "-o", page()}), "");
    const std::string whole = content_of(page());
    EXPECT_THAT(whole, HasSubstr("4711"));
    EXPECT_THAT(whole, HasSubstr("box.1m: healthy"));
    EXPECT_THAT(whole, Not(HasSubstr("tier.1m.samples_count")));
    std::filesystem::remove(tier + ".state");
    CaptureStderr();
    EXPECT_EQ(run_command_line({"report", base(), "-o", page(), "--force"}, "test"), exit_damaged);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("box.1m.state"));
    const std::string damaged = content_of(page());
    EXPECT_THAT(damaged, HasSubstr("4711"));
    EXPECT_THAT(damaged, HasSubstr("box.1m: repairable"));
    EXPECT_THAT(damaged, HasSubstr("id=\"health\" class=\"bad\""));
}

} // namespace
