// Compares the owners of the files of a box with that of their folder, as the library does before
// it takes a file for one of the box.
#include "box/strangers.hpp"

#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <vesk/vesk_scan.h>

namespace cli
{
namespace
{

std::string user_text(uid_t user)
{
    // The number counts: another system may know the user by another name. The file is read
    // directly, because getpwuid() loads libraries of the system, which a statically linked command
    // must not.
    const std::unique_ptr<FILE, int (*)(FILE *)> users(fopen("/etc/passwd", "re"), fclose);
    while (const passwd *known = users != nullptr ? fgetpwent(users.get()) : nullptr) {
        if (known->pw_uid == user) {
            return fmt::format("user {} ({})", user, known->pw_name);
        }
    }
    return fmt::format("user {}", user);
}

std::vector<std::string> files_of(const std::string &base)
{
    std::vector<std::string> paths = {base + ".state", base + ".state.bak"};
    const auto add = [](const vesk_scan_file *file, void *context) {
        // One is enough, and a folder may hold any number.
        static_cast<std::vector<std::string> *>(context)->emplace_back(file->filename);
        return 1;
    };
    (void)vesk_scan_files(base.c_str(), add, &paths);
    return paths;
}

} // namespace

std::string owner_words(const std::string &path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? "belongs to " + user_text(status.st_uid)
                                             : "somebody else's";
}

std::string stranger_words(const std::string &base)
{
    const std::string folder = std::filesystem::path(base).parent_path();
    struct stat place = {};
    if (stat(folder.empty() ? "." : folder.c_str(), &place) != 0) {
        return {};
    }
    for (const std::string &path : files_of(base)) {
        struct stat status = {};
        const bool is_file = lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
        if (is_file && status.st_uid != geteuid() && status.st_uid != 0 &&
            status.st_uid != place.st_uid) {
            return fmt::format("{} belongs to {}, and its folder to {}: run this as the owner of "
                               "the files, or give them to that of the folder (chown) if you "
                               "trust them",
                               path, user_text(status.st_uid), user_text(place.st_uid));
        }
    }
    return {};
}

} // namespace cli
