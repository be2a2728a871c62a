// Finds out whether a box exists, and starts a recorder on it: an existing box is recovered and
// opened, a missing one is made. Links and foreign files under the names of the box are refused,
// because the library would write through them. A name that cannot be looked at is a failure; it
// never counts as absent.
#include "box/box_start.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <utility>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_start.h>

#include "box/box.hpp"
#include "box/recovery.hpp"
#include "box/storage_failure.hpp"
#include "box/stored_bytes.hpp"
#include "box/strangers.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// The recorder builds the names of its buffers in 1024 bytes and would cut longer ones off.
constexpr std::size_t longest_base = VESK_MAX_BASE_LENGTH;

std::string whole_path(const std::string &base)
{
    if (base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    std::string path = std::filesystem::absolute(base);
    if (path.size() > longest_base) {
        throw failure(exit_failed,
                      fmt::format("{}: the path is longer than {} characters", base, longest_base));
    }
    return path;
}

bool same_file(const std::string &one, const std::string &other)
{
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// A link that leads nowhere is no buffer, but its name cannot be used for a new one.
void refuse_to_overwrite(const box_name &name)
{
    const std::string path = name.path + ".1.cbuf.z";
    if (exists(path)) {
        throw storage_failure::because(
            fmt::format("{}: the box cannot be made: {}", name.base, path), EEXIST);
    }
}

// The library writes a state file in place: a link would make it write to another file, and a FIFO
// would make it wait.
void require_own_state(const box_name &name)
{
    const std::string foreign = foreign_words(name.path + ".state");
    if (!foreign.empty()) {
        throw failure(exit_unreadable,
                      fmt::format("{}.state: {}; nothing was written", name.base, foreign));
    }
}

// Makes the exception that says why the recorder could not be started.
[[noreturn]] void refuse(const box_name &name, bool is_new, int result, int reason)
{
    if (is_new && result == QE_ERROR_LIMIT) {
        throw failure(exit_failed, name.base + ": the box cannot be made: its name is too long");
    }
    if (is_new) {
        throw storage_failure::because(
            fmt::format("{}: the box cannot be made: {}", name.base, words_for(result)), reason);
    }
    const std::string stranger =
        result == QE_ERROR_OPEN ? stranger_words(name.base) : std::string();
    const std::string text = fmt::format("{}: cannot be recovered: {}", name.base,
                                         stranger.empty() ? recovery_failure(result) : stranger);
    if (result == QE_ERROR_MALFORMED || result == QE_ERROR_LIMIT) {
        throw failure(exit_unreadable, text);
    }
    throw storage_failure::because(text, reason);
}

// Prints a note about a recovery, unless it only deleted files that nothing needs.
void note_recovery(const box_name &name, const vesk_recover_report &report)
{
    if (report.steps > report.files_deleted) {
        note(fmt::format("{}: recovered: {}", name.base, report_text(report)));
    }
}

} // namespace

box_name::box_name(const std::string &given) : base(given), path(whole_path(given)) {}

bool is_there(const box_name &name)
{
    const auto found = [](const vesk_scan_file *file, void *) {
        return file->missing != 0 || file->foreign != 0 ? 0 : 1;
    };
    if (exists(name.base + ".state") || exists(name.base + ".state.bak")) {
        return true;
    }
    errno = 0;
    const int result = vesk_scan_files(name.base.c_str(), found, nullptr);
    if (result < 0) {
        const std::string why = errno != 0 ? with_errno("its folder cannot be listed")
                                           : "its folder cannot be listed: " + words_for(result);
        throw failure(exit_failed,
                      fmt::format("{}: whether there is a box cannot be told: {}", name.base, why));
    }
    return result == 1;
}

// Looks at the name itself and does not follow a link.
bool exists(const std::string &path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throw failure(exit_failed, with_errno(path));
    }
    return false;
}

void note_other_place(const box_name &name)
{
    if (read_state(name.base).error != 0) {
        return;
    }
    const box found = find_box(name.base);
    if (found.state.error != 0 || found.files.empty() || found.files.back().missing ||
        same_file(found.files.back().path, found.state.names.back())) {
        return;
    }
    if (same_file(found.state.path, found.state.filename + ".state")) {
        note(fmt::format("{}: its state file names buffers elsewhere; those beside it are used",
                         name.base));
    } else {
        note(fmt::format("{}: was made as {} and lies here now; it goes on here", name.base,
                         printable(found.state.filename)));
    }
}

void require_room_to_recover(const box_name &name)
{
    const std::string folder = std::filesystem::path(name.path).parent_path();
    struct statvfs space = {};
    if (statvfs(folder.c_str(), &space) != 0) {
        return;
    }
    constexpr uint64_t reserve = 16384;
    uint64_t needed = 0;
    for (const stored_file &file : find_box(name.base).files) {
        needed = std::max(needed, file.size);
    }
    if (uint64_t{space.f_bavail} * space.f_frsize < needed + reserve) {
        throw storage_failure::because(name.base, ENOSPC);
    }
}

started_box start_box(const box_name &name, const box_shape &shape)
{
    const auto [samples, intervals] = complete_shape(shape);
    require_own_state(name);
    const bool is_new = !is_there(name);
    if (is_new) {
        refuse_to_overwrite(name);
    }
    vesk_start_report report = {};
    qe_set_last_error(0);
    errno = 0;
    owned_recorder recorder(vesk_start(name.path.c_str(), samples, intervals, &report));
    if (!recorder) {
        refuse(name, is_new, qe_get_last_error(), errno);
    }
    note_recovery(name, report.recovered);
    return {std::move(recorder), report.created != 0};
}

} // namespace cli
