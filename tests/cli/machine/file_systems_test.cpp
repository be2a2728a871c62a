// Which file systems are recorded under which names, and that one which does not answer holds
// nobody but a process of its own.
#include <cmath>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/machine/machine_tree.hpp"
#include "machine/file_systems.hpp"
#include "machine/mounts.hpp"

namespace
{

using namespace cli;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

std::vector<std::string> points_of(std::string_view text)
{
    std::vector<std::string> points;
    for (const mounted &mount : parse_mounts(text)) {
        points.push_back(mount.point);
    }
    return points;
}

std::vector<std::string> names_in(std::string_view text)
{
    return names_of(parse_mounts(text));
}

TEST(Mounts, OfDisksAreToldAndThoseOfTheKernelAreNot)
{
    EXPECT_THAT(points_of("22 27 0:21 / /proc rw,relatime - proc proc rw\n"
                          "23 27 0:22 / /sys rw,relatime - sysfs sysfs rw\n"
                          "24 27 0:6 / /dev rw,relatime - devtmpfs devtmpfs rw,size=4k\n"
                          "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw,discard\n"
                          "31 27 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
                          "32 27 8:2 / /home rw shared:2 master:3 - xfs /dev/sda2 rw\n"
                          "33 27 0:40 / /data rw - btrfs /dev/sdb rw,subvolid=5\n"
                          "34 27 0:41 / /tank rw - zfs tank rw\n"
                          "35 23 0:28 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n"),
                ElementsAre("/", "/boot/efi", "/home", "/data", "/tank"));
}

TEST(Mounts, ThatComeOverANetworkOrAreImagesAreLeftOut)
{
    EXPECT_THAT(points_of("40 27 0:50 / /net/a rw - nfs4 server:/a rw\n"
                          "41 27 0:51 / /net/b rw - cifs //server/b rw\n"
                          "42 27 0:52 / /net/c rw - 9p host rw\n"
                          "43 27 0:53 / /net/d rw - fuse.sshfs user@host: rw\n"
                          "44 27 0:54 / /net/e rw - ceph 10.0.0.1:/ rw\n"
                          "45 27 0:55 / /net/f rw - autofs systemd-1 rw\n"
                          "46 27 253:9 / /net/g rw - gfs2 /dev/dm-9 rw\n"
                          "47 27 7:1 / /snap/core/1 ro - squashfs /dev/loop1 ro\n"
                          "48 27 11:0 / /media/cd ro - iso9660 /dev/sr0 ro\n"),
                IsEmpty());
}

TEST(Mounts, InMemoryAreToldAtTheirWellKnownPlaces)
{
    EXPECT_THAT(points_of("40 27 0:50 / /run rw - tmpfs tmpfs rw\n"
                          "41 27 0:51 / /tmp rw - tmpfs tmpfs rw\n"
                          "42 27 0:52 / /dev/shm rw - tmpfs tmpfs rw\n"
                          "43 27 0:53 / /run/user/1000 rw - tmpfs tmpfs rw\n"
                          "44 27 0:54 / /run/credentials/a.service ro - tmpfs tmpfs ro\n"),
                ElementsAre("/run", "/tmp", "/dev/shm"));
}

// Each container has such a mount on its host, and all of them are in one file system.
TEST(Mounts, OfLayersAreToldWhereTheyAreTheRoot)
{
    EXPECT_THAT(points_of("100 99 0:45 / / rw - overlay overlay rw,lowerdir=/a:/b\n"
                          "101 100 0:46 / /var/lib/docker/overlay2/x/merged rw - overlay o rw\n"
                          "102 100 8:1 /hosts /etc/hosts rw - ext4 /dev/sda1 rw\n"),
                ElementsAre("/", "/etc/hosts"));
}

TEST(Mounts, ADeviceIsToldOnceWhereTheWholeOfItIs)
{
    EXPECT_THAT(points_of("40 27 8:1 /folder /a rw - ext4 /dev/sda1 rw\n"
                          "41 27 8:1 / /mnt/whole rw - ext4 /dev/sda1 rw\n"
                          "42 27 8:1 /folder /b rw - ext4 /dev/sda1 rw\n"),
                ElementsAre("/mnt/whole"));
    EXPECT_THAT(points_of("40 27 0:33 /@home /home rw - btrfs /dev/sda1 rw\n"
                          "41 27 0:33 /@ / rw - btrfs /dev/sda1 rw\n"),
                ElementsAre("/"));
}

TEST(Mounts, TheLaterOneAtAPointHidesTheEarlier)
{
    const auto mounts = parse_mounts("40 27 8:1 / /mnt rw - ext4 /dev/sda1 rw\n"
                                     "41 40 8:2 / /mnt rw - ext4 /dev/sda2 rw\n");
    ASSERT_EQ(mounts.size(), 1U);
    EXPECT_EQ(mounts[0].device, "8:2");
    EXPECT_EQ(mounts[0].id, 41U);
}

TEST(Mounts, PathsAreUnescaped)
{
    EXPECT_THAT(points_of("40 27 8:1 / /mnt/my\\040disk\\134x rw - ext4 /dev/sda1 rw\n"
                          "41 27 8:2 / /mnt/odd\\9 rw - ext4 /dev/sda1 rw\n"),
                ElementsAre("/mnt/my disk\\x", "/mnt/odd\\9"));
}

TEST(Mounts, LinesThatCannotBeReadAreLeftOut)
{
    EXPECT_THAT(points_of("\n40\n40 27\n40 27 8:1\n40 27 8:1 /\n40 27 8:1 / /mnt\n"
                          "40 27 8:1 / /mnt rw - \nx 27 8:1 / /mnt rw - ext4 a rw\n"
                          "40 27 81 / /mnt rw - ext4 a rw\n40 27 8:1 / mnt rw - ext4 a rw\n"),
                // A type that is missing is none that is left out.
                ElementsAre("/mnt"));
}

TEST(Mounts, NamesAreThoseOfThePaths)
{
    EXPECT_THAT(names_in("40 27 8:1 / / rw - ext4 a rw\n"
                         "41 27 8:2 / /var/lib rw - ext4 a rw\n"
                         "42 27 8:3 / /mnt/my\\040disk rw - ext4 a rw\n"),
                ElementsAre("root", "var_lib", "mnt_my_disk"));
}

TEST(Mounts, NamesThatWouldBeTheSameAreToldApart)
{
    EXPECT_THAT(names_in("40 27 8:1 / / rw - ext4 a rw\n"
                         "41 27 8:2 / /root rw - ext4 a rw\n"
                         "42 27 8:3 / /a/b rw - ext4 a rw\n"
                         "43 27 8:4 / /a_b rw - ext4 a rw\n"),
                ElementsAre("root", "root+8-2", "a_b", "a_b+8-4"));
}

TEST(Space, IsToldAsDfTellsIt)
{
    measurements out;
    measure_space("home", space{0, 0, 0, 1000, 400, 300, 50, 40}, out);
    EXPECT_THAT(texts_of(out),
                ElementsAre("::fs.home.used_percent=66.66667", "::fs.home.used_bytes=600",
                            "::fs.home.available_bytes=300", "::fs.home.used_inodes_percent=20",
                            "::fs.home.used_inodes_count=10", "::fs.home.read_only_flag=0"));
}

TEST(Space, WithoutANumberOfInodesTellsNone)
{
    measurements out;
    measure_space("boot", space{0, 1, 0, 1000, 400, 400, 0, 0}, out);
    EXPECT_THAT(texts_of(out),
                ElementsAre("::fs.boot.used_percent=60", "::fs.boot.used_bytes=600",
                            "::fs.boot.available_bytes=400", "::fs.boot.read_only_flag=1"));
}

TEST(Space, ThatIsNotKnownIsMissing)
{
    measurements out;
    measure_space("x", std::nullopt, out);
    ASSERT_EQ(out.size(), 6U);
    for (const measurement &m : out) {
        EXPECT_TRUE(std::isnan(std::get<gauge>(m.what).value)) << m.name;
    }
}

TEST(Space, NumbersThatContradictEachOtherAreNoReasonForHugeOnes)
{
    measurements out;
    measure_space("x", space{0, 0, 0, 10, 20, 0, 5, 9}, out);
    EXPECT_THAT(texts_of(out), Contains("::fs.x.used_bytes=0"));
    EXPECT_THAT(texts_of(out), Contains("::fs.x.used_percent=nan"));
    EXPECT_THAT(texts_of(out), Contains("::fs.x.used_inodes_count=0"));
}

// The file systems of a made-up machine. One at a mount point that ends with "stuck" answers when
// somebody writes to the FIFO "wake" beside it; at "deadly" the process that asks dies.
space answer_when_woken(const char *path)
{
    const std::string point = path;
    if (point.ends_with("/stuck") || point.find("/stuck") != std::string::npos) {
        const std::string wake = point.substr(0, point.rfind('/')) + "/wake";
        const int fd = open(wake.c_str(), O_RDONLY);
        close(fd);
    }
    if (point.ends_with("/deadly")) {
        _exit(1);
    }
    return {0, 0, 0, 1000, 400, 300, 50, 40};
}

std::string mount_line(int number, const std::string &point)
{
    const std::string text = std::to_string(number);
    return text + " 1 8:" + text + " / " + point + " rw - ext4 /dev/sda" + text + " rw\n";
}

class FileSystems : public ::testing::Test
{
protected:
    void mount(const std::vector<std::string> &points)
    {
        std::string table;
        for (const std::string &point : points) {
            table += mount_line(static_cast<int>(table.size()) + 1, point);
        }
        machine.put("proc/self/mountinfo", table);
    }

