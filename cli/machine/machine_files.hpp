// The files of /proc and /sys, or of a folder that holds another machine's: read in one go, and
// never more of them than a stated amount.
#ifndef VESK_CLI_MACHINE_MACHINE_FILES_HPP
#define VESK_CLI_MACHINE_MACHINE_FILES_HPP

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "machine/measurement.hpp"

namespace cli
{

class machine_files
{
public:
    // The longest texts, of /proc/stat on machines with a thousand processors, have some 100 KB.
    static constexpr std::size_t most_bytes = std::size_t{4} << 20;
    // At most so many entries of a folder are read.
    static constexpr std::size_t most_entries = 65536;

    // @p root stands before every path: "" for the machine itself.
    explicit machine_files(std::string root = "") : root_(std::move(root)) {}

    const std::string &root() const { return root_; }
    std::string full_path(std::string_view path) const { return root_ + std::string(path); }

    // True when something was not opened because the process or the machine had no descriptors or
    // no memory left, since this was asked last. Values that were read meanwhile do not describe
    // the machine.
    bool take_starved() const { return std::exchange(starved_, false); }

    // The text of a file; nothing when there is none, and an empty text when it cannot be read.
    std::optional<std::string> read(std::string_view path) const;
    // The first line of a small file; empty when there is none.
    std::string read_word(std::string_view path) const;
    // Nothing when there is no such file, NaN when it holds no number or cannot be read.
    std::optional<double> read_number(std::string_view path) const;

    // The names in a folder that begin with @p prefix, sorted; the first @p most of them.
    std::vector<std::string> list(std::string_view path, std::string_view prefix,
                                  std::size_t most) const;
    // How many names of a folder begin with a digit: in /proc, processes.
    std::size_t count_numbered(std::string_view path) const;
    bool exists(std::string_view path) const;
    // The last part of what a symbolic link points to, or nothing.
    std::string link_target_name(std::string_view path) const;

    // "/proc/net/NAME". In the /proc of another machine that is the network of this process, and
    // that of the first process is read instead, where it may be.
    std::string of_network(std::string_view name) const;
    // The mounts that the processes of the machine see, in the same way.
    std::string of_mounts() const;

    // Lets @p parse, called with the text of @p path and @p out, add what it holds, and notes where
    // that is from.
    template <typename Parse>
    void parse_file(std::string_view path, Parse parse, measurements &out) const
    {
        if (const std::optional<std::string> text = read(path)) {
            const std::size_t before = out.size();
            parse(std::string_view(*text), out);
            note_source(path, before, out);
        }
    }
    // Adds a number times @p unit under @p name, NaN when it is there and cannot be read.
    void add_gauge(std::string name, std::string_view path, double unit, measurements &out) const;
    // Adds a counter in the same way.
    void add_counter(std::string name, std::string_view path, double unit, measurements &out) const;

private:
    std::optional<std::string> read_at_most(std::string_view path, std::size_t most) const;
    template <typename Take>
    void for_each_entry(std::string_view path, Take take) const;
    void note_failure(int error) const;
    void note_source(std::string_view path, std::size_t first, measurements &out) const;

    std::string root_;
    mutable bool starved_ = false;
};

} // namespace cli

#endif
