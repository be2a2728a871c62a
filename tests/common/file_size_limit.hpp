// A disk that is full: while it lives, no file of this process grows beyond `bytes`.
#ifndef VESK_TESTS_COMMON_FILE_SIZE_LIMIT_HPP
#define VESK_TESTS_COMMON_FILE_SIZE_LIMIT_HPP

#include <csignal>
#include <sys/resource.h>

class file_size_limit
{
public:
    explicit file_size_limit(std::size_t bytes)
    {
        old_handler_ = signal(SIGXFSZ, SIG_IGN);
        (void)getrlimit(RLIMIT_FSIZE, &old_limit_);
        const struct rlimit limit = {static_cast<rlim_t>(bytes), old_limit_.rlim_max};
        (void)setrlimit(RLIMIT_FSIZE, &limit);
    }
    file_size_limit(const file_size_limit &) = delete;
    file_size_limit &operator=(const file_size_limit &) = delete;
    ~file_size_limit()
    {
        (void)setrlimit(RLIMIT_FSIZE, &old_limit_);
        (void)signal(SIGXFSZ, old_handler_);
    }

private:
    struct rlimit old_limit_ = {};
    void (*old_handler_)(int) = SIG_DFL;
};

#endif
