// SPDX-License-Identifier: MIT
#include "kel-http/curl/TraceText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/GlobalLocale.h"

namespace kel::http::test {
namespace {

std::string outgoing(std::string_view line) {
    return concealCredentials(CURLINFO_HEADER_OUT, line);
}

std::string text(std::string_view line) {
    return concealCredentials(CURLINFO_TEXT, line);
}

TEST(TraceTextTest, OutgoingAuthorizationIsConcealedToTheEndOfTheLine) {
    EXPECT_EQ(outgoing("Authorization: Bearer secret\r"), "Authorization: xxxxxx");
    EXPECT_EQ(outgoing("Authorization:secret"), "Authorization: xxxxxx");
    EXPECT_EQ(outgoing("Authorization:"), "Authorization: xxxxxx");
}

TEST(TraceTextTest, WhatStandsBeforeAuthorizationIsKept) {
    EXPECT_EQ(outgoing("Proxy-Authorization: Basic c2VjcmV0\r"), "Proxy-Authorization: xxxxxx");
    EXPECT_EQ(outgoing("X-Authorization: secret Authorization: other"), "X-Authorization: xxxxxx");
    EXPECT_EQ(outgoing("X-Copy: of Authorization: secret"), "X-Copy: of Authorization: xxxxxx");
}

TEST(TraceTextTest, LineThatBeginsWithTheNameIsConcealedInAnyCase) {
    EXPECT_EQ(outgoing("authorization: secret\r"), "authorization: xxxxxx");
    EXPECT_EQ(outgoing("AUTHORIZATION: secret"), "AUTHORIZATION: xxxxxx");
    EXPECT_EQ(outgoing("authorIzation:secret"), "authorIzation: xxxxxx");
    EXPECT_EQ(outgoing("proxy-authorization: secret"), "proxy-authorization: xxxxxx");
    EXPECT_EQ(outgoing("PROXY-AUTHORIZATION: secret"), "PROXY-AUTHORIZATION: xxxxxx");
}

TEST(TraceTextTest, LowerCaseNameInsideALineIsLeftAlone) {
    EXPECT_EQ(outgoing("X-Copy: authorization: other"), "X-Copy: authorization: other");
}

TEST(TraceTextTest, OtherOutgoingLinesStayAsTheyAre) {
    EXPECT_EQ(outgoing("GET / HTTP/1.1\r"), "GET / HTTP/1.1\r");
    EXPECT_EQ(outgoing("X-Authorized: yes"), "X-Authorized: yes");
    EXPECT_EQ(outgoing("auth"), "auth");
    EXPECT_EQ(outgoing(""), "");
}

TEST(TraceTextTest, ReceivedLinesAndBodiesStayAsTheyAre) {
    for (const curl_infotype type : {CURLINFO_HEADER_IN, CURLINFO_DATA_IN, CURLINFO_DATA_OUT}) {
        EXPECT_EQ(concealCredentials(type, "Authorization: Bearer shown"), "Authorization: Bearer shown");
    }
}

TEST(TraceTextTest, LibcurlsOwnTextConcealsHeadersInBrackets) {
    EXPECT_EQ(text("h2h3 [authorization: Basic secret]"), "h2h3 [authorization: xxxxxx]");
    EXPECT_EQ(text("[HTTP/2] [1] [Authorization: Bearer secret]"), "[HTTP/2] [1] [Authorization: xxxxxx]");
    EXPECT_EQ(text("h2h3 [proxy-authorization: Basic secret]"), "h2h3 [proxy-authorization: xxxxxx]");
}

TEST(TraceTextTest, BracketInsideAConcealedValueDoesNotEndIt) {
    EXPECT_EQ(text("h2h3 [authorization: a]secret]"), "h2h3 [authorization: xxxxxx]");
}

// libcurl cuts long texts, their closing bracket included.
TEST(TraceTextTest, CutTextIsConcealedToItsEnd) {
    EXPECT_EQ(text("h2h3 [authorization: secret"), "h2h3 [authorization: xxxxxx");
    EXPECT_EQ(text("h2h3 [authorization: a]secret..."), "h2h3 [authorization: xxxxxx");
}

TEST(TraceTextTest, OtherTextStaysAsItIs) {
    EXPECT_EQ(text("Server auth using Basic"), "Server auth using Basic");
    EXPECT_EQ(text("[:authority: server]"), "[:authority: server]");
}

TEST(TraceTextTest, WhiteSpaceIsTrimmedAtBothEndsOnly) {
    EXPECT_EQ(trimmed(" \t\r\n\v\fa b\r\n"), "a b");
    EXPECT_EQ(trimmed("a\r\n\r\nb"), "a\r\n\r\nb");
    EXPECT_EQ(trimmed("\r\n"), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\xC3\xA9\xFF"), "\xC3\xA9\xFF");
}

TEST(TraceTextTest, GlobalLocaleTellsWhatWhiteSpaceIs) {
    using Letters = std::ctype<char>;
    std::array<Letters::mask, Letters::table_size> kinds{};
    std::copy_n(Letters::classic_table(), kinds.size(), kinds.begin());
    kinds['x'] = Letters::space;
    EXPECT_EQ(trimmed("x x a x bx"), "x x a x bx");
    {
        const GlobalLocale locale(new Letters(kinds.data()));
        EXPECT_EQ(trimmed("x x a x bx"), "a x b");
    }
    EXPECT_EQ(trimmed("xax"), "xax");
}

}  // namespace
}  // namespace kel::http::test
