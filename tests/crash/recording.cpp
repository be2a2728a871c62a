#include "crash/recording.hpp"

#include <algorithm>

#include "common/failing_calls.hpp"

// The names of the files in which two folders differ.
static std::vector<std::string> _changed_files(const folder_content &a, const folder_content &b)
{
    std::vector<std::string> names;
    for (const auto &[name, bytes] : a) {
        const auto other = b.find(name);
        if (other == b.end() || other->second != bytes) {
            names.push_back(name);
        }
    }
    for (const auto &[name, bytes] : b) {
        if (a.count(name) == 0) {
            names.push_back(name);
        }
    }
    return names;
}

// The file that grew at its end from one moment to the next, and how much; none with length 0.
struct growth {
    std::string name;
    std::size_t from = 0;
    std::size_t length = 0;
};

static growth _find_growth(const moment &before, const moment &after)
{
    const std::vector<std::string> names = _changed_files(before.files, after.files);
    if (names.size() != 1 || after.files.count(names[0]) == 0) {
        return {};
    }
    const auto old = before.files.find(names[0]);
    const std::string empty;
    const std::string &old_bytes = old == before.files.end() ? empty : *old->second;
    const std::string &new_bytes = *after.files.at(names[0]);
    if (new_bytes.size() <= old_bytes.size() ||
        new_bytes.compare(0, old_bytes.size(), old_bytes) != 0) {
        return {};
    }
    return {names[0], old_bytes.size(), new_bytes.size() - old_bytes.size()};
}

recording::recording(const std::function<void(std::size_t *)> &life)
{
    std::size_t progress = 0;
    moments_.push_back({read_folder(), "", 0});
    {
        const call_observer observing([&](const char *call) { look(call, progress); });
        life(&progress);
    }
    const std::size_t seen = moments_.size();
    look("the end", progress);
    if (moments_.size() > seen &&
        !_changed_files(moments_[seen - 1].files, moments_[seen].files).empty()) {
        complaints_ += "a change was not seen\n";
    }
}

void recording::look(const char *call, std::size_t progress)
{
    const moment &last = moments_.back();
    moment now = {read_folder(last.files), call, progress};
    const std::vector<std::string> changed = _changed_files(last.files, now.files);
    if (changed.empty() && last.progress == progress) {
        return;
    }
    const bool moved = now.call == "rename" && changed.size() <= 2;
    if (changed.size() > 1 && !moved) {
        complaints_ += now.call + " changed " + changed[0] + " and " + changed[1] + "\n";
    }
    moments_.push_back(std::move(now));
}

std::vector<cut_place> find_cuts(const recording &life, bool all)
{
    constexpr std::size_t short_write = 12;
    std::vector<cut_place> places;
    const std::vector<moment> &moments = life.moments();
    for (std::size_t i = 0; i < moments.size(); ++i) {
        places.push_back({i, 0});
        if (i + 1 == moments.size()) {
            break;
        }
        const std::size_t n = _find_growth(moments[i], moments[i + 1]).length;
        const std::size_t step = std::max<std::size_t>(1, n / 6);
        for (std::size_t bytes = 1; bytes < n; ++bytes) {
            if (all || n <= short_write || bytes <= 3 || bytes + 5 >= n || bytes % step == 0) {
                places.push_back({i, bytes});
            }
        }
    }
    return places;
}

folder_content cut_life(const recording &life, const cut_place &place)
{
    const moment &before = life.moments()[place.behind];
    folder_content files = before.files;
    if (place.bytes > 0) {
        const moment &after = life.moments()[place.behind + 1];
        const growth written = _find_growth(before, after);
        files[written.name] =
            shared_bytes(after.files.at(written.name)->substr(0, written.from + place.bytes));
    }
    return files;
}

std::string describe(const recording &life, const cut_place &place)
{
    const std::vector<moment> &moments = life.moments();
    std::string text =
        "cut behind step " + std::to_string(place.behind) + " (" + moments[place.behind].call + ")";
    if (place.bytes > 0) {
        const growth next = _find_growth(moments[place.behind], moments[place.behind + 1]);
        text += " and " + std::to_string(place.bytes) + " of " + std::to_string(next.length) +
                " bytes of " + next.name;
    }
    text += ", with";
    for (const auto &[name, bytes] : cut_life(life, place)) {
        text += " " + name + ":" + std::to_string(bytes->size());
    }
    return text;
}
