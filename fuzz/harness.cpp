// Runs a target on one input: in a folder made for the process, with documented aborts caught, and
// with a message that names what does not hold.
#include "harness.hpp"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <unistd.h>

#include "guarded_calls.hpp"

namespace
{
const guard_rules *current_rules = nullptr;
jmp_buf way_out;
} // namespace

[[noreturn]] static void _report_finding()
{
    stop_watching();
    abort();
}

// NOLINTBEGIN(bugprone-reserved-identifier): the names are those of the linker
extern "C" {
[[noreturn]] void __wrap___assert_fail(const char *assertion, const char *file, unsigned int line,
                                       const char *function);

[[noreturn]] void __wrap___assert_fail(const char *assertion, const char *file, unsigned int line,
                                       const char *function)
{
    if (current_rules != nullptr) {
        const auto &documented = current_rules->documented_aborts;
        if (std::any_of(documented.begin(), documented.end(),
                        [=](const char *text) { return std::string_view(text) == assertion; })) {
            longjmp(way_out, 1);
        }
    }
    (void)fprintf(stderr, "%s:%u: %s: Assertion `%s' failed, which is not documented here.\n", file,
                  line, function, assertion);
    _report_finding();
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace fuzz_detail
{
bool run_guarded(const guard_rules &rules, void (*call)(void *), void *context)
{
    current_rules = &rules;
    begin_watching(rules);
    if (setjmp(way_out) == 0) {
        call(context);
        current_rules = nullptr;
        end_watching();
        return true;
    }
    current_rules = nullptr;
    end_watching_after_abort();
    return false;
}
} // namespace fuzz_detail

void expect(bool condition, const char *what)
{
    if (!condition) {
        (void)fprintf(stderr, "%s: does not hold: %s\n", target.name, what);
        _report_finding();
    }
}

void expect_equal(long long expected, long long found, const char *what)
{
    if (expected != found) {
        (void)fprintf(stderr, "%s: does not hold: %s (expected %lld, found %lld)\n", target.name,
                      what, expected, found);
        _report_finding();
    }
}

void expect_documented(long long result, std::span<const int> codes, const char *call)
{
    if (result < 0 && std::find(codes.begin(), codes.end(), result) == codes.end()) {
        (void)fprintf(stderr, "%s: %s gave %lld, which is not documented\n", target.name, call,
                      result);
        _report_finding();
    }
}

// ---- The scratch folder -----------------------------------------------------------------------

namespace
{
// Lives as long as the process, and goes with it unless that ends in a finding.
class scratch_folder
{
public:
    scratch_folder()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "vesk-fuzz-XXXXXX";
        const char *made = mkdtemp(pattern.data());
        expect(made != nullptr && chdir(made) == 0, "a scratch folder can be made");
        path_ = made;
    }
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

private:
    std::string path_;
};
} // namespace

void prepare_process()
{
    (void)setenv("TZ", "UTC", 1);
    static const scratch_folder folder;
}

void put_file(const char *name, std::string_view content)
{
    std::ofstream file(name, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    expect(file.good(), "a file can be put into the scratch folder");
}

void clear_scratch_folder()
{
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        std::filesystem::remove_all(entry.path());
    }
}

void run_input(const uint8_t *data, std::size_t size)
{
    if (size <= target.max_size) {
        target.run({reinterpret_cast<const char *>(data), size});
    }
}
