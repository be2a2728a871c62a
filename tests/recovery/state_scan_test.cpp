// The state file as it is read without trust.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>

#include "box/state_file.hpp"
#include "common/buffer_files.hpp"
#include "common/memory_streams.hpp"
#include "common/temporary_directory.hpp"
#include "recovery/state_scan.hpp"

namespace
{

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

class StateScan : public testing::Test
{
protected:
    // What a scan of these bytes says.
    int scan(const std::string &bytes, state_summary *summary) const
    {
        write_file(folder_.file("r.state"), bytes);
        return summary->scan(folder_.file("r.state").c_str());
    }
    int scan(const std::string &bytes) const
    {
        state_summary summary;
        return scan(bytes, &summary);
    }

private:
    temporary_directory folder_;
};

TEST_F(StateScan, IsReadAsItWasWritten)
{
    for (const uint32_t stage :
         {VESK_ZCF_STATE_C00, VESK_ZCF_STATE_CC0, VESK_ZCF_STATE_CCC, VESK_ZCF_STATE_HCC}) {
        state_summary summary;
        const std::string bytes = state_of(stage);
        EXPECT_EQ(0, scan(bytes, &summary));
        EXPECT_STREQ("r", summary->filename);
        EXPECT_STREQ("r.state", summary->state_filename);
        EXPECT_EQ(stage, summary->state);
        EXPECT_EQ(9U, summary->next_file_number);
        EXPECT_EQ(summary->num_names + 7, summary->fields);
        EXPECT_EQ(bytes.size(), summary->size);
        EXPECT_EQ(bytes.size(), summary.form_size());
        EXPECT_EQ((recorder_sizes{8, 4}), summary.told_sizes());
    }
}

// Wherever it ends, what stands before that is told.
TEST_F(StateScan, IsReadUpToWhereItEnds)
{
    const std::string bytes = state_of(VESK_ZCF_STATE_HCC);
    uint32_t fields = 0;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        state_summary summary;
        EXPECT_EQ(QE_ERROR_TRUNCATED, scan(bytes.substr(0, size), &summary)) << size;
        EXPECT_GE(summary->fields, fields) << size;
        fields = summary->fields;
        EXPECT_EQ(0U, summary.form_size());
        // The quotient behind the sizes is what tells whether they can be believed.
        EXPECT_EQ(fields >= 5 ? (recorder_sizes{8, 4}) : recorder_sizes(), summary.told_sizes());
    }
    EXPECT_EQ(9U, fields);
}

TEST_F(StateScan, IsRefusedForWhatNoRecorderWrites)
{
    EXPECT_EQ(QE_ERROR_BAD_VERSION, scan('\2' + state_of(1).substr(1)));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(state_of(1, 7, 7)));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(state_of(1, 8, 3)));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(state_of(1, 8, 0)));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(state_of(1, 0, 4)));
    for (const uint32_t stage : {0U, 5U, UINT32_MAX}) {
        EXPECT_EQ(QE_ERROR_MALFORMED,
                  scan(written_head({"r", "r.state", stage, 8, 4, 2, 9}) + '\1'));
    }
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(written_head({"r", "r.state", 1, 8, 4, 3, 9}) + '\1'));
    const std::string head = written_head({"r", "r.state", 1, 8, 4, 2, 9}) + '\1';
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(head + stored_string("")));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(head + stored_string(std::string("a\0b", 3))));
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(head + stored_u32(10001)));
    EXPECT_EQ(QE_ERROR_TRUNCATED, scan(head + stored_u32(10000)));
}

TEST_F(StateScan, SizesThatAreContradictedAreNotTold)
{
    state_summary summary;
    EXPECT_EQ(QE_ERROR_MALFORMED, scan(written_head({"r", "r.state", 1, 8, 4, 3, 9}), &summary));
    EXPECT_EQ(recorder_sizes(), summary.told_sizes());
}

// The checksum of a copy stands behind the fields.
TEST_F(StateScan, ACopyHasTheFieldsOfTheStateFile)
{
    const std::string state = state_of(VESK_ZCF_STATE_CC0);
    state_summary summary;
    EXPECT_EQ(0, scan(state + "VSKC1234", &summary));
    EXPECT_EQ(state.size(), summary.form_size());
}

} // namespace
