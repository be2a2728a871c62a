// How many descriptors this process has open.
#ifndef VESK_TESTS_COMMON_OPEN_FILES_HPP
#define VESK_TESTS_COMMON_OPEN_FILES_HPP

#include <cstddef>
#include <filesystem>
#include <iterator>

inline std::ptrdiff_t count_open_files()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

#endif
