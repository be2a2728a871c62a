// The file of waiting events. It is read anew each time: it is seldom there, and small.
#include "box/waiting_events.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <zlib.h>

#include "box/box_writer.hpp"
#include "box/event_channel.hpp"
#include "box/event_record.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::string_view magic = "vesk-event ";
constexpr std::string_view mark_waits = "wait";
constexpr std::string_view mark_done = "done";
constexpr std::size_t mark_at = magic.size();
constexpr std::size_t checksum_at = mark_at + mark_waits.size() + 1;
constexpr std::size_t checked_at = checksum_at + 9;
constexpr std::size_t longest_head = 80;
constexpr std::size_t most_alike = 9999;

std::string file_of(const std::string &base)
{
    return base + ".events";
}

std::string checksum_of(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const Bytef *>(text.data());
    return fmt::format("{:08x}", crc32(0, bytes, static_cast<uInt>(text.size())));
}

std::string record_text(const event &what)
{
    const std::string checked =
        fmt::format("{} {} {}\n{}\n", what.type, what.time, what.text.size(), what.text);
    return fmt::format("{}{} {} {}", magic, mark_waits, checksum_of(checked), checked);
}

// The next number of a line, and what ends it.
template <typename Number>
bool take_number(std::string_view &text, Number &number, char end)
{
    const char *last = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || rest == last || *rest != end) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()) + 1);
    return true;
}

// One that no box can hold would keep back all that are behind it.
bool is_recordable(const event &what)
{
    try {
        make_event_record(what);
        return true;
    } catch (const unrecordable_event &) {
        return false;
    }
}

// The record that begins with @p text, or nothing.
std::optional<waiting_record> parse(std::string_view text)
{
    const std::size_t line_end = text.substr(0, longest_head).find('\n');
    if (line_end == std::string_view::npos || line_end < checked_at ||
        text[checksum_at - 1] != ' ' || text[checked_at - 1] != ' ') {
        return std::nullopt;
    }
    waiting_record found = {0, 0, std::string(text.substr(mark_at, mark_waits.size())), {}};
    std::string_view rest = text.substr(checked_at);
    std::size_t length = 0;
    if (!take_number(rest, found.what.type, ' ') || !take_number(rest, found.what.time, ' ') ||
        !take_number(rest, length, '\n') || length > longest_event || rest.size() < length + 1) {
        return std::nullopt;
    }
    found.what.text = rest.substr(0, length);
    found.size = line_end + 1 + length + 1;
    const std::string_view checked = text.substr(checked_at, found.size - checked_at);
    if (text.substr(checksum_at, 8) != checksum_of(checked) || !is_recordable(found.what)) {
        return std::nullopt;
    }
    return found;
}

std::vector<waiting_record> parse_all(std::string_view content)
{
    std::vector<waiting_record> records;
    std::size_t at = content.find(magic);
    while (at != std::string_view::npos) {
        std::optional<waiting_record> found = parse(content.substr(at));
        std::size_t next = at + 1;
        if (found) {
            found->offset = at;
            next = at + found->size;
            records.push_back(std::move(*found));
        }
        at = content.find(magic, next);
    }
    return records;
}

// Only what this command made is written to or deleted, whatever else has the name. The first
// record may be torn or damaged, and a loss of power can leave zeros.
bool is_ours(std::string_view content)
{
    return magic.starts_with(content.substr(0, magic.size())) ||
           content.find_first_not_of('\0') == std::string_view::npos || !parse_all(content).empty();
}

[[noreturn]] void refuse_file(const std::string &path, const std::string &why)
{
    throw failure(exit_failed, path + ": " + why);
}

// Never through a link, and never waiting for a pipe.
file_descriptor open_file(const std::string &path, int flags)
{
    constexpr mode_t for_everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    file_descriptor file(
        open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, for_everybody));
    struct stat status = {};
    const bool foreign =
        file.is_open() ? fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)
                       : errno == ELOOP || errno == ENXIO || errno == EISDIR; // link, pipe, folder
    if (foreign) {
        refuse_file(path, "is no file of waiting events");
    }
    if (!file.is_open() && errno != ENOENT) {
        refuse_file(path, with_errno("cannot be opened"));
    }
    return file;
}

std::string read_all(const file_descriptor &file, const std::string &path)
{
    // A file that is longer than it may be was not made here; it is not read to its end.
    std::string content(most_waiting_bytes + 1, '\0');
    std::size_t size = 0;
    while (size < content.size()) {
        const ssize_t count = read(file.get(), content.data() + size, content.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            refuse_file(path, with_errno("cannot be read"));
        }
        if (count == 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    content.resize(size);
    if (!is_ours(content)) {
        refuse_file(path, "is no file of waiting events");
    }
    return content;
}

// Nothing when there is no file.
std::optional<std::vector<waiting_record>> load(const std::string &base)
{
    const std::string path = file_of(base);
    const file_descriptor file = open_file(path, O_RDONLY);
    if (!file.is_open()) {
        return std::nullopt;
    }
    std::vector<waiting_record> records = parse_all(read_all(file, path));
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [](const waiting_record &each) { return each.mark == mark_done; }),
                  records.end());
    return records;
}

using identity = std::tuple<uint32_t, int64_t, std::string>;

identity identity_of(const event &what)
{
    return {what.type, what.time, what.text};
}

