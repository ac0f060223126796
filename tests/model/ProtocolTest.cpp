// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <limits>

#include "kel-http/protocol.h"

namespace kel::http::protocol {
namespace {

TEST(ProtocolTest, ValidStatusIs100To599) {
    EXPECT_FALSE(valid_status(99));
    EXPECT_TRUE(valid_status(100));
    EXPECT_TRUE(valid_status(599));
    EXPECT_FALSE(valid_status(600));
    EXPECT_FALSE(valid_status(0));
    EXPECT_FALSE(valid_status(-1));
    EXPECT_FALSE(valid_status(std::numeric_limits<long>::min()));
    EXPECT_FALSE(valid_status(std::numeric_limits<long>::max()));
}

TEST(ProtocolTest, SuccessStatusIs100To399) {
    EXPECT_FALSE(success_status(0));
    EXPECT_FALSE(success_status(99));
    EXPECT_TRUE(success_status(100));
    EXPECT_TRUE(success_status(302));
    EXPECT_TRUE(success_status(399));
    EXPECT_FALSE(success_status(400));
    EXPECT_FALSE(success_status(4294967295U));
}

TEST(ProtocolTest, AuthFailureIs401And403And407AndNothingElse) {
    for (unsigned int status = 0; status < 1000; ++status) {
        EXPECT_EQ(auth_failure(status), status == 401 || status == 403 || status == 407) << status;
    }
}

TEST(ProtocolTest, OkStatusIs200To299) {
    EXPECT_FALSE(ok_status(199));
    EXPECT_TRUE(ok_status(200));
    EXPECT_TRUE(ok_status(299));
    EXPECT_FALSE(ok_status(300));
    EXPECT_FALSE(ok_status(0));
}

}  // namespace
}  // namespace kel::http::protocol
