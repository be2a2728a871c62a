// Takes the number of a buffer from its name, and tells which items of a scan count as records.
#include "box/raw_position.hpp"

#include <charconv>
#include <string_view>

#include <vesk/sensor_array.h>

namespace cli
{

uint32_t number_of_file(const stored_file &file)
{
    constexpr std::string_view kind = ".cbuf.z";
    std::string_view name = file.path;
    if (!name.ends_with(kind)) {
        return 0;
    }
    name.remove_suffix(kind.size());
    name.remove_prefix(name.rfind('.') == std::string_view::npos ? 0 : name.rfind('.') + 1);
    uint32_t number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number;
}

bool is_sample(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_SENSOR_VALUES && item.names != nullptr &&
           item.names->sensors != nullptr &&
           sensor_array_get_size(item.names->sensors) == item.values->n_sensors;
}

bool is_raw_record(const vesk_scan_item &item)
{
    return item.event != nullptr || is_sample(item);
}

} // namespace cli
