// What is taken for the URL of a target, and what is refused.
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "push/target.hpp"

namespace
{

using namespace cli;

std::string refusal_of(const std::string &url)
{
    try {
        (void)parse_target(url);
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
    return {};
}

TEST(PushTarget, AUrlNamesEngineHostPortAndDatabase)
{
    const push_target target = parse_target("clickhouse://fleet.example:9999/all_boxes");
    EXPECT_EQ(target.engine, engine_kind::clickhouse);
    EXPECT_EQ(target.origin(), "http://fleet.example:9999");
    EXPECT_EQ(target.database, "all_boxes");
    EXPECT_EQ(target.name(), "clickhouse://fleet.example:9999/all_boxes");
}

TEST(PushTarget, RemoteWriteHasAPath)
{
    const push_target target = parse_target("remote-write+https://u@h/api/v1/write?a=b");
    EXPECT_EQ(target.engine, engine_kind::remote_write);
    EXPECT_EQ(target.origin(), "https://h:443");
    EXPECT_EQ(target.path, "/api/v1/write?a=b");
    EXPECT_EQ(target.name(), "remote-write+https://h:443/api/v1/write?a=b");
    EXPECT_EQ(parse_target("remote-write+http://h:9090/w").origin(), "http://h:9090");
    EXPECT_NE(refusal_of("remote-write+http://h"), "");
    EXPECT_NE(refusal_of("remote-write+http://h/a b"), "");
    EXPECT_NE(refusal_of("remote-write://h/w"), "");
}

TEST(PushTarget, PortsHaveTheirUsualNumbers)
{
    EXPECT_EQ(parse_target("clickhouse://h/d").origin(), "http://h:8123");
    EXPECT_EQ(parse_target("clickhouses://h/d").origin(), "https://h:8443");
}

TEST(PushTarget, TheUserIsNoPartOfTheName)
{
    const push_target target = parse_target("clickhouses://ann@h/d");
    EXPECT_EQ(target.user, "ann");
    EXPECT_EQ(target.name(), "clickhouses://h:8443/d");
}

TEST(PushTarget, AnAddressOfVersion6StandsInBrackets)
{
    EXPECT_EQ(parse_target("clickhouse://[::1]:8124/d").origin(), "http://[::1]:8124");
    EXPECT_NE(refusal_of("clickhouse://[::1/d"), "");
    EXPECT_NE(refusal_of("clickhouse://[x]/d"), "");
}

TEST(PushTarget, APasswordIsRefusedAndNotShown)
{
    const std::string told = refusal_of("clickhouse://ann:secret@h/d");
    EXPECT_NE(told.find("a password does not belong on a command line"), std::string::npos);
    EXPECT_EQ(told.find("secret"), std::string::npos);
    EXPECT_EQ(refusal_of("clickhouse://ann:se@cret@h/d").find("cret@"), std::string::npos);
    EXPECT_EQ(refusal_of("https://ann:secret@h/d").find("secret"), std::string::npos);
    EXPECT_EQ(refusal_of("clickhouse://secret!@h/d").find("secret"), std::string::npos);
}

TEST(PushTarget, WhatIsNoUrlIsRefused)
{
    for (const char *url :
         {"", "h", "http://h/d", "clickhouse://", "clickhouse://h", "clickhouse://h/",
          "clickhouse:///d", "clickhouse://h:0/d", "clickhouse://h:65536/d", "clickhouse://h:/d",
          "clickhouse://h:x/d", "clickhouse://h/d/e", "clickhouse://h/d?x=1", "clickhouse://h/a`b",
          "clickhouse://h h/d", "clickhouse://h\n/d"}) {
        EXPECT_NE(refusal_of(url), "") << url;
    }
    EXPECT_NE(refusal_of("clickhouse://h/" + std::string(65, 'd')), "");
    EXPECT_NE(refusal_of("clickhouse://h/" + std::string(3000, 'd')), "");
}

} // namespace
