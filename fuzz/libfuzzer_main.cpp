// The entry points that libFuzzer calls, and how inputs with compressed parts are changed: their
// streams are opened, changed inside and compressed again, so that what lies behind zlib is
// reached. The bytes of the streams themselves are damaged, too, but less often.
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "common/zlib_streams.hpp"
#include "file_set.hpp"
#include "harness.hpp"

// NOLINTBEGIN(readability-identifier-naming): the names are those of libFuzzer
extern "C" {
int LLVMFuzzerInitialize(int *argc, char ***argv);
int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);
std::size_t LLVMFuzzerCustomMutator(uint8_t *data, std::size_t size, std::size_t max_size,
                                    unsigned int seed);
std::size_t LLVMFuzzerMutate(uint8_t *data, std::size_t size, std::size_t max_size);
}

// Relative names on the command line mean files of the folder in which the command was given.
int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static std::vector<std::string> words(*argv, *argv + *argc);
    static const std::string prefix = "-artifact_prefix=";
    bool has_prefix = false;
    for (std::string &word : words) {
        if (word.starts_with(prefix)) {
            has_prefix = true;
            word = prefix + (std::filesystem::current_path() / word.substr(prefix.size())).string();
        } else if (&word != &words.front() && !word.starts_with('-')) {
            word = std::filesystem::absolute(word);
        }
    }
    if (!has_prefix) {
        words.push_back(prefix + std::filesystem::current_path().string() + '/');
    }
    static std::vector<char *> pointers;
    for (std::string &word : words) {
        pointers.push_back(word.data());
    }
    *argc = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    *argv = pointers.data();
    prepare_process();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    run_input(data, size);
    return 0;
}

// ---- Changing inputs --------------------------------------------------------------------------

namespace
{
// Small and good enough; the results depend on the seed only.
class dice
{
public:
    explicit dice(unsigned int seed) : state_(seed) {}
    std::size_t below(std::size_t n)
    {
        state_ = state_ * 6364136223846793005U + 1442695040888963407U;
        return static_cast<std::size_t>(state_ >> 33) % n;
    }

private:
    uint64_t state_;
};

// How much longer a content may become in one step.
constexpr std::size_t room_to_grow = 512;

std::string mutate_bytes(std::string bytes)
{
    const std::size_t size = bytes.size();
    bytes.resize(size + room_to_grow);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t *>(bytes.data()), size, bytes.size()));
    return bytes;
}

// The contents of the complete streams, each changed by what is done to `contents`; a torn end
// stays as it is.
std::string mutate_contents(std::vector<std::string> contents, dice &random)
{
    const std::size_t i = random.below(contents.size());
    const std::size_t j = random.below(contents.size());
    switch (random.below(8)) {
    case 0: // one stream for all
    {
        std::string all;
        for (const std::string &content : contents) {
            all += content;
        }
        contents = {mutate_bytes(all)};
        break;
    }
    case 1:
        std::swap(contents[i], contents[j]);
        break;
    case 2:
        contents.insert(contents.begin() + static_cast<std::ptrdiff_t>(i),
                        std::string(contents[j]));
        break;
    case 3:
        contents.erase(contents.begin() + static_cast<std::ptrdiff_t>(i));
        break;
    case 4: // a record in two streams
    {
        const std::size_t cut = random.below(contents[i].size() + 1);
        std::string rest = contents[i].substr(cut);
        contents[i].resize(cut);
        contents.insert(contents.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(rest));
        break;
    }
    default:
        contents[i] = mutate_bytes(contents[i]);
    }
    std::string file;
    for (const std::string &content : contents) {
        file += deflate_stream(content);
    }
    return file;
}

// The streams of a buffer are few and small, but a stream can be made of very much of the same.
constexpr std::size_t largest_content = std::size_t{1} << 20;

std::string mutate_streams(const std::string &file, dice &random)
{
    std::vector<std::string> contents;
    std::string rest;
    std::size_t total = 0;
    for (const zlib_stream &stream : split_zlib_streams(file)) {
        if (stream.complete) {
            contents.push_back(stream.content);
            total += stream.content.size();
        } else {
            rest = file.substr(stream.offset);
        }
    }
    if (contents.empty() || total > largest_content || random.below(8) == 0) {
        return mutate_bytes(file);
    }
    return mutate_contents(contents, random) + rest;
}

std::string mutate_file_set(std::string_view input, dice &random)
{
    std::vector<file_set_member> members = split_file_set(input);
    if (members.empty()) {
        return mutate_bytes(std::string(input));
    }
    const std::size_t i = random.below(members.size());
    switch (random.below(16)) {
    case 0:
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(i));
        break;
    case 1:
        members[i].which = static_cast<uint8_t>(random.below(file_set_names.size()));
        break;
    case 2:
        members.push_back(
            {static_cast<uint8_t>(random.below(file_set_names.size())), members[i].content});
        break;
    case 3: // cut, as by a process that was killed
        members[i].content.resize(random.below(members[i].content.size() + 1));
        break;
    default:
        members[i].content = members[i].is_buffer() ? mutate_streams(members[i].content, random)
                                                    : mutate_bytes(members[i].content);
    }
    return join_file_set(members);
}
} // namespace

std::size_t LLVMFuzzerCustomMutator(uint8_t *data, std::size_t size, std::size_t max_size,
                                    unsigned int seed)
{
    if (target.form == input_form::bytes) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    dice random(seed);
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::string changed = target.form == input_form::zlib_streams
                                    ? mutate_streams(input, random)
                                    : mutate_file_set(input, random);
    if (changed.empty() || changed.size() > max_size) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    memcpy(data, changed.data(), changed.size());
    return changed.size();
}
// NOLINTEND(readability-identifier-naming)
