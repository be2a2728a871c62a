// Looks for vesk-push at the places that follow from where this program lies itself: never in PATH,
// where it might be anybody's.
#include "push/push_program.hpp"

#include <climits>
#include <filesystem>
#include <unistd.h>
#include <vector>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr const char *program = "vesk-push";
// From the folder of commands to that of helping programs, where they are installed.
constexpr const char *way_to_program = VESK_WAY_TO_PROGRAMS;

std::string path_of_this_program()
{
    std::string path(PATH_MAX, '\0');
    const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
    if (size <= 0) {
        throw failure(exit_failed, with_errno("/proc/self/exe"));
    }
    path.resize(static_cast<std::size_t>(size));
    return path;
}

} // namespace

std::string find_push_program(const std::string &command)
{
    const std::filesystem::path folder = std::filesystem::path(command).parent_path();
    const std::filesystem::path installed = (folder / way_to_program / program).lexically_normal();
    for (const std::filesystem::path &place : {installed, folder / program}) {
        if (access(place.c_str(), X_OK) == 0) {
            return place;
        }
    }
    throw failure(exit_failed, "pushing needs the program vesk-push, which is not installed "
                               "(looked for " +
                                   installed.string() +
                                   "): install the package vesk-push, or build Vesk with libcurl");
}

std::string find_push_program()
{
    return find_push_program(path_of_this_program());
}

void become_push_program(const push_request &request)
{
    const std::string path = find_push_program();
    std::vector<std::string> words = words_of(request);
    words.insert(words.begin(), program);
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string &word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    execv(path.c_str(), pointers.data());
    throw failure(exit_failed, with_errno(path));
}

} // namespace cli
