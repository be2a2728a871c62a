// Every damage of one kind that the bytes of a small buffer can have: what the tests of damaged
// current buffers and history buffers share. Each damaged form is handed to `check`, and all the
// checks together may leave no file open.
#ifndef VESK_TESTS_BUFFERS_DAMAGED_BYTES_HPP
#define VESK_TESTS_BUFFERS_DAMAGED_BYTES_HPP

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

#include "common/open_files.hpp"
#include "common/zlib_streams.hpp"

// What all the streams of a file decompress to.
inline std::string content_of(const std::string &file)
{
    std::string content;
    for (const std::string &part : zlib_contents(file)) {
        content += part;
    }
    return content;
}

// The bytes end anywhere.
template <typename Check>
void for_every_end(const std::string &bytes, const Check &check)
{
    const auto before = count_open_files();
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        SCOPED_TRACE(size);
        check(bytes.substr(0, size));
    }
    EXPECT_EQ(before, count_open_files());
}

// One bit of them is another.
template <typename Check>
void for_every_flipped_bit(const std::string &bytes, const Check &check)
{
    const auto before = count_open_files();
    for (std::size_t i = 0; i < bytes.size() * 8; ++i) {
        SCOPED_TRACE(testing::Message() << "byte " << i / 8 << " bit " << i % 8);
        std::string damaged = bytes;
        damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ 1 << i % 8);
        check(damaged);
    }
    EXPECT_EQ(before, count_open_files());
}

// One byte of them is changed in one of four ways.
template <typename Check>
void for_every_changed_byte(const std::string &bytes, const Check &check)
{
    const auto before = count_open_files();
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (const int mask : {1, 2, 0x80, 0xff}) {
            SCOPED_TRACE(testing::Message() << "byte " << i << " mask " << mask);
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ mask);
            check(damaged);
        }
    }
    EXPECT_EQ(before, count_open_files());
}

#endif
