// An event of a current buffer:
//
//   version      1 byte, 1
//   type         4 bytes
//   timestamp    9 bytes
//   text         string

#include <stdlib.h>
#include <string.h>

#include <vesk/vesk_cb_record_event.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

int vesk_cb_record_event_init(vesk_cb_record_event *rec, uint32_t type, const timestamp *t,
                              const char *text)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(type > 0, "type > 0");
    VESK_REQUIRE(t != nullptr, "t != ((void *)0)");
    VESK_REQUIRE(text != nullptr, "text != ((void *)0)");
    rec->version = 1;
    rec->type = type;
    timestamp_copy(t, &rec->timestamp);
    rec->text = strdup(text);
    if (rec->text == nullptr) {
        timestamp_destruct(&rec->timestamp);
        return QE_ERROR_NO_MEMORY;
    }
    return 0;
}

vesk_cb_record_event *vesk_cb_record_event_create(uint32_t type, const timestamp *t,
                                                  const char *text)
{
    return create_object<vesk_cb_record_event>(
        [&](vesk_cb_record_event *rec) { return vesk_cb_record_event_init(rec, type, t, text); });
}

int vesk_cb_record_event_init_null(vesk_cb_record_event *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    rec->version = 1;
    rec->type = 0;
    timestamp_init_null(&rec->timestamp);
    rec->text = nullptr;
    return 0;
}

vesk_cb_record_event *vesk_cb_record_event_create_null(void)
{
    return create_object<vesk_cb_record_event>(vesk_cb_record_event_init_null);
}

void vesk_cb_record_event_destruct(vesk_cb_record_event *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    rec->version = 0;
    rec->type = 0;
    timestamp_destruct(&rec->timestamp);
    free(rec->text);
    rec->text = nullptr;
}

void vesk_cb_record_event_destroy(vesk_cb_record_event **rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(*rec != nullptr, "*rec != ((void *)0)");
    destroy_object(rec, vesk_cb_record_event_destruct);
}

uint32_t vesk_cb_record_event_get_type(const vesk_cb_record_event *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return rec->type;
}

timestamp *vesk_cb_record_event_get_timestamp(vesk_cb_record_event *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return &rec->timestamp;
}

const char *vesk_cb_record_event_get_text(const vesk_cb_record_event *rec)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return rec->text;
}

int vesk_cb_record_event_is_equal(const vesk_cb_record_event *rec1,
                                  const vesk_cb_record_event *rec2)
{
    VESK_REQUIRE(rec1 != nullptr, "rec1 != ((void *)0)");
    VESK_REQUIRE(rec2 != nullptr, "rec2 != ((void *)0)");
    VESK_REQUIRE(rec1->version == 1, "rec1->version == ((char) 1)");
    VESK_REQUIRE(rec2->version == 1, "rec2->version == ((char) 1)");
    VESK_REQUIRE(rec1->text != nullptr, "rec1->text != ((void *)0)");
    VESK_REQUIRE(rec2->text != nullptr, "rec2->text != ((void *)0)");
    return static_cast<int>(rec1->type == rec2->type &&
                            timestamp_is_equal(&rec1->timestamp, &rec2->timestamp) != 0 &&
                            strcmp(rec1->text, rec2->text) == 0);
}

int binary_serializer_write_vesk_cb_record_event(const vesk_cb_record_event *rec, writer *target)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    VESK_REQUIRE(rec->text != nullptr, "rec->text != ((void *)0)");
    return field_writer(target)
        .byte(1)
        .u32(rec->type)
        .form(binary_serializer_write_timestamp, &rec->timestamp)
        .string(rec->text)
        .result();
}

int binary_serializer_read_vesk_cb_record_event(vesk_cb_record_event *rec, reader *source)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(rec->version == 1, "rec->version == ((char) 1)");
    return field_reader(source)
        .version(1)
        .u32(&rec->type)
        .form(binary_serializer_read_timestamp, &rec->timestamp)
        .replace_string(&rec->text)
        .result();
}
