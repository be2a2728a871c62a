// The buffer files that were found under the name of a box, by number, with what is in each of
// them. They are plain data, so that the code which decides about them does not read the disk.
#ifndef VESK_RECOVERY_BOX_FILE_HPP
#define VESK_RECOVERY_BOX_FILE_HPP

#include <algorithm>
#include <cstdint>
#include <new>

#include <vesk/vesk_buffer.h>

#include "box/box_files.hpp"
#include "recovery/buffer_mender.hpp"
#include "support/growing_list.hpp"
#include "support/object.hpp"

// A file itself, whatever its name is.
struct file_identity {
    uint64_t device = 0;
    uint64_t inode = 0; // 0 when it is not known

    bool is_same(const file_identity &other) const
    {
        return inode != 0 && inode == other.inode && device == other.device;
    }
};

struct box_file {
    buffer_name name;
    file_identity identity;
    bool blank = false;  // it is empty or has nothing but zero bytes: it holds nothing
    bool placed = false; // it belongs to the box
    bool copied = false; // it has records, and all it has begins a buffer of the box
    buffer_contents contents;
    buffer_contents mended; // as the box needs it, when it has to be changed for that

    // What it holds in the end.
    const buffer_contents &final_contents() const { return mended.steps > 0 ? mended : contents; }

    bool is_current() const { return name.kind == VESK_BUFFER_TYPE_CURRENT; }
    bool holds_records() const { return contents.data_records > 0 || contents.events > 0; }
    // It holds all that its own header promises.
    bool is_full() const
    {
        return contents.kind == name.kind && contents.capacity > 0 &&
               contents.data_records >= contents.capacity;
    }
};

class box_file_list
{
public:
    box_file_list() = default;
    box_file_list(const box_file_list &) = delete;
    box_file_list &operator=(const box_file_list &) = delete;
    ~box_file_list()
    {
        for (box_file *file : files_) {
            file->~box_file();
            free(file);
        }
    }

    // Null without memory.
    box_file *add(const buffer_name &name)
    {
        auto *storage = allocate<box_file>();
        if (storage == nullptr || !files_.append(storage)) {
            free(storage);
            return nullptr;
        }
        auto *file = new (storage) box_file();
        file->name = name;
        std::rotate(files_.begin() + place_of(name, files_.size() - 1), files_.end() - 1,
                    files_.end());
        return file;
    }

    box_file **begin() { return files_.begin(); }
    box_file **end() { return files_.end(); }
    const box_file *const *begin() const { return files_.begin(); }
    const box_file *const *end() const { return files_.end(); }

    box_file *find(const buffer_name &name) { return const_cast<box_file *>(get(name)); }
    const box_file *find(const buffer_name &name) const { return get(name); }

private:
    const box_file *get(const buffer_name &name) const
    {
        const std::size_t i = place_of(name, files_.size());
        return i < files_.size() && files_[i]->name.kind == name.kind &&
                       files_[i]->name.number == name.number
                   ? files_[i]
                   : nullptr;
    }

    static bool comes_before(const box_file *file, const buffer_name &name)
    {
        return file->name.number != name.number ? file->name.number < name.number
                                                : file->name.kind < name.kind;
    }
    // The first of the first `n` files that does not come before the name. It is searched for by
    // halves, as there may be as many files as a folder can have.
    std::size_t place_of(const buffer_name &name, std::size_t n) const
    {
        const auto *found =
            std::lower_bound(files_.begin(), files_.begin() + n, name, comes_before);
        return static_cast<std::size_t>(found - files_.begin());
    }

    growing_list<box_file *> files_;
};

#endif
