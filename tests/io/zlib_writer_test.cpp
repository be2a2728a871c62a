// The writer of a row of compressed streams: its blocks, savepoints, and targets that fail.
#include <algorithm>
#include <numeric>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/zlib_bytes.hpp"

namespace
{
// A writer that goes away with the test.
class owned_writer
{
public:
    explicit owned_writer(memory_writer *target) : writer_(zlib_writer_create(target->lend())) {}
    owned_writer(const owned_writer &) = delete;
    owned_writer &operator=(const owned_writer &) = delete;
    ~owned_writer() { destroy(); }

    int write(const std::string &bytes)
    {
        return writer_write_bytes(writer_, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    int flush() { return writer_flush(writer_); }
    void destroy()
    {
        if (writer_ != nullptr) {
            writer_destroy(&writer_);
        }
    }
    writer *get() { return writer_; }

private:
    writer *writer_;
};
} // namespace

TEST(ZlibWriter, IsAWriterOfItsOwnType)
{
    memory_writer target;
    owned_writer w(&target);
    ASSERT_NE(nullptr, w.get());
    EXPECT_EQ(1, w.get()->version);
    EXPECT_EQ(static_cast<uint32_t>(WRITER_TYPE_ZLIB), w.get()->type);
}

TEST(ZlibWriter, LivesInStorageOfTheCaller)
{
    memory_writer target;
    writer w;
    ASSERT_EQ(0, zlib_writer_init(&w, target.lend()));
    EXPECT_EQ(0, writer_write_bytes(&w, "abc", 3));
    writer_destruct(&w);
    EXPECT_EQ(compressed_stream("abc"), target.bytes());
}

TEST(ZlibWriter, BuffersSmallWritesAndReturnsZero)
{
    memory_writer target;
    owned_writer w(&target);
    EXPECT_EQ(0, w.write("abc"));
    EXPECT_EQ(0, w.write(std::string(2045, 'x')));
    EXPECT_EQ(0, w.write(""));
    EXPECT_TRUE(target.writes().empty());
}

TEST(ZlibWriter, CompressesTheFirstBlockOf3000BytesAndBuffersTheRest)
{
    memory_writer target;
    owned_writer w(&target);
    const std::string content = telemetry_like(3000);
    // zlib passes on its two header bytes and keeps the rest to itself.
    EXPECT_EQ(2, w.write(content));
    EXPECT_EQ(from_hex("78 9c"), target.bytes());
    // 952 bytes are buffered: 1096 more fit, one byte more does not.
    EXPECT_EQ(0, w.write(std::string(1096, 'x')));
    EXPECT_EQ(1U, target.writes().size());
    EXPECT_EQ(0, w.write("y"));
    EXPECT_EQ(2U, target.writes().size());
    EXPECT_LT(0, w.flush());
    EXPECT_EQ(compressed_stream(content + std::string(1096, 'x') + "y"), target.bytes());
}

TEST(ZlibWriter, KeepsAFullBufferUntilMoreComes)
{
    memory_writer target;
    owned_writer w(&target);
    EXPECT_EQ(0, w.write(std::string(2048, 'x')));
    EXPECT_TRUE(target.writes().empty());
    EXPECT_EQ(2, w.write("y"));
    EXPECT_EQ(std::vector<uint32_t>{2}, target.writes());
}

TEST(ZlibWriter, ReturnsTheCompressedBytesThatItPassedOn)
{
    memory_writer target;
    owned_writer w(&target);
    const int written = w.write(noise(100000));
    EXPECT_EQ(target.bytes().size(), static_cast<std::size_t>(written));
    const int flushed = w.flush();
    EXPECT_LT(0, flushed);
    EXPECT_EQ(target.bytes().size(), static_cast<std::size_t>(written + flushed));
}

TEST(ZlibWriter, PassesOnBlocksOf2048Bytes)
{
    memory_writer target;
    owned_writer w(&target);
    w.write(noise(100000));
    w.flush();
    EXPECT_EQ(2048U, *std::max_element(target.writes().begin(), target.writes().end()));
    EXPECT_LE(100000 / 2048, std::count(target.writes().begin(), target.writes().end(), 2048U));
}

TEST(ZlibWriter, WritesAFlushedRecordInOnePiece)
{
    memory_writer target;
    owned_writer w(&target);
    w.write(telemetry_like(2000));
    const int flushed = w.flush();
    ASSERT_EQ(1U, target.writes().size());
    EXPECT_EQ(static_cast<uint32_t>(flushed), target.writes()[0]);
    // What lies below decides on its own when to flush.
    EXPECT_EQ(0, target.flushes());
}

TEST(ZlibWriter, AsksZlibOnceMoreWhenItsOutputFillsTheBlockExactly)
{
    // Noise is stored: 2 bytes of header, 5 of block header, the bytes, 4 of checksum.
    memory_writer target;
    owned_writer w(&target);
    w.write(noise(2048 - 11));
    EXPECT_EQ(2048, w.flush());
    EXPECT_EQ((std::vector<uint32_t>{2048, 0}), target.writes());
    EXPECT_EQ(compressed_stream(noise(2048 - 11)), target.bytes());
}

TEST(ZlibWriter, MakesTheBytesOfTheDefaultLevelHoweverTheInputIsCut)
{
    for (const std::string &content :
         {telemetry_like(50000), noise(50000), std::string(50000, '\0')}) {
        for (const std::size_t step : {1U, 4U, 100U, 2047U, 2048U, 2049U, 5000U, 50000U}) {
            memory_writer target;
            owned_writer w(&target);
            for (std::size_t i = 0; i < content.size(); i += step) {
                ASSERT_LE(0, w.write(content.substr(i, step)));
            }
            ASSERT_LE(0, w.flush());
            EXPECT_TRUE(target.bytes() == compressed_stream(content)) << "in steps of " << step;
        }
    }
}

TEST(ZlibWriter, EveryFlushEndsOneCompleteStream)
{
    memory_writer target;
    owned_writer w(&target);
    std::string expected;
    for (const std::string content : {"first", "second", "third"}) {
        w.write(content);
        w.flush();
        expected += compressed_stream(content);
        EXPECT_EQ(expected, target.bytes());
    }
}

TEST(ZlibWriter, FlushesNothingWhenNothingIsBuffered)
{
    memory_writer target;
    owned_writer w(&target);
    EXPECT_EQ(0, w.flush());
    w.write("abc");
    EXPECT_LT(0, w.flush());
    const std::string before = target.bytes();
    EXPECT_EQ(0, w.flush());
    EXPECT_EQ(before, target.bytes());
    EXPECT_EQ(1U, target.writes().size());
}

TEST(ZlibWriter, FlushesWhenItIsDestroyed)
{
    memory_writer target;
    owned_writer w(&target);
    w.write("abc");
    w.destroy();
    EXPECT_EQ(compressed_stream("abc"), target.bytes());
    EXPECT_EQ(1, target.destroyed());
}

TEST(ZlibWriter, WritesNothingWhenItIsDestroyedEmpty)
{
    memory_writer target;
    owned_writer w(&target);
    w.destroy();
    EXPECT_TRUE(target.writes().empty());
    EXPECT_EQ(1, target.destroyed());
}

// ---- The underlying writer fails ----------------------------------------------------------------

TEST(ZlibWriter, ReturnsTheCodeOfTheUnderlyingWriter)
{
    memory_writer target(0, -77);
    owned_writer w(&target);
    EXPECT_EQ(0, w.write("abc"));
    EXPECT_EQ(-77, w.flush());
    EXPECT_EQ(-77, w.write(telemetry_like(3000)));
}

TEST(ZlibWriter, DropsWhatWasBufferedWhenAFlushFails)
{
    memory_writer target;
    owned_writer w(&target);
    w.write("lost");
    target.fail_at(1);
    EXPECT_EQ(-41, w.flush());
    EXPECT_EQ(0, w.flush());
    w.write("kept");
    EXPECT_LT(0, w.flush());
    EXPECT_EQ(compressed_stream("kept"), target.bytes());
}

TEST(ZlibWriter, DropsTheRestOfAWriteThatFails)
{
    memory_writer target;
    owned_writer w(&target);
    target.fail_at(1);
    EXPECT_EQ(-41, w.write(telemetry_like(10000)));
    EXPECT_EQ(0, w.flush());
    w.write("kept");
    w.flush();
    EXPECT_EQ(compressed_stream("kept"), target.bytes());
}

TEST(ZlibWriter, OpensANewStreamBehindATornOne)
{
    const std::string content = noise(20000);
    for (int n = 1;; ++n) {
        memory_writer target;
        owned_writer w(&target);
        w.write("good");
        w.flush();
        const std::string before = target.bytes();
        target.fail_at(n);
        int result = w.write(content);
        if (result >= 0) {
            result = w.flush();
        }
        if (result >= 0) {
            // Header, about ten blocks, and the rest in the flush.
            EXPECT_LT(10, n);
            break;
        }
        EXPECT_EQ(-41, result);
        // Of the torn stream stands there what got out before.
        const std::string torn = target.bytes().substr(before.size());
        EXPECT_EQ(torn, compressed_stream(content).substr(0, torn.size()));
        w.write("more");
        w.flush();
        EXPECT_EQ(before + torn + compressed_stream("more"), target.bytes()) << "failure " << n;
    }
}

// ---- zlib fails ---------------------------------------------------------------------------------

// A dead writer cannot be destroyed, so it lives and leaks in a process of its own.
#define EXPECT_TRUE_IN_CHILD(condition)                                                            \
    EXPECT_EXIT(_exit((condition) ? 0 : 1), testing::ExitedWithCode(0), "")

static bool dies_of_allocation(int n)
{
    memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    writer_write_bytes(w, "abc", 3);
    const failing_allocation failing(n);
    return writer_flush(w) == -42 && failing_allocation::happened() && target.writes().empty();
}

TEST(ZlibWriter, DiesWithoutMemoryForAStream)
{
    // deflate takes five blocks.
    for (int n = 1; n <= 5; ++n) {
        EXPECT_TRUE_IN_CHILD(dies_of_allocation(n)) << "allocation " << n;
    }
}

static writer *dead_writer()
{
    static memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    const failing_zlib failing(1, Z_STREAM_ERROR);
    const std::string content(2049, 'x');
    return writer_write_bytes(w, content.data(), 2049) == -42 ? w : nullptr;
}

TEST(ZlibWriter, DiesOfAStreamError)
{
    EXPECT_TRUE_IN_CHILD(dead_writer() != nullptr);
}

TEST(ZlibWriter, CanOnlyBufferWhenDead)
{
    const std::string content(2049, 'x');
    EXPECT_TRUE_IN_CHILD(writer_write_bytes(dead_writer(), content.data(), 2048) == 0);
    const char *text = "zwriter->err == 0";
    EXPECT_ABORTS(writer_write_bytes(dead_writer(), content.data(), 2049), text);
    EXPECT_ABORTS(writer_flush(dead_writer()), text);
    EXPECT_ABORTS(writer_destruct(dead_writer()), text);
}

TEST(ZlibWriter, AbortsWhenZlibLeavesInput)
{
    memory_writer target;
    owned_writer w(&target);
    w.write("abc");
    EXPECT_ABORTS(
        {
            const failing_zlib idle(1, Z_BUF_ERROR);
            w.flush();
        },
        "zwriter->zstrm.avail_in == 0");
}

TEST(ZlibWriter, TakesNoMemoryAfterItsFirstStream)
{
    memory_writer target;
    owned_writer w(&target);
    w.write("first");
    w.flush();
    const failing_allocation none(1, failing_allocation::for_ever);
    for (int i = 0; i < 10; ++i) {
        EXPECT_LE(0, w.write(telemetry_like(5000)));
        EXPECT_LT(0, w.flush());
    }
    EXPECT_FALSE(failing_allocation::happened());
}

TEST(ZlibWriter, LeavesTheUnderlyingWriterToTheCallerWithoutMemory)
{
    memory_writer target;
    writer *base = target.lend();
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, zlib_writer_create(base));
        EXPECT_TRUE(failing_allocation::happened());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    {
        const failing_allocation failing(1);
        writer w = {};
        EXPECT_EQ(-22, zlib_writer_init(&w, base));
        EXPECT_EQ(0, w.version);
    }
    EXPECT_EQ(0, target.destroyed());
    writer_destroy(&base);
}

// ---- Preconditions ------------------------------------------------------------------------------

TEST(ZlibWriter, RefusesNull)
{
    memory_writer target;
    writer w;
    EXPECT_ABORTS(zlib_writer_create(nullptr), "writer_base != ((void *)0)");
    EXPECT_ABORTS(zlib_writer_init(&w, nullptr), "writer_base != ((void *)0)");
    EXPECT_ABORTS(zlib_writer_init(nullptr, target.get()), "w != ((void *)0)");
}

// The functions of a writer are public, so their own checks can be reached.
TEST(ZlibWriter, ChecksItsImplementation)
{
    memory_writer target;
    writer w;
    ASSERT_EQ(0, zlib_writer_init(&w, target.lend()));
    EXPECT_ABORTS(w.fn_write_bytes(nullptr, "a", 1), "zwriter != ((void *)0)");
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, nullptr, 1), "buffer != ((void *)0)");
    // A destructed implementation is zeroed.
    w.fn_destruct(w.writer);
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, "a", 1), "zwriter->version == ((char) 1)");
    *static_cast<char *>(w.writer) = 1;
    const char *text = "zwriter->writer != ((void *)0)";
    EXPECT_ABORTS(w.fn_write_bytes(w.writer, "a", 1), text);
    EXPECT_ABORTS(w.fn_flush(w.writer), text);
    EXPECT_ABORTS(w.fn_destruct(w.writer), text);
    free(w.writer);
}

namespace
{
// The first fields of the implementation, to overwrite them.
struct head_of_zwriter {
    char version;
    uint8_t in[2048];
    uint32_t i_in;
};
} // namespace

TEST(ZlibWriter, ChecksTheSizeOfItsBuffer)
{
    memory_writer target;
    owned_writer w(&target);
    static_cast<head_of_zwriter *>(w.get()->writer)->i_in = 2049;
    const char *text = "zwriter->i_in <= sizeof (zwriter->in)";
    EXPECT_ABORTS(w.write("a"), text);
    EXPECT_ABORTS(w.flush(), text);
    static_cast<head_of_zwriter *>(w.get()->writer)->i_in = 0;
}
