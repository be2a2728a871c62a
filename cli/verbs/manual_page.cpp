// Writes manual pages. What the help prints as it stands, indented by blanks, is printed so by the
// page, too; other text is filled. There is no date, so that the same version gives the same page.
#include "verbs/manual_page.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "verbs/command_help.hpp"
#include "verbs/unknown_verb.hpp"
#include "verbs/verb_description.hpp"

namespace cli
{
namespace
{

// Text for roff: a backslash, and what it takes for a request or for a hyphen, stand for
// themselves.
std::string roff(std::string_view text)
{
    std::string result;
    bool line_begins = true;
    for (const char c : text) {
        if (line_begins && (c == '.' || c == '\'')) {
            result += "\\&";
        }
        line_begins = c == '\n';
        switch (c) {
        case '\\':
            result += "\\e";
            break;
        case '-':
            result += "\\-";
            break;
        case '\'':
            result += "\\(aq";
            break;
        case '`':
            result += "\\(ga";
            break;
        case '^':
            result += "\\(ha";
            break;
        case '~':
            result += "\\(ti";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string bold(std::string_view text)
{
    return fmt::format("\\fB{}\\fR", roff(text));
}

std::string italic(std::string_view text)
{
    return fmt::format("\\fI{}\\fR", roff(text));
}

std::string upper(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return result;
}

std::string heading(std::string_view name, std::string_view purpose, const std::string &version)
{
    return fmt::format(".TH {} 1 \"\" \"vesk {}\" \"User Commands\"\n.SH NAME\n{} \\- {}\n",
                       roff(upper(name)), roff(version), roff(name), roff(purpose));
}

// Takes the next line from @p text, without its end.
std::string_view next_line(std::string_view &text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

// The text that the help prints behind the options. "Examples:" and "Exit codes:" become headings.
std::string prose(std::string_view text)
{
    std::string result;
    bool literal = false;
    const auto set_literal = [&](bool wanted) {
        if (literal != wanted) {
            result += wanted ? ".PP\n.nf\n" : ".fi\n.PP\n";
        }
        literal = wanted;
    };
    while (!text.empty()) {
        const std::string_view line = next_line(text);
        if (line == "Examples:" || line == "Exit codes:") {
            set_literal(false);
            result += line == "Examples:" ? ".SH EXAMPLES\n" : ".SH EXIT STATUS\n";
        } else if (line.empty()) {
            set_literal(false);
            result += result.ends_with(".PP\n") || result.ends_with("S\n") ? "" : ".PP\n";
        } else {
            set_literal(line.starts_with(' '));
            result += roff(line) + "\n";
        }
    }
    set_literal(false);
    while (result.ends_with(".PP\n")) {
        result.resize(result.size() - 4);
    }
    return result;
}

std::string synopsis(const verb_description &found)
{
    std::string line =
        fmt::format("{} [{}]", bold(fmt::format("vesk {}", found.what->name)), italic("OPTIONS"));
    for (const described_word &word : found.words) {
        const std::string name = italic(word.name) + (word.repeats ? "..." : "");
        line += word.required ? fmt::format(" {}", name) : fmt::format(" [{}]", name);
    }
    return fmt::format(".SH SYNOPSIS\n{}\n", line);
}

std::string item(const std::string &tag, const std::string &text)
{
    return fmt::format(".TP\n{}\n{}\n", tag, roff(text));
}

std::string option_item(const described_option &option)
{
    std::string tag;
    for (const std::string &name : option.names) {
        tag += fmt::format("{}{}", tag.empty() ? "" : ", ", bold(name));
    }
    if (option.takes_value()) {
        tag += fmt::format(" {}", italic(option.type));
    }
    std::string text = option.help;
    // Some say so themselves.
    if (!option.preset.empty() && text.find("default") == std::string::npos) {
        text += fmt::format(" (default {})", option.preset);
    }
    if (option.repeats && text.find("repeated") == std::string::npos) {
        text += "; may be repeated";
    }
    return item(tag, text);
}

std::string page_of_verb(const verb_description &found, const std::string &version)
{
    const verb &what = *found.what;
    std::string page =
        heading(fmt::format("vesk-{}", what.name), what.purpose, version) + synopsis(found);
    page += ".SH DESCRIPTION\n";
    for (const described_word &word : found.words) {
        page += item(italic(word.name), word.help);
    }
    page += ".SH OPTIONS\n";
    for (const described_option &option : found.options) {
        page += option_item(option);
    }
    // The text behind the options begins under a heading of its own.
    std::string notes = prose(std::string(what.more) + "\n" + exit_codes_text);
    page += (notes.starts_with(".SH") ? "" : ".SH NOTES\n") + notes;
    return page + ".SH SEE ALSO\n.BR vesk (1)\n";
}

std::string page_of_command(const std::string &version)
{
    const std::string_view purpose = command_purpose;
    std::string page = heading("vesk", purpose.substr(0, purpose.find(':')), version);
    page +=
        fmt::format(".SH SYNOPSIS\n{} {} [{}] {}\n.SH DESCRIPTION\n{}\n.SH VERBS\n", bold("vesk"),
                    italic("VERB"), italic("OPTIONS"), italic("BASE"), roff(purpose));
    std::string others;
    for (const verb_description &found : describe_all_verbs()) {
        page += item(bold(found.what->name), found.what->purpose);
        others +=
            fmt::format("{}.BR vesk\\-{} (1)", others.empty() ? "" : ",\n", roff(found.what->name));
    }
    const auto options = [](const char *one, const char *other) {
        return fmt::format("{}, {}", bold(one), bold(other));
    };
    page += ".SH OPTIONS\n";
    page += item(options("-h", "--help"), "Print the help and exit");
    page += item(options("-V", "--version"), "Print the version");
    return page + prose(std::string(examples_text) + "\n" + exit_codes_text) + ".SH SEE ALSO\n" +
           others + "\n";
}

} // namespace

std::string manual_page(const std::string &name, const std::string &version)
{
    if (name.empty()) {
        return page_of_command(version);
    }
    for (const verb *each : all_verbs()) {
        if (name == each->name) {
            return page_of_verb(describe(*each), version);
        }
    }
    throw failure(exit_usage, unknown_verb_text(name));
}

} // namespace cli
