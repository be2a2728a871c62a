// The verbs on boxes that no text telemetry can make, and on damaged ones.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

#include <vesk/timestamp.h>
#include <vesk/vesk.h>
#include <vesk/vesk_cb_record_event.h>

#include "box/box.hpp"
#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "text/telemetry_text.hpp"
#include "verbs/command_line.hpp"

namespace
{

using namespace cli;
using ::testing::AnyOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

exit_code vesk(const std::vector<std::string> &words)
{
    return run_command_line(words, "test");
}

class Verbs : public ::testing::Test
{
protected:
    Verbs()
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    std::string base() const { return folder.file("box"); }

    // A box of the smallest shape with @p count samples of two sensors.
    void fill(int count, const std::vector<std::string> &names = {"::a", "::b"})
    {
        box_writer writer(base(), {4, 2});
        for (const std::string &name : names) {
            ASSERT_TRUE(writer.admit(name));
        }
        writer.set_sensors(names);
        for (int i = 0; i < count; ++i) {
            std::vector<float> values;
            for (std::size_t j = 0; j < names.size(); ++j) {
                values.push_back(static_cast<float>(i) + 0.25F * static_cast<float>(j));
            }
            writer.write(new_year + i, values);
        }
    }

    // What the call prints, and its exit code behind it.
    std::string output_of(const std::function<exit_code()> &call)
    {
        CaptureStdout();
        CaptureStderr();
        exit_code code = exit_done;
        std::string thrown;
        try {
            code = call();
        } catch (const failure &reason) {
            code = reason.code();
            thrown = reason.what();
        }
        const std::string output = GetCapturedStdout();
        messages = GetCapturedStderr() + thrown;
        return output + "exit " + std::to_string(code);
    }

    std::string dumped()
    {
        return output_of([&] { return vesk({"dump", base()}); });
    }

    temporary_directory folder{quick_folder()};
    std::string messages;
};

TEST_F(Verbs, DumpMakesNamesFitForALineAndSaysSo)
{
    fill(1, {"::a,b", "::c\nd"});
    EXPECT_EQ(dumped(), "20240101:00:00:00,::a_b,::c_d\n20240101:00:00:00,0,0.25\nexit 0");
    EXPECT_THAT(messages, HasSubstr("the sensor '::a,b' is written as '::a_b'"));
    EXPECT_THAT(messages, HasSubstr("the sensor '::c?d' is written as '::c_d'"));
}

TEST_F(Verbs, DumpSaysWhenReadersWillNotRecogniseAHeader)
{
    fill(1, {"fan speed", "level"});
    EXPECT_EQ(dumped(), "20240101:00:00:00,fan speed,level\n20240101:00:00:00,0,0.25\nexit 0");
    EXPECT_THAT(messages, HasSubstr("will not recognise the header line"));
}

TEST_F(Verbs, DumpPrintsInfiniteAndExtremeValues)
{
    {
        box_writer writer(base(), {4, 2});
        const std::vector<std::string> names = {"::a", "::b", "::c"};
        writer.set_sensors(names);
        const float values[] = {std::numeric_limits<float>::infinity(),
                                std::numeric_limits<float>::max(),
                                std::numeric_limits<float>::denorm_min()};
        writer.write(new_year, values);
    }
    EXPECT_THAT(dumped(), HasSubstr("20240101:00:00:00,inf,3.4028235e+38,1e-45\n"));
}

// Writes an event the way monitors do, through the recorder.
void write_event(const std::string &base)
{
    struct vesk *box = vesk_open(base.c_str());
    timestamp time = {};
    timestamp_init_null(&time);
    timestamp_increment(&time, new_year);
    vesk_cb_record_event *event = vesk_cb_record_event_create(2, &time, "door open");
    EXPECT_EQ(vesk_write_event(box, event), 0);
    vesk_cb_record_event_destroy(&event);
    vesk_close(&box);
}

TEST_F(Verbs, AnEventIsNoDamageToReaders)
{
    fill(2);
    write_event(base());
    EXPECT_THAT(dumped(), EndsWith("exit 0"));
    const std::string told = output_of([&] { return vesk({"info", base()}); });
    EXPECT_THAT(told, HasSubstr("events     1 among the raw samples"));
    EXPECT_THAT(told, EndsWith("exit 0"));
}

TEST_F(Verbs, AnEventWithoutATypeGetsOneWhenTheBoxIsRecordedTo)
{
    fill(2);
    write_event(base());
    CaptureStderr();
    fill(3);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("1 event tagged"));
    const std::string told = output_of([&] { return vesk({"dump", "--events", base()}); });
    EXPECT_EQ(told, "time,type,text\n20240101:00:00:00,2,door open\nexit 0");
}

