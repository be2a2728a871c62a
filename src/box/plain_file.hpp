// Files of a box, opened without being led elsewhere. Names in the folder of a box may be links,
// FIFOs or devices that somebody put there: none of them is followed or waited for. Only a path
// that a person gave may be a link.
#ifndef VESK_BOX_PLAIN_FILE_HPP
#define VESK_BOX_PLAIN_FILE_HPP

#include <cstdio>
#include <sys/stat.h>
#include <sys/types.h>

#include "support/owner.hpp"

enum class file_presence {
    missing, // there is nothing of that name
    plain,   // a regular file, by one of the owners that are trusted
    foreign, // no regular file, or somebody else's
    unknown  // it cannot be told
};

enum class link_rule {
    refuse, // the path is a name of a box
    follow  // the path was given by a person
};

// Whose files are taken for those of a box: the owner of its folder, the user who runs this, and
// root, whom nobody has to be protected from.
class trusted_owners
{
public:
    // Of the folder of `base`.
    explicit trusted_owners(const char *base);

    bool trusts(uid_t user) const;

private:
    uid_t folder_owner_;
};

// Looks at the name itself, not at what it may lead to. Fills `status` unless it is missing.
file_presence _vesk_look_at_file(const char *path, const trusted_owners &owners,
                                 struct stat *status);

// Opens a regular file that is there, with the access of `flags` (O_RDONLY, O_RDWR, O_APPEND).
// Null when it is something else, with errno.
owned_file _vesk_open_plain_file(const char *path, int flags, link_rule rule = link_rule::refuse);

// Makes a file that must not be there yet, for writing. Null when it is, with errno.
owned_file _vesk_create_plain_file(const char *path, mode_t mode);

// Gives `file` the owner and the permissions of `status`, as far as that is allowed.
void _vesk_take_owner(FILE *file, const struct stat &status, mode_t mode);

#endif
