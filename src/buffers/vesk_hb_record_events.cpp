// How many events of each type fell into an interval:
//
//   version           1 byte, 1
//   n_type1_events    4 bytes
//   n_type4_events    4 bytes
//   n_type2_events    4 bytes
//   n_type3_events    4 bytes
//   n_type5_events    4 bytes
//
// The counter of type 4 stands second: the order is part of the format.
#include <algorithm>
#include <iterator>

#include <vesk/vesk_hb_record_events.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// The counters, in the order in which they are stored.
static constexpr uint32_t vesk_hb_record_events::*counters[] = {
    &vesk_hb_record_events::n_type1_events, &vesk_hb_record_events::n_type4_events,
    &vesk_hb_record_events::n_type2_events, &vesk_hb_record_events::n_type3_events,
    &vesk_hb_record_events::n_type5_events,
};

int vesk_hb_record_events_init_null(vesk_hb_record_events *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    *rec = {};
    rec->version = 1;
    return 0;
}

vesk_hb_record_events *vesk_hb_record_events_create_null(void)
{
    return create_object<vesk_hb_record_events>(vesk_hb_record_events_init_null);
}

void vesk_hb_record_events_destruct(vesk_hb_record_events *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    *rec = {};
}

void vesk_hb_record_events_destroy(vesk_hb_record_events **rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(*rec != nullptr, "*rec != ((void *)0)");
    destroy_object(rec, vesk_hb_record_events_destruct);
}

vesk_hb_record_events *vesk_hb_record_events_copy(const vesk_hb_record_events *rec,
                                                  vesk_hb_record_events *dst)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    if (dst == nullptr) {
        dst = allocate<vesk_hb_record_events>();
        if (dst == nullptr) {
            return nullptr;
        }
    }
    *dst = *rec;
    return dst;
}

int vesk_hb_record_events_is_equal(const vesk_hb_record_events *rec1,
                                   const vesk_hb_record_events *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version == 1, "rec1->version == ((char) 1)");
    VESK_REQUIRE(rec2->version == 1, "rec2->version == ((char) 1)");
    return static_cast<int>(
        std::all_of(std::begin(counters), std::end(counters),
                    [=](auto counter) { return rec1->*counter == rec2->*counter; }));
}

void vesk_hb_record_events_merge_with(vesk_hb_record_events *rec1,
                                      const vesk_hb_record_events *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version == 1, "rec1->version == ((char) 1)");
    VESK_REQUIRE(rec2->version == 1, "rec2->version == ((char) 1)");
    for (const auto counter : counters) {
        rec1->*counter += rec2->*counter;
    }
}

int binary_serializer_write_vesk_hb_record_events(const vesk_hb_record_events *rec, writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    field_writer fields(target);
    fields.byte(1);
    for (const auto counter : counters) {
        fields.u32(rec->*counter);
    }
    return fields.result();
}

// If the data ends before this counter, that counts as a broken precondition of the reader and not
// as a truncated record.
static int _read_second_counter(uint32_t *counter, reader *source)
{
    uint32_t stored = 0;
    const int nread = binary_serializer_read_bytes(&stored, sizeof stored, source);
    VESK_REQUIRE(nread != 0, "nread != 0");
    if (nread > 0) {
        *counter = big_endian(stored);
    }
    return nread;
}

int binary_serializer_read_vesk_hb_record_events(vesk_hb_record_events *rec, reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    field_reader fields(source);
    fields.version(1);
    for (const auto counter : counters) {
        if (counter == counters[1]) {
            fields.form(_read_second_counter, &(rec->*counter));
        } else {
            fields.u32(&(rec->*counter));
        }
    }
    return fields.result();
}
