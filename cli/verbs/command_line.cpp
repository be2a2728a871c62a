// Parses the command line and runs the verb that it names. Only this file knows CLI11: verbs
// describe their options through option_list. A mistyped verb or option is a usage failure with the
// nearest name that exists.
#include "verbs/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <optional>

#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/suggestion.hpp"
#include "verbs/command_help.hpp"
#include "verbs/completion.hpp"
#include "verbs/manual_page.hpp"
#include "verbs/unknown_verb.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

// CLI11 indents nothing and wraps nothing in a footer, so it is written as it is to be shown.
std::string footer(const std::string &text)
{
    return text + "\n" + exit_codes_text;
}

// CLI11 takes a word like [a,b] among the last ones of a verb for a list and splits it, but here it
// is a pattern for names. With this character in front the word stays whole; the option that takes
// it removes the character again.
constexpr char whole_word_mark = '\x01';

std::string marked(std::string word)
{
    const bool needs_mark = word.starts_with('[') || word.starts_with(whole_word_mark);
    return needs_mark ? whole_word_mark + std::move(word) : std::move(word);
}

std::string unmarked(std::string word)
{
    if (word.starts_with(whole_word_mark)) {
        word.erase(0, 1);
    }
    return word;
}

class options_of_verb : public option_list
{
public:
    explicit options_of_verb(CLI::App &verb) : verb_(verb) {}

    void required_word(const char *name, std::string &value, const std::string &help) override
    {
        add(name, value, help)->required();
    }
    void word(const char *name, std::string &value, const std::string &help) override
    {
        add(name, value, help);
    }
    void words(const char *name, std::vector<std::string> &values, const std::string &help) override
    {
        add(name, values, help);
    }
    void text(const char *name, const char *type, std::string &value,
              const std::string &help) override
    {
        add(name, value, help)->type_name(type)->capture_default_str();
    }
    void texts(const char *name, const char *type, std::vector<std::string> &values,
               const std::string &help) override
    {
        // Each mention of the option takes one value, so that the words behind it are not taken for
        // further values.
        add(name, values, help)->type_name(type)->allow_extra_args(false);
    }
    void number(const char *name, const char *type, std::optional<uint32_t> &value,
                const std::string &help) override
    {
        verb_.add_option(name, value, help)->type_name(type);
    }
    void flag(const char *name, bool &value, const std::string &help) override
    {
        verb_.add_flag(name, value, help);
    }
    presence given() const override
    {
        return [verb = &verb_](const std::string &name) {
            const CLI::Option *option = verb->get_option_no_throw(name);
            return option != nullptr && option->count() > 0;
        };
    }

private:
    template <typename Value>
    CLI::Option *add(const char *name, Value &value, const std::string &help)
    {
        return verb_.add_option(name, value, help)->transform([](const std::string &word) {
            return unmarked(word);
        });
    }

    CLI::App &verb_;
};

// A verb with its parser, and the action that runs if the user chose it.
struct prepared_verb {
    const CLI::App *parser;
    action run;
};

std::vector<prepared_verb> add_verbs(CLI::App &app)
{
    std::vector<prepared_verb> prepared;
    for (const verb *each : all_verbs()) {
        CLI::App *parser = app.add_subcommand(each->name, each->purpose)->group("Verbs");
        parser->footer(footer(each->more));
        options_of_verb options(*parser);
        prepared.push_back({parser, each->prepare(options)});
    }
    return prepared;
}

void set_up(CLI::App &app, const std::string &version)
{
    app.set_version_flag("-V,--version", "vesk " + version, "Print the version");
    app.require_subcommand(1);
    app.get_formatter()->label("SUBCOMMAND", "VERB");
    app.get_formatter()->label("TEXT", "");
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->column_width(22);
    app.footer(footer(examples_text));
}

// A verb that does not exist is told apart from wrong options of one that does.
bool refuse_unknown_verb(const std::string &typed)
{
    const std::vector<const verb *> verbs = all_verbs();
    if (std::any_of(verbs.begin(), verbs.end(),
                    [&](const verb *each) { return typed == each->name; })) {
        return false;
    }
    complain(unknown_verb_text(typed));
    say("Try 'vesk --help'.\n");
    return true;
}

