// An event as a record of a current buffer: its life, its stored form, and which texts and damaged
// bytes are refused.
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_cb_record_event.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"

namespace
{

// Version, type and timestamp: what stands before the text.
constexpr std::size_t text_offset = 14;

int write_event(const vesk_cb_record_event *event, memory_writer &target)
{
    return binary_serializer_write_vesk_cb_record_event(event, target.get());
}

int read(vesk_cb_record_event *event, const std::string &bytes)
{
    memory_reader source(bytes);
    return binary_serializer_read_vesk_cb_record_event(event, source.get());
}

// The result of reading `bytes` into a new event.
int read_new_event(const std::string &bytes)
{
    const owned_event event(vesk_cb_record_event_create_null());
    return read(event.get(), bytes);
}

} // namespace

TEST(CbRecordEvent, CopiesItsTimestampAndText)
{
    timestamp t = make_timestamp(1000);
    std::string text = "door open";
    vesk_cb_record_event event;
    ASSERT_EQ(0, vesk_cb_record_event_init(&event, 7, &t, text.c_str()));
    text[0] = 'p';
    timestamp_increment(&t, 1);
    EXPECT_EQ(1, event.version);
    EXPECT_EQ(7U, vesk_cb_record_event_get_type(&event));
    EXPECT_EQ(&event.timestamp, vesk_cb_record_event_get_timestamp(&event));
    EXPECT_EQ(1000, event.timestamp.tv.tv_sec);
    EXPECT_STREQ("door open", event.text);
    EXPECT_EQ(event.text, vesk_cb_record_event_get_text(&event));
    vesk_cb_record_event_destruct(&event);
}

TEST(CbRecordEvent, NullEventIsLiveAndEmpty)
{
    vesk_cb_record_event event;
    ASSERT_EQ(0, vesk_cb_record_event_init_null(&event));
    EXPECT_EQ(1, event.version);
    EXPECT_EQ(0U, vesk_cb_record_event_get_type(&event));
    EXPECT_EQ(nullptr, vesk_cb_record_event_get_text(&event));
    EXPECT_NE(0, timestamp_is_null(vesk_cb_record_event_get_timestamp(&event)));
    EXPECT_EQ(nullptr, event.text);
    vesk_cb_record_event_destruct(&event);
}

TEST(CbRecordEvent, DestructClearsIt)
{
    const timestamp t = make_timestamp(1);
    vesk_cb_record_event event;
    vesk_cb_record_event_init(&event, 7, &t, "x");
    vesk_cb_record_event_destruct(&event);
    EXPECT_EQ(0, event.version);
    EXPECT_EQ(0U, event.type);
    EXPECT_EQ(nullptr, event.text);
}

TEST(CbRecordEvent, DestroySetsThePointerToNull)
{
    vesk_cb_record_event *event = vesk_cb_record_event_create_null();
    vesk_cb_record_event_destroy(&event);
    EXPECT_EQ(nullptr, event);
}

TEST(CbRecordEvent, CreateReportsEveryFailedAllocation)
{
    const timestamp t = make_timestamp(1);
    for (int n = 1; n <= 2; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        EXPECT_EQ(nullptr, vesk_cb_record_event_create(1, &t, "x")) << n;
        EXPECT_EQ(-22, qe_get_last_error());
    }
    qe_set_last_error(0);
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, vesk_cb_record_event_create_null());
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(CbRecordEvent, InitWithoutMemoryReturnsTheCode)
{
    const timestamp t = make_timestamp(1);
    vesk_cb_record_event event;
    const failing_allocation failing(1);
    EXPECT_EQ(-22, vesk_cb_record_event_init(&event, 1, &t, "x"));
}

TEST(CbRecordEvent, IsEqualByTypeTimeAndText)
{
    const owned_event event = make_event(3, 1000, "text");
    EXPECT_EQ(1, vesk_cb_record_event_is_equal(event.get(), event.get()));
    const owned_event same = make_event(3, 1000, "text");
    EXPECT_EQ(1, vesk_cb_record_event_is_equal(event.get(), same.get()));
    const owned_event other_type = make_event(4, 1000, "text");
    EXPECT_EQ(0, vesk_cb_record_event_is_equal(event.get(), other_type.get()));
    const owned_event other_time = make_event(3, 1001, "text");
    EXPECT_EQ(0, vesk_cb_record_event_is_equal(event.get(), other_time.get()));
    const owned_event other_text = make_event(3, 1000, "texT");
    EXPECT_EQ(0, vesk_cb_record_event_is_equal(event.get(), other_text.get()));
}

TEST(CbRecordEvent, FormIsVersionTypeTimestampAndText)
{
    const owned_event event = make_event(0x01020304, 0x5E0BE100, "hi");
    memory_writer target;
    EXPECT_EQ(20, write_event(event.get(), target));
    EXPECT_EQ(from_hex("01"
                       "01 02 03 04"
                       "01 5E 0B E1 00 00 00 00 00"
                       "00 00 00 02 68 69"),
              target.bytes());
}

TEST(CbRecordEvent, ReadsWhatWasWritten)
{
    const owned_event event = make_event(5, 1000, "some text");
    memory_writer target;
    const int written = write_event(event.get(), target);
    const owned_event copy(vesk_cb_record_event_create_null());
    EXPECT_EQ(written, read(copy.get(), target.bytes()));
    EXPECT_EQ(1, vesk_cb_record_event_is_equal(event.get(), copy.get()));
}

TEST(CbRecordEvent, ReadingReplacesTheText)
{
    const owned_event event = make_event(5, 1000, "old text");
    EXPECT_LT(0, read(event.get(), stored_event_body(6, 2000, "new")));
    EXPECT_EQ(6U, event->type);
    EXPECT_STREQ("new", event->text);
}

