// Lines out of a pipe whose writer waits: each is there when it is complete, not when a buffer is.
#include <chrono>
#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>
#include <zlib.h>

#include "cli/unignored_signal.hpp"
#include "process/failure.hpp"
#include "text/line_source.hpp"

namespace
{

using namespace cli;

class LiveInput : public ::testing::Test
{
protected:
    LiveInput() { EXPECT_EQ(pipe(ends), 0); }
    ~LiveInput() override
    {
        hang_up();
        close(ends[0]);
    }

    std::string path() const { return "/dev/fd/" + std::to_string(ends[0]); }
    void send(const std::string &bytes) const
    {
        ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void hang_up()
    {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }

    // The next line. One that does not come although nothing more is sent is a failure; hanging up
    // ends the waiting for it.
    std::string line_of(line_source &source)
    {
        std::future<std::string> next = std::async(std::launch::async, [&source] {
            std::string_view line;
            return source.next(line) ? std::string(line) : std::string("END");
        });
        if (next.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "a complete line is held back";
            hang_up();
        }
        return next.get();
    }

    int ends[2] = {};
};

// Packs pieces that can be unpacked when they come, as `gzip` does behind a flush.
class live_gzip
{
public:
    live_gzip()
    {
        deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    }
    live_gzip(const live_gzip &) = delete;
    live_gzip &operator=(const live_gzip &) = delete;
    ~live_gzip() { deflateEnd(&stream_); }

    std::string packed(std::string text, int flush)
    {
        std::string bytes(1000 + text.size(), 0);
        stream_.next_in = reinterpret_cast<unsigned char *>(text.data());
        stream_.avail_in = static_cast<unsigned>(text.size());
        stream_.next_out = reinterpret_cast<unsigned char *>(bytes.data());
        stream_.avail_out = static_cast<unsigned>(bytes.size());
        deflate(&stream_, flush);
        bytes.resize(bytes.size() - stream_.avail_out);
        return bytes;
    }

private:
    z_stream stream_ = {};
};

TEST_F(LiveInput, ALineIsThereWhenItIsComplete)
{
    send("one\nand half of ");
    line_source source(path());
    EXPECT_EQ(line_of(source), "one");
    send("two\nthree\n");
    EXPECT_EQ(line_of(source), "and half of two");
    EXPECT_EQ(line_of(source), "three");
    hang_up();
    EXPECT_EQ(line_of(source), "END");
}

TEST_F(LiveInput, ALineThatWasPackedAndFlushedIsThereAtOnce)
{
    live_gzip gzip;
    send(gzip.packed("one\n", Z_SYNC_FLUSH));
    line_source source(path());
    EXPECT_EQ(line_of(source), "one");
    send(gzip.packed("two\nthree\n", Z_SYNC_FLUSH));
    EXPECT_EQ(line_of(source), "two");
    EXPECT_EQ(line_of(source), "three");
    send(gzip.packed("four\n", Z_FINISH));
    EXPECT_EQ(line_of(source), "four");
    // Another piece of gzip data goes on where the first one ended.
    live_gzip second;
    send(second.packed("five\n", Z_SYNC_FLUSH));
    EXPECT_EQ(line_of(source), "five");
    send(second.packed("", Z_FINISH));
    hang_up();
    EXPECT_EQ(line_of(source), "END");
}

TEST_F(LiveInput, GzipDataThatComesByteForByteIsGzipData)
{
    live_gzip gzip;
    const std::string bytes = gzip.packed("one\ntwo\n", Z_FINISH);
    line_source source(path());
    std::future<void> feeder = std::async(std::launch::async, [&] {
        for (const char byte : bytes) {
            send(std::string(1, byte));
        }
        hang_up();
    });
    std::string_view line;
    ASSERT_TRUE(source.next(line));
    EXPECT_EQ(line, "one");
    ASSERT_TRUE(source.next(line));
    EXPECT_EQ(line, "two");
    EXPECT_FALSE(source.next(line));
    feeder.get();
}

TEST_F(LiveInput, WhatFollowsGzipDataAndIsNoneDoesNotCount)
{
    live_gzip gzip;
    send(gzip.packed("one\n", Z_FINISH) + "\x1f rubbish\n");
    hang_up();
    line_source source(path());
    EXPECT_EQ(line_of(source), "one");
    EXPECT_EQ(line_of(source), "END");
}

TEST_F(LiveInput, WhatCameBeforeDamagedGzipDataIsHandedOut)
{
    live_gzip gzip;
    send(gzip.packed("one\n", Z_SYNC_FLUSH) + std::string(100, '\xff'));
    hang_up();
    line_source source(path());
    EXPECT_EQ(line_of(source), "one");
    std::string_view line;
    EXPECT_THROW(source.next(line), bad_input);
    EXPECT_THROW(source.next(line), bad_input);
}

TEST_F(LiveInput, ASignalThatAsksForNoEndEndsNothing)
{
    struct sigaction nothing = {};
    struct sigaction before = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, &before);
    const stop_request stop;
    const pthread_t reader = pthread_self();
    std::future<void> feeder = std::async(std::launch::async, [&] {
        for (int i = 0; i < 20; ++i) {
            pthread_kill(reader, SIGUSR1);
            usleep(1000);
        }
        send("one\n");
    });
    line_source source(path(), &stop);
    std::string_view line;
    ASSERT_TRUE(source.next(line));
    EXPECT_EQ(line, "one");
    feeder.get();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(LiveInput, ARequestToEndEndsTheWaiting)
{
    const unignored_signal terminated(SIGTERM);
    const stop_request stop;
    line_source source(path(), &stop);
    raise(SIGTERM);
    std::string_view line;
    EXPECT_THROW(source.next(line), bad_input);
}

} // namespace
