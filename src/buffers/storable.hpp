// Checks before a byte is written whether a time, a text, a list of sensors or an event can be
// stored and read back unchanged.
#ifndef VESK_BUFFERS_STORABLE_HPP
#define VESK_BUFFERS_STORABLE_HPP

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>

#include <vesk/error.h>
#include <vesk/sensor.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_cb_record_event.h>
#include <vesk/vesk_limits.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"

// 0, or QE_ERROR_BAD_TIME (-11) for a time that is null or does not come back as it was.
inline int check_storable_time(const timestamp &t)
{
    const int64_t seconds = t.tv.tv_sec;
    const bool storable = t.version == 1 && t.tv.tv_usec == 0 &&
                          seconds == static_cast<int32_t>(seconds) && seconds != 0;
    return storable ? 0 : QE_ERROR_BAD_TIME;
}

// 0, QE_ERROR_LIMIT (-49) for a text that is too long, or QE_ERROR_MALFORMED (-6) for none. No more
// of it is looked at than is needed.
inline int check_storable_text(const char *text)
{
    if (text == nullptr || text[0] == 0) {
        return QE_ERROR_MALFORMED;
    }
    return strnlen(text, max_stored_count + 1) > max_stored_count ? QE_ERROR_LIMIT : 0;
}

// 0, QE_ERROR_MALFORMED (-6) when a sensor is there twice, or QE_ERROR_NO_MEMORY (-22). Equal names
// share one canonical sensor, so pointers are all that has to be compared.
inline int check_repetition(sensor *const *sensors, uint32_t n)
{
    const owned_memory<const sensor *> sorted(allocate<const sensor *>(n));
    if (!sorted) {
        return QE_ERROR_NO_MEMORY;
    }
    const sensor **end = std::transform(sensors, sensors + n, sorted.get(),
                                        [](const sensor *s) { return s->canonical; });
    std::sort(sorted.get(), end, std::less<>());
    return std::adjacent_find(sorted.get(), end) == end ? 0 : QE_ERROR_MALFORMED;
}

// 0, or the code of what is wrong with a live event: QE_ERROR_MALFORMED (-6) for its type, or the
// code of its time or text.
inline int check_storable_event(const vesk_cb_record_event &event)
{
    if (event.type < VESK_MIN_EVENT_TYPE || event.type > VESK_MAX_EVENT_TYPE) {
        return QE_ERROR_MALFORMED;
    }
    const int time = check_storable_time(event.timestamp);
    return time < 0 ? time : check_storable_text(event.text);
}

#endif
