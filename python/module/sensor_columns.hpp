// Which column of a table belongs to which sensor. Columns stand in the order in which the records
// name their sensors, never in that of a hash.
#ifndef VESK_PYTHON_SENSOR_COLUMNS_HPP
#define VESK_PYTHON_SENSOR_COLUMNS_HPP

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <vesk/sensor_array.h>
#include <vesk/vesk_cb_record_sensor_names.h>

namespace vesk_python
{

using column_list = std::vector<std::size_t>;

class sensor_columns
{
public:
    // The column of a value that has none: too many different names.
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    // For each value of a record that @p names govern its column; sensors that are new get the next
    // ones. The result lives until the next call.
    const column_list &columns(const vesk_cb_record_sensor_names &names);
    const std::vector<std::string> &names() const { return names_; }
    // More different names than a table may have: the others are left out.
    bool is_exceeded() const { return exceeded_; }

private:
    std::size_t column_of(std::string name);

    struct release {
        void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
    };
    std::vector<std::string> names_;
    std::unordered_map<std::string, std::size_t> known_;
    bool exceeded_ = false;
    // The sensors of the last call share their list with this copy, so it is not another one as
    // long as it has the same address.
    std::unique_ptr<sensor_array, release> governing_;
    column_list columns_;
};

// What Python calls a sensor, or any text of a box. Bytes that are no UTF-8 become "\xff", so that
// every text can be printed and written.
std::string readable_text(const std::string &text);

// The columns, ascending, that @p patterns choose; see cli::choose_sensors(). A pattern that is
// exactly what Python calls a sensor chooses that one, whatever it holds. Throws a usage failure.
column_list choose_columns(const std::vector<std::string> &names,
                           const std::vector<std::string> &patterns);

} // namespace vesk_python

#endif
