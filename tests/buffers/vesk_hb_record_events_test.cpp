// The counts of events in an interval of a history: adding them up, comparing them, and their
// stored form.
#include <string>

#include <vesk/error.h>
#include <vesk/vesk_hb_record_events.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "support/owner.hpp"

namespace
{

using owned_events = owned<vesk_hb_record_events, vesk_hb_record_events_destroy>;

// Type n has the n-th argument.
vesk_hb_record_events make_events(uint32_t n1, uint32_t n2, uint32_t n3, uint32_t n4, uint32_t n5)
{
    vesk_hb_record_events events;
    vesk_hb_record_events_init_null(&events);
    events.n_type1_events = n1;
    events.n_type2_events = n2;
    events.n_type3_events = n3;
    events.n_type4_events = n4;
    events.n_type5_events = n5;
    return events;
}

const char *const form_of_1_to_5 = "01 00000001 00000004 00000002 00000003 00000005";

int read(vesk_hb_record_events *events, const std::string &bytes)
{
    memory_reader source(bytes);
    return binary_serializer_read_vesk_hb_record_events(events, source.get());
}

int read_new_event_counts(const std::string &bytes)
{
    const owned_events events(vesk_hb_record_events_create_null());
    return read(events.get(), bytes);
}

} // namespace

TEST(HbRecordEvents, NullHasNoEvents)
{
    const owned_events events(vesk_hb_record_events_create_null());
    const vesk_hb_record_events none = make_events(0, 0, 0, 0, 0);
    EXPECT_EQ(1, events->version);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(events.get(), &none));
}

TEST(HbRecordEvents, DestructClearsThem)
{
    vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    vesk_hb_record_events_destruct(&events);
    EXPECT_EQ(0, events.version);
    EXPECT_EQ(0U, events.n_type1_events + events.n_type2_events + events.n_type3_events +
                      events.n_type4_events + events.n_type5_events);
    vesk_hb_record_events *heap = vesk_hb_record_events_create_null();
    vesk_hb_record_events_destroy(&heap);
    EXPECT_EQ(nullptr, heap);
}

TEST(HbRecordEvents, CopyIsEqual)
{
    const vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    const owned_events copy(vesk_hb_record_events_copy(&events, nullptr));
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&events, copy.get()));
    vesk_hb_record_events onto;
    EXPECT_EQ(&onto, vesk_hb_record_events_copy(&events, &onto));
    EXPECT_EQ(1, onto.version);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&events, &onto));
}

TEST(HbRecordEvents, NoMemoryGives22)
{
    const vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    qe_set_last_error(0);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, vesk_hb_record_events_create_null());
    }
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    {
        const failing_allocation failing(1);
        EXPECT_EQ(nullptr, vesk_hb_record_events_copy(&events, nullptr));
    }
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(HbRecordEvents, EveryCounterCountsForEquality)
{
    const vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    for (uint32_t vesk_hb_record_events::*counter :
         {&vesk_hb_record_events::n_type1_events, &vesk_hb_record_events::n_type2_events,
          &vesk_hb_record_events::n_type3_events, &vesk_hb_record_events::n_type4_events,
          &vesk_hb_record_events::n_type5_events}) {
        vesk_hb_record_events other = events;
        ++(other.*counter);
        EXPECT_EQ(0, vesk_hb_record_events_is_equal(&events, &other));
    }
}

TEST(HbRecordEvents, MergingAddsAndWraps)
{
    vesk_hb_record_events sum = make_events(1, 2, 3, 4, UINT32_MAX);
    const vesk_hb_record_events more = make_events(10, 20, 30, 40, 2);
    vesk_hb_record_events_merge_with(&sum, &more);
    const vesk_hb_record_events expected = make_events(11, 22, 33, 44, 1);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&expected, &sum));
}

TEST(HbRecordEvents, TheCountersAreStoredInTheOrder14235)
{
    const vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    memory_writer target;
    EXPECT_EQ(21, binary_serializer_write_vesk_hb_record_events(&events, target.get()));
    EXPECT_EQ(from_hex(form_of_1_to_5), target.bytes());

    vesk_hb_record_events read_back = make_events(0, 0, 0, 0, 0);
    EXPECT_EQ(21, read(&read_back, from_hex(form_of_1_to_5)));
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&events, &read_back));
}

