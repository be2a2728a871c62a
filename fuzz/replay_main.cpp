// Runs the inputs that are given as files or folders, once each: PROGRAM FILE|FOLDER...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "harness.hpp"

static std::vector<std::filesystem::path> _inputs(int count, char **arguments)
{
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path given = std::filesystem::absolute(arguments[i]);
        if (!std::filesystem::is_directory(given)) {
            inputs.push_back(given);
            continue;
        }
        for (const auto &entry : std::filesystem::recursive_directory_iterator(given)) {
            if (entry.is_regular_file()) {
                inputs.push_back(entry.path());
            }
        }
    }
    return inputs;
}

int main(int argc, char **argv)
{
    const std::vector<std::filesystem::path> inputs = _inputs(argc, argv);
    if (inputs.empty()) {
        (void)fprintf(stderr, "%s: there are no inputs\n", target.name);
        return 2;
    }
    prepare_process();
    for (const auto &input : inputs) {
        // The last line tells which one ended the process.
        (void)fprintf(stderr, "%s\n", input.c_str());
        std::ifstream stream(input, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream),
                                      std::istreambuf_iterator<char>()};
        if (bytes.size() > target.max_size) {
            (void)fprintf(stderr, "larger than %zu bytes\n", target.max_size);
            return 1;
        }
        run_input(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    (void)printf("%s: %zu inputs\n", target.name, inputs.size());
    return 0;
}
