// Forms that are written and read field by field, and what streams are asked for on the way.
#include <bit>
#include <stdlib.h>

#include <vesk/garbage_reader.h>
#include <vesk/raw_reader.h>
#include <vesk/raw_writer.h>
#include <vesk/zlib_reader.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/memory_streams.hpp"
#include "io/fields.hpp"
#include "io/memory_reader.hpp"
#include "support/owner.hpp"

TEST(FieldWriter, WritesFieldsInOrderAndAddsUp)
{
    memory_writer target;
    const uint32_t nested = 7;
    const auto write_nested = [](const uint32_t *value, writer *w) {
        return field_writer(w).u32(*value).result();
    };
    const int result = field_writer(target.get())
                           .byte(1)
                           .u32(0x01020304)
                           .f32(1.0F)
                           .f64(1.0)
                           .string("fan")
                           .bytes("ab", 2)
                           .form<uint32_t>(write_nested, &nested)
                           .result();
    EXPECT_EQ(from_hex("01 01020304 3f800000 3ff0000000000000 00000003 66616e 6162 00000007"),
              target.bytes());
    EXPECT_EQ(30, result);
}

TEST(FieldWriter, StopsAtTheFirstFailure)
{
    memory_writer target(6, -77);
    field_writer fields(target.get());
    fields.u32(1);
    EXPECT_FALSE(fields.failed());
    fields.u32(2);
    EXPECT_TRUE(fields.failed());
    fields.byte(3);
    EXPECT_EQ(-77, fields.result());
    EXPECT_EQ(from_hex("00000001"), target.bytes());
}

TEST(FieldWriter, CountsWhatACompressingWriterReports)
{
    memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    EXPECT_EQ(0, field_writer(w).byte(1).u32(2).result());
    writer_destroy(&w);
}

static uint32_t third_of(uint32_t i)
{
    return bits_of(static_cast<float>(i) / 3);
}

TEST(FieldWriter, WritesManyFloatsAsOneByOne)
{
    memory_writer one_by_one;
    memory_writer together;
    field_writer single(one_by_one.get());
    for (uint32_t i = 0; i < 1000; ++i) {
        single.f32(static_cast<float>(i) / 3);
    }
    const int result = field_writer(together.get()).f32s(1000, third_of).result();
    EXPECT_EQ(4000, result);
    EXPECT_EQ(one_by_one.bytes(), together.bytes());
}

TEST(FieldReader, ReadsFieldsInOrderAndAddsUp)
{
    memory_reader source(
        from_hex("01 02 01020304 3f800000 3ff0000000000000 00000003 66616e 6162 00000007"));
    uint8_t byte = 0;
    uint32_t number = 0;
    float single = 0;
    double twice = 0;
    char *text = nullptr;
    char raw[2] = {};
    uint32_t nested = 0;
    const auto read_nested = [](uint32_t *value, reader *r) {
        return field_reader(r).u32(value).result();
    };
    field_reader fields(source.get());
    fields.version(1).byte(&byte).u32(&number).f32(&single).f64(&twice).string(&text).bytes(raw, 2);
    fields.form<uint32_t>(read_nested, &nested);
    EXPECT_TRUE(fields.ok());
    EXPECT_EQ(31, fields.result());
    EXPECT_EQ(2, byte);
    EXPECT_EQ(0x01020304U, number);
    EXPECT_EQ(1.0F, single);
    EXPECT_EQ(1.0, twice);
    EXPECT_STREQ("fan", text);
    EXPECT_EQ('b', raw[1]);
    EXPECT_EQ(7U, nested);
    free(text);
}

