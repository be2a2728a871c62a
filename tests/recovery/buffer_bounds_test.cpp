// What one file of a box may cost: the fixed parts are shared by all of its files, and a stream has
// a longest content.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"
#include "recovery/buffer_mender.hpp"
#include "recovery/recovery_steps.hpp"
#include "recovery/scan_limits.hpp"

namespace
{

namespace fs = std::filesystem;

// The stored forms, spelt out without the library.
std::string stored_number(std::size_t n)
{
    std::string bytes;
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        bytes += static_cast<char>((n >> shift) & 0xffU);
    }
    return bytes;
}

const std::string header = stored_number(1) + '\1' + stored_number(4);

std::string stored_names(const std::vector<std::string> &names)
{
    std::string record = stored_number(1) + '\1' + '\1' + stored_number(1000) + stored_number(0) +
                         '\1' + stored_number(names.size());
    for (const std::string &name : names) {
        record += '\1' + stored_number(name.size()) + name;
    }
    return record;
}

class BufferBounds : public testing::Test
{
protected:
    std::string file() const { return folder_.file("r.1.cbuf.z"); }

    buffer_contents contents_of(std::size_t files_of_box) const
    {
        const std::string path = file();
        buffer_expectation expected;
        expected.kind = VESK_BUFFER_TYPE_CURRENT;
        expected.files_of_box = files_of_box;
        buffer_contents contents;
        EXPECT_EQ(0, _vesk_mend_buffer(path.c_str(), expected, {ignore_step, nullptr}, nullptr,
                                       &contents));
        return contents;
    }

private:
    temporary_directory folder_;
};

TEST_F(BufferBounds, TheFilesOfABoxShareTheFixedPart)
{
    for (const std::size_t n : {1U, 3U, 8U, 9U, 1000U, 100000U}) {
        EXPECT_LE(n * fixed_part_of_file(n), fixed_part_of_box) << n;
    }
    // A recovery that deletes files of a usual box, or makes one, judges the others as before.
    for (std::size_t n = 1; n <= usual_files_of_box; ++n) {
        EXPECT_EQ(fixed_part_of_file(1), fixed_part_of_file(n)) << n;
    }
}

// Thousands of equal names take a hundred bytes on the disk and a thousand times that in memory.
TEST_F(BufferBounds, ManySmallFilesCostNoMoreThanOneTogether)
{
    const std::vector<std::string> names(4000, "a");
    write_file(file(), compressed_stream(header + stored_names(names)));
    ASSERT_LT(fs::file_size(file()), 200U);
    EXPECT_EQ(0U, contents_of(3).records_aside);
    EXPECT_EQ(1U, contents_of(1000).records_aside);
}

// The memory that a stream asks for is a multiple of what it takes on the disk, and 8 MB.
TEST_F(BufferBounds, AShortStreamHasAContentOfEightMegabytesAtMost)
{
    for (const std::size_t megabytes : {7U, 20U}) {
        const std::string content(megabytes << 20U, '\0');
        write_file(file(), compressed_stream(content));
        const buffer_contents contents = contents_of(1);
        // Zeros are no records: a content that is looked at is set aside, and one that is not is
        // cut.
        EXPECT_EQ(megabytes < 8 ? 1U : 0U, contents.records_aside) << megabytes;
        EXPECT_EQ(fs::file_size(file()), contents.bytes_aside) << megabytes;
    }
}

TEST_F(BufferBounds, ALongContentIsBelievedWhenItIsStoredAtLength)
{
    std::vector<std::string> names;
    for (uint32_t i = 0; i < 2000; ++i) {
        std::string name = noise(7000, i + 1);
        std::replace(name.begin(), name.end(), '\0', '0');
        names.push_back(name);
    }
    write_file(file(), compressed_stream(header + stored_names(names)));
    ASSERT_GT(fs::file_size(file()), 8U << 20U);
    EXPECT_EQ(0U, contents_of(1).steps);
}

} // namespace
