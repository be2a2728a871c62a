// The wrappers that the linker puts around calls of libc and zlib: they count the calls, and fail
// the one that a test asks for.
#include "common/failing_calls.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>
#include <zlib.h>

// The failure that is asked for, and the calls since then.
static struct {
    bool armed;
    call_kind kind;
    int left; // counts down to the call that fails; 0 when none shall
    bool for_ever;
    bool happened;
    int counts[call_kinds];
} plan;

static std::function<void(const char *, int)> observer;
static bool observing = false;

static long disk_room = -1; // no limit when negative
static long disk_used = 0;

static int reads_to_interruption = 0;

static int looks_to_failure = 0;
static int look_failure = 0;

static int zlib_calls_left = 0;
static int zlib_code = 0;
static long live_blocks = 0;

// A torn write is a write that fails in its own way.
static call_kind _counted_kind(call_kind kind)
{
    return kind == call_kind::torn_write ? call_kind::write : kind;
}

failing_call::failing_call(call_kind kind, int n, duration how_long)
{
    plan = {};
    plan.kind = kind;
    plan.left = n;
    plan.for_ever = how_long == for_ever;
    plan.armed = true;
}

failing_call::~failing_call()
{
    plan.armed = false;
}

bool failing_call::happened()
{
    return plan.happened;
}

int failing_call::count(call_kind kind)
{
    return plan.counts[static_cast<int>(_counted_kind(kind))];
}

failing_zlib::failing_zlib(int n, int code)
{
    zlib_calls_left = n;
    zlib_code = code;
}

failing_zlib::~failing_zlib()
{
    zlib_calls_left = 0;
}

failing_look::failing_look(int n, int reason)
{
    looks_to_failure = n;
    look_failure = reason;
}

failing_look::~failing_look()
{
    looks_to_failure = 0;
}

bool failing_look::happened()
{
    return looks_to_failure == 0;
}

interrupted_read::interrupted_read(int n)
{
    reads_to_interruption = n;
}

interrupted_read::~interrupted_read()
{
    reads_to_interruption = 0;
}

bool interrupted_read::happened()
{
    return reads_to_interruption == 0;
}

limited_disk::limited_disk(long bytes)
{
    disk_room = bytes;
    disk_used = 0;
}

limited_disk::~limited_disk()
{
    disk_room = -1;
}

long limited_disk::used()
{
    return disk_used;
}

call_observer::call_observer(std::function<void(const char *, int)> look)
{
    observer = std::move(look);
    observing = true;
}

call_observer::~call_observer()
{
    observing = false;
    observer = nullptr;
}

// Passes a result on; what the observer does is not observed.
template <typename Result>
static Result _observed(const char *call, Result result, int synced = -1)
{
    if (observing) {
        observing = false;
        const int reason = errno;
        observer(call, synced);
        errno = reason;
        observing = true;
    }
    return result;
}

long count_live_blocks()
{
    return live_blocks;
}

// Counts a call, and says whether it is one that fails.
static bool _fails(call_kind kind)
{
    if (!plan.armed) {
        return false;
    }
    ++plan.counts[static_cast<int>(kind)];
    if (_counted_kind(plan.kind) != kind || plan.left == 0 || --plan.left > 0) {
        return false;
    }
    plan.left = plan.for_ever ? 1 : 0;
    plan.happened = true;
    return true;
}

static bool _zlib_fails()
{
    return zlib_calls_left > 0 && --zlib_calls_left == 0;
}

// The result of a call that could not be made: `failure`, with a reason.
template <typename Result>
static Result _fail(int reason, Result failure)
{
    errno = reason;
    return failure;
}

template <typename Stream, typename Result>
static Result _fail_on(Stream *fp, int reason, Result failure)
{
    fp->_flags |= _IO_ERR_SEEN;
    return _fail(reason, failure);
}

// Allocations that succeed are counted; frees are counted in __wrap_free().
static void *_count_block(void *block)
{
    live_blocks += block != nullptr ? 1 : 0;
    return block;
}

