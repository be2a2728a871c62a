// Events that wait for a sample, in files that were torn, damaged, or put there by somebody else.
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "box/box.hpp"
#include "box/box_writer.hpp"
#include "box/event_record.hpp"
#include "box/recovery.hpp"
#include "box/waiting_events.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/file_size_limit.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;
using texts = std::vector<std::string>;

event say(const std::string &text)
{
    return {1, new_year, text};
}

// A record as it stands in the file.
std::string record(const std::string &mark, const std::string &type, const std::string &time,
                   const std::string &text)
{
    const std::string checked = fmt::format("{} {} {}\n{}\n", type, time, text.size(), text);
    const auto *bytes = reinterpret_cast<const Bytef *>(checked.data());
    return fmt::format("vesk-event {} {:08x} {}", mark,
                       crc32(0, bytes, static_cast<uInt>(checked.size())), checked);
}

std::string record(const std::string &mark, const std::string &text)
{
    return record(mark, "1", std::to_string(new_year), text);
}

class WaitingEvents : public ::testing::Test
{
protected:
    void SetUp() override { add_samples(4); }

    // Four fill the open buffer.
    void add_samples(int count)
    {
        box_writer writer(base, {4, 2}, {});
        for (int i = 0; i < count; ++i) {
            write_sample(writer);
        }
    }
    static void write_sample(box_writer &writer)
    {
        const std::vector<std::string> names = {"::a"};
        const float value = 1;
        writer.admit(names[0]);
        writer.set_sensors(names);
        writer.write(new_year, {&value, 1});
    }
    void keep(const texts &wanted) const
    {
        box_writer writer(base);
        waiting_events events(writer, base);
        for (const std::string &text : wanted) {
            EXPECT_EQ(events.write(say(text)), event_result::waits);
        }
    }
    // Goes on as a recording does.
    void go_on() const
    {
        box_writer writer(base);
        waiting_events events(writer, base);
        write_sample(writer);
        events.take_over();
    }
    texts waiting() const
    {
        texts found;
        for (const event &each : waiting_events_of(find_box(base))) {
            found.push_back(each.text);
        }
        return found;
    }
    texts in_box() const
    {
        texts found;
        const box what = find_box(base);
        for (const stored_file *each : what.current_buffers()) {
            scan_file(*each, [&](const vesk_scan_item &item) {
                if (item.kind == VESK_SCAN_EVENT) {
                    found.emplace_back(item.event->text);
                }
            });
        }
        return found;
    }
    // What is said when an event cannot be kept.
    std::string refusal() const
    {
        box_writer writer(base);
        waiting_events events(writer, base);
        try {
            events.write(say("refused"));
        } catch (const failure &reason) {
            return reason.what();
        }
        return "";
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
    std::string file = base + ".events";
};

TEST_F(WaitingEvents, FollowTheNextSampleInTheirOrder)
{
    keep({"one", "two\nlines", "vesk-event wait"});
    keep({"four"});
    EXPECT_THAT(waiting(), ElementsAre("one", "two\nlines", "vesk-event wait", "four"));
    EXPECT_THAT(in_box(), ElementsAre());
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("one", "two\nlines", "vesk-event wait", "four"));
    EXPECT_THAT(waiting(), ElementsAre());
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(WaitingEvents, ANewEventIsNeverPutBeforeThoseThatWait)
{
    keep({"one"});
    box_writer writer(base);
    waiting_events events(writer, base);
    write_sample(writer);
    EXPECT_EQ(events.write(say("two")), event_result::waits);
    events.take_over();
    EXPECT_EQ(events.write(say("three")), event_result::recorded);
    EXPECT_THAT(in_box(), ElementsAre("one", "two", "three"));
}

TEST_F(WaitingEvents, ATornRecordIsPassedOverAndWhatFollowsIsKept)
{
    const std::string first = record("wait", "first");
    const std::string second = record("wait", "second");
    for (std::size_t size = 0; size < second.size(); ++size) {
        write_file(file, first + second.substr(0, size));
        keep({"third"});
        EXPECT_THAT(waiting(), ElementsAre("first", "third")) << size;
        write_file(file, second.substr(0, size));
        keep({"third"});
        EXPECT_THAT(waiting(), ElementsAre("third")) << size;
    }
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("third"));
}

