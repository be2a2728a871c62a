// Sends a request until it is taken, refused for good, or nobody wants to wait any longer.
#include "push/requests.hpp"

#include <fmt/format.h>

#include "process/clock.hpp"
#include "push/reply_class.hpp"

namespace cli
{

requests::requests(const push_target &target, http_client &client, const stop_request &stop,
                   retries pace)
    : target_(target), client_(client), stop_(stop), pace_(pace)
{
}

std::string requests::send(const std::string &path, std::string_view body,
                           const std::vector<std::string> &headers)
{
    for (;;) {
        std::string reply;
        const std::string trouble = try_once(path, body, headers, reply);
        if (trouble.empty()) {
            pace_.succeeded();
            ++count_;
            bytes_ += body.size();
            return reply;
        }
        wait(trouble);
    }
}

std::string requests::try_once(const std::string &path, std::string_view body,
                               const std::vector<std::string> &headers, std::string &reply)
{
    http_reply answer = client_.post(path, body, headers);
    if (stop_.requested()) {
        throw push_given_up("interrupted by " + stop_.signal_name());
    }
    if (answer.status == 0) {
        if (answer.is_final) {
            throw push_given_up(target_.name() + ": " + answer.trouble);
        }
        return answer.trouble;
    }
    switch (classify_reply(target_.engine, answer.status, answer.text)) {
    case reply_class::taken:
        reply = std::move(answer.text);
        return {};
    case reply_class::passing:
        return reply_words(answer.status, answer.text);
    case reply_class::permanent:
        break;
    }
    throw push_refused(target_.name() + " refuses: " + reply_words(answer.status, answer.text));
}

void requests::wait(const std::string &trouble)
{
    const std::optional<double> pause = pace_.failed(monotonic_seconds());
    if (!pause) {
        throw push_given_up(target_.name() + ": " + trouble);
    }
    status_.show(fmt::format("{}; trying again in {:.0f} s", trouble, *pause));
    const bool ends = stop_.wait(*pause);
    status_.clear();
    if (ends) {
        throw push_given_up("interrupted by " + stop_.signal_name());
    }
}

} // namespace cli
