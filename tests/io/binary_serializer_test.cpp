// Stored matrices of every type, byte by byte, and what readers refuse.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include <vesk/binary_serializer.h>
#include <vesk/error.h>
#include <vesk/matrix_compare.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "matrix/telemetry_matrix_internal.hpp"
#include "matrix/transposed_matrix_internal.hpp"

namespace
{

// Stored forms of 1.0, 2.0 and 3.0.
const std::string one = from_hex("3ff0000000000000");
const std::string two = from_hex("4000000000000000");
const std::string three = from_hex("4008000000000000");

std::string stored_header(uint32_t type)
{
    return from_hex("01") + stored_u32(type) + from_hex("01");
}

std::string stored_regular(uint32_t nrows, uint32_t ncols, const std::string &values)
{
    return stored_header(1) + stored_u32(nrows) + stored_u32(ncols) + values;
}

// One sensor "x", and the timestamps 0 or 1.
const std::string stored_sensor = from_hex("01 00000001 01 00000001 78");
const std::string stored_time = from_hex("01 00000001 01 00000001 00000000");
const std::string stored_telemetry =
    stored_header(3) + stored_regular(1, 1, two) + stored_sensor + stored_time;

std::string written(const matrix *m)
{
    memory_writer to;
    const int result = binary_serializer_write_matrix(m, to.get());
    EXPECT_EQ(to.bytes().size(), static_cast<std::size_t>(result));
    return to.bytes();
}

// A matrix and the result of reading it.
struct read_matrix {
    explicit read_matrix(const std::string &bytes, int failure = 0) : m(matrix_create_null())
    {
        memory_reader from(bytes, failure);
        result = binary_serializer_read_matrix(m.get(), from.get());
    }

    owned_matrix m;
    int result;
};

int read_result(const std::string &bytes, int failure = 0)
{
    return read_matrix(bytes, failure).result;
}

} // namespace

TEST(StoredMatrix, OfOneElementTakes22Bytes)
{
    const owned_matrix m = make_matrix({{1}});
    EXPECT_EQ(from_hex("01 00000001 01 00000001 00000001 3ff0000000000000"), written(m.get()));
}

TEST(StoredMatrix, HoldsRowAfterRow)
{
    const owned_matrix m = make_matrix({{1, 2}, {3, 1}});
    const std::string bytes = stored_regular(2, 2, one + two + three + one);
    EXPECT_EQ(bytes, written(m.get()));
    const read_matrix back(bytes);
    EXPECT_EQ(static_cast<int>(bytes.size()), back.result);
    EXPECT_EQ(uint32_t{MATRIX_TYPE_REGULAR}, back.m->type);
    EXPECT_EQ((grid{{1, 2}, {3, 1}}), elements_of(back.m.get()));
}

TEST(StoredMatrix, HoldsLongRows)
{
    grid rows(3, std::vector<double>(1000));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t j = 0; j < rows[i].size(); ++j) {
            rows[i][j] = static_cast<double>(i * 1000 + j) / 3;
        }
    }
    const owned_matrix m = make_matrix(rows);
    const read_matrix back(written(m.get()));
    EXPECT_EQ(14 + 8 * 3000, back.result);
    EXPECT_EQ(rows, elements_of(back.m.get()));
}

TEST(StoredMatrix, OfAViewIsItsSource)
{
    const owned_matrix view = make_view({{1, 1}, {2, 3}, {3, 2}});
    const std::string bytes =
        stored_header(2) + stored_regular(2, 3, one + two + three + one + three + two);
    EXPECT_EQ(bytes, written(view.get()));
    const read_matrix back(bytes);
    EXPECT_EQ(static_cast<int>(bytes.size()), back.result);
    EXPECT_EQ(uint32_t{MATRIX_TYPE_TRANSPOSED}, back.m->type);
    EXPECT_EQ((grid{{1, 1}, {2, 3}, {3, 2}}), elements_of(back.m.get()));
}

TEST(StoredMatrix, OfTelemetryIsItsValuesSensorsAndTimestamps)
{
    const owned_matrix m = make_telemetry({{2}}, {"x"}, {1});
    EXPECT_EQ(stored_telemetry, written(m.get()));
    const read_matrix back(stored_telemetry);
    EXPECT_EQ(static_cast<int>(stored_telemetry.size()), back.result);
    EXPECT_EQ(1, telemetry_matrix_is_equal(m.get(), back.m.get()));
    // Direct access works, too.
    EXPECT_EQ(2.0, back.m->values[0][0]);
}

TEST(StoredMatrix, NestsViewsAndTelemetry)
{
    const owned_matrix view(
        transposed_matrix_create(make_telemetry({{1, 2}}, {"a", "b"}, {7}).release()));
    const read_matrix back(written(view.get()));
    EXPECT_LT(0, back.result);
    EXPECT_EQ((grid{{1}, {2}}), elements_of(back.m.get()));
    const auto *tmatrix = static_cast<const transposed_matrix *>(back.m->matrix);
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), sensors_of(tmatrix->matrix));
    EXPECT_EQ(std::vector<long>{7}, seconds_of(tmatrix->matrix));
}

