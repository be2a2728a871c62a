/**
 * @file
 * @brief Tables from sensors to their histogram values, used while an interval is accumulated.
 *
 * hist_value_list_clear() begins a new interval without freeing anything: it starts a new
 * generation, and entries come back to life when their sensors are seen again.
 *
 * The order of a list is that of its 256 buckets, which are chosen by the low 8 bits of the
 * sensors' hash codes, and within a bucket from the sensor that was first seen last to the one that
 * was first seen first. Sensors and histogram values are handed out in this order, and history is
 * stored in it.
 *
 * A list may be moved as plain memory; the place that it leaves is then not to be used before
 * hist_value_list_init(). A null list aborts with "list != ((void *)0)" in every function.
 */
#ifndef VESK_HIST_VALUE_LIST_H
#define VESK_HIST_VALUE_LIST_H

#include <stdint.h>

#include "hist_value.h"
#include "sensor.h"
#include "sensor_array.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An entry of a list, internal to it. */
typedef struct hist_value_list_node hist_value_list_node;

enum { HIST_VALUE_LIST_NBUCKETS = 256 /**< buckets of a list */ };

/** A table from sensors to histogram values. */
typedef struct hist_value_list {
    int16_t seq;                                             /**< current generation */
    hist_value_list_node *buckets[HIST_VALUE_LIST_NBUCKETS]; /**< entries of all generations */
    uint32_t nitems; /**< entries of the current generation */
} hist_value_list;

/** Makes an empty list. @return 0. */
VESK_API int hist_value_list_init(hist_value_list *list);

/** @return a new empty list; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API hist_value_list *hist_value_list_create(void);

/** Frees all entries and gives back their sensors; the list is then empty. */
VESK_API void hist_value_list_destruct(hist_value_list *list);

/** Destructs and frees `*list` and sets it to null. Aborts with "*list != ((void *)0)", too. */
VESK_API void hist_value_list_destroy(hist_value_list **list);

/**
 * Finds the histogram value of @p sensor in the current generation, and adds one without samples if
 * there is none.
 *
 * Aborts with "sensor != ((void *)0)"; with "s->version == ((char) 1)" on a sensor that is not
 * live, "s->canonical != ((void *)0)" on a null sensor.
 *
 * @return the histogram value, which stays the list's: it lives as long as the list, and is started
 * anew when its sensor is seen again after hist_value_list_clear(). Null with QE_ERROR_NO_MEMORY
 * (-22) without memory.
 */
VESK_API hist_value *hist_value_list_add_if_not_present(hist_value_list *list,
                                                        const sensor *sensor);

/**
 * Begins a new generation: the list is empty, its entries are kept for later use.
 *
 * Aborts with "list->seq != 0" when all 65536 generations are used up.
 */
VESK_API void hist_value_list_clear(hist_value_list *list);

/** @return 1 when the current generation has no entries, else 0. */
VESK_API int hist_value_list_is_empty(const hist_value_list *list);

/** @return the number of entries of the current generation. */
VESK_API uint32_t hist_value_list_get_size(const hist_value_list *list);

/**
 * Aborts with "j < list->nitems" on a list whose count was changed from outside.
 *
 * @return a new array of the sensors of the current generation, in list order; null when there are
 * none, without a code, and null with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API sensor_array *hist_value_list_get_sensor_copies(const hist_value_list *list);

/**
 * Aborts with "j < list->nitems" on a list whose count was changed from outside.
 *
 * @return copies of the histogram values of the current generation, in list order, in one block
 * that the caller frees with free(); null when there are none, without a code, and null with
 * QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API hist_value *hist_value_list_get_hist_value_copies(const hist_value_list *list);

/**
 * Aborts with "s_array != ((void *)0)", and with "s2 != ((void *)0)" on an entry that is not
 * filled.
 *
 * @return 1 when @p s_array holds just the sensors of the current generation, in list order; else
 * 0.
 */
VESK_API int hist_value_list_are_sensors_equal(const hist_value_list *list,
                                               const sensor_array *s_array);

#ifdef __cplusplus
}
#endif

#endif
