// The reader that damages what it passes on.
#include <stdlib.h>
#include <unistd.h>

#include <vesk/debug.h>
#include <vesk/error.h>
#include <vesk/garbage_reader.h>
#include <vesk/raw_reader.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"

namespace
{
// A reader that goes away with the test.
class owned_reader
{
public:
    owned_reader(memory_reader *source, uint32_t nclean)
        : reader_(garbage_reader_create(source->lend(), nclean))
    {
    }
    owned_reader(const owned_reader &) = delete;
    owned_reader &operator=(const owned_reader &) = delete;
    ~owned_reader() { reader_destroy(&reader_); }

    // The result of one read into a buffer that is filled with '.' before.
    int read(uint32_t n)
    {
        buffer_.assign(n, '.');
        return reader_read_bytes(reader_, buffer_.data(), n);
    }
    const std::string &buffer() const { return buffer_; }
    bool at_end() { return reader_eof(reader_) != 0; }
    reader *get() { return reader_; }

private:
    reader *reader_;
    std::string buffer_;
};
} // namespace

static std::size_t unchanged(const std::string &a, const std::string &b)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        count += a[i] == b[i] ? 1U : 0U;
    }
    return count;
}

TEST(GarbageReader, IsAReaderOfItsOwnType)
{
    memory_reader source("");
    owned_reader r(&source, 0);
    ASSERT_NE(nullptr, r.get());
    EXPECT_EQ(1, r.get()->version);
    EXPECT_EQ(static_cast<uint32_t>(READER_TYPE_GARBAGE), r.get()->type);
}

TEST(GarbageReader, DamagesEveryByteBehindTheCleanOnes)
{
    const std::string content = noise(100);
    memory_reader source(content);
    owned_reader r(&source, 10);
    EXPECT_EQ(100, r.read(100));
    EXPECT_EQ(content.substr(0, 10), r.buffer().substr(0, 10));
    EXPECT_EQ(0U, unchanged(content.substr(10), r.buffer().substr(10)));
}

TEST(GarbageReader, NeverDrawsADamageOfZero)
{
    // Of so many draws, some are 0.
    const std::string content = noise(10000);
    memory_reader source(content);
    owned_reader r(&source, 0);
    EXPECT_EQ(10000, r.read(10000));
    EXPECT_EQ(0U, unchanged(content, r.buffer()));
}

TEST(GarbageReader, CountsCleanBytesAcrossReads)
{
    const std::string content = noise(100);
    memory_reader source(content);
    owned_reader r(&source, 15);
    EXPECT_EQ(10, r.read(10));
    EXPECT_EQ(content.substr(0, 10), r.buffer());
    EXPECT_EQ(10, r.read(10));
    EXPECT_EQ(content.substr(10, 5), r.buffer().substr(0, 5));
    EXPECT_EQ(0U, unchanged(content.substr(15, 5), r.buffer().substr(5)));
    EXPECT_EQ(10, r.read(10));
    EXPECT_EQ(0U, unchanged(content.substr(20, 10), r.buffer()));
}

TEST(GarbageReader, PassesAReadThatUsesUpTheCleanBytes)
{
    memory_reader source("0123456789abcdefghij");
    owned_reader r(&source, 10);
    EXPECT_EQ(10, r.read(10));
    EXPECT_EQ("0123456789", r.buffer());
    EXPECT_EQ(10, r.read(10));
    EXPECT_EQ(0U, unchanged("abcdefghij", r.buffer()));
}

TEST(GarbageReader, PassesShortReadsWithinTheCleanBytes)
{
    memory_reader source("abc");
    owned_reader r(&source, 10);
    EXPECT_EQ(3, r.read(5));
    EXPECT_EQ("abc..", r.buffer());

    memory_reader exact("abc");
    owned_reader s(&exact, 3);
    EXPECT_EQ(3, s.read(5));
    EXPECT_EQ("abc..", s.buffer());
}

TEST(GarbageReader, ClaimsAllBytesOfADamagedReadThatCameShort)
{
    memory_reader source("abc");
    owned_reader r(&source, 2);
    EXPECT_EQ(5, r.read(5));
    EXPECT_EQ("ab", r.buffer().substr(0, 2));
    // Behind the end of the source it damages what lies in the buffer.
    EXPECT_EQ(0U, unchanged("c..", r.buffer().substr(2)));
}

TEST(GarbageReader, LeavesCleanBytesAloneEvenBehindTheEnd)
{
    memory_reader source("");
    owned_reader r(&source, 3);
    srand(1);
    ASSERT_NE(0, rand() & 63);
    srand(1);
    EXPECT_EQ(5, r.read(5));
    EXPECT_EQ("...", r.buffer().substr(0, 3));
    EXPECT_EQ(0U, unchanged("..", r.buffer().substr(3)));
    // The clean bytes are used up by that.
    EXPECT_EQ(5, r.read(5));
    EXPECT_EQ(0U, unchanged(".....", r.buffer()));
}

