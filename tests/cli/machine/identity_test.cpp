// Which machine and which of its lives: out of files, into a text, and back.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cli/machine/fake_machine.hpp"
#include "machine/identity.hpp"

namespace
{

using namespace cli;

const std::string a_machine = "3d1219c7c4c5404aaa1f6d2a48adfda4";
const std::string a_boot = "2b41000d-b18d-4cf7-907d-c8679e6b6be5";

void put_identity(const fake_machine &machine)
{
    machine.put("/proc/sys/kernel/hostname", "web1\n");
    machine.put("/proc/sys/kernel/osrelease", "6.1.0-28-amd64\n");
    machine.put("/proc/sys/kernel/random/boot_id", a_boot + "\n");
    machine.put("/etc/machine-id", a_machine + "\n");
}

TEST(Identity, IsReadFromTheMachine)
{
    const fake_machine machine;
    put_identity(machine);
    const machine_identity who = read_identity(machine.root(), true);
    EXPECT_EQ(who.host, "web1");
    EXPECT_EQ(who.kernel, "6.1.0-28-amd64");
    EXPECT_EQ(who.boot_id, a_boot);
    EXPECT_EQ(who.machine_id, a_machine);
}

TEST(Identity, LeavesTheMachineIdOutWhereItIsNotWanted)
{
    const fake_machine machine;
    put_identity(machine);
    EXPECT_EQ(read_identity(machine.root(), false).machine_id, "");
}

TEST(Identity, OfAMachineThatTellsNothingIsEmpty)
{
    const fake_machine machine;
    event_text text(event_word::machine);
    add_identity(text, read_identity(machine.root(), true));
    EXPECT_EQ(text.text(), "machine");
}

TEST(Identity, TakesNoIdThatIsNone)
{
    const fake_machine machine;
    for (const std::string &id :
         {std::string("uninitialized"), std::string(), a_machine + "0", a_machine.substr(1),
          "\033" + a_machine, std::string(100000, '0'), std::string("00000000-0000")}) {
        machine.put("/etc/machine-id", id + "\n");
        EXPECT_EQ(read_identity(machine.root(), true).machine_id, "") << id;
    }
}

TEST(Identity, DoesNotWaitForAPipe)
{
    const fake_machine machine;
    put_identity(machine);
    std::filesystem::remove(machine.path("/etc/machine-id"));
    ASSERT_EQ(mkfifo(machine.path("/etc/machine-id").c_str(), 0600), 0);
    EXPECT_EQ(read_identity(machine.root(), true).machine_id, "");
}

TEST(Identity, GoesThroughTheTextOfAnEvent)
{
    const machine_identity who = {"a \"host\"\n\033[2J", a_machine, a_boot, "6.1"};
    event_text text(event_word::machine);
    add_identity(text, who);
    const auto parsed = parse_event_text(text.text());
    ASSERT_TRUE(parsed) << text.text();
    const machine_identity back = identity_in(*parsed);
    EXPECT_EQ(back.host, who.host);
    EXPECT_EQ(back.machine_id, who.machine_id);
    EXPECT_EQ(back.boot_id, who.boot_id);
    EXPECT_EQ(back.kernel, who.kernel);
}

} // namespace
