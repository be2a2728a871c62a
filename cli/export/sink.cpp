// Writes the text of an export to standard output or into a new file, in large pieces.
#include "export/sink.hpp"

#include <cerrno>
#include <unistd.h>

#include "export/new_file.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"

namespace cli
{
namespace
{

class standard_output : public sink
{
public:
    void write(std::string_view text) override { put(text); }
    void finish() override { flush_output(); }
};

class file_output : public sink
{
public:
    file_output(const std::string &path, bool force) : path_(path), file_(path, force)
    {
        waiting_.reserve(piece + piece / 4);
    }

    void write(std::string_view text) override
    {
        waiting_ += text;
        if (waiting_.size() >= piece) {
            flush();
        }
    }
    void finish() override
    {
        flush();
        file_.put_in_place();
    }

private:
    static constexpr std::size_t piece = 256 * 1024;

    void flush()
    {
        std::string_view rest = waiting_;
        while (!rest.empty()) {
            const ssize_t count = ::write(file_.descriptor(), rest.data(), rest.size());
            if (count < 0 && errno != EINTR) {
                throw failure(exit_failed, with_errno(path_));
            }
            rest.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
        waiting_.clear();
    }

    std::string path_;
    new_file file_;
    std::string waiting_;
};

} // namespace

std::unique_ptr<sink> open_sink(const std::string &path, bool force)
{
    if (path.empty() || path == "-") {
        return std::make_unique<standard_output>();
    }
    return std::make_unique<file_output>(path, force);
}

} // namespace cli
