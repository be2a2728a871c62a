// The second stage of a recorder: a full current buffer and an open one.
#include <vesk/vesk_zcf_state_cc0.h>

#include "recorder/stage_contract.hpp"

namespace
{

struct cc0 {
    using stage = vesk_zcf_state_cc0;

    static std::vector<char **> closed(stage *state) { return {&state->cbuf0_filename}; }
    static vesk_current_buffer *&open(stage *state) { return state->cbuf1; }
    static std::vector<const char *> filenames(const stage *state)
    {
        return {vesk_zcf_state_cc0_get_cbuf0_filename(state),
                vesk_zcf_state_cc0_get_cbuf1_filename(state)};
    }
    static stage *create(const std::vector<std::string> &names, uint32_t capacity)
    {
        return vesk_zcf_state_cc0_create(names[0].c_str(), names[1].c_str(), capacity);
    }
    static constexpr auto create_null = vesk_zcf_state_cc0_create_null;
    static constexpr auto destroy = vesk_zcf_state_cc0_destroy;
    static constexpr auto write_vector = vesk_zcf_state_cc0_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_cc0_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_cc0;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_cc0;
    static inline const std::vector<std::string> missing_names = {"cbuf0_filename != ((void *)0)"};
    static inline const std::string missing_buffer = "cbuf1 != ((void *)0)";
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ZcfStateCc0, Stage, cc0);

TEST(ZcfStateCc0, RequiresItsNamesAndACapacity)
{
    EXPECT_ABORTS(vesk_zcf_state_cc0_create(nullptr, "r.2", 2), "cbuf0_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_cc0_create("r.1", nullptr, 2), "cbuf1_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_cc0_create("r.1", "r.2", 0), "max_data_records > 0");
}
