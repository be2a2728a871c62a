// Walks over the segments of the program and its libraries. Only those are left that nothing can
// have written to: dropping a page of them loses nothing, because its file still has it.
#include "process/startup_pages.hpp"

#include <cstdint>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace cli
{
namespace
{

// Relocations in code are changes of it that its file does not have.
bool has_changed_code(const dl_phdr_info &object)
{
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        if (object.dlpi_phdr[i].p_type != PT_DYNAMIC) {
            continue;
        }
        const auto *entry =
            reinterpret_cast<const ElfW(Dyn) *>(object.dlpi_addr + object.dlpi_phdr[i].p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == DT_TEXTREL ||
                (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0)) {
                return true;
            }
        }
    }
    return false;
}

int leave_object(dl_phdr_info *object, size_t, void *)
{
    if (has_changed_code(*object)) {
        return 0;
    }
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
            continue;
        }
        // Whole pages of the segment only: none is shared with a segment that can be written.
        const uintptr_t first = object->dlpi_addr + segment.p_vaddr;
        const uintptr_t begin = (first + page - 1) / page * page;
        const uintptr_t end = (first + segment.p_memsz) / page * page;
        if (begin < end) {
            // Where it is refused, more memory stays than need be.
            madvise(reinterpret_cast<void *>(begin), end - begin, MADV_DONTNEED);
        }
    }
    return 0;
}

} // namespace

void leave_startup_pages()
{
    dl_iterate_phdr(leave_object, nullptr);
}

} // namespace cli
