// Decides what an engine has of a box, by the cursor or by asking, and sends the rest in an order
// in which nothing is missed: a cursor names only what was sent before it was written.
#include "push/push_job.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "push/chain_place.hpp"
#include "push/percent.hpp"

namespace cli
{
namespace
{

// Rows are sent, and the cursor follows, at least this often.
constexpr uint64_t rows_between_cursors = 250'000;

// What of the facts is kept beside the cursor: when it changes, the engine is told anew.
std::string facts_text(const box_labels &labels)
{
    return fmt::format("{} {} {}", percent_encoded(labels.host), percent_encoded(labels.site),
                       percent_encoded(labels.firmware));
}

class one_push
{
public:
    one_push(const box_push &what, const cursor_file &cursors, engine_door &door)
        : what_(what), cursors_(cursors), door_(door), box_(what.base), labels_(what.labels)
    {
        labels_.host = labels_.host.empty() ? box_.host() : labels_.host;
    }

    push_result run()
    {
        if (box_.code() == exit_unreadable) {
            throw failure(exit_unreadable, "nothing of the box can be read");
        }
        door_.begin(labels_, box_.sensors());
        const std::optional<push_cursor> before = what_.again ? std::nullopt : cursors_.read();
        is_first_ = !before;
        cursor_ = fitting(before);
        push_intervals();
        push_raw();
        if (!before || *before != cursor_ || cursor_.facts != facts_text(labels_)) {
            tell();
        }
        note_what_stays();
        return {box_.code(), door_.counts()};
    }

private:
    // The cursor where it fits the box, else what the engine says, else the beginning.
    push_cursor fitting(const std::optional<push_cursor> &before)
    {
        push_cursor cursor = before.value_or(push_cursor());
        const bool fits = before && is_of_this_box({before->position, before->time});
        if (fits && !door_.forgets()) {
            return cursor;
        }
        const std::optional<timed_position> known =
            what_.again ? std::nullopt : door_.known_position();
        const bool agrees = known && before && known->place == before->position;
        if (fits && (agrees || door_.cannot_tell())) {
            return cursor;
        }
        // The history is asked for, too.
        cursor.history_file = 0;
        cursor.newest_interval.reset();
        cursor.position = {};
        if (known && is_of_this_box(*known)) {
            cursor.position = known->place;
            cursor.time = known->time;
        }
        return cursor;
    }

    // Whether the box holds this place, or has held it and gone on. Another box under the same name
    // has other times there, or has not come so far.
    bool is_of_this_box(const timed_position &known)
    {
        if (known.place == raw_position()) {
            return true;
        }
        const std::optional<uint32_t> oldest = box_.oldest_raw_file();
        if (oldest && known.place.file < *oldest) {
            return !box_.end() || known.time <= *box_.end();
        }
        return known.place.records == 0 || box_.time_before(known.place) == known.time;
    }

    void push_intervals()
    {
        if (box_.history_file() == cursor_.history_file) {
            return;
        }
        std::vector<chain_link> chain;
        int64_t from = std::numeric_limits<int64_t>::max();
        box_.for_each_interval([&](const pushed_interval &interval) {
            chain.push_back({interval.start, interval.end});
            from = std::min({from, interval.start, interval.end});
        });
        if (!chain.empty()) {
            send_intervals(find_place(chain, box_.history_file(), newest_known(from)));
            cursor_.newest_interval =
                known_interval{chain.back().start, chain.back().end, box_.history_file(),
                               static_cast<uint32_t>(chain.size() - 1)};
        }
        cursor_.history_file = box_.history_file();
        cursors_.write(cursor_);
    }

    // The newest interval that the engine has: the one that it tells, but for an engine that cannot
    // be asked, or does not see yet what waits in a queue of its own, the one that was sent last.
    std::optional<known_interval> newest_known(int64_t from)
    {
        const std::optional<known_interval> told = door_.newest_interval(box_.history_file(), from);
        const std::optional<known_interval> &sent = cursor_.newest_interval;
        if (!sent || (told && !sent->is_behind(*told))) {
            return told;
        }
        return door_.cannot_tell() || door_.delivers_later() ? sent : told;
    }

    void send_intervals(const chain_place &place)
    {
        const summing how = box_.how_summed();
        box_.for_each_interval([&](const pushed_interval &interval) {
            if (interval.ordinal >= place.first) {
                door_.add_interval(interval, box_.sensors(), how,
                                   interval.ordinal == place.first ? place.known : 0);
            }
        });
        door_.flush();
    }

    void push_raw()
    {
        const int64_t from = first_wanted_time();
        const raw_position begin = cursor_.position;
        box_.for_each_raw([&](const raw_record &record) {
            if (!begin.is_before(record.behind)) {
                return;
            }
            if (record.sensors == nullptr) {
                door_.add_event(record);
            } else if (record.time >= from) {
                door_.add_sample(record);
            }
            cursor_.position = record.behind;
            cursor_.time = record.time;
            if (door_.waiting() >= rows_between_cursors) {
                door_.flush();
                cursors_.write(cursor_);
                what_.show_progress(door_.counts());
            }
        });
        door_.flush();
    }

    int64_t first_wanted_time() const
    {
        switch (what_.raw.which) {
        case raw_choice::kind::all:
            return std::numeric_limits<int64_t>::min();
        case raw_choice::kind::last:
            return box_.end().value_or(0) - what_.raw.seconds;
        case raw_choice::kind::none:
            break;
        }
        return std::numeric_limits<int64_t>::max();
    }

    void tell()
    {
        box_facts facts;
        facts.labels = labels_;
        facts.first = box_.begin().value_or(0);
        facts.last = box_.end().value_or(0);
        facts.position = cursor_.position;
        facts.position_time = cursor_.time;
        door_.tell(facts);
        cursor_.facts = facts_text(labels_);
        cursors_.write(cursor_);
    }

    void note_what_stays() const
    {
        if (is_first_ && door_.cannot_tell()) {
            note(
                fmt::format("{}: the target cannot be asked what it has, so intervals may be there "
                            "twice when the cursor is lost: {}",
                            what_.base, cursors_.path()));
        }
        if (box_.waiting_events() > 0) {
            note(fmt::format("{}: {} for a sample, and goes along once it is in the box",
                             what_.base, counted(box_.waiting_events(), "event") + " waits"));
        }
        if (door_.counts().left_out > 0) {
            note(fmt::format("{}: {} left out: the engine has no place for them", what_.base,
                             counted(door_.counts().left_out, "row")));
        }
    }

    const box_push &what_;
    const cursor_file &cursors_;
    engine_door &door_;
    pushed_box box_;
    box_labels labels_;
    push_cursor cursor_;
    bool is_first_ = true; // without a cursor
};

} // namespace

push_result push_box(const box_push &what, const cursor_file &cursors, engine_door &door)
{
    one_push push(what, cursors, door);
    return push.run();
}

} // namespace cli
