// Starts a shell with a pipe as its standard output, and cleans up behind it. The kernel kills the
// shell when this process dies; what the shell has started gets a broken pipe then.
#include "process/child_program.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr int looks_until_kill = 100;
constexpr int looks_in_all = 200;
constexpr timespec between_looks = {0, 10000000};

// Handlers go with exec, but what is ignored or blocked here would stay so.
void use_default_signals()
{
    for (int number = 1; number < NSIG; ++number) {
        signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void become(const char *command, int output, pid_t parent)
{
    setpgid(0, 0);
    use_default_signals();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDONLY);
    if (getppid() != parent || nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 ||
        dup2(output, STDOUT_FILENO) < 0) {
        _exit(127);
    }
    close_descriptors_from(STDERR_FILENO + 1);
    execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);
}

} // namespace

void close_descriptors_from(int first)
{
#ifdef SYS_close_range
    if (syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0) {
        return;
    }
#endif
    constexpr long usual_limit = 65536;
    const long most = std::min(sysconf(_SC_OPEN_MAX), usual_limit);
    for (int fd = first; fd < most; ++fd) {
        close(fd);
    }
}

child_program::child_program(const std::string &command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw failure(exit_failed, with_errno("no program can be started"));
    }
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        become(command.c_str(), ends[1], parent);
    }
    const int error = errno;
    close(ends[1]);
    if (pid_ < 0) {
        close(ends[0]);
        errno = error;
        throw failure(exit_failed, with_errno("no program can be started"));
    }
    // Both do it, so that neither depends on who comes first.
    setpgid(pid_, pid_);
    output_ = ends[0];
    fcntl(output_, F_SETFL, O_NONBLOCK);
}

child_program::~child_program()
{
    close(output_);
    if (is_reaped_) {
        return;
    }
    kill(-pid_, SIGTERM);
    for (int i = 0; i < looks_in_all && !ending(); ++i) {
        if (i == looks_until_kill) {
            kill_group();
        }
        nanosleep(&between_looks, nullptr);
    }
}

void child_program::kill_group() const
{
    if (!is_reaped_) {
        kill(-pid_, SIGKILL);
    }
}

std::optional<std::string> child_program::ending()
{
    siginfo_t info = {};
    // As long as it is not reaped, nobody else can have its number.
    if (is_reaped_ ||
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != pid_) {
        return std::nullopt;
    }
    kill_group();
    int status = 0;
    waitpid(pid_, &status, 0);
    is_reaped_ = true;
    return WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                               : fmt::format("exit {}", WEXITSTATUS(status));
}

} // namespace cli
