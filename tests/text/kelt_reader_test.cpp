// The reader of text telemetry: what it takes, what it refuses, and where it ends the process.
#include <cmath>
#include <gtest/gtest.h>
#include <set>
#include <stdlib.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/kelt_reader.h>
#include <vesk/telemetry_matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/temporary_directory.hpp"
#include "common/time_zone.hpp"

namespace
{

const std::string header_line = "20070101:00:00:00,::SENSOR0,::SENSOR1\n";
const std::string data_line = "20070101:00:00:00,1.000,2.500\n";

// A file of text with a reader on it, in UTC.
class KeltReader : public testing::Test
{
protected:
    // Whether the text can be opened; the code is in the last-error cell.
    bool open(const std::string &text)
    {
        close();
        write_file(path_, text);
        qe_set_last_error(0);
        reader_ = kelt_reader_open(path_.c_str());
        return reader_ != nullptr;
    }
    // The code with which opening fails, or 0.
    int open_error(const std::string &text) { return open(text) ? 0 : qe_get_last_error(); }

    const matrix *next()
    {
        qe_set_last_error(0);
        return kelt_reader_get_next_telemetry_vector(reader_);
    }
    // The values of the next line, empty when there are none.
    std::vector<double> next_values()
    {
        const matrix *vector = next();
        return vector == nullptr ? std::vector<double>() : elements_of(vector)[0];
    }
    std::vector<std::string> sensors() const { return sensors_of(reader_->vector); }

    void close()
    {
        if (reader_ != nullptr) {
            kelt_reader_close(&reader_);
        }
    }
    void TearDown() override { close(); }

    time_zone zone_{"UTC0"};
    temporary_directory directory_;
    std::string path_ = directory_.file("telemetry");
    kelt_reader *reader_ = nullptr;
};

} // namespace

TEST_F(KeltReader, ReadsVectorsLineByLine)
{
    ASSERT_TRUE(open(header_line + data_line + "20070101:00:00:01,-3,4e2\n"));
    EXPECT_EQ(2U, kelt_reader_get_number_sensors(reader_));
    EXPECT_EQ(telemetry_matrix_get_sensors(reader_->vector), kelt_reader_get_sensors(reader_));
    EXPECT_EQ((std::vector<std::string>{"::SENSOR0", "::SENSOR1"}), sensors());
    const matrix *vector = next();
    EXPECT_EQ(vector, reader_->vector);
    EXPECT_EQ(uint32_t{MATRIX_TYPE_TELEMETRY}, vector->type);
    EXPECT_EQ((grid{{1, 2.5}}), elements_of(vector));
    EXPECT_EQ(std::vector<long>{1167609600}, seconds_of(vector));
    // The next vector is the same object.
    EXPECT_EQ(vector, next());
    EXPECT_EQ((grid{{-3, 400}}), elements_of(vector));
    EXPECT_EQ(std::vector<long>{1167609601}, seconds_of(vector));
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(0, qe_get_last_error());
    EXPECT_EQ(nullptr, next());
}

TEST_F(KeltReader, OpensAFileWithoutData)
{
    ASSERT_TRUE(open(header_line));
    EXPECT_EQ((grid{{0, 0}}), elements_of(reader_->vector));
    EXPECT_EQ(std::vector<long>{0}, seconds_of(reader_->vector));
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(0, qe_get_last_error());
}

TEST_F(KeltReader, RoundsValuesToSinglePrecision)
{
    ASSERT_TRUE(open("20070101:00:00:00,CPU0\n20070101:00:00:00,0.1\n20070101:00:00:00,hot\n"));
    EXPECT_EQ(std::vector<double>{static_cast<double>(0.1F)}, next_values());
    EXPECT_EQ(std::vector<double>{0}, next_values());
}

TEST_F(KeltReader, ReadsMissingReadings)
{
    ASSERT_TRUE(open("20070101:00:00:00,CPU0\n20070101:00:00:00,nan\n"));
    EXPECT_TRUE(std::isnan(next_values()[0]));
}

