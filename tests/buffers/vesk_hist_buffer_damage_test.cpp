// History buffers that are cut or changed give a stated code: the one that a second, simpler reader
// of the format gives.
#include "buffers/damaged_bytes.hpp"
#include "buffers/hist_buffer_fixture.hpp"

namespace
{

// A small file with both kinds of records.
std::string small_file()
{
    return deflate_stream(stored_buffer_header(2, 4) + stored_names_record(1, {"a", "bc"}) +
                          stored_interval_record(1, 2, {stored_summary({1, 2}), stored_summary({})},
                                                 {1, 0, 0, 2, 0})) +
           deflate_stream(stored_names_record(3, {"d"}) +
                          stored_interval_record(3, 4, {stored_summary({5})}));
}

} // namespace

class DamagedHistBuffer : public HistBuffer
{
protected:
    // Reads the bytes as a file and compares with what has to come of it.
    void expect_stated_answer(const std::string &file)
    {
        model_buffer_reader model(file);
        const int expected = model.read_all(VESK_BUFFER_TYPE_HIST);
        write_file(path_, file);
        if (expected == model_aborts) {
            EXPECT_ABORTS(read_all(model), "nread != 0");
            return;
        }
        EXPECT_EQ(expected, read_all(model));
    }

private:
    int read_all(const model_buffer_reader &model)
    {
        qe_set_last_error(0);
        const owned_hbuf hbuf = open();
        EXPECT_EQ(model.opened(), static_cast<bool>(hbuf));
        if (!hbuf) {
            return qe_get_last_error();
        }
        read_into rec;
        int result = 0;
        while (result == 0) {
            result = vesk_hist_buffer_read_record(hbuf.get(), rec.get());
        }
        EXPECT_EQ(model.values(), hbuf->num_data_records);
        return result == -43 ? 0 : result;
    }
};

TEST_F(DamagedHistBuffer, ContentThatEndsAnywhereGivesItsCode)
{
    for_every_end(content_of(small_file()), [this](const std::string &content) {
        expect_stated_answer(deflate_stream(content));
    });
}

TEST_F(DamagedHistBuffer, AFileThatEndsAnywhereGivesItsCode)
{
    for_every_end(small_file(), [this](const std::string &file) { expect_stated_answer(file); });
}

TEST_F(DamagedHistBuffer, AFileWithAnyBitFlippedGivesItsCode)
{
    for_every_flipped_bit(small_file(),
                          [this](const std::string &file) { expect_stated_answer(file); });
}

TEST_F(DamagedHistBuffer, ContentWithAnyByteChangedGivesItsCode)
{
    for_every_changed_byte(content_of(small_file()), [this](const std::string &content) {
        expect_stated_answer(deflate_stream(content));
    });
}
