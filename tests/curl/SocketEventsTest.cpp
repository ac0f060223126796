// SPDX-License-Identifier: MIT
#include "kel-http/curl/SocketEvents.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kel::http::test {
namespace {

constexpr int forever = -1;

class SocketEventsTest : public ::testing::Test {
 protected:
    SocketEventsTest() : multi(curl_multi_init()), wakeup(eventfd(0, EFD_CLOEXEC)) {}
    ~SocketEventsTest() override {
        curl_multi_cleanup(multi);
        close(wakeup);
    }

    CURLM* const multi;
    const int wakeup;
    SocketEvents events;
};

TEST_F(SocketEventsTest, NothingIsOpenedBeforeItBegins) {
    EXPECT_FALSE(events.hasBegun());
    EXPECT_TRUE(events.works());
    EXPECT_TRUE(events.begin(multi, wakeup));
    EXPECT_TRUE(events.begin(multi, wakeup));
    EXPECT_TRUE(events.hasBegun());
}

TEST_F(SocketEventsTest, AWakeUpEndsTheWait) {
    ASSERT_TRUE(events.begin(multi, wakeup));
    eventfd_write(wakeup, 1);
    EXPECT_TRUE(events.drive(multi, forever));
}

TEST_F(SocketEventsTest, WithoutAnythingTheTimeEndsTheWait) {
    ASSERT_TRUE(events.begin(multi, wakeup));
    EXPECT_FALSE(events.drive(multi, 1));
}

TEST_F(SocketEventsTest, WhatCanNotBeWaitedForIsNoDescriptor) {
    EXPECT_FALSE(events.begin(multi, -1));
    EXPECT_FALSE(events.works());
    EXPECT_FALSE(events.begin(multi, wakeup));
}

TEST_F(SocketEventsTest, ASocketIsClosedAndToldOfOnce) {
    EXPECT_FALSE(events.hasLostOne());
    const int socket = dup(wakeup);
    events.open(socket);
    EXPECT_EQ(SocketEvents::close(&events, socket), 0);
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
    EXPECT_TRUE(events.hasLostOne());
    EXPECT_FALSE(events.hasLostOne());
}

TEST_F(SocketEventsTest, ASocketThatNobodyHasToldOfIsClosedAsWell) {
    const int socket = dup(wakeup);
    EXPECT_EQ(SocketEvents::close(&events, socket), 0);
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
}

}  // namespace
}  // namespace kel::http::test
