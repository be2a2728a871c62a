// Sensors that a program of the user gives as lines of text telemetry. The program is started again
// when it ends. Whatever it prints, it costs bounded time and memory and delays no sample.
#ifndef VESK_CLI_MACHINE_PROGRAM_SOURCE_HPP
#define VESK_CLI_MACHINE_PROGRAM_SOURCE_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "machine/rates.hpp"
#include "process/child_program.hpp"
#include "text/telemetry_text.hpp"

namespace cli
{

// What is to be told about the program.
struct program_notice {
    enum class kind { started, ended, not_started, refused };

    kind what;
    std::string text;   // how it ended, or why a line was refused
    uint64_t count = 0; // of refused lines; seconds until the program is started again
};

class program_source
{
public:
    static constexpr std::size_t longest_line = 262144;
    static constexpr std::size_t most_names = 2000;
    // Between two samples; what is more stays in the pipe until the next one.
    static constexpr std::size_t most_bytes = 1048576;

    explicit program_source(std::string command) : command_(std::move(command)) {}

    // Starts the program when it is time, and reads what it has printed.
    void look(double monotonic);
    // Readable when there is something to look at; -1 when nothing is to be expected.
    int fd() const;
    // When to look at the latest.
    double seconds_to_look(double monotonic) const;

    // Adds the values of the latest line. A name that is there already is left out. The values are
    // missing when the next line should have come by now: after two intervals, or twice the time
    // between the latest two lines.
    void add_to(readings &sample, double monotonic, int64_t interval);

    // What has happened since the last call. Refused lines are summed up for a minute.
    std::vector<program_notice> take_notices(double monotonic);

private:
    void start(double monotonic);
    void read_output(double monotonic);
    void take_text(std::string_view text, double monotonic);
    void take_line(std::string_view line, double monotonic);
    void refuse(const std::string &reason);
    void look_at_end(double monotonic);
    void pause(double monotonic, program_notice::kind what, const std::string &how);

    std::string command_;
    std::optional<child_program> child_;
    bool has_closed_ = false; // its output
    double started_ = 0;
    double next_start_ = 0;
    uint64_t pause_ = 0; // seconds, before the last start
    bool is_useful_ = false;

    std::string line_; // the beginning of one
    bool skips_ = false;
    std::size_t bytes_ = 0; // since the last sample
    std::optional<telemetry_parser> parser_;
    bool names_fit_ = true;
    std::vector<std::string> names_;
    std::vector<float> values_;
    double value_time_ = 0;
    double between_values_ = 0;

    std::vector<program_notice> notices_;
    uint64_t refused_ = 0;
    std::string first_refusal_;
    std::optional<double> refusal_told_;
};

} // namespace cli

#endif
