// Reads and changes the file of waiting events. It is read anew each time, because it rarely exists
// and is small. Links are not followed, and no pipe is waited for.
#include "box/waiting_file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "box/storage_failure.hpp"

namespace cli
{
namespace
{

constexpr mode_t for_everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
constexpr mode_t for_the_owner = S_IRUSR | S_IWUSR;
// What is taken out is kept in a file that does not grow beyond this.
constexpr off_t most_bytes_apart = off_t{1} << 20;

[[noreturn]] void refuse_file(const std::string &path, const std::string &why)
{
    throw failure(exit_failed, path + ": " + why);
}

std::string folder_of(const std::string &path)
{
    const std::string folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder;
}

// Anybody who may write into the folder can put a file there, so only files of this user, root, the
// owner of the folder and the owner of the box are trusted.
bool is_trusted_owner(uid_t user, const std::string &base)
{
    const auto owns = [&](const std::string &path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 && status.st_uid == user;
    };
    return user == geteuid() || user == 0 || owns(folder_of(base)) || owns(base + ".state");
}

// Opens the file without following a link or waiting for a pipe. The descriptor is not open when
// there is no file.
file_descriptor open_file(const std::string &base, const std::string &path, int flags,
                          mode_t mode = for_everybody)
{
    file_descriptor file(
        open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
    struct stat status = {};
    const bool foreign =
        file.is_open() ? fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
                             !is_trusted_owner(status.st_uid, base)
                       : errno == ELOOP || errno == ENXIO || errno == EISDIR; // link, pipe, folder
    if (foreign) {
        throw foreign_waiting_file(path);
    }
    if (!file.is_open() && (errno != ENOENT || (flags & O_CREAT) != 0)) {
        refuse_file(path, with_errno("cannot be opened"));
    }
    return file;
}

std::string read_all(const file_descriptor &file, const std::string &path)
{
    // A file that is longer than it may be was not made here; it is not read to its end.
    std::string bytes(most_waiting_bytes + 1, '\0');
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count = read(file.get(), bytes.data() + size, bytes.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            refuse_file(path, with_errno("cannot be read"));
        }
        if (count == 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    bytes.resize(size);
    if (size > most_waiting_bytes || !is_waiting_content(bytes)) {
        throw foreign_waiting_file(path);
    }
    return bytes;
}

// The content of the file, or nothing when there is no file.
std::optional<std::string> bytes_of(const std::string &base)
{
    const std::string path = waiting_file_of(base);
    const file_descriptor file = open_file(base, path, O_RDONLY);
    if (!file.is_open()) {
        return std::nullopt;
    }
    return read_all(file, path);
}

void sync_folder_of(const std::string &path)
{
    const file_descriptor opened(open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    (void)!fsync(opened.get());
}

bool write_whole(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}

void write_apart(const std::string &base, std::string_view bytes,
                 const std::vector<unreadable_piece> &pieces)
{
    const std::string path = waiting_file_of(base) + ".torn";
    const file_descriptor file =
        open_file(base, path, O_WRONLY | O_APPEND | O_CREAT, for_the_owner);
    struct stat status = {};
    std::string apart;
    for (const unreadable_piece &piece : pieces) {
        apart += bytes.substr(piece.offset, piece.size);
    }
    const bool ready = fstat(file.get(), &status) == 0 &&
                       (status.st_size + static_cast<off_t>(apart.size()) <= most_bytes_apart ||
                        ftruncate(file.get(), 0) == 0);
    if (!ready || !write_whole(file.get(), apart) || fsync(file.get()) != 0) {
        throw storage_failure::because(path, errno);
    }
    sync_folder_of(path);
}

// The new file has the owner and the permissions of the old one, as far as this user may give them.
void write_new(const std::string &path, const std::string &replaced, std::string_view bytes)
{
    struct stat status = {};
    const file_descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, for_the_owner));
    bool done = file.is_open() && lstat(replaced.c_str(), &status) == 0;
    if (done) {
        (void)!fchown(file.get(), status.st_uid, status.st_gid);
        done = fchmod(file.get(), status.st_mode & ACCESSPERMS) == 0 &&
               write_whole(file.get(), bytes) && fsync(file.get()) == 0;
    }
    if (!done) {
        const int error = errno;
        if (file.is_open()) {
            unlink(path.c_str());
        }
        throw storage_failure::because(path, error);
    }
}

// Removes the unfinished file that a killed repair left behind.
void remove_left_file(const std::string &base, const std::string &path)
{
    try {
        if (open_file(base, path, O_RDONLY).is_open()) {
            unlink(path.c_str());
        }
    } catch (const foreign_waiting_file &) {
        // No repair left it behind.
    }
}

} // namespace

std::string waiting_file_of(const std::string &base)
{
    return base + ".events";
}

std::size_t waiting_file::unreadable_bytes() const
{
    std::size_t sum = 0;
    for (const unreadable_piece &piece : damage) {
        sum += piece.size;
    }
    return sum;
}

waiting_file read_waiting_file(const std::string &base)
{
    waiting_file found;
    const std::optional<std::string> bytes = bytes_of(base);
    if (bytes) {
        waiting_content content = parse_waiting_records(*bytes);
        found.is_there = true;
        found.size = bytes->size();
        found.records = std::move(content.records);
        found.damage = std::move(content.damage);
        std::erase_if(found.records, [](const waiting_record &each) { return each.is_done(); });
    }
    return found;
}

void append_to_waiting_file(const std::string &base, const event &what, std::size_t waiting)
{
    const std::string path = waiting_file_of(base);
    const file_descriptor file = open_file(base, path, O_WRONLY | O_APPEND | O_CREAT);
    struct stat before = {};
    if (fstat(file.get(), &before) != 0) {
        refuse_file(path, with_errno("cannot be opened"));
    }
    const std::string text = waiting_record_text(what);
    const auto size = static_cast<std::size_t>(before.st_size);
    if (waiting >= most_waiting_events || size + text.size() > most_waiting_bytes) {
        throw failure(exit_failed,
                      fmt::format("{}: too many events wait for a sample ({})", base, waiting));
    }
    if (!write_whole(file.get(), text) || fdatasync(file.get()) != 0) {
        const int error = errno;
        // The failed record is cut off: if it is complete in the file, it would come into the box
        // although this call reports a failure.
        (void)!ftruncate(file.get(), before.st_size);
        throw storage_failure::because(path, error);
    }
    if (size == 0) {
        sync_folder_of(path);
    }
}

void keep_unreadable_apart(const std::string &base)
{
    const std::optional<std::string> bytes = bytes_of(base);
    const waiting_content content = parse_waiting_records(bytes.value_or(""));
    if (!content.damage.empty()) {
        write_apart(base, *bytes, content.damage);
    }
}

std::size_t mend_waiting_file(const std::string &base)
{
    const std::string path = waiting_file_of(base);
    const std::string new_path = path + ".new";
    remove_left_file(base, new_path);
    waiting_file found;
    try {
        found = read_waiting_file(base);
    } catch (const foreign_waiting_file &) {
        return 0; // left alone, as the plan tells
    }
    if (found.damage.empty()) {
        return 0;
    }
    keep_unreadable_apart(base);
    const std::string bytes = bytes_of(base).value_or("");
    std::string readable;
    for (const waiting_record &each : found.records) {
        readable += bytes.substr(each.offset, each.size);
    }
    if (readable.empty()) {
        unlink(path.c_str());
    } else {
        write_new(new_path, path, readable);
        if (rename(new_path.c_str(), path.c_str()) != 0) {
            throw storage_failure::because(path, errno);
        }
    }
    sync_folder_of(path);
    return found.unreadable_bytes();
}

waiting_marks::waiting_marks(const std::string &base)
    : path_(waiting_file_of(base)), file_(open_file(base, path_, O_WRONLY))
{
}

// Syncs the marks, because they are compared with the events in the box, and those disappear when
// their buffer is summarised.
waiting_marks::~waiting_marks()
{
    (void)!fdatasync(file_.get());
}

void waiting_marks::set(const waiting_record &each, std::string_view mark) const
{
    const auto at = static_cast<off_t>(each.mark_offset());
    if (pwrite(file_.get(), mark.data(), mark.size(), at) != static_cast<ssize_t>(mark.size())) {
        refuse_file(path_, with_errno("cannot be written"));
    }
}

} // namespace cli
