// Options of a verb that stand in a file, in the form of the library's configuration files: each
// line has the name of an option without its dashes and a value. It is filled like the command
// line, through option_list.
#ifndef VESK_CLI_VERBS_OPTION_FILE_HPP
#define VESK_CLI_VERBS_OPTION_FILE_HPP

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "verbs/verb.hpp"

namespace cli
{

class option_file : public option_list
{
public:
    // Reads the file, 64 KiB at most. Throws a failure (usage) with its name and line for what
    // cannot be read or is no list of keys and values.
    explicit option_file(const std::string &path);

    // Words stand on the command line only.
    void required_word(const char *, std::string &, const std::string &) override {}
    void word(const char *, std::string &, const std::string &) override {}
    void words(const char *, std::vector<std::string> &, const std::string &) override {}
    void text(const char *name, const char *type, std::string &value,
              const std::string &help) override;
    void texts(const char *name, const char *type, std::vector<std::string> &values,
               const std::string &help) override;
    void number(const char *name, const char *type, std::optional<uint32_t> &value,
                const std::string &help) override;
    void flag(const char *name, bool &value, const std::string &help) override;

    // Whether the file has the option.
    presence given() const override;

    // Sets all options that the file has and that @p on_command_line does not tell to be given.
    // Throws a failure (usage) for a key that is no option, one that stands there twice, and a
    // value that the option does not take.
    void apply(const presence &on_command_line) const;

    // "FILE:LINE" where the option stands; empty where it does not.
    std::string place_of(const std::string &name) const;

private:
    struct line {
        unsigned long number;
        std::string name; // with the dashes
        std::string value;
    };
    struct option {
        bool takes_many;
        std::function<void(const std::string &value)> set; // throws a failure with the reason
        std::function<void()> clear;
    };

    void add(const char *name, const std::function<void(const std::string &)> &set);
    [[noreturn]] void refuse(const line &where, const std::string &reason) const;
    std::string key_meant_by(const std::string &name) const;

    std::string path_;
    std::vector<line> lines_;
    std::map<std::string, option> options_;
};

} // namespace cli

#endif
