// Prints the rows of `vesk fetch`, for people or in a format for programs. The rows come one by one
// and are printed at once; only the names of the sensors are kept.
#ifndef VESK_CLI_VERBS_FETCH_OUTPUT_HPP
#define VESK_CLI_VERBS_FETCH_OUTPUT_HPP

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "box/sensor_statistics.hpp"
#include "text/time_text.hpp"
#include "verbs/output_format.hpp"
#include "verbs/statistic.hpp"

namespace cli
{

enum class fetch_kind { raw, interval, step };

struct fetch_row {
    int64_t time; // of its beginning
    fetch_kind kind;
    int64_t seconds; // to its end
};

class fetch_output
{
public:
    fetch_output() = default;
    fetch_output(const fetch_output &) = delete;
    fetch_output &operator=(const fetch_output &) = delete;
    virtual ~fetch_output() = default;

    virtual void print(const fetch_row &row, std::span<const sensor_statistics> cells) = 0;
    // Between the rows before and behind, samples are missing. Programs see it from the times.
    virtual void print_gap(int64_t /*last*/, int64_t /*next*/) {}
};

// Prints the heading, too. @p names live as long as what is returned.
std::unique_ptr<fetch_output> make_fetch_output(output_format format,
                                                const std::vector<std::string> &names,
                                                const std::vector<statistic> &statistics,
                                                zone where);

} // namespace cli

#endif
