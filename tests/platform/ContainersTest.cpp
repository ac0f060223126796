// SPDX-License-Identifier: MIT
#include "ko/containers.h"

#include <gtest/gtest.h>

#include <unordered_map>

namespace {

const ko::containers::lc_hash hash;
const ko::containers::lc_equals equals;

TEST(ContainersTest, CaseOfAsciiLettersDoesNotCount) {
    EXPECT_TRUE(equals("Content-Type", "cONTENT-tYPE"));
    EXPECT_EQ(hash("Content-Type"), hash("cONTENT-tYPE"));
    EXPECT_TRUE(equals("ABCDEFGHIJKLMNOPQRSTUVWXYZ", "abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(hash("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), hash("abcdefghijklmnopqrstuvwxyz"));
}

TEST(ContainersTest, NeighboursOfTheLettersDoNotMatchEachOther) {
    EXPECT_FALSE(equals("@", "`"));
    EXPECT_FALSE(equals("[", "{"));
}

TEST(ContainersTest, BytesBeyondAsciiHaveToMatchExactly) {
    EXPECT_TRUE(equals("\xc3\xa4", "\xc3\xa4"));
    EXPECT_FALSE(equals("\xc3\x84", "\xc3\xa4"));
    EXPECT_FALSE(equals("\xc4", "\xe4"));
}

TEST(ContainersTest, LengthCountsAndZeroBytesDoNotEndAText) {
    EXPECT_FALSE(equals("Accept", "Accep"));
    EXPECT_TRUE(equals("", ""));
    EXPECT_EQ(hash(""), hash(""));
    EXPECT_FALSE(equals(std::string("a\0b", 3), std::string("a\0c", 3)));
    EXPECT_TRUE(equals(std::string("a\0b", 3), std::string("A\0B", 3)));
}

TEST(ContainersTest, MapFindsAKeyInAnyCaseAndKeepsItAsStored) {
    std::unordered_map<std::string, int, ko::containers::lc_hash, ko::containers::lc_equals> map;
    map["X-Test"] = 1;
    map["x-tEST"] = 2;
    ASSERT_EQ(1U, map.size());
    EXPECT_EQ("X-Test", map.begin()->first);
    EXPECT_EQ(2, map.at("X-TEST"));
}

}  // namespace
