// SPDX-License-Identifier: MIT
#include "ko/to_hex.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(ToHexTest, EachByteGivesTwoLowerCaseDigits) {
    EXPECT_EQ("00010f107f80abff",
              ko::to_hex(std::vector<unsigned char>{0x00, 0x01, 0x0F, 0x10, 0x7F, 0x80, 0xAB, 0xFF}));
}

TEST(ToHexTest, NoBytesGiveNoText) {
    EXPECT_EQ("", ko::to_hex({}));
}

}  // namespace
