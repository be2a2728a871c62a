// The page of a box that is followed: made when somebody asks for it and the box has changed, at
// most once per change, and shared by all who ask. Making it costs a bounded share of one
// processor. Where that takes long and others watch, it is made beside the server, which goes on.
#ifndef VESK_CLI_SERVE_LIVE_PAGE_HPP
#define VESK_CLI_SERVE_LIVE_PAGE_HPP

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "page/page_content.hpp"
#include "serve/box_stream.hpp"
#include "serve/reply.hpp"
#include "serve/side_work.hpp"

namespace cli
{

class live_page
{
public:
    // The box or file @p name, and the patterns that choose from its sensors. @p is_to_end tells
    // that nobody waits for the page any more: one of a large box takes long. A page that takes
    // more than @p patience seconds is made beside the server.
    live_page(std::string name, std::vector<std::string> patterns, box_stream &stream,
              std::function<bool()> is_to_end, double patience = 0.2);

    // The page, or a word on why there is none now. Late while it is made beside the server.
    reply get();
    // Can be read when the page that is made beside the server is ready; below 0 if none is.
    int awaited() const { return work_ ? work_->awaited() : -1; }
    // Takes that page.
    void take_made();

private:
    struct made_page {
        std::string problem; // why there is none
        std::string health;
        bool is_whole = false;
        std::string page;

        std::string packed() const;
        static made_page unpacked(const std::string &bytes);
    };

    bool may_be_made(double now) const;
    bool has_changed();
    bool make_beside();
    void make();
    // What is found besides the page goes to @p look.
    made_page made(const std::function<void(const page_content &)> &look) const;
    void take(made_page made);
    std::size_t pages_being_sent();

    std::string name_;
    std::vector<std::string> patterns_;
    box_stream &stream_;
    std::function<bool()> is_to_end_;
    shared_text page_;
    std::string made_of_; // the files when it was made
    double patience_;
    double begin_ = 0; // of the latest making
    bool is_slow_ = false;
    std::unique_ptr<side_work> work_;
    double next_making_ = 0;
    std::string problem_; // why the latest page could not be made
    std::vector<std::weak_ptr<const std::string>> made_;
};

} // namespace cli

#endif
