// Matrices and vectors as lines of text telemetry.
#include <gtest/gtest.h>
#include <limits>
#include <stdlib.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/kelt_reader.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>
#include <vesk/raw_writer.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/memory_streams.hpp"
#include "common/temporary_directory.hpp"
#include "common/time_zone.hpp"
#include "matrix/telemetry_matrix_internal.hpp"
#include "matrix/transposed_matrix_internal.hpp"

namespace
{

using owned_writer = owned<writer, writer_destroy>;

// Text is written in UTC to memory.
class KeltSerializer : public testing::Test
{
protected:
    int write(const owned_matrix &m) { return kelt_serializer_write_matrix(m.get(), w_.get()); }

    time_zone zone_{"UTC0"};
    memory_writer target_;
    owned_writer w_{kelt_writer_create(target_.lend())};
};

// One sensor whose value makes a line of `length` characters with its end, one second after the
// epoch. A value takes at most 309 digits, so there are many.
owned_matrix make_line(std::size_t length)
{
    // A timestamp and a newline, then values of ",0.000" and a longer one for the rest.
    std::size_t left = length - 18;
    std::vector<double> row;
    std::vector<std::string> names;
    while (left >= 12) {
        row.push_back(0);
        left -= 6;
    }
    // ",0.000" has 6 characters, each power of ten one more.
    double value = 1;
    for (; left > 6; --left) {
        value *= 10;
    }
    row.push_back(value);
    for (std::size_t j = 0; j < row.size(); ++j) {
        names.emplace_back("x");
    }
    return make_telemetry({row}, names, {1});
}

} // namespace

TEST_F(KeltSerializer, WritesAHeaderAndALinePerRow)
{
    const owned_matrix m = make_telemetry({{1, -2.5}, {0.0005, 1e6}}, {"fan", "psu"}, {0, 60});
    const std::string text = "19700101:00:00:00,fan,psu\n"
                             "19700101:00:00:00,1.000,-2.500\n"
                             "19700101:00:01:00,0.001,1000000.000\n";
    EXPECT_EQ(static_cast<int>(text.size()), write(m));
    EXPECT_EQ(text, target_.bytes());
    // One write a line.
    EXPECT_EQ(3U, target_.writes().size());
}

TEST_F(KeltSerializer, WritesTheHeaderOnceForTheSameSensors)
{
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    const int first = write(m);
    const int second = write(m);
    EXPECT_EQ("19700101:00:00:00,fan\n19700101:00:00:00,1.000\n19700101:00:00:00,1.000\n",
              target_.bytes());
    EXPECT_EQ(22 + 24, first);
    EXPECT_EQ(24, second);
    // In place of the header there is a write of nothing.
    EXPECT_EQ((std::vector<uint32_t>{22, 24, 0, 24}), target_.writes());
}

TEST_F(KeltSerializer, WritesAnotherHeaderForOtherSensors)
{
    write(make_telemetry({{1}}, {"fan"}, {0}));
    write(make_telemetry({{2}}, {"psu"}, {1}));
    write(make_telemetry({{3}}, {"fan"}, {2}));
    EXPECT_EQ("19700101:00:00:00,fan\n19700101:00:00:00,1.000\n"
              "19700101:00:00:01,psu\n19700101:00:00:01,2.000\n"
              "19700101:00:00:02,fan\n19700101:00:00:02,3.000\n",
              target_.bytes());
}

TEST_F(KeltSerializer, DressesRegularMatrices)
{
    const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
    EXPECT_LT(0, write(m));
    EXPECT_EQ("20070101:00:00:00,::SENSOR0,::SENSOR1\n"
              "20070101:00:00:00,1.000,2.000\n"
              "20070101:00:00:01,3.000,4.000\n",
              target_.bytes());
    EXPECT_EQ(uint32_t{MATRIX_TYPE_REGULAR}, m->type);
    EXPECT_EQ((grid{{1, 2}, {3, 4}}), elements_of(m.get()));
}

TEST_F(KeltSerializer, TurnsViewsIntoRegularMatrices)
{
    const owned_matrix m = make_view({{1, 2, 3}});
    EXPECT_LT(0, write(m));
    EXPECT_EQ("20070101:00:00:00,::SENSOR0,::SENSOR1,::SENSOR2\n"
              "20070101:00:00:00,1.000,2.000,3.000\n",
              target_.bytes());
    EXPECT_EQ(uint32_t{MATRIX_TYPE_REGULAR}, m->type);
    EXPECT_EQ((grid{{1, 2, 3}}), elements_of(m.get()));
}

