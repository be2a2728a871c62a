// Sends events to a running recording through the socket BASE.sock, and receives them there. The
// sender waits for the answer of the recording with a time limit. The receiver trusts nothing that
// arrives: it drops a datagram of another form, and only so many of them in one call, so that a
// flood cannot delay the samples.
#include "box/event_channel.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "process/clock.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr std::string_view greeting = "vesk1 ";
constexpr std::size_t longest_datagram = longest_event + 64;
constexpr std::size_t longest_answer = 1024;
// The datagrams that one call of take() drops at most: a flood must not keep the recorder from its
// samples.
constexpr std::size_t most_dropped = 8;

constexpr std::string_view word_recorded = "recorded";
constexpr std::string_view word_waits = "waits";
constexpr std::string_view word_refused = "refused";

std::string socket_of(const std::string &base)
{
    return base + ".sock";
}

// The address of a socket has room for about a hundred characters, and paths are longer. The folder
// is named by a descriptor, so that only the last part has to fit.
class socket_address
{
public:
    explicit socket_address(const std::string &path)
    {
        const std::filesystem::path whole(path);
        const std::string folder = whole.parent_path().empty() ? "." : whole.parent_path().string();
        folder_ = file_descriptor(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        const std::string name =
            fmt::format("/proc/self/fd/{}/{}", folder_.get(), whole.filename().string());
        address_.sun_family = AF_UNIX;
        fits_ = folder_.is_open() && name.size() < sizeof address_.sun_path;
        if (fits_) {
            memcpy(address_.sun_path, name.c_str(), name.size() + 1);
        }
    }
    bool fits() const { return fits_; }
    // Throws a failure when there is no address for this path.
    void require(const std::string &path) const
    {
        if (!folder_.is_open()) {
            throw failure(exit_failed, with_errno(path + ": its folder cannot be opened"));
        }
        if (!fits_) {
            throw failure(exit_failed, path + ": the name is too long for a socket");
        }
    }
    sockaddr *get() { return reinterpret_cast<sockaddr *>(&address_); }
    static socklen_t size() { return sizeof(sockaddr_un); }

private:
    file_descriptor folder_;
    sockaddr_un address_ = {};
    bool fits_ = false;
};

// Room for one descriptor beside a message.
union control_block {
    char bytes[CMSG_SPACE(sizeof(int))];
    cmsghdr aligned;
};

std::optional<event> parse(std::string_view text)
{
    event what = {};
    const auto line_end = text.find('\n');
    if (!text.starts_with(greeting) || line_end == std::string_view::npos) {
        return std::nullopt;
    }
    const char *end = text.data() + line_end;
    const auto type = std::from_chars(text.data() + greeting.size(), end, what.type);
    if (type.ec != std::errc() || type.ptr == end || *type.ptr != ' ') {
        return std::nullopt;
    }
    const auto time = std::from_chars(type.ptr + 1, end, what.time);
    if (time.ec != std::errc() || time.ptr != end) {
        return std::nullopt;
    }
    what.text = text.substr(line_end + 1);
    return what;
}

// There is room for one descriptor only, so a control message of another size holds none.
file_descriptor descriptor_in(msghdr &message)
{
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS ||
        header->cmsg_len != CMSG_LEN(sizeof(int))) {
        return file_descriptor();
    }
    int fd = -1;
    memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return file_descriptor(fd);
}

bool send_with_descriptor(int to, socket_address &address, std::string text, int fd)
{
    iovec piece = {text.data(), text.size()};
    control_block control = {};
    msghdr message = {};
    message.msg_name = address.get();
    message.msg_namelen = socket_address::size();
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    memcpy(CMSG_DATA(header), &fd, sizeof fd);
    return sendmsg(to, &message, MSG_NOSIGNAL) >= 0;
}

event_reply reply_from(std::string_view text)
{
    event_reply reply = {event_reply::outcome::answered, event_answer::refused, ""};
    if (text == word_recorded) {
        reply.answer = event_answer::recorded;
    } else if (text == word_waits) {
        reply.answer = event_answer::waits;
    } else if (text.starts_with(word_refused)) {
        reply.reason = text.substr(std::min(text.size(), word_refused.size() + 1));
    }
    return reply;
}

