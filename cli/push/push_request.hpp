// What a push is asked for. The verb checks it and hands it to the program that does it as words of
// a command line, so that the verb itself needs none of the libraries of a push.
#ifndef VESK_CLI_PUSH_PUSH_REQUEST_HPP
#define VESK_CLI_PUSH_PUSH_REQUEST_HPP

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace cli
{

struct push_request {
    std::vector<std::string> boxes; // base names
    std::string folder;             // --all: every box below it
    std::string url;
    std::vector<std::string> labels;
    std::string raw = "last:2h";
    bool create = false;
    std::string cluster;
    bool again = false;
    std::string state;
    std::string retry_for = "1m";
    std::string credentials;
    std::string ca_file;
    bool json = false;
    bool quiet = false;

    // Refuses what is wrong with a usage failure.
    void check() const;
};

// Which raw samples are pushed.
struct raw_choice {
    enum class kind { none, all, last };
    kind which = kind::none;
    int64_t seconds = 0; // of the last ones
};
// "none", "all" or "last:2h". Throws a usage failure for anything else, which names @p option.
raw_choice parse_raw_choice(const std::string &text, const std::string &option = "--raw");

// What labels say of a box; empty where nothing is said.
struct box_labels {
    std::string box;
    std::string host;
    std::string site;
    std::string firmware;
};
// Each is "KEY=VALUE", with a key of the four. Throws a usage failure for anything else, in which
// @p option stands.
box_labels parse_box_labels(std::span<const std::string> told,
                            const std::string &option = "--label");

// Throws a failure where the file cannot be read; an empty path is none.
void check_ca_file(const std::string &path);

// The words of @p request, and back.
std::vector<std::string> words_of(const push_request &request);
push_request request_in(std::span<const std::string> words);

} // namespace cli

#endif
