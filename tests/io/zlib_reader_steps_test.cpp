// The reader beside a plain one that asks zlib for exactly the bytes of each read. Whatever the
// streams hold and however they are read, every read gives the same result and the same bytes, asks
// the source for the same, and leaves the same savepoint and the same answer about the end.
#include <algorithm>
#include <random>

#include <vesk/error.h>
#include <vesk/zlib_reader.h>

#include "common/aborts.hpp"
#include "common/memory_streams.hpp"
#include "common/zlib_bytes.hpp"

namespace
{

class plain_reader
{
public:
    explicit plain_reader(memory_reader *source) : source_(source)
    {
        stream_.avail_out = UINT32_MAX;
    }
    plain_reader(const plain_reader &) = delete;
    plain_reader &operator=(const plain_reader &) = delete;
    ~plain_reader() { close(); }

    int read(char *buffer, uint32_t n)
    {
        uint32_t total = 0;
        while (total < n) {
            if (!open_) {
                inflateInit(&stream_);
                open_ = true;
            }
            if (stream_.avail_in == 0 && stream_.avail_out != 0) {
                const int came = reader_read_bytes(source_->get(), in_, sizeof in_);
                if (came <= 0) {
                    return came < 0 ? came : static_cast<int>(total);
                }
                stream_.next_in = in_;
                stream_.avail_in = static_cast<uInt>(came);
            }
            const uInt available = stream_.avail_in;
            stream_.next_out = reinterpret_cast<Bytef *>(buffer) + total;
            stream_.avail_out = n - total;
            const int result = inflate(&stream_, Z_NO_FLUSH);
            consumed_ += available - stream_.avail_in;
            total = n - stream_.avail_out;
            if (result == Z_DATA_ERROR || result == Z_NEED_DICT) {
                close();
                return QE_ERROR_IO;
            }
            if (result == Z_STREAM_END) {
                close();
                savepoint_ = consumed_;
            }
        }
        return static_cast<int>(total);
    }
    bool at_end()
    {
        return stream_.avail_in == 0 && stream_.avail_out != 0 && reader_eof(source_->get()) != 0;
    }
    uint32_t savepoint() const { return savepoint_; }

private:
    void close()
    {
        if (open_) {
            inflateEnd(&stream_);
            open_ = false;
        }
    }

