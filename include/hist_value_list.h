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

typedef struct hist_value_list_node hist_value_list_node;

enum { HIST_VALUE_LIST_NBUCKETS = 256 };

typedef struct hist_value_list {
    int16_t seq;
    hist_value_list_node *buckets[HIST_VALUE_LIST_NBUCKETS];
    uint32_t nitems;
} hist_value_list;

VESK_API int hist_value_list_init(hist_value_list *list);
VESK_API hist_value_list *hist_value_list_create(void);
VESK_API void hist_value_list_destruct(hist_value_list *list);
VESK_API void hist_value_list_destroy(hist_value_list **list);
VESK_API hist_value *hist_value_list_add_if_not_present(hist_value_list *list,
                                                        const sensor *sensor);
VESK_API void hist_value_list_clear(hist_value_list *list);
VESK_API int hist_value_list_is_empty(const hist_value_list *list);
VESK_API uint32_t hist_value_list_get_size(const hist_value_list *list);
VESK_API sensor_array *hist_value_list_get_sensor_copies(const hist_value_list *list);
VESK_API hist_value *hist_value_list_get_hist_value_copies(const hist_value_list *list);
VESK_API int hist_value_list_are_sensors_equal(const hist_value_list *list,
                                               const sensor_array *s_array);

#ifdef __cplusplus
}
#endif

#endif
