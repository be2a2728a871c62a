// What every fuzz target stands on. A target is a function of bytes; it calls the library inside
// guarded(), which holds it to three promises:
//
//   - It may end the process only with a precondition that its headers document for bad content;
//     the target lists their texts. Such an abort counts as an answer: it is caught, what the
//     library held at that moment is given back, as it would be with the process, and the next
//     input runs. Any other abort is a finding.
//   - A call that returns has kept nothing: no memory, no open file, no descriptor.
//   - It asks for no block of memory that is out of proportion, holds no more memory at once and
//     inflates no more bytes than the rules say (see guard_rules), and opens, creates, renames and
//     removes no file outside of the working directory, which is a folder made for this process.
//
// An abort leaves the guarded code by longjmp: no object with a destructor may be made in it. What
// the target needs is made outside and captured by reference.
#ifndef VESK_FUZZ_HARNESS_HPP
#define VESK_FUZZ_HARNESS_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// How libFuzzer changes the inputs of a target. Checksummed and nested bytes are hopeless to change
// blindly, so forms with compressed parts are opened first.
enum class input_form {
    bytes,        // as they are
    zlib_streams, // a row of zlib streams, as buffer files are
    file_set      // several files, see file_set.hpp; some of them are rows of zlib streams
};

struct fuzz_target {
    const char *name;
    input_form form;
    std::size_t max_size; // longer inputs are not tried
    void (*run)(std::string_view input);
};

// Each program has one.
extern const fuzz_target target;

struct guard_rules {
    // Texts of the preconditions with which documented content ends the process.
    std::span<const char *const> documented_aborts = {};
    // The largest block that the library may ask for. Counts are limited to 10000 in every stored
    // form, and zlib takes 128 KB at once: a megabyte is enough for anything but matrices.
    std::size_t largest_block = std::size_t{1} << 20;
    // What the library may hold at once, and how many bytes it may inflate.
    std::size_t most_memory = SIZE_MAX;
    uint64_t most_inflated = UINT64_MAX;
    // A larger block is refused, as by a machine without memory, instead of being a finding.
    bool refuse_larger_blocks = false;
};

namespace fuzz_detail
{
bool run_guarded(const guard_rules &rules, void (*call)(void *), void *context);
}

// Runs `body`. False when a documented abort ended it.
template <typename Body>
bool guarded(const guard_rules &rules, Body body)
{
    return fuzz_detail::run_guarded(
        rules, [](void *context) { (*static_cast<Body *>(context))(); }, &body);
}

// Something that must hold, whatever the input: prints and ends the process otherwise.
void expect(bool condition, const char *what);
void expect_equal(long long expected, long long found, const char *what);

// A result must be 0, positive or one of the codes that the header lists.
void expect_documented(long long result, std::span<const int> codes, const char *call);

// Prepares the process: the scratch folder as working directory, UTC as time zone.
void prepare_process();

// Writes a file into the scratch folder.
void put_file(const char *name, std::string_view content);

// Removes all files of the scratch folder.
void clear_scratch_folder();

// Runs one input of the target of this program.
void run_input(const uint8_t *data, std::size_t size);

#endif