    memory_reader *source_;
    z_stream stream_ = {};
    Bytef in_[2048] = {};
    bool open_ = false;
    uint32_t consumed_ = 0;
    uint32_t savepoint_ = 0;
};

// Reads both to the end or to an error, in steps that size() gives.
template <typename Size>
void expect_the_same_steps(const std::string &bytes, uint32_t most_from_source, int failure,
                           Size size)
{
    memory_reader source(bytes, failure);
    memory_reader plain_source(bytes, failure);
    source.limit_reads(most_from_source);
    plain_source.limit_reads(most_from_source);
    plain_reader plain(&plain_source);
    reader *r = zlib_reader_create(source.lend());
    int after_end = 0;
    for (int step = 0; after_end < 2; ++step) {
        const uint32_t n = size();
        std::string given(n, '?');
        std::string wanted(n, '?');
        const int expected = plain.read(wanted.data(), n);
        const int result = reader_read_bytes(r, given.data(), n);
        ASSERT_EQ(expected, result) << "step " << step << " of " << n << " bytes";
        ASSERT_EQ(plain.savepoint(), zlib_reader_get_last_savepoint(r)) << "step " << step;
        ASSERT_EQ(plain.at_end(), reader_eof(r) != 0) << "step " << step;
        ASSERT_EQ(plain_source.reads(), source.reads()) << "step " << step;
        if (expected < 0) {
            break;
        }
        ASSERT_EQ(wanted, given) << "step " << step;
        after_end += static_cast<uint32_t>(expected) < n ? 1 : 0;
    }
    reader_destroy(&r);
}

// Raw deflate by hand: "abc", and then a match that begins before the content.
std::string match_from_before_the_content()
{
    std::string bytes("\x78\x01", 2);
    uint32_t bits = 0;
    uint32_t n = 0;
    const auto put = [&](uint32_t value, uint32_t width) {
        bits |= value << n;
        for (n += width; n >= 8; n -= 8, bits >>= 8) {
            bytes += static_cast<char>(bits & 0xff);
        }
    };
    const auto put_code = [&](uint32_t code, uint32_t width) { // Huffman codes begin at the top
        for (uint32_t i = width; i > 0; --i) {
            put(code >> (i - 1) & 1, 1);
        }
    };
    put(1, 1);
    put(1, 2); // the last block, of fixed codes
    for (const char c : {'a', 'b', 'c'}) {
        put_code(0x30U + static_cast<uint32_t>(c), 8);
    }
    put_code(1, 7); // a match of three bytes
    put_code(4, 5); // from 5 or 6 bytes back
    put(0, 1);
    put_code(0, 7);
    put(0, 32);
    return bytes;
}

class ZlibReaderSteps : public testing::Test
{
protected:
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random_() % n); }
    // Mostly a few bytes, now and then a lot.
    uint32_t any_size()
    {
        switch (below(8)) {
        case 0:
            return below(5000);
        case 1:
            return 200 + below(100);
        default:
            return below(12);
        }
    }
    std::string any_content()
    {
        switch (below(4)) {
        case 0:
            return noise(below(3000), below(UINT32_MAX));
        case 1:
            return std::string(below(9000), 'r');
        case 2:
            return telemetry_like(below(70000));
        default:
            return telemetry_like(below(200), below(UINT32_MAX));
        }
    }
    std::string any_streams()
    {
        std::string bytes;
        for (std::size_t n = 1 + below(6); n > 0; --n) {
            bytes += compressed_stream(any_content());
        }
        return bytes;
    }
    uint32_t any_limit()
    {
        const uint32_t limits[] = {1, 2, 7, 100, 2048};
        return limits[below(std::size(limits))];
    }

    std::mt19937 random_{20261122};
};

TEST_F(ZlibReaderSteps, AreThoseOfAPlainReader)
{
    for (int i = 0; i < 60; ++i) {
        SCOPED_TRACE(i);
        expect_the_same_steps(any_streams(), any_limit(), 0, [&] { return any_size(); });
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(ZlibReaderSteps, AreThoseOfAPlainReaderWhereTheSourceFails)
{
    for (int i = 0; i < 60; ++i) {
        SCOPED_TRACE(i);
        std::string bytes = any_streams();
        bytes.resize(below(static_cast<uint32_t>(bytes.size())));
        expect_the_same_steps(bytes, any_limit(), -77, [&] { return any_size(); });
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(ZlibReaderSteps, AreThoseOfAPlainReaderInDamagedStreams)
{
    for (int i = 0; i < 800; ++i) {
        SCOPED_TRACE(i);
        std::string bytes = compressed_stream(telemetry_like(300 + below(4000))) +
                            compressed_stream(telemetry_like(50));
        bytes[below(static_cast<uint32_t>(bytes.size()))] ^= static_cast<char>(1U << below(8));
        const uint32_t most = 1 + below(40);
        expect_the_same_steps(bytes, any_limit(), 0, [&] { return 1 + below(most); });
        ASSERT_FALSE(HasFailure());
    }
}

// Zlib finds this fault only when it has room for a byte of the match, and others without any.
TEST_F(ZlibReaderSteps, EndAtAMatchFromBeforeTheContentWhenItIsWanted)
{
    const std::string bytes = match_from_before_the_content();
    for (uint32_t n = 1; n <= 4; ++n) {
        SCOPED_TRACE(n);
        expect_the_same_steps(bytes, 2048, 0, [n] { return n; });
    }
    memory_reader source(bytes);
    reader *r = zlib_reader_create(source.lend());
    char content[3];
    EXPECT_EQ(3, reader_read_bytes(r, content, 3));
    EXPECT_EQ(QE_ERROR_IO, reader_read_bytes(r, content, 1));
    reader_destroy(&r);
}

} // namespace
