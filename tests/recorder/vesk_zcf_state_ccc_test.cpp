// The third stage of a recorder: two full current buffers and an open one.
#include <vesk/vesk_zcf_state_ccc.h>

#include "recorder/stage_contract.hpp"

namespace
{

struct ccc {
    using stage = vesk_zcf_state_ccc;

    static std::vector<char **> closed(stage *state)
    {
        return {&state->cbuf0_filename, &state->cbuf1_filename};
    }
    static vesk_current_buffer *&open(stage *state) { return state->cbuf2; }
    static std::vector<const char *> filenames(const stage *state)
    {
        return {vesk_zcf_state_ccc_get_cbuf0_filename(state),
                vesk_zcf_state_ccc_get_cbuf1_filename(state),
                vesk_zcf_state_ccc_get_cbuf2_filename(state)};
    }
    static stage *create(const std::vector<std::string> &names, uint32_t capacity)
    {
        return vesk_zcf_state_ccc_create(names[0].c_str(), names[1].c_str(), names[2].c_str(),
                                         capacity);
    }
    static constexpr auto create_null = vesk_zcf_state_ccc_create_null;
    static constexpr auto destroy = vesk_zcf_state_ccc_destroy;
    static constexpr auto write_vector = vesk_zcf_state_ccc_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_ccc_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_ccc;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_ccc;
    static inline const std::vector<std::string> missing_names = {"cbuf0_filename != ((void *)0)",
                                                                  "cbuf1_filename != ((void *)0)"};
    static inline const std::string missing_buffer = "cbuf2 != ((void *)0)";
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ZcfStateCcc, Stage, ccc);

TEST(ZcfStateCcc, RequiresItsNamesAndACapacity)
{
    EXPECT_ABORTS(vesk_zcf_state_ccc_create(nullptr, "r.2", "r.3", 2),
                  "cbuf0_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_ccc_create("r.1", nullptr, "r.3", 2),
                  "cbuf1_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_ccc_create("r.1", "r.2", nullptr, 2),
                  "cbuf2_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_ccc_create("r.1", "r.2", "r.3", 0), "max_data_records > 0");
}
