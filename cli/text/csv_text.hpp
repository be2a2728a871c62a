// CSV with samples, line by line: the first line names the columns, the first column is the time,
// each other one a sensor. A field may stand in quotation marks (RFC 4180); an empty one is a
// missing value.
//
// The columns "kind" and "seconds" behind the time, as `vesk fetch --format csv` prints them, are
// no sensors: only rows of the kind "raw" are samples.
#ifndef VESK_CLI_TEXT_CSV_TEXT_HPP
#define VESK_CLI_TEXT_CSV_TEXT_HPP

#include <string>
#include <string_view>
#include <vector>

#include "text/sample_parser.hpp"

namespace cli
{

// Cuts a line into its fields, without their quotation marks. Throws bad_text where these do not
// fit.
void split_csv(std::string_view line, std::vector<std::string> &fields);

class csv_parser : public sample_parser
{
public:
    // Reasons for refusing a line tell the number of the column, from 1.
    line_kind parse(std::string_view line) override;

private:
    void take_header();
    void take_row();
    float value_in(std::size_t column) const;

    std::vector<std::string> fields_;
    std::size_t first_sensor_ = 1; // column
    bool has_header_ = false;
};

} // namespace cli

#endif
