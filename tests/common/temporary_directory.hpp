// A folder of its own for a test that writes files.
#ifndef VESK_TESTS_COMMON_TEMPORARY_DIRECTORY_HPP
#define VESK_TESTS_COMMON_TEMPORARY_DIRECTORY_HPP

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdlib.h>
#include <string>

class temporary_directory
{
public:
    temporary_directory() : temporary_directory(std::filesystem::temp_directory_path()) {}
    // In another folder than the system's one for temporary files.
    explicit temporary_directory(const std::filesystem::path &parent)
    {
        std::string pattern = parent / "vesk-test-XXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;
    ~temporary_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

    // The names of the files in it.
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) {
            found.insert(entry.path().filename());
        }
        return found;
    }

private:
    std::string path_;
};

inline std::string read_file(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

#endif
