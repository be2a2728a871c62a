/**
 * @file
 * @brief A reader for configuration files of keys and values.
 *
 * A line holds a key and a value, with blanks or tabs between them:
 *
 *     # comment
 *     sensors  temp1 temp2
 *     sensors  fan
 *
 * - A key ends at the first blank or tab, the value is the rest of the line. Blanks before the key
 *   and between key and value do not count, those behind the value belong to it.
 * - A key may stand on several lines; it has then several values, in the order of the file.
 * - Lines of nothing but blanks and tabs, and lines whose first other character is '#', are
 *   ignored. A '#' anywhere else is text.
 * - A key without a value is an error, and so are blanks without a newline at the end of the file.
 * - Lines end with a newline only: a carriage return before it belongs to the value, and one alone
 *   on its line is a key without a value. A line of more than 4095 characters goes on as if the
 *   rest were another line.
 *
 * All strings that are handed out belong to the configuration and live as long as it does.
 */
#ifndef VESK_CONFIG_H
#define VESK_CONFIG_H

#include <stdint.h>

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct config_value config_value;
typedef struct config_key config_key;

/** A value of a key. */
struct config_value {
    char *value;        /**< the text; owned */
    config_value *next; /**< the next value of the key */
};

/** A key with its values. */
struct config_key {
    char *key;                /**< the text; owned */
    config_value *head_value; /**< the first value */
    config_value *tail_value; /**< the last value; null just when `head_value` is */
    uint32_t nvalues;         /**< the number of values */
    config_key *next;         /**< the key that was new before this one */
};

/** A configuration. */
typedef struct config {
    char version;     /**< 1 while live */
    config_key *keys; /**< the keys, the newest first; owned */
} config;

/** Makes @p config an empty configuration. @return 0. */
VESK_API int config_init(config *config);

/** @return a new empty configuration; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API config *config_create(void);

/**
 * Makes @p config the configuration in a file.
 *
 * Aborts with "feof (fp)" when the file can be opened but not read, such as a directory.
 *
 * @return 0; QE_ERROR_OPEN (-40) when the file cannot be opened, QE_ERROR_SYNTAX (-1) for a line
 * with a key but no value, QE_ERROR_NO_MEMORY (-22) without memory. After a failure @p config holds
 * nothing and must not be destructed: it is dead, or as it was before when the file could not be
 * opened.
 */
VESK_API int config_init_from_file(config *config, const char *filename);

/** @return a new configuration; null with a code as of config_init_from_file(). */
VESK_API config *config_create_from_file(const char *filename);

/** Releases all keys and values; @p config stays with the caller as storage. */
VESK_API void config_destruct(config *config);

/** Destructs and frees `*config` and sets it to null. */
VESK_API void config_destroy(config **config);

/**
 * Adds a copy of @p value behind the values of @p key, which is added if it is new.
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22), also in the last-error cell, without memory; nothing is
 * then added.
 */
VESK_API int config_add_value_for_key(config *config, const char *key, const char *value);

/**
 * Lists the values of a key, and stores their number in @p nvals.
 *
 * This is the one function that sets the last-error cell to 0, so that a key that is absent can be
 * told from missing memory.
 *
 * Aborts with "key != ((void *)0)", "nvals != ((void *)0)" or "node->nvalues > 0".
 *
 * @return the values, in an array that the caller frees with free(). Null, and 0 values, for an
 * absent key, and with QE_ERROR_NO_MEMORY (-22) in the last-error cell without memory.
 */
VESK_API char **config_get_values_for_key(const config *config, const char *key, uint32_t *nvals);

/** @return the first value of a key; null, without a code, for an absent key. */
VESK_API char *config_get_single_value_for_key(const config *config, const char *key);

/**
 * Splits @p value into words at blanks and tabs, and stores their number in @p nwords. Terminators
 * are written into @p value, which may be one of a configuration.
 *
 * @return the words, which lie in @p value, in an array that the caller frees with free(); null,
 * and 0 words, with QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API char **config_split_multiword_value(char *value, uint32_t *nwords);

#ifdef __cplusplus
}
#endif

#endif
