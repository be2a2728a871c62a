// The numbers of a page as JSON, for its script.
#ifndef VESK_CLI_PAGE_PAGE_DATA_HPP
#define VESK_CLI_PAGE_PAGE_DATA_HPP

#include "page/html.hpp"
#include "page/page_content.hpp"

namespace cli
{

// An object with
//
//   follows    where a page that follows its box goes on; not in others
//   step       usual distance of samples in seconds, 0 if unknown
//   raw        the time from which there are raw samples, or null
//   wide       how many columns are no single samples; they come first
//   intervals  how many of these are intervals of history; they come first
//   starts     the time of each column
//   lengths    the seconds from its first to its last sample
//   holes      numbers of the columns that no line leads to
//   sensors    name, unit (symbol and step of its prefixes: 1024, 1000 or 0), numbers (count,
//   least,
//              mean, greatest, deviation, first, last, and when the extremes were) and values: in
//              base64 the least, mean and greatest values of the wide columns and then the samples
//
// It may stand in a script element as it is.
void write_data(const page_content &content, const page_sink &put);

} // namespace cli

#endif
