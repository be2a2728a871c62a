// Tells when something happens in the folder of a box, where the system can tell it. Who waits has
// to look from time to time all the same: a file system of the network tells nothing.
#ifndef VESK_CLI_BOX_FOLDER_WATCH_HPP
#define VESK_CLI_BOX_FOLDER_WATCH_HPP

#include <string>

namespace cli
{

class folder_watch
{
public:
    // Of the folder in which the files with the base name @p base lie.
    explicit folder_watch(const std::string &base);
    folder_watch(const folder_watch &) = delete;
    folder_watch &operator=(const folder_watch &) = delete;
    ~folder_watch();

    // Can be read when something has happened; -1 where nobody tells.
    int descriptor() const { return fd_; }
    // Forgets what has happened up to now.
    void forget() const;

private:
    int fd_;
};

} // namespace cli

#endif