template <typename Allocate>
static void *_allocate(Allocate allocate)
{
    return _fails(call_kind::allocation) ? _fail<void *>(ENOMEM, nullptr)
                                         : _count_block(allocate());
}

// The linker's names for the calls as written and for the functions that were meant.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void *__real_aligned_alloc(size_t alignment, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t n);
void __real_free(void *block);
int __real_deflate(z_stream *stream, int flush);
int __real_inflate(z_stream *stream, int flush);
int __real_deflateInit_(z_stream *stream, int level, const char *version, int size);
int __real_inflateInit_(z_stream *stream, const char *version, int size);
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fopen64(const char *path, const char *mode);
int __real_lstat(const char *path, struct stat *status);
int __real_lstat64(const char *path, struct stat64 *status);
int __real_stat(const char *path, struct stat *status);
int __real_stat64(const char *path, struct stat64 *status);
int __real_open(const char *path, int flags, ...);
int __real_open64(const char *path, int flags, ...);
FILE *__real_fdopen(int descriptor, const char *mode);
DIR *__real_opendir(const char *path);
size_t __real_fread(void *to, size_t size, size_t n, FILE *fp);
char *__real_fgets(char *to, int size, FILE *fp);
ssize_t __real_read(int descriptor, void *to, size_t n);
dirent *__real_readdir(DIR *folder);
dirent *__real_readdir64(DIR *folder);
size_t __real_fwrite(const void *from, size_t size, size_t n, FILE *fp);
int __real_putc(int c, FILE *fp);
int __real_fflush(FILE *fp);
int __real_fclose(FILE *fp);
int __real_closedir(DIR *folder);
int __real_unlink(const char *path);
int __real_remove(const char *path);
int __real_rename(const char *from, const char *to);
int __real_link(const char *from, const char *to);
int __real_linkat(int from_folder, const char *from, int to_folder, const char *to, int flags);
int __real_ftruncate(int fd, off_t length);
int __real_ftruncate64(int fd, off64_t length);
int __real_fsync(int fd);
int __real_fdatasync(int fd);

void *__wrap_malloc(size_t size)
{
    return _allocate([=] { return __real_malloc(size); });
}

void *__wrap_calloc(size_t count, size_t size)
{
    return _allocate([=] { return __real_calloc(count, size); });
}

void *__wrap_aligned_alloc(size_t alignment, size_t size)
{
    return _allocate([=] { return __real_aligned_alloc(alignment, size); });
}

char *__wrap_strdup(const char *text)
{
    return static_cast<char *>(_allocate([=] { return __real_strdup(text); }));
}

char *__wrap_strndup(const char *text, size_t n)
{
    return static_cast<char *>(_allocate([=] { return __real_strndup(text, n); }));
}

void *__wrap_realloc(void *block, size_t size)
{
    if (_fails(call_kind::allocation)) {
        return _fail<void *>(ENOMEM, nullptr);
    }
    void *moved = __real_realloc(block, size);
    return block == nullptr ? _count_block(moved) : moved;
}

void __wrap_free(void *block)
{
    live_blocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}

int __wrap_deflate(z_stream *stream, int flush)
{
    return _zlib_fails() ? zlib_code : __real_deflate(stream, flush);
}

int __wrap_inflate(z_stream *stream, int flush)
{
    if (_fails(call_kind::zlib)) {
        return Z_MEM_ERROR;
    }
    return _zlib_fails() ? zlib_code : __real_inflate(stream, flush);
}

int __wrap_deflateInit_(z_stream *stream, int level, const char *version, int size)
{
    return _fails(call_kind::zlib) ? Z_MEM_ERROR
                                   : __real_deflateInit_(stream, level, version, size);
}

int __wrap_inflateInit_(z_stream *stream, const char *version, int size)
{
    return _fails(call_kind::zlib) ? Z_MEM_ERROR : __real_inflateInit_(stream, version, size);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    return _fails(call_kind::open) ? _fail<FILE *>(EMFILE, nullptr)
                                   : _observed("fopen", __real_fopen(path, mode));
}

