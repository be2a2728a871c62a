// The reader of a row of compressed streams: its blocks, savepoints, damaged and cut streams.
#include <algorithm>

#include <vesk/error.h>
#include <vesk/raw_reader.h>
#include <vesk/zlib_reader.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/zlib_bytes.hpp"
#include "io/reader_internal.hpp"

namespace
{
// A reader that goes away with the test.
class owned_zlib_reader
{
public:
    explicit owned_zlib_reader(memory_reader *source) : reader_(zlib_reader_create(source->lend()))
    {
    }
    owned_zlib_reader(const owned_zlib_reader &) = delete;
    owned_zlib_reader &operator=(const owned_zlib_reader &) = delete;
    ~owned_zlib_reader() { destroy(); }

    // The result of one read; what it gave is appended to content().
    int read(uint32_t n)
    {
        std::string buffer(n, '\0');
        const int result = reader_read_bytes(reader_, buffer.data(), n);
        if (result > 0) {
            content_.append(buffer, 0, static_cast<std::size_t>(result));
        }
        return result;
    }
    // Reads in steps of `n` bytes to the end or to an error, which is returned.
    int read_all(uint32_t n)
    {
        int result = 0;
        do {
            result = read(n);
        } while (result > 0);
        return result;
    }
    bool at_end() { return reader_eof(reader_) != 0; }
    uint32_t savepoint() { return zlib_reader_get_last_savepoint(reader_); }
    const std::string &content() const { return content_; }
    void destroy()
    {
        if (reader_ != nullptr) {
            reader_destroy(&reader_);
        }
    }
    reader *get() { return reader_; }

private:
    reader *reader_;
    std::string content_;
};
} // namespace

TEST(ZlibReader, IsAReaderOfItsOwnType)
{
    memory_reader source("");
    owned_zlib_reader r(&source);
    ASSERT_NE(nullptr, r.get());
    EXPECT_EQ(1, r.get()->version);
    EXPECT_EQ(static_cast<uint32_t>(READER_TYPE_ZLIB), r.get()->type);
    EXPECT_EQ(0U, r.savepoint());
}

TEST(ZlibReader, LivesInStorageOfTheCaller)
{
    memory_reader source(compressed_stream("abc"));
    reader r;
    ASSERT_EQ(0, zlib_reader_init(&r, source.lend()));
    char buffer[4] = {};
    EXPECT_EQ(3, reader_read_bytes(&r, buffer, 3));
    EXPECT_STREQ("abc", buffer);
    reader_destruct(&r);
    EXPECT_EQ(1, source.destroyed());
}

TEST(ZlibReader, ReadsAcrossStreamsAsIfTheyWereOne)
{
    const std::string first = telemetry_like(5000);
    const std::string second = noise(5000);
    const std::string third(100000, 'z');
    const std::string source_bytes =
        compressed_stream(first) + compressed_stream(second) + compressed_stream(third);
    const std::string expected = first + second + third;
    // Whatever pieces the source comes in and whatever pieces are asked for.
    for (const uint32_t source_step : {1U, 7U, 2047U, 2048U, 1000000U}) {
        for (const uint32_t step : {1U, 9U, 2048U, 5000U, 1000000U}) {
            memory_reader source(source_bytes);
            source.limit_reads(source_step);
            owned_zlib_reader r(&source);
            EXPECT_EQ(0, r.read_all(step));
            EXPECT_TRUE(r.content() == expected) << source_step << " " << step;
            EXPECT_EQ(source_bytes.size(), r.savepoint());
            EXPECT_TRUE(r.at_end());
        }
    }
}

TEST(ZlibReader, FillsTheBufferOfTheCallerUnlessTheSourceEnds)
{
    memory_reader source(compressed_stream("first") + compressed_stream("second"));
    source.limit_reads(1);
    owned_zlib_reader r(&source);
    EXPECT_EQ(8, r.read(8));
    EXPECT_EQ(3, r.read(8));
    EXPECT_EQ(0, r.read(8));
    EXPECT_EQ(0, r.read(8));
    EXPECT_EQ("firstsecond", r.content());
}

