// The first stage of a recorder: one current buffer, open. What holds for all stages is in a
// header.
#include <vesk/vesk_zcf_state_c00.h>

#include "recorder/stage_contract.hpp"

namespace
{

struct c00 {
    using stage = vesk_zcf_state_c00;

    static std::vector<char **> closed(stage * /*state*/) { return {}; }
    static vesk_current_buffer *&open(stage *state) { return state->cbuf0; }
    static std::vector<const char *> filenames(const stage *state)
    {
        return {vesk_zcf_state_c00_get_filename(state)};
    }
    static stage *create(const std::vector<std::string> &names, uint32_t capacity)
    {
        return vesk_zcf_state_c00_create(names[0].c_str(), capacity);
    }
    static constexpr auto create_null = vesk_zcf_state_c00_create_null;
    static constexpr auto destroy = vesk_zcf_state_c00_destroy;
    static constexpr auto write_vector = vesk_zcf_state_c00_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_c00_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_c00;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_c00;
    static inline const std::vector<std::string> missing_names = {};
    static inline const std::string missing_buffer = "cbuf0 != ((void *)0)";
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ZcfStateC00, Stage, c00);

TEST(ZcfStateC00, RequiresItsNamesAndACapacity)
{
    EXPECT_ABORTS(vesk_zcf_state_c00_create(nullptr, 2), "cbuf_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_zcf_state_c00_create("r.1", 0), "max_data_records > 0");
}
