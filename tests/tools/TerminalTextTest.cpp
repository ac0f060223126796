// SPDX-License-Identifier: MIT
#include "common/TerminalText.h"

#include <gtest/gtest.h>

namespace kel::http::tool {
namespace {

TEST(PrintableTest, LettersOfAllScriptsStay) {
    for (const char* const text : {"", "image.bin", "gr\u00f6\u00dfe", "\u56fa\u4ef6", "\U0001f4e6", "\u00a0"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(PrintableTest, ControlCharactersAreReplaced) {
    EXPECT_EQ(printable("a\x1b[2J\n\x7f"), "a?[2J??");
    EXPECT_EQ(printable("a\xc2\x9b"
                        "2J\xc2\x80"),
              "a?2J?");
}

TEST(PrintableTest, WhatIsNoUtf8IsReplacedByteByByte) {
    EXPECT_EQ(printable("gr\xf6\xdf"
                        "e"),
              "gr??e");
    EXPECT_EQ(printable("\x9b"
                        "2J"),
              "?2J");
    EXPECT_EQ(printable("cut \xe5\x9b"), "cut ??");
    EXPECT_EQ(printable("longer than need be \xc1\x9b"), "longer than need be ??");
    EXPECT_EQ(printable("\xed\xa0\x80 \xf4\x90\x80\x80 \xff"), "??? ???? ?");
}

TEST(ColumnsTest, AreThoseOnTheScreen) {
    EXPECT_EQ(columns_of(""), 0U);
    EXPECT_EQ(columns_of("image.bin"), 9U);
    EXPECT_EQ(columns_of("gr\u00f6\u00dfe"), 5U);
    EXPECT_EQ(columns_of("gro\u0308\u00dfe"), 5U);
    EXPECT_EQ(columns_of("\u56fa\u4ef6.bin"), 8U);
    EXPECT_EQ(columns_of("\ud55c\uae00\U0001f4e6"), 6U);
}

TEST(ColumnsTest, AnEndHasWholeLettersOnly) {
    EXPECT_EQ(last_columns("gr\u00f6\u00dfe", 3), "\u00f6\u00dfe");
    EXPECT_EQ(last_columns("\u56fa\u4ef6\u66f4", 6), "\u56fa\u4ef6\u66f4");
    EXPECT_EQ(last_columns("\u56fa\u4ef6\u66f4", 3), "\u66f4");
    EXPECT_EQ(last_columns("\u56fa", 0), "");
}

}  // namespace
}  // namespace kel::http::tool
