// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kel::http::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(HeaderCheckTest, OrdinaryHeadersHaveNoFault) {
    EXPECT_EQ(headerFault("X-Name", "value"), "");
    EXPECT_EQ(headerFault("X-Name", ""), "");
    EXPECT_EQ(headerFault("X-Name", "tab\tand \xC3\xA9: fine"), "");
}

TEST(HeaderCheckTest, EmptyNameIsAFault) {
    EXPECT_EQ(headerFault("", "value"), "A request header has an empty name: remove it or name it");
}

TEST(HeaderCheckTest, ValueWithALineBreakOrZeroByteIsAFaultThatNamesTheHeaderOnly) {
    for (const std::string& value : {std::string("token\r"), std::string("token\n"), std::string("token\r\nX-Evil: 1"),
                                     std::string("tok\0en", 6)}) {
        EXPECT_EQ(headerFault("X-Token", value),
                  "The value of request header 'X-Token' holds a line break or a zero byte: remove it");
    }
}

TEST(HeaderCheckTest, NameWithALineBreakOrZeroByteIsToldUpToThere) {
    for (const std::string& name : {std::string("X-Name\r"), std::string("X-Name\nX"), std::string("X-Name\0b", 8)}) {
        EXPECT_EQ(headerFault(name, "value"),
                  "The name of request header 'X-Name' holds a line break or a zero byte: remove it");
    }
}

TEST(HeaderCheckTest, WholeHeaderReadIntoTheNameDoesNotTellItsValue) {
    EXPECT_THAT(headerFault("Authorization: Bearer secret\n", ""), Not(HasSubstr("secret")));
    EXPECT_THAT(headerFault("Authorization: Bearer secret", "x\n"), Not(HasSubstr("secret")));
}

}  // namespace
}  // namespace kel::http::test