TEST_F(KeltReader, FollowsHeadersInTheMiddleOfTheFile)
{
    ASSERT_TRUE(open(header_line + data_line + "20070101:00:00:05,CPU0,CPU1,CPU2\n" +
                     "20070101:00:00:05,1,2,3\n" + "20070101:00:00:06,DISK0\n" + header_line +
                     data_line));
    EXPECT_EQ((std::vector<double>{1, 2.5}), next_values());
    EXPECT_EQ((std::vector<double>{1, 2, 3}), next_values());
    EXPECT_EQ((std::vector<std::string>{"CPU0", "CPU1", "CPU2"}), sensors());
    EXPECT_EQ(3U, kelt_reader_get_number_sensors(reader_));
    // Two headers in a row: the second one holds.
    EXPECT_EQ((std::vector<double>{1, 2.5}), next_values());
    EXPECT_EQ((std::vector<std::string>{"::SENSOR0", "::SENSOR1"}), sensors());
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(0, qe_get_last_error());
}

TEST_F(KeltReader, ToleratesCarriageReturns)
{
    ASSERT_TRUE(open("20070101:00:00:00,CPU0,CPU1\r\n20070101:00:00:00,1,2\r\n"));
    EXPECT_EQ((std::vector<std::string>{"CPU0", "CPU1"}), sensors());
    EXPECT_EQ((std::vector<double>{1, 2}), next_values());
    EXPECT_EQ(nullptr, next());
}

TEST_F(KeltReader, DoesNotNeedTheLastNewline)
{
    ASSERT_TRUE(open("20070101:00:00:00,CPU0\n20070101:00:00:00,7"));
    EXPECT_EQ(std::vector<double>{7}, next_values());
    EXPECT_EQ(nullptr, next());
    ASSERT_TRUE(open("20070101:00:00:00,CPU0"));
    EXPECT_EQ(std::vector<std::string>{"CPU0"}, sensors());
    EXPECT_EQ(nullptr, next());
}

TEST_F(KeltReader, TakesCommasInARowForOne)
{
    ASSERT_TRUE(open("20070101:00:00:00,,CPU0,,,CPU1,\n,20070101:00:00:00,,1,,2,\n"));
    EXPECT_EQ((std::vector<std::string>{"CPU0", "CPU1"}), sensors());
    EXPECT_EQ((std::vector<double>{1, 2}), next_values());
}

TEST_F(KeltReader, KnowsHeadersByTheirWords)
{
    const std::set<std::string> words = {
        "SSC",  "ssc",  "SB",   "sb",  "Temp", "temp", "PS",    "ps",    "VDC",    "vdc",   "N0",
        "n0",   "CORE", "core", "CPU", "cpu",  "DISK", "disk",  "READ",  "read",   "WRITE", "write",
        "IDLE", "idle", "V_",   "v_",  "T_",   "t_",   "POWER", "power", "PACKET", "packet"};
    ASSERT_EQ(32U, words.size());
    for (const std::string &word : words) {
        const std::string name = "x" + word + "y";
        EXPECT_EQ(0, open_error("20070101:00:00:00," + name + "\n")) << word;
        EXPECT_EQ(std::vector<std::string>{name}, sensors());
        // Anywhere behind the first character that is not of data.
        EXPECT_EQ(0, open_error("20070101:00:00:00,q,7," + name + "\n")) << word;
        // Not half a word, and not in other letters.
        const std::string half = word.substr(0, word.size() - 1);
        EXPECT_EQ(-6, open_error("20070101:00:00:00,x" + half + "y\n")) << half;
        std::string other = word;
        other[0] = static_cast<char>(other[0] ^ 0x20);
        EXPECT_EQ(words.count(other) != 0 ? 0 : -6,
                  open_error("20070101:00:00:00,x" + other + "y\n"))
            << other;
    }
}

TEST_F(KeltReader, KnowsHeadersByTwoColonsBeforeAName)
{
    EXPECT_EQ(0, open_error("20070101:00:00:00,::x\n"));
    EXPECT_EQ(0, open_error("20070101:00:00:00,1,::x\n"));
    EXPECT_EQ(-6, open_error("20070101:00:00:00,:x\n"));
    EXPECT_EQ(-6, open_error("20070101:00:00:00,x\n"));
    // Looked for at one place only.
    EXPECT_EQ(-6, open_error("20070101:00:00:00,x,::y\n"));
    EXPECT_EQ(-6, open_error("20070101:00:00:00,::1x\n"));
}