TEST_F(WaitingEvents, ADamagedRecordCostsNoOther)
{
    const std::string damaged = record("wait", "damaged");
    const texts all = {"damaged", "second", "third"};
    for (std::size_t at = 0; at < damaged.size(); ++at) {
        std::string bytes = damaged;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x11);
        write_file(file, bytes + record("wait", "second") + record("wait", "third"));
        const bool before_checksum = at < std::strlen("vesk-event wait");
        EXPECT_EQ(waiting(), before_checksum ? all : texts({"second", "third"})) << at;
    }
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("second", "third"));
}

TEST_F(WaitingEvents, ZerosAfterALossOfPowerAreNoObstacle)
{
    write_file(file, std::string(100, '\0'));
    keep({"one"});
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("one"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(WaitingEvents, WhatNoBoxCanHoldKeepsNothingBack)
{
    const std::string now = std::to_string(new_year);
    const std::string content =
        record("wait", "0", now, "type 0") + record("wait", "6", now, "type 6") +
        record("wait", "1", "0", "no time") + record("wait", "1", "99999999999", "late") +
        record("wait", "1", now, "") + record("wait", "1", now, std::string("a\0b", 3)) +
        record("wait", "1", now, std::string(10001, 'x')) + record("wait", "good");
    write_file(file, content);
    EXPECT_THAT(waiting(), ElementsAre("good"));
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("good"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(WaitingEvents, WhatNoBoxCanHoldIsRefused)
{
    box_writer writer(base);
    waiting_events events(writer, base);
    EXPECT_THROW(events.write({0, new_year, "x"}), unrecordable_event);
    EXPECT_THROW(events.write({6, new_year, "x"}), unrecordable_event);
    EXPECT_THROW(events.write({1, 0, "x"}), unrecordable_event);
    EXPECT_THROW(events.write({1, int64_t{1} << 40, "x"}), unrecordable_event);
    EXPECT_THROW(events.write({1, new_year, ""}), unrecordable_event);
    EXPECT_THROW(events.write({1, new_year, std::string(10001, 'x')}), unrecordable_event);
    EXPECT_THROW(events.write({1, new_year, std::string(1, '\0')}), unrecordable_event);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(WaitingEvents, AnEventThatWasPutIntoTheBoxBeforeAKillIsNotPutThereAgain)
{
    const std::string one = record("wait", "alike");
    write_file(file, one + one + one);
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("alike", "alike", "alike"));
    // Killed before the last mark; and before the last event was in the box.
    write_file(file, record("done", "alike") + record("done", "alike") + record("0002", "alike"));
    EXPECT_THAT(waiting(), ElementsAre());
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("alike", "alike", "alike"));
    EXPECT_FALSE(std::filesystem::exists(file));
    write_file(file, record("0003", "alike"));
    EXPECT_THAT(waiting(), ElementsAre("alike"));
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("alike", "alike", "alike", "alike"));
}

TEST_F(WaitingEvents, OnlySoManyMayWait)
{
    std::string content;
    for (std::size_t i = 1; i < most_waiting_events; ++i) {
        content += record("wait", "x");
    }
    write_file(file, content);
    keep({"the last"});
    const std::string full = read_file(file);
    EXPECT_EQ(refusal(), base + ": too many events wait for a sample (1000)");
    EXPECT_EQ(read_file(file), full);
    go_on();
    EXPECT_EQ(in_box().size(), most_waiting_events);
}

TEST_F(WaitingEvents, OnlySoManyBytesMayWait)
{
    const std::string one = record("wait", std::string(10000, 'x'));
    std::string content;
    while (content.size() + one.size() <= most_waiting_bytes) {
        content += one;
    }
    write_file(file, content);
    box_writer writer(base);
    waiting_events events(writer, base);
    EXPECT_THROW(events.write(say(std::string(10000, 'x'))), failure);
    EXPECT_EQ(read_file(file), content);
    EXPECT_EQ(events.write(say("a short one")), event_result::waits);
}

TEST_F(WaitingEvents, AFirstWordThatRottedCostsNoEvent)
{
    for (std::size_t rotten = 0; rotten < std::strlen("vesk-event "); ++rotten) {
        std::string bytes = record("wait", "one") + record("wait", "two");
        bytes[rotten] = '\x85';
        bytes[record("wait", "one").size() + rotten] = '\x85';
        write_file(file, bytes);
        EXPECT_THAT(waiting(), ElementsAre("one", "two"));
    }
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("one", "two"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(WaitingEvents, AForeignFileIsToldAndLeftAlone)
{
    for (const std::string content : {"hello\n", "vesk-events\n"}) {
        write_file(file, content);
        CaptureStderr();
        EXPECT_THAT(refusal(), HasSubstr("box.events: is no file of waiting events"));
        EXPECT_THAT(GetCapturedStderr(), HasSubstr("is no file of waiting events"));
        EXPECT_EQ(read_file(file), content);
        EXPECT_THROW(waiting(), failure);
    }
}

TEST_F(WaitingEvents, ALinkIsNotFollowedAndAFifoNotWaitedFor)
{
    const std::string target = folder.file("target");
    write_file(target, record("wait", "stranger"));
    const std::string before = read_file(target);
    ASSERT_EQ(symlink(target.c_str(), file.c_str()), 0);
    EXPECT_THAT(refusal(), HasSubstr("box.events: is no file of waiting events"));
    go_on();
    EXPECT_EQ(read_file(target), before);
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), HasSubstr("box.events: is no file of waiting events"));
    go_on();
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_THAT(refusal(), HasSubstr("box.events: is no file of waiting events"));
    go_on();
    EXPECT_THAT(in_box(), ElementsAre());
    EXPECT_TRUE(std::filesystem::is_directory(file));
}

TEST_F(WaitingEvents, AFullDiskRefusesTheEventAndLeavesNoHalfOfIt)
{
    keep({"one"});
    const std::string before = read_file(file);
    box_writer writer(base);
    waiting_events events(writer, base);
    for (std::size_t room = 0; room < record("wait", "two").size(); ++room) {
        const file_size_limit disk(before.size() + room);
        EXPECT_THROW(events.write(say("two")), storage_failure) << room;
        EXPECT_EQ(read_file(file), before) << room;
    }
    EXPECT_EQ(events.write(say("two")), event_result::waits);
    EXPECT_THAT(waiting(), ElementsAre("one", "two"));
}

TEST_F(WaitingEvents, AnEventWaitsWhileTheDiskHasNoRoomForItInTheBox)
{
    add_samples(1);
    box_writer writer(base);
    waiting_events events(writer, base);
    {
        const std::size_t size = std::filesystem::file_size(base + ".2.cbuf.z");
        const file_size_limit disk(size + 10);
        EXPECT_EQ(events.write(say("one")), event_result::waits);
        events.take_over();
        EXPECT_EQ(events.count(), 1U);
    }
    events.take_over();
    EXPECT_EQ(events.count(), 0U);
    EXPECT_THAT(in_box(), ElementsAre("one"));
}

TEST_F(WaitingEvents, AFileFullOfHeadsIsReadInBoundedTime)
{
    // Each head promises a long text, so each asks for a checksum.
    const std::string head = "vesk-event wait 00000000 1 1 10000\n";
    std::string content;
    while (content.size() + head.size() <= most_waiting_bytes) {
        content += head;
    }
    write_file(file, content);
    EXPECT_THAT(waiting(), ElementsAre());
    EXPECT_EQ(read_waiting_file(base).damage.size(), 1U);
}

TEST_F(WaitingEvents, AFileThatIsLongerThanAnyIsForeign)
{
    const std::string content =
        record("wait", "one") + std::string(most_waiting_bytes, '\0') + record("wait", "two");
    write_file(file, content);
    EXPECT_THROW(waiting(), foreign_waiting_file);
    go_on();
    EXPECT_EQ(read_file(file), content);
    EXPECT_EQ(report_waiting_events(find_box(base)).is, waiting_report::condition::foreign);
}

TEST_F(WaitingEvents, TheFileOfAnotherUserIsForeign)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, who may give files away";
    }
    constexpr uid_t stranger = 54321;
    const std::string content = record("wait", "from a stranger");
    write_file(file, content);
    ASSERT_EQ(chown(file.c_str(), stranger, stranger), 0);
    EXPECT_THAT(refusal(), HasSubstr("box.events: is no file of waiting events"));
    go_on();
    EXPECT_THAT(in_box(), ElementsAre());
    EXPECT_EQ(read_file(file), content);
    EXPECT_EQ(plan_recovery(base, {}).steps.size(), 1U);
    // It is not foreign where the box is the stranger's, too.
    ASSERT_EQ(chown((base + ".state").c_str(), stranger, stranger), 0);
    EXPECT_THAT(waiting(), ElementsAre("from a stranger"));
}

