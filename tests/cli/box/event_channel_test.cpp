// Events on their way to a recorder.
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "box/event_channel.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::IsEmpty;
using outcome = event_reply::outcome;

// What a sender in a process of its own hears.
class sender
{
public:
    sender(const std::string &base, const event &what, double patience = 20)
    {
        pid_ = fork();
        if (pid_ == 0) {
            const event_reply reply = send_event(base, what, patience);
            _exit(static_cast<int>(reply.what) * 16 + static_cast<int>(reply.answer));
        }
    }
    sender(const sender &) = delete;
    sender &operator=(const sender &) = delete;
    ~sender() { wait(); }

    outcome heard()
    {
        wait();
        return static_cast<outcome>(WEXITSTATUS(status_) / 16);
    }
    event_answer answer()
    {
        wait();
        return static_cast<event_answer>(WEXITSTATUS(status_) % 16);
    }

private:
    void wait()
    {
        if (pid_ > 0) {
            waitpid(pid_, &status_, 0);
            pid_ = 0;
        }
    }
    pid_t pid_ = 0;
    int status_ = 0;
};

incoming_event next_event(const event_inbox &inbox)
{
    for (;;) {
        pollfd readable = {inbox.fd(), POLLIN, 0};
        poll(&readable, 1, -1);
        std::optional<incoming_event> incoming = inbox.take();
        if (incoming) {
            return std::move(*incoming);
        }
    }
}

class EventChannel : public ::testing::Test
{
protected:
    temporary_directory folder;
    std::string base = folder.file("box");
};

TEST_F(EventChannel, CarriesAnEventAndTheAnswer)
{
    const event_inbox inbox(base);
    EXPECT_FALSE(inbox.take());
    sender other(base, {3, 1704067200, "two\nlines, \"quoted\""});
    const incoming_event incoming = next_event(inbox);
    EXPECT_EQ(incoming.what().type, 3U);
    EXPECT_EQ(incoming.what().time, 1704067200);
    EXPECT_EQ(incoming.what().text, "two\nlines, \"quoted\"");
    incoming.answer(event_answer::recorded);
    EXPECT_EQ(other.heard(), outcome::answered);
    EXPECT_EQ(other.answer(), event_answer::recorded);
}

