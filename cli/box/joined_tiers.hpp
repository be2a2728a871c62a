// The tiers of a box, read together with it. For each time the finest rows are taken that there
// are; row_choice says which.
#ifndef VESK_CLI_BOX_JOINED_TIERS_HPP
#define VESK_CLI_BOX_JOINED_TIERS_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "box/reading.hpp"
#include "box/row_choice.hpp"
#include "box/tier.hpp"

namespace cli
{

class joined_tiers
{
public:
    // Hands out what the box itself holds, as reading::read() does.
    using box_reader =
        std::function<void(const time_range &, const std::vector<std::size_t> &, row_visitor &)>;

    // Opens the tiers of the box on @p base, which has these sensors and a raw sample every
    // @p usual_step seconds. A tier that cannot be read is told and left out.
    joined_tiers(const std::string &base, std::vector<std::string> sensors, int64_t usual_step,
                 box_reader read_box);

    bool empty() const { return tiers_.empty(); }
    // exit_failed where the machine failed, exit_damaged where a tier is damaged.
    exit_code code() const { return code_; }
    // Those of the box, followed by those that only tiers have.
    const std::vector<std::string> &sensors() const { return sensors_; }
    // The number of all rows but raw samples, and the time that they are about.
    uint64_t rows() const { return rows_; }
    const std::optional<time_range> &extent() const { return extent_; }
    const std::vector<row_span> &left_out() const { return choice_.left_out; }

    // The tier on this base name; null where it is not there or was left out.
    const reading *find(const std::string &name) const;

    // As reading::read() does.
    void read(const time_range &range, const std::vector<std::size_t> &chosen,
              row_visitor &visitor) const;

private:
    struct tier {
        tier_kind kind;
        std::unique_ptr<reading> box;
    };

    void open(const std::string &base, const tier_kind &kind);
    void take_code(exit_code code);
    void add_sensors();
    void choose(int64_t usual_step);
    void look_at(const tier &what);
    bool touches(const row_segment &part, const time_range &range) const;
    void read_part(const row_segment &part, const time_range &range,
                   const std::vector<std::size_t> &chosen, row_visitor &visitor) const;

    std::vector<std::string> sensors_;
    box_reader read_box_;
    std::vector<tier> tiers_;
    // The history of the box, then for each tier its rows and its history.
    std::vector<row_source> sources_;
    row_choice choice_;
    uint64_t rows_ = 0;
    std::optional<time_range> extent_;
    exit_code code_ = exit_done;
};

} // namespace cli

#endif
