// Writes the page of a box: one HTML file that needs nothing else, readable with and without
// script.
#ifndef VESK_CLI_PAGE_PAGE_WRITER_HPP
#define VESK_CLI_PAGE_PAGE_WRITER_HPP

#include "page/html.hpp"
#include "page/page_content.hpp"

namespace cli
{

// @p put takes the page piece by piece; what it throws comes through. The same box gives the same
// bytes.
void write_page(const page_content &content, const page_sink &put);

} // namespace cli

#endif
