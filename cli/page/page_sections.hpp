// The sections of a page as HTML, which need no script to be read.
#ifndef VESK_CLI_PAGE_PAGE_SECTIONS_HPP
#define VESK_CLI_PAGE_PAGE_SECTIONS_HPP

#include <string_view>

#include "page/html.hpp"
#include "page/page_content.hpp"

namespace cli
{

// As many sensors are shown as unusual.
constexpr std::size_t most_unusual_shown = 8;

void write_title(const page_content &content, const page_sink &put);
// The name of the machine, or of the box where no machine is told.
void write_machine(const page_content &content, const page_sink &put);
// How the box ended, in a sentence, and a word for the style of it.
void write_verdict(const page_content &content, const page_sink &put);
void write_verdict_kind(const page_content &content, const page_sink &put);
std::string_view verdict_kind(const box_ending &ending);
// Files, times, sensors and recordings in short.
void write_facts(const page_content &content, const page_sink &put);
// What was unusual at the end, with a chart each.
void write_unusual(const page_content &content, const page_sink &put);
// Events and gaps.
void write_happened(const page_content &content, const page_sink &put);
// The statistics of all sensors as a table.
void write_numbers(const page_content &content, const page_sink &put);
// Every file with what a check finds in it.
void write_files(const page_content &content, const page_sink &put);

// The name of a sensor for people, without the "::" that it begins with.
std::string_view short_name(std::string_view sensor);
// "2026-11-21 04:39:31".
std::string page_time(int64_t seconds);

} // namespace cli

#endif
