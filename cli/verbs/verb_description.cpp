// Collects what a verb registers, without a parser: the verb describes its options to a list that
// only notes them.
#include "verbs/verb_description.hpp"

#include <algorithm>
#include <string_view>

namespace cli
{
namespace
{

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

class noting_list : public option_list
{
public:
    explicit noting_list(verb_description &found) : found_(found)
    {
        found_.options.push_back(
            {{"-h", "--help"}, {}, {}, "Print this help message and exit", false});
    }

    void required_word(const char *name, std::string & /*value*/, const std::string &help) override
    {
        found_.words.push_back({name, help, true, false});
    }
    void word(const char *name, std::string & /*value*/, const std::string &help) override
    {
        found_.words.push_back({name, help, false, false});
    }
    void words(const char *name, std::vector<std::string> & /*values*/,
               const std::string &help) override
    {
        found_.words.push_back({name, help, false, true});
    }
    void text(const char *name, const char *type, std::string &value,
              const std::string &help) override
    {
        found_.options.push_back({split(name, ','), type, value, help, false});
    }
    void texts(const char *name, const char *type, std::vector<std::string> & /*values*/,
               const std::string &help) override
    {
        found_.options.push_back({split(name, ','), type, {}, help, true});
    }
    void number(const char *name, const char *type, std::optional<uint32_t> & /*value*/,
                const std::string &help) override
    {
        found_.options.push_back({split(name, ','), type, {}, help, false});
    }
    void flag(const char *name, bool & /*value*/, const std::string &help) override
    {
        found_.options.push_back({split(name, ','), {}, {}, help, false});
    }

private:
    verb_description &found_;
};

bool is_word(const std::string &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    });
}

} // namespace

std::vector<std::string> described_option::choices() const
{
    std::vector<std::string> words = split(type, '|');
    std::erase_if(words, [](const std::string &word) { return !is_word(word); });
    return words;
}

verb_description describe(const verb &what)
{
    verb_description found;
    found.what = &what;
    noting_list options(found);
    // The action is not wanted; it keeps alive what the options were bound to.
    const action unused = what.prepare(options);
    return found;
}

std::vector<verb_description> describe_all_verbs()
{
    std::vector<verb_description> found;
    for (const verb *each : all_verbs()) {
        found.push_back(describe(*each));
    }
    return found;
}

} // namespace cli