// The events among the raw samples, oldest first.
std::vector<identity> events_in(const box &found)
{
    std::vector<identity> events;
    for (const stored_file *file : found.current_buffers()) {
        scan_file(*file, [&](const vesk_scan_item &item) {
            if (item.kind == VESK_SCAN_EVENT && item.event != nullptr &&
                item.event->text != nullptr) {
                events.emplace_back(item.event->type, item.event->timestamp.tv.tv_sec,
                                    item.event->text);
            }
        });
    }
    return events;
}

// How many events like this one @p events ends with.
std::size_t alike_at_end(const std::vector<identity> &events, const event &what)
{
    const identity wanted = identity_of(what);
    const auto other = std::find_if(events.rbegin(), events.rend(),
                                    [&](const identity &each) { return each != wanted; });
    return std::min<std::size_t>(static_cast<std::size_t>(other - events.rbegin()), most_alike);
}

// A process that ended since has put it into the box.
bool is_in_box(const waiting_record &waiting, const std::vector<identity> &events)
{
    std::size_t before = 0;
    const char *end = waiting.mark.data() + waiting.mark.size();
    const auto [rest, error] = std::from_chars(waiting.mark.data(), end, before);
    return error == std::errc() && rest == end && alike_at_end(events, waiting.what) > before;
}

void sync_folder_of(const std::string &path)
{
    const std::string folder = std::filesystem::path(path).parent_path();
    const file_descriptor opened(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    (void)!fsync(opened.get());
}

bool write_whole(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}

// Behind what waits already, on the medium when this returns.
void append(const std::string &base, const event &what, std::size_t waiting)
{
    const std::string path = file_of(base);
    const file_descriptor file = open_file(path, O_WRONLY | O_APPEND | O_CREAT);
    struct stat before = {};
    if (!file.is_open() || fstat(file.get(), &before) != 0) {
        refuse_file(path, with_errno("cannot be opened"));
    }
    const std::string text = record_text(what);
    const auto size = static_cast<std::size_t>(before.st_size);
    if (waiting >= most_waiting_events || size + text.size() > most_waiting_bytes) {
        throw failure(exit_failed,
                      fmt::format("{}: too many events wait for a sample ({})", base, waiting));
    }
    if (!write_whole(file.get(), text) || fdatasync(file.get()) != 0) {
        const int error = errno;
        // Half a record would be passed over; what is whole would come into the box though it is
        // refused here.
        (void)!ftruncate(file.get(), before.st_size);
        throw storage_failure::because(path, error);
    }
    if (size == 0) {
        sync_folder_of(path);
    }
}

class event_marks
{
public:
    explicit event_marks(const std::string &base)
        : path_(file_of(base)), file_(open_file(path_, O_WRONLY))
    {
    }
    event_marks(const event_marks &) = delete;
    event_marks &operator=(const event_marks &) = delete;
    // A box that goes on must not forget them: what it holds now will be summed up one day.
    ~event_marks() { (void)!fdatasync(file_.get()); }

    void set(const waiting_record &each, std::string_view mark) const
    {
        const auto at = static_cast<off_t>(each.offset + mark_at);
        if (pwrite(file_.get(), mark.data(), mark.size(), at) !=
            static_cast<ssize_t>(mark.size())) {
            refuse_file(path_, with_errno("cannot be written"));
        }
    }

private:
    std::string path_;
    file_descriptor file_;
};

} // namespace

std::vector<event> waiting_events_of(const box &found)
{
    std::vector<event> events;
    const auto records = found.is_file ? std::nullopt : load(found.name);
    if (!records || records->empty()) {
        return events;
    }
    const std::vector<identity> recorded = events_in(found);
    for (const waiting_record &each : *records) {
        if (!is_in_box(each, recorded)) {
            events.push_back(each.what);
        }
    }
    return events;
}

waiting_events::waiting_events(box_writer &box, const std::string &base) : box_(box), base_(base)
{
    take_over();
}

event_result waiting_events::write(const event &what)
{
    make_event_record(what);
    const auto before = load(base_);
    count_ = before ? before->size() : 0;
    if (count_ == 0) {
        try {
            if (box_.write(what) == event_result::recorded) {
                return event_result::recorded;
            }
        } catch (const storage_failure &) {
            // The file may have room where the box has none. But what failed may have come into the
            // box all the same, and must not come there twice.
            if (alike_at_end(events_in(find_box(base_)), what) > 0) {
                throw;
            }
        }
    }
    append(base_, what, count_);
    ++count_;
    return event_result::waits;
}

void waiting_events::take_over()
{
    try {
        write_all();
        complained_ = false;
    } catch (const failure &reason) {
        if (!complained_) {
            note(fmt::format("{}; the events that wait are tried again", reason.what()));
        }
        complained_ = true;
    }
}

void waiting_events::put_into_box(const std::vector<waiting_record> &waiting)
{
    std::vector<identity> recorded = events_in(find_box(base_));
    const event_marks marks(base_);
    for (const waiting_record &each : waiting) {
        if (!is_in_box(each, recorded)) {
            marks.set(each, fmt::format("{:04}", alike_at_end(recorded, each.what)));
            if (box_.write(each.what) != event_result::recorded) {
                marks.set(each, mark_waits);
                return;
            }
            recorded.push_back(identity_of(each.what));
        }
        marks.set(each, mark_done);
        --count_;
    }
}

void waiting_events::write_all()
{
    const auto waiting = load(base_);
    count_ = waiting ? waiting->size() : 0;
    if (!waiting) {
        return;
    }
    if (!waiting->empty()) {
        put_into_box(*waiting);
    }
    if (count_ == 0) {
        unlink(file_of(base_).c_str());
    }
}

} // namespace cli
