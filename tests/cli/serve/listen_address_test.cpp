// Addresses to listen on, as users write them, and the names that requests may use.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "process/failure.hpp"
#include "serve/allowed_hosts.hpp"
#include "serve/listen_address.hpp"

namespace
{

using namespace cli;

TEST(ListenAddress, TakesAnAddressAndAPort)
{
    EXPECT_EQ(parse_listen_address("127.0.0.1:8080").url(), "http://127.0.0.1:8080/");
    EXPECT_EQ(parse_listen_address("localhost:0").url(), "http://127.0.0.1:0/");
    EXPECT_EQ(parse_listen_address("[::1]:8080").url(), "http://[::1]:8080/");
    EXPECT_EQ(parse_listen_address("[0:0:0:0:0:0:0:1]:65535").url(), "http://[::1]:65535/");
}

TEST(ListenAddress, KnowsWhoCanReachIt)
{
    EXPECT_TRUE(parse_listen_address("127.8.0.1:80").is_loopback);
    EXPECT_TRUE(parse_listen_address("[::1]:80").is_loopback);
    EXPECT_FALSE(parse_listen_address("192.0.2.1:80").is_loopback);
    EXPECT_FALSE(parse_listen_address("0.0.0.0:80").is_loopback);
    EXPECT_FALSE(parse_listen_address("[::ffff:127.0.0.1]:80").is_loopback);
}

TEST(ListenAddress, RefusesAllElseAsWrongUsage)
{
    for (const char *text : {"",
                             ":",
                             ":80",
                             "8080",
                             "127.0.0.1",
                             "127.0.0.1:",
                             "127.0.0.1:+80",
                             "127.0.0.1: 80",
                             "127.0.0.1:65536",
                             "127.0.0.1:80x",
                             "127.1:80",
                             "::1:80",
                             "[127.0.0.1]:80",
                             "[::1]",
                             "[]:80",
                             "[::1:80",
                             "example.org:80",
                             "LOCALHOST:80",
                             "localhost:-1",
                             "[fe80::1%lo]:80"}) {
        try {
            (void)parse_listen_address(text);
            ADD_FAILURE() << text;
        } catch (const failure &reason) {
            EXPECT_EQ(reason.code(), exit_usage) << text;
        }
    }
}

TEST(ListenAddress, PortZeroBecomesAFreeOne)
{
    listen_address address = parse_listen_address("127.0.0.1:0");
    const file_descriptor first = open_listener(address);
    EXPECT_NE(address.port, 0);
    listen_address same = address;
    EXPECT_THROW((void)open_listener(same), failure);
}

TEST(AllowedHosts, OnLoopbackOnlyNamesThatNobodyElseCanOwn)
{
    const allowed_hosts hosts(parse_listen_address("127.0.0.1:8080"), {});
    for (const char *host : {"127.0.0.1:8080", "localhost:8080", "LocalHost", "127.0.0.1",
                             "[::1]:8080", "[::1]", "localhost:9000", "127.1.2.3:1"}) {
        EXPECT_TRUE(hosts.allows(host)) << host;
    }
    for (const char *host : {"",
                             ":",
                             "evil.example",
                             "evil.example:8080",
                             "localhost.evil.example",
                             "192.0.2.1:8080",
                             "localhost:",
                             "localhost:x",
                             "localhost:123456",
                             "localhost:80:80",
                             "::1",
                             "[::1",
                             "[::1]8080",
                             "[::1]:",
                             "[]",
                             "[127.0.0.1]",
                             "127.0.0.1@evil.example",
                             "localhost.",
                             "2130706433",
                             "0x7f000001",
                             "127.1",
                             "localhost evil",
                             "\xff"}) {
        EXPECT_FALSE(hosts.allows(host)) << host;
    }
    EXPECT_FALSE(hosts.allows(std::string(5000, 'a')));
}

TEST(AllowedHosts, AnyAddressWhereOthersMayAsk)
{
    const allowed_hosts hosts(parse_listen_address("0.0.0.0:8080"), {"Server.Example"});
    EXPECT_TRUE(hosts.allows("192.0.2.1:8080"));
    EXPECT_TRUE(hosts.allows("[2001:db8::1]:8080"));
    EXPECT_TRUE(hosts.allows("server.example:8080"));
    EXPECT_FALSE(hosts.allows("other.example:8080"));
    EXPECT_FALSE(hosts.allows("example:8080"));
}

TEST(AllowedHosts, TheAddressItself)
{
    const allowed_hosts hosts(parse_listen_address("[::1]:8080"), {});
    EXPECT_TRUE(hosts.allows("[::1]:8080"));
    EXPECT_FALSE(hosts.allows("[2001:db8::1]:8080"));
}

} // namespace
