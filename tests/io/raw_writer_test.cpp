// The writer to a file as it is.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>

#include <vesk/error.h>
#include <vesk/raw_writer.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

class RawWriter : public testing::Test
{
protected:
    FILE *open() { return fopen(path_.c_str(), "w"); }

    static bool is_open(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

    temporary_directory directory_;
    std::string path_ = directory_.file("data");
};

TEST_F(RawWriter, HandsEveryWriteToTheFileAtOnce)
{
    writer *w = raw_writer_create(open(), 0);
    ASSERT_NE(nullptr, w);
    EXPECT_EQ(1, w->version);
    EXPECT_EQ(static_cast<uint32_t>(WRITER_TYPE_RAW), w->type);
    EXPECT_EQ(3, writer_write_bytes(w, "abc", 3));
    EXPECT_EQ("abc", read_file(path_));
    EXPECT_EQ(2, writer_write_bytes(w, "de", 2));
    EXPECT_EQ("abcde", read_file(path_));
    EXPECT_EQ(0, writer_write_bytes(w, "", 0));
    writer_destroy(&w);
    EXPECT_EQ("abcde", read_file(path_));
}

TEST_F(RawWriter, FlushesTheFileOfTheCallerAndReturnsZero)
{
    FILE *fp = open();
    writer *w = raw_writer_create(fp, 1);
    fputs("abc", fp);
    EXPECT_EQ(0, writer_flush(w));
    EXPECT_EQ("abc", read_file(path_));
    fputs("de", fp);
    writer_destroy(&w);
    EXPECT_EQ("abcde", read_file(path_));
    EXPECT_EQ(0, fclose(fp));
}

TEST_F(RawWriter, ReportsAFullDeviceAtTheWriteThatFailed)
{
    writer *w = raw_writer_create(fopen("/dev/full", "w"), 0);
    // Small writes fail in the flush, large ones already before.
    EXPECT_EQ(-41, writer_write_bytes(w, "0123456789", 10));
    const std::string large(5000, 'x');
    EXPECT_EQ(-41, writer_write_bytes(w, large.data(), 5000));
    EXPECT_EQ(-41, writer_write_bytes(w, "0123456789", 10));
    // A flush has nothing to say.
    EXPECT_EQ(0, writer_flush(w));
    writer_destroy(&w);
}

TEST_F(RawWriter, StaysUsableAfterAFailure)
{
    struct rlimit old = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &old));
    struct rlimit small = old;
    small.rlim_cur = 10;
    const auto old_handler = signal(SIGXFSZ, SIG_IGN);

    writer *w = raw_writer_create(open(), 0);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    EXPECT_EQ(-41, writer_write_bytes(w, "0123456789abcde", 15));
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &old));
    EXPECT_EQ(4, writer_write_bytes(w, "next", 4));
    writer_destroy(&w);
    // What the device took of the failed write stays in the file.
    EXPECT_EQ("0123456789next", read_file(path_));
    signal(SIGXFSZ, old_handler);
}

TEST_F(RawWriter, ClosesItsFile)
{
    FILE *fp = open();
    const int descriptor = fileno(fp);
    writer *w = raw_writer_create(fp, 0);
    writer_destroy(&w);
    EXPECT_FALSE(is_open(descriptor));
}

TEST_F(RawWriter, LeavesTheFileOfTheCallerOpen)
{
    FILE *fp = open();
    writer *w = raw_writer_create(fp, 1);
    writer_destroy(&w);
    EXPECT_EQ('a', fputc('a', fp));
    EXPECT_EQ(0, fclose(fp));
    EXPECT_EQ("a", read_file(path_));
}

TEST_F(RawWriter, LivesInStorageOfTheCaller)
{
    writer w;
    ASSERT_EQ(0, raw_writer_init(&w, open(), 0));
    EXPECT_EQ(1, writer_write_bytes(&w, "a", 1));
    writer_destruct(&w);
    EXPECT_EQ("a", read_file(path_));
}

TEST_F(RawWriter, LeavesTheFileToTheCallerWithoutMemory)
{
    FILE *fp = open();
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, raw_writer_create(fp, 0));
        EXPECT_TRUE(failing_allocation::happened());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    const failing_allocation failing(1);
    writer w = {};
    EXPECT_EQ(-22, raw_writer_init(&w, fp, 0));
    EXPECT_EQ(0, w.version);
    EXPECT_EQ(0, fclose(fp));
}

TEST_F(RawWriter, RefusesNull)
{
    writer w;
    EXPECT_ABORTS(raw_writer_create(nullptr, 0), "fp != ((void *)0)");
    EXPECT_ABORTS(raw_writer_init(&w, nullptr, 0), "fp != ((void *)0)");
    EXPECT_ABORTS(raw_writer_init(nullptr, stdout, 1), "writer != ((void *)0)");
}

// The functions of a writer are public, so their own checks can be reached.
TEST_F(RawWriter, ChecksItsImplementation)
{
    writer w;
    ASSERT_EQ(0, raw_writer_init(&w, stdout, 1));
    EXPECT_ABORTS(w.fn_write_bytes(nullptr, "a", 1), "writer != ((void *)0)");
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, nullptr, 1), "buffer != ((void *)0)");
    // A destructed implementation is zeroed.
    w.fn_destruct(w.writer);
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, "a", 1), "writer->version == ((char) 1)");
    // The version comes first, the file second.
    *static_cast<char *>(w.writer) = 1;
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, "a", 1), "writer->fp != ((void *)0)");
    EXPECT_ABORTS(w.fn_flush(w.writer), "writer->fp != ((void *)0)");
    EXPECT_ABORTS(w.fn_destruct(w.writer), "writer->fp != ((void *)0)");
    free(w.writer);
}
