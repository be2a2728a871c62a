// The state file as it is written, and the checksum of its copy.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/vesk_limits.h>

#include "box/state_file.hpp"

namespace
{

// The stored forms, spelt out without the library.
std::string stored_u32(uint32_t n)
{
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>((n >> static_cast<unsigned>(shift)) & 0xffU);
    }
    return bytes;
}

std::string stored_string(const std::string &text)
{
    return stored_u32(static_cast<uint32_t>(text.size())) + text;
}

std::string written_head(const state_head &head)
{
    byte_list bytes;
    byte_list_writer target(&bytes);
    field_writer fields(target.get());
    write_state_head(head, &fields);
    EXPECT_FALSE(fields.failed());
    return {reinterpret_cast<const char *>(bytes.begin()), bytes.size()};
}

// A whole state file of a stage, with names of that many buffers.
std::string state_of(uint32_t stage, uint32_t samples = 8, uint32_t intervals = 4)
{
    std::string state = written_head({"r", "r.state", stage, samples, intervals,
                                      intervals != 0 ? samples / intervals : 0, 9}) +
                        '\1';
    const uint32_t names = stage == VESK_ZCF_STATE_HCC ? 3 : stage;
    for (uint32_t i = 0; i < names; ++i) {
        state += stored_string("r." + std::to_string(i + 1) + ".cbuf.z");
    }
    return state;
}

TEST(StateFile, TheHeadIsWrittenFieldByField)
{
    EXPECT_EQ('\1' + stored_string("base") + stored_string("base.state") + stored_u32(3) +
                  stored_u32(40) + stored_u32(4) + stored_u32(10) + stored_u32(77),
              written_head({"base", "base.state", 3, 40, 4, 10, 77}));
}

// --- the copy

copy_checksum check(const std::string &bytes, std::size_t state_size)
{
    return _vesk_check_copy(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
                            state_size);
}

TEST(StateFile, ACopyTellsWhetherAByteOfItHasChanged)
{
    const std::string state = state_of(VESK_ZCF_STATE_CC0);
    byte_list bytes;
    ASSERT_TRUE(bytes.append(reinterpret_cast<const unsigned char *>(state.data()), state.size()));
    ASSERT_TRUE(_vesk_append_copy_checksum(&bytes));
    const std::string copy(reinterpret_cast<const char *>(bytes.begin()), bytes.size());
    EXPECT_EQ(state.size() + copy_checksum_size, copy.size());
    EXPECT_EQ(state, copy.substr(0, state.size()));
    EXPECT_EQ("VSKC", copy.substr(state.size(), 4));
    EXPECT_EQ(copy_checksum::right, check(copy, state.size()));
    for (std::size_t i = 0; i < copy.size(); ++i) {
        std::string changed = copy;
        changed[i] = static_cast<char>(changed[i] ^ 4);
        EXPECT_EQ(copy_checksum::wrong, check(changed, state.size())) << i;
    }
    for (std::size_t size = state.size() + 1; size < copy.size(); ++size) {
        EXPECT_EQ(copy_checksum::wrong, check(copy.substr(0, size), state.size())) << size;
    }
}

TEST(StateFile, ACopyByAnOlderReleaseHasNoChecksum)
{
    const std::string state = state_of(VESK_ZCF_STATE_C00);
    EXPECT_EQ(copy_checksum::absent, check(state, state.size()));
    EXPECT_EQ(copy_checksum::wrong, check(state, 0));
    EXPECT_EQ(copy_checksum::wrong, check("", 0));
}

} // namespace
