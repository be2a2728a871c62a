// Puts texts and numbers into a page. Names, labels and texts of a box may hold anything; what goes
// through here is shown as it is and never becomes markup or script.
#ifndef VESK_CLI_PAGE_HTML_HPP
#define VESK_CLI_PAGE_HTML_HPP

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace cli
{

// Takes the page piece by piece.
using page_sink = std::function<void(std::string_view)>;

// For the content of elements and for values of attributes in quotation marks. What is not
// printable() becomes '?'.
std::string html_text(std::string_view text);

// A JSON string that may stand in a <script> element: '<', '>' and '&' are escaped, too.
std::string script_string(std::string_view text);

// Little-endian single-precision numbers in base64. All kinds of NaN become the same one.
std::string base64_of(std::span<const float> values);

} // namespace cli

#endif
