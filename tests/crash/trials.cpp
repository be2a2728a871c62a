// Runs trials in child processes, so that one that aborts or hangs is a complaint and not the end
// of the test, and collects what they count in memory that they share.
#include "crash/trials.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr std::size_t max_failures = 12;
static constexpr std::size_t max_counts = 32;

// What the processes share.
struct trial_board {
    std::size_t next;
    std::size_t tried;
    std::size_t failed;
    uint64_t counts[max_counts];
    std::size_t length;
    char complaints[16384];

    void complain(std::size_t i, const std::string &complaint)
    {
        ++failed;
        const std::string text = "trial " + std::to_string(i) + ": " + complaint;
        const std::size_t n = std::min(text.size(), sizeof complaints - length);
        memcpy(complaints + length, text.data(), n);
        length += n;
    }
};

static trial_board *board = nullptr;

void count_trial(std::size_t index, uint64_t n)
{
    board->counts[index] += n;
}

bool is_long_form()
{
    const char *wanted = getenv("VESK_CRASH_LONG");
    return wanted != nullptr && *wanted != '\0';
}

// VESK_CRASH_EVERY says to try only every so manyth trial, as slow builds do. Small sets are tried
// whole.
static std::size_t _step_between_trials(std::size_t n)
{
    const char *every = getenv("VESK_CRASH_EVERY");
    const std::size_t step = every != nullptr ? strtoul(every, nullptr, 10) : 1;
    return n < 30 || step == 0 ? 1 : step;
}

// What a process said before it ended.
static std::string _read_last_words(FILE *words)
{
    rewind(words);
    char text[600];
    const std::size_t n = fread(text, 1, sizeof text, words);
    return {text, n};
}

// A long form tells every half minute how far it is.
static void _tell_progress(std::size_t n)
{
    static time_t told = time(nullptr);
    if (is_long_form() && time(nullptr) >= told + 30) {
        told = time(nullptr);
        (void)printf("  %zu of %zu trials, %zu failed\n", board->next, n, board->failed);
        (void)fflush(stdout);
    }
}

static void _run_from_next(std::size_t n, const std::function<std::string(std::size_t)> &trial,
                           std::size_t step, unsigned seconds)
{
    while (board->next < n && board->failed < max_failures) {
        // Of its own time: the machine may be busy with other things.
        const struct itimerval limit = {{0, 0}, {static_cast<time_t>(seconds), 0}};
        (void)setitimer(ITIMER_PROF, &limit, nullptr);
        const std::string complaint = trial(board->next);
        if (!complaint.empty()) {
            board->complain(board->next, complaint);
        }
        board->next += step;
        ++board->tried;
        _tell_progress(n);
    }
}

trial_results run_trials(std::size_t n, const std::function<std::string(std::size_t)> &trial,
                         unsigned seconds)
{
    const std::size_t step = _step_between_trials(n);
    board = static_cast<trial_board *>(
        mmap(nullptr, sizeof *board, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    while (board->next < n && board->failed < max_failures) {
        FILE *words = tmpfile();
        (void)fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            (void)dup2(fileno(words), STDERR_FILENO);
            _run_from_next(n, trial, step, seconds);
            _exit(0);
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            board->complain(board->next, "the process ended with status " + std::to_string(status) +
                                             ": " + _read_last_words(words) + "\n");
            board->next += step;
            ++board->tried;
        }
        (void)fclose(words);
    }
    trial_results results;
    results.tried = board->tried;
    results.failed = board->failed;
    results.complaints.assign(board->complaints, board->length);
    results.counts.assign(board->counts, board->counts + max_counts);
    (void)munmap(board, sizeof *board);
    board = nullptr;
    return results;
}
