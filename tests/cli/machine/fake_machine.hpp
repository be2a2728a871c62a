// A tree of files in place of /proc, /etc and /dev.
#ifndef VESK_TESTS_CLI_MACHINE_FAKE_MACHINE_HPP
#define VESK_TESTS_CLI_MACHINE_FAKE_MACHINE_HPP

#include <cstdint>
#include <filesystem>
#include <string>

#include "common/temporary_directory.hpp"

class fake_machine
{
public:
    const std::string &root() const { return folder_.path(); }
    std::string path(const std::string &name) const { return folder_.path() + name; }

    void put(const std::string &name, const std::string &content) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        write_file(path(name), content);
    }

    struct process {
        std::string name;
        uint64_t ticks = 0;
        uint64_t pages = 0;
        uint64_t io = 0;
        uint64_t started = 100;
    };
    void put_process(uint32_t pid, const process &what) const
    {
        const std::string folder = "/proc/" + std::to_string(pid) + "/";
        put(folder + "stat", std::to_string(pid) + " (" + what.name +
                                 ") S 1 1 1 0 -1 4194560 9 9 9 9 " + std::to_string(what.ticks) +
                                 " 0 0 0 20 0 1 0 " + std::to_string(what.started) + " 1000000 " +
                                 std::to_string(what.pages) + " 18446744073709551615 1 1 0 0 0\n");
        put(folder + "io",
            "rchar: 77\nwchar: 77\nsyscr: 1\nsyscw: 1\nread_bytes: " + std::to_string(what.io) +
                "\nwrite_bytes: 0\ncancelled_write_bytes: 0\n");
    }
    void remove_process(uint32_t pid) const
    {
        std::filesystem::remove_all(path("/proc/" + std::to_string(pid)));
    }

private:
    temporary_directory folder_;
};

#endif
