// Names of sensors where those that are stored cannot stay or are lost.
//
// In: a names record as it was found, or a number of sensors. Out: a names record that readers
// take: as many sensors, in their order, each with a name, and those names kept that can be.
// Nothing is assumed about the names: they may be empty, equal, and as long as the stored form
// allows.
#ifndef VESK_RECOVERY_MENDED_NAMES_HPP
#define VESK_RECOVERY_MENDED_NAMES_HPP

#include <cstdint>

#include <vesk/vesk_cb_record_sensor_names.h>

#include "support/owner.hpp"

using owned_names = owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy>;

// The number of sensors; 0 for null.
uint32_t _vesk_count_names(const vesk_cb_record_sensor_names *names);

const char *_vesk_name_at(const sensor_array *sensors, uint32_t i);

// A copy in which no name is empty and, if `unique`, none is repeated. Null without memory.
owned_names _vesk_create_mended_names(const vesk_cb_record_sensor_names *names, bool unique);

// The names "unknown.1", "unknown.2" and so on, at no time. Null without memory.
owned_names _vesk_create_unknown_names(uint32_t n);

#endif
