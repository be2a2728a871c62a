// Rows of values whose sensors may change from one to the next. Rows are stored as they come; the
// table is made in the end, when all sensors are known. Where all rows have the sensors of the
// table, which is usual, the stored rows are the table.
#ifndef VESK_PYTHON_ROW_STORE_HPP
#define VESK_PYTHON_ROW_STORE_HPP

#include <algorithm>
#include <span>
#include <vector>

#include "growing_array.hpp"
#include "sensor_columns.hpp"

namespace vesk_python
{

template <typename Value>
class row_store
{
public:
    // The place of a new row, with a value for each of @p columns.
    Value *add_row(const column_list &columns)
    {
        if (runs_.empty() || runs_.back().columns != columns) {
            runs_.push_back({columns, 0});
        }
        ++runs_.back().rows;
        return values_.extend(columns.size());
    }

    // The table of the columns @p chosen, with @p missing where a row has no value. It takes the
    // rows away.
    growing_array<Value> table(const column_list &chosen, const Value &missing)
    {
        const bool whole = std::all_of(runs_.begin(), runs_.end(),
                                       [&](const run &one) { return one.columns == chosen; });
        return whole ? std::move(values_) : arranged(chosen, missing);
    }

private:
    // Rows one after the other that have the same columns.
    struct run {
        column_list columns;
        std::size_t rows;
    };

    growing_array<Value> arranged(const column_list &chosen, const Value &missing) const
    {
        const std::size_t width = chosen.size();
        std::size_t rows = 0;
        for (const run &one : runs_) {
            rows += one.rows;
        }
        growing_array<Value> table;
        if (rows == 0 || width == 0) {
            return table;
        }
        require_memory(static_cast<double>(rows) * static_cast<double>(width) * sizeof(Value));
        Value *row = table.extend(rows * width);
        std::fill_n(row, rows * width, missing);
        const Value *stored = values_.data();
        for (const run &one : runs_) {
            const auto moves = moves_of(one.columns, chosen);
            for (std::size_t i = 0; i < one.rows; ++i) {
                for (const auto &[from, to] : moves) {
                    row[to] = stored[from];
                }
                row += width;
                stored += one.columns.size();
            }
        }
        return table;
    }

    // Which value of a row goes where in the table.
    static std::vector<std::pair<std::size_t, std::size_t>> moves_of(const column_list &columns,
                                                                     const column_list &chosen)
    {
        std::vector<std::pair<std::size_t, std::size_t>> moves;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const auto place = std::lower_bound(chosen.begin(), chosen.end(), columns[i]);
            if (place != chosen.end() && *place == columns[i]) {
                moves.emplace_back(i, static_cast<std::size_t>(place - chosen.begin()));
            }
        }
        return moves;
    }

    std::vector<run> runs_;
    growing_array<Value> values_;
};

} // namespace vesk_python

#endif
