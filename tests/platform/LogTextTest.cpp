// SPDX-License-Identifier: MIT
#include "log_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string shown(std::string_view text) {
    std::string buffer;
    return std::string(logging::printable(text, buffer));
}

TEST(LogTextTest, TextWithoutControlCharactersIsNotCopied) {
    const std::string text = "GET /caf\xC3\xA9\t\xE2\x82\xAC \xF0\x9F\x98\x80 \\x0A 'quoted'";
    std::string buffer;
    EXPECT_EQ(logging::printable(text, buffer).data(), text.data());
    EXPECT_EQ(logging::printable(text, buffer), text);
    EXPECT_EQ(buffer.capacity(), std::string().capacity());
    EXPECT_EQ(shown(""), "");
}

TEST(LogTextTest, ControlCharactersAreWrittenAsHexadecimalNumbers) {
    EXPECT_EQ(shown("one\ntwo\r"), "one\\x0Atwo\\x0D");
    EXPECT_EQ(shown("\x1B[2Jgone"), "\\x1B[2Jgone");
    EXPECT_EQ(shown(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(shown("\x01\x08\x0B\x1F\x7F"), "\\x01\\x08\\x0B\\x1F\\x7F");
    EXPECT_EQ(shown("a\tb"), "a\tb");
}

TEST(LogTextTest, ControlCharactersBeyondAsciiAreWrittenByteByByte) {
    EXPECT_EQ(shown("a\xC2\x85"
                    "b"),
              "a\\xC2\\x85"
              "b");
    EXPECT_EQ(shown("\xC2\x80"), "\\xC2\\x80");
    EXPECT_EQ(shown("\xC2\x9B"
                    "31m\xC2\x9F"),
              "\\xC2\\x9B"
              "31m\\xC2\\x9F");
    EXPECT_EQ(shown("\xC2\xA0"), "\xC2\xA0");
}

TEST(LogTextTest, FirstAndLastLettersOfEachLengthStay) {
    for (const char* letter : {" ", "~", "\xC2\xA0", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                               "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(shown(letter), letter);
    }
}

TEST(LogTextTest, BytesThatAreNoLetterAreWrittenAsNumbers) {
    EXPECT_EQ(shown("\x80\xBF\xFE\xFF"), "\\x80\\xBF\\xFE\\xFF");
    // A line feed in two, three and four bytes.
    EXPECT_EQ(shown("\xC0\x8A"), "\\xC0\\x8A");
    EXPECT_EQ(shown("\xE0\x80\x8A"), "\\xE0\\x80\\x8A");
    EXPECT_EQ(shown("\xF0\x80\x80\x8A"), "\\xF0\\x80\\x80\\x8A");
    EXPECT_EQ(shown("\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF"), "\\xC1\\xBF\\xE0\\x9F\\xBF\\xF0\\x8F\\xBF\\xBF");
    // Halves of UTF-16, and what lies beyond U+10FFFF.
    EXPECT_EQ(shown("\xED\xA0\x80\xED\xBF\xBF"), "\\xED\\xA0\\x80\\xED\\xBF\\xBF");
    EXPECT_EQ(shown("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(shown("\xF8\x88\x80\x80\x80"), "\\xF8\\x88\\x80\\x80\\x80");
}

TEST(LogTextTest, LetterThatIsCutShortLeavesTheNextOneAlone) {
    EXPECT_EQ(shown("\xC3"), "\\xC3");
    EXPECT_EQ(shown("\xE2\x82"), "\\xE2\\x82");
    EXPECT_EQ(shown("\xE2\x82z"), "\\xE2\\x82z");
    EXPECT_EQ(shown("\xF0\x9F\x98\xC3\xA9"), "\\xF0\\x9F\\x98\xC3\xA9");
    EXPECT_EQ(shown("\xC3\n"), "\\xC3\\x0A");
}

TEST(LogTextTest, BufferIsUsedAgain) {
    std::string buffer;
    EXPECT_EQ(logging::printable("one\n", buffer), "one\\x0A");
    EXPECT_EQ(logging::printable("\ntwo", buffer), "\\x0Atwo");
}

}  // namespace
