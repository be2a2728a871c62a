// Heads of requests, as browsers send them and as nobody should.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "serve/request_head.hpp"

namespace
{

using namespace cli;
using head_state = head_reading::state;

head_reading read_lines(const std::string &lines)
{
    return read_head(lines + "\r\n\r\n");
}

TEST(RequestHead, TellsWhatIsAskedFor)
{
    const head_reading found =
        read_lines("GET /events?after=a-1.2.3 HTTP/1.1\r\nhost:\t127.0.0.1:8080 \r\n"
                   "Accept: text/event-stream\r\nLAST-EVENT-ID: a-1.2.4\r\nSec-Fetch-Site: none");
    ASSERT_EQ(found.is, head_state::complete);
    EXPECT_EQ(found.head.path, "/events");
    EXPECT_EQ(found.head.query, "after=a-1.2.3");
    EXPECT_EQ(found.head.host, "127.0.0.1:8080");
    EXPECT_EQ(found.head.last_event, "a-1.2.4");
    EXPECT_EQ(found.head.asked_by, "none");
    EXPECT_FALSE(found.head.only_head);
    EXPECT_TRUE(read_lines("HEAD / HTTP/1.0\r\nHost: a\r\nContent-Length: 0").head.only_head);
}

TEST(RequestHead, IsIncompleteUntilItsLastByteCame)
{
    const std::string whole = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_EQ(read_head(whole.substr(0, i)).is, head_state::incomplete) << i;
    }
    EXPECT_EQ(read_head(whole).is, head_state::complete);
    EXPECT_EQ(read_head(whole + "GET /more HTTP/1.1\r\n").head.path, "/");
}

struct hostile_head {
    const char *what;
    std::string lines;
    int status;
};

TEST(RequestHead, HostileOnesAreRefused)
{
    const std::string host = "\r\nHost: a";
    const std::vector<hostile_head> heads = {
        {"nothing", "", 400},
        {"no target", "GET HTTP/1.1" + host, 400},
        {"no version", "GET /" + host, 400},
        {"version 0.9", "GET / HTTP/0.9" + host, 505},
        {"version 2", "PRI * HTTP/2.0", 505},
        {"a version with more", "GET / HTTP/1.1x" + host, 505},
        {"another protocol", "GET / FTP/1.1" + host, 400},
        {"TLS", "\x16\x03\x01\x02", 400},
        {"POST", "POST / HTTP/1.1" + host, 405},
        {"PUT", "PUT / HTTP/1.1" + host, 405},
        {"OPTIONS", "OPTIONS * HTTP/1.1" + host, 405},
        {"CONNECT", "CONNECT a:80 HTTP/1.1" + host, 405},
        {"TRACE", "TRACE / HTTP/1.1" + host, 405},
        {"small letters", "get / HTTP/1.1" + host, 405},
        {"a space in front", " GET / HTTP/1.1" + host, 400},
        {"two spaces", "GET  / HTTP/1.1" + host, 400},
        {"a space in the target", "GET /a b HTTP/1.1" + host, 400},
        {"a tab", "GET\t/ HTTP/1.1" + host, 400},
        {"a whole address", "GET http://a/ HTTP/1.1" + host, 400},
        {"no path", "GET * HTTP/1.1" + host, 400},
        {"not ASCII", "GET /\xc3\xa4 HTTP/1.1" + host, 400},
        {"a zero byte", std::string("GET /\0 HTTP/1.1", 15) + host, 400},
        {"a bare line feed", "GET / HTTP/1.1\nHost: a", 400},
        {"a bare carriage return", "GET / HTTP/1.1" + host + "\r\nX: a\rb", 400},
        {"a line feed in a value", "GET / HTTP/1.1" + host + "\r\nX: a\nY: b", 400},
        {"no Host", "GET / HTTP/1.1", 400},
        {"two of Host", "GET / HTTP/1.1" + host + host, 400},
        {"a space before the colon", "GET / HTTP/1.1\r\nHost : a", 400},
        {"a folded line", "GET / HTTP/1.1" + host + "\r\n b", 400},
        {"no colon", "GET / HTTP/1.1" + host + "\r\nabc", 400},
        {"no name", "GET / HTTP/1.1" + host + "\r\n: b", 400},
        {"a body", "GET / HTTP/1.1" + host + "\r\nContent-Length: 5", 413},
        {"a length that wraps",
         "GET / HTTP/1.1" + host + "\r\nContent-Length: 18446744073709551616", 413},
        {"two lengths", "GET / HTTP/1.1" + host + "\r\nContent-Length: 0\r\nContent-Length: 1",
         413},
        {"chunks", "GET / HTTP/1.1" + host + "\r\nTransfer-Encoding: chunked", 413},
        {"a long target", "GET /" + std::string(2000, 'a') + " HTTP/1.1" + host, 414},
        {"many fields",
         "GET / HTTP/1.1" + host +
             [] {
                 std::string all;
                 for (int i = 0; i < 100; ++i) {
                     all += "\r\nX: y";
                 }
                 return all;
             }(),
         431},
        {"a long head", "GET / HTTP/1.1" + host + "\r\nX: " + std::string(9000, 'a'), 431},
    };
    for (const hostile_head &one : heads) {
        const head_reading found = read_lines(one.lines);
        EXPECT_EQ(found.is, head_state::refused) << one.what;
        EXPECT_EQ(found.status, one.status) << one.what;
    }
}

TEST(RequestHead, WhatNeverEndsIsRefusedAtABound)
{
    EXPECT_EQ(read_head(std::string(2049, 'A')).status, 414);
    EXPECT_EQ(read_head("GET / HTTP/1.1\r\n" + std::string(longest_head, 'A')).status, 431);
}

TEST(RequestHead, BytesByChanceNeverMakeOneThatIsTaken)
{
    std::mt19937 chance(1);
    const std::string whole = "GET /events?after=x HTTP/1.1\r\nHost: a\r\nX: yz\r\n\r\n";
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string bytes = whole;
        for (auto changes = 1 + chance() % 3; changes > 0; --changes) {
            bytes[chance() % bytes.size()] = static_cast<char>(chance());
        }
        const head_reading found = read_head(bytes);
        refused += found.is == head_state::refused ? 1 : 0;
        if (found.is == head_state::complete) {
            EXPECT_EQ(found.head.path.find_first_of(" \r\n\t"), std::string::npos);
            EXPECT_EQ(found.head.host.find_first_of("\r\n"), std::string::npos);
            EXPECT_EQ(found.head.path.front(), '/');
        }
    }
    EXPECT_GT(refused, 5000);
}

} // namespace
