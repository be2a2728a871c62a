// Reads a whole file into memory, because the scanner looks at the same bytes more than once while
// a recorder may append to the file.
#include "box/loaded_file.hpp"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#include <vesk/error.h>

#include "support/owner.hpp"

int _vesk_load_file(const char *filename, link_rule rule, std::size_t most, byte_list *store)
{
    constexpr std::size_t piece = 65536;
    const owned_file file = _vesk_open_plain_file(filename, O_RDONLY, rule);
    if (!file) {
        // A folder can be opened, but not be read.
        return errno == EISDIR ? QE_ERROR_IO : QE_ERROR_OPEN;
    }
    while (store->size() < most) {
        unsigned char *room = store->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const std::size_t wanted = std::min(piece, most - store->size());
        const std::size_t n = _vesk_read_some(file.get(), room, wanted);
        store->add(n);
        if (n < wanted) {
            return ferror(file.get()) != 0 ? QE_ERROR_IO : 0;
        }
    }
    return 0;
}