TEST(CbRecordEvent, TextOfTenThousandBytesIsTheLongestThatIsWritten)
{
    const owned_event longest = make_event(1, 1, std::string(10000, 'x'));
    memory_writer target;
    EXPECT_EQ(18 + 10000, write_event(longest.get(), target));
    EXPECT_EQ(18 + 10000, read_new_event(target.bytes()));

    const owned_event too_long = make_event(1, 1, std::string(10001, 'x'));
    memory_writer torn;
    EXPECT_EQ(-49, write_event(too_long.get(), torn));
    EXPECT_EQ(text_offset, torn.bytes().size());
}

TEST(CbRecordEvent, EmptyTextIsWrittenButNotRead)
{
    const owned_event event = make_event(1, 1, "");
    memory_writer target;
    EXPECT_EQ(18, write_event(event.get(), target));
    EXPECT_EQ(-6, read_new_event(target.bytes()));
}

TEST(CbRecordEvent, WritingStopsAtTheFirstFailure)
{
    const owned_event event = make_event(1, 1, "text");
    const std::string form = stored_event_body(1, 1, "text");
    for (std::size_t room = 0; room < form.size(); ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, write_event(event.get(), target)) << room;
    }
    memory_writer target(form.size(), -41);
    EXPECT_EQ(static_cast<int>(form.size()), write_event(event.get(), target));
}

TEST(CbRecordEvent, DataThatEndsInsideGivesTheCodeOfThePlace)
{
    const std::string form = stored_event_body(1, 1, "text");
    EXPECT_EQ(0, read_new_event(""));
    for (std::size_t n = 1; n < form.size(); ++n) {
        const std::string cut = form.substr(0, n);
        if (n == text_offset) {
            EXPECT_EQ(-43, read_new_event(cut));
        } else if (n == text_offset + 4) {
            EXPECT_ABORTS(read_new_event(cut), "nread != 0");
        } else {
            EXPECT_EQ(-48, read_new_event(cut)) << n;
        }
    }
}

TEST(CbRecordEvent, FailureOfTheReaderIsPassedOn)
{
    const std::string form = stored_event_body(1, 1, "text");
    for (std::size_t n = 0; n < form.size(); ++n) {
        memory_reader source(form.substr(0, n), -41);
        const owned_event event(vesk_cb_record_event_create_null());
        EXPECT_EQ(-41, binary_serializer_read_vesk_cb_record_event(event.get(), source.get())) << n;
    }
}

TEST(CbRecordEvent, RefusesOtherVersions)
{
    std::string form = stored_event_body(1, 1, "text");
    form[0] = 2;
    EXPECT_EQ(-12, read_new_event(form));
    form[0] = 1;
    form[5] = 0;
    EXPECT_EQ(-12, read_new_event(form)) << "that of the timestamp";
}

TEST(CbRecordEvent, RefusesTextsWithAZeroByte)
{
    EXPECT_EQ(-6, read_new_event(stored_event_body(1, 1, std::string("a\0b", 3))));
}

TEST(CbRecordEvent, AbortsOnBadCalls)
{
    const timestamp t = make_timestamp(1);
    vesk_cb_record_event event;
    EXPECT_ABORTS(vesk_cb_record_event_init(nullptr, 1, &t, "x"), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_init(&event, 0, &t, "x"), "type > 0");
    EXPECT_ABORTS(vesk_cb_record_event_init(&event, 1, nullptr, "x"), "t != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_init(&event, 1, &t, nullptr), "text != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_init_null(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_destroy(nullptr), "rec != ((void *)0)");
    vesk_cb_record_event *none = nullptr;
    EXPECT_ABORTS(vesk_cb_record_event_destroy(&none), "*rec != ((void *)0)");
}

TEST(CbRecordEvent, AbortsOnDeadEvents)
{
    const owned_event live = make_event(1, 1, "x");
    vesk_cb_record_event dead;
    vesk_cb_record_event_init_null(&dead);
    vesk_cb_record_event_destruct(&dead);
    memory_writer target;
    memory_reader source("");
    const char *const text = "rec->version == ((char) 1)";
    EXPECT_ABORTS(vesk_cb_record_event_destruct(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_event_get_type(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_event_get_timestamp(&dead), text);
    EXPECT_ABORTS(vesk_cb_record_event_get_text(&dead), text);
    EXPECT_ABORTS(write_event(&dead, target), text);
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_event(&dead, source.get()), text);
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(&dead, live.get()), "rec1->version == ((char) 1)");
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(live.get(), &dead), "rec2->version == ((char) 1)");
}

TEST(CbRecordEvent, AbortsOnNullPointers)
{
    const owned_event event = make_event(1, 1, "x");
    memory_writer target;
    memory_reader source("");
    EXPECT_ABORTS(vesk_cb_record_event_get_type(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_get_text(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_get_timestamp(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_destruct(nullptr), "rec != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(nullptr, event.get()), "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(event.get(), nullptr), "rec2 != ((void *)0)");
    EXPECT_ABORTS(write_event(nullptr, target), "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_cb_record_event(event.get(), nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_event(nullptr, source.get()),
                  "rec != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_cb_record_event(event.get(), nullptr),
                  "reader != ((void *)0)");
}

TEST(CbRecordEvent, NullEventsHaveNoTextToCompareOrWrite)
{
    const owned_event event = make_event(1, 1, "x");
    const owned_event null(vesk_cb_record_event_create_null());
    memory_writer target;
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(null.get(), event.get()),
                  "rec1->text != ((void *)0)");
    EXPECT_ABORTS(vesk_cb_record_event_is_equal(event.get(), null.get()),
                  "rec2->text != ((void *)0)");
    EXPECT_ABORTS(write_event(null.get(), target), "rec->text != ((void *)0)");
}
