// A hash table from sensors to their statistics, with a guess that spares most lookups the walk
// through a chain.
#include <cstdint>
#include <cstdlib>

#include <vesk/hist_value_list.h>

#include "model/sensor_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

struct hist_value_list_node {
    int16_t seq;           // the generation in which the node was last claimed
    struct sensor *sensor; // the canonical sensor, with a reference of the node's own
    hist_value hv;
    hist_value_list_node *next;

    // Sensors are looked up in the same order for every sample, so what followed a lookup in its
    // bucket the last time is a good guess, which spares the walk through the long chains of
    // thousands of names that are alike. The guess changes neither the results nor the order of the
    // list. A list is a plain record that may be moved, so the guess belongs to its nodes.
    hist_value_list_node *latest;   // of the head of a bucket: looked up last there
    hist_value_list_node *follower; // looked up next in the bucket after this node the last time
};

// Visits the nodes of the current generation in list order, which is the order of stored history,
// until `visit(node, j)` returns false.
template <typename Visit>
static void _visit_live_nodes(const hist_value_list *list, Visit visit)
{
    uint32_t j = 0;
    for (const hist_value_list_node *head : list->buckets) {
        for (const hist_value_list_node *node = head; node != nullptr; node = node->next) {
            if (node->seq == list->seq && !visit(node, j++)) {
                return;
            }
        }
    }
}

int hist_value_list_init(hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    *list = {};
    return 0;
}

hist_value_list *hist_value_list_create(void)
{
    return create_object<hist_value_list>(hist_value_list_init);
}

static void _destroy_node(hist_value_list_node *node)
{
    sensor_destroy(&node->sensor);
    hist_value_destruct(&node->hv);
    free(node);
}

void hist_value_list_destruct(hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    for (hist_value_list_node *&head : list->buckets) {
        while (head != nullptr) {
            hist_value_list_node *node = head;
            head = node->next;
            _destroy_node(node);
        }
    }
    list->nitems = 0;
}

void hist_value_list_destroy(hist_value_list **list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    VESK_REQUIRE(*list != nullptr, "*list != ((void *)0)");
    destroy_object(list, hist_value_list_destruct);
}

static hist_value_list_node *_add_node(hist_value_list *list, hist_value_list_node **head,
                                       const sensor *s)
{
    hist_value_list_node *node = allocate<hist_value_list_node>();
    if (node == nullptr) {
        return nullptr;
    }
    node->sensor = sensor_copy(s, nullptr);
    if (node->sensor == nullptr) {
        free(node);
        return nullptr;
    }
    node->seq = list->seq;
    hist_value_init(&node->hv);
    node->next = *head;
    node->follower = node;
    node->latest = *head != nullptr ? (*head)->latest : node;
    *head = node;
    list->nitems += 1;
    return node;
}

// The node of a sensor, of any generation; a new one if there is none, null without memory. Nodes
// hold canonical sensors, so that a pointer decides without a look at the sensor.
static hist_value_list_node *_find_or_add(hist_value_list *list, const sensor *s)
{
    hist_value_list_node **head =
        &list->buckets[_sensor_get_hash_code(s) & (HIST_VALUE_LIST_NBUCKETS - 1)];
    if (*head != nullptr && (*head)->latest->follower->sensor == s->canonical) {
        return (*head)->latest = (*head)->latest->follower;
    }
    hist_value_list_node *node = *head;
    while (node != nullptr && node->sensor != s->canonical) {
        node = node->next;
    }
    if (node == nullptr) {
        node = _add_node(list, head, s);
    }
    if (node != nullptr) {
        (*head)->latest->follower = node;
        (*head)->latest = node;
    }
    return node;
}

hist_value *hist_value_list_add_if_not_present(hist_value_list *list, const sensor *s)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    VESK_REQUIRE(s != nullptr, "sensor != ((void *)0)");
    hist_value_list_node *node = _find_or_add(list, s);
    if (node == nullptr) {
        return nullptr;
    }
    if (node->seq != list->seq) {
        // A node of an older generation keeps its place in the chain.
        hist_value_destruct(&node->hv);
        hist_value_init(&node->hv);
        node->seq = list->seq;
        list->nitems += 1;
    }
    return &node->hv;
}

void hist_value_list_clear(hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    list->seq = static_cast<int16_t>(list->seq + 1);
    // If the counter returned to 0, nodes of the first generation would count as current again.
    VESK_REQUIRE(list->seq != 0, "list->seq != 0");
    list->nitems = 0;
}

int hist_value_list_is_empty(const hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    return list->nitems == 0 ? 1 : 0;
}

uint32_t hist_value_list_get_size(const hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    return list->nitems;
}

sensor_array *hist_value_list_get_sensor_copies(const hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    if (list->nitems == 0) {
        return nullptr;
    }
    sensor_array *array = sensor_array_create_empty(list->nitems);
    if (array == nullptr) {
        return nullptr;
    }
    _visit_live_nodes(list, [&](const hist_value_list_node *node, uint32_t j) {
        VESK_REQUIRE(j < list->nitems, "j < list->nitems");
        array->sensors[j] = sensor_copy(node->sensor, nullptr);
        return true;
    });
    return array;
}

hist_value *hist_value_list_get_hist_value_copies(const hist_value_list *list)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    if (list->nitems == 0) {
        return nullptr;
    }
    hist_value *copies = allocate_zeroed<hist_value>(list->nitems);
    if (copies == nullptr) {
        return nullptr;
    }
    _visit_live_nodes(list, [&](const hist_value_list_node *node, uint32_t j) {
        VESK_REQUIRE(j < list->nitems, "j < list->nitems");
        hist_value_copy(&node->hv, &copies[j]);
        return true;
    });
    return copies;
}

int hist_value_list_are_sensors_equal(const hist_value_list *list, const sensor_array *s_array)
{
    VESK_REQUIRE(list != nullptr, "list != ((void *)0)");
    VESK_REQUIRE(s_array != nullptr, "s_array != ((void *)0)");
    if (list->nitems != sensor_array_get_size(s_array)) {
        return 0;
    }
    bool equal = true;
    _visit_live_nodes(list, [&](const hist_value_list_node *node, uint32_t j) {
        equal = sensor_is_equal(node->sensor, s_array->sensors[j]) != 0;
        return equal;
    });
    return equal ? 1 : 0;
}
