// Formats text and numbers for programs: CSV (RFC 4180), tab-separated values and JSON. Texts may
// hold any bytes; what comes out is always valid in its format.
#ifndef VESK_CLI_TEXT_MACHINE_TEXT_HPP
#define VESK_CLI_TEXT_MACHINE_TEXT_HPP

#include <string>
#include <string_view>

namespace cli
{

// A field of CSV, quoted where CSV needs it. Characters that are not printable() become '?', line
// ends included.
std::string csv_field(std::string_view text);
// A field of tab-separated values. A tab would begin a new field; it becomes '?', like all that is
// not printable().
std::string tsv_field(std::string_view text);
// A string of JSON with its quotation marks. Everything that is not ASCII is escaped, and bytes
// that are no UTF-8 are replaced.
std::string json_string(std::string_view text);

// The shortest decimal that reads back as the same number. Nothing for NaN: no value; infinities
// are "inf" and "-inf".
std::string number_field(float value);
std::string number_field(double value);
// The same, but null for NaN and infinities, which JSON does not have.
std::string json_number(float value);
std::string json_number(double value);

} // namespace cli

#endif
