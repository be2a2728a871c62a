// Parses the value of --format and prints lines of fields as CSV or tab-separated values. An
// unknown format is a usage failure that names the formats of the verb.
#include "verbs/output_format.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <utility>

#include "process/failure.hpp"
#include "process/output.hpp"
#include "text/machine_text.hpp"
#include "text/suggestion.hpp"

namespace cli
{

output_format parse_format(const std::string &text, std::span<const std::string_view> known)
{
    constexpr std::array<std::pair<std::string_view, output_format>, 5> formats = {
        {{"table", output_format::table},
         {"csv", output_format::csv},
         {"tsv", output_format::tsv},
         {"jsonl", output_format::jsonl},
         {"json", output_format::json}}};
    if (text.empty()) {
        return output_format::table;
    }
    if (std::find(known.begin(), known.end(), text) == known.end()) {
        const std::string_view meant = nearest_word(text.substr(0, 20), known);
        throw failure(exit_usage,
                      fmt::format("--format {}: there is {}{}", text.substr(0, 20),
                                  fmt::join(known, ", "),
                                  meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
    }
    return std::find_if(formats.begin(), formats.end(),
                        [&](const auto &format) { return format.first == text; })
        ->second;
}

field_line &field_line::text(std::string_view field)
{
    return plain(format_ == output_format::tsv ? tsv_field(field) : csv_field(field));
}

field_line &field_line::plain(std::string_view field)
{
    if (any_) {
        line_ += format_ == output_format::tsv ? '\t' : ',';
    }
    line_ += field;
    any_ = true;
    return *this;
}

void field_line::print()
{
    line_ += '\n';
    put(line_);
    line_.clear();
    any_ = false;
}

} // namespace cli