    double used(file_system_source &source, const std::string &name)
    {
        measurements out;
        source.measure(machine.files(), out);
        for (const measurement &m : out) {
            if (m.name == "::fs." + name + ".used_bytes") {
                return std::get<gauge>(m.what).value;
            }
        }
        ADD_FAILURE() << name << " is not there";
        return 0;
    }

    machine_tree machine;
};

TEST_F(FileSystems, OneThatDoesNotAnswerHasNoValuesAndTheOthersHaveTheirs)
{
    mount({"/stuck", "/home"});
    ASSERT_EQ(mkfifo((machine.root() + "/wake").c_str(), 0600), 0);
    file_system_source source(answer_when_woken);
    CaptureStderr();
    EXPECT_TRUE(std::isnan(used(source, "stuck")));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("/stuck does not answer"));
    CaptureStderr();
    EXPECT_EQ(used(source, "home"), 600);
    EXPECT_TRUE(std::isnan(used(source, "stuck")));
    EXPECT_EQ(GetCapturedStderr(), "") << "it is told once";

    // Whoever opens the FIFO waits for the process that reads it.
    close(open((machine.root() + "/wake").c_str(), O_WRONLY));
    CaptureStderr();
    double value = NAN;
    for (int i = 0; i < 100000 && std::isnan(value); ++i) {
        measurements out;
        // Asked again, it would wait again: so its table has another file system now.
        mount({"/home"});
        value = used(source, "home");
        sched_yield();
    }
    EXPECT_EQ(value, 600);
    GetCapturedStderr();
}