TEST(ZlibReader, ReadsNothingWhenNothingIsWanted)
{
    memory_reader source(compressed_stream("abc"));
    owned_zlib_reader r(&source);
    EXPECT_EQ(0, r.read(0));
    EXPECT_EQ(0U, source.consumed());
    EXPECT_EQ(3, r.read(3));
}

TEST(ZlibReader, ReadsFromItsSourceInBlocksOf2048Bytes)
{
    memory_reader source(compressed_stream(noise(10000)));
    owned_zlib_reader r(&source);
    EXPECT_EQ(1, r.read(1));
    EXPECT_EQ(2048U, source.consumed());
    // What zlib has is handed out before more is fetched.
    EXPECT_EQ(100, r.read(100));
    EXPECT_EQ(2048U, source.consumed());
}

TEST(ZlibReader, ReadsAnEmptySource)
{
    memory_reader source("");
    owned_zlib_reader r(&source);
    EXPECT_FALSE(r.at_end());
    EXPECT_EQ(0, r.read(10));
    EXPECT_TRUE(r.at_end());
    EXPECT_EQ(0U, r.savepoint());
}

TEST(ZlibReader, ReadsStreamsWithoutContent)
{
    memory_reader source(compressed_stream("") + compressed_stream("a") + compressed_stream(""));
    owned_zlib_reader r(&source);
    EXPECT_EQ(1, r.read(10));
    EXPECT_EQ("a", r.content());
    EXPECT_EQ(compressed_stream("").size() * 2 + compressed_stream("a").size(), r.savepoint());
}

TEST(ZlibReader, IsAtTheEndOnlyAfterAReadCameBackShort)
{
    memory_reader source(compressed_stream("abc"));
    owned_zlib_reader r(&source);
    EXPECT_FALSE(r.at_end());
    EXPECT_EQ(3, r.read(3));
    EXPECT_FALSE(r.at_end());
    EXPECT_EQ(0, r.read(3));
    EXPECT_TRUE(r.at_end());
}

TEST(ZlibReader, IsAtTheEndFromTheStartWhenItsSourceIs)
{
    memory_reader source("");
    char byte = 0;
    reader_read_bytes(source.get(), &byte, 1);
    owned_zlib_reader r(&source);
    EXPECT_TRUE(r.at_end());
}

// ---- Savepoints ---------------------------------------------------------------------------------

TEST(ZlibReader, RemembersTheEndOfTheLastCompleteStream)
{
    const std::string first = compressed_stream("first");
    const std::string second = compressed_stream("second");
    memory_reader source(first + second);
    owned_zlib_reader r(&source);
    EXPECT_EQ(4, r.read(4));
    EXPECT_EQ(0U, r.savepoint());
    EXPECT_EQ(1, r.read(1));
    EXPECT_EQ(first.size(), r.savepoint());
    EXPECT_EQ(5, r.read(5));
    EXPECT_EQ(first.size(), r.savepoint());
    EXPECT_EQ(1, r.read(100));
    EXPECT_EQ(first.size() + second.size(), r.savepoint());
}

TEST(ZlibReader, PassesASavepointOnlyWithTheLastByteOfTheStream)
{
    // The content can be read before the checksum behind it is there.
    memory_reader source(compressed_stream("first"));
    source.limit_reads(1);
    owned_zlib_reader r(&source);
    EXPECT_EQ(5, r.read(5));
    EXPECT_EQ(0U, r.savepoint());
    EXPECT_EQ(0, r.read(1));
    EXPECT_EQ(compressed_stream("first").size(), r.savepoint());
}

TEST(ZlibReader, ShowsWhatItHoldsButForTheByteThatMayTellMore)
{
    const std::string content = "0123456789";
    memory_reader source(compressed_stream(content));
    owned_zlib_reader r(&source);
    uint32_t size = 99;
    (void)_zlib_reader_peek(r.get(), &size);
    EXPECT_EQ(0U, size) << "nothing was read";
    EXPECT_EQ(1, r.read(1));
    for (int i = 0; i < 2; ++i) {
        const uint8_t *held = _zlib_reader_peek(r.get(), &size);
        ASSERT_EQ(8U, size);
        EXPECT_EQ("12345678", std::string(held, held + size)) << "looking changes nothing";
    }
    _zlib_reader_skip(r.get(), 7);
    EXPECT_EQ(1, r.read(1));
    EXPECT_EQ("08", r.content());
    (void)_zlib_reader_peek(r.get(), &size);
    EXPECT_EQ(0U, size);
    EXPECT_EQ(0U, r.savepoint());
    EXPECT_EQ(1, r.read(5));
    EXPECT_EQ("089", r.content());
    EXPECT_NE(0U, r.savepoint());
    (void)_zlib_reader_peek(source.get(), &size);
    EXPECT_EQ(0U, size) << "no compressed stream";
}