TEST_F(WaitingEvents, WhatCannotBeReadIsKeptWhenTheFileIsDeleted)
{
    const std::string damaged = record("wait", "damaged").replace(20, 1, "x");
    write_file(file, damaged + record("wait", "one") + "torn");
    go_on();
    EXPECT_THAT(in_box(), ElementsAre("one"));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(read_file(file + ".torn"), damaged + "torn");
}

TEST_F(WaitingEvents, AReportTellsWhatIsThere)
{
    using condition = waiting_report::condition;
    const auto report = [&] { return report_waiting_events(find_box(base)); };
    EXPECT_EQ(report().is, condition::absent);
    write_file(file, record("done", "zero") + record("wait", "one"));
    EXPECT_EQ(report().is, condition::whole);
    EXPECT_EQ(report().text(), "1 event waits");
    write_file(file, record("wait", "one") + record("wait", "two") + "torn");
    EXPECT_EQ(report().is, condition::damaged);
    EXPECT_EQ(report().text(), "2 events wait, 4 bytes at " +
                                   std::to_string(2 * record("wait", "one").size()) +
                                   " hold no event");
    write_file(file, "some other text");
    EXPECT_EQ(report().is, condition::foreign);
}

TEST_F(WaitingEvents, AMendedFileHoldsWhatCanBeRead)
{
    const std::string damaged = record("wait", "damaged").replace(20, 1, "x");
    const std::string readable = record("wait", "one") + record("0001", "two");
    write_file(file, record("done", "zero") + damaged + readable + std::string(7, '\0'));
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    // A mend before was killed.
    write_file(file + ".new", "half of it");
    EXPECT_EQ(mend_waiting_file(base), damaged.size() + 7);
    EXPECT_EQ(read_file(file), readable);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms{0640});
    EXPECT_EQ(read_file(file + ".torn"), damaged + std::string(7, '\0'));
    EXPECT_FALSE(std::filesystem::exists(file + ".new"));
    EXPECT_EQ(mend_waiting_file(base), 0U);
    EXPECT_EQ(read_file(file), readable);
    // Nothing readable at all.
    write_file(file, damaged);
    EXPECT_EQ(mend_waiting_file(base), damaged.size());
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(read_file(file + ".torn"), damaged + std::string(7, '\0') + damaged);
}

