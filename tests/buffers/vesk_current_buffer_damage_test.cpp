// Current buffers that are cut or changed give a stated code.
#include "buffers/current_buffer_fixture.hpp"
#include "buffers/damaged_bytes.hpp"

namespace
{

// A small file with all kinds of records.
std::string small_file()
{
    return deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a", "bc"}) +
                          stored_values_record(1, {1, 2})) +
           deflate_stream(stored_event_record(3, 2, "event")) +
           deflate_stream(stored_names_record(3, {"d"}) + stored_values_record(3, {3}));
}

} // namespace

class DamagedCurrentBuffer : public CurrentBuffer
{
protected:
    // Opens the bytes for appending and compares with what has to come of it.
    void expect_stated_answer(const std::string &file)
    {
        model_buffer_reader model(file);
        const int expected = model.read_all(VESK_BUFFER_TYPE_CURRENT);
        write_file(path_, file);
        if (expected == model_aborts) {
            EXPECT_ABORTS(append(), "nread != 0");
            return;
        }
        qe_set_last_error(0);
        const owned_cbuf cbuf = append();
        EXPECT_EQ(expected, cbuf ? 0 : qe_get_last_error());
        if (cbuf) {
            EXPECT_EQ(model.values(), cbuf->num_data_records);
        }
    }
};

TEST_F(DamagedCurrentBuffer, ContentThatEndsAnywhereGivesItsCode)
{
    for_every_end(content_of(small_file()), [this](const std::string &content) {
        expect_stated_answer(deflate_stream(content));
    });
}

TEST_F(DamagedCurrentBuffer, AFileThatEndsAnywhereGivesItsCode)
{
    for_every_end(small_file(), [this](const std::string &file) { expect_stated_answer(file); });
}

TEST_F(DamagedCurrentBuffer, AFileWithAnyBitFlippedGivesItsCode)
{
    for_every_flipped_bit(small_file(),
                          [this](const std::string &file) { expect_stated_answer(file); });
}

TEST_F(DamagedCurrentBuffer, ContentWithAnyByteChangedGivesItsCode)
{
    for_every_changed_byte(content_of(small_file()), [this](const std::string &content) {
        expect_stated_answer(deflate_stream(content));
    });
}

TEST_F(DamagedCurrentBuffer, ATailOfZerosGives41)
{
    write_file(path_, small_file() + std::string(100, '\0'));
    EXPECT_EQ(-41, code_of_appending());
}

TEST_F(DamagedCurrentBuffer, NamesCutBeforeANameLookLikeTheEnd)
{
    const std::string start =
        stored_buffer_header(1, 4) + stored_names_record(1, {"a"}) + stored_values_record(1, {1});
    const std::string names = stored_names_record(2, {"a", "b"});
    const std::size_t before_second = names.size() - stored_string("b").size();
    write_file(path_, deflate_stream(start + names.substr(0, before_second)));
    owned_cbuf cbuf = append();
    ASSERT_TRUE(cbuf);
    EXPECT_EQ(1U, cbuf->num_data_records);
}

TEST_F(DamagedCurrentBuffer, WhatIsAppendedToATornStreamIsLost)
{
    const std::string torn = deflate_stream(stored_values_record(2, {2})).substr(0, 2);
    write_file(path_, deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a"}) +
                                     stored_values_record(1, {1})) +
                          torn);
    owned_cbuf cbuf = append();
    ASSERT_TRUE(cbuf) << "nothing of the torn stream can be seen";
    EXPECT_EQ(0, write(cbuf.get(), one(3, 3)));
    cbuf.reset();
    EXPECT_EQ(-41, code_of_appending());
}

TEST_F(DamagedCurrentBuffer, NothingIsReadAfterDamage)
{
    std::string file = deflate_stream(stored_buffer_header(1, 4) + stored_names_record(1, {"a"}));
    file += std::string(20, '\0');
    write_file(path_, file);
    owned_cbuf cbuf = open();
    ASSERT_TRUE(cbuf);
    read_into rec;
    EXPECT_EQ(-41, vesk_current_buffer_read_record(cbuf.get(), rec.get()));
    EXPECT_ABORTS(vesk_current_buffer_read_record(cbuf.get(), rec.get()), "zreader->err == 0");
}
