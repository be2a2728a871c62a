// Reads a configuration file of the library's form into the variables of options. The library's
// parser is not used: a message has to name the line, and a folder or a FIFO under the name of the
// file must not end or hold the process.
#include "verbs/option_file.hpp"

#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "box/event_channel.hpp"
#include "process/failure.hpp"
#include "text/suggestion.hpp"

namespace cli
{
namespace
{

constexpr std::size_t most_bytes = 65536;
// The library's parser takes what is longer for another line.
constexpr std::size_t longest_line = 4094;

[[noreturn]] void refuse_file(const std::string &path, const std::string &reason)
{
    throw failure(exit_usage, fmt::format("{}: {}", path, reason));
}

// A FIFO under that name would be waited for, and a device has no end.
std::string read_file(const std::string &path)
{
    const file_descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.is_open() || fstat(file.get(), &status) != 0) {
        refuse_file(path, with_errno("cannot be read"));
    }
    if (!S_ISREG(status.st_mode)) {
        refuse_file(path, "is no file");
    }
    std::string text(most_bytes + 1, '\0');
    std::size_t size = 0;
    ssize_t got = 1;
    while (got > 0 && size < text.size()) {
        got = read(file.get(), text.data() + size, text.size() - size);
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    if (got < 0) {
        refuse_file(path, with_errno("cannot be read"));
    }
    if (size > most_bytes) {
        refuse_file(path, "is longer than 64 KiB");
    }
    text.resize(size);
    return text;
}

bool parse_switch(const std::string &value)
{
    if (value == "yes" || value == "on" || value == "true" || value == "1") {
        return true;
    }
    if (value != "no" && value != "off" && value != "false" && value != "0") {
        throw failure(exit_usage, "must be yes or no");
    }
    return false;
}

uint32_t parse_number(const std::string &value)
{
    uint32_t number = 0;
    const char *end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw failure(exit_usage, "must be a whole number");
    }
    return number;
}

} // namespace

// Keys, values, comments and blanks are as in config.h; blanks behind a value and a carriage return
// do not count here, as nobody sees them.
option_file::option_file(const std::string &path) : path_(path)
{
    const std::string text = read_file(path);
    unsigned long number = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string_view rest = std::string_view(text).substr(at, end - at);
        at = end + 1;
        ++number;
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
        rest = rest.substr(0, rest.find_last_not_of(" \t\r") + 1);
        if (rest.empty() || rest.front() == '#') {
            continue;
        }
        const std::size_t blank = rest.find_first_of(" \t");
        line found = {number, "--" + std::string(rest.substr(0, blank)), {}};
        if (rest.size() > longest_line || rest.find('\0') != std::string_view::npos) {
            refuse(found, "is longer than 4094 characters, or holds a zero byte");
        }
        if (blank == std::string_view::npos) {
            refuse(found, fmt::format("{} has no value", rest.substr(0, 60)));
        }
        rest.remove_prefix(rest.find_first_not_of(" \t", blank));
        found.value = rest;
        lines_.push_back(std::move(found));
    }
}

void option_file::refuse(const line &where, const std::string &reason) const
{
    throw failure(exit_usage, fmt::format("{}:{}: {}", path_, where.number, reason));
}

void option_file::add(const char *name, const std::function<void(const std::string &)> &set)
{
    options_[name] = {false, set, [] {}};
}

void option_file::text(const char *name, const char *, std::string &value, const std::string &)
{
    add(name, [&value](const std::string &given) { value = given; });
}

void option_file::texts(const char *name, const char *, std::vector<std::string> &values,
                        const std::string &)
{
    options_[name] = {true, [&values](const std::string &given) { values.push_back(given); },
                      [&values] { values.clear(); }};
}

void option_file::number(const char *name, const char *, std::optional<uint32_t> &value,
                         const std::string &)
{
    add(name, [&value](const std::string &given) { value = parse_number(given); });
}

void option_file::flag(const char *name, bool &value, const std::string &)
{
    add(name, [&value](const std::string &given) { value = parse_switch(given); });
}

option_list::presence option_file::given() const
{
    return [this](const std::string &name) { return !place_of(name).empty(); };
}

std::string option_file::place_of(const std::string &name) const
{
    for (const line &each : lines_) {
        if (each.name == name) {
            return fmt::format("{}:{}", path_, each.number);
        }
    }
    return {};
}

std::string option_file::key_meant_by(const std::string &name) const
{
    std::vector<std::string_view> names;
    for (const auto &known : options_) {
        names.push_back(known.first);
    }
    const std::string_view meant =
        name.size() > 60 ? std::string_view() : nearest_word(name, names);
    return meant.empty() ? std::string() : fmt::format("; did you mean '{}'?", meant.substr(2));
}

void option_file::apply(const presence &on_command_line) const
{
    std::map<std::string, int> seen;
    for (const line &each : lines_) {
        const auto found = options_.find(each.name);
        const std::string key = each.name.substr(2, 60);
        if (found == options_.end()) {
            refuse(each, fmt::format("there is no option '{}'{}", key, key_meant_by(each.name)));
        }
        if (++seen[each.name] > 1 && !found->second.takes_many) {
            refuse(each, fmt::format("{} stands there twice", key));
        }
        if (on_command_line(each.name)) {
            continue;
        }
        if (seen[each.name] == 1) {
            found->second.clear();
        }
        try {
            found->second.set(each.value);
        } catch (const failure &reason) {
            refuse(each, fmt::format("{} {}: {}", key, each.value.substr(0, 60), reason.what()));
        }
    }
}

} // namespace cli
