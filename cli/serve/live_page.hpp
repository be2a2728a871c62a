// The page of a box that is followed: made when somebody asks for it and the box has changed, at
// most once per change, and shared by all who ask. Making it costs a bounded share of one
// processor.
#ifndef VESK_CLI_SERVE_LIVE_PAGE_HPP
#define VESK_CLI_SERVE_LIVE_PAGE_HPP

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "page/page_content.hpp"
#include "serve/box_stream.hpp"
#include "serve/reply.hpp"

namespace cli
{

class live_page
{
public:
    // The box or file @p name, and the patterns that choose from its sensors. @p is_to_end tells
    // that nobody waits for the page any more: one of a large box takes long.
    live_page(std::string name, std::vector<std::string> patterns, box_stream &stream,
              std::function<bool()> is_to_end);

    // The page, or a word on why there is none now.
    reply get();

private:
    bool may_be_made(double now) const;
    bool has_changed();
    void make();
    std::size_t pages_being_sent();

    std::string name_;
    std::vector<std::string> patterns_;
    box_stream &stream_;
    std::function<bool()> is_to_end_;
    shared_text page_;
    std::string made_of_; // the files when it was made
    double next_making_ = 0;
    std::string problem_; // why the latest page could not be made
    std::vector<std::weak_ptr<const std::string>> made_;
};

} // namespace cli

#endif
