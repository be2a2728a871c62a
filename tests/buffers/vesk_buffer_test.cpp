// The handle for a buffer of either kind: what it owns, how the kind of a file is found out, and
// which files are refused with which code.
#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/buffer_internal.hpp"
#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using owned_cbuf = owned<vesk_current_buffer, vesk_current_buffer_close>;
using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;
using owned_handle = owned<vesk_buffer, vesk_buffer_destroy>;

namespace
{

class Buffer : public testing::Test
{
protected:
    // The code with which opening a file of these decompressed bytes fails, 0 when it succeeds.
    int code_of_opening(const std::string &content)
    {
        return code_of_opening_file(deflate_stream(content));
    }
    int code_of_opening_file(const std::string &bytes)
    {
        write_file(path_, bytes);
        const auto before = count_open_files();
        qe_set_last_error(0);
        const owned_handle handle(vesk_buffer_open_for_read_write(path_.c_str()));
        if (handle) {
            return 0;
        }
        EXPECT_EQ(before, count_open_files());
        return qe_get_last_error();
    }

    temporary_directory directory_;
    std::string path_ = directory_.file("buffer");
};

} // namespace

TEST_F(Buffer, HandlesDoNotOwnWhatTheyAreMadeOn)
{
    owned_cbuf cbuf(vesk_current_buffer_create(path_.c_str(), 2));
    owned_hbuf hbuf(vesk_hist_buffer_create(directory_.file("history").c_str(), 2));
    vesk_buffer handle;
    EXPECT_EQ(0, vesk_buffer_init_null(&handle));
    EXPECT_EQ(0U, handle.type);
    EXPECT_EQ(nullptr, handle.data);
    EXPECT_EQ(0U, handle.owns_data);

    EXPECT_EQ(0, vesk_buffer_init_current_buffer(&handle, cbuf.get()));
    EXPECT_EQ(1U, handle.type);
    EXPECT_EQ(cbuf.get(), handle.cbuf);
    EXPECT_EQ(0U, handle.owns_data);
    vesk_buffer_destruct(&handle);
    EXPECT_EQ(1, cbuf->version);

    EXPECT_EQ(0, vesk_buffer_init_hist_buffer(&handle, hbuf.get()));
    EXPECT_EQ(2U, handle.type);
    EXPECT_EQ(hbuf.get(), handle.hbuf);
    EXPECT_EQ(0U, handle.owns_data);
    vesk_buffer_destruct(&handle);
    EXPECT_EQ(1, hbuf->version);
    EXPECT_EQ(0U, handle.type);
    EXPECT_EQ(nullptr, handle.data);
}

TEST_F(Buffer, AnOwningHandleClosesItsBuffer)
{
    const auto before = count_open_files();
    vesk_buffer handle;
    vesk_buffer_init_current_buffer(&handle, vesk_current_buffer_create(path_.c_str(), 2));
    handle.owns_data = 1;
    vesk_buffer_destruct(&handle);
    EXPECT_EQ(0U, handle.type);
    EXPECT_EQ(nullptr, handle.data);
    EXPECT_EQ(0U, handle.owns_data);
    vesk_buffer_init_hist_buffer(&handle, vesk_hist_buffer_create(path_.c_str(), 2));
    handle.owns_data = 1;
    vesk_buffer_destruct(&handle);
    EXPECT_EQ(0U, handle.type);
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Buffer, DetachingLeavesTheBufferToTheCaller)
{
    write_file(path_, deflate_stream(stored_buffer_header(2, 4)));
    owned_handle handle(vesk_buffer_open_for_read_write(path_.c_str()));
    ASSERT_TRUE(handle);
    vesk_buffer_detach(handle.get());
    const owned_hbuf hbuf(handle->hbuf);
    EXPECT_EQ(2U, handle->type);
    handle.reset();
    EXPECT_EQ(4U, hbuf->max_data_records);
}

TEST_F(Buffer, DestroyingNullsTheCallersPointer)
{
    write_file(path_, deflate_stream(stored_buffer_header(1, 4)));
    vesk_buffer *handle = vesk_buffer_open_for_read_write(path_.c_str());
    vesk_buffer_destroy(&handle);
    EXPECT_EQ(nullptr, handle);
}