TEST_F(KeltSerializer, TakesDressedMatricesOfOneWidthForTheSameSensors)
{
    write(make_matrix({{1}}));
    write(make_matrix({{2}}));
    write(make_matrix({{3, 4}}));
    EXPECT_EQ("20070101:00:00:00,::SENSOR0\n20070101:00:00:00,1.000\n20070101:00:00:00,2.000\n"
              "20070101:00:00:00,::SENSOR0,::SENSOR1\n20070101:00:00:00,3.000,4.000\n",
              target_.bytes());
}

TEST_F(KeltSerializer, WritesMissingReadingsAsNan)
{
    write(make_telemetry({{std::numeric_limits<double>::quiet_NaN()}}, {"fan"}, {0}));
    EXPECT_EQ("19700101:00:00:00,fan\n19700101:00:00:00,nan\n", target_.bytes());
}

TEST_F(KeltSerializer, WritesTheLargestNumbersInFull)
{
    const double largest = std::numeric_limits<double>::max();
    write(make_telemetry({{-largest}}, {"fan"}, {0}));
    const std::string line = target_.bytes().substr(22);
    EXPECT_EQ(17U + 1 + 1 + 309 + 4 + 1, line.size());
    EXPECT_EQ(-largest, strtod(line.c_str() + 18, nullptr));
}

TEST_F(KeltSerializer, CutsOffNamesAt255Characters)
{
    write(make_telemetry(
        {{1, 2, 3}}, {std::string(255, 'a'), std::string(256, 'b'), std::string(300, 'c')}, {0}));
    EXPECT_EQ("19700101:00:00:00," + std::string(255, 'a') + "," + std::string(255, 'b') + "," +
                  std::string(255, 'c') + "\n",
              target_.bytes().substr(0, 18 + 3 * 256));
}

TEST_F(KeltSerializer, ReportsCompressedBytesOfACompressingWriter)
{
    memory_writer target;
    const owned_writer compressing(kelt_writer_create(zlib_writer_create(target.lend())));
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    EXPECT_EQ(0, kelt_serializer_write_matrix(m.get(), compressing.get()));
}

TEST_F(KeltSerializer, StopsWritingAtTheFirstFailure)
{
    const owned_matrix m = make_telemetry({{1}, {2}}, {"fan"}, {0, 1});
    for (const int n : {1, 2, 3}) {
        memory_writer target(SIZE_MAX, -42);
        const owned_writer w(kelt_writer_create(target.lend()));
        target.fail_at(n);
        EXPECT_EQ(-42, kelt_serializer_write_matrix(m.get(), w.get()));
        EXPECT_EQ(static_cast<std::size_t>(n) - 1, target.writes().size());
    }
    // And of the write in place of a header.
    EXPECT_LT(0, write(m));
    target_.fail_at(1);
    EXPECT_EQ(-41, write(m));
}

TEST_F(KeltSerializer, LinesHaveAtMost32768Characters)
{
    const owned_matrix longest = make_line(32768);
    const int header = 18 + 2 * static_cast<int>(longest->ncols);
    EXPECT_EQ(header + 32768, write(longest));
    EXPECT_EQ(32768U, target_.writes()[1]);
    EXPECT_TRUE(target_.bytes().ends_with(",0.000,100.000\n"));
    // One more, of which the newline is the character that does not fit.
    const owned_matrix longer = make_line(32769);
    EXPECT_ABORTS(write(longer), "nbytes <= sizeof (line)");
    // A value does not fit, and more of them follow.
    const owned_matrix much_longer = make_line(40000);
    EXPECT_ABORTS(write(much_longer), "nbytes <= sizeof (line)");
}

TEST_F(KeltSerializer, HeadersHaveAtMost32768Characters)
{
    // 127 names of 255 characters, and one that fills the line up to its newline.
    std::vector<std::string> names(127, std::string(255, 'n'));
    names.emplace_back(32768 - 1 - 17 - 127 * 256 - 1, 'n');
    const std::vector<double> row(128, 0);
    EXPECT_LT(0, write(make_telemetry({row}, names, {0})));
    EXPECT_EQ(32768U, target_.writes()[0]);
    names[127] += 'n';
    const owned_matrix longer = make_telemetry({row}, names, {0});
    EXPECT_ABORTS(write(longer), "nbytes <= sizeof (line)");
}

