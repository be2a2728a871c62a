// Speaks HTTP through libcurl, whose connection stays open from one request to the next.
#include "push/http_client.hpp"

#include <algorithm>
#include <curl/curl.h>
#include <new>

#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr long connect_seconds = 10;
constexpr long request_seconds = 300;
// A server that takes or gives less than this over a minute has stopped.
constexpr long slowest_bytes_a_second = 64;
constexpr long slow_seconds = 60;

struct curl_library {
    curl_library()
    {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            throw failure(exit_failed, "libcurl cannot be used");
        }
    }
    curl_library(const curl_library &) = delete;
    curl_library &operator=(const curl_library &) = delete;
    ~curl_library() { curl_global_cleanup(); }
};

struct easy_release {
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
};

struct list_release {
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};
using header_list = std::unique_ptr<curl_slist, list_release>;

void append(header_list &list, const std::string &line)
{
    curl_slist *longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    (void)list.release();
    list.reset(longer);
}

struct reply_text {
    std::string text;
    std::size_t seen = 0;
};

// What is too much is dropped while the reply is still taken, so that the connection stays whole;
// one that does not come to its end is cut.
std::size_t take_reply(char *bytes, std::size_t size, std::size_t count, void *context)
{
    constexpr std::size_t endless = 16 * most_reply_bytes;
    auto *reply = static_cast<reply_text *>(context);
    const std::size_t length = size * count;
    reply->seen += length;
    reply->text.append(bytes, std::min(length, most_reply_bytes - reply->text.size()));
    return reply->seen > endless ? 0 : length;
}

int look_for_stop(void *context, curl_off_t /*to_get*/, curl_off_t /*got*/, curl_off_t /*to_send*/,
                  curl_off_t /*sent*/)
{
    return static_cast<const stop_request *>(context)->requested() ? 1 : 0;
}

bool is_final(CURLcode code)
{
    return code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE ||
           code == CURLE_SSL_CERTPROBLEM || code == CURLE_UNSUPPORTED_PROTOCOL ||
           code == CURLE_URL_MALFORMAT || code == CURLE_WEIRD_SERVER_REPLY;
}

} // namespace

struct http_client::session {
    curl_library library;
    std::unique_ptr<CURL, easy_release> handle;
    std::string origin;
    char trouble[CURL_ERROR_SIZE] = {};
};

http_client::http_client(std::string origin, const credentials &who, const std::string &ca_file,
                         const stop_request &stop)
    : session_(std::make_unique<session>())
{
    session_->origin = std::move(origin);
    session_->handle.reset(curl_easy_init());
    CURL *handle = session_->handle.get();
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connect_seconds);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, request_seconds);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, slowest_bytes_a_second);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, slow_seconds);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, session_->trouble);
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "vesk-push");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, take_reply);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, look_for_stop);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &stop);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!ca_file.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, ca_file.c_str());
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    }
    if (!who.user.empty()) {
        curl_easy_setopt(handle, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
        curl_easy_setopt(handle, CURLOPT_USERNAME, who.user.c_str());
        curl_easy_setopt(handle, CURLOPT_PASSWORD, who.password.c_str());
    }
}

http_client::~http_client() = default;

http_reply http_client::post(const std::string &path, std::string_view body,
                             const std::vector<std::string> &headers)
{
    CURL *handle = session_->handle.get();
    header_list list;
    // Without it, libcurl would ask before each large request whether it may send it.
    append(list, "Expect:");
    for (const std::string &line : headers) {
        append(list, line);
    }
    reply_text reply;
    const std::string url = session_->origin + path;
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    session_->trouble[0] = '\0';
    const CURLcode code = curl_easy_perform(handle);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    http_reply result;
    if (code != CURLE_OK) {
        result.trouble =
            printable(session_->trouble[0] != '\0' ? session_->trouble : curl_easy_strerror(code));
        result.is_final = is_final(code);
        return result;
    }
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &result.status);
    result.text = std::move(reply.text);
    return result;
}

} // namespace cli