TEST_F(Buffer, OpensEitherKindByWhatTheFileSays)
{
    write_file(path_, deflate_stream(stored_buffer_header(1, 4)));
    owned_handle handle(vesk_buffer_open_for_read_write(path_.c_str()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(1U, handle->type);
    EXPECT_EQ(1U, handle->owns_data);
    EXPECT_EQ(path_, handle->cbuf->filename);
    EXPECT_EQ(4U, handle->cbuf->max_data_records);
    handle.reset();

    write_file(path_, deflate_stream(stored_buffer_header(2, 6)));
    handle.reset(vesk_buffer_open_for_read_write(path_.c_str()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(2U, handle->type);
    EXPECT_EQ(1U, handle->owns_data);
    EXPECT_EQ(path_, handle->hbuf->filename);
    EXPECT_EQ(6U, handle->hbuf->max_data_records);
}

TEST_F(Buffer, AFileThatCannotBeOpenedGives40)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, vesk_buffer_open_for_read_write(directory_.file("missing").c_str()));
    EXPECT_EQ(-40, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, vesk_buffer_open_for_read_write(directory_.path().c_str()));
    EXPECT_EQ(-40, qe_get_last_error());
    EXPECT_FALSE(directory_.names().contains("missing"));
}

TEST_F(Buffer, AFileShorterThanTheKindGives48)
{
    EXPECT_EQ(-48, code_of_opening_file(""));
    for (std::size_t size = 0; size < 4; ++size) {
        EXPECT_EQ(-48, code_of_opening(stored_u32(1).substr(0, size))) << size;
    }
}

TEST_F(Buffer, AFileThatIsNotCompressedGives41)
{
    EXPECT_EQ(-41, code_of_opening_file(stored_buffer_header(1, 4)));
}

TEST_F(Buffer, AnUnknownKindGives4)
{
    for (const uint32_t kind : {0U, 3U, 0x01000000U, UINT32_MAX}) {
        EXPECT_EQ(-4, code_of_opening(stored_buffer_header(kind, 4))) << kind;
    }
}

TEST_F(Buffer, AHeaderThatIsCutGives41)
{
    for (const uint32_t kind : {1U, 2U}) {
        const std::string header = stored_buffer_header(kind, 4);
        for (std::size_t size = 4; size < header.size(); ++size) {
            EXPECT_EQ(-41, code_of_opening(header.substr(0, size))) << kind << ' ' << size;
        }
        EXPECT_EQ(0, code_of_opening(header));
    }
}

TEST_F(Buffer, AHeaderOfAnotherVersionGives41)
{
    EXPECT_EQ(-41, code_of_opening(stored_u32(1) + '\2' + stored_u32(4)));
    EXPECT_EQ(-41, code_of_opening(stored_u32(2) + std::string(1, '\0') + stored_u32(4)));
}

TEST_F(Buffer, ACapacityOfZeroOrAnOddOneGives41)
{
    for (const uint32_t kind : {1U, 2U}) {
        for (const uint32_t capacity : {0U, 1U, 3U, UINT32_MAX}) {
            EXPECT_EQ(-41, code_of_opening(stored_buffer_header(kind, capacity))) << capacity;
        }
        EXPECT_EQ(0, code_of_opening(stored_buffer_header(kind, UINT32_MAX - 1)));
    }
}

TEST_F(Buffer, AFirstRecordThatNamesNoSensorsGives4)
{
    EXPECT_EQ(-4, code_of_opening(stored_buffer_header(1, 4) + stored_values_record(1, {1.0F})));
    EXPECT_EQ(-4, code_of_opening(stored_buffer_header(1, 4) + stored_event_record(1, 1, "x")));
    EXPECT_EQ(-4, code_of_opening(stored_buffer_header(2, 4) +
                                  stored_interval_record(1, 2, {stored_summary({1.0F})})));
}

TEST_F(Buffer, AFirstRecordOfAnUnknownTypeGives6)
{
    EXPECT_EQ(-6, code_of_opening(stored_buffer_header(1, 4) + stored_u32(4)));
    EXPECT_EQ(-6, code_of_opening(stored_buffer_header(2, 4) + stored_event_record(1, 1, "x")));
    EXPECT_EQ(-6, code_of_opening(stored_buffer_header(1, 4) + stored_event_body(1, 1, "x")));
}

TEST_F(Buffer, WritesTheKindAheadOfTheHeader)
{
    const owned_cbuf cbuf(vesk_current_buffer_create(path_.c_str(), 0x01020304));
    const owned_hbuf hbuf(vesk_hist_buffer_create(directory_.file("history").c_str(), 6));
    vesk_buffer handle;
    memory_writer current;
    vesk_buffer_init_current_buffer(&handle, cbuf.get());
    EXPECT_EQ(9, binary_serializer_write_vesk_buffer(&handle, current.get()));
    EXPECT_EQ(from_hex("00000001 01 01020304"), current.bytes());
    memory_writer history;
    vesk_buffer_init_hist_buffer(&handle, hbuf.get());
    EXPECT_EQ(9, binary_serializer_write_vesk_buffer(&handle, history.get()));
    EXPECT_EQ(from_hex("00000002 01 00000006"), history.bytes());
}

TEST_F(Buffer, AFailedWriteIsReturnedAtOnce)
{
    const owned_cbuf cbuf(vesk_current_buffer_create(path_.c_str(), 4));
    const owned_hbuf hbuf(vesk_hist_buffer_create(directory_.file("history").c_str(), 4));
    vesk_buffer handle;
    for (std::size_t capacity = 0; capacity < 9; ++capacity) {
        memory_writer current(capacity, -41);
        vesk_buffer_init_current_buffer(&handle, cbuf.get());
        EXPECT_EQ(-41, binary_serializer_write_vesk_buffer(&handle, current.get()));
        memory_writer history(capacity, -42);
        vesk_buffer_init_hist_buffer(&handle, hbuf.get());
        EXPECT_EQ(-42, binary_serializer_write_vesk_buffer(&handle, history.get()));
    }
}

TEST_F(Buffer, StreamsLeaveTheFileOpen)
{
    FILE *file = fopen(path_.c_str(), "w+");
    writer *target = _vesk_buffer_create_writer(file);
    EXPECT_EQ(WRITER_TYPE_ZLIB, static_cast<int>(target->type));
    writer_write_bytes(target, "abc", 3);
    writer_destroy(&target);
    rewind(file);
    reader *source = _vesk_buffer_create_reader(file);
    EXPECT_EQ(READER_TYPE_ZLIB, static_cast<int>(source->type));
    char bytes[4] = "";
    EXPECT_EQ(3, reader_read_bytes(source, bytes, sizeof bytes));
    EXPECT_STREQ("abc", bytes);
    reader_destroy(&source);
    EXPECT_EQ(0, fclose(file));
}

TEST_F(Buffer, StreamsThatFindNoMemoryLeaveNothing)
{
    FILE *file = fopen(path_.c_str(), "w+");
    for (int n = 1; n <= 4; ++n) {
        const failing_allocation fault(n);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, _vesk_buffer_create_writer(file)) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    for (int n = 1; n <= 4; ++n) {
        const failing_allocation fault(n);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, _vesk_buffer_create_reader(file)) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    EXPECT_EQ(0, fclose(file));
}

TEST_F(Buffer, OpeningWithoutMemoryLeavesNothing)
{
    for (const uint32_t kind : {1U, 2U}) {
        write_file(path_, deflate_stream(stored_buffer_header(kind, 4) +
                                         stored_names_record(1, {"a", "bb"})));
        const auto before = count_open_files();
        bool succeeded = false;
        for (int n = 1; !succeeded; ++n) {
            failing_allocation fault(n);
            qe_set_last_error(0);
            const owned_handle handle(vesk_buffer_open_for_read_write(path_.c_str()));
            if (failing_allocation::happened()) {
                // zlib reports the lack of memory as a failure of the stream.
                EXPECT_FALSE(handle) << n;
                EXPECT_THAT(qe_get_last_error(), testing::AnyOf(-22, -41)) << n;
                EXPECT_EQ(before, count_open_files()) << n;
            }
            succeeded = !failing_allocation::happened();
            EXPECT_EQ(succeeded, static_cast<bool>(handle));
        }
    }
}

TEST_F(Buffer, RequiresItsArguments)
{
    vesk_buffer handle;
    vesk_buffer *none = nullptr;
    memory_writer target;
    EXPECT_ABORTS(vesk_buffer_init_null(nullptr), "buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_init_current_buffer(nullptr, nullptr), "buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_init_current_buffer(&handle, nullptr), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_init_hist_buffer(nullptr, nullptr), "buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_init_hist_buffer(&handle, nullptr), "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_destruct(nullptr), "buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_destroy(nullptr), "buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_destroy(&none), "*buf != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_detach(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_buffer_open_for_read_write(nullptr), "path != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_buffer(nullptr, target.get()), "buf != ((void *)0)");
    vesk_buffer_init_null(&handle);
    EXPECT_ABORTS(binary_serializer_write_vesk_buffer(&handle, nullptr), "writer != ((void *)0)");
}

TEST_F(Buffer, OnlyAHandleOnABufferCanBeDetached)
{
    vesk_buffer handle;
    vesk_buffer_init_null(&handle);
    EXPECT_ABORTS(vesk_buffer_detach(&handle), "rec->type > 0");
    handle.type = 1;
    EXPECT_ABORTS(vesk_buffer_detach(&handle), "rec->data != ((void *)0)");
}

TEST_F(Buffer, AHandleOfUnknownTypeCannotBeWrittenOrClosed)
{
    vesk_buffer handle;
    memory_writer target;
    vesk_buffer_init_null(&handle);
    EXPECT_ABORTS(binary_serializer_write_vesk_buffer(&handle, target.get()), "0");
    handle.type = 3;
    handle.owns_data = 1;
    EXPECT_ABORTS(vesk_buffer_destruct(&handle), "0");
}