TEST_F(KeltSerializer, WritesWhatTheReaderReads)
{
    const temporary_directory directory;
    write(make_telemetry({{1.5, 2}, {3, 4}}, {"CPU0", "fan"}, {100, 101}));
    write(make_matrix({{7}}));
    const std::string path = directory.file("telemetry");
    write_file(path, target_.bytes());
    kelt_reader *kelt = kelt_reader_open(path.c_str());
    ASSERT_NE(nullptr, kelt);
    const matrix *vector = kelt_reader_get_next_telemetry_vector(kelt);
    EXPECT_EQ((grid{{1.5, 2}}), elements_of(vector));
    EXPECT_EQ(std::vector<long>{100}, seconds_of(vector));
    vector = kelt_reader_get_next_telemetry_vector(kelt);
    EXPECT_EQ((grid{{3, 4}}), elements_of(vector));
    vector = kelt_reader_get_next_telemetry_vector(kelt);
    EXPECT_EQ((grid{{7}}), elements_of(vector));
    EXPECT_EQ(std::vector<std::string>{"::SENSOR0"}, sensors_of(vector));
    EXPECT_EQ(nullptr, kelt_reader_get_next_telemetry_vector(kelt));
    kelt_reader_close(&kelt);
}

TEST_F(KeltSerializer, LeavesNothingBehindWithoutMemory)
{
    for (int n = 1;; ++n) {
        const owned_matrix m = make_matrix({{1, 2}, {3, 4}});
        memory_writer target;
        const owned_writer w(kelt_writer_create(target.lend()));
        const failing_allocation fails(n);
        const int result = kelt_serializer_write_matrix(m.get(), w.get());
        if (!failing_allocation::happened()) {
            EXPECT_LT(0, result);
            break;
        }
        EXPECT_EQ(-22, result);
        EXPECT_EQ((grid{{1, 2}, {3, 4}}), elements_of(m.get()));
    }
}

TEST_F(KeltSerializer, RefusesOtherWritersAndTypes)
{
    memory_writer raw;
    const owned_matrix regular = make_matrix({{1}});
    const owned_matrix telemetry = make_telemetry({{1}}, {"fan"}, {0});
    for (matrix *m : {regular.get(), telemetry.get()}) {
        EXPECT_ABORTS(kelt_serializer_write_matrix(m, raw.get()),
                      "writer->type == WRITER_TYPE_KELT");
    }
    matrix m;
    matrix_init_null(&m);
    EXPECT_ABORTS(kelt_serializer_write_matrix(&m, w_.get()), "m->type > 0");
    m.type = 4;
    EXPECT_ABORTS(kelt_serializer_write_matrix(&m, w_.get()), "0");
    EXPECT_ABORTS(kelt_serializer_write_matrix(nullptr, w_.get()), "m != ((void *)0)");
    EXPECT_ABORTS(kelt_serializer_write_matrix(regular.get(), nullptr), "writer != ((void *)0)");
}

TEST_F(KeltSerializer, RefusesIncompleteTelemetry)
{
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    auto *whole = static_cast<telemetry_matrix *>(m->matrix);
    telemetry_matrix part = *whole;
    m->matrix = &part;
    part.version = 0;
    EXPECT_ABORTS(write(m), "m->version > 0");
    part = *whole;
    part.sensors = nullptr;
    EXPECT_ABORTS(write(m), "m->sensors != ((void *)0)");
    part = *whole;
    part.timestamps = nullptr;
    EXPECT_ABORTS(write(m), "m->timestamps != ((void *)0)");
    part = *whole;
    part.matrix = nullptr;
    EXPECT_ABORTS(write(m), "m->matrix != ((void *)0)");
    m->matrix = nullptr;
    EXPECT_ABORTS(write(m), "m != ((void *)0)");
    m->matrix = whole;
}

TEST(KeltSerializerPreconditions, LookAtTheMatrixAndNotOnlyAtItsRecord)
{
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    writer *w = kelt_writer_create(raw_writer_create(stdout, 1));
    m->version = 2;
    EXPECT_ABORTS(kelt_serializer_write_matrix(m.get(), w), "m->version == ((char) 1)");
    m->version = 1;
    writer_destroy(&w);
}
