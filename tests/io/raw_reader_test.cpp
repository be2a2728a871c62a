// The reader of a file as it is.
#include <fcntl.h>
#include <stdio.h>

#include <vesk/error.h>
#include <vesk/raw_reader.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

class RawReader : public testing::Test
{
protected:
    FILE *open(const std::string &content)
    {
        write_file(directory_.file("data"), content);
        return fopen(directory_.file("data").c_str(), "r");
    }

    static bool is_open(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

    temporary_directory directory_;
};

TEST_F(RawReader, ReturnsWhatTheFileHolds)
{
    reader *r = raw_reader_create(open("abcde"), 0);
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(1, r->version);
    EXPECT_EQ(static_cast<uint32_t>(READER_TYPE_RAW), r->type);
    char buffer[4] = {};
    EXPECT_EQ(3, reader_read_bytes(r, buffer, 3));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ(2, reader_read_bytes(r, buffer, 3));
    EXPECT_STREQ("dec", buffer);
    EXPECT_EQ(0, reader_read_bytes(r, buffer, 3));
    reader_destroy(&r);
}

TEST_F(RawReader, IsAtTheEndOnlyAfterAReadHitIt)
{
    reader *r = raw_reader_create(open("abc"), 0);
    char buffer[4] = {};
    EXPECT_EQ(0, reader_eof(r));
    EXPECT_EQ(3, reader_read_bytes(r, buffer, 3));
    EXPECT_EQ(0, reader_eof(r));
    EXPECT_EQ(0, reader_read_bytes(r, buffer, 3));
    EXPECT_NE(0, reader_eof(r));
    reader_destroy(&r);
}

TEST_F(RawReader, ReadsNothingFromADirectoryWithoutBeingAtItsEnd)
{
    reader *r = raw_reader_create(fopen(directory_.path().c_str(), "r"), 0);
    char byte = 0;
    EXPECT_EQ(0, reader_read_bytes(r, &byte, 1));
    EXPECT_EQ(0, reader_eof(r));
    reader_destroy(&r);
}

TEST_F(RawReader, ClosesItsFile)
{
    FILE *fp = open("abc");
    const int descriptor = fileno(fp);
    reader *r = raw_reader_create(fp, 0);
    reader_destroy(&r);
    EXPECT_FALSE(is_open(descriptor));
}

TEST_F(RawReader, LeavesTheFileOfTheCallerOpen)
{
    FILE *fp = open("abc");
    reader *r = raw_reader_create(fp, 1);
    reader_destroy(&r);
    EXPECT_EQ('a', fgetc(fp));
    EXPECT_EQ(0, fclose(fp));
}

TEST_F(RawReader, LooksAtNothingButTheFirstFlag)
{
    FILE *fp = open("abc");
    const int descriptor = fileno(fp);
    reader *r = raw_reader_create(fp, 0xFFFFFFFE);
    reader_destroy(&r);
    EXPECT_FALSE(is_open(descriptor));
}

TEST_F(RawReader, LivesInStorageOfTheCaller)
{
    reader r;
    ASSERT_EQ(0, raw_reader_init(&r, open("abc"), 0));
    char byte = 0;
    EXPECT_EQ(1, reader_read_bytes(&r, &byte, 1));
    EXPECT_EQ('a', byte);
    reader_destruct(&r);
}

TEST_F(RawReader, LeavesTheFileToTheCallerWithoutMemory)
{
    FILE *fp = open("abc");
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, raw_reader_create(fp, 0));
        EXPECT_TRUE(failing_allocation::happened());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    const failing_allocation failing(1);
    reader r = {};
    EXPECT_EQ(-22, raw_reader_init(&r, fp, 0));
    EXPECT_EQ(0, r.version);
    EXPECT_EQ('a', fgetc(fp));
    EXPECT_EQ(0, fclose(fp));
}

TEST_F(RawReader, RefusesNull)
{
    reader r;
    EXPECT_ABORTS(raw_reader_create(nullptr, 0), "fp != ((void *)0)");
    EXPECT_ABORTS(raw_reader_init(&r, nullptr, 0), "fp != ((void *)0)");
    EXPECT_ABORTS(raw_reader_init(nullptr, stdin, 1), "reader != ((void *)0)");
}

// The functions of a reader are public, so their own checks can be reached.
TEST_F(RawReader, ChecksItsImplementation)
{
    reader r;
    ASSERT_EQ(0, raw_reader_init(&r, stdin, 1));
    char byte = 0;
    EXPECT_ABORTS(r.fn_read_bytes(nullptr, &byte, 1), "reader != ((void *)0)");
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, nullptr, 1), "buffer != ((void *)0)");
    // A destructed implementation is zeroed.
    r.fn_destruct(r.reader);
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), "reader->version == ((char) 1)");
    // The version comes first, the file second.
    *static_cast<char *>(r.reader) = 1;
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), "reader->fp != ((void *)0)");
    EXPECT_ABORTS(r.fn_eof(r.reader), "reader->fp != ((void *)0)");
    EXPECT_ABORTS(r.fn_destruct(r.reader), "reader->fp != ((void *)0)");
    free(r.reader);
}