TEST_F(KeltReader, TakesOtherTextForData)
{
    ASSERT_TRUE(open("20070101:00:00:00,CPU0\n20070101:00:00:00,fan\n"));
    EXPECT_EQ(std::vector<double>{0}, next_values());
    EXPECT_EQ(std::vector<std::string>{"CPU0"}, sensors());
}

TEST_F(KeltReader, NeedsAHeaderFirst)
{
    EXPECT_EQ(-6, open_error(data_line + header_line));
    EXPECT_EQ(-6, open_error("\n" + header_line));
    EXPECT_EQ(-6, open_error("20070101:00:00:00,\n"));
    EXPECT_EQ(-6, open_error(std::string("\0\n", 2)));
}

TEST_F(KeltReader, NeedsSensorsInAHeader)
{
    EXPECT_EQ(-6, open_error("20070101:00:00:00:CPU\n"));
    ASSERT_TRUE(open(header_line + "20070101:00:00:00:CPU\n" + data_line));
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(-6, qe_get_last_error());
    // The sensors are unknown from there on.
    EXPECT_EQ(nullptr, reader_->vector);
    EXPECT_ABORTS(next(), "kelt->vector != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_get_number_sensors(reader_), "kelt->vector != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_get_sensors(reader_), "kelt->vector != ((void *)0)");
}

TEST_F(KeltReader, RefusesAnEmptyFile)
{
    EXPECT_EQ(-44, open_error(""));
}

TEST_F(KeltReader, RefusesAFileThatIsNotThere)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, kelt_reader_open(directory_.file("absent").c_str()));
    EXPECT_EQ(-40, qe_get_last_error());
}

TEST_F(KeltReader, RefusesMoreValuesThanSensors)
{
    ASSERT_TRUE(open(header_line + "20070101:00:00:00,1,2,3\n" + data_line));
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(-6, qe_get_last_error());
    // The next line can be read.
    EXPECT_EQ((std::vector<double>{1, 2.5}), next_values());
}

TEST_F(KeltReader, AbortsOnFewerValuesThanSensors)
{
    ASSERT_TRUE(open(header_line + "20070101:00:00:00,1\n"));
    EXPECT_ABORTS(next(), "nvalues == nsensors");
    ASSERT_TRUE(open(header_line + "20070101:00:00:00\n"));
    EXPECT_ABORTS(next(), "nvalues == nsensors");
}

TEST_F(KeltReader, RefusesEmptyLines)
{
    for (const char *line : {"\n", ",\n", ",,,\n"}) {
        std::string text = header_line;
        text.append(line).append(data_line);
        ASSERT_TRUE(open(text));
        EXPECT_EQ(nullptr, next());
        EXPECT_EQ(-6, qe_get_last_error());
        EXPECT_EQ((std::vector<double>{1, 2.5}), next_values());
    }
}

TEST_F(KeltReader, RefusesMalformedTimestamps)
{
    ASSERT_TRUE(open(header_line + "20071301:00:00:00,1,2\n" + "1,2\n" + data_line));
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(-11, qe_get_last_error());
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(-11, qe_get_last_error());
    EXPECT_EQ((std::vector<double>{1, 2.5}), next_values());
}

TEST_F(KeltReader, AbortsOnTextInPlaceOfATimestamp)
{
    EXPECT_ABORTS(open("CPU0,CPU1\n"), "p >= line + 18");
    EXPECT_ABORTS(open("20070101:00:00:00CPU\n"), "p >= line + 18");
    EXPECT_ABORTS(open("\r\n"), "p >= line + 18");
    ASSERT_TRUE(open(header_line + "\r\n"));
    EXPECT_ABORTS(next(), "p >= line + 18");
    ASSERT_TRUE(open(header_line + " " + data_line));
    EXPECT_ABORTS(next(), "p >= line + 18");
}

TEST_F(KeltReader, AbortsOnAFileThatCannotBeRead)
{
    ASSERT_TRUE(open(header_line));
    FILE *whole = reader_->fp;
    reader_->fp = fopen(directory_.path().c_str(), "r");
    EXPECT_ABORTS(next(), "feof (kelt->fp)");
    (void)fclose(reader_->fp);
    reader_->fp = whole;
    // Before the header there is no difference to an empty file.
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, kelt_reader_open(directory_.path().c_str()));
    EXPECT_EQ(-44, qe_get_last_error());
}

