// The format in which a verb prints: a table for people, or one of several formats for programs.
// The option --format is parsed here, and lines of fields are put together.
#ifndef VESK_CLI_VERBS_OUTPUT_FORMAT_HPP
#define VESK_CLI_VERBS_OUTPUT_FORMAT_HPP

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

enum class output_format {
    table,
    csv,
    tsv,
    jsonl, // an object in each line
    json   // one object
};

// The value of --format; empty is the table. @p known are the names that the verb has. Another one
// is a usage failure that names the nearest.
output_format parse_format(const std::string &text, std::span<const std::string_view> known);

// Fields with commas or tabs between them, and a line end.
class field_line
{
public:
    explicit field_line(output_format format) : format_(format) {}
    field_line &text(std::string_view field);
    // As it is: a number, or a time.
    field_line &plain(std::string_view field);
    // Prints the line and begins a new one.
    void print();

private:
    output_format format_;
    std::string line_;
    bool any_ = false;
};

} // namespace cli

#endif
