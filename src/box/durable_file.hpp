// Replaces files as a whole: the new content is written to another file, synced and renamed, so
// that at any moment, even after a kill or a loss of power, either the old file exists or the new
// one.
#ifndef VESK_BOX_DURABLE_FILE_HPP
#define VESK_BOX_DURABLE_FILE_HPP

#include <cstdio>

#include "box/box_files.hpp"
#include "support/owner.hpp"

// What the content is written to until it is complete.
inline constexpr char replacement_suffix[] = ".new";

// The copy of the state file, behind its name.
inline constexpr char backup_suffix[] = ".bak";

class replacement_file
{
public:
    replacement_file() = default;
    replacement_file(const replacement_file &) = delete;
    replacement_file &operator=(const replacement_file &) = delete;
    // Removes the new file unless it was put in place.
    ~replacement_file();

    // Begins the replacement of `target`, which keeps its owner and its permissions; what is not
    // there yet gets the owner of `like` or, without that, of the folder. What an earlier
    // replacement left behind is removed. 0, QE_ERROR_OPEN (-40) when the file aside cannot be
    // made, or is there and no regular file, QE_ERROR_IO (-41) when it cannot be told what is
    // there, QE_ERROR_LIMIT (-49) when the name is too long.
    int open(const char *target, const char *like = nullptr);

    FILE *file() const { return file_.get(); }

    // Syncs the content, puts it in the place of the target and syncs the folder. 0 or QE_ERROR_IO
    // (-41).
    int commit();

private:
    char target_[max_filename] = {};
    char path_[max_filename] = {};
    owned_file file_;
};

// Whatever was written to the stream is on the medium. 0 or QE_ERROR_IO (-41).
int _vesk_sync_file(FILE *file);

// The names in the folder of `path` are on the medium. 0 or QE_ERROR_IO (-41).
int _vesk_sync_folder(const char *path);

#endif
