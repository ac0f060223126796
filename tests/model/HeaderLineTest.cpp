// SPDX-License-Identifier: MIT
#include "kel-http/model/HeaderLine.h"

#include <gmock/gmock.h>

namespace kel::http {
namespace {

void expectHeader(std::string_view line, const std::string& name, const std::string& value) {
    const auto header = parseHeaderLine(line);
    ASSERT_TRUE(header.has_value()) << line;
    EXPECT_EQ(header->name, name) << line;
    EXPECT_EQ(header->value, value) << line;
}

void expectNone(std::string_view line) {
    EXPECT_FALSE(parseHeaderLine(line).has_value()) << line;
}

TEST(HeaderLineTest, NameAndValueStandAroundTheFirstColon) {
    expectHeader("Content-Type: text/plain\r\n", "Content-Type", "text/plain");
    expectHeader("Location: http://host:80/a:b\r\n", "Location", "http://host:80/a:b");
}

TEST(HeaderLineTest, LetterCaseStays) {
    expectHeader("x-LOUD: Mixed Case\r\n", "x-LOUD", "Mixed Case");
}

TEST(HeaderLineTest, WhiteSpaceAroundNameAndValueGoes) {
    expectHeader(" \t\v\fName\f\v\t : \t\v\fvalue\f\v\t \r\n", "Name", "value");
    expectHeader("Name:value\r\n", "Name", "value");
    expectHeader("Name: value\r\r\n", "Name", "value");
}

TEST(HeaderLineTest, WhiteSpaceInsideTheValueStays) {
    expectHeader("Name: a  b\tc\r\n", "Name", "a  b\tc");
}

TEST(HeaderLineTest, TheValueMayBeEmpty) {
    expectHeader("Name:\r\n", "Name", "");
    expectHeader("Name: \t \r\n", "Name", "");
}

TEST(HeaderLineTest, ZeroBytesAreTextLikeAnyOther) {
    using namespace std::string_literals;
    expectHeader("Na\0me: va\0lue\r\n"s, "Na\0me"s, "va\0lue"s);
}

TEST(HeaderLineTest, ALineWithoutItsLineEndIsIgnored) {
    expectNone("Name: value");
    expectNone("Name: value\n");
    expectNone("Name: value\r");
    expectNone("Name: value\n\r");
    expectNone(":");
}

TEST(HeaderLineTest, ALineWithoutAColonIsIgnored) {
    expectNone("");
    expectNone("\r\n");
    expectNone("HTTP/1.1 200 OK\r\n");
    expectNone("no header\r\n");
}

TEST(HeaderLineTest, AnEmptyNameIsIgnored) {
    expectNone(": value\r\n");
    expectNone(" \t: value\r\n");
    expectNone(":\r\n");
}

TEST(HeaderLineTest, AStatusLineWithAColonIsTakenForAHeader) {
    expectHeader("HTTP/1.1 200 Note: fine\r\n", "HTTP/1.1 200 Note", "fine");
}

TEST(HeaderLineTest, StatusLinesBeginWithTheProtocol) {
    EXPECT_TRUE(isStatusLine("HTTP/1.1 200 OK\r\n"));
    EXPECT_TRUE(isStatusLine("HTTP/2 200\r\n"));
    EXPECT_FALSE(isStatusLine("Server: HTTP/1.1\r\n"));
    EXPECT_FALSE(isStatusLine("HTTP"));
    EXPECT_FALSE(isStatusLine(""));
}

TEST(HeaderLineTest, ABlankLineHoldsItsLineEndOnly) {
    EXPECT_TRUE(endsWithBlankLine("\r\n"));
    EXPECT_TRUE(endsWithBlankLine("\n"));
    EXPECT_FALSE(endsWithBlankLine(""));
    EXPECT_FALSE(endsWithBlankLine("\r"));
    EXPECT_FALSE(endsWithBlankLine(" \r\n"));
    EXPECT_FALSE(endsWithBlankLine("Name: value\r\n"));
}

TEST(HeaderLineTest, ABlankLineEndsSeveralLines) {
    EXPECT_TRUE(endsWithBlankLine("Name: value\r\n\r\n"));
    EXPECT_TRUE(endsWithBlankLine("Name: value\n\n"));
    EXPECT_FALSE(endsWithBlankLine("\r\nName: value\r\n"));
}

}  // namespace
}  // namespace kel::http