TEST_F(Verbs, ABoxHasRoomForTenThousandDifferentSensors)
{
    std::vector<std::string> names;
    names.reserve(9999);
    for (int i = 0; i < 9999; ++i) {
        names.push_back("::s" + std::to_string(i) + "x");
    }
    fill(1, names);
    // What the box knows is read back from it.
    box_writer writer(base(), {});
    EXPECT_TRUE(writer.admit("::s0x"));
    EXPECT_TRUE(writer.admit("::new"));
    EXPECT_FALSE(writer.admit("::newer"));
    EXPECT_TRUE(writer.admit("::new"));
}

TEST_F(Verbs, ImportRefusesTheSensorThatHasNoRoom)
{
    std::string text = "20240101:00:00:00,::cpu";
    std::string values = "20240101:00:00:00,1";
    for (int i = 1; i < 10000; ++i) {
        text += ",s" + std::to_string(i);
        values += ",1";
    }
    text += "\n" + values + "\n20240101:00:00:01,::other\n20240101:00:00:01,1\n";
    write_file(folder.file("in"), text);
    EXPECT_EQ(output_of([&] {
                  return vesk(
                      {"import", base(), folder.file("in"), "--samples", "4", "--intervals", "2"});
              }),
              "exit 1");
    EXPECT_THAT(messages, HasSubstr(":4: the box has no room for '::other'"));
}

// Every byte of every file of a box, one after the other, with some bits turned over.
class DamagedBox : public Verbs
{
protected:
    // With VESK_CRASH_EVERY=K in the environment, as slow builds have it, only one of K bytes.
    void for_each_flipped_byte(int bits, const std::function<void(const std::string &)> &visit)
    {
        const char *every = getenv("VESK_CRASH_EVERY");
        const std::size_t step = every != nullptr ? std::max(1UL, strtoul(every, nullptr, 10)) : 1;
        fill(14);
        std::map<std::string, std::string> box;
        for (const std::string &name : folder.names()) {
            box[name] = read_file(folder.file(name));
        }
        for (const auto &[name, whole] : box) {
            for (std::size_t i = 0; i < whole.size(); i += step) {
                restore(box);
                std::string damaged = whole;
                damaged[i] = static_cast<char>(damaged[i] ^ bits);
                write_file(folder.file(name), damaged);
                visit(name + " byte " + std::to_string(i));
            }
        }
    }

    // Runs @p call in a process of its own, with nothing to see; the signal that ended it, or 0.
    static int signal_that_ends(const std::function<void()> &call)
    {
        const pid_t child = fork();
        if (child == 0) {
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDOUT_FILENO);
            dup2(nowhere, STDERR_FILENO);
            try {
                call();
            } catch (const failure &) {
            }
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    void restore(const std::map<std::string, std::string> &box)
    {
        for (const std::string &name : folder.names()) {
            unlink(folder.file(name).c_str());
        }
        for (const auto &[name, content] : box) {
            write_file(folder.file(name), content);
        }
    }
};

TEST_F(DamagedBox, IsReadByDumpAndInfoWhateverByteIsWrong)
{
    for_each_flipped_byte(0x55, [&](const std::string &where) {
        output_of([&] { return vesk({"dump", base()}); });
        output_of([&] { return vesk({"dump", "--history", base()}); });
        const std::string told = output_of([&] { return vesk({"info", "--json", base()}); });
        // Only the state file holds bytes that mean something else without being wrong.
        if (where.find(".state") == std::string::npos) {
            EXPECT_THAT(told, EndsWith("exit 3")) << where;
        } else {
            EXPECT_THAT(told, AnyOf(EndsWith("exit 0"), EndsWith("exit 3"), EndsWith("exit 4")))
                << where;
        }
    });
}

TEST_F(DamagedBox, NeverEndsTheProcessThatRecordsIntoIt)
{
    std::string text = "20240102:00:00:00,::a,::b\n";
    for (int i = 10; i < 30; ++i) {
        text += "20240102:00:00:" + std::to_string(i) + ",1,2\n";
    }
    const temporary_directory elsewhere;
    write_file(elsewhere.file("in"), text);
    for_each_flipped_byte(0x01, [&](const std::string &where) {
        const auto record_on = [&] {
            vesk({"import", base(), elsewhere.file("in"), "--sync", "never"});
        };
        EXPECT_EQ(signal_that_ends(record_on), 0) << where;
    });
}

} // namespace
