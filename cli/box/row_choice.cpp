// Goes through the rows of all sources from the shortest to the longest, and takes each one that no
// other source has taken the time of. Rows of the same source may overlap, as after a clock was set
// back; they hold different samples, so all of them are taken.
#include "box/row_choice.hpp"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <tuple>

namespace cli
{
namespace
{

// More pieces than this, as only a made-up box has, are handed out source by source.
constexpr std::size_t most_segments = 64;
// Rows that are longer count as equally long.
constexpr int64_t longest_row = int64_t{1} << 40;

// A set of times.
class coverage
{
public:
    void add(const row_span &span)
    {
        row_span whole = span;
        for (auto found = first_touching(span); found != spans_.end() && found->first <= span.end;
             found = spans_.erase(found)) {
            whole.start = std::min(whole.start, found->first);
            whole.end = std::max(whole.end, found->second);
        }
        spans_[whole.start] = whole.end;
    }
    // The first part that shares a time with @p span.
    std::optional<row_span> touching(const row_span &span)
    {
        const auto found = first_touching(span);
        if (found == spans_.end() || found->first > span.end) {
            return std::nullopt;
        }
        return row_span{found->first, found->second};
    }

private:
    std::map<int64_t, int64_t>::iterator first_touching(const row_span &span)
    {
        auto next = spans_.upper_bound(span.start);
        if (next != spans_.begin() && std::prev(next)->second >= span.start) {
            --next;
        }
        return next;
    }

    std::map<int64_t, int64_t> spans_;
};

struct candidate {
    int64_t length;
    std::size_t source;
    std::size_t row;
};

class chooser
{
public:
    chooser(const std::vector<row_span> &raw, const std::vector<row_source> &sources)
        : sources_(sources), taken_(sources.size())
    {
        for (const row_span &span : raw) {
            raw_.add(span);
        }
        if (!raw.empty() && is_anything_before(raw.front().start)) {
            raw_is_all_from_ = raw.front().start;
        }
        for (const row_source &source : sources) {
            result_.chosen.emplace_back(source.rows.size(), false);
        }
    }

    row_choice choose()
    {
        for (const candidate &one : candidates()) {
            const row_span &span = sources_[one.source].rows[one.row];
            if (is_free(one.source, span)) {
                taken_[one.source].add(span);
                result_.chosen[one.source][one.row] = true;
            }
        }
        put_in_order();
        return std::move(result_);
    }

private:
    // Whether something was recorded that the raw samples, which begin at @p first, do not hold.
    bool is_anything_before(int64_t first) const
    {
        return std::any_of(sources_.begin(), sources_.end(), [&](const row_source &source) {
            return std::any_of(source.rows.begin(), source.rows.end(), [&](const row_span &span) {
                return source.is_of_box || span.end < first;
            });
        });
    }

    std::vector<candidate> candidates() const
    {
        std::vector<candidate> all;
        for (std::size_t i = 0; i < sources_.size(); ++i) {
            for (std::size_t row = 0; row < sources_[i].rows.size(); ++row) {
                const row_span &span = sources_[i].rows[row];
                // Halves are kept whole by counting twice.
                const int64_t length =
                    std::min(span.end - span.start, longest_row) * (sources_[i].is_history ? 3 : 2);
                all.push_back({length, i, row});
            }
        }
        std::sort(all.begin(), all.end(), [](const candidate &one, const candidate &other) {
            return std::tie(one.length, one.source, one.row) <
                   std::tie(other.length, other.source, other.row);
        });
        return all;
    }

    bool is_free(std::size_t source, const row_span &span)
    {
        for (std::size_t other = 0; other < taken_.size(); ++other) {
            if (other != source && taken_[other].touching(span)) {
                return false;
            }
        }
        const std::optional<row_span> run = raw_.touching(span);
        if (sources_[source].is_of_box || !run) {
            return true;
        }
        if (span.start >= run->start || is_all_in_raw(span)) {
            return false;
        }
        result_.hidden.push_back({run->start, span.end});
        return true;
    }

    // A row ends with its last sample.
    bool is_all_in_raw(const row_span &span)
    {
        return span.start >= raw_is_all_from_ && raw_.touching({span.end, span.end});
    }

    // Takes the row that begins first of those that come next in the sources.
    void put_in_order()
    {
        std::vector<std::size_t> next(sources_.size(), 0);
        std::vector<row_segment> &segments = result_.segments;
        while (const std::optional<std::size_t> source = earliest(next)) {
            const std::size_t row = next[*source]++;
            if (segments.empty() || segments.back().source != *source) {
                if (!segments.empty()) {
                    note_left_out(segments.back(), *source, row);
                }
                segments.push_back({*source, row, row});
            }
            segments.back().last = row;
        }
        if (segments.size() > most_segments) {
            result_.left_out.clear();
            segments.clear();
            for (std::size_t i = sources_.size(); i-- > 0;) {
                if (!sources_[i].rows.empty()) {
                    segments.push_back({i, 0, sources_[i].rows.size() - 1});
                }
            }
        }
    }

    // The row behind the last one of @p before, and the one in front of the first one that follows,
    // may lie between both without being chosen.
    void note_left_out(const row_segment &before, std::size_t source, std::size_t row)
    {
        const row_span hole = {sources_[before.source].rows[before.last].end + 1,
                               sources_[source].rows[row].start - 1};
        note_left_out(hole, before.source, before.last + 1);
        if (row > 0) {
            note_left_out(hole, source, row - 1);
        }
    }
    void note_left_out(const row_span &hole, std::size_t source, std::size_t row)
    {
        const std::vector<row_span> &rows = sources_[source].rows;
        if (row >= rows.size() || result_.chosen[source][row]) {
            return;
        }
        const row_span part = {std::max(hole.start, rows[row].start),
                               std::min(hole.end, rows[row].end)};
        if (part.start <= part.end) {
            result_.left_out.push_back(part);
        }
    }

    std::optional<std::size_t> earliest(std::vector<std::size_t> &next) const
    {
        std::optional<std::size_t> found;
        for (std::size_t i = 0; i < sources_.size(); ++i) {
            while (next[i] < sources_[i].rows.size() && !result_.chosen[i][next[i]]) {
                ++next[i];
            }
            if (next[i] < sources_[i].rows.size() &&
                (!found ||
                 sources_[i].rows[next[i]].start < sources_[*found].rows[next[*found]].start)) {
                found = i;
            }
        }
        return found;
    }

    const std::vector<row_source> &sources_;
    coverage raw_;
    // The raw samples hold all that was recorded from here on, whatever gaps are between them.
    int64_t raw_is_all_from_ = std::numeric_limits<int64_t>::min();
    std::vector<coverage> taken_;
    row_choice result_;
};

} // namespace

row_choice choose_rows(const std::vector<row_span> &raw, const std::vector<row_source> &sources)
{
    return chooser(raw, sources).choose();
}

} // namespace cli