TEST(FieldReader, EndsCleanlyOnlyBeforeTheFirstField)
{
    memory_reader empty("");
    uint32_t number = 5;
    field_reader at_start(empty.get());
    at_start.version(1).u32(&number);
    EXPECT_FALSE(at_start.ok());
    EXPECT_EQ(0, at_start.result());
    EXPECT_EQ(5U, number);

    memory_reader one_byte(from_hex("01"));
    field_reader later(one_byte.get());
    EXPECT_EQ(-48, later.version(1).u32(&number).result());
    EXPECT_EQ(5U, number);

    memory_reader two_bytes(from_hex("01 00"));
    field_reader inside(two_bytes.get());
    EXPECT_EQ(-48, inside.version(1).u32(&number).result());
    EXPECT_EQ(5U, number);
}

TEST(FieldReader, TakesTheCleanEndOfANestedFormForTruncationLaterOn)
{
    memory_reader source(from_hex("01"));
    const auto nothing = [](uint32_t *, reader *) { return 0; };
    uint32_t unused = 0;
    EXPECT_EQ(-48, field_reader(source.get()).version(1).form<uint32_t>(nothing, &unused).result());
}

TEST(FieldReader, RefusesOtherVersions)
{
    memory_reader source(from_hex("02 00000007"));
    uint32_t number = 5;
    EXPECT_EQ(-12, field_reader(source.get()).version(1).u32(&number).result());
    EXPECT_EQ(1U, source.consumed());
    EXPECT_EQ(5U, number);
}

TEST(FieldReader, KeepsTheFirstFailure)
{
    memory_reader source(from_hex("01"));
    field_reader fields(source.get());
    fields.version(1).fail(-6).fail(-49);
    EXPECT_EQ(-6, fields.result());
    uint8_t byte = 5;
    fields.byte(&byte);
    EXPECT_EQ(-6, fields.result());
    EXPECT_EQ(5, byte);
}

TEST(FieldReader, ReturnsTheCodesOfReadersAndStrings)
{
    memory_reader failing("", -77);
    uint8_t byte = 0;
    EXPECT_EQ(-77, field_reader(failing.get()).byte(&byte).result());

    memory_reader source(from_hex("01 00000000"));
    char *text = nullptr;
    EXPECT_EQ(-6, field_reader(source.get()).version(1).string(&text).result());
    EXPECT_EQ(nullptr, text);

    // A string that is missing altogether has a code of its own.
    memory_reader ended(from_hex("01"));
    EXPECT_EQ(-43, field_reader(ended.get()).version(1).string(&text).result());
}

TEST(FieldReader, ReadsManyFloatsAsOneByOne)
{
    memory_writer target;
    field_writer(target.get()).f32s(1000, third_of);
    memory_reader source(target.bytes());
    float values[1000] = {};
    EXPECT_EQ(4000, field_reader(source.get()).f32s(values, 1000).result());
    for (uint32_t i = 0; i < 1000; ++i) {
        EXPECT_EQ(static_cast<float>(i) / 3, values[i]);
    }
}

TEST(FieldReader, TakesAnEndAmongManyFloatsForTruncation)
{
    for (const std::size_t size : {1U, 4U, 7U, 8U, 11U}) {
        memory_reader source(std::string(1 + size, '\1'));
        float values[3] = {};
        EXPECT_EQ(-48, field_reader(source.get()).version(1).f32s(values, 3).result()) << size;
    }
}

TEST(FieldReader, DamagesManyFloatsAsOneByOne)
{
    // The numbers that the garbage reader draws depend on how it is called.
    float expected[3] = {};
    float values[3] = {};
    memory_reader first(std::string(4, '\1'));
    memory_reader second(std::string(4, '\1'));
    reader *r = garbage_reader_create(first.lend(), 0);
    srand(3);
    field_reader one_by_one(r);
    one_by_one.f32(&expected[0]).f32(&expected[1]).f32(&expected[2]);
    reader_destroy(&r);
    r = garbage_reader_create(second.lend(), 0);
    srand(3);
    EXPECT_EQ(one_by_one.result(), field_reader(r).f32s(values, 3).result());
    reader_destroy(&r);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(std::bit_cast<uint32_t>(expected[i]), std::bit_cast<uint32_t>(values[i]));
    }
}

// What the streams of the library and those of a caller are asked for.

