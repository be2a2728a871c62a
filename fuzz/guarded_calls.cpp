// The calls that the link redirects to the harness. They count blocks, files and inflated bytes
// while the library runs, and give back what it holds when an abort leaves it in the middle.
#include "guarded_calls.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>
#include <zlib.h>

#include <vesk/sensors.h>

namespace
{
struct block {
    std::size_t size;
    bool is_text; // from strdup()
};

struct watch {
    bool active = false;
    guard_rules rules;
    std::unordered_map<void *, block> blocks;
    std::size_t memory = 0; // in all of them
    uint64_t inflated = 0;
    std::unordered_set<FILE *> files;
    int lowest_free_descriptor = 0;
};

// Never destroyed: the library may free something while the process ends.
watch &the_watch = *new watch;

// Suspends the watch while the harness itself is at work.
class unwatched
{
public:
    unwatched() : was_active_(the_watch.active) { the_watch.active = false; }
    unwatched(const unwatched &) = delete;
    unwatched &operator=(const unwatched &) = delete;
    ~unwatched() { the_watch.active = was_active_; }

private:
    bool was_active_;
};

int lowest_free_descriptor()
{
    const int descriptor = fcntl(STDERR_FILENO, F_DUPFD, 3);
    expect(descriptor >= 0, "a descriptor is free");
    (void)close(descriptor);
    return descriptor;
}

// Whether the library may have a block of this size.
bool may_allocate(std::size_t size)
{
    if (!the_watch.active || size <= the_watch.rules.largest_block) {
        return true;
    }
    if (the_watch.rules.refuse_larger_blocks) {
        errno = ENOMEM;
        return false;
    }
    const unwatched pause;
    expect_equal(static_cast<long long>(the_watch.rules.largest_block),
                 static_cast<long long>(size), "the size of a block stays within its bound");
    return false;
}

void expect_at_most(uint64_t bound, uint64_t found, const char *what)
{
    if (found > bound) {
        expect_equal(static_cast<long long>(bound), static_cast<long long>(found), what);
    }
}

void *note(void *memory, std::size_t size, bool is_text = false)
{
    if (the_watch.active && memory != nullptr) {
        const unwatched pause;
        the_watch.blocks[memory] = {size, is_text};
        the_watch.memory += size;
        expect_at_most(the_watch.rules.most_memory, the_watch.memory,
                       "the memory stays within its bound");
    }
    return memory;
}

void forget(void *memory)
{
    if (memory != nullptr && !the_watch.blocks.empty()) {
        const unwatched pause;
        const auto found = the_watch.blocks.find(memory);
        if (found != the_watch.blocks.end()) {
            the_watch.memory -= found->second.size;
            the_watch.blocks.erase(found);
        }
    }
}

FILE *note_file(FILE *file)
{
    if (the_watch.active && file != nullptr) {
        const unwatched pause;
        the_watch.files.insert(file);
    }
    return file;
}

// A name below the working directory, whatever that is.
bool is_inside(const char *path)
{
    if (!the_watch.active) {
        return true;
    }
    const std::string_view name(path);
    bool inside = !name.starts_with('/');
    for (std::size_t begin = 0; begin <= name.size() && inside;) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        inside = name.substr(begin, end - begin) != "..";
        begin = end + 1;
    }
    if (!inside) {
        errno = EACCES;
    }
    return inside;
}

// The registry of sensors is the one place where the library keeps pointers between calls. The
// names in it are copies made by strdup(), so each such text is asked for as a sensor and returned
// until the sensor is gone.
void empty_sensor_registry()
{
    std::vector<std::string> texts;
    {
        const unwatched pause;
        for (const auto &[memory, properties] : the_watch.blocks) {
            if (properties.is_text) {
                texts.emplace_back(static_cast<const char *>(memory));
            }
        }
    }
    for (const std::string &text : texts) {
        sensor *found = sensors_get_sensor(text.c_str());
        while (the_watch.blocks.contains(found)) {
            sensors_destroy_sensor(found);
        }
    }
}
} // namespace

void begin_watching(const guard_rules &rules)
{
    the_watch.rules = rules;
    the_watch.memory = 0;
    the_watch.inflated = 0;
    the_watch.lowest_free_descriptor = lowest_free_descriptor();
    the_watch.active = true;
}

void stop_watching()
{
    the_watch.active = false;
}

static void _expect_no_descriptor_more()
{
    expect_equal(the_watch.lowest_free_descriptor, lowest_free_descriptor(),
                 "no descriptor stays open");
}

void end_watching()
{
    the_watch.active = false;
    expect_equal(0, static_cast<long long>(the_watch.blocks.size()), "no memory is kept");
    expect_equal(0, static_cast<long long>(the_watch.files.size()), "no file stays open");
    _expect_no_descriptor_more();
}

void end_watching_after_abort()
{
    the_watch.active = true;
    empty_sensor_registry();
    the_watch.active = false;
    // These calls are watched, too, so the lists are taken first.
    for (FILE *file : std::exchange(the_watch.files, {})) {
        (void)fclose(file);
    }
    for (const auto &[memory, properties] : std::exchange(the_watch.blocks, {})) {
        free(memory);
    }
    _expect_no_descriptor_more();
}

// ---- What the link puts in the place of the calls ---------------------------------------------