TEST(StoredMatrix, HasAtMostTenThousandRowsAndColumns)
{
    for (const bool tall : {true, false}) {
        const owned_matrix longest(tall ? matrix_create(10000, 1) : matrix_create(1, 10000));
        const std::string bytes = written(longest.get());
        EXPECT_EQ(80014U, bytes.size());
        EXPECT_EQ(80014, read_result(bytes));

        const owned_matrix longer(tall ? matrix_create(10001, 1) : matrix_create(1, 10001));
        memory_writer to;
        EXPECT_EQ(-49, binary_serializer_write_matrix(longer.get(), to.get()));
        // The outer header and the version of the body stay behind.
        EXPECT_EQ(stored_header(1), to.bytes());
    }
}

TEST(StoredMatrix, RefusesDimensionsOutOfRange)
{
    for (const uint32_t n : {0U, 10001U, 0xffffffffU}) {
        EXPECT_EQ(-6, read_result(stored_regular(n, 1, one)));
        EXPECT_EQ(-6, read_result(stored_regular(1, n, one)));
    }
}

TEST(StoredMatrix, RefusesUnknownTypes)
{
    for (const uint32_t type : {0U, 4U, 0x01000000U}) {
        EXPECT_EQ(-6, read_result(stored_header(type)));
    }
}

TEST(StoredMatrix, RefusesUnknownVersions)
{
    EXPECT_EQ(-12, read_result(from_hex("02")));
    EXPECT_EQ(-12, read_result(from_hex("00")));
    for (const uint32_t type : {1U, 2U, 3U}) {
        EXPECT_EQ(-12, read_result(from_hex("01") + stored_u32(type) + from_hex("02")));
    }
    // Of what is nested.
    EXPECT_EQ(-12, read_result(stored_header(2) + from_hex("02")));
    EXPECT_EQ(-12, read_result(stored_header(3) + from_hex("02")));
}

TEST(StoredMatrix, RefusesLabelsThatDoNotFit)
{
    EXPECT_EQ(-6, read_result(stored_header(3) + stored_regular(1, 2, one + two) + stored_sensor +
                              stored_time));
    EXPECT_EQ(-6, read_result(stored_header(3) + stored_regular(2, 1, one + two) + stored_sensor +
                              stored_time));
}

TEST(StoredMatrix, PassesOnWhatIsWrongWithLabels)
{
    const std::string values = stored_header(3) + stored_regular(1, 1, one);
    EXPECT_EQ(-49, read_result(values + from_hex("01 00000000")));
    EXPECT_EQ(-49, read_result(values + stored_sensor + from_hex("01 00002711")));
    EXPECT_EQ(-6,
              read_result(values + stored_sensor + from_hex("01 00000001 01 00000001 00000001")));
}

TEST(StoredMatrix, TellsTheEndOfTheDataFromATornForm)
{
    const std::string view = stored_header(2) + stored_regular(1, 2, one + two);
    for (const std::string &whole :
         {stored_regular(2, 1, one + two), view, stored_header(2) + view, stored_telemetry}) {
        EXPECT_EQ(static_cast<int>(whole.size()), read_result(whole));
        // Right behind the version and the length of a name, strings have results of their own.
        const std::size_t name = whole == stored_telemetry ? whole.find('x') : 0;
        for (std::size_t length = 0; length < whole.size(); ++length) {
            if (name != 0 && length == name) {
                EXPECT_ABORTS(read_result(whole.substr(0, length)), "nread != 0");
                continue;
            }
            const int torn = name != 0 && length == name - 4 ? -43 : -48;
            EXPECT_EQ(length == 0 ? 0 : torn, read_result(whole.substr(0, length))) << length;
            EXPECT_EQ(-41, read_result(whole.substr(0, length), -41)) << length;
        }
    }
}

TEST(StoredMatrix, StopsWritingAtTheFirstFailure)
{
    const owned_matrix regular = make_matrix({{1, 2}});
    const owned_matrix view = make_view({{1, 2}});
    const owned_matrix telemetry = make_telemetry({{2}}, {"x"}, {1});
    for (const matrix *m : {regular.get(), view.get(), telemetry.get()}) {
        const std::string whole = written(m);
        for (std::size_t capacity = 0; capacity < whole.size(); ++capacity) {
            memory_writer to(capacity, -42);
            EXPECT_EQ(-42, binary_serializer_write_matrix(m, to.get()));
            EXPECT_EQ(whole.substr(0, to.bytes().size()), to.bytes());
        }
    }
}