TEST(ZlibReader, CountsSavepointsFromWhereItBegan)
{
    FILE *fp = tmpfile();
    const std::string stream = compressed_stream("abc");
    fputs("something else", fp);
    fwrite(stream.data(), 1, stream.size(), fp);
    fseek(fp, 14, SEEK_SET);
    reader *r = zlib_reader_create(raw_reader_create(fp, 0));
    char buffer[10];
    EXPECT_EQ(3, reader_read_bytes(r, buffer, sizeof buffer));
    EXPECT_EQ(stream.size(), zlib_reader_get_last_savepoint(r));
    reader_destroy(&r);
}

// ---- Torn and damaged files ---------------------------------------------------------------------

namespace
{
struct sample_file {
    std::string bytes;
    std::string content;
    // Where the streams end, in the file and in the content.
    std::vector<std::size_t> ends;
    std::vector<std::size_t> content_ends;

    sample_file()
    {
        for (const std::string &part :
             {telemetry_like(300), noise(50), std::string(5000, 'r'), telemetry_like(200, 9)}) {
            bytes += compressed_stream(part);
            content += part;
            ends.push_back(bytes.size());
            content_ends.push_back(content.size());
        }
    }

    // The number of streams that are complete in the first `size` bytes.
    std::size_t complete(std::size_t size) const
    {
        return static_cast<std::size_t>(std::upper_bound(ends.begin(), ends.end(), size) -
                                        ends.begin());
    }
    std::size_t savepoint(std::size_t nstreams) const
    {
        return nstreams == 0 ? 0 : ends[nstreams - 1];
    }
    std::size_t content_up_to(std::size_t nstreams) const
    {
        return nstreams == 0 ? 0 : content_ends[nstreams - 1];
    }
};
} // namespace

static bool starts_with(const std::string &whole, const std::string &part)
{
    return whole.compare(0, part.size(), part) == 0;
}

TEST(ZlibReader, ReadsAFileUpToWhereItWasCut)
{
    const sample_file file;
    for (std::size_t cut = 0; cut <= file.bytes.size(); ++cut) {
        memory_reader source(file.bytes.substr(0, cut));
        owned_zlib_reader r(&source);
        EXPECT_EQ(0, r.read_all(100)) << "cut at " << cut;
        const std::size_t nstreams = file.complete(cut);
        EXPECT_EQ(file.savepoint(nstreams), r.savepoint()) << "cut at " << cut;
        EXPECT_LE(file.content_up_to(nstreams), r.content().size());
        EXPECT_TRUE(starts_with(file.content, r.content())) << "cut at " << cut;
    }
}

TEST(ZlibReader, HandsOutEveryByteOfATornStreamThatCanBeDecoded)
{
    // Noise is stored, so every byte that is there can be read.
    const std::string whole = compressed_stream(noise(1000));
    memory_reader source(whole.substr(0, 7 + 600));
    owned_zlib_reader r(&source);
    EXPECT_EQ(0, r.read_all(1000));
    EXPECT_TRUE(r.content() == noise(1000).substr(0, 600));
    EXPECT_EQ(0U, r.savepoint());
}

