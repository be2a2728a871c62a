// The kernel's messages: records of any content, and a pipe in the place of /dev/kmsg.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include "common/temporary_directory.hpp"
#include "machine/kernel_log.hpp"

namespace
{

using namespace cli;

std::string record(unsigned priority, uint64_t sequence, const std::string &text)
{
    return std::to_string(priority) + "," + std::to_string(sequence) + ",5000000,-;" + text + "\n";
}

TEST(KernelRecord, HasPrioritySequenceTimeAndText)
{
    const auto found = parse_kernel_record("27,1234,5678901,-,caller=T1;eth0: link; is up");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->priority, 3U);
    EXPECT_EQ(found->facility, 3U);
    EXPECT_EQ(found->sequence, 1234U);
    EXPECT_DOUBLE_EQ(found->seconds, 5.678901);
    EXPECT_EQ(found->text, "eth0: link; is up");
}

TEST(KernelRecord, KeepsTheEscapesOfTheKernel)
{
    const auto found = parse_kernel_record("4,1,1,-;caf\\xc3\\xa9 \\x1b[2J");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->text, "caf\\xc3\\xa9 \\x1b[2J");
}

TEST(KernelRecord, IsCutWhereItIsLong)
{
    const auto found = parse_kernel_record("4,1,1,-;" + std::string(50000, 'x'));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->text.size(), longest_kernel_text);
}

TEST(KernelRecord, OfAnotherFormIsNone)
{
    for (const std::string text :
         {"", ";", "4", "4,1", "4,1,1,-", "4,1;x", "4,1,;x", "a,1,1,-;x", "-4,1,1,-;x",
          "4 ,1,1,-;x", "4,1,1x,-;x", "99999999999,1,1,-;x", "4,99999999999999999999,1,-;x",
          " SUBSYSTEM=pci", "text;4,1,1,-"}) {
        EXPECT_FALSE(parse_kernel_record(text)) << text;
    }
}

TEST(KernelTime, IsNowForWhatHasJustCome)
{
    // The kernel's clock has drifted by 100 s in both directions.
    EXPECT_DOUBLE_EQ(wall_time_of(900, {5000, 1000, 1000}, 999), 4999);
    EXPECT_DOUBLE_EQ(wall_time_of(1100, {5000, 1000, 1000}, 999), 5000);
    EXPECT_DOUBLE_EQ(wall_time_of(999.5, {5000, 1000, 1000}, 999), 4999.5);
}

TEST(KernelTime, IsCountedBackForWhatIsOlder)
{
    EXPECT_DOUBLE_EQ(wall_time_of(400, {5000, 1000, 1300}, std::nullopt), 4400);
}

class KernelLog : public ::testing::Test
{
protected:
    KernelLog() : path_(folder_.file("kmsg"))
    {
        EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
        // With a writer that is also a reader the pipe never ends.
        pipe_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    }
    ~KernelLog() override { close(pipe_); }

    void say(const std::string &text)
    {
        ASSERT_EQ(write(pipe_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    static std::vector<std::string> all_of(kernel_log &log)
    {
        std::vector<std::string> texts;
        do {
            while (const auto message = log.next()) {
                texts.push_back(message->text);
            }
        } while (!log.is_drained());
        return texts;
    }

    temporary_directory folder_;
    std::string path_;
    int pipe_ = -1;
};

TEST_F(KernelLog, GivesWarningsAndWorse)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    EXPECT_FALSE(log.next());
    EXPECT_TRUE(log.is_drained());
    for (unsigned priority = 0; priority < 16; ++priority) {
        say(record(priority, priority, std::to_string(priority)));
    }
    EXPECT_THAT(all_of(log),
                ::testing::ElementsAre("0", "1", "2", "3", "4", "8", "9", "10", "11", "12"));
}

TEST_F(KernelLog, SkipsTheLinesThatTellOfTheDevice)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    say(record(3, 1, "one") + " SUBSYSTEM=pci\n DEVICE=+pci:0000:00:01.0\n" + record(3, 2, "two"));
    EXPECT_THAT(all_of(log), ::testing::ElementsAre("one", "two"));
    EXPECT_EQ(log.take_lost(), 0U);
}

TEST_F(KernelLog, PutsARecordTogetherThatComesInPieces)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    say("3,1,1,-;half a ");
    EXPECT_FALSE(log.next());
    say("record\n3,2,1,-;");
    EXPECT_THAT(all_of(log), ::testing::ElementsAre("half a record"));
}

