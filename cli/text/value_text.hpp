// Converts numbers and times to text and back: strict when it parses, exact when it formats, so
// that a value survives the way through a text unchanged.
#ifndef VESK_CLI_TEXT_VALUE_TEXT_HPP
#define VESK_CLI_TEXT_VALUE_TEXT_HPP

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace cli
{

// A text that is refused; what() is the reason.
class bad_text : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A decimal number, "nan" for a missing value, or "inf"; blanks around it do not count. Numbers
// round to the nearest single-precision number, and one that is too large for it is refused.
float parse_value(std::string_view text);
// The value before the next comma, which is taken off the front of @p fields; the comma stays. The
// same value and the same refusals as of parse_value().
float take_value(std::string_view &fields);
bool is_value(std::string_view text);

// Appends the shortest decimal that parse_value() turns back into the same number.
void append_value(std::string &out, float value);

// 17 characters, digits and colons at their places: what a line of text telemetry begins with.
bool has_time_shape(std::string_view text);

// YYYYMMDD:HH:MM:SS as seconds since the epoch, in the time zone of the process. Refuses what
// mktime() would quietly move: days that a month has not, hours that the clock skips.
int64_t parse_time(std::string_view text);
std::string format_time(int64_t seconds);

// After this call the process reads and writes times in universal time.
void use_utc();

} // namespace cli

#endif