TEST(ZlibReader, NeverTakesADamagedStreamForComplete)
{
    const sample_file file;
    for (std::size_t at = 0; at < file.bytes.size(); ++at) {
        for (const int damage : {0x01, 0x20, 0x80, 0xFF}) {
            std::string damaged = file.bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ damage);
            memory_reader source(damaged);
            owned_zlib_reader r(&source);
            const int result = r.read_all(100);
            if (r.savepoint() == damaged.size()) {
                // A few bits do not matter: padding, and other ways to say the same.
                EXPECT_TRUE(r.content() == file.content) << at << " " << damage;
                continue;
            }
            // Otherwise no stream from the damaged one on counts as complete, be it that zlib
            // noticed the damage or that it still waits for more.
            ASSERT_TRUE(result == -41 || result == 0) << at << " " << damage;
            const std::size_t undamaged = file.complete(at);
            EXPECT_EQ(file.savepoint(undamaged), r.savepoint()) << at << " " << damage;
            const std::string good = file.content.substr(0, file.content_up_to(undamaged));
            // Bytes of a read that meets damage are lost with it.
            const std::size_t whole_reads = good.size() / 100 * 100;
            EXPECT_TRUE(starts_with(r.content(), good.substr(0, whole_reads)));
        }
    }
}

TEST(ZlibReader, TakesZerosBehindTheLastStreamForDamage)
{
    memory_reader source(compressed_stream("abc") + std::string(100, '\0'));
    owned_zlib_reader r(&source);
    EXPECT_EQ(3, r.read(3));
    EXPECT_EQ(-41, r.read(3));
    EXPECT_EQ(compressed_stream("abc").size(), r.savepoint());
}

TEST(ZlibReader, RefusesADictionary)
{
    z_stream stream = {};
    ASSERT_EQ(Z_OK, deflateInit(&stream, -1));
    const Bytef dictionary[] = "telemetry";
    ASSERT_EQ(Z_OK, deflateSetDictionary(&stream, dictionary, 9));
    std::string bytes(100, '\0');
    stream.next_out = reinterpret_cast<Bytef *>(bytes.data());
    stream.avail_out = 100;
    ASSERT_EQ(Z_STREAM_END, deflate(&stream, Z_FINISH));
    deflateEnd(&stream);

    memory_reader source(bytes);
    owned_zlib_reader r(&source);
    EXPECT_EQ(-41, r.read(1));
}

TEST(ZlibReader, IsDeadAfterDamage)
{
    memory_reader source("no compressed data");
    owned_zlib_reader r(&source);
    EXPECT_EQ(-41, r.read(1));
    EXPECT_ABORTS(r.read(1), "zreader->err == 0");
    EXPECT_ABORTS(r.read(0), "zreader->err == 0");
    // It can be asked and destroyed.
    EXPECT_EQ(0U, r.savepoint());
    r.destroy();
    EXPECT_EQ(1, source.destroyed());
}

// ---- The source fails ---------------------------------------------------------------------------

TEST(ZlibReader, ReturnsTheCodeOfItsSource)
{
    memory_reader source(compressed_stream("abc"), -77);
    source.limit_reads(1);
    owned_zlib_reader r(&source);
    EXPECT_EQ(3, r.read(3));
    EXPECT_EQ(-77, r.read(1));
    // The source may recover.
    EXPECT_EQ(-77, r.read(1));
}

TEST(ZlibReader, AbortsWhenItsSourceYieldsNothingBeforeItsEnd)
{
    reader *base = raw_reader_create(fopen("/", "r"), 0);
    reader *r = zlib_reader_create(base);
    char byte = 0;
    EXPECT_ABORTS(reader_read_bytes(r, &byte, 1), "reader_eof (zreader->reader)");
    reader_destroy(&r);
}

// ---- zlib fails ---------------------------------------------------------------------------------

TEST(ZlibReader, DiesWithoutMemoryForAStream)
{
    memory_reader source(compressed_stream("abc"));
    owned_zlib_reader r(&source);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(-41, r.read(3));
        EXPECT_TRUE(failing_allocation::happened());
    }
    EXPECT_ABORTS(r.read(3), "zreader->err == 0");
}

TEST(ZlibReader, DiesWithoutMemoryForItsWindow)
{
    // zlib remembers what it gave when a read ends inside a stream.
    memory_reader source(compressed_stream(telemetry_like(10000)));
    owned_zlib_reader r(&source);
    {
        const failing_allocation failing(2);
        EXPECT_EQ(-41, r.read(1000));
        EXPECT_TRUE(failing_allocation::happened());
    }
    EXPECT_ABORTS(r.read(3), "zreader->err == 0");
}