FILE *__wrap_fopen64(const char *path, const char *mode)
{
    return _fails(call_kind::open) ? _fail<FILE *>(EMFILE, nullptr)
                                   : _observed("fopen", __real_fopen64(path, mode));
}

// Only files that are made count: folders are opened to be synced.
static int _open(int (*real)(const char *, int, ...), const char *path, int flags, va_list rest)
{
    if ((flags & O_CREAT) == 0 && (flags & O_TMPFILE) != O_TMPFILE) {
        return real(path, flags);
    }
    const mode_t mode = va_arg(rest, mode_t);
    return _fails(call_kind::open) ? _fail(EMFILE, -1) : _observed("open", real(path, flags, mode));
}

int __wrap_open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const int descriptor = _open(__real_open, path, flags, rest);
    va_end(rest);
    return descriptor;
}

int __wrap_open64(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const int descriptor = _open(__real_open64, path, flags, rest);
    va_end(rest);
    return descriptor;
}

FILE *__wrap_fdopen(int descriptor, const char *mode)
{
    return _fails(call_kind::open) ? _fail<FILE *>(EMFILE, nullptr)
                                   : __real_fdopen(descriptor, mode);
}

DIR *__wrap_opendir(const char *path)
{
    return _fails(call_kind::open) ? _fail<DIR *>(EMFILE, nullptr) : __real_opendir(path);
}

static bool _look_fails()
{
    return looks_to_failure > 0 && --looks_to_failure == 0;
}

int __wrap_lstat(const char *path, struct stat *status)
{
    return _look_fails() ? _fail(look_failure, -1) : __real_lstat(path, status);
}

int __wrap_lstat64(const char *path, struct stat64 *status)
{
    return _look_fails() ? _fail(look_failure, -1) : __real_lstat64(path, status);
}

int __wrap_stat(const char *path, struct stat *status)
{
    return _look_fails() ? _fail(look_failure, -1) : __real_stat(path, status);
}

int __wrap_stat64(const char *path, struct stat64 *status)
{
    return _look_fails() ? _fail(look_failure, -1) : __real_stat64(path, status);
}

static bool _is_interrupted()
{
    return reads_to_interruption > 0 && --reads_to_interruption == 0;
}

size_t __wrap_fread(void *to, size_t size, size_t n, FILE *fp)
{
    if (_is_interrupted()) {
        return _fail_on<FILE, size_t>(fp, EINTR, 0);
    }
    // Behind the end, the medium is not asked any more.
    return feof(fp) == 0 && _fails(call_kind::read) ? _fail_on<FILE, size_t>(fp, EIO, 0)
                                                    : __real_fread(to, size, n, fp);
}

char *__wrap_fgets(char *to, int size, FILE *fp)
{
    return feof(fp) == 0 && _fails(call_kind::read) ? _fail_on<FILE, char *>(fp, EIO, nullptr)
                                                    : __real_fgets(to, size, fp);
}

ssize_t __wrap_read(int descriptor, void *to, size_t n)
{
    if (_is_interrupted()) {
        return _fail<ssize_t>(EINTR, -1);
    }
    return _fails(call_kind::read) ? _fail<ssize_t>(EIO, -1) : __real_read(descriptor, to, n);
}

dirent *__wrap_readdir(DIR *folder)
{
    return _fails(call_kind::read) ? _fail<dirent *>(EIO, nullptr) : __real_readdir(folder);
}

dirent *__wrap_readdir64(DIR *folder)
{
    return _fails(call_kind::read) ? _fail<dirent *>(EIO, nullptr) : __real_readdir64(folder);
}

// A write as far as the disk has room.
static size_t _write(const void *from, size_t size, size_t n, FILE *fp)
{
    const size_t wanted = size * n;
    if (disk_room < 0 || wanted <= static_cast<size_t>(disk_room - disk_used)) {
        disk_used += static_cast<long>(wanted);
        return _observed("fwrite", __real_fwrite(from, size, n, fp));
    }
    const auto room = static_cast<size_t>(disk_room - disk_used);
    disk_used = disk_room;
    const size_t taken = __real_fwrite(from, 1, room, fp) / size;
    (void)__real_fflush(fp);
    return _fail_on(fp, ENOSPC, taken);
}

