// What is wrong with a box, file by file, and what a repair would do about it. The verbs that tell
// of the health of a box share it, so that they say the same. It never changes a file.
#ifndef VESK_CLI_BOX_DIAGNOSIS_HPP
#define VESK_CLI_BOX_DIAGNOSIS_HPP

#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/file_check.hpp"
#include "box/recovery.hpp"
#include "box/waiting_events.hpp"

namespace cli
{

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
// and where a file cannot be read. Files that @p known has the check of are not read again while
// they stay the same.
diagnosis diagnose_box(const std::string &base, const told_sizes &sizes,
                       const kept_checks &known = {});

} // namespace cli

#endif