TEST_F(EventChannel, CarriesTheLongestTextAndTheReasonOfARefusal)
{
    const event_inbox inbox(base);
    const pid_t child = fork();
    if (child == 0) {
        const event_reply reply = send_event(base, {1, 1, std::string(longest_event, 'x')}, 20);
        _exit(reply.answer == event_answer::refused && reply.reason == "no room" ? 0 : 1);
    }
    const incoming_event incoming = next_event(inbox);
    EXPECT_EQ(incoming.what().text, std::string(longest_event, 'x'));
    incoming.answer(event_answer::refused, "no room");
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(EventChannel, TheLastAnswerCounts)
{
    const event_inbox inbox(base);
    sender other(base, {1, 1, "x"});
    const incoming_event incoming = next_event(inbox);
    incoming.answer(event_answer::waits);
    incoming.answer(event_answer::recorded);
    EXPECT_EQ(other.answer(), event_answer::recorded);
}

TEST_F(EventChannel, WhoWaitsTooLongHearsThatTheEventIsTaken)
{
    const event_inbox inbox(base);
    sender other(base, {1, 1, "x"}, 0.05);
    const incoming_event incoming = next_event(inbox);
    incoming.answer(event_answer::waits);
    // Without a last answer it depends on the moment whether the first one was heard.
    if (other.heard() == outcome::answered) {
        EXPECT_EQ(other.answer(), event_answer::waits);
    } else {
        EXPECT_EQ(other.heard(), outcome::no_answer);
    }
    // Nobody listens any more; that ends nothing here.
    incoming.answer(event_answer::recorded);
}

TEST_F(EventChannel, TheSenderHearsOfARecorderThatEndsWithoutAnAnswer)
{
    const event_inbox inbox(base);
    sender other(base, {1, 1, "x"});
    {
        const incoming_event dropped = next_event(inbox);
    }
    EXPECT_EQ(other.heard(), outcome::ended);
}

TEST_F(EventChannel, TheSenderHearsWhenNobodyIsThere)
{
    EXPECT_EQ(send_event(base, {1, 1, "x"}, 1).what, outcome::nobody);
    {
        const event_inbox inbox(base);
    }
    EXPECT_EQ(send_event(base, {1, 1, "x"}, 1).what, outcome::nobody);
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(EventChannel, ASocketThatAKilledRecorderLeftBehindIsReplaced)
{
    const pid_t child = fork();
    if (child == 0) {
        const event_inbox inbox(base);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    ASSERT_EQ(access((base + ".sock").c_str(), F_OK), 0);
    EXPECT_EQ(send_event(base, {1, 1, "x"}, 1).what, outcome::nobody);
    const event_inbox inbox(base);
    sender other(base, {1, 1, "x"});
    next_event(inbox).answer(event_answer::recorded);
    EXPECT_EQ(other.answer(), event_answer::recorded);
}

TEST_F(EventChannel, OnlyTheOwnerCanSend)
{
    const event_inbox inbox(base);
    struct stat status = {};
    ASSERT_EQ(stat((base + ".sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(EventChannel, FoldersMayHaveLongNames)
{
    const std::string deep = folder.file(std::string(200, 'd'));
    std::filesystem::create_directory(deep);
    const event_inbox inbox(deep + "/box");
    sender other(deep + "/box", {1, 1, "x"});
    next_event(inbox).answer(event_answer::recorded);
    EXPECT_EQ(other.answer(), event_answer::recorded);
}

TEST_F(EventChannel, ANameThatIsTooLongForASocketIsRefused)
{
    const std::string name = folder.file(std::string(120, 'n'));
    EXPECT_THROW(event_inbox inbox(name), failure);
    EXPECT_EQ(send_event(name, {1, 1, "x"}, 1).what, outcome::nobody);
}

TEST_F(EventChannel, WhatIsNoEventIsDropped)
{
    const event_inbox inbox(base);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(base.size() + 6, sizeof address.sun_path);
    strcpy(address.sun_path, (base + ".sock").c_str());
    // The last one is an event without a way back.
    for (const std::string text : {"", "x", "vesk1 ", "vesk1 1\nx", "vesk1 a 1\nx", "vesk1 1 a\nx",
                                   "vesk1 1 1", "vesk1 1 1\nx"}) {
        EXPECT_GE(sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr *>(&address),
                         sizeof address),
                  0);
    }
    close(fd);
    EXPECT_FALSE(inbox.take());
}

// A socket that sends what no event is.
class stranger
{
public:
    explicit stranger(const std::string &base) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (base + ".sock").copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    stranger(const stranger &) = delete;
    stranger &operator=(const stranger &) = delete;
    ~stranger() { close(fd_); }

    bool send(std::string text, std::vector<int> descriptors = {}) const
    {
        iovec piece = {text.data(), text.size()};
        msghdr message = {};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        const std::size_t size = descriptors.size() * sizeof(int);
        alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))] = {};
        if (!descriptors.empty()) {
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(size);
            cmsghdr *header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(size);
            memcpy(CMSG_DATA(header), descriptors.data(), size);
        }
        return sendmsg(fd_, &message, 0) >= 0;
    }

private:
    int fd_;
};

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST_F(EventChannel, NoMessageLeavesDescriptorsOpen)
{
    const event_inbox inbox(base);
    const stranger other(base);
    const std::size_t before = open_descriptors();
    for (std::size_t count = 1; count <= 8; ++count) {
        ASSERT_TRUE(other.send("x", std::vector<int>(count, inbox.fd())));
        EXPECT_FALSE(inbox.take());
        ASSERT_TRUE(other.send("vesk1 1 1\nx", std::vector<int>(count, inbox.fd())));
        inbox.take();
        EXPECT_EQ(open_descriptors(), before) << count;
    }
}

TEST_F(EventChannel, AFloodDoesNotHoldUpTheRecorder)
{
    const event_inbox inbox(base);
    const stranger other(base);
    // The kernel keeps ten at least.
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(other.send("x"));
    }
    ASSERT_TRUE(other.send("vesk1 1 1\nx", {inbox.fd()}));
    EXPECT_FALSE(inbox.take()) << "it comes back after eight";
    EXPECT_TRUE(inbox.take());
}

std::string refusal_of_channel(const std::string &base)
{
    try {
        const event_inbox inbox(base);
    } catch (const failure &reason) {
        return reason.what();
    }
    return "";
}

TEST_F(EventChannel, AFileInThePlaceOfTheSocketIsKept)
{
    write_file(base + ".sock", "mine");
    EXPECT_EQ(refusal_of_channel(base), base + ".sock: is in the way, and no socket");
    EXPECT_EQ(read_file(base + ".sock"), "mine");
    std::filesystem::remove(base + ".sock");
    std::filesystem::create_symlink("elsewhere", base + ".sock");
    EXPECT_EQ(refusal_of_channel(base), base + ".sock: is in the way, and no socket");
    EXPECT_TRUE(std::filesystem::is_symlink(base + ".sock"));
}

TEST_F(EventChannel, ASocketOnWhichSomebodyListensIsKept)
{
    const event_inbox inbox(base);
    EXPECT_EQ(refusal_of_channel(base), base + ".sock: another process listens there");
    sender other(base, {1, 1, "x"});
    next_event(inbox).answer(event_answer::recorded);
    EXPECT_EQ(other.answer(), event_answer::recorded);
}

TEST_F(EventChannel, TellsWhyThereCanBeNoSocket)
{
    EXPECT_EQ(refusal_of_channel(folder.file("missing/box")),
              folder.file("missing/box.sock") +
                  ": its folder cannot be opened: No such file or directory");
    const std::string name = folder.file(std::string(120, 'n'));
    EXPECT_EQ(refusal_of_channel(name), name + ".sock: the name is too long for a socket");
}

} // namespace
