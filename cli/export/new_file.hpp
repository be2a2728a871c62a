// A file that comes into being as a whole: it is written under a name of its own beside the place
// where it is to stand, and renamed when it is complete. Whoever looks there sees the old file, or
// nothing, or all of the new one.
#ifndef VESK_CLI_EXPORT_NEW_FILE_HPP
#define VESK_CLI_EXPORT_NEW_FILE_HPP

#include <string>

namespace cli
{

class new_file
{
public:
    // Makes the file with another name. Throws a failure when @p path exists and @p force is false,
    // and, whatever @p force says, when something else than a file stands there: a link is never
    // followed nor replaced.
    new_file(const std::string &path, bool force);
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;
    // Deletes the file unless it was put in place.
    ~new_file();

    // Its name until then, without links on the way to it.
    const std::string &temporary_path() const { return temporary_; }
    int descriptor() const { return fd_; }

    // Brings the content onto the medium and gives the file its name.
    void put_in_place();

private:
    void refuse_what_is_there() const;

    std::string path_;
    std::string target_; // the same place, without links on the way to it
    bool force_;
    std::string temporary_;
    int fd_ = -1;
};

} // namespace cli

#endif
