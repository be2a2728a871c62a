// Makes chosen calls of the library fail: every test program is linked so that what the library
// asks of the allocator, of zlib and of the file system passes through here. Tests use it to walk a
// function through its N-th failure, N = 1, 2, 3 ... until it succeeds.
#ifndef VESK_TESTS_COMMON_FAILING_CALLS_HPP
#define VESK_TESTS_COMMON_FAILING_CALLS_HPP

#include <functional>

// What can be made to fail.
enum class call_kind {
    allocation, // malloc(), calloc(), realloc(), strdup(), strndup(), aligned_alloc(): no memory
    zlib,       // deflateInit(), inflateInit(), inflate(): no memory
    open,       // fopen(), fdopen(), opendir(): no descriptor is left
    read, // read(), fread(), fgets(), readdir(): the medium fails, which is not the end of the file
    write,      // fwrite() and what prints: the disk is full, nothing was taken
    torn_write, // the same calls: the first half of the bytes reached the file
    flush,      // fflush(): the disk is full, what was buffered is lost
    close,      // fclose(), closedir(): the descriptor is gone all the same
    remove,     // unlink(), remove()
    rename,     // rename(), link(), linkat()
    sync,       // fsync(), fdatasync()
    truncate,   // ftruncate()
};
inline constexpr int call_kinds = 12;

// While it lives, the n-th call of a kind from now on fails: only that one, or also all that
// follow. There is one at a time.
class failing_call
{
public:
    enum duration { once, for_ever };

    // With n = 0 nothing fails and calls are counted only.
    explicit failing_call(call_kind kind, int n, duration how_long = once);
    failing_call(const failing_call &) = delete;
    failing_call &operator=(const failing_call &) = delete;
    ~failing_call();

    // Whether it came to the n-th call.
    static bool happened();
    // How many calls of a kind there were, failed ones included.
    static int count(call_kind kind);
};

// The same for allocations.
class failing_allocation : public failing_call
{
public:
    explicit failing_allocation(int n, duration how_long = once)
        : failing_call(call_kind::allocation, n, how_long)
    {
    }
};

// While it lives, the n-th call of deflate() or inflate() from now on does nothing and returns
// `code`.
class failing_zlib
{
public:
    failing_zlib(int n, int code);
    failing_zlib(const failing_zlib &) = delete;
    failing_zlib &operator=(const failing_zlib &) = delete;
    ~failing_zlib();
};

// While it lives, the n-th lstat() or stat() from now on fails with this reason.
class failing_look
{
public:
    failing_look(int n, int reason);
    failing_look(const failing_look &) = delete;
    failing_look &operator=(const failing_look &) = delete;
    ~failing_look();

    static bool happened();
};

// While it lives, a signal interrupts the n-th read() or fread() from now on, before it has read
// anything.
class interrupted_read
{
public:
    explicit interrupted_read(int n);
    interrupted_read(const interrupted_read &) = delete;
    interrupted_read &operator=(const interrupted_read &) = delete;
    ~interrupted_read();

    static bool happened();
};

// While it lives, all files together take so many more bytes. The write that does not fit writes
// what does, and fails.
class limited_disk
{
public:
    explicit limited_disk(long bytes);
    limited_disk(const limited_disk &) = delete;
    limited_disk &operator=(const limited_disk &) = delete;
    ~limited_disk();

    // The bytes that were written.
    static long used();
};

// While it lives, somebody looks each time that a call may have changed the files, or synced one:
// that has its descriptor then, and everything else -1.
class call_observer
{
public:
    explicit call_observer(std::function<void(const char *call, int synced)> look);
    call_observer(const call_observer &) = delete;
    call_observer &operator=(const call_observer &) = delete;
    ~call_observer();
};

// How many blocks of memory are allocated and not freed: only the change from one point to another
// tells something.
long count_live_blocks();

#endif
