// Fills the frame of a page: each {{NAME}} in it is replaced by a part of the style and script, or
// by a section made from the box.
#include "page/page_writer.hpp"

#include <array>
#include <fmt/format.h>

#include <vesk/vesk_version.h>

#include "page/page_assets.hpp"
#include "page/page_data.hpp"
#include "page/page_pictures.hpp"
#include "page/page_sections.hpp"

namespace cli
{
namespace
{

struct part {
    std::string_view name;
    void (*write)(const page_content &content, const page_sink &put);
};

// Scripts and styles are known by their hashes. Nothing is asked for from anywhere, but for what is
// new by a page that follows its box.
void write_policy(const page_content &content, const page_sink &put)
{
    put(fmt::format("default-src 'none'; script-src {} {}; style-src {}; img-src data:; "
                    "{}base-uri 'none'; form-action 'none'",
                    page_assets::script_hash(), page_assets::library_hash(),
                    page_assets::style_hash(),
                    content.follows.empty() ? "" : "connect-src 'self'; "));
}

void write_verb(const page_content &content, const page_sink &put)
{
    put(content.follows.empty() ? "report" : "serve");
}

void write_notice(const page_content & /*content*/, const page_sink &put)
{
    if (!page_assets::library_notice().empty()) {
        put("<details><summary>The large chart is drawn by dygraphs</summary><pre>");
        for (std::string_view rest = page_assets::library_notice(); !rest.empty();) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            put(html_text(line));
            put("\n");
            rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        }
        put("</pre></details>");
    }
}

// In any order.
constexpr std::array<part, 19> parts = {{
    {"policy", write_policy},
    {"version", [](const page_content &, const page_sink &put) { put(VESK_VERSION); }},
    {"style", [](const page_content &, const page_sink &put) { put(page_assets::style()); }},
    {"script", [](const page_content &, const page_sink &put) { put(page_assets::script()); }},
    {"library", [](const page_content &, const page_sink &put) { put(page_assets::library()); }},
    {"notice", write_notice},
    {"verb", write_verb},
    {"name", [](const page_content &from, const page_sink &put) { put(html_text(from.name)); }},
    {"title", write_title},
    {"machine", write_machine},
    {"verdict", write_verdict},
    {"verdict-kind", write_verdict_kind},
    {"facts", write_facts},
    {"coverage", write_coverage},
    {"unusual", write_unusual},
    {"happened", write_happened},
    {"numbers", write_numbers},
    {"files", write_files},
    {"data", write_data},
}};

void write_part(std::string_view name, const page_content &content, const page_sink &put)
{
    for (const part &one : parts) {
        if (one.name == name) {
            one.write(content, put);
        }
    }
}

} // namespace

void write_page(const page_content &content, const page_sink &put)
{
    std::string_view rest = page_assets::frame();
    for (;;) {
        const std::size_t begin = rest.find("{{");
        put(rest.substr(0, begin));
        if (begin == std::string_view::npos) {
            return;
        }
        rest.remove_prefix(begin + 2);
        const std::size_t end = rest.find("}}");
        write_part(rest.substr(0, end), content, put);
        rest.remove_prefix(end + 2);
    }
}

} // namespace cli
