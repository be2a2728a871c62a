#ifndef VESK_CONFIG_H
#define VESK_CONFIG_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct config_value config_value;
typedef struct config_key config_key;

struct config_value {
    char *value;
    config_value *next;
};

struct config_key {
    char *key;
    config_value *head_value;
    config_value *tail_value;
    uint32_t nvalues;
    config_key *next;
};

typedef struct config {
    char version;
    config_key *keys;
} config;

VESK_API int config_init(config *config);
VESK_API config *config_create(void);
VESK_API int config_init_from_file(config *config, const char *filename);
VESK_API config *config_create_from_file(const char *filename);
VESK_API void config_destruct(config *config);
VESK_API void config_destroy(config **config);
VESK_API int config_add_value_for_key(config *config, const char *key, const char *value);
VESK_API char **config_get_values_for_key(const config *config, const char *key, uint32_t *nvals);
VESK_API char *config_get_single_value_for_key(const config *config, const char *key);
VESK_API char **config_split_multiword_value(char *value, uint32_t *nwords);

#ifdef __cplusplus
}
#endif

#endif
