// Where an export in a text format goes: standard output, or a file that appears when it is
// complete.
#ifndef VESK_CLI_EXPORT_SINK_HPP
#define VESK_CLI_EXPORT_SINK_HPP

#include <memory>
#include <string>
#include <string_view>

namespace cli
{

class sink
{
public:
    sink() = default;
    sink(const sink &) = delete;
    sink &operator=(const sink &) = delete;
    virtual ~sink() = default;

    // Throws a failure when the text is refused.
    virtual void write(std::string_view text) = 0;
    // To be called when all is written: without it a file is deleted again.
    virtual void finish() = 0;
};

// @p path is a file, see new_file; "-" or nothing is standard output.
std::unique_ptr<sink> open_sink(const std::string &path, bool force);

} // namespace cli

#endif
