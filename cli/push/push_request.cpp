// Checks what a push is asked for, and turns it into words "--name=value" and back. Each option
// stands in one table, from which both directions are made.
#include "push/push_request.hpp"

#include <algorithm>
#include <fcntl.h>
#include <fmt/format.h>
#include <string_view>
#include <sys/stat.h>

#include "box/event_channel.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "push/target.hpp"
#include "text/duration.hpp"

namespace cli
{
namespace
{

constexpr std::size_t longest_label = 1024;

struct text_option {
    std::string_view name;
    std::string push_request::*value;
};
constexpr text_option text_options[] = {
    {"--all=", &push_request::folder},      {"--to=", &push_request::url},
    {"--raw=", &push_request::raw},         {"--cluster=", &push_request::cluster},
    {"--state=", &push_request::state},     {"--retry-for=", &push_request::retry_for},
    {"--ca-file=", &push_request::ca_file}, {"--credentials=", &push_request::credentials},
};

struct flag_option {
    std::string_view name;
    bool push_request::*value;
};
constexpr flag_option flag_options[] = {
    {"--create", &push_request::create},
    {"--again", &push_request::again},
    {"--json", &push_request::json},
    {"--quiet", &push_request::quiet},
};

constexpr std::string_view label_option = "--label=";

bool take_option(push_request &request, const std::string &word)
{
    for (const text_option &each : text_options) {
        if (word.starts_with(each.name)) {
            request.*each.value = word.substr(each.name.size());
            return true;
        }
    }
    for (const flag_option &each : flag_options) {
        if (word == each.name) {
            request.*each.value = true;
            return true;
        }
    }
    if (word.starts_with(label_option)) {
        request.labels.push_back(word.substr(label_option.size()));
        return true;
    }
    return false;
}

[[noreturn]] void refuse_label(const std::string &option, const std::string &told, const char *why)
{
    throw failure(exit_usage, fmt::format("{} {}: {}", option, printable(told.substr(0, 60)), why));
}

bool is_name(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    });
}

} // namespace

raw_choice parse_raw_choice(const std::string &text, const std::string &option)
{
    constexpr std::string_view last = "last:";
    if (text == "none") {
        return {raw_choice::kind::none};
    }
    if (text == "all") {
        return {raw_choice::kind::all};
    }
    if (text.starts_with(last)) {
        return {raw_choice::kind::last, parse_duration(text.substr(last.size()), option)};
    }
    throw failure(exit_usage, fmt::format("{} {}: there is none, all and last:LENGTH, such as "
                                          "last:2h",
                                          option, printable(text.substr(0, 20))));
}

box_labels parse_box_labels(std::span<const std::string> told, const std::string &option)
{
    box_labels labels;
    const std::pair<std::string_view, std::string *> keys[] = {{"box=", &labels.box},
                                                               {"host=", &labels.host},
                                                               {"site=", &labels.site},
                                                               {"firmware=", &labels.firmware}};
    for (const std::string &each : told) {
        const auto key = std::find_if(std::begin(keys), std::end(keys), [&](const auto &known) {
            return each.starts_with(known.first);
        });
        if (key == std::end(keys)) {
            refuse_label(option, each, "there is box=, host=, site= and firmware=");
        }
        if (each.size() > longest_label) {
            refuse_label(option, each, "longer than 1024 bytes");
        }
        *key->second = each.substr(key->first.size());
        if (key->second == &labels.box && labels.box.empty()) {
            refuse_label(option, each, "a box needs a name");
        }
    }
    return labels;
}

void check_ca_file(const std::string &path)
{
    if (path.empty()) {
        return;
    }
    // A FIFO would be waited for.
    const file_descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.is_open() || fstat(file.get(), &status) != 0) {
        throw failure(exit_failed, with_errno(path));
    }
    if (!S_ISREG(status.st_mode)) {
        throw failure(exit_failed, path + ": is no file");
    }
}

void push_request::check() const
{
    if (url.empty()) {
        throw failure(exit_usage, "--to URL is needed: where the boxes are pushed to");
    }
    (void)parse_target(url);
    (void)parse_raw_choice(raw);
    if (retry_for != "0") {
        (void)parse_duration(retry_for, "--retry-for");
    }
    const box_labels told = parse_box_labels(labels);
    check_ca_file(ca_file);
    if (boxes.empty() && folder.empty() && !create) {
        throw failure(exit_usage, "BASE is needed, or --all DIR");
    }
    if (!boxes.empty() && !folder.empty()) {
        throw failure(exit_usage, "--all takes all boxes of a folder, and no BASE besides");
    }
    if (!told.box.empty() && boxes.size() != 1) {
        throw failure(exit_usage, "--label box= names one box, so it goes with one BASE");
    }
    if (!is_name(cluster)) {
        throw failure(exit_usage, "--cluster: letters, digits and '_'");
    }
    if (!cluster.empty() && !create) {
        throw failure(exit_usage, "--cluster goes with --create");
    }
}

std::vector<std::string> words_of(const push_request &request)
{
    const push_request usual;
    std::vector<std::string> words;
    for (const text_option &each : text_options) {
        if (request.*each.value != usual.*each.value) {
            words.push_back(std::string(each.name) + request.*each.value);
        }
    }
    for (const flag_option &each : flag_options) {
        if (request.*each.value) {
            words.emplace_back(each.name);
        }
    }
    for (const std::string &each : request.labels) {
        words.push_back(std::string(label_option) + each);
    }
    words.emplace_back("--");
    words.insert(words.end(), request.boxes.begin(), request.boxes.end());
    return words;
}

push_request request_in(std::span<const std::string> words)
{
    push_request request;
    const auto end = std::find(words.begin(), words.end(), "--");
    for (auto word = words.begin(); word != end; ++word) {
        if (!take_option(request, *word)) {
            throw failure(exit_usage, "this program is started by 'vesk push'; see 'vesk push "
                                      "--help'");
        }
    }
    if (end != words.end()) {
        request.boxes.assign(end + 1, words.end());
    }
    return request;
}

} // namespace cli
