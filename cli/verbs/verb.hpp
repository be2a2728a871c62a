// What a verb of the command is. Each one lives in a file of its own, verb_NAME.cpp, which holds
// its options, its help and what it does, and enters itself into the table by a `registration`.
// Nothing else names a verb, so a new one is a new file.
#ifndef VESK_CLI_VERBS_VERB_HPP
#define VESK_CLI_VERBS_VERB_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "process/exit_codes.hpp"

namespace cli
{

// Receives the options of a verb. The values must live until the verb has run; what they hold
// before is the default, which the help shows.
class option_list
{
public:
    option_list() = default;
    option_list(const option_list &) = delete;
    option_list &operator=(const option_list &) = delete;
    virtual ~option_list() = default;

    // Words in the order in which they are added.
    virtual void required_word(const char *name, std::string &value, const std::string &help) = 0;
    virtual void word(const char *name, std::string &value, const std::string &help) = 0;
    // All words that are left, so added last.
    virtual void words(const char *name, std::vector<std::string> &values,
                       const std::string &help) = 0;
    // "--for TIME": @p type stands for the value in the help.
    virtual void text(const char *name, const char *type, std::string &value,
                      const std::string &help) = 0;
    // May be given several times.
    virtual void texts(const char *name, const char *type, std::vector<std::string> &values,
                       const std::string &help) = 0;
    virtual void number(const char *name, const char *type, std::optional<uint32_t> &value,
                        const std::string &help) = 0;
    virtual void flag(const char *name, bool &value, const std::string &help) = 0;

    // Tells whether an option ("--for") was given. To be asked when the options have been read; a
    // list that only describes options tells of none.
    using presence = std::function<bool(const std::string &name)>;
    virtual presence given() const
    {
        return [](const std::string &) { return false; };
    }
};

// Does what was asked for. Throws a failure where it gives up.
using action = std::function<exit_code()>;

struct verb {
    int position; // in the help, from the top
    const char *name;
    const char *purpose; // one line
    const char *more;    // what the help says behind the options, with examples
    action (*prepare)(option_list &options);
};

// Enters a verb into the table for the life of the program.
class registration
{
public:
    explicit registration(const verb &what) noexcept;
    registration(const registration &) = delete;
    registration &operator=(const registration &) = delete;
    ~registration() = default;

private:
    friend std::vector<const verb *> all_verbs();
    verb what_;
    const registration *next_;
};

// In the order of their positions.
std::vector<const verb *> all_verbs();

} // namespace cli

#endif