TEST(FieldWriter, GivesACallersWriterOneNumberACall)
{
    memory_writer target;
    EXPECT_EQ(24, field_writer(target.get())
                      .f32s(2, third_of)
                      .f64s(2, [](uint32_t i) { return uint64_t{i}; })
                      .result());
    EXPECT_EQ((std::vector<uint32_t>{4, 4, 8, 8}), target.writes());
}

TEST(FieldWriter, GivesTheLibrarysOwnWritersNumbersInBlocks)
{
    byte_list bytes;
    byte_list_writer to_memory(&bytes);
    const owned_file file(tmpfile());
    const owned<writer, writer_destroy> raw(raw_writer_create(file.get(), 1));
    memory_writer below;
    const owned<writer, writer_destroy> compressed(zlib_writer_create(below.lend()));
    memory_writer callers;
    EXPECT_TRUE(_writer_takes_blocks(to_memory.get()));
    EXPECT_TRUE(_writer_takes_blocks(raw.get()));
    EXPECT_TRUE(_writer_takes_blocks(compressed.get()));
    EXPECT_FALSE(_writer_takes_blocks(callers.get()));
    // More than a block of them.
    EXPECT_EQ(2808, field_writer(to_memory.get()).f32s(702, third_of).result());
    EXPECT_EQ(2808, field_writer(callers.get()).f32s(702, third_of).result());
    EXPECT_EQ(callers.bytes(), std::string(bytes.begin(), bytes.end()));
}

TEST(FieldReader, AsksTheLibrarysOwnReadersForNumbersInBlocks)
{
    byte_list bytes;
    byte_list_writer target(&bytes);
    field_writer(target.get()).byte(1).f32s(702, third_of);
    const owned<reader, reader_destroy> from_memory(_memory_reader_create(&bytes));
    const owned_file file(tmpfile());
    const owned<reader, reader_destroy> raw(raw_reader_create(file.get(), 1));
    memory_reader below("");
    const owned<reader, reader_destroy> compressed(zlib_reader_create(below.lend()));
    memory_reader callers("");
    EXPECT_TRUE(_reader_gives_blocks(from_memory.get()));
    EXPECT_TRUE(_reader_gives_blocks(raw.get()));
    EXPECT_TRUE(_reader_gives_blocks(compressed.get()));
    EXPECT_FALSE(_reader_gives_blocks(callers.get()));
    // One more than there are: those that came are kept.
    std::vector<float> values(703, -1.0F);
    EXPECT_EQ(-48, field_reader(from_memory.get()).version(1).f32s(values.data(), 703).result());
    for (uint32_t i = 0; i < 702; ++i) {
        ASSERT_EQ(third_of(i), bits_of(values[i])) << i;
    }
    EXPECT_EQ(-1.0F, values[702]);
}

TEST(FieldWriter, StopsACallersWriterAtTheNumberThatFails)
{
    memory_writer target(10, -77);
    EXPECT_EQ(-77, field_writer(target.get()).f32s(1000, third_of).result());
    EXPECT_EQ(8U, target.bytes().size());
}

TEST(FieldReader, AsksACallersReaderForOneNumberACall)
{
    memory_reader source(std::string(24, '\1'));
    float singles[2] = {};
    double twice[2] = {};
    EXPECT_EQ(24, field_reader(source.get()).f32s(singles, 2).f64s(twice, 2).result());
    EXPECT_EQ((std::vector<uint32_t>{4, 4, 8, 8}), source.reads());
}

static owned_file open_bytes(std::string *bytes)
{
    return owned_file(fmemopen(bytes->data(), bytes->size(), "r"));
}

