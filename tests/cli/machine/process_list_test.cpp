// Which processes use the most, in a made tree of processes and on this machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli/machine/fake_machine.hpp"
#include "machine/process_list.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<uint32_t> pids_of(const std::vector<process_use> &uses)
{
    std::vector<uint32_t> pids;
    for (const process_use &use : uses) {
        pids.push_back(use.pid);
    }
    return pids;
}

double ticks_in_second()
{
    return static_cast<double>(sysconf(_SC_CLK_TCK));
}

TEST(ProcessStat, HasANameOfAnyKind)
{
    const std::string rest = " S 1 1 1 0 -1 0 0 0 0 0 7 5 0 0 20 0 1 0 99 1000 42 0\n";
    for (const std::string name : {"bash", "", "a b", "a) R 1 (b", ")", "((", "x\ny", "\033[2J"}) {
        const auto found = parse_process_stat("12 (" + name + ")" + rest);
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(found->name, name);
        EXPECT_EQ(found->ticks, 12U);
        EXPECT_EQ(found->started, 99U);
        EXPECT_EQ(found->resident_pages, 42U);
    }
}

TEST(ProcessStat, OfAnotherFormIsNone)
{
    for (const std::string text :
         {"", "12", "12 bash S 1", "12 (bash", "12 )bash( S", "12 (bash)", "12 (bash) S 1 1",
          "12 (a) S 1 1 1 0 -1 0 0 0 0 0 x 5 0 0 20 0 1 0 99 1000 42 0",
          "12 (a) S 1 1 1 0 -1 0 0 0 0 0 7 5 0 0 20 0 1 0 99 1000"}) {
        EXPECT_FALSE(parse_process_stat(text)) << text;
    }
}

TEST(ProcessIo, CountsWhatReachesADisk)
{
    EXPECT_EQ(parse_process_io("rchar: 9\nread_bytes: 10\nwrite_bytes: 5\n"), 15U);
    EXPECT_EQ(parse_process_io(""), std::nullopt);
    EXPECT_EQ(parse_process_io("read_bytes: x\n"), std::nullopt);
}

TEST(ProcessList, ListsWhoUsedTheMostSinceTheLastLook)
{
    const fake_machine machine;
    machine.put_process(10, {"idle", 1000000, 5, 900});
    machine.put_process(11, {"busy", 100, 10, 0});
    machine.put_process(12, {"writer", 100, 1, 0});
    process_list list(machine.root(), false);
    const top_processes first = list.look(2, 100);
    EXPECT_THAT(first.processor, IsEmpty());
    EXPECT_THAT(first.io, IsEmpty());
    EXPECT_THAT(pids_of(first.memory), ElementsAre(11, 10));

    machine.put_process(11, {"busy", 100 + static_cast<uint64_t>(5 * ticks_in_second()), 10, 0});
    machine.put_process(12, {"writer", 101, 1, 4096 * 10});
    const top_processes top = list.look(2, 110);
    EXPECT_EQ(top.seconds, 10);
    EXPECT_EQ(top.processes, 3U);
    EXPECT_TRUE(top.is_whole);
    EXPECT_THAT(pids_of(top.processor), ElementsAre(11, 12));
    EXPECT_DOUBLE_EQ(top.processor[0].figure, 50);
    EXPECT_EQ(top.processor[0].name, "busy");
    EXPECT_DOUBLE_EQ(top.memory[0].figure, 10.0 * static_cast<double>(sysconf(_SC_PAGESIZE)));
    EXPECT_THAT(pids_of(top.io), ElementsAre(12));
    EXPECT_DOUBLE_EQ(top.io[0].figure, 4096);
}

TEST(ProcessList, CountsAllOfAProcessThatBeganMeanwhile)
{
    const fake_machine machine;
    machine.put_process(10, {"old", 500, 1, 0, 1});
    process_list list(machine.root(), false);
    list.look(3, 0);
    machine.put_process(11, {"new", static_cast<uint64_t>(ticks_in_second()), 1, 0, 200});
    // The number of one that has ended is given to another one.
    machine.put_process(10, {"other", static_cast<uint64_t>(2 * ticks_in_second()), 1, 0, 300});
    const top_processes top = list.look(3, 10);
    EXPECT_THAT(pids_of(top.processor), ElementsAre(10, 11));
    EXPECT_DOUBLE_EQ(top.processor[0].figure, 20);
}

TEST(ProcessList, LeavesOutWhoHasEnded)
{
    const fake_machine machine;
    machine.put_process(10, {"one", 0, 1, 0});
    machine.put_process(11, {"two", 0, 2, 0});
    process_list list(machine.root(), false);
    list.look(3, 0);
    machine.remove_process(11);
    // Ended between the list and the look, and between the two files.
    std::filesystem::create_directories(machine.path("/proc/12"));
    std::filesystem::remove(machine.path("/proc/10/io"));
    const top_processes top = list.look(3, 10);
    EXPECT_THAT(pids_of(top.memory), ElementsAre(10));
    EXPECT_EQ(top.processes, 1U);
}

TEST(ProcessList, PassesOverWhatIsNoProcess)
{
    const fake_machine machine;
    machine.put("/proc/self/stat", "1 (x) S");
    machine.put("/proc/99999999999999999999/stat", "1 (x) S");
    machine.put("/proc/7", "a file");
    process_list list(machine.root(), false);
    EXPECT_EQ(list.look(3, 0).processes, 0U);
}

TEST(ProcessList, NamesProcessesByTheirArgumentsWhereThatIsWanted)
{
    const fake_machine machine;
    machine.put_process(10, {"thread", 0, 9, 0});
    machine.put_process(11, {"short", 0, 8, 0});
    machine.put("/proc/11/cmdline", std::string("/bin/long\0--option\0", 19));
    machine.put_process(12, {"endless", 0, 7, 0});
    machine.put("/proc/12/cmdline", std::string(100000, 'x'));
    process_list with(machine.root(), true);
    const top_processes top = with.look(3, 0);
    ASSERT_EQ(top.memory.size(), 3U);
    EXPECT_EQ(top.memory[0].name, "thread");
    EXPECT_EQ(top.memory[1].name, "/bin/long --option");
    EXPECT_EQ(top.memory[2].name, std::string(200, 'x'));
    process_list without(machine.root(), false);
    EXPECT_EQ(without.look(3, 0).memory[1].name, "short");
}

TEST(ProcessList, BecomesPairsWithTheNameLast)
{
    top_processes top;
    top.processor = {{12, "a,b \"c\"\033", 12.345}};
    top.memory = {{13, "java", 1048576}};
    event_text text(event_word::top);
    add_processes(text, top);
    EXPECT_EQ(text.text(), R"(top cpu1="12.3,12,a,b \"c\"\x1b" memory1=1048576,13,java)");
    EXPECT_TRUE(parse_event_text(text.text()));
}

TEST(ProcessList, FindsThisProcessOnThisMachine)
{
    process_list list("", false);
    list.look(1000, 0);
    volatile double sum = 0;
    for (int i = 0; i < 30000000; ++i) {
        sum = sum + i;
    }
    const top_processes top = list.look(1000, 1);
    EXPECT_THAT(pids_of(top.memory), ::testing::Contains(static_cast<uint32_t>(getpid())));
    EXPECT_THAT(pids_of(top.processor), ::testing::Contains(static_cast<uint32_t>(getpid())));
}

} // namespace