TEST_F(FileSystems, OneThatAnswersLateIsAskedAgain)
{
    mount({"/stuck"});
    ASSERT_EQ(mkfifo((machine.root() + "/wake").c_str(), 0600), 0);
    file_system_source source(answer_when_woken);
    CaptureStderr();
    EXPECT_TRUE(std::isnan(used(source, "stuck")));
    const int wake = open((machine.root() + "/wake").c_str(), O_RDWR);
    ASSERT_GE(wake, 0);
    double value = NAN;
    for (int i = 0; i < 100000 && std::isnan(value); ++i) {
        value = used(source, "stuck");
        sched_yield();
    }
    close(wake);
    EXPECT_EQ(value, 600);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("/stuck answers again"));
}

TEST_F(FileSystems, ThatDoNotAnswerHoldAFewProcessesOnly)
{
    ASSERT_EQ(mkfifo((machine.root() + "/wake").c_str(), 0600), 0);
    mount({"/stuck1", "/stuck2", "/stuck3", "/stuck4", "/stuck5", "/stuck6"});
    file_system_source source(answer_when_woken);
    CaptureStderr();
    EXPECT_TRUE(std::isnan(used(source, "stuck6")));
    const std::string told = GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr("/stuck4 does not answer"));
    EXPECT_THAT(told, ::testing::Not(HasSubstr("/stuck5")));
    CaptureStderr();
    EXPECT_TRUE(std::isnan(used(source, "stuck1")));
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(FileSystems, AProcessThatDiesIsReplaced)
{
    mount({"/deadly", "/home", "/srv"});
    file_system_source source(answer_when_woken);
    EXPECT_TRUE(std::isnan(used(source, "deadly")));
    EXPECT_EQ(used(source, "srv"), 600);
}