TEST_F(WaitingEvents, WhatIsTakenOutIsNeverWrittenThroughALink)
{
    const std::string content = record("wait", "one") + "torn";
    const std::string target = folder.file("target");
    write_file(file, content);
    write_file(target, "");
    for (const char *suffix : {".torn", ".new"}) {
        ASSERT_EQ(symlink(target.c_str(), (file + suffix).c_str()), 0);
        EXPECT_THROW(mend_waiting_file(base), failure) << suffix;
        EXPECT_NE(plan_recovery(base, {}).obstacle, "") << suffix;
        EXPECT_EQ(read_file(file), content) << suffix;
        EXPECT_EQ(read_file(target), "") << suffix;
        std::filesystem::remove(file + suffix);
    }
}

TEST_F(WaitingEvents, AFullDiskLeavesADamagedFileAsItIs)
{
    const std::string content = record("wait", "one") + "torn" + record("wait", "two");
    write_file(file, content);
    for (std::size_t room = 0; room < content.size() - 4; ++room) {
        const file_size_limit disk(room);
        EXPECT_THROW(mend_waiting_file(base), storage_failure) << room;
        EXPECT_EQ(read_file(file), content) << room;
        EXPECT_FALSE(std::filesystem::exists(file + ".new")) << room;
        std::filesystem::remove(file + ".torn");
    }
    EXPECT_EQ(mend_waiting_file(base), 4U);
    EXPECT_THAT(waiting(), ElementsAre("one", "two"));
}

} // namespace