size_t __wrap_fwrite(const void *from, size_t size, size_t n, FILE *fp)
{
    // Nothing to write cannot fail.
    if (size * n == 0 || !_fails(call_kind::write)) {
        return _write(from, size, n, fp);
    }
    size_t taken = 0;
    if (plan.kind == call_kind::torn_write) {
        taken = __real_fwrite(from, 1, size * n / 2, fp) / size;
        (void)__real_fflush(fp);
    }
    return _fail_on(fp, ENOSPC, taken);
}

int __wrap_putc(int c, FILE *fp)
{
    return _fails(call_kind::write) ? _fail_on(fp, ENOSPC, EOF) : __real_putc(c, fp);
}

int __wrap_printf(const char *format, ...)
{
    if (_fails(call_kind::write)) {
        return _fail_on(stdout, ENOSPC, -1);
    }
    va_list arguments;
    va_start(arguments, format);
    const int printed = vprintf(format, arguments);
    va_end(arguments);
    return printed;
}

int __wrap_fprintf(FILE *fp, const char *format, ...)
{
    if (_fails(call_kind::write)) {
        return _fail_on(fp, ENOSPC, -1);
    }
    va_list arguments;
    va_start(arguments, format);
    const int printed = vfprintf(fp, format, arguments);
    va_end(arguments);
    return printed;
}

int __wrap_fflush(FILE *fp)
{
    if (!_fails(call_kind::flush)) {
        return _observed("fflush", __real_fflush(fp));
    }
    __fpurge(fp);
    return _fail_on(fp, ENOSPC, EOF);
}

int __wrap_fclose(FILE *fp)
{
    if (!_fails(call_kind::close)) {
        return _observed("fclose", __real_fclose(fp));
    }
    __fpurge(fp);
    (void)__real_fclose(fp);
    return _fail(EIO, EOF);
}

int __wrap_closedir(DIR *folder)
{
    const bool fails = _fails(call_kind::close);
    const int closed = __real_closedir(folder);
    return fails ? _fail(EIO, -1) : closed;
}

int __wrap_unlink(const char *path)
{
    return _fails(call_kind::remove) ? _fail(EIO, -1) : _observed("unlink", __real_unlink(path));
}

int __wrap_remove(const char *path)
{
    return _fails(call_kind::remove) ? _fail(EIO, -1) : _observed("remove", __real_remove(path));
}

int __wrap_rename(const char *from, const char *to)
{
    return _fails(call_kind::rename) ? _fail(EIO, -1)
                                     : _observed("rename", __real_rename(from, to));
}

int __wrap_linkat(int from_folder, const char *from, int to_folder, const char *to, int flags)
{
    return _fails(call_kind::rename)
               ? _fail(EIO, -1)
               : _observed("link", __real_linkat(from_folder, from, to_folder, to, flags));
}

int __wrap_link(const char *from, const char *to)
{
    return _fails(call_kind::rename) ? _fail(EIO, -1) : _observed("link", __real_link(from, to));
}

int __wrap_ftruncate(int fd, off_t length)
{
    return _fails(call_kind::truncate) ? _fail(EIO, -1)
                                       : _observed("ftruncate", __real_ftruncate(fd, length));
}

int __wrap_ftruncate64(int fd, off64_t length)
{
    return _fails(call_kind::truncate) ? _fail(EIO, -1)
                                       : _observed("ftruncate", __real_ftruncate64(fd, length));
}

int __wrap_fsync(int fd)
{
    return _fails(call_kind::sync) ? _fail(EIO, -1) : _observed("fsync", __real_fsync(fd), fd);
}

int __wrap_fdatasync(int fd)
{
    return _fails(call_kind::sync) ? _fail(EIO, -1)
                                   : _observed("fdatasync", __real_fdatasync(fd), fd);
}
}