// NOLINTBEGIN(bugprone-reserved-identifier): the names are those of the linker
extern "C" {

void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *memory, std::size_t size);
char *__real_strdup(const char *text);
void __real_free(void *memory);

void *__wrap_malloc(std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__wrap_realloc(void *memory, std::size_t size);
char *__wrap_strdup(const char *text);
void __wrap_free(void *memory);

void *__wrap_malloc(std::size_t size)
{
    return may_allocate(size) ? note(__real_malloc(size), size) : nullptr;
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    std::size_t total = 0;
    if (__builtin_mul_overflow(count, size, &total)) {
        total = SIZE_MAX;
    }
    return may_allocate(total) ? note(__real_calloc(count, size), total) : nullptr;
}

void *__wrap_realloc(void *memory, std::size_t size)
{
    if (!may_allocate(size)) {
        return nullptr;
    }
    void *moved = __real_realloc(memory, size);
    if (moved != nullptr || size == 0) {
        forget(memory);
    }
    return note(moved, size);
}

char *__wrap_strdup(const char *text)
{
    const std::size_t size = strlen(text) + 1;
    return may_allocate(size) ? static_cast<char *>(note(__real_strdup(text), size, true))
                              : nullptr;
}

void __wrap_free(void *memory)
{
    forget(memory);
    __real_free(memory);
}

int __real_inflate(z_streamp stream, int flush);
int __wrap_inflate(z_streamp stream, int flush);
int __wrap_inflate(z_streamp stream, int flush)
{
    const uInt room = stream->avail_out;
    const int result = __real_inflate(stream, flush);
    if (the_watch.active) {
        const unwatched pause;
        the_watch.inflated += room - stream->avail_out;
        expect_at_most(the_watch.rules.most_inflated, the_watch.inflated,
                       "the inflated bytes stay within their bound");
    }
    return result;
}

#define WRAP_FILE_OPENER(name)                                                                     \
    FILE *__real_##name(const char *path, const char *mode);                                       \
    FILE *__wrap_##name(const char *path, const char *mode);                                       \
    FILE *__wrap_##name(const char *path, const char *mode)                                        \
    {                                                                                              \
        return is_inside(path) ? note_file(__real_##name(path, mode)) : nullptr;                   \
    }
WRAP_FILE_OPENER(fopen)
WRAP_FILE_OPENER(fopen64)

FILE *__real_fdopen(int descriptor, const char *mode);
FILE *__wrap_fdopen(int descriptor, const char *mode);
FILE *__wrap_fdopen(int descriptor, const char *mode)
{
    return note_file(__real_fdopen(descriptor, mode));
}

int __real_fclose(FILE *file);
int __wrap_fclose(FILE *file);
int __wrap_fclose(FILE *file)
{
    {
        const unwatched pause;
        the_watch.files.erase(file);
    }
    return __real_fclose(file);
}

#define WRAP_OPEN(name)                                                                            \
    int __real_##name(const char *path, int flags, ...);                                           \
    int __wrap_##name(const char *path, int flags, ...);                                           \
    int __wrap_##name(const char *path, int flags, ...)                                            \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;                      \
        va_end(arguments);                                                                         \
        return is_inside(path) ? __real_##name(path, flags, mode) : -1;                            \
    }
WRAP_OPEN(open)
WRAP_OPEN(open64)

#define WRAP_OPENAT(name)                                                                          \
    int __real_##name(int folder, const char *path, int flags, ...);                               \
    int __wrap_##name(int folder, const char *path, int flags, ...);                               \
    int __wrap_##name(int folder, const char *path, int flags, ...)                                \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;                      \
        va_end(arguments);                                                                         \
        return is_inside(path) ? __real_##name(folder, path, flags, mode) : -1;                    \
    }
WRAP_OPENAT(openat)
WRAP_OPENAT(openat64)

#define WRAP_ONE_PATH(name, result, failure)                                                       \
    result __real_##name(const char *path);                                                        \
    result __wrap_##name(const char *path);                                                        \
    result __wrap_##name(const char *path)                                                         \
    {                                                                                              \
        return is_inside(path) ? __real_##name(path) : failure;                                    \
    }
WRAP_ONE_PATH(unlink, int, -1)
WRAP_ONE_PATH(remove, int, -1)
WRAP_ONE_PATH(rmdir, int, -1)
WRAP_ONE_PATH(opendir, DIR *, nullptr)

#define WRAP_TWO_PATHS(name)                                                                       \
    int __real_##name(const char *from, const char *to);                                           \
    int __wrap_##name(const char *from, const char *to);                                           \
    int __wrap_##name(const char *from, const char *to)                                            \
    {                                                                                              \
        return is_inside(from) && is_inside(to) ? __real_##name(from, to) : -1;                    \
    }
WRAP_TWO_PATHS(rename)
WRAP_TWO_PATHS(link)
WRAP_TWO_PATHS(symlink)

#define WRAP_TRUNCATE(name)                                                                        \
    int __real_##name(const char *path, off_t size);                                               \
    int __wrap_##name(const char *path, off_t size);                                               \
    int __wrap_##name(const char *path, off_t size)                                                \
    {                                                                                              \
        return is_inside(path) ? __real_##name(path, size) : -1;                                   \
    }
WRAP_TRUNCATE(truncate)
WRAP_TRUNCATE(truncate64)

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
