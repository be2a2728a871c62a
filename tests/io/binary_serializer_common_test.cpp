// The primitive forms: numbers and strings, byte by byte, written and read, whole and cut.
#include <bit>
#include <cmath>
#include <limits>

#include <vesk/binary_serializer_common.h>
#include <vesk/error.h>
#include <vesk/raw_reader.h>
#include <vesk/zlib_reader.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"

// ---- Bytes --------------------------------------------------------------------------------------

TEST(ReadBytes, ReturnsTheWholeCountOrZero)
{
    memory_reader source("abc");
    char buffer[4] = {};
    EXPECT_EQ(3, binary_serializer_read_bytes(buffer, 3, source.get()));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ(0, binary_serializer_read_bytes(buffer, 3, source.get()));
}

TEST(ReadBytes, TakesAShortReadForTruncation)
{
    memory_reader source("abc");
    char buffer[4] = {};
    EXPECT_EQ(-48, binary_serializer_read_bytes(buffer, 4, source.get()));
}

TEST(ReadBytes, AsksItsReaderOnce)
{
    memory_reader source("abc");
    source.limit_reads(2);
    char buffer[4] = {};
    EXPECT_EQ(-48, binary_serializer_read_bytes(buffer, 3, source.get()));
    EXPECT_EQ(2U, source.consumed());
}

TEST(ReadBytes, ReturnsTheCodeOfItsReader)
{
    memory_reader source("", -77);
    char byte = 0;
    EXPECT_EQ(-77, binary_serializer_read_bytes(&byte, 1, source.get()));
}

