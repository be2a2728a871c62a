// The reader that tells a failing medium from the end of a file.
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include <vesk/error.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"
#include "io/reader_internal.hpp"
#include "io/reporting_reader.hpp"

namespace
{

class ReportingReader : public testing::Test
{
protected:
    ~ReportingReader() override
    {
        if (reader_ != nullptr) {
            reader_destroy(&reader_);
        }
        close(descriptor_);
    }

    void open_file(const std::string &content)
    {
        write_file(folder_.file("data"), content);
        descriptor_ = open(folder_.file("data").c_str(), O_RDONLY | O_CLOEXEC);
        reader_ = _reporting_reader_create(descriptor_);
        ASSERT_NE(nullptr, reader_);
    }
    std::string read(uint32_t n)
    {
        std::string bytes(n, '\0');
        const int came = reader_read_bytes(reader_, bytes.data(), n);
        return came < 0 ? std::to_string(came) : bytes.substr(0, static_cast<std::size_t>(came));
    }

    temporary_directory folder_;
    int descriptor_ = -1;
    reader *reader_ = nullptr;
};

TEST_F(ReportingReader, TheEndIsKnownOnceAReadCameBackShort)
{
    open_file("abcde");
    EXPECT_EQ("abc", read(3));
    EXPECT_EQ("de", read(2));
    EXPECT_EQ(0, reader_eof(reader_));
    EXPECT_EQ("", read(1));
    EXPECT_EQ(1, reader_eof(reader_));
    EXPECT_EQ("", read(1));
}

TEST_F(ReportingReader, ReadsAcrossItsPieces)
{
    std::string content(100000, 'x');
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 7 % 251);
    }
    for (const uint32_t at_once : {1U, 37U, 16384U, 16385U, 99999U, 100000U, 200000U}) {
        open_file(content);
        std::string all;
        while (reader_eof(reader_) == 0) {
            all += read(at_once);
        }
        EXPECT_TRUE(content == all) << at_once;
        reader_destroy(&reader_);
        close(descriptor_);
    }
}

TEST_F(ReportingReader, AMediumThatFailsGives41AndMayRecover)
{
    open_file("abcde");
    {
        const failing_call failing(call_kind::read, 1);
        EXPECT_EQ("-41", read(3));
        EXPECT_EQ(0, reader_eof(reader_));
    }
    EXPECT_EQ("abc", read(3));
}

TEST_F(ReportingReader, ASignalIsNoFailure)
{
    open_file("abcde");
    const interrupted_read interrupted(1);
    EXPECT_EQ("abcde", read(5));
    EXPECT_TRUE(interrupted_read::happened());
}

TEST_F(ReportingReader, GivesBlocks)
{
    open_file("");
    EXPECT_TRUE(_reader_gives_blocks(reader_));
}

TEST_F(ReportingReader, ThereIsNoneWithoutMemory)
{
    for (int n = 1; n <= 2; ++n) {
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, _reporting_reader_create(0));
        EXPECT_EQ(QE_ERROR_NO_MEMORY, qe_get_last_error());
    }
}

} // namespace