// "vesk help VERB" is "vesk VERB --help"; "vesk help" and "vesk help help" are "vesk --help".
void translate_help(std::vector<std::string> &words)
{
    if (words.front() == "help") {
        const auto verb = std::find_if(words.begin(), words.end(),
                                       [](const std::string &word) { return word != "help"; });
        words.erase(words.begin(), verb);
        words.emplace_back("--help");
    }
}

// "vesk help --man [VERB]" and "vesk help --completion SHELL": what packages lay down beside the
// command.
std::optional<std::string> generated_help(const std::vector<std::string> &words,
                                          const std::string &version)
{
    if (words.size() < 2 || words[0] != "help" ||
        (words[1] != "--man" && words[1] != "--completion")) {
        return std::nullopt;
    }
    const std::string subject = words.size() > 2 ? words[2] : std::string();
    if (words.size() > 3) {
        throw failure(exit_usage, words[1] + " takes one word");
    }
    return words[1] == "--man" ? manual_page(subject, version) : completion_script(subject);
}

// The option of @p parser that was most likely meant by one of the words that it does not know.
std::string meant_option(const CLI::App &parser)
{
    std::vector<std::string> known;
    for (const CLI::Option *option : parser.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            known.push_back("--" + name);
        }
    }
    const std::vector<std::string_view> names(known.begin(), known.end());
    for (const std::string &typed : parser.remaining()) {
        const std::string_view name = std::string_view(typed).substr(0, typed.find('='));
        const std::string_view meant =
            name.starts_with('-') ? nearest_word(name, names) : std::string_view();
        if (!meant.empty()) {
            return fmt::format("; did you mean '{}'?", meant);
        }
    }
    return {};
}

// What the parser says of a value that is no number: "Could not convert: --rows = x".
std::string reason_of(const CLI::ParseError &wrong)
{
    constexpr std::string_view before = "Could not convert: ";
    constexpr std::string_view between = " = ";
    const std::string reason = wrong.what();
    const std::size_t split = reason.find(between);
    if (!reason.starts_with(before) || split == std::string::npos) {
        return reason;
    }
    return fmt::format("{} {}: must be a whole number, at most {}",
                       reason.substr(before.size(), split - before.size()),
                       reason.substr(split + between.size()), std::numeric_limits<uint32_t>::max());
}

exit_code refuse(const CLI::App &app, const CLI::ParseError &wrong)
{
    const auto verbs = app.get_subcommands();
    const CLI::App &parser = verbs.empty() ? app : *verbs.front();
    std::string reason = reason_of(wrong);
    std::erase(reason, whole_word_mark);
    complain(printable(reason) + meant_option(parser));
    say(fmt::format("Try 'vesk {}--help'.\n", verbs.empty() ? "" : parser.get_name() + " "));
    return exit_usage;
}

exit_code show(const std::string &text)
{
    put(text);
    flush_output();
    return exit_done;
}

} // namespace

exit_code run_command_line(std::vector<std::string> words, const std::string &version)
{
    CLI::App app(command_purpose, "vesk");
    set_up(app, version);
    const std::vector<prepared_verb> verbs = add_verbs(app);
    if (words.empty()) {
        say(app.help());
        return exit_usage;
    }
    if (const std::optional<std::string> page = generated_help(words, version)) {
        return show(*page);
    }
    translate_help(words);
    if (words.front()[0] != '-' && refuse_unknown_verb(words.front())) {
        return exit_usage;
    }
    std::transform(words.begin(), words.end(), words.begin(), marked);
    // CLI11 takes them from the end.
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::CallForVersion &asked) {
        return show(std::string(asked.what()) + "\n");
    } catch (const CLI::CallForHelp &) {
        return show(app.help());
    } catch (const CLI::ParseError &wrong) {
        return refuse(app, wrong);
    }
    for (const prepared_verb &each : verbs) {
        if (each.parser->parsed()) {
            return each.run();
        }
    }
    return exit_usage;
}

} // namespace cli