TEST(FieldReader, KeepsTheNumbersThatCameBeforeTheEnd)
{
    // 700 floats and half of one, in more than one block.
    memory_writer target;
    field_writer(target.get()).byte(1).f32s(701, third_of);
    std::string stored = target.bytes().substr(0, 1 + 700 * 4 + 2);
    for (const bool own : {false, true}) {
        const owned_file file = open_bytes(&stored);
        memory_reader callers(stored);
        const owned<reader, reader_destroy> r(own ? raw_reader_create(file.get(), 1)
                                                  : callers.lend());
        std::vector<float> values(702, -1.0F);
        EXPECT_EQ(-48, field_reader(r.get()).version(1).f32s(values.data(), 702).result());
        for (uint32_t i = 0; i < 700; ++i) {
            ASSERT_EQ(third_of(i), bits_of(values[i])) << i << (own ? " own" : " caller's");
        }
        EXPECT_EQ(-1.0F, values[700]);
        EXPECT_EQ(-1.0F, values[701]);
    }
}

TEST(FieldReader, KeepsTheNumbersThatCameBeforeAFailureOfACallersReader)
{
    memory_reader source(from_hex("3f800000 40000000"), -77);
    float values[3] = {-1, -1, -1};
    EXPECT_EQ(-77, field_reader(source.get()).f32s(values, 3).result());
    EXPECT_EQ(1.0F, values[0]);
    EXPECT_EQ(2.0F, values[1]);
    EXPECT_EQ(-1.0F, values[2]);
}

// `count` floats in one compressed stream whose last byte, of its checksum, is wrong.
static std::string compressed_with_wrong_end(uint32_t count)
{
    memory_writer target;
    writer *w = zlib_writer_create(target.lend());
    field_writer(w).f32s(count, third_of);
    writer_destroy(&w);
    std::string stored = target.bytes();
    stored.back() = static_cast<char>(stored.back() ^ 1);
    return stored;
}

// What of `count` floats comes from a stream that holds so many, with a wrong end.
static std::vector<float> read_up_to_wrong_end(uint32_t count, uint32_t first_alone)
{
    memory_reader source(compressed_with_wrong_end(count));
    const owned<reader, reader_destroy> r(zlib_reader_create(source.lend()));
    std::vector<float> values(count, -1.0F);
    field_reader fields(r.get());
    fields.f32s(values.data(), first_alone);
    EXPECT_EQ(-41, fields.f32s(values.data() + first_alone, count - first_alone).result());
    return values;
}

// The damage shows with the last float, so all before it have been read by then, however many are
// asked for in one call.
TEST(FieldReader, KeepsTheNumbersThatCameBeforeDamage)
{
    for (const uint32_t count :
         {2U, 3U, 9U, 63U, 64U, 65U, 511U, 512U, 513U, 2047U, 2049U, 5000U}) {
        for (const uint32_t first_alone : {0U, 1U}) {
            const std::vector<float> values = read_up_to_wrong_end(count, first_alone);
            for (uint32_t i = 0; i + 1 < count; ++i) {
                ASSERT_EQ(third_of(i), bits_of(values[i])) << i << " of " << count;
            }
            EXPECT_EQ(-1.0F, values[count - 1]) << count;
        }
    }
}

TEST(Fields, KeepTheBitsOfSignallingNaNs)
{
    // Signalling as they are stored, and as a machine of the other byte order sees them.
    for (const uint32_t bits : {0x7FA5873BU, 0x3B87A57FU, 0xFF800001U, 0x010080FFU}) {
        memory_writer target;
        float number = 0;
        set_bits(&number, bits);
        double twice = 0;
        set_bits(&twice, uint64_t{bits} << 32 | 1);
        field_writer(target.get())
            .f32(number)
            .f32s(1, [&](uint32_t) { return bits_of(number); })
            .f64(twice);
        EXPECT_EQ(stored_u32(bits) + stored_u32(bits) + stored_u32(bits) + stored_u32(1),
                  target.bytes());
        memory_reader source(target.bytes());
        float first = 0;
        float second = 0;
        double third = 0;
        EXPECT_EQ(16, field_reader(source.get()).f32(&first).f32s(&second, 1).f64(&third).result());
        EXPECT_EQ(bits, bits_of(first));
        EXPECT_EQ(bits, bits_of(second));
        EXPECT_EQ(bits_of(twice), bits_of(third));
    }
}
