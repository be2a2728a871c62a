// What a push may be asked for, and that it arrives as it was said.
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "push/push_request.hpp"

namespace
{

using namespace cli;

push_request sound()
{
    push_request request;
    request.boxes = {"box"};
    request.url = "clickhouse://h/d";
    return request;
}

void expect_refused(const push_request &request)
{
    EXPECT_THROW(request.check(), failure);
}

TEST(PushRequest, WhatIsSaidArrives)
{
    push_request request = sound();
    request.boxes = {"--to=x", "a b", ""};
    request.labels = {"site=north", "host=--"};
    request.raw = "all";
    request.create = true;
    request.cluster = "fleet";
    request.state = "dir";
    request.retry_for = "0";
    request.credentials = "file";
    request.ca_file = "ca";
    request.again = true;
    request.json = true;
    request.quiet = true;
    const push_request arrived = request_in(words_of(request));
    EXPECT_EQ(arrived.boxes, request.boxes);
    EXPECT_EQ(arrived.labels, request.labels);
    EXPECT_EQ(words_of(arrived), words_of(request));
    EXPECT_EQ(words_of(request_in(words_of(sound()))), words_of(sound()));
}

TEST(PushRequest, TheProgramTakesNoOtherWords)
{
    const std::vector<std::string> words = {"--nonsense", "--"};
    EXPECT_THROW((void)request_in(words), failure);
}

TEST(PushRequest, WhatContradictsItselfIsRefused)
{
    EXPECT_NO_THROW(sound().check());
    push_request request = sound();
    request.url.clear();
    expect_refused(request);
    request = sound();
    request.boxes.clear();
    expect_refused(request);
    request.create = true;
    EXPECT_NO_THROW(request.check());
    request = sound();
    request.folder = "dir";
    expect_refused(request);
    request = sound();
    request.cluster = "fleet";
    expect_refused(request);
    request.create = true;
    EXPECT_NO_THROW(request.check());
    request.cluster = "a`b";
    expect_refused(request);
    request = sound();
    request.retry_for = "soon";
    expect_refused(request);
    request = sound();
    request.raw = "some";
    expect_refused(request);
}

TEST(PushRequest, ANameOfABoxGoesWithOneBox)
{
    push_request request = sound();
    request.labels = {"box=n"};
    EXPECT_NO_THROW(request.check());
    request.boxes = {"a", "b"};
    expect_refused(request);
}

TEST(PushRequest, RawSamplesAreChosen)
{
    EXPECT_EQ(parse_raw_choice("none").which, raw_choice::kind::none);
    EXPECT_EQ(parse_raw_choice("all").which, raw_choice::kind::all);
    EXPECT_EQ(parse_raw_choice("last:1h30m").seconds, 5400);
    for (const char *text : {"", "last", "last:", "last:-1h", "2h"}) {
        EXPECT_THROW((void)parse_raw_choice(text), failure) << text;
    }
}

TEST(PushRequest, LabelsHaveFourKeys)
{
    const std::vector<std::string> told = {"box=a/b", "host=h", "site=s=1", "firmware="};
    const box_labels labels = parse_box_labels(told);
    EXPECT_EQ(labels.box, "a/b");
    EXPECT_EQ(labels.host, "h");
    EXPECT_EQ(labels.site, "s=1");
    EXPECT_EQ(labels.firmware, "");
    for (const std::string &text : {std::string("box="), std::string("rack=1"), std::string("site"),
                                    "site=" + std::string(1025, 'x')}) {
        EXPECT_THROW((void)parse_box_labels(std::vector{text}), failure) << text;
    }
}

} // namespace
