// What a verb has registered about its options and words, as data: manual pages and completions are
// made of it, so they name what the parser takes.
#ifndef VESK_CLI_VERBS_VERB_DESCRIPTION_HPP
#define VESK_CLI_VERBS_VERB_DESCRIPTION_HPP

#include <string>
#include <vector>

#include "verbs/verb.hpp"

namespace cli
{

struct described_option {
    std::vector<std::string> names; // "-h", "--help"
    std::string type;               // stands for the value; empty for a flag
    std::string preset;             // the value without the option
    std::string help;
    bool repeats = false;

    bool takes_value() const { return !type.empty(); }
    // The values, where the type lists words such as csv|tsv; what is no word, such as TIME, is
    // left out.
    std::vector<std::string> choices() const;
};

struct described_word {
    std::string name;
    std::string help;
    bool required = false;
    bool repeats = false;
};

struct verb_description {
    const verb *what;
    std::vector<described_option> options; // with --help, as the parser has them
    std::vector<described_word> words;
};

verb_description describe(const verb &what);
std::vector<verb_description> describe_all_verbs();

} // namespace cli

#endif
