// Measures how full file systems are. A file system may never answer, because its device has
// failed, so the question is asked in a helper process and a sample waits for the answer only a
// short time.
#ifndef VESK_CLI_MACHINE_FILE_SYSTEMS_HPP
#define VESK_CLI_MACHINE_FILE_SYSTEMS_HPP

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"
#include "machine/mounts.hpp"
#include "machine/space_helper.hpp"

namespace cli
{

// Adds the sensors ::fs.NAME.*. Without @p found they are there and have no values.
void measure_space(const std::string &name, const std::optional<space> &found, measurements &out);

class file_system_source
{
public:
    explicit file_system_source(space_helper::question question = space_of) : question_(question) {}

    // Asks the file systems already now, so that they answer while others are measured.
    void ask(const machine_files &files);
    // A file system that does not answer in time has no values until it does, which is noted once.
    void measure(const machine_files &files, measurements &out);

private:
    // A question that its file system has not answered yet, with the helper that waits for it.
    struct open_question {
        std::string path;
        std::unique_ptr<space_helper> helper;
    };

    void collect_late_answers();
    bool is_waited_for(const std::string &path) const;
    bool start_helper();
    void ask_at_once();
    std::vector<std::optional<space>> answers();
    bool answers_at_once(std::vector<std::optional<space>> &found);
    std::optional<space> ask_alone(const std::string &path);

    space_helper::question question_;
    bool is_asked_ = false; // of these:
    std::vector<mounted> mounts_;
    std::vector<std::string> paths_;
    std::unique_ptr<space_helper> helper_; // asks for all that answer
    std::unique_ptr<space_helper> held_;   // by one of those that it was to ask at once
    unsigned careful_ = 0;                 // so many times they are not asked at once
    std::vector<open_question> late_;
    std::set<std::string> noted_;
};

} // namespace cli

#endif
