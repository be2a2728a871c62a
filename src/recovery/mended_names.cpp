// Makes names for sensors whose stored name is empty, is used by another sensor or is lost. No name
// that is made equals one that a sensor of the record has.
#include "recovery/mended_names.hpp"

#include <algorithm>
#include <stdio.h>
#include <string.h>

#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/text_hash.hpp"

static constexpr char nameless[] = "unknown";

uint32_t _vesk_count_names(const vesk_cb_record_sensor_names *names)
{
    return names == nullptr ? 0 : sensor_array_get_size(names->sensors);
}

const char *_vesk_name_at(const sensor_array *sensors, uint32_t i)
{
    return sensor_array_get_sensors(sensors)[i]->canonical->name;
}

// A record for `n` sensors that are put in later. Null without memory.
static owned_names _create_empty(uint32_t n)
{
    owned_names names(vesk_cb_record_sensor_names_create_null());
    if (names) {
        names->sensors = sensor_array_create_empty(n);
    }
    return names && names->sensors != nullptr ? static_cast<owned_names &&>(names) : owned_names();
}

owned_names _vesk_create_unknown_names(uint32_t n)
{
    owned_names names = _create_empty(n);
    for (uint32_t i = 0; names && i < n; ++i) {
        char name[32];
        snprintf(name, sizeof name, "%s.%u", nameless, i + 1);
        sensor *made = sensor_create(name);
        if (made == nullptr) {
            return owned_names();
        }
        sensor_array_set(names->sensors, static_cast<int>(i), made);
    }
    return names;
}

namespace
{

// The number must not make a name too long to be stored.
constexpr std::size_t longest_stem = max_stored_count - 16;

// Texts by their content, each with a number. They must outlive the table.
class text_table
{
public:
    struct entry {
        const char *text;
        std::size_t length;
        uint32_t number;
    };

    // Room for `n` texts; false without memory.
    bool reserve(std::size_t n)
    {
        std::size_t size = 8;
        while (size < 2 * n) {
            size *= 2;
        }
        mask_ = size - 1;
        entries_.reset(allocate_zeroed<entry>(size));
        return entries_.get() != nullptr;
    }

    // The entry of the text, whose `text` is null when it is not in the table.
    entry *find(const char *text, std::size_t length) const
    {
        auto i = static_cast<std::size_t>(hash_text(text, length));
        for (;; ++i) {
            entry *at = entries_.get() + (i & mask_);
            if (at->text == nullptr ||
                (at->length == length && memcmp(at->text, text, length) == 0)) {
                return at;
            }
        }
    }
    bool has(const char *text) const { return find(text, strlen(text))->text != nullptr; }

    // The entry of the text, which is in the table then.
    entry *add(const char *text, std::size_t length)
    {
        entry *at = find(text, length);
        if (at->text == nullptr) {
            *at = {text, length, 0};
        }
        return at;
    }

private:
    owned_memory<entry> entries_;
    std::size_t mask_ = 0;
};

// Makes names that nothing has: neither the sensors as they are nor those made so far.
class fresh_names
{
public:
    // False without memory.
    bool begin(const sensor_array *sensors)
    {
        const uint32_t n = sensor_array_get_size(sensors);
        if (!taken_.reserve(2 * std::size_t(n)) || !stems_.reserve(n) || !kept_.reserve(n)) {
            return false;
        }
        for (uint32_t i = 0; i < n; ++i) {
            const char *name = _vesk_name_at(sensors, i);
            (void)taken_.add(name, strlen(name));
        }
        return true;
    }

    // True the first time that a name is asked for.
    bool is_first(const char *name)
    {
        text_table::entry *at = kept_.add(name, strlen(name));
        return at->number++ == 0;
    }

    // `stem` with the first number above `made` that makes a name that is not taken. What was
    // taken stays taken, so the search goes on behind the last number of the same stem.
    sensor *create(const char *stem, uint32_t made)
    {
        const std::size_t length = std::min(strlen(stem), longest_stem);
        const owned_memory<char> name(allocate<char>(length + 16));
        if (!name) {
            return nullptr;
        }
        text_table::entry *last = stems_.add(stem, length);
        uint32_t number = std::max(made, last->number);
        memcpy(name.get(), stem, length);
        do {
            snprintf(name.get() + length, 16, ".%u", ++number);
        } while (taken_.has(name.get()));
        last->number = number;
        sensor *fresh = sensor_create(name.get());
        if (fresh != nullptr) {
            const char *kept = fresh->canonical->name;
            (void)taken_.add(kept, strlen(kept));
        }
        return fresh;
    }

private:
    text_table taken_;
    text_table kept_;
    text_table stems_;
};

} // namespace

owned_names _vesk_create_mended_names(const vesk_cb_record_sensor_names *names, bool unique)
{
    const uint32_t n = _vesk_count_names(names);
    owned_names mended = _create_empty(n);
    fresh_names fresh;
    if (!mended || !fresh.begin(names->sensors)) {
        return owned_names();
    }
    timestamp_copy(&names->timestamp, &mended->timestamp);
    for (uint32_t i = 0; i < n; ++i) {
        const char *name = _vesk_name_at(names->sensors, i);
        const bool stays = name[0] != 0 && (!unique || fresh.is_first(name));
        sensor *made =
            stays ? sensor_create(name) : fresh.create(name[0] == 0 ? nameless : name, i);
        if (made == nullptr) {
            return owned_names();
        }
        sensor_array_set(mended->sensors, static_cast<int>(i), made);
    }
    return mended;
}
