// Where tests make thousands of boxes, all of which are synced.
#ifndef VESK_TESTS_CLI_QUICK_FOLDER_HPP
#define VESK_TESTS_CLI_QUICK_FOLDER_HPP

#include <filesystem>
#include <unistd.h>

// In memory where there is such a folder.
inline std::filesystem::path quick_folder()
{
    const std::filesystem::path memory("/dev/shm");
    return access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

#endif
