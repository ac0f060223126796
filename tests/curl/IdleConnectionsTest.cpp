// SPDX-License-Identifier: MIT
#include "kel-http/curl/IdleConnections.h"

#include <gtest/gtest.h>

namespace kel::http::test {
namespace {

using std::chrono::milliseconds;

std::chrono::steady_clock::time_point idle_clock;

class IdleConnectionsTest : public ::testing::Test {
 protected:
    ~IdleConnectionsTest() override { curl_multi_cleanup(multi); }

    void attach(int count) {
        while (count-- > 0) connections.attach();
    }
    void detach(int count) {
        while (count-- > 0) connections.detach();
    }
    // A transfer that comes and goes.
    void pass() {
        attach(1);
        detach(1);
    }

    CURLM* const multi = curl_multi_init();
    IdleConnections connections{multi, [] { return idle_clock; }};
};

TEST_F(IdleConnectionsTest, SixteenAreKeptBesideThoseInUse) {
    EXPECT_EQ(connections.limit(), 16);
    attach(1);
    EXPECT_EQ(connections.limit(), 17);
    attach(99);
    EXPECT_EQ(connections.limit(), 116);
}

TEST_F(IdleConnectionsTest, ThoseThatWereInUseAMomentAgoAreKeptAsWell) {
    attach(100);
    idle_clock += milliseconds(999);
    detach(100);
    EXPECT_EQ(connections.limit(), 116);
    idle_clock += milliseconds(999);
    attach(1);
    EXPECT_EQ(connections.limit(), 116);
}

TEST_F(IdleConnectionsTest, AMomentLaterTheyAreNot) {
    attach(100);
    detach(99);
    idle_clock += milliseconds(1000);
    pass();
    EXPECT_EQ(connections.limit(), 116);
    idle_clock += milliseconds(1000);
    pass();
    EXPECT_EQ(connections.limit(), 18);
    attach(4);
    EXPECT_EQ(connections.limit(), 21);
}

TEST_F(IdleConnectionsTest, AfterALongSilenceOnlyThePresentCounts) {
    attach(100);
    detach(100);
    idle_clock += std::chrono::hours(1);
    pass();
    EXPECT_EQ(connections.limit(), 17);
}

}  // namespace
}  // namespace kel::http::test