TEST(HbRecordEvents, WritingStopsAtTheFirstFailure)
{
    const vesk_hb_record_events events = make_events(1, 2, 3, 4, 5);
    for (std::size_t room = 0; room < 21; ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(-41, binary_serializer_write_vesk_hb_record_events(&events, target.get()));
    }
}

TEST(HbRecordEvents, OnlyTheSecondCounterMayNotBeMissing)
{
    const std::string form = from_hex(form_of_1_to_5);
    EXPECT_EQ(0, read_new_event_counts(""));
    for (std::size_t n = 1; n < form.size(); ++n) {
        if (n == 5) {
            EXPECT_ABORTS(read_new_event_counts(form.substr(0, n)), "nread != 0");
        } else {
            EXPECT_EQ(-48, read_new_event_counts(form.substr(0, n))) << n;
        }
    }
}

TEST(HbRecordEvents, StoresEachCounterAsSoonAsItIsRead)
{
    vesk_hb_record_events events = make_events(7, 7, 7, 7, 7);
    EXPECT_EQ(-48, read(&events, from_hex(form_of_1_to_5).substr(0, 13)));
    const vesk_hb_record_events expected = make_events(1, 2, 7, 4, 7);
    EXPECT_EQ(1, vesk_hb_record_events_is_equal(&expected, &events));
}

TEST(HbRecordEvents, FailureOfTheReaderIsPassedOn)
{
    for (std::size_t n = 0; n < 21; ++n) {
        memory_reader source(from_hex(form_of_1_to_5).substr(0, n), -41);
        const owned_events events(vesk_hb_record_events_create_null());
        EXPECT_EQ(-41, binary_serializer_read_vesk_hb_record_events(events.get(), source.get()));
    }
}

TEST(HbRecordEvents, RefusesOtherVersions)
{
    EXPECT_EQ(-12,
              read_new_event_counts(from_hex("02 00000001 00000004 00000002 00000003 00000005")));
    EXPECT_EQ(-12, read_new_event_counts(from_hex("00")));
}

TEST(HbRecordEvents, AbortsOnBadCalls)
{
    vesk_hb_record_events live = make_events(1, 2, 3, 4, 5);
    vesk_hb_record_events dead = live;
    vesk_hb_record_events_destruct(&dead);
    vesk_hb_record_events *none = nullptr;
    memory_writer target;
    memory_reader source("");
    const char *const null = "rec != ((void *)0)";
    const char *const version = "rec->version == ((char) 1)";
    EXPECT_ABORTS(vesk_hb_record_events_init_null(nullptr), null);
    EXPECT_ABORTS(vesk_hb_record_events_destruct(nullptr), null);
    EXPECT_ABORTS(vesk_hb_record_events_destruct(&dead), version);
    EXPECT_ABORTS(vesk_hb_record_events_destroy(nullptr), null);
    EXPECT_ABORTS(vesk_hb_record_events_destroy(&none), "*rec != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_events_copy(nullptr, &live), null);
    EXPECT_ABORTS(vesk_hb_record_events_copy(&dead, &live), version);
    EXPECT_ABORTS(vesk_hb_record_events_is_equal(nullptr, &live), "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_events_is_equal(&live, nullptr), "rec2 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_events_is_equal(&dead, &live), "rec1->version == ((char) 1)");
    EXPECT_ABORTS(vesk_hb_record_events_is_equal(&live, &dead), "rec2->version == ((char) 1)");
    EXPECT_ABORTS(vesk_hb_record_events_merge_with(nullptr, &live), "rec1 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_events_merge_with(&live, nullptr), "rec2 != ((void *)0)");
    EXPECT_ABORTS(vesk_hb_record_events_merge_with(&dead, &live), "rec1->version == ((char) 1)");
    EXPECT_ABORTS(vesk_hb_record_events_merge_with(&live, &dead), "rec2->version == ((char) 1)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record_events(nullptr, target.get()), null);
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record_events(&live, nullptr),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_vesk_hb_record_events(&dead, target.get()), version);
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_events(nullptr, source.get()), null);
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_events(&live, nullptr),
                  "reader != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_vesk_hb_record_events(&dead, source.get()), version);
}
