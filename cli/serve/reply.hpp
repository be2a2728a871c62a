// What a server answers to a request: a text that many connections share, or a stream of texts that
// goes on until either side ends it.
#ifndef VESK_CLI_SERVE_REPLY_HPP
#define VESK_CLI_SERVE_REPLY_HPP

#include <cstdint>
#include <memory>
#include <string>

namespace cli
{

// Made once and sent to many.
using shared_text = std::shared_ptr<const std::string>;

// How far a watcher has come in the stream of a box.
struct stream_place {
    uint64_t era = 0;     // the stream began anew so often
    uint64_t message = 0; // the next one
    uint64_t state = 0;   // the state that was told last
    shared_text names;    // the names that were told last
    bool is_over = false;
};

struct reply {
    int status = 200; // of HTTP
    std::string type = "text/plain; charset=utf-8";
    shared_text body;
    bool is_stream = false; // the body begins it
    stream_place place;
    // It is being made: the request is to be met again later.
    bool is_late = false;
};

// The head of the answer. Nothing is kept by browsers, shown inside of other pages or handed to
// them; each connection serves one request.
std::string reply_head(const reply &what);
// A page of a few words for a person, as the answer to a request that cannot be met. The status is
// one of those that reply_head() knows.
reply error_reply(int status, const std::string &words);

} // namespace cli

#endif
