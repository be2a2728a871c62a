// Reads a file of credentials with care: a regular file, of this user or of root, that nobody else
// may read, and small.
#include "push/credentials.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "box/event_channel.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr std::size_t largest_file = 4096;
const std::string password_variable = "VESK_PUSH_PASSWORD";

void refuse_unsafe(const std::string &path, const struct stat &status)
{
    if (!S_ISREG(status.st_mode)) {
        throw failure(exit_failed, path + ": is no file");
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
        throw failure(exit_failed, path + ": belongs to another user");
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw failure(exit_failed,
                      path + ": others may read it: make it yours alone with 'chmod 600'");
    }
    if (static_cast<uint64_t>(status.st_size) > largest_file) {
        throw failure(exit_failed, path + ": is too large for credentials");
    }
}

std::string content_of(const std::string &path)
{
    const file_descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.is_open() || fstat(file.get(), &status) != 0) {
        throw failure(exit_failed, with_errno(path));
    }
    refuse_unsafe(path, status);
    std::string text(largest_file, '\0');
    const ssize_t size = read(file.get(), text.data(), text.size());
    if (size < 0) {
        throw failure(exit_failed, with_errno(path));
    }
    text.resize(static_cast<std::size_t>(size));
    return text;
}

bool is_value(std::string_view text)
{
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
            return false;
        }
    }
    return !text.empty();
}

void take_line(credentials &who, const std::string &path, std::string_view line)
{
    constexpr std::string_view user = "user ";
    constexpr std::string_view password = "password ";
    if (line.empty() || line.starts_with('#')) {
        return;
    }
    if (line.starts_with(user) && is_value(line.substr(user.size()))) {
        who.user = line.substr(user.size());
    } else if (line.starts_with(password) && is_value(line.substr(password.size()))) {
        who.password = line.substr(password.size());
    } else {
        // The line may hold the password.
        throw failure(exit_failed, path + ": a line is neither 'user NAME' nor 'password TEXT'");
    }
}

credentials from_file(const std::string &path)
{
    const std::string text = content_of(path);
    credentials who;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        take_line(who, path, rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return who;
}

std::string from_environment(const std::string &name)
{
    const char *value = std::getenv(name.c_str());
    if (value == nullptr || *value == '\0') {
        return {};
    }
    if (!is_value(value)) {
        throw failure(exit_usage, name + " holds control characters");
    }
    return value;
}

} // namespace

credentials find_credentials(const std::string &path, const std::string &user)
{
    credentials who;
    if (path.empty()) {
        who = {from_environment("VESK_PUSH_USER"), from_environment(password_variable)};
    } else {
        who = from_file(path);
    }
    if (!user.empty()) {
        who.user = user;
    }
    if (who.user.empty() && !who.password.empty()) {
        throw failure(exit_usage, (path.empty() ? password_variable : path) +
                                      ": there is a password, but no user that it belongs to");
    }
    return who;
}

} // namespace cli