TEST_F(KernelLog, CountsWhatIsNoRecord)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    say("garbage\n\n\x1b[2J\n" + record(3, 1, "one"));
    EXPECT_THAT(all_of(log), ::testing::ElementsAre("one"));
    EXPECT_EQ(log.take_lost(), 2U);
    EXPECT_EQ(log.take_lost(), 0U);
}

TEST_F(KernelLog, SurvivesALineWithoutEnd)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    for (int i = 0; i < 100; ++i) {
        say(std::string(10000, 'x'));
        EXPECT_FALSE(log.next());
    }
    say("\n" + record(3, 1, "after it"));
    EXPECT_THAT(all_of(log), ::testing::ElementsAre("after it"));
    EXPECT_GT(log.take_lost(), 0U);
}

TEST_F(KernelLog, ReadsABoundedNumberOfRecordsAtOnce)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    for (int i = 0; i < 2000; ++i) {
        say(record(6, 1, "nobody wants this"));
    }
    say(record(3, 1, "but this"));
    int calls = 0;
    std::optional<kernel_message> found;
    while (!found && calls < 100) {
        found = log.next();
        ++calls;
        EXPECT_TRUE(found || !log.is_drained());
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(found->text, "but this");
    EXPECT_GE(calls, 4);
}

TEST_F(KernelLog, OfAnyBytesEndsNothing)
{
    kernel_log log(path_, kernel_log::begin::with_new);
    std::mt19937 random(7);
    for (int i = 0; i < 300; ++i) {
        std::string noise(random() % 200, '\0');
        for (char &c : noise) {
            c = "0123456789,;-\n x\033\xff"[random() % 18];
        }
        say(noise);
        while (const auto message = log.next()) {
            EXPECT_LE(message->text.size(), longest_kernel_text);
        }
    }
    say("\n" + record(3, 1, "still there"));
    const auto texts = all_of(log);
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back(), "still there");
}

TEST(KernelLogFile, ThatIsNotThereIsAProblem)
{
    const temporary_directory folder;
    kernel_log log(folder.file("none"), kernel_log::begin::with_new);
    EXPECT_EQ(log.fd(), -1);
    EXPECT_EQ(log.problem(), folder.file("none") + ": cannot be opened: No such file or directory");
    EXPECT_FALSE(log.next());
}

TEST(KernelLogFile, EndsWhereAFileEnds)
{
    const temporary_directory folder;
    write_file(folder.file("kmsg"), record(3, 1, "only one"));
    kernel_log log(folder.file("kmsg"), kernel_log::begin::with_old);
    ASSERT_TRUE(log.next());
    EXPECT_FALSE(log.next());
    EXPECT_EQ(log.fd(), -1);
    EXPECT_EQ(log.problem(), folder.file("kmsg") + ": has ended");
}

TEST(KernelLogFile, IsReadFromItsEndWhereOldMessagesAreNotWanted)
{
    const temporary_directory folder;
    write_file(folder.file("kmsg"), record(3, 1, "old"));
    kernel_log log(folder.file("kmsg"), kernel_log::begin::with_new);
    EXPECT_FALSE(log.next());
}

TEST(KernelLogFile, ThatIsAFolderIsAProblem)
{
    const temporary_directory folder;
    kernel_log log(folder.path(), kernel_log::begin::with_old);
    EXPECT_FALSE(log.next());
    EXPECT_EQ(log.problem(), folder.path() + ": cannot be read: Is a directory");
}

TEST(MinuteQuota, StartsAnewEachMinute)
{
    minute_quota quota(2);
    EXPECT_TRUE(quota.take(5));
    EXPECT_TRUE(quota.take(6));
    EXPECT_FALSE(quota.take(64));
    EXPECT_TRUE(quota.take(65));
}

} // namespace
