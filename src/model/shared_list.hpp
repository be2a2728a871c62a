// The one implementation of the arrays that share a reference-counted list of owned objects.
// The public functions check what they require of their arguments; what is required of the list
// itself is checked here, with the texts of its type.
#ifndef VESK_MODEL_SHARED_LIST_HPP
#define VESK_MODEL_SHARED_LIST_HPP

#include <cstdint>
#include <cstdlib>

#include <vesk/error.h>
#include <vesk/reader.h>
#include <vesk/writer.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

// `Traits` describes the array type:
//   array, item                   the array and what its list points at
//   count, items                  access to the array's members
//   destroy, is_equal             life and comparison of an item
//   write, read                   the stored form of an item; read makes a new one
//   *_text                        the texts of violated preconditions
template <typename Traits>
struct shared_list {
    using array_type = typename Traits::array;
    using item_type = typename Traits::item;

    // The members of `array`, to be read or, unless it is const, set.
    static auto &count(auto *array) { return Traits::count(array); }
    static auto &items(auto *array) { return Traits::items(array); }

    static void init_null(array_type *array)
    {
        *array = {};
        array->version = 1;
    }

    // Takes over `list`, or leaves a null array and the list with the caller.
    static int init(array_type *array, item_type **list, uint32_t n)
    {
        init_null(array);
        int *ref_count = allocate<int>();
        if (ref_count == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        *ref_count = 1;
        array->ref_count = ref_count;
        count(array) = n;
        items(array) = list;
        return 0;
    }

    static int init_empty(array_type *array, uint32_t n)
    {
        init_null(array);
        item_type **list = allocate_zeroed<item_type *>(n);
        if (list == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const int result = init(array, list, n);
        if (result < 0) {
            free(list);
        }
        return result;
    }

    static array_type *copy(const array_type *array)
    {
        VESK_REQUIRE(array->ref_count == nullptr || *array->ref_count > 0, "*array->ref_count > 0");
        array_type *shared = allocate<array_type>();
        if (shared == nullptr) {
            return nullptr;
        }
        *shared = *array;
        if (shared->ref_count != nullptr) {
            ++*shared->ref_count;
        }
        return shared;
    }

    static void destruct(array_type *array)
    {
        if (array->ref_count != nullptr && --*array->ref_count == 0) {
            for (uint32_t i = count(array); i-- > 0;) {
                if (items(array)[i] != nullptr) {
                    Traits::destroy(&items(array)[i]);
                }
            }
            free(items(array));
            free(array->ref_count);
        }
        *array = {};
    }

    static bool is_equal(const array_type *s1, const array_type *s2)
    {
        item_type *const *list1 = items(s1);
        item_type *const *list2 = items(s2);
        if (list1 == list2) {
            VESK_REQUIRE(count(s1) == count(s2), Traits::same_count_text);
            VESK_REQUIRE(s1->ref_count == s2->ref_count, "s1->ref_count == s2->ref_count");
            return true;
        }
        if (count(s1) != count(s2) || list1 == nullptr || list2 == nullptr) {
            return false;
        }
        for (uint32_t i = 0; i < count(s1); ++i) {
            VESK_REQUIRE(list1[i] != nullptr, Traits::entry1_text);
            VESK_REQUIRE(list2[i] != nullptr, Traits::entry2_text);
            if (!Traits::is_equal(list1[i], list2[i])) {
                return false;
            }
        }
        return true;
    }

    //  offset  size  field
    //       0     1  version, 1
    //       1     4  n, 1..10000
    //       5        n items, each in its own form
    static int write(const array_type *array, writer *target)
    {
        if (count(array) > max_stored_count) {
            return QE_ERROR_LIMIT;
        }
        field_writer fields(target);
        fields.byte(static_cast<uint8_t>(array->version)).u32(count(array));
        for (uint32_t i = 0; i < count(array) && !fields.failed(); ++i) {
            VESK_REQUIRE(items(array)[i] != nullptr, Traits::entry_text);
            fields.form(Traits::write, items(array)[i]);
        }
        return fields.result();
    }

    // Leaves `array` alone unless the whole form could be read.
    static int read(array_type *array, reader *source)
    {
        field_reader fields(source);
        uint32_t n = 0;
        if (!fields.version(1).u32(&n).ok()) {
            return fields.result();
        }
        if (n == 0 || n > max_stored_count) {
            return QE_ERROR_LIMIT;
        }
        array_type found;
        const int result = init_empty(&found, n);
        if (result < 0) {
            return result;
        }
        for (uint32_t i = 0; i < n && fields.ok(); ++i) {
            fields.form(Traits::read, &items(&found)[i]);
        }
        if (!fields.ok()) {
            destruct(&found);
            return fields.result();
        }
        *array = found;
        return fields.result();
    }
};

#endif
