// SPDX-License-Identifier: MIT
#include "kel-http/client/BodyRoom.h"

#include <gtest/gtest.h>

#include <limits>

namespace kel::http {
namespace {

constexpr std::uint64_t MiB = 1024 * 1024;

std::size_t roomFor(std::size_t present, std::size_t bytes, std::uint64_t announced) {
    std::string body(present, 'x');
    body.shrink_to_fit();
    makeRoom(body, bytes, announced);
    EXPECT_EQ(body.size(), present);
    return body.capacity();
}

const std::size_t No_room = std::string().capacity();

TEST(BodyRoomTest, FirstPieceMakesRoomForAllThatIsAnnounced) {
    EXPECT_EQ(roomFor(0, 1000, 300'000), 300'000U);
    EXPECT_EQ(roomFor(0, 1000, 16 * MiB), 16 * MiB);
}

TEST(BodyRoomTest, PieceThatIsTheWholeBodyHasItsOwnRoom) {
    EXPECT_EQ(roomFor(0, 1000, 1000), 1000U);
    EXPECT_EQ(roomFor(600, 400, 1000), 1000U);
}

TEST(BodyRoomTest, AnnouncementAloneTakes16MiBAtMost) {
    EXPECT_EQ(roomFor(0, 1000, 16 * MiB + 1), 16 * MiB);
    EXPECT_EQ(roomFor(0, 1000, std::numeric_limits<std::int64_t>::max()), 16 * MiB);
}

TEST(BodyRoomTest, WhatHasArrivedByHalfIsDoubledUpToWhatIsAnnounced) {
    EXPECT_EQ(roomFor(16 * MiB, 1000, 100 * MiB), 32 * MiB);
    EXPECT_EQ(roomFor(16 * MiB, 1000, 20 * MiB), 20 * MiB);
    EXPECT_EQ(roomFor(16 * MiB, 17 * MiB, 100 * MiB), 33 * MiB);
}

TEST(BodyRoomTest, NothingIsMadeWhereNothingIsAnnounced) {
    EXPECT_EQ(roomFor(0, 1000, 0), No_room);
    EXPECT_EQ(roomFor(1000, 1000, 0), 1000U);
}

TEST(BodyRoomTest, NothingIsMadeForWhatIsAnnouncedTooSmall) {
    EXPECT_EQ(roomFor(0, 1000, 999), No_room);
    EXPECT_EQ(roomFor(2000, 1000, 2500), 2000U);
}

TEST(BodyRoomTest, NothingIsMadeForAPieceThatFits) {
    EXPECT_EQ(roomFor(0, No_room, 1000), No_room);
}

}  // namespace
}  // namespace kel::http
