// Both kinds of buffer are streams of tagged records:
//
//   type      4 bytes    which payload follows
//   payload              the form of the payload of that type
//
// In memory a tagged record points at its payload and says whether it has to destroy it. What the
// two kinds share is here; what differs stands in vesk_cb_record and vesk_hb_record.
#ifndef VESK_BUFFERS_TAGGED_RECORD_HPP
#define VESK_BUFFERS_TAGGED_RECORD_HPP

#include <cstdint>

#include <vesk/error.h>
#include <vesk/reader.h>
#include <vesk/writer.h>

#include "io/fields.hpp"

// Sets the record to a payload that stays the caller's.
template <typename Record>
int tagged_record_init(Record *rec, uint32_t type, void *data)
{
    rec->type = type;
    rec->data = data;
    rec->owns_data = 0;
    return 0;
}

template <typename Payload>
int tagged_record_write(uint32_t type, const Payload *payload,
                        int (*write)(const Payload *, writer *), writer *target)
{
    return field_writer(target).u32(type).form(write, payload).result();
}

// Reads the type that begins a record: its size, 0 at the clean end of the records, or a negative
// code.
inline int tagged_record_read_type(uint32_t *type, reader *source)
{
    uint32_t stored = 0;
    const int nread = reader_read_bytes(source, &stored, sizeof stored);
    *type = big_endian(stored);
    return nread <= 0 || nread == sizeof stored ? nread : QE_ERROR_TRUNCATED;
}

// Whether the record has to be emptied before a record of `type` is read into it.
template <typename Record>
bool tagged_record_holds_other(const Record *rec, uint32_t type)
{
    return rec->type != 0 && rec->type != type;
}

// How payloads of one type are made, used again, read and destroyed.
template <typename Payload>
struct payload_operations {
    Payload *(*create_null)();
    // Both empty a payload before it is read again; null when it is read over as it is.
    void (*destruct)(Payload *);
    int (*init_null)(Payload *);
    int (*read)(Payload *, reader *);
    void (*destroy)(Payload **);
};

// Reads the payload behind a type into a record that is empty or of the same type. A payload that
// is not the record's own is left to its owner. A failed read leaves the record without a payload.
template <typename Record, typename Payload>
int tagged_record_read_payload(Record *rec, uint32_t type,
                               const payload_operations<Payload> &operations, reader *source)
{
    Payload *payload = rec->owns_data != 0 ? static_cast<Payload *>(rec->data) : nullptr;
    rec->data = nullptr;
    rec->owns_data = 0;
    if (payload == nullptr) {
        payload = operations.create_null();
        if (payload == nullptr) {
            return qe_get_last_error();
        }
    } else if (operations.destruct != nullptr) {
        operations.destruct(payload);
        operations.init_null(payload);
    }
    const int nread = operations.read(payload, source);
    if (nread <= 0) {
        operations.destroy(&payload);
        return nread < 0 ? nread : QE_ERROR_TRUNCATED;
    }
    rec->type = type;
    rec->data = payload;
    rec->owns_data = 1;
    return static_cast<int>(sizeof type) + nread;
}

#endif