TEST(ReadBytes, ChecksItsArguments)
{
    memory_reader source("abc");
    char byte = 0;
    EXPECT_ABORTS(binary_serializer_read_bytes(nullptr, 1, source.get()), "buffer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_bytes(&byte, 0, source.get()), "buflen > 0");
    EXPECT_ABORTS(binary_serializer_read_bytes(&byte, 1, nullptr), "reader != ((void *)0)");
}

// ---- Strings, written ---------------------------------------------------------------------------

TEST(WriteString, PutsTheLengthBeforeTheText)
{
    memory_writer target;
    EXPECT_EQ(7, binary_serializer_write_string("fan", target.get()));
    EXPECT_EQ(from_hex("00 00 00 03 66 61 6e"), target.bytes());
}

TEST(WriteString, AcceptsTheEmptyString)
{
    memory_writer target;
    EXPECT_EQ(4, binary_serializer_write_string("", target.get()));
    EXPECT_EQ(from_hex("00 00 00 00"), target.bytes());
}

TEST(WriteString, AcceptsTenThousandBytesAndNotOneMore)
{
    memory_writer target;
    const std::string longest(10000, 'x');
    EXPECT_EQ(10004, binary_serializer_write_string(longest.c_str(), target.get()));
    EXPECT_EQ(from_hex("00 00 27 10") + longest, target.bytes());
    EXPECT_EQ(-49, binary_serializer_write_string((longest + "x").c_str(), target.get()));
    EXPECT_EQ(10004U, target.bytes().size());
}

TEST(WriteString, ReturnsTheCodeOfItsWriter)
{
    memory_writer full(0, -77);
    EXPECT_EQ(-77, binary_serializer_write_string("fan", full.get()));
    EXPECT_EQ("", full.bytes());
    memory_writer almost_full(4, -77);
    EXPECT_EQ(-77, binary_serializer_write_string("fan", almost_full.get()));
    EXPECT_EQ(from_hex("00 00 00 03"), almost_full.bytes());
}

TEST(WriteString, ReturnsWhatACompressingWriterReports)
{
    memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    EXPECT_EQ(0, binary_serializer_write_string("fan", w));
    // 7 + 2045 bytes are more than its buffer takes: the header of the stream goes out.
    EXPECT_EQ(2, binary_serializer_write_string(std::string(2042, 'x').c_str(), w));
    writer_destroy(&w);
}

TEST(WriteString, RefusesNull)
{
    memory_writer target;
    EXPECT_ABORTS(binary_serializer_write_string(nullptr, target.get()), "str != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_string("fan", nullptr), "writer != ((void *)0)");
}

// ---- Strings, read ------------------------------------------------------------------------------

namespace
{
struct string_result {
    std::string text;
    bool is_null;
    int nread;
    int error;
};
} // namespace

static string_result read_string(memory_reader *source)
{
    qe_set_last_error(0);
    string_result result = {"", true, -1, 0};
    char *text = binary_serializer_read_string(source->get(), &result.nread);
    if (text != nullptr) {
        result.is_null = false;
        result.text = text;
        free(text);
    }
    result.error = qe_get_last_error();
    return result;
}

static void expect_refused(const std::string &bytes, int code)
{
    memory_reader source(bytes);
    const string_result result = read_string(&source);
    EXPECT_TRUE(result.is_null);
    EXPECT_EQ(0, result.nread);
    EXPECT_EQ(code, result.error);
}

TEST(ReadString, ReturnsTheTextAndTheBytesConsumed)
{
    memory_reader source(from_hex("00 00 00 03 66 61 6e 00 00 00 01 78"));
    string_result result = read_string(&source);
    EXPECT_EQ("fan", result.text);
    EXPECT_EQ(7, result.nread);
    result = read_string(&source);
    EXPECT_EQ("x", result.text);
    EXPECT_EQ(5, result.nread);
}

TEST(ReadString, CanDoWithoutTheCount)
{
    memory_reader source(from_hex("00 00 00 03 66 61 6e"));
    char *text = binary_serializer_read_string(source.get(), nullptr);
    EXPECT_STREQ("fan", text);
    free(text);
    EXPECT_EQ(nullptr, binary_serializer_read_string(source.get(), nullptr));
    EXPECT_EQ(-43, qe_get_last_error());
}

TEST(ReadString, ReadsTheLongestString)
{
    const std::string longest(10000, 'x');
    memory_writer target;
    binary_serializer_write_string(longest.c_str(), target.get());
    memory_reader source(target.bytes());
    const string_result result = read_string(&source);
    EXPECT_EQ(longest, result.text);
    EXPECT_EQ(10004, result.nread);
}

TEST(ReadString, RefusesLengthsOutsideItsLimits)
{
    expect_refused(from_hex("00 00 00 00"), -6);
    expect_refused(from_hex("00 00 27 11") + std::string(10001, 'x'), -6);
    expect_refused(from_hex("80 00 00 01 78"), -6);
    expect_refused(from_hex("ff ff ff ff 78"), -6);
}

TEST(ReadString, RefusesWhatWriteStringWroteForTheEmptyString)
{
    memory_writer target;
    binary_serializer_write_string("", target.get());
    expect_refused(target.bytes(), -6);
}

TEST(ReadString, RefusesNulBytes)
{
    expect_refused(from_hex("00 00 00 03 66 00 6e"), -6);
    expect_refused(from_hex("00 00 00 03 66 61 00"), -6);
    expect_refused(from_hex("00 00 00 01 00"), -6);
}

TEST(ReadString, TakesTheEndBeforeTheLengthForTheEndOfRecords)
{
    expect_refused("", -43);
}

TEST(ReadString, TakesAnEndInsideTheLengthOrTheTextForTruncation)
{
    const std::string whole = from_hex("00 00 00 03 66 61 6e");
    for (const std::size_t size : {1U, 2U, 3U, 5U, 6U}) {
        expect_refused(whole.substr(0, size), -48);
    }
}

TEST(ReadString, AbortsWhenTheDataEndsBetweenLengthAndText)
{
    memory_reader source(from_hex("00 00 00 03"));
    EXPECT_ABORTS(binary_serializer_read_string(source.get(), nullptr), "nread != 0");
}

TEST(ReadString, AbortsWhenTheReaderYieldsNothingBeforeItsEnd)
{
    reader *r = raw_reader_create(fopen("/", "r"), 0);
    EXPECT_ABORTS(binary_serializer_read_string(r, nullptr), "reader_eof (reader)");
    reader_destroy(&r);
}

TEST(ReadString, LeavesTheCodeOfTheReaderInTheCell)
{
    memory_reader at_length("", -77);
    EXPECT_EQ(-77, read_string(&at_length).error);
    memory_reader at_text(from_hex("00 00 00 03 66"), -77);
    const string_result result = read_string(&at_text);
    EXPECT_TRUE(result.is_null);
    EXPECT_EQ(0, result.nread);
    EXPECT_EQ(-77, result.error);
}

TEST(ReadString, NeedsMemory)
{
    const failing_allocation failing(1);
    expect_refused(from_hex("00 00 00 03 66 61 6e"), -22);
    EXPECT_TRUE(failing_allocation::happened());
}

TEST(ReadString, LeavesTheCellAloneOnSuccess)
{
    memory_reader source(from_hex("00 00 00 03 66 61 6e"));
    qe_set_last_error(-6);
    free(binary_serializer_read_string(source.get(), nullptr));
    EXPECT_EQ(-6, qe_get_last_error());
}

TEST(ReadString, ReadsFromCompressedData)
{
    memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    binary_serializer_write_string("fan", w);
    writer_flush(w);
    binary_serializer_write_string("temperature", w);
    writer_destroy(&w);

    memory_reader source(target.bytes());
    source.limit_reads(1);
    reader *r = zlib_reader_create(source.lend());
    int nread = 0;
    char *first = binary_serializer_read_string(r, &nread);
    char *second = binary_serializer_read_string(r, &nread);
    EXPECT_STREQ("fan", first);
    EXPECT_STREQ("temperature", second);
    EXPECT_EQ(15, nread);
    free(first);
    free(second);
    EXPECT_EQ(nullptr, binary_serializer_read_string(r, &nread));
    EXPECT_EQ(-43, qe_get_last_error());
    reader_destroy(&r);
}

TEST(ReadString, RefusesNull)
{
    EXPECT_ABORTS(binary_serializer_read_string(nullptr, nullptr), "reader != ((void *)0)");
}

// ---- Numbers ------------------------------------------------------------------------------------

template <typename T>
static std::string memory_of(T value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

TEST(ByteOrder, StoresTheMostSignificantByteFirst)
{
    EXPECT_EQ(from_hex("3f 80 00 00"), memory_of(hton_float(1.0F)));
    EXPECT_EQ(from_hex("c2 f6 e9 79"), memory_of(hton_float(-123.456F)));
    EXPECT_EQ(from_hex("3f f0 00 00 00 00 00 00"), memory_of(hton_double(1.0)));
    EXPECT_EQ(from_hex("c0 5e dd 2f 1a 9f be 77"), memory_of(hton_double(-123.456)));
}

TEST(ByteOrder, GivesBackEveryBitOfANumber)
{
    // Zero, denormal, infinity, quiet NaNs with and without payload.
    for (const uint32_t bits : {0x00000000U, 0x80000000U, 0x00000001U, 0x7F7FFFFFU, 0x7F800000U,
                                0x7FC00000U, 0x7FFFFFFFU, 0xFFC12345U}) {
        const auto value = std::bit_cast<float>(bits);
        EXPECT_EQ(bits, std::bit_cast<uint32_t>(ntoh_float(hton_float(value))));
    }
    for (const uint64_t bits : std::vector<uint64_t>{
             0x0000000000000000U, 0x8000000000000000U, 0x0000000000000001U, 0x7FEFFFFFFFFFFFFFU,
             0x7FF0000000000000U, 0x7FF8000000000000U, 0xFFF8123456789ABCU}) {
        const auto value = std::bit_cast<double>(bits);
        EXPECT_EQ(bits, std::bit_cast<uint64_t>(ntoh_double(hton_double(value))));
    }
}

TEST(ByteOrder, KeepsNumbersWhoseStoredBytesLookLikeASignallingNan)
{
#ifdef __i386__
    // The library itself swaps integers; the golden files hold such numbers on this machine, too.
    GTEST_SKIP()
        << "a function of this machine returns a number in an x87 register, which quiets it";
#endif
    // In the other byte order these are 7F 80 00 01 and 7F F0 00 00 00 00 00 01.
    const auto single = std::bit_cast<float>(0x0100807FU);
    EXPECT_EQ(from_hex("01 00 80 7f"), memory_of(hton_float(single)));
    EXPECT_EQ(0x0100807FU, std::bit_cast<uint32_t>(ntoh_float(hton_float(single))));
    const auto twice = std::bit_cast<double>(uint64_t{0x010000000000F07FU});
    EXPECT_EQ(from_hex("01 00 00 00 00 00 f0 7f"), memory_of(hton_double(twice)));
    EXPECT_EQ(0x010000000000F07FU, std::bit_cast<uint64_t>(ntoh_double(hton_double(twice))));
}