uint64_t voluntary_switches(const std::string &process)
{
    std::ifstream status("/proc/" + process + "/status");
    uint64_t count = 0;
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("voluntary_ctxt_switches:")) {
            count += std::stoull(line.substr(line.find(':') + 1));
        }
    }
    return count;
}

// This process and those that it has started.
uint64_t switches_of_all()
{
    uint64_t count = voluntary_switches("self");
    const std::string own = std::to_string(getpid());
    std::ifstream children("/proc/" + own + "/task/" + own + "/children");
    for (std::string child; children >> child;) {
        count += voluntary_switches(child);
    }
    return count;
}

// A recorder on batteries should wake as seldom as it can. One process sleeps until it is asked,
// the other until it is answered, however many file systems there are.
TEST_F(FileSystems, AreAskedAndAnswerAllAtOnce)
{
    mount({"/a", "/b", "/c", "/d", "/e", "/f", "/g", "/h", "/i", "/j"});
    file_system_source source(answer_when_woken);
    EXPECT_EQ(used(source, "j"), 600);
    constexpr uint64_t times = 50;
    const uint64_t before = switches_of_all();
    for (uint64_t i = 0; i < times; ++i) {
        measurements out;
        source.measure(machine.files(), out);
    }
    EXPECT_LE(switches_of_all() - before, 2 * times + 10);
}

TEST_F(FileSystems, ThatWereAskedBeforehandHaveTheirValues)
{
    mount({"/home", "/srv"});
    file_system_source source(answer_when_woken);
    for (int i = 0; i < 3; ++i) {
        source.ask(machine.files());
        EXPECT_EQ(used(source, "srv"), 600);
    }
}

TEST_F(FileSystems, ASourceIsTheMountPoint)
{
    mount({"/home"});
    file_system_source source(answer_when_woken);
    measurements out;
    source.measure(machine.files(), out);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[0].source, machine.root() + "/home");
}

TEST_F(FileSystems, OfAContainersHostAreThoseThatItsFirstProcessSees)
{
    mount({"/inside"});
    machine.put("proc/1/mountinfo", mount_line(1, "/srv"));
    file_system_source source(answer_when_woken);
    EXPECT_EQ(used(source, "srv"), 600);
}

space count_descriptors(const char *)
{
    uint64_t count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += fcntl(fd, F_GETFD) >= 0 ? 1U : 0U;
    }
    return {0, 0, 0, count, 0, 0, 0, 0};
}

// A lock of the box that a held process keeps would keep the next recording away.
TEST(SpaceHelper, HoldsNothingOfItsParent)
{
    const int extra = open("/dev/null", O_RDONLY); // without O_CLOEXEC, to be sure
    space_helper helper(count_descriptors);
    ASSERT_TRUE(helper.is_there());
    ASSERT_TRUE(helper.ask({"/"}));
    const auto answers = helper.wait(std::chrono::seconds(60));
    close(extra);
    ASSERT_TRUE(answers);
    ASSERT_EQ(answers->size(), 1U);
    EXPECT_EQ(answers->front().total_bytes, 4U) << "the three standard streams and the socket";
}

TEST(SpaceHelper, TellsTheSpaceOfThisMachine)
{
    space_helper helper(space_of);
    ASSERT_TRUE(helper.ask({"/", "/there is/no such folder", "/"}));
    const auto answers = helper.wait(std::chrono::seconds(60));
    ASSERT_TRUE(answers);
    ASSERT_EQ(answers->size(), 3U);
    const space &root = answers->front();
    EXPECT_EQ(root.failed, 0);
    EXPECT_GT(root.total_bytes, 0U);
    EXPECT_LE(root.available_bytes, root.total_bytes);
    EXPECT_NE((*answers)[1].failed, 0);
    EXPECT_EQ((*answers)[2].total_bytes, root.total_bytes);
}

} // namespace
