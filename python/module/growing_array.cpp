#include "growing_array.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include "process/failure.hpp"

namespace vesk_python
{

void require_memory(double bytes)
{
    const double machine =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    if (machine > 0 && bytes > machine / 2) {
        throw cli::failure(cli::exit_failed,
                           fmt::format("the table needs {:.0f} MB, which is more than half of the "
                                       "memory: choose sensors or a shorter time",
                                       bytes / 1e6));
    }
}

} // namespace vesk_python