TEST(ZlibReader, DiesOfAStreamErrorWithoutEndingTheStream)
{
    memory_reader source(compressed_stream("abc"));
    owned_zlib_reader r(&source);
    {
        const failing_zlib failing(1, Z_STREAM_ERROR);
        EXPECT_EQ(-41, r.read(3));
    }
    EXPECT_ABORTS(r.read(3), "zreader->err == 0");
}

TEST(ZlibReader, GoesOnWhenZlibHasNothingToDo)
{
    memory_reader source(compressed_stream("abc"));
    owned_zlib_reader r(&source);
    const failing_zlib idle(1, Z_BUF_ERROR);
    EXPECT_EQ(3, r.read(3));
    EXPECT_EQ("abc", r.content());
}

TEST(ZlibReader, TakesNoMemoryAfterItsFirstStreams)
{
    std::string bytes;
    for (int i = 0; i < 10; ++i) {
        bytes += compressed_stream(telemetry_like(5000));
    }
    memory_reader source(bytes);
    owned_zlib_reader r(&source);
    EXPECT_EQ(1, r.read(1));
    EXPECT_EQ(4999, r.read(4999));
    const failing_allocation none(1, failing_allocation::for_ever);
    EXPECT_EQ(0, r.read_all(1000));
    EXPECT_FALSE(failing_allocation::happened());
    EXPECT_EQ(50000U, r.content().size());
}

TEST(ZlibReader, LeavesItsSourceToTheCallerWithoutMemory)
{
    memory_reader source("");
    reader *base = source.lend();
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, zlib_reader_create(base));
        EXPECT_TRUE(failing_allocation::happened());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    {
        const failing_allocation failing(1);
        reader r = {};
        EXPECT_EQ(-22, zlib_reader_init(&r, base));
        EXPECT_EQ(0, r.version);
    }
    EXPECT_EQ(0, source.destroyed());
    reader_destroy(&base);
}

// ---- Preconditions ------------------------------------------------------------------------------

TEST(ZlibReader, RefusesNull)
{
    memory_reader source("");
    reader r;
    EXPECT_ABORTS(zlib_reader_create(nullptr), "reader_base != ((void *)0)");
    EXPECT_ABORTS(zlib_reader_init(&r, nullptr), "reader_base != ((void *)0)");
    EXPECT_ABORTS(zlib_reader_init(nullptr, source.get()), "r != ((void *)0)");
}

TEST(ZlibReader, KnowsSavepointsOnlyOfItsOwnType)
{
    memory_reader source("");
    EXPECT_ABORTS(zlib_reader_get_last_savepoint(source.get()), "reader->type == READER_TYPE_ZLIB");
    EXPECT_ABORTS(zlib_reader_get_last_savepoint(nullptr), "reader != ((void *)0)");
    reader dead = {};
    EXPECT_ABORTS(zlib_reader_get_last_savepoint(&dead), "reader->version == ((char) 1)");
    reader hollow = *source.get();
    hollow.type = READER_TYPE_ZLIB;
    hollow.reader = nullptr;
    EXPECT_ABORTS(zlib_reader_get_last_savepoint(&hollow), "zreader != ((void *)0)");
}

// The functions of a reader are public, so their own checks can be reached.
TEST(ZlibReader, ChecksItsImplementation)
{
    memory_reader source("");
    reader r;
    ASSERT_EQ(0, zlib_reader_init(&r, source.lend()));
    char byte = 0;
    EXPECT_ABORTS(r.fn_read_bytes(nullptr, &byte, 1), "zreader != ((void *)0)");
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, nullptr, 1), "buffer != ((void *)0)");
    // A destructed implementation is zeroed.
    r.fn_destruct(r.reader);
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), "zreader->version == ((char) 1)");
    *static_cast<char *>(r.reader) = 1;
    const char *text = "zreader->reader != ((void *)0)";
    EXPECT_ABORTS(r.fn_read_bytes(r.reader, &byte, 1), text);
    EXPECT_ABORTS(r.fn_eof(r.reader), text);
    EXPECT_ABORTS(r.fn_destruct(r.reader), text);
    free(r.reader);
}
