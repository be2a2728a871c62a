// What is wrong with a box, file by file, and what a repair would do about it. The verbs that tell
// of the health of a box share it, so that they say the same. It never changes a file.
#ifndef VESK_CLI_BOX_DIAGNOSIS_HPP
#define VESK_CLI_BOX_DIAGNOSIS_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/recovery.hpp"
#include "box/waiting_events.hpp"

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

    void add(finding_kind kind, const file_finding &what);
    // How many more there are of a kind than are listed.
    uint64_t unlisted(finding_kind kind) const;
    // "4 samples, 2 events, 512 bytes", or why there is no file.
    std::string contents_text() const;
    // The findings as lines for people, and how many more there are. They are not printable yet.
    std::vector<std::string> lines() const;
};

struct diagnosis {
    box what;
    std::vector<checked_file> files; // the others behind those of the box
    waiting_report waiting;
    recovery_plan plan;
    bool moved = false;
    bool live = false; // somebody is writing, and the plan shows no more than that

    bool is_repairable() const { return plan.result == 0 && plan.obstacle.empty(); }
    bool is_healthy() const { return live || (is_repairable() && !is_anything_wrong()); }
    bool is_anything_wrong() const;
    bool has_findings() const;
    // Whether the file lies beside the box and does not belong to it.
    bool is_other(const checked_file &file) const;
    // False where the machine prevented the reading: then there is no verdict about the box.
    bool has_verdict() const;
    // What `check` ends with.
    exit_code code() const;
    const char *verdict() const; // "healthy", "repairable", "not repairable"
    // The same with a remark if the box was moved, or why it cannot be repaired.
    std::string verdict_text() const;
};

// Looks at every record of the box. A box that is being written to is looked at again until the
// result belongs to one moment. Throws a failure where there is no box, where @p base is a file,
// and where a file cannot be read.
diagnosis diagnose_box(const std::string &base, const told_sizes &sizes);

} // namespace cli

#endif