TEST_F(KeltReader, ReadsLinesOf65535Characters)
{
    // With its newline; the last name takes what is left.
    std::string line = "20070101:00:00:00,";
    while (line.size() < 65000) {
        line += "CPU,";
    }
    line += "CPU" + std::string(65534 - line.size() - 3, 'x') + "\n";
    ASSERT_EQ(65535U, line.size());
    ASSERT_TRUE(open(line));
    const uint32_t nsensors = kelt_reader_get_number_sensors(reader_);
    std::string values = "20070101:00:00:00";
    for (uint32_t j = 0; j < nsensors; ++j) {
        values += ",1";
    }
    ASSERT_TRUE(open(line + values + "\n"));
    EXPECT_EQ(std::vector<double>(nsensors, 1), next_values());
    EXPECT_EQ(nullptr, next());
}

TEST_F(KeltReader, TakesTheRestOfALongerLineForAnother)
{
    std::string line = "20070101:00:00:00,CPU";
    line += std::string(65535 - line.size(), 'x');
    ASSERT_TRUE(open(line + "20070101:00:00:00,8\n"));
    EXPECT_EQ(1U, kelt_reader_get_number_sensors(reader_));
    EXPECT_EQ(std::vector<double>{8}, next_values());
}

TEST_F(KeltReader, LeavesTheFileWithTheCaller)
{
    write_file(path_, header_line + data_line);
    FILE *fp = fopen(path_.c_str(), "r");
    kelt_reader *kelt = kelt_reader_open_from_fp(fp);
    ASSERT_NE(nullptr, kelt);
    EXPECT_NE(nullptr, kelt_reader_get_next_telemetry_vector(kelt));
    kelt_reader_close(&kelt);
    EXPECT_EQ(nullptr, kelt);
    // Still open, also after a failure.
    EXPECT_EQ(nullptr, kelt_reader_open_from_fp(fp));
    EXPECT_EQ(-44, qe_get_last_error());
    EXPECT_EQ(0, fclose(fp));
}

TEST_F(KeltReader, LeavesNothingBehindWithoutMemory)
{
    write_file(path_, header_line + data_line);
    FILE *fp = fopen(path_.c_str(), "r");
    for (int n = 1;; ++n) {
        rewind(fp);
        const failing_allocation fails(n);
        qe_set_last_error(0);
        kelt_reader *kelt = kelt_reader_open_from_fp(fp);
        if (kelt != nullptr) {
            EXPECT_LT(10, n);
            kelt_reader_close(&kelt);
            break;
        }
        EXPECT_EQ(-22, qe_get_last_error());
    }
    (void)fclose(fp);
}

TEST_F(KeltReader, ReportsMissingMemoryForTheNextVector)
{
    const std::string text = header_line + data_line + data_line;
    ASSERT_TRUE(open(text));
    for (int n = 1;; ++n) {
        const failing_allocation fails(n);
        const matrix *vector = next();
        if (!failing_allocation::happened()) {
            EXPECT_NE(nullptr, vector);
            break;
        }
        EXPECT_EQ(nullptr, vector);
        EXPECT_EQ(-22, qe_get_last_error());
        ASSERT_TRUE(open(text));
    }
}

TEST_F(KeltReader, HasNoVectorAfterAHeaderWithoutMemory)
{
    ASSERT_TRUE(open(header_line + "20070101:00:00:05,CPU0\n"));
    {
        const failing_allocation fails(1);
        EXPECT_EQ(nullptr, next());
        EXPECT_EQ(-22, qe_get_last_error());
    }
    EXPECT_ABORTS(next(), "kelt->vector != ((void *)0)");
}

TEST_F(KeltReader, RefusesNull)
{
    kelt_reader *none = nullptr;
    EXPECT_ABORTS(kelt_reader_open(nullptr), "path != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_open_from_fp(nullptr), "fp != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_close(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_close(&none), "*reader != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_get_next_telemetry_vector(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_get_number_sensors(nullptr), "kelt != ((void *)0)");
    EXPECT_ABORTS(kelt_reader_get_sensors(nullptr), "kelt != ((void *)0)");
}
