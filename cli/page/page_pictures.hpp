// The pictures of a page that need no script, as SVG.
#ifndef VESK_CLI_PAGE_PAGE_PICTURES_HPP
#define VESK_CLI_PAGE_PAGE_PICTURES_HPP

#include <cstddef>

#include "page/html.hpp"
#include "page/page_content.hpp"

namespace cli
{

// What the box covers as one bar, the end on the right: history, ever coarser into the past, raw
// samples, gaps and events. With history the distance from the end is shown logarithmically.
void write_coverage(const page_content &content, const page_sink &put);

// The last stretch of a sensor over the range in which its past was.
void write_end_picture(const page_content &content, std::size_t sensor, const page_sink &put);

} // namespace cli

#endif
