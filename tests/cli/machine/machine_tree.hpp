// A folder with /proc and /sys of a machine that a test makes up, and what is read of it.
#ifndef VESK_TESTS_CLI_MACHINE_MACHINE_TREE_HPP
#define VESK_TESTS_CLI_MACHINE_MACHINE_TREE_HPP

#include <filesystem>
#include <string>
#include <vector>

#include "common/temporary_directory.hpp"
#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

class machine_tree
{
public:
    const std::string &root() const { return folder_.path(); }
    cli::machine_files files() const { return cli::machine_files(root()); }

    void put(const std::string &path, const std::string &content) const
    {
        put_folder(std::filesystem::path(path).parent_path());
        write_file(folder_.file(path), content);
    }
    void put_folder(const std::string &path) const
    {
        std::filesystem::create_directories(folder_.file(path));
    }
    void put_link(const std::string &path, const std::string &target) const
    {
        put_folder(std::filesystem::path(path).parent_path());
        std::filesystem::create_symlink(target, folder_.file(path));
    }

private:
    temporary_directory folder_;
};

inline std::vector<std::string> names_of(const cli::measurements &taken)
{
    std::vector<std::string> names;
    for (const cli::measurement &m : taken) {
        names.push_back(m.name);
    }
    return names;
}

// "NAME=VALUE" of gauges, "NAME+COUNT" of counters: what a test compares in one line each.
inline std::string text_of(const cli::measurement &m)
{
    const auto number = [](double value) {
        char text[32];
        snprintf(text, sizeof text, "%.7g", value);
        return std::string(text);
    };
    if (const auto *as_gauge = std::get_if<cli::gauge>(&m.what)) {
        return m.name + "=" + number(as_gauge->value);
    }
    if (const auto *as_counter = std::get_if<cli::counter>(&m.what)) {
        return m.name + "+" + std::to_string(as_counter->count);
    }
    return m.name;
}

inline std::vector<std::string> texts_of(const cli::measurements &taken)
{
    std::vector<std::string> texts;
    for (const cli::measurement &m : taken) {
        texts.push_back(text_of(m));
    }
    return texts;
}

#endif
