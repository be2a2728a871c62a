#include "box/first_history.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk.h>

#include "box/storage_failure.hpp"

namespace cli
{
namespace
{

// What a child found out, in memory that its parent sees.
class shared_outcome
{
public:
    shared_outcome()
    {
        void *memory = mmap(nullptr, sizeof(child_outcome), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw storage_failure(words_for(QE_ERROR_NO_MEMORY), errno);
        }
        content_ = static_cast<child_outcome *>(memory);
        *content_ = {QE_ERROR_IO, 0};
    }
    shared_outcome(const shared_outcome &) = delete;
    shared_outcome &operator=(const shared_outcome &) = delete;
    ~shared_outcome() { munmap(content_, sizeof(child_outcome)); }

    void set(int result, int error) { *content_ = {result, error}; }
    child_outcome get() const { return *content_; }

private:
    child_outcome *content_;
};

// What the library says when it aborts is of no use to the user, nor is a core of it.
void be_silent()
{
    const struct rlimit none = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &none);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
    }
}

[[noreturn]] void write_and_exit(const std::string &base, const matrix *vector,
                                 shared_outcome &outcome)
{
    be_silent();
    struct vesk *recorder = vesk_open(base.c_str());
    if (recorder == nullptr) {
        outcome.set(qe_get_last_error(), errno);
        _exit(1);
    }
    errno = 0;
    const int result = vesk_write_telemetry_vector(recorder, vector);
    outcome.set(result, errno);
    vesk_close(&recorder);
    _exit(0);
}

} // namespace

child_outcome write_first_history(const std::string &base, const matrix *vector)
{
    shared_outcome outcome;
    const pid_t child = fork();
    if (child < 0) {
        return {QE_ERROR_NO_MEMORY, errno};
    }
    if (child == 0) {
        write_and_exit(base, vector, outcome);
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return outcome.get();
}

} // namespace cli
