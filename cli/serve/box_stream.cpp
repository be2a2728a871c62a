// Keeps the newest messages in a queue of bounded size. A watcher only holds a number into it.
#include "serve/box_stream.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <utility>

#include <vesk/sensor_array.h>

#include "analysis/ending_text.hpp"
#include "page/happenings.hpp"
#include "page/html.hpp"
#include "page/page_content.hpp"
#include "page/page_sections.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/machine_text.hpp"
#include "text/sensor_choice.hpp"

namespace cli
{
namespace
{

// The numbers in "7.12.345"; nothing where there is anything else.
std::optional<std::array<uint64_t, 3>> numbers_in(std::string_view text)
{
    std::array<uint64_t, 3> numbers = {};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const char *const end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, numbers[i]);
        const bool is_last = i + 1 == numbers.size();
        if (read.ec != std::errc() ||
            (is_last ? read.ptr != end : read.ptr == end || *read.ptr != '.')) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<std::size_t>(read.ptr - text.data()) + (is_last ? 0 : 1));
    }
    return numbers;
}

// Names that fit no pattern are no failure here: sensors come and go while a box is followed.
std::vector<std::size_t> chosen_of(const std::vector<std::string> &names,
                                   const std::vector<std::string> &patterns)
{
    std::vector<std::size_t> chosen;
    try {
        chosen = choose_sensors(names, patterns);
    } catch (const failure &) {
        return {};
    }
    chosen.resize(std::min(chosen.size(), most_sensors_on_page));
    return chosen;
}

shared_text share(std::string text)
{
    return std::make_shared<const std::string>(std::move(text));
}

} // namespace

box_stream::box_stream(std::string name, std::vector<std::string> patterns, std::string token)
    : name_(std::move(name)), patterns_(std::move(patterns)), token_(std::move(token))
{
    tell_state();
}

std::string box_stream::id_of(const raw_position &place) const
{
    return fmt::format("{}-{}.{}.{}", token_, era_, place.file, place.records);
}

stream_place box_stream::place_behind(const std::string &id)
{
    stream_place place;
    const std::string mine = token_ + "-";
    const auto numbers =
        id.starts_with(mine) ? numbers_in(std::string_view(id).substr(mine.size())) : std::nullopt;
    if (!numbers || (*numbers)[0] != era_ || (*numbers)[1] > UINT32_MAX) {
        return place; // of era 0: there is none
    }
    const raw_position from = {static_cast<uint32_t>((*numbers)[1]), (*numbers)[2]};
    if (!box_) {
        follow_from(from);
    }
    look();
    if (era_ != (*numbers)[0] || from.is_before(begin_) || box_->position().is_before(from)) {
        return place;
    }
    const auto seen = std::find_if(messages_.rbegin(), messages_.rend(),
                                   [&](const message &one) { return !from.is_before(one.behind); });
    place.era = era_;
    place.message = first_ + static_cast<uint64_t>(messages_.rend() - seen);
    return place;
}

shared_text box_stream::next(stream_place &place) const
{
    static const shared_text reload = share("event: reload\ndata:\n\n");
    if (place.is_over) {
        return nullptr;
    }
    if (place.era != era_ || place.message < first_) {
        place.is_over = true;
        return reload;
    }
    if (std::exchange(place.state, state_number_) != state_number_) {
        return state_;
    }
    if (place.message - first_ >= messages_.size()) {
        return nullptr;
    }
    const message &one = messages_[static_cast<std::size_t>(place.message - first_)];
    if (place.names != one.names) {
        place.names = one.names;
        if (one.names) {
            return one.names;
        }
    }
    ++place.message;
    return one.text;
}

void box_stream::follow_from(const raw_position &place)
{
    rest();
    box_.emplace(name_, place);
    begin_ = place;
    problem_.clear();
}

void box_stream::rest()
{
    box_.reset();
    first_ += messages_.size();
    messages_.clear();
    bytes_ = 0;
    boxes_ = 0;
    names_.reset();
    sensors_.reset();
}

void box_stream::look()
{
    if (!box_) {
        return;
    }
    const std::string before = problem_;
    bool has_lost = false;
    try {
        box_->look({[&](const vesk_scan_item &item) { take_sample(item); },
                    [&] { has_lost = true; },
                    [&](const vesk_scan_item &item) { take_event(item); }});
        problem_.clear();
    } catch (const failure &reason) {
        problem_ = printable(reason.what());
    }
    const bool is_other = std::exchange(boxes_, box_->new_boxes()) != box_->new_boxes();
    // What was amiss may have changed the files in any way.
    const bool is_back = problem_.empty() && !before.empty();
    if (has_lost || is_other || is_back) {
        begin_era();
    }
    tell_state();
}

// All pages that were made before are to be loaded again.
void box_stream::begin_era()
{
    ++era_;
    begin_ = box_->position();
    first_ += messages_.size();
    messages_.clear();
    bytes_ = 0;
}

void box_stream::take_names(const vesk_cb_record_sensor_names &names)
{
    if (sensors_ && sensor_array_is_equal(sensors_.get(), names.sensors) != 0) {
        return;
    }
    sensors_.reset(sensor_array_copy(names.sensors));
    const std::vector<std::string> all = sensor_names(names);
    columns_ = chosen_of(all, patterns_);
    std::string list;
    for (const std::size_t column : columns_) {
        list += fmt::format("{}{}", list.empty() ? "" : ",", json_string(all[column]));
    }
    names_ = share("event: names\ndata: [" + list + "]\n\n");
}

void box_stream::take_sample(const vesk_scan_item &item)
{
    take_names(*item.names);
    std::vector<float> values;
    values.reserve(columns_.size());
    for (const std::size_t column : columns_) {
        values.push_back(item.values->values[column]);
    }
    const int64_t time = item.values->timestamp.tv.tv_sec;
    ending_.take_sample(time);
    add(fmt::format("event: sample\ndata: {} {}\n\n", time, base64_of(values)));
}

void box_stream::take_event(const vesk_scan_item &item)
{
    const std::string text = item.event->text != nullptr ? item.event->text : "";
    const int64_t time = item.event->timestamp.tv.tv_sec;
    ending_.take_event(time, text);
    add(fmt::format("event: event\ndata: {{\"time\":{},\"type\":{},\"text\":{}}}\n\n", time,
                    item.event->type, json_string(words_for_page(text))));
}

void box_stream::add(std::string_view text)
{
    const raw_position behind = box_->position();
    messages_.push_back({share(fmt::format("id: {}\n{}", id_of(behind), text)), names_, behind});
    bytes_ += messages_.back().text->size();
    while (messages_.size() > most_messages || bytes_ > most_bytes) {
        begin_ = messages_.front().behind;
        bytes_ -= messages_.front().text->size();
        messages_.pop_front();
        ++first_;
    }
}

void box_stream::set_health(const std::string &words, bool is_whole)
{
    health_ = words;
    is_whole_ = is_whole;
    tell_state();
}

void box_stream::tell_state()
{
    const bool is_recorded = box_ && box_->has_writer();
    const box_ending ending = ending_.result(is_recorded);
    const std::string text = fmt::format(
        "event: state\ndata: {{\"verdict\":{},\"kind\":\"{}\",\"recorded\":{},\"problem\":{},"
        "\"health\":{},\"whole\":{}}}\n\n",
        json_string(sentence_of(ending, zone::utc)), verdict_kind(ending), is_recorded,
        json_string(problem_), json_string(health_), is_whole_);
    if (!state_ || *state_ != text) {
        state_ = share(text);
        ++state_number_;
    }
}

} // namespace cli
