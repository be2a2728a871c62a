// Telling what is in the box, to files, pipes and FIFOs, also when nobody reads them.
#include <csignal>
#include <fcntl.h>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "box/acknowledgements.hpp"
#include "cli/quick_folder.hpp"
#include "cli/unignored_signal.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

class Acknowledgements : public ::testing::Test
{
protected:
    std::string refusal_of(const std::string &where) const
    {
        try {
            acknowledgements(where, stop).add(new_year);
        } catch (const failure &reason) {
            return reason.what();
        }
        return "";
    }

    temporary_directory folder{quick_folder()};
    std::string path = folder.file("told");
    unignored_signal terminated{SIGTERM};
    unignored_signal interrupted{SIGINT};
    stop_request stop;
};

// A pipe that takes nothing more.
class full_pipe
{
public:
    full_pipe()
    {
        EXPECT_EQ(pipe2(ends_, O_NONBLOCK), 0);
        const std::string bytes(4096, 'x');
        while (write(ends_[1], bytes.data(), bytes.size()) > 0) {
        }
        while (write(ends_[1], "x", 1) > 0) {
        }
        EXPECT_EQ(fcntl(ends_[1], F_SETFL, 0), 0);
    }
    full_pipe(const full_pipe &) = delete;
    full_pipe &operator=(const full_pipe &) = delete;
    ~full_pipe()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    std::string writing_end() const { return std::to_string(ends_[1]); }
    // All that is in it.
    std::string read_all() const
    {
        std::string text;
        std::string piece(65536, '\0');
        for (ssize_t size = 0; (size = read(ends_[0], piece.data(), piece.size())) > 0;) {
            text.append(piece, 0, static_cast<std::size_t>(size));
        }
        return text;
    }

private:
    int ends_[2] = {};
};

TEST_F(Acknowledgements, AreAppendedToAFile)
{
    write_file(path, "before\n");
    acknowledgements(path, stop).add(new_year);
    EXPECT_THAT(read_file(path), ::testing::StartsWith("before\n2024"));
    EXPECT_EQ(read_file(path).back(), '\n');
}

TEST_F(Acknowledgements, ARequestToEndEndsTheWaitingForAFullPipe)
{
    const full_pipe pipe;
    acknowledgements told(pipe.writing_end(), stop);
    // Before the waiting begins, which is when a signal is missed most easily.
    raise(SIGTERM);
    told.add(new_year);
    EXPECT_THAT(pipe.read_all(), ::testing::Not(HasSubstr("2024")));
}

TEST_F(Acknowledgements, ASignalDuringTheWaitingForAFullPipeEndsIt)
{
    const full_pipe pipe;
    acknowledgements told(pipe.writing_end(), stop);
    const pthread_t writer = pthread_self();
    std::future<void> ender = std::async(std::launch::async, [&] {
        usleep(20000);
        pthread_kill(writer, SIGINT);
    });
    told.add(new_year);
    EXPECT_TRUE(stop.requested());
    ender.get();
}

TEST_F(Acknowledgements, AFullPipeIsWaitedForUntilItIsRead)
{
    const full_pipe pipe;
    acknowledgements told(pipe.writing_end(), stop);
    std::future<std::string> reader = std::async(std::launch::async, [&] {
        usleep(20000);
        return pipe.read_all();
    });
    told.add(new_year);
    EXPECT_THAT(reader.get() + pipe.read_all(), HasSubstr("2024"));
}

TEST_F(Acknowledgements, ARequestToEndEndsTheWaitingForTheReaderOfAFifo)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    raise(SIGTERM);
    EXPECT_EQ(refusal_of(path),
              "--acknowledge " + path + ": interrupted before anybody read the FIFO");
}

TEST_F(Acknowledgements, TheReaderOfAFifoIsWaitedFor)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::future<std::string> reader = std::async(std::launch::async, [&] {
        usleep(20000);
        return read_file(path);
    });
    acknowledgements(path, stop).add(new_year);
    EXPECT_THAT(reader.get(), HasSubstr("2024"));
}

TEST_F(Acknowledgements, WhatTakesNoLinesIsRefused)
{
    EXPECT_THAT(refusal_of("999"), HasSubstr("--acknowledge 999: "));
    EXPECT_THAT(refusal_of(folder.file("no/such")), HasSubstr("No such file"));
    EXPECT_THAT(refusal_of("/dev/full"), HasSubstr("No space left"));
    // A socket has no reader to wait for.
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_NE(refusal_of(path), "");
    close(socket_fd);
}

} // namespace
