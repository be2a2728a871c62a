// Reads keys and their values from a text file, one line for each key. Every failed allocation
// leaves its code in the last-error cell.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vesk/config.h>
#include <vesk/error.h>

#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static constexpr char blanks[] = " \t";

// What fgets() reads at a time, with its terminator. A longer line goes on as another line.
static constexpr int line_size = 4096;

int config_init(config *c)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    *c = {1, nullptr};
    return 0;
}

config *config_create(void)
{
    return create_object<config>(config_init);
}

// Splits a line into a key and a value, both inside `line`. Null pointers for a blank line or a
// comment. Returns 0, or QE_ERROR_SYNTAX (-1) for a line
// without a value.
static int _config_split_line(char *line, char **key, char **value)
{
    *key = nullptr;
    *value = nullptr;
    char *start = line + strspn(line, blanks);
    if (*start == '\n' || *start == '#') {
        return 0;
    }
    char *rest = nullptr;
    // A newline does not end a key: on a line without a value it becomes part of the key.
    *key = strtok_r(start, blanks, &rest);
    if (*key == nullptr) {
        return QE_ERROR_SYNTAX;
    }
    *value = strtok_r(nullptr, "\n", &rest);
    if (*value == nullptr) {
        return QE_ERROR_SYNTAX;
    }
    *value += strspn(*value, blanks);
    return **value != '\0' ? 0 : QE_ERROR_SYNTAX;
}

static int _config_read(config *c, FILE *fp)
{
    char line[line_size];
    while (fgets(line, sizeof line, fp) != nullptr) {
        char *key = nullptr;
        char *value = nullptr;
        int result = _config_split_line(line, &key, &value);
        if (result == 0 && key != nullptr) {
            result = config_add_value_for_key(c, key, value);
        }
        if (result < 0) {
            return result;
        }
    }
    VESK_REQUIRE(feof(fp), "feof (fp)");
    return 0;
}

int config_init_from_file(config *c, const char *filename)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    const owned_file fp(fopen(filename, "r"));
    if (!fp) {
        return QE_ERROR_OPEN;
    }
    config_init(c);
    const int result = _config_read(c, fp.get());
    if (result < 0) {
        config_destruct(c);
    }
    return result;
}

config *config_create_from_file(const char *filename)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    return create_object<config>(
        [filename](config *c) { return config_init_from_file(c, filename); });
}

static void _config_destroy_value(config_value *node)
{
    free(node->value);
    free(node);
}

static void _config_destroy_key(config_key *node)
{
    while (node->head_value != nullptr) {
        config_value *value = node->head_value;
        node->head_value = value->next;
        _config_destroy_value(value);
    }
    free(node->key);
    free(node);
}

using owned_value = owner<config_value, _config_destroy_value>;
using owned_key = owner<config_key, _config_destroy_key>;

void config_destruct(config *c)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(c->version == 1, "config->version == ((char) 1)");
    while (c->keys != nullptr) {
        config_key *node = c->keys;
        c->keys = node->next;
        _config_destroy_key(node);
    }
    *c = {};
}

void config_destroy(config **c)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(*c != nullptr, "*config != ((void *)0)");
    destroy_object(c, config_destruct);
}

static config_key *_config_find(const config *c, const char *key)
{
    config_key *node = c->keys;
    while (node != nullptr && strcmp(node->key, key) != 0) {
        node = node->next;
    }
    return node;
}

// A copy of `text`, as a node of its own; null without memory.
static config_value *_config_create_value(const char *text)
{
    owned_value node(allocate_zeroed<config_value>(1));
    if (!node) {
        return nullptr;
    }
    node->value = duplicate_string(text);
    return node->value != nullptr ? node.release() : nullptr;
}

// A key without values; null without memory.
static config_key *_config_create_key(const char *text)
{
    owned_key node(allocate_zeroed<config_key>(1));
    if (!node) {
        return nullptr;
    }
    node->key = duplicate_string(text);
    return node->key != nullptr ? node.release() : nullptr;
}

static void _config_append(config_key *node, config_value *value)
{
    if (node->tail_value == nullptr) {
        node->head_value = value;
    } else {
        node->tail_value->next = value;
    }
    node->tail_value = value;
    node->nvalues += 1;
}

int config_add_value_for_key(config *c, const char *key, const char *value)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(c->version == 1, "config->version == ((char) 1)");
    VESK_REQUIRE(key != nullptr, "key != ((void *)0)");
    VESK_REQUIRE(value != nullptr, "value != ((void *)0)");
    owned_value value_node(_config_create_value(value));
    if (!value_node) {
        return QE_ERROR_NO_MEMORY;
    }
    config_key *key_node = _config_find(c, key);
    if (key_node == nullptr) {
        key_node = _config_create_key(key);
        if (key_node == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        key_node->next = c->keys;
        c->keys = key_node;
    }
    _config_append(key_node, value_node.release());
    return 0;
}

char **config_get_values_for_key(const config *c, const char *key, uint32_t *nvals)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(c->version == 1, "config->version == ((char) 1)");
    VESK_REQUIRE(key != nullptr, "key != ((void *)0)");
    VESK_REQUIRE(nvals != nullptr, "nvals != ((void *)0)");
    // Null is no failure here, so the caller must be able to tell.
    qe_set_last_error(0);
    *nvals = 0;
    const config_key *node = _config_find(c, key);
    if (node == nullptr) {
        return nullptr;
    }
    VESK_REQUIRE(node->nvalues > 0, "node->nvalues > 0");
    char **values = allocate<char *>(node->nvalues);
    if (values == nullptr) {
        return nullptr;
    }
    for (const config_value *value = node->head_value; value != nullptr; value = value->next) {
        values[(*nvals)++] = value->value;
    }
    return values;
}

char *config_get_single_value_for_key(const config *c, const char *key)
{
    VESK_REQUIRE(c != nullptr, "config != ((void *)0)");
    VESK_REQUIRE(c->version == 1, "config->version == ((char) 1)");
    VESK_REQUIRE(key != nullptr, "key != ((void *)0)");
    const config_key *node = _config_find(c, key);
    return node != nullptr ? node->head_value->value : nullptr;
}

char **config_split_multiword_value(char *value, uint32_t *nwords)
{
    VESK_REQUIRE(value != nullptr, "value != ((void *)0)");
    VESK_REQUIRE(nwords != nullptr, "nwords != ((void *)0)");
    *nwords = 0;
    // Never empty, so that null always means that there is no memory.
    const size_t length = strlen(value);
    char **words = allocate<char *>(length > 0 ? length : 1);
    if (words == nullptr) {
        return nullptr;
    }
    char *rest = nullptr;
    for (char *word = strtok_r(value, blanks, &rest); word != nullptr;
         word = strtok_r(nullptr, blanks, &rest)) {
        words[(*nwords)++] = word;
    }
    return words;
}
