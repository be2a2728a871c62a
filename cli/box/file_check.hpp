// What is wrong with a file of a box, record by record. Readers that scan a file for another reason
// collect it on the way, so that a check need not read the file again.
#ifndef VESK_CLI_BOX_FILE_CHECK_HPP
#define VESK_CLI_BOX_FILE_CHECK_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "box/box.hpp"

namespace cli
{

// A record, or a place without any, that is not as it should be.
struct file_finding {
    uint64_t offset;
    uint64_t length;
    int error;
    std::string what;
};

// The kind of a finding, which names the rest of a long list.
enum class finding_kind { damage, refused_record, bare_event };
constexpr std::size_t finding_kinds = 3;
// "places without a record", for the number of those that are not listed.
const char *words_of(finding_kind kind);

struct checked_file {
    const stored_file *file;
    uint64_t samples = 0;
    uint64_t intervals = 0;
    uint64_t events = 0;
    std::vector<file_finding> findings; // at most most_told_of_a_kind of each kind
    std::array<uint64_t, finding_kinds> found = {};

    // Takes an item of the file.
    void look_at(const vesk_scan_item &item);
    void add(finding_kind kind, const file_finding &what);
    // How many more there are of a kind than are listed.
    uint64_t unlisted(finding_kind kind) const;
    // "4 samples, 2 events, 512 bytes", or why there is no file.
    std::string contents_text() const;
    // The findings as lines for people, and how many more there are. They are not printable yet.
    std::vector<std::string> lines() const;
};

// Reads the whole file. Throws a read_failure when the machine prevents that: without the content
// there is no verdict.
checked_file check_file(const stored_file &file);

// The checks of files that were scanned for another reason.
class kept_checks
{
public:
    // Before the file is scanned; its items go to the result, which keep() takes afterwards.
    class scan
    {
    public:
        explicit scan(const stored_file &file);
        void look_at(const vesk_scan_item &item) { check_.look_at(item); }

    private:
        friend class kept_checks;
        checked_file check_;
        std::optional<file_stamp> stamp_;
        bool was_live_;
    };

    // To be called when all of the file was scanned. The file has to live as long as this does.
    void keep(scan &&done) { scans_.push_back(std::move(done)); }
    // The check of a file that is the same as then; nothing where somebody may have changed it.
    std::optional<checked_file> check_of(const stored_file &file) const;

private:
    std::vector<scan> scans_;
};

} // namespace cli

#endif