// Waits for answers until the deadline. A recorder may first answer that the event waits, and later
// that it is recorded: the last answer counts.
event_reply wait_for_answer(int fd, double deadline)
{
    event_reply last = {event_reply::outcome::no_answer, event_answer::refused, ""};
    for (;;) {
        const double rest = deadline - monotonic_seconds();
        pollfd readable = {fd, POLLIN, 0};
        const int ready = poll(&readable, 1, rest > 0 ? static_cast<int>(rest * 1000) + 1 : 0);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return last;
        }
        std::array<char, longest_answer> text = {};
        const ssize_t length = recv(fd, text.data(), text.size(), 0);
        if (length <= 0 && last.answer == event_answer::waits) {
            // The event is on the medium, and the next process that writes to the box puts it
            // there.
            return last;
        }
        if (length <= 0) {
            return {event_reply::outcome::ended, event_answer::refused, ""};
        }
        last = reply_from({text.data(), static_cast<std::size_t>(length)});
        if (last.answer != event_answer::waits) {
            return last;
        }
    }
}

// Removes the socket that a killed recorder left behind. Anything else under that name belongs to
// somebody and is a failure.
void remove_left_socket(const std::string &path, socket_address &address)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        throw failure(exit_failed, path + ": is in the way, and no socket");
    }
    const file_descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), address.get(), socket_address::size()) == 0 || errno == EPROTOTYPE) {
        throw failure(exit_failed, path + ": another process listens there");
    }
    unlink(path.c_str());
}

} // namespace

file_descriptor &file_descriptor::operator=(file_descriptor &&other) noexcept
{
    if (this != &other) {
        reset();
        fd_ = other.release();
    }
    return *this;
}

int file_descriptor::release()
{
    return std::exchange(fd_, -1);
}

void file_descriptor::reset()
{
    if (fd_ >= 0) {
        close(std::exchange(fd_, -1));
    }
}

void incoming_event::answer(event_answer result, const std::string &reason) const
{
    std::string text(result == event_answer::recorded ? word_recorded
                     : result == event_answer::waits  ? word_waits
                                                      : word_refused);
    if (!reason.empty()) {
        text.append(1, ' ').append(reason, 0, longest_answer - text.size());
    }
    // A sender may have stopped waiting, so a failure to answer is ignored.
    (void)!send(reply_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

event_inbox::event_inbox(const std::string &base)
    : path_(socket_of(base)), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    socket_address address(path_);
    address.require(path_);
    remove_left_socket(path_, address);
    const mode_t before = umask(S_IXUSR | S_IRWXG | S_IRWXO);
    const int result = bind(socket_.get(), address.get(), socket_address::size());
    const int error = errno;
    umask(before);
    errno = error;
    if (result != 0) {
        throw failure(exit_failed, with_errno(path_));
    }
}

event_inbox::~event_inbox()
{
    unlink(path_.c_str());
}

std::optional<incoming_event> event_inbox::take() const
{
    std::vector<char> text(longest_datagram);
    for (std::size_t i = 0; i < most_dropped; ++i) {
        iovec piece = {text.data(), text.size()};
        control_block control = {};
        msghdr message = {};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.bytes;
        // The padding behind one descriptor would take another one.
        message.msg_controllen = CMSG_LEN(sizeof(int));
        const ssize_t length = recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
        if (length < 0) {
            return std::nullopt;
        }
        file_descriptor reply = descriptor_in(message);
        std::optional<event> what = parse({text.data(), static_cast<std::size_t>(length)});
        if (what && reply.is_open() && (message.msg_flags & MSG_TRUNC) == 0) {
            return incoming_event(std::move(*what), std::move(reply));
        }
    }
    return std::nullopt;
}

event_reply send_event(const std::string &base, const event &what, double seconds)
{
    const double deadline = monotonic_seconds() + seconds;
    event_reply nobody = {event_reply::outcome::nobody, event_answer::refused, ""};
    socket_address address(socket_of(base));
    const file_descriptor to(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int pair[2] = {-1, -1};
    if (!address.fits() || !to.is_open() ||
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        return nobody;
    }
    const file_descriptor own(pair[0]);
    file_descriptor given(pair[1]);
    // A recorder that reads nothing must not hold the sender up for ever.
    timeval patience = {};
    patience.tv_sec = static_cast<time_t>(seconds) + 1;
    (void)setsockopt(to.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    const std::string text = fmt::format("{}{} {}\n{}", greeting, what.type, what.time, what.text);
    if (!send_with_descriptor(to.get(), address, text, given.get())) {
        if (errno == ENOENT || errno == ECONNREFUSED) {
            return nobody;
        }
        if (errno == EAGAIN) {
            return {event_reply::outcome::no_answer, event_answer::refused, ""};
        }
        throw failure(exit_failed, with_errno(socket_of(base)));
    }
    given.reset();
    return wait_for_answer(own.get(), deadline);
}

} // namespace cli
