// SPDX-License-Identifier: MIT
#include "Script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace kel::http::simulation {
namespace {

std::string refusalOf(const std::string& text) {
    try {
        parse(text);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "none";
}

TEST(ScriptTest, WhatIsPrintedIsReadAgain) {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        const std::string text = print(generate(seed));
        EXPECT_EQ(print(parse(text)), text) << "seed " << seed;
    }
}

TEST(ScriptTest, ASeedIsTheSameWorldEachTime) {
    EXPECT_EQ(print(generate(7)), print(generate(7)));
    EXPECT_NE(print(generate(7)), print(generate(8)));
}

TEST(ScriptTest, WhatIsNotSaidHasItsDefault) {
    const Script script = parse("\nreply exchange=3 cut=stall\n\nrequest\n");
    ASSERT_EQ(script.replies.size(), 1U);
    EXPECT_EQ(script.replies[0].exchange, 3);
    EXPECT_EQ(script.replies[0].cut, Cut::stall);
    EXPECT_EQ(script.replies[0].status, 200);
    EXPECT_EQ(script.requests.size(), 1U);
    EXPECT_EQ(script.reply(99, 0).status, 200);
    EXPECT_EQ(script.host(5).id, 5);
}

TEST(ScriptTest, RepliesOfOneExchangeAnswerInTurnAndTheLastGoesOn) {
    const Script script = parse("reply status=500\nreply exchange=1 status=404\nreply status=204\n");
    EXPECT_EQ(script.reply(0, 0).status, 500);
    EXPECT_EQ(script.reply(0, 1).status, 204);
    EXPECT_EQ(script.reply(0, 9).status, 204);
}

TEST(ScriptTest, ARefusalNamesTheLine) {
    using testing::StartsWith;
    EXPECT_THAT(refusalOf("request\nrequset id=1\n"), StartsWith("'requset id=1': no such record"));
    EXPECT_THAT(refusalOf("request colour=1\n"), StartsWith("'request colour=1': no such field"));
    EXPECT_THAT(refusalOf("request verb=LOOK\n"), StartsWith("'request verb=LOOK': no such value"));
    EXPECT_THAT(refusalOf("request id=many\n"), StartsWith("'request id=many': "));
    EXPECT_EQ(refusalOf("request\nrequest\n"), "two requests with the id 0");
    EXPECT_THAT(refusalOf("request id=3x\n"), StartsWith("'request id=3x': "));
    EXPECT_THAT(refusalOf("request id\n"), StartsWith("'request id': "));
    EXPECT_THAT(refusalOf("request id=99999999999999999999\n"), StartsWith("'request id=99999999999999999999': "));
}

}  // namespace
}  // namespace kel::http::simulation