static unsigned char next_damage()
{
    for (;;) {
        const auto damage = static_cast<unsigned char>(rand());
        if (damage != 0) {
            return damage;
        }
    }
}

TEST(GarbageReader, DrawsOneNumberAByteAndOneMoreBehindTheEnd)
{
    // Expected first: the numbers of the seed, in order.
    srand(11);
    std::string damaged = "abc";
    for (char &byte : damaged) {
        byte = static_cast<char>(byte ^ next_damage());
    }
    int reads = 0;
    std::string last;
    while ((rand() & 63) != 0) {
        ++reads;
        last = {static_cast<char>('.' ^ next_damage()), static_cast<char>('.' ^ next_damage())};
    }
    ASSERT_LT(0, reads);

    memory_reader source("abc");
    owned_reader r(&source, 0);
    srand(11);
    EXPECT_EQ(3, r.read(3));
    EXPECT_EQ(damaged, r.buffer());
    for (int i = 0; i < reads; ++i) {
        EXPECT_FALSE(r.at_end());
        EXPECT_EQ(2, r.read(2));
    }
    EXPECT_EQ(last, r.buffer());
    EXPECT_EQ(0, r.read(2));
    EXPECT_TRUE(r.at_end());
    EXPECT_EQ(0, r.read(2));
    EXPECT_TRUE(r.at_end());
}

TEST(GarbageReader, RepeatsARunWithItsSeed)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            if (chdir(directory.path().c_str()) != 0) {
                _exit(99);
            }
            std::string runs[2];
            for (std::string &run : runs) {
                _qe_srand(5, __FILE__, __LINE__);
                memory_reader source(noise(50));
                owned_reader r(&source, 10);
                while (r.read(7) > 0) {
                    run += r.buffer();
                }
            }
            _exit(runs[0] == runs[1] && runs[0].size() >= 50 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(GarbageReader, ReturnsTheCodeOfItsSource)
{
    memory_reader source("abc", -77);
    owned_reader r(&source, 2);
    EXPECT_EQ(3, r.read(3));
    EXPECT_EQ(-77, r.read(1));
}

TEST(GarbageReader, LivesInStorageOfTheCallerAndOwnsItsSource)
{
    memory_reader source("abc");
    reader r;
    ASSERT_EQ(0, garbage_reader_init(&r, source.lend(), 3));
    char buffer[4] = {};
    EXPECT_EQ(3, reader_read_bytes(&r, buffer, 3));
    EXPECT_STREQ("abc", buffer);
    reader_destruct(&r);
    EXPECT_EQ(1, source.destroyed());
}

TEST(GarbageReader, AbortsWhenItsSourceYieldsNothingBeforeItsEnd)
{
    reader *r = garbage_reader_create(raw_reader_create(fopen("/", "r"), 0), 0);
    char byte = 0;
    EXPECT_ABORTS(reader_read_bytes(r, &byte, 1), "reader_eof (reader->reader)");
    reader_destroy(&r);
}

TEST(GarbageReader, LeavesItsSourceToTheCallerWithoutMemory)
{
    memory_reader source("");
    reader *base = source.lend();
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, garbage_reader_create(base, 0));
        EXPECT_TRUE(failing_allocation::happened());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    {
        const failing_allocation failing(1);
        reader r = {};
        EXPECT_EQ(-22, garbage_reader_init(&r, base, 0));
        EXPECT_EQ(0, r.version);
    }
    EXPECT_EQ(0, source.destroyed());
    reader_destroy(&base);
}

TEST(GarbageReader, RefusesNull)
{
    memory_reader source("");
    reader r;
    EXPECT_ABORTS(garbage_reader_create(nullptr, 0), "base_reader != ((void *)0)");
    EXPECT_ABORTS(garbage_reader_init(&r, nullptr, 0), "base_reader != ((void *)0)");
    EXPECT_ABORTS(garbage_reader_init(nullptr, source.get(), 0), "r != ((void *)0)");
}

// The functions of a reader are public, so their own checks can be reached.
TEST(GarbageReader, ChecksItsImplementation)
{
    memory_reader source("");
    reader r;
    ASSERT_EQ(0, garbage_reader_init(&r, source.lend(), 0));
    char byte = 0;
    EXPECT_ABORTS(r.fn_read_bytes(nullptr, &byte, 1), "reader != ((void *)0)");
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, nullptr, 1), "buffer != ((void *)0)");
    // A destructed implementation is zeroed.
    r.fn_destruct(r.reader);
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), "reader->version == ((char) 1)");
    *static_cast<char *>(r.reader) = 1;
    const char *text = "reader->reader != ((void *)0)";
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), text);
    EXPECT_ABORTS(r.fn_eof(r.reader), text);
    EXPECT_ABORTS(r.fn_destruct(r.reader), text);
    free(r.reader);
}
