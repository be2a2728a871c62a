// The sensors of a history buffer: the record of a current buffer, made of a list of summaries. The
// rest goes by its history names to that record.

#include <vesk/vesk_hb_record_sensor_names.h>

#include "support/object.hpp"
#include "support/precondition.hpp"

int vesk_hb_record_sensor_names_init(vesk_hb_record_sensor_names *rec, const timestamp *start,
                                     const hist_value_list *hvlist)
{
    VESK_REQUIRE(rec != nullptr, "rec != ((void *)0)");
    VESK_REQUIRE(start != nullptr, "timestamp != ((void *)0)");
    VESK_REQUIRE(hvlist != nullptr, "hvlist != ((void *)0)");
    vesk_hb_record_sensor_names_init_null(rec);
    timestamp_copy(start, &rec->timestamp);
    rec->sensors = hist_value_list_get_sensor_copies(hvlist);
    if (rec->sensors == nullptr) {
        timestamp_destruct(&rec->timestamp);
        rec->version = 0;
        // An empty list has no sensors and says so without a code.
        const int error = qe_get_last_error();
        return error < 0 ? error : QE_ERROR_MALFORMED;
    }
    return 0;
}

vesk_hb_record_sensor_names *vesk_hb_record_sensor_names_create(const timestamp *start,
                                                                const hist_value_list *hvlist)
{
    return create_object<vesk_hb_record_sensor_names>([&](vesk_hb_record_sensor_names *rec) {
        return vesk_hb_record_sensor_names_init(rec, start, hvlist);
    });
}

int vesk_hb_record_sensor_names_init_null(vesk_hb_record_sensor_names *rec)
{
    return vesk_cb_record_sensor_names_init_null(rec);
}

vesk_hb_record_sensor_names *vesk_hb_record_sensor_names_create_null(void)
{
    return vesk_cb_record_sensor_names_create_null();
}

void vesk_hb_record_sensor_names_destruct(vesk_hb_record_sensor_names *rec)
{
    vesk_cb_record_sensor_names_destruct(rec);
}

void vesk_hb_record_sensor_names_destroy(vesk_hb_record_sensor_names **rec)
{
    vesk_cb_record_sensor_names_destroy(rec);
}

int vesk_hb_record_sensor_names_is_equal(const vesk_hb_record_sensor_names *rec1,
                                         const vesk_hb_record_sensor_names *rec2)
{
    return vesk_cb_record_sensor_names_is_equal(rec1, rec2);
}

int vesk_hb_record_sensor_names_are_sensors_equal(const vesk_hb_record_sensor_names *rec1,
                                                  const vesk_hb_record_sensor_names *rec2)
{
    return vesk_cb_record_sensor_names_are_sensors_equal(rec1, rec2);
}

vesk_hb_record_sensor_names *
vesk_hb_record_sensor_names_copy(const vesk_hb_record_sensor_names *rec,
                                 vesk_hb_record_sensor_names *dest)
{
    return vesk_cb_record_sensor_names_copy(rec, dest);
}

uint32_t vesk_hb_record_sensor_names_get_number_sensors(const vesk_hb_record_sensor_names *rec)
{
    return vesk_cb_record_sensor_names_get_number_sensors(rec);
}

sensor_array *vesk_hb_record_sensor_names_get_sensors(const vesk_hb_record_sensor_names *rec)
{
    return vesk_cb_record_sensor_names_get_sensors(rec);
}

timestamp *vesk_hb_record_sensor_names_get_timestamp(vesk_hb_record_sensor_names *rec)
{
    return vesk_cb_record_sensor_names_get_timestamp(rec);
}

int binary_serializer_write_vesk_hb_record_sensor_names(const vesk_hb_record_sensor_names *rec,
                                                        writer *target)
{
    return binary_serializer_write_vesk_cb_record_sensor_names(rec, target);
}

int binary_serializer_read_vesk_hb_record_sensor_names(vesk_hb_record_sensor_names *rec,
                                                       reader *source)
{
    return binary_serializer_read_vesk_cb_record_sensor_names(rec, source);
}
