// Keeps track of the sensors of a buffer while it is recovered: which names are in force, which
// wait for an interval that needs them, and which replace lost names.
#include "recovery/governing_names.hpp"

#include <algorithm>

int governing_names::keep(const vesk_cb_record_sensor_names *names)
{
    count_ = _vesk_count_names(names);
    contents_->last_names.reset(vesk_cb_record_sensor_names_copy(names, nullptr));
    if (!contents_->last_names) {
        return QE_ERROR_NO_MEMORY;
    }
    if (!contents_->first_names) {
        contents_->first_names.reset(vesk_cb_record_sensor_names_copy(names, nullptr));
    }
    return contents_->first_names ? 0 : QE_ERROR_NO_MEMORY;
}

mended_content *governing_names::target()
{
    if (is_current()) {
        return content_;
    }
    waiting_.clear();
    return &waiting_;
}

int governing_names::take(const vesk_scan_item &item)
{
    waiting_in_stream_ = !is_current();
    const int kept = keep(item.names);
    return kept != 0 ? kept : target()->append(item);
}

int governing_names::take_mended(const vesk_cb_record_sensor_names *names)
{
    waiting_in_stream_ = !is_current();
    const int kept = keep(names);
    return kept != 0 ? kept : target()->append(names);
}

int governing_names::replace(uint32_t n, int64_t time)
{
    const vesk_cb_record_sensor_names *known = nullptr;
    for (const auto *names :
         {expected_.names_before, expected_.first_names, expected_.names_behind}) {
        if (known == nullptr && names != nullptr && (n == 0 || _vesk_count_names(names) == n)) {
            known = names;
        }
    }
    const owned_names made = known != nullptr ? _vesk_create_mended_names(known, !is_current())
                                              : _vesk_create_unknown_names(std::max(n, 1U));
    if (!made) {
        return QE_ERROR_NO_MEMORY;
    }
    made->timestamp.tv.tv_sec = static_cast<time_t>(time);
    const int kept = keep(made.get());
    return kept != 0 ? kept : target()->append(made.get());
}

int governing_names::keep_one(int64_t time)
{
    const owned_names one(vesk_cb_record_sensor_names_create_null());
    if (!one) {
        return QE_ERROR_NO_MEMORY;
    }
    const char *name = _vesk_name_at(contents_->last_names->sensors, 0);
    one->sensors = sensor_array_create_from_names(&name, 1);
    if (one->sensors == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    one->timestamp.tv.tv_sec = static_cast<time_t>(time);
    const int kept = keep(one.get());
    return kept != 0 ? kept : target()->append(one.get());
}

int governing_names::use_waiting()
{
    waiting_in_stream_ = false;
    const int appended = content_->append_names(waiting_);
    waiting_.clear();
    return appended;
}
