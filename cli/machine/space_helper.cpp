// Runs the helper process that asks for the space of file systems. A socket that keeps messages
// apart joins it with its parent: a message of paths, each with a zero byte behind it, goes one
// way, a message with all answers the other. The process ends when its parent closes the socket.
#include "machine/space_helper.hpp"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/child_program.hpp"
#include "process/startup_pages.hpp"

namespace cli
{
namespace
{

// A signal interrupts the wait for an answer. More signals than these are not expected during one
// wait.
constexpr int most_signals = 10;

// What the process keeps open.
constexpr int socket_of_process = 3;

uint64_t mount_id_of(const char *path)
{
#ifdef STATX_MNT_ID
    struct statx status = {};
    const int flags = AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT;
    if (statx(AT_FDCWD, path, flags, STATX_MNT_ID, &status) == 0 &&
        (status.stx_mask & STATX_MNT_ID) != 0) {
        return status.stx_mnt_id;
    }
#else
    (void)path;
#endif
    return 0;
}

// Descriptors of the parent are its box and its locks: they must not outlive it in a process that a
// file system holds.
void keep_only(int socket)
{
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; nothing >= 0 && fd <= 2; ++fd) {
        dup2(nothing, fd);
    }
    if (socket != socket_of_process) {
        dup2(socket, socket_of_process);
    }
    close_descriptors_from(socket_of_process + 1);
}

// Ignores the signals that a terminal or a service manager sends to all processes: the parent
// decides what they mean.
void leave_signals_to_parent()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        signal(number, SIG_IGN);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

[[noreturn]] void answer_questions(int socket, space_helper::question ask)
{
    leave_signals_to_parent();
    keep_only(socket);
    if (chdir("/") != 0) {
        _exit(1);
    }
    static char paths[space_helper::most_bytes + 1];
    static space answers[space_helper::most_paths];
    bool is_used = false;
    while (true) {
        const ssize_t length = recv(socket_of_process, paths, sizeof paths - 1, 0);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            _exit(0);
        }
        paths[length] = '\0';
        std::size_t count = 0;
        const char *path = paths;
        while (path < paths + length && count < space_helper::most_paths) {
            answers[count++] = ask(path);
            path += strlen(path) + 1;
        }
        if (send(socket_of_process, answers, count * sizeof *answers, MSG_NOSIGNAL) < 0) {
            _exit(0);
        }
        if (!is_used) {
            leave_startup_pages();
            is_used = true;
        }
    }
}

} // namespace

space space_of(const char *path)
{
    struct statvfs found = {};
    space answer = {};
    if (statvfs(path, &found) != 0) {
        answer.failed = 1;
        return answer;
    }
    const uint64_t unit = found.f_frsize;
    answer.read_only = (found.f_flag & ST_RDONLY) != 0 ? 1 : 0;
    answer.mount_id = mount_id_of(path);
    answer.total_bytes = found.f_blocks * unit;
    answer.free_bytes = found.f_bfree * unit;
    answer.available_bytes = found.f_bavail * unit;
    answer.inodes = found.f_files;
    answer.free_inodes = found.f_ffree;
    return answer;
}

space_helper::space_helper(question answer)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return;
    }
    process_ = fork();
    if (process_ == 0) {
        answer_questions(ends[1], answer);
    }
    close(ends[1]);
    if (process_ < 0) {
        close(ends[0]);
        return;
    }
    socket_ = ends[0];
}

space_helper::~space_helper()
{
    if (!is_there()) {
        return;
    }
    close(socket_);
    kill(process_, SIGKILL);
    // A process that a file system blocks dies only when that file system answers, so nobody waits
    // for it.
    waitpid(process_, nullptr, waits_ ? WNOHANG : 0);
}

bool space_helper::ask(const std::vector<std::string> &paths)
{
    std::string all;
    for (const std::string &path : paths) {
        all.append(path).push_back('\0');
    }
    if (paths.size() > most_paths || all.size() > most_bytes) {
        return false;
    }
    asked_ = paths.size();
    waits_ = send(socket_, all.data(), all.size(), MSG_NOSIGNAL) >= 0;
    return waits_;
}

std::optional<std::vector<space>> space_helper::wait(std::chrono::milliseconds limit)
{
    pollfd events = {socket_, POLLIN, 0};
    int ready = -1;
    for (int i = 0; i < most_signals && ready < 0; ++i) {
        ready = poll(&events, 1, static_cast<int>(limit.count()));
    }
    if (ready <= 0) {
        return std::nullopt;
    }
    waits_ = false;
    std::vector<space> answers(asked_);
    const std::size_t bytes = answers.size() * sizeof(space);
    const ssize_t length = recv(socket_, answers.data(), bytes, MSG_DONTWAIT);
    if (length < 0 || static_cast<std::size_t>(length) != bytes) {
        answers.clear();
    }
    return answers;
}

} // namespace cli
