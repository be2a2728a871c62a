// What a service manager is told, with a socket that plays the manager.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "common/temporary_directory.hpp"
#include "process/service_manager.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ServiceManager : public ::testing::Test
{
protected:
    // A path, or a name of the abstract kind with '@' in front.
    void listen(const std::string &address)
    {
        socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un name = {};
        name.sun_family = AF_UNIX;
        memcpy(name.sun_path, address.data(), address.size());
        if (address.front() == '@') {
            name.sun_path[0] = '\0';
        }
        const auto length =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
        ASSERT_EQ(bind(socket_, reinterpret_cast<const sockaddr *>(&name), length), 0);
        setenv("NOTIFY_SOCKET", address.c_str(), 1);
    }
    // "" when nothing has come.
    std::string received() const
    {
        char text[4096];
        const ssize_t size = recv(socket_, text, sizeof text, 0);
        return size < 0 ? "" : std::string(text, static_cast<std::size_t>(size));
    }
    ~ServiceManager() override
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
        close(socket_);
    }

    temporary_directory folder_;
    int socket_ = -1;
};

TEST_F(ServiceManager, IsToldThroughASocketWithAPath)
{
    listen(folder_.file("notify"));
    service_manager manager;
    manager.ready("Recording\nREADY=0");
    EXPECT_EQ(received(), "READY=1\nSTATUS=Recording?READY=0\nMAINPID=" + std::to_string(getpid()));
    manager.reloading(12.5);
    EXPECT_EQ(received(), "RELOADING=1\nMONOTONIC_USEC=12500000");
    manager.stopping();
    EXPECT_EQ(received(), "STOPPING=1");
}

TEST_F(ServiceManager, IsToldThroughAnAbstractSocket)
{
    listen("@vesk-test-" + std::to_string(getpid()));
    service_manager manager;
    manager.stopping();
    EXPECT_EQ(received(), "STOPPING=1");
}

TEST_F(ServiceManager, IsNotSpokenToByProgramsThatAreStartedLater)
{
    listen(folder_.file("notify"));
    setenv("WATCHDOG_USEC", "3000000", 1);
    const service_manager manager;
    EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
    EXPECT_EQ(getenv("WATCHDOG_USEC"), nullptr);
}

TEST_F(ServiceManager, GetsASignOfLifeThreeTimesInItsLimit)
{
    listen(folder_.file("notify"));
    setenv("WATCHDOG_USEC", "30000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    service_manager manager;
    manager.alive(100);
    EXPECT_EQ(received(), "WATCHDOG=1");
    EXPECT_DOUBLE_EQ(*manager.seconds_to_alive(103), 7);
    manager.alive(109);
    EXPECT_EQ(received(), "");
    manager.alive(110);
    EXPECT_EQ(received(), "WATCHDOG=1");
}

TEST_F(ServiceManager, GetsNoSignOfLifeThatIsMeantForAnotherProcess)
{
    listen(folder_.file("notify"));
    setenv("WATCHDOG_USEC", "30000000", 1);
    setenv("WATCHDOG_PID", "1", 1);
    service_manager manager;
    manager.alive(100);
    EXPECT_EQ(received(), "");
    EXPECT_FALSE(manager.seconds_to_alive(100));
}

TEST_F(ServiceManager, MayBeMissingOrWrong)
{
    for (const std::string &address : {std::string(), std::string("relative"), std::string("@"),
                                       "/" + std::string(200, 'x'), std::string("vsock:2:1")}) {
        setenv("NOTIFY_SOCKET", address.c_str(), 1);
        service_manager manager;
        manager.ready("Recording");
        EXPECT_FALSE(manager.seconds_to_alive(0));
    }
}

} // namespace
