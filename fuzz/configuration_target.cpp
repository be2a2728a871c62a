// A configuration file, beside a naive reader of the same text.
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <vesk/config.h>
#include <vesk/error.h>

#include "harness.hpp"

static constexpr const char *file_name = "configuration";
static constexpr std::size_t longest_line = 4095;
static constexpr int codes[] = {-1};

using values_of_keys = std::map<std::string, std::vector<std::string>>;

// The naive reader. Returns false for a malformed line. The text has no zero bytes.
static bool _parse(std::string_view text, values_of_keys *found)
{
    while (!text.empty()) {
        std::string_view line = text.substr(0, longest_line);
        line = line.substr(0, line.find('\n'));
        const bool ends =
            line.size() < text.size() && text[line.size()] == '\n' && line.size() < longest_line;
        text.remove_prefix(line.size() + (ends ? 1 : 0));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.starts_with('#') || (line.empty() && ends)) {
            continue;
        }
        const std::size_t key_size = std::min(line.find_first_of(" \t"), line.size());
        const std::string key(line.substr(0, key_size));
        line.remove_prefix(key_size);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.empty()) {
            return false;
        }
        (*found)[key].emplace_back(line);
    }
    return true;
}

static void _expect_values(const config *c, const std::string &key,
                           const std::vector<std::string> &expected)
{
    uint32_t n = 0;
    char **values = config_get_values_for_key(c, key.c_str(), &n);
    expect_equal(static_cast<long long>(expected.size()), n, "a key has all of its values");
    for (uint32_t i = 0; i < n; ++i) {
        expect(expected[i] == values[i], "a value is what the line says");
    }
    free(values);
    expect(config_get_single_value_for_key(c, key.c_str()) == expected[0], "the first value");
}

// Splits every value into its words, in place.
static void _split_values(const config *c)
{
    for (const config_key *key = c->keys; key != nullptr; key = key->next) {
        for (const config_value *value = key->head_value; value != nullptr; value = value->next) {
            uint32_t nwords = 0;
            char **words = config_split_multiword_value(value->value, &nwords);
            for (uint32_t i = 0; i < nwords; ++i) {
                expect(words[i][0] != '\0', "no word is empty");
            }
            free(words);
        }
    }
}

static void _run(std::string_view input)
{
    put_file(file_name, input);
    const bool comparable = input.find('\0') == std::string_view::npos;
    values_of_keys expected;
    const bool well_formed = comparable && _parse(input, &expected);
    guarded({}, [&] {
        qe_set_last_error(0);
        config *c = config_create_from_file(file_name);
        if (comparable) {
            expect_equal(well_formed ? 1 : 0, c != nullptr ? 1 : 0, "a malformed line is refused");
        }
        if (c == nullptr) {
            expect_documented(qe_get_last_error(), codes, "config_create_from_file");
            return;
        }
        for (const auto &[key, values] : expected) {
            _expect_values(c, key, values);
        }
        _split_values(c);
        config_destroy(&c);
    });
}

const fuzz_target target = {"configuration", input_form::bytes, 16384, _run};