TEST(StoredMatrix, LeavesNothingBehindWithoutMemory)
{
    for (const std::string &whole :
         {stored_regular(2, 1, one + two), stored_header(2) + stored_regular(2, 1, one + two),
          stored_telemetry}) {
        for (int n = 1;; ++n) {
            owned_matrix m(matrix_create_null());
            memory_reader from(whole);
            const failing_allocation fails(n);
            const int result = binary_serializer_read_matrix(m.get(), from.get());
            if (!failing_allocation::happened()) {
                EXPECT_EQ(static_cast<int>(whole.size()), result);
                break;
            }
            EXPECT_EQ(-22, result);
            // The caller can destroy it.
            EXPECT_EQ(1, m->version);
        }
    }
}

TEST(StoredMatrix, MayBeAbsent)
{
    memory_writer to;
    EXPECT_EQ(1, binary_serializer_write_optional_matrix(nullptr, to.get()));
    EXPECT_EQ(from_hex("00"), to.bytes());
    memory_reader from(to.bytes());
    matrix untouched = {};
    matrix *m = &untouched;
    EXPECT_EQ(1, binary_serializer_read_optional_matrix(&m, from.get()));
    EXPECT_EQ(nullptr, m);
}

TEST(StoredMatrix, MayBePresent)
{
    const owned_matrix m = make_matrix({{1, 2}});
    memory_writer to;
    EXPECT_EQ(31, binary_serializer_write_optional_matrix(m.get(), to.get()));
    EXPECT_EQ(from_hex("01") + stored_regular(1, 2, one + two), to.bytes());
    memory_reader from(to.bytes());
    matrix *back = nullptr;
    EXPECT_EQ(31, binary_serializer_read_optional_matrix(&back, from.get()));
    EXPECT_EQ(1, matrix_is_equal(m.get(), back));
    matrix_destroy(&back);
}

TEST(StoredMatrix, ThatIsOptionalIsNullAfterAFailure)
{
    const std::string whole = from_hex("01") + stored_regular(1, 1, one);
    for (const auto &[bytes, code] :
         std::vector<std::pair<std::string, int>>{{"", 0},
                                                  {from_hex("02"), -6},
                                                  {from_hex("ff"), -6},
                                                  {from_hex("01"), -48},
                                                  {whole.substr(0, 10), -48},
                                                  {from_hex("01 02"), -12},
                                                  {from_hex("01 01 00000004"), -6}}) {
        matrix untouched = {};
        matrix *m = &untouched;
        memory_reader from(bytes);
        EXPECT_EQ(code, binary_serializer_read_optional_matrix(&m, from.get()));
        EXPECT_EQ(nullptr, m);
    }
    for (int n = 1;; ++n) {
        matrix *m = nullptr;
        memory_reader from(whole);
        const failing_allocation fails(n);
        const int result = binary_serializer_read_optional_matrix(&m, from.get());
        if (!failing_allocation::happened()) {
            matrix_destroy(&m);
            break;
        }
        EXPECT_EQ(-22, result);
        EXPECT_EQ(nullptr, m);
    }
    const owned_matrix m = make_matrix({{1}});
    for (const std::size_t capacity : {0U, 1U, 22U}) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_optional_matrix(m.get(), to.get()));
    }
}

TEST(StoredMatrix, RefusesIncompleteObjects)
{
    memory_writer to;
    memory_reader from("");
    matrix m;
    matrix_init_null(&m);
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "m->type > 0");
    m.type = MATRIX_TYPE_REGULAR;
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "m->values != ((void *)0)");
    m.type = MATRIX_TYPE_TRANSPOSED;
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "m->matrix != ((void *)0)");
    m.type = MATRIX_TYPE_TELEMETRY;
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "m->matrix != ((void *)0)");
    m.type = 4;
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "0");
    m.matrix = &m;
    EXPECT_ABORTS(binary_serializer_read_matrix(&m, from.get()), "m->matrix == ((void *)0)");
    m.version = 0;
    EXPECT_ABORTS(binary_serializer_write_matrix(&m, to.get()), "m->version == 1");
    EXPECT_ABORTS(binary_serializer_write_optional_matrix(&m, to.get()), "m->version == 1");
    EXPECT_ABORTS(binary_serializer_read_matrix(&m, from.get()), "m->version == 1");
}

TEST(StoredMatrix, RefusesNull)
{
    const owned_matrix m = make_matrix({{1}});
    const owned_matrix null_record(matrix_create_null());
    matrix *none = nullptr;
    memory_writer to;
    memory_reader from("");
    EXPECT_ABORTS(binary_serializer_write_matrix(nullptr, to.get()), "m != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_matrix(m.get(), nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_matrix(nullptr, from.get()), "m != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_matrix(null_record.get(), nullptr),
                  "reader != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_optional_matrix(m.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_optional_matrix(nullptr, from.get()), "m != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_optional_matrix(&none, nullptr), "reader != ((void *)0)");
}
