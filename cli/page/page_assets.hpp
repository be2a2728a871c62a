// The parts of a page that are the same for all boxes. They are files of web/ and of the chart
// library, and become part of the command when it is built.
#ifndef VESK_CLI_PAGE_PAGE_ASSETS_HPP
#define VESK_CLI_PAGE_PAGE_ASSETS_HPP

#include <string_view>

namespace cli::page_assets
{

// The frame of the page; {{NAME}} is where something of the box goes.
std::string_view frame();
// Each goes into an element of its own as it is, and each has the hash by which a content security
// policy knows it: 'sha256-...'.
std::string_view style();
std::string_view style_hash();
std::string_view script();
std::string_view script_hash();
// Of the chart library, with its licence. Empty in a build without it.
std::string_view library();
std::string_view library_hash();
std::string_view library_notice();

} // namespace cli::page_assets

#endif
