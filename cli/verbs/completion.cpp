// Writes the scripts. A box is named by what the names of its files begin with, so the names of the
// state files are completed, without their ".state".
#include "verbs/completion.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "verbs/verb_description.hpp"

namespace cli
{
namespace
{

std::string joined(const std::vector<std::string> &words)
{
    return fmt::format("{}", fmt::join(words, " "));
}

std::vector<std::string> option_names(const verb_description &found)
{
    std::vector<std::string> names;
    for (const described_option &option : found.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

bool takes_path(std::string_view type)
{
    return type.find("FILE") != std::string_view::npos ||
           type.find("DIR") != std::string_view::npos;
}

// Whether one of the words of a verb names a file that is no box.
bool takes_files(const verb_description &found)
{
    return std::any_of(found.words.begin(), found.words.end(),
                       [](const described_word &word) { return takes_path(word.name); });
}

bool takes_boxes(const verb_description &found)
{
    return std::any_of(found.words.begin(), found.words.end(), [](const described_word &word) {
        return word.name.find("BASE") != std::string::npos;
    });
}

// For a pattern of case: "--from|--to"; empty when no option is meant.
template <typename Wanted>
std::string options_that(const verb_description &found, Wanted wanted)
{
    std::vector<std::string> names;
    for (const described_option &option : found.options) {
        if (option.takes_value() && wanted(option)) {
            names.insert(names.end(), option.names.begin(), option.names.end());
        }
    }
    return fmt::format("{}", fmt::join(names, "|"));
}

constexpr const char *bash_head =
    R"(# Completion of vesk for bash, made by `vesk help --completion bash`.
_vesk_names()
{
    # What the last word may become: boxes, folders, and with "files" everything.
    local name
    compopt -o filenames 2>/dev/null
    while IFS= read -r name; do
        if [ "$1" = files ] || [ -d "$name" ]; then
            COMPREPLY+=("$name")
        fi
        if [ "$1" != files ] || [ -n "$2" ]; then
            case $name in
            *.state) COMPREPLY+=("${name%.state}") ;;
            esac
        fi
    done < <(compgen -f -- "$current")
}

_vesk()
{
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb= word
    COMPREPLY=()
    # Bash makes a word of the = in --format=csv.
    if [ "$current" = = ]; then
        current=
    elif [ "$before" = = ]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        -*) ;;
        *)
            verb=$word
            break
            ;;
        esac
    done
)";

constexpr const char *bash_end = R"(    esac
}
complete -F _vesk vesk
)";

// What a verb takes as a branch of a case.
std::string bash_branch(const verb_description &found)
{
    std::string branch = fmt::format("    {})\n        case $before in\n", found.what->name);
    for (const described_option &option : found.options) {
        const std::vector<std::string> choices = option.choices();
        if (!choices.empty()) {
            branch += fmt::format(
                "        {})\n            COMPREPLY=($(compgen -W '{}' -- \"$current\"))\n"
                "            return\n            ;;\n",
                fmt::join(option.names, "|"), joined(choices));
        }
    }
    const std::string paths =
        options_that(found, [](const described_option &option) { return takes_path(option.type); });
    if (!paths.empty()) {
        branch += fmt::format("        {})\n            _vesk_names files\n            return\n"
                              "            ;;\n",
                              paths);
    }
    const std::string others = options_that(found, [](const described_option &option) {
        return option.choices().empty() && !takes_path(option.type);
    });
    if (!others.empty()) {
        branch += fmt::format("        {}) return ;;\n", others);
    }
    branch += fmt::format("        esac\n        case $current in\n        -*) "
                          "COMPREPLY=($(compgen -W '{}' -- \"$current\")) ;;\n",
                          joined(option_names(found)));
    if (takes_boxes(found) || takes_files(found)) {
        branch +=
            fmt::format("        *) _vesk_names {} {} ;;\n", takes_files(found) ? "files" : "boxes",
                        takes_boxes(found) ? "boxes" : "''");
    }
    return branch + "        esac\n        ;;\n";
}

std::vector<std::string> verb_names(const std::vector<verb_description> &verbs)
{
    std::vector<std::string> names;
    names.reserve(verbs.size());
    for (const verb_description &found : verbs) {
        names.emplace_back(found.what->name);
    }
    return names;
}

std::string bash_script(const std::vector<verb_description> &verbs)
{
    const std::string names = joined(verb_names(verbs));
    std::string script = bash_head;
    script += fmt::format("    case $verb in\n"
                          "    '') COMPREPLY=($(compgen -W '{} help --help -h --version -V' -- "
                          "\"$current\")) ;;\n"
                          "    help) COMPREPLY=($(compgen -W '{} --man --completion' -- "
                          "\"$current\")) ;;\n",
                          names, names);
    for (const verb_description &found : verbs) {
        script += bash_branch(found);
    }
    return script + bash_end;
}

// Within single quotes of any of the shells.
std::string single_quoted(std::string_view text)
{
    std::string result(1, '\'');
    for (const char c : text) {
        if (c == '\'') {
            result += "'\\'";
        }
        result += c;
    }
    result += '\'';
    return result;
}

