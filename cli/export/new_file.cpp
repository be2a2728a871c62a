// Makes files that appear as a whole. The folder is resolved once, so that the temporary file and
// the final one are certain to be in the same place, and the final step replaces nothing that came
// there meanwhile unless the user said so.
#include "export/new_file.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "box/stored_bytes.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

// @p path with all links of its folder resolved, but for the last part.
std::string resolved(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        throw failure(exit_usage, "'" + path + "' is no name of a file");
    }
    const std::unique_ptr<char, decltype(&std::free)> whole(realpath(folder.c_str(), nullptr),
                                                            &std::free);
    if (!whole) {
        throw failure(exit_failed, with_errno(folder));
    }
    return std::string(whole.get()) + "/" + name;
}

// mkostemp() makes files for their owner only; the finished one gets the rights of any other file.
void give_usual_rights(int fd)
{
    const mode_t mask = umask(0);
    umask(mask);
    (void)fchmod(fd, 0666 & ~mask);
}

} // namespace

new_file::new_file(const std::string &path, bool force)
    : path_(path), target_(resolved(path)), force_(force), temporary_(target_ + ".XXXXXX")
{
    refuse_what_is_there();
    fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ < 0) {
        throw failure(exit_failed, with_errno(path_));
    }
    give_usual_rights(fd_);
}

new_file::~new_file()
{
    if (fd_ >= 0) {
        (void)unlink(temporary_.c_str());
        (void)close(fd_);
    }
}

void new_file::refuse_what_is_there() const
{
    struct stat status = {};
    if (lstat(target_.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        throw failure(exit_failed, path_ + ": " + foreign_words(target_));
    }
    if (!force_) {
        throw failure(exit_failed, path_ + ": exists already; --force replaces it");
    }
}

void new_file::put_in_place()
{
    if (fsync(fd_) != 0) {
        throw failure(exit_failed, with_errno(path_));
    }
    int result = 0;
    if (force_) {
        refuse_what_is_there();
        result = rename(temporary_.c_str(), target_.c_str());
    } else {
        result =
            renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
        if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
            // A file system that cannot do it in one step.
            refuse_what_is_there();
            result = rename(temporary_.c_str(), target_.c_str());
        }
    }
    if (result != 0) {
        throw failure(exit_failed, with_errno(path_));
    }
    (void)close(fd_);
    fd_ = -1;
}

} // namespace cli
