// Finds out what lies under the names of a box: a regular file of a user whose files are trusted,
// or something else. The functions in io/plain_open.hpp open such files.
#ifndef VESK_BOX_PLAIN_FILE_HPP
#define VESK_BOX_PLAIN_FILE_HPP

#include <cstddef>
#include <cstdio>
#include <sys/stat.h>
#include <sys/types.h>

#include "io/plain_open.hpp"

enum class file_presence {
    missing, // there is nothing of that name
    plain,   // a regular file, by one of the owners that are trusted
    foreign, // no regular file, or somebody else's
    unknown  // it cannot be told
};

// The users whose files are accepted as files of a box: the owner of its folder, the user of this
// process, and root, who could change every file anyway.
class trusted_owners
{
public:
    // The trusted owners of files in the folder of `base`.
    explicit trusted_owners(const char *base);

    // Whether it could be told whose the folder is. If not, files of its owner are not trusted.
    bool are_known() const { return known_; }

    bool trusts(uid_t user) const;

private:
    uid_t folder_owner_;
    bool known_ = true;
};

// Whether `error`, of a call that looked at a name, says that there is nothing of that name. Every
// other error leaves the question open; treating it as "absent" would lose files.
bool _vesk_means_absent(int error);

// Looks at the name itself, not at what it may lead to, as lstat() does; what a signal interrupts
// is tried again. False when it fails, with errno.
bool _vesk_look_at_name(const char *path, struct stat *status);

// Looks at the name itself, not at what it may lead to. Fills `status` unless it is missing.
file_presence _vesk_look_at_file(const char *path, const trusted_owners &owners,
                                 struct stat *status);

// Reads up to `n` bytes as fread() does; what a signal interrupts goes on.
std::size_t _vesk_read_some(FILE *file, void *to, std::size_t n);

// Gives `file` the owner and the permissions of `status`, as far as that is allowed.
void _vesk_take_owner(FILE *file, const struct stat &status, mode_t mode);

#endif