// The description of an option for zsh, where brackets and colons separate.
std::string zsh_text(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string zsh_value(const described_option &option)
{
    if (!option.takes_value()) {
        return {};
    }
    const std::vector<std::string> choices = option.choices();
    const std::string values = !choices.empty()          ? fmt::format("({})", joined(choices))
                               : takes_path(option.type) ? "_files"
                                                         : " ";
    return fmt::format(":{}:{}", zsh_text(option.type), values);
}

std::string zsh_branch(const verb_description &found)
{
    std::string branch = fmt::format("    {})\n        _arguments -S", found.what->name);
    for (const described_option &option : found.options) {
        for (const std::string &name : option.names) {
            const bool is_long = name.starts_with("--") && option.takes_value();
            branch += " \\\n            " +
                      single_quoted(fmt::format("{}{}{}[{}]{}", option.repeats ? "*" : "", name,
                                                is_long ? "=" : "", zsh_text(option.help),
                                                zsh_value(option)));
        }
    }
    for (const described_word &word : found.words) {
        const bool is_box = word.name.find("BASE") != std::string::npos;
        const char *names = !is_box                 ? takes_path(word.name) ? "_files" : " "
                            : takes_path(word.name) ? "_vesk_boxes_and_files"
                                                    : "_vesk_boxes";
        branch +=
            " \\\n            " + single_quoted(fmt::format("{}:{}:{}", word.repeats ? "*" : "",
                                                            zsh_text(word.name), names));
    }
    return branch + "\n        ;;\n";
}

std::string zsh_script(const std::vector<verb_description> &verbs)
{
    std::string script = "#compdef vesk\n"
                         "# Completion of vesk for zsh, made by `vesk help --completion zsh`.\n"
                         "_vesk_boxes()\n{\n"
                         "    local -a boxes\n"
                         "    boxes=(${PREFIX}*.state(N:r))\n"
                         "    compadd -f -U -a boxes\n"
                         "    _path_files -/\n}\n"
                         "_vesk_boxes_and_files()\n{\n"
                         "    _vesk_boxes\n"
                         "    _files\n}\n"
                         "_vesk()\n{\n"
                         "    local -a verbs\n"
                         "    verbs=(\n";
    for (const verb_description &found : verbs) {
        script +=
            "        " +
            single_quoted(fmt::format("{}:{}", found.what->name, zsh_text(found.what->purpose))) +
            "\n";
    }
    script +=
        "        'help:Tell more about a verb'\n    )\n"
        "    if ((CURRENT == 2)); then\n"
        "        _describe verb verbs\n"
        "        _arguments '--help[Print the help and exit]' '--version[Print the version]'\n"
        "        return\n"
        "    fi\n"
        "    local verb=$words[2]\n"
        "    shift words\n"
        "    ((CURRENT--))\n"
        "    case $verb in\n"
        "    help) _describe verb verbs ;;\n";
    for (const verb_description &found : verbs) {
        script += zsh_branch(found);
    }
    return script + "    esac\n}\n_vesk \"$@\"\n";
}

std::string fish_option(const verb_description &found, const described_option &option)
{
    std::string line =
        fmt::format("complete -c vesk -n '__fish_seen_subcommand_from {}'", found.what->name);
    for (const std::string &name : option.names) {
        line += name.starts_with("--") ? fmt::format(" -l {}", name.substr(2))
                                       : fmt::format(" -s {}", name.substr(1));
    }
    const std::vector<std::string> choices = option.choices();
    if (!choices.empty()) {
        line += fmt::format(" -x -a '{}'", joined(choices));
    } else if (option.takes_value()) {
        line += takes_path(option.type) ? std::string(" -r -F") : std::string(" -x");
    }
    std::string help;
    for (const char c : option.help) {
        if (c == '\'' || c == '\\') {
            help += '\\';
        }
        help += c;
    }
    return fmt::format("{} -d '{}'\n", line, help);
}

std::string fish_script(const std::vector<verb_description> &verbs)
{
    const std::string names = joined(verb_names(verbs));
    std::string script =
        "# Completion of vesk for fish, made by `vesk help --completion fish`.\n"
        "function __vesk_boxes\n"
        "    set -l files (commandline -ct)*.state\n"
        "    string replace -r '\\.state$' '' -- $files\n"
        "    __fish_complete_directories (commandline -ct)\n"
        "end\n"
        "complete -c vesk -f\n"
        "complete -c vesk -n __fish_use_subcommand -s h -l help -d 'Print the help and exit'\n"
        "complete -c vesk -n __fish_use_subcommand -s V -l version -d 'Print the version'\n";
    for (const verb_description &found : verbs) {
        const std::string name = found.what->name;
        script += fmt::format("complete -c vesk -n __fish_use_subcommand -a {} -d '{}'\n", name,
                              found.what->purpose);
        for (const described_option &option : found.options) {
            script += fish_option(found, option);
        }
        const std::string seen = fmt::format("-n '__fish_seen_subcommand_from {}'", name);
        if (takes_boxes(found)) {
            script += fmt::format("complete -c vesk {} -a '(__vesk_boxes)'\n", seen);
        }
        if (takes_files(found)) {
            script += fmt::format("complete -c vesk {} -F\n", seen);
        }
    }
    return script +
           fmt::format("complete -c vesk -n __fish_use_subcommand -a help -d 'Tell more about a "
                       "verb'\ncomplete -c vesk -n '__fish_seen_subcommand_from help' -a '{}'\n",
                       names);
}

} // namespace

std::string completion_script(const std::string &shell)
{
    const std::vector<verb_description> verbs = describe_all_verbs();
    if (shell == "bash") {
        return bash_script(verbs);
    }
    if (shell == "zsh") {
        return zsh_script(verbs);
    }
    if (shell == "fish") {
        return fish_script(verbs);
    }
    throw failure(exit_usage,
                  fmt::format("--completion {}: there is bash, zsh and fish", printable(shell)));
}

} // namespace cli
