// The verbs that read a box, in all their forms, on boxes that no text telemetry can make, and on
// damaged ones.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "verbs/command_line.hpp"

namespace
{

using namespace cli;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

struct call_result {
    exit_code code = exit_done;
    std::string output;
    std::string messages;
};

class ReadingVerbs : public ::testing::Test
{
protected:
    ReadingVerbs()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    std::string base() const { return folder.file("box"); }

    void fill(int count, int64_t begin = new_year)
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a_bytes", "::b"});
        for (int i = 0; i < count; ++i) {
            writer.write(begin + i, std::vector<float>{static_cast<float>(i), -0.5F});
        }
    }

    static call_result call(const std::vector<std::string> &words)
    {
        CaptureStdout();
        CaptureStderr();
        call_result result;
        std::string thrown;
        try {
            result.code = run_command_line(words, "test");
        } catch (const failure &reason) {
            result.code = reason.code();
            thrown = reason.what();
        }
        result.output = GetCapturedStdout();
        result.messages = GetCapturedStderr() + thrown;
        return result;
    }

    temporary_directory folder{quick_folder()};
};

const std::vector<std::vector<std::string>> all_forms = {
    {"fetch"},
    {"fetch", "--format", "csv"},
    {"fetch", "--format", "jsonl"},
    {"fetch", "--step", "3s", "--stat", "mean,stddev,skewness,kurtosis"},
    {"stats"},
    {"stats", "--all"},
    {"stats", "--json"},
    {"stats", "--format", "csv"},
    {"events"},
    {"events", "--json"},
    {"diff", "--all", "--b", "/"},
    {"diff", "--b", "-3s/", "--json"},
    {"tail"},
    {"tail", "-n", "3", "--format", "csv"},
    {"tail", "--format", "jsonl"},
    {"suspects"},
    {"suspects", "--all"},
    {"suspects", "--last", "3s", "--json"},
    {"suspects", "--before", "-3s", "--json"},
    {"show"},
    {"show", "--json"},
    {"plot", "--sensor", "*"},
    {"plot", "--ascii", "--sensor", "*"},
    {"plot", "--last", "5s", "--blocks", "--sensor", "*"},
    {"plot", "--sensor", "*", "--svg", "-"},
    {"export", "--format", "csv"},
    {"export", "--table", "intervals", "--format", "csv"},
    {"export", "--format", "jsonl"},
    {"export", "--format", "openmetrics"},
    {"export", "--format", "influx"},
    {"export", "--format", "victoria"},
    {"export", "--format", "sqlite", "--force", "-o", "OUTPUT"},
    {"report"},
    {"dump"},
    {"dump", "--history"},
    {"dump", "--events"},
    {"info"},
    {"info", "--json"},
    {"check"},
    {"check", "--json"},
    {"repair", "--dry-run"}};

std::vector<std::string> on(const std::vector<std::string> &form, const std::string &name)
{
    std::vector<std::string> words = form;
    std::replace(words.begin(), words.end(), std::string("OUTPUT"), name + ".out");
    words.push_back(name);
    return words;
}

bool is_json(const std::vector<std::string> &form)
{
    return form.back() == "--json" || form.back() == "jsonl";
}

void expect_json(const std::string &output, const std::vector<std::string> &form)
{
    if (form.back() == "--json") {
        EXPECT_TRUE(nlohmann::json::accept(output)) << output;
        return;
    }
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(nlohmann::json::accept(line)) << line;
    }
}

TEST_F(ReadingVerbs, ABoxWithoutSamplesIsNoError)
{
    {
        box_writer writer(base(), {4, 2});
    }
    for (const auto &form : all_forms) {
        const call_result result = call(on(form, base()));
        // A picture that was asked for cannot be made.
        const bool is_picture = form.back() == "-";
        EXPECT_EQ(result.code, is_picture ? exit_failed : exit_done)
            << form.front() << result.messages;
        if (is_json(form)) {
            expect_json(result.output, form);
        }
    }
    EXPECT_THAT(call({"fetch", "--last", "10m", "--sensor", "x", base()}).messages,
                HasSubstr("the box holds no samples"));
    EXPECT_THAT(call({"stats", base()}).output, HasSubstr("nothing in this span of time"));
}

TEST_F(ReadingVerbs, TimesBeforeTheEpochAndAtTheEndOfTheRangeArePrinted)
{
    fill(2, -2);
    EXPECT_THAT(call({"fetch", base(), "--format", "csv", "--sensor", "b"}).output,
                HasSubstr("1969-12-31T23:59:58Z,raw,0,-0.5\n"));
    EXPECT_THAT(call({"fetch", base(), "--format", "csv", "--from", "@-1", "--to", "@-1"}).output,
                HasSubstr("1969-12-31T23:59:59Z"));
    std::filesystem::remove_all(folder.path());
    std::filesystem::create_directory(folder.path());
    fill(3, 2147483645);
    EXPECT_THAT(call({"fetch", base(), "--step", "1h", "--format", "csv"}).output,
                HasSubstr("2038-01-19T03:00:00Z,step,3600,1,-0.5\n"));
}

TEST_F(ReadingVerbs, SensorsMayBeNamedSeveralTimesWithOtherOptionsBetween)
{
    fill(1);
    EXPECT_EQ(call({"fetch", "--sensor", "b", base(), "--sensor", "a*", "--format", "csv"}).output,
              "time,kind,seconds,::a_bytes,::b\n2024-01-01T00:00:00Z,raw,0,0,-0.5\n");
    EXPECT_EQ(call({"fetch", "--sensor", "b", base(), "--format", "csv"}).output,
              "time,kind,seconds,::b\n2024-01-01T00:00:00Z,raw,0,-0.5\n");
}

// The command goes on whatever byte of the box is wrong, and what it prints for programs can be
// read.
TEST_F(ReadingVerbs, DamageAnywhereIsBorneByAllForms)
{
    fill(14);
    std::size_t form = 0;
    std::size_t changed = 0;
    for (const std::string &name : folder.names()) {
        const std::string path = folder.file(name);
        std::ifstream in(path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        for (std::size_t i = 0; i < bytes.size(); i += 3) {
            std::string damaged = bytes;
            if (i % 4 == 0) {
                damaged.resize(i);
            } else {
                damaged[i] = static_cast<char>(damaged[i] ^ (i % 2 == 0 ? 0x01 : 0xff));
            }
            std::ofstream(path, std::ios::binary) << damaged;
            const auto &words = all_forms[form++ % all_forms.size()];
            const call_result result = call(on(words, base()));
            EXPECT_THAT(result.code, AnyOf(exit_done, exit_damaged, exit_unreadable))
                << name << " at " << i;
            if (is_json(words)) {
                expect_json(result.output, words);
            }
            ++changed;
        }
        std::ofstream(path, std::ios::binary) << bytes;
    }
    EXPECT_GT(changed, 300U);
}

} // namespace
