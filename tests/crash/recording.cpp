// Records a life of a folder by looking at it after each call that changes it, and makes the
// folders that a kill or a loss of power would leave.
#include "crash/recording.hpp"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "common/failing_calls.hpp"

namespace fs = std::filesystem;

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

// All names, each with the file that has it.
static folder_content _names_of(const folder_content &files)
{
    folder_content names;
    for (const auto &file : files) {
        names[file.first] = nullptr;
    }
    return names;
}

static bool _is_folder(int descriptor)
{
    struct stat status = {};
    return descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

// A name on the medium goes on to mean the file that had it.
static void _keep_name(moment *now, const moment &last, const std::string &name)
{
    const auto known = now->names.find(name);
    if (known == now->names.end() || known->second != nullptr) {
        return;
    }
    const auto synced = last.synced.find(name);
    known->second = synced == last.synced.end() ? shared_bytes("") : synced->second;
}

recording::recording(const std::function<void(life_progress *)> &life)
{
    life_progress progress;
    const folder_content before = read_folder();
    moments_.push_back({before, before, _names_of(before), "", progress});
    {
        const call_observer observing(
            [&](const char *call, int synced) { look(call, synced, progress); });
        life(&progress);
    }
    const folder_content seen = moments_.back().files;
    look("the end", -1, progress);
    if (!_changed_files(seen, moments_.back().files).empty()) {
        complaints_ += "a change was not seen\n";
    }
}

// The name in the working folder of the file behind a descriptor; nothing when it has none there.
// One that got its name late is not known by it to the system.
static std::string _name_of(int descriptor)
{
    struct stat wanted = {};
    if (fstat(descriptor, &wanted) != 0) {
        return "";
    }
    for (const auto &entry : fs::directory_iterator(".")) {
        struct stat found = {};
        if (lstat(entry.path().c_str(), &found) == 0 && found.st_ino == wanted.st_ino &&
            found.st_dev == wanted.st_dev) {
            return entry.path().filename();
        }
    }
    return "";
}

void recording::look(const char *call, int synced, const life_progress &progress)
{
    const moment &last = moments_.back();
    moment now = {read_folder(last.files), last.synced, last.names, call, progress};
    const std::vector<std::string> changed = _changed_files(last.files, now.files);
    const bool moved = now.call == "rename" && changed.size() <= 2;
    if (changed.size() > 1 && !moved) {
        complaints_ += now.call + " changed " + changed[0] + " and " + changed[1] + "\n";
    }
    for (const std::string &name : changed) {
        if (now.files.count(name) == 0 || moved) {
            _keep_name(&now, last, name);
        }
        if (now.files.count(name) == 0) {
            // Its content goes with its name.
            const auto content = last.files.at(name);
            const auto was_synced = now.synced.extract(name);
            for (const std::string &other : changed) {
                if (moved && other != name && now.files.at(other) != nullptr &&
                    *now.files.at(other) == *content) {
                    now.synced.erase(other);
                    if (!was_synced.empty()) {
                        now.synced[other] = was_synced.mapped();
                    }
                }
            }
        }
    }
    const std::string synced_name = synced >= 0 ? _name_of(synced) : "";
    if (now.files.count(synced_name) != 0) {
        now.synced[synced_name] = now.files.at(synced_name);
    }
    if (_is_folder(synced)) {
        now.names = _names_of(now.files);
    }
    const bool idle = changed.empty() && synced < 0 &&
                      last.progress.acknowledged == progress.acknowledged &&
                      last.progress.synced == progress.synced;
    if (!idle) {
        moments_.push_back(std::move(now));
    }
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

static std::string _lose_power(const std::string &synced, const std::string &now, power_loss how)
{
    // A file that was cut loses none of what is left of it.
    const bool grew = now.compare(0, synced.size(), synced) == 0;
    const bool shrank = synced.compare(0, now.size(), now) == 0;
    const std::size_t kept = grew ? synced.size() : shrank ? now.size() : 0;
    switch (how) {
    case power_loss::zeros:
        return now.substr(0, kept) + std::string(now.size() - kept, '\0');
    case power_loss::half:
        return now.substr(0, kept + (now.size() - kept) / 2);
    case power_loss::before:
        return synced;
    default:
        return now.substr(0, kept);
    }
}

// The folder as it was when it was synced.
static folder_content _lose_names(const moment &last, power_loss how)
{
    folder_content files;
    for (const auto &[name, had_it] : last.names) {
        const auto synced = last.synced.find(name);
        const std::string before = synced == last.synced.end() ? "" : *synced->second;
        files[name] = had_it != nullptr
                          ? had_it
                          : shared_bytes(_lose_power(before, *last.files.at(name), how));
    }
    return files;
}

folder_content lose_power(const recording &life, std::size_t moment, power_loss how)
{
    if (how == power_loss::names || how == power_loss::names_and_zeros) {
        return _lose_names(life.moments()[moment],
                           how == power_loss::names ? power_loss::before : power_loss::zeros);
    }
    const struct moment &last = life.moments()[moment];
    folder_content files = last.files;
    std::size_t mixed = moment + (how == power_loss::mixed_2 ? 7 : 3);
    for (auto &[name, bytes] : files) {
        const auto synced = last.synced.find(name);
        const std::string before = synced == last.synced.end() ? "" : *synced->second;
        if (*bytes == before) {
            continue;
        }
        power_loss met = how;
        if (how == power_loss::mixed_1 || how == power_loss::mixed_2) {
            mixed = mixed * 1103515245 + 12345;
            met = power_losses[(mixed >> 16) % 5];
        }
        if (met != power_loss::mixed_1) {
            bytes = shared_bytes(_lose_power(before, *bytes, met));
        }
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
