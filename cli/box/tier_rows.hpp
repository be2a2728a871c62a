// Reads a tier as intervals of the box that it belongs to: mean, extremes and deviation of a row,
// which are sensors of their own in the tier, become the summary of one sensor.
#ifndef VESK_CLI_BOX_TIER_ROWS_HPP
#define VESK_CLI_BOX_TIER_ROWS_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <vesk/hist_value.h>

#include "box/moments.hpp"
#include "box/reading.hpp"
#include "box/row_choice.hpp"
#include "box/tier.hpp"

namespace cli
{

// The times of the rows of a tier, which are to be asked for in the order of the file: a row begins
// with its period, or behind the row before it.
class tier_spans
{
public:
    explicit tier_spans(int64_t period) : period_(period) {}

    row_span next(int64_t first, int64_t last);

private:
    int64_t period_;
    std::optional<int64_t> last_end_;
};

// Those of the sensors of a tier that are sensors of the box.
std::vector<std::string> plain_sensors(const tier_kind &kind,
                                       const std::vector<std::string> &sensors);

class tier_rows : public row_visitor
{
public:
    // Called with the number of the row among the rows, or among the intervals of history, of the
    // tier, from 0 on.
    using taker = std::function<void(std::size_t row, bool is_history, const interval_row &)>;

    // @p sensors are those of the tier, @p how its history was summed up, @p wanted the names that
    // rows are to have.
    tier_rows(const tier_kind &kind, const std::vector<std::string> &sensors, const summing &how,
              const std::vector<std::string> &wanted, taker take);

    // The sensors of the tier that have to be read.
    const std::vector<std::size_t> &chosen() const { return chosen_; }

    void on_interval(const interval_row &row) override;
    void on_sample(const sample_row &row) override;

private:
    // Places in a row that is read; nothing where the tier has no such sensor.
    struct columns {
        std::optional<std::size_t> mean;
        std::optional<std::size_t> least;
        std::optional<std::size_t> greatest;
        std::optional<std::size_t> deviation;
    };

    void put(std::size_t i, const hist_value &summary, const moments &kept);
    void hand_out(std::size_t row, bool is_history, const row_span &span);

    tier_spans spans_;
    summing how_;
    taker take_;
    std::vector<std::size_t> chosen_;
    std::vector<columns> columns_; // of each wanted sensor
    std::optional<std::size_t> count_;
    std::vector<interval_summary> values_;
    std::vector<moments> kept_; // by the values
    std::vector<const interval_summary *> pointers_;
    std::size_t intervals_ = 0;
    std::size_t samples_ = 0;
};

} // namespace cli

#endif
