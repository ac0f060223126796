// SPDX-License-Identifier: MIT
#include "kel-http/TimingData.h"

#include <gtest/gtest.h>

namespace kel::http {
namespace {

static_assert(sizeof(TimingData) == 7 * sizeof(std::int64_t));

TEST(TimingDataTest, FiguresStandInTheOrderOfTheSteps) {
    const TimingData timing{1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(timing.namelookup, 1);
    EXPECT_EQ(timing.connect, 2);
    EXPECT_EQ(timing.appconnect, 3);
    EXPECT_EQ(timing.pretransfer, 4);
    EXPECT_EQ(timing.starttransfer, 5);
    EXPECT_EQ(timing.total, 6);
    EXPECT_EQ(timing.redirect, 7);
}

}  // namespace
}  // namespace kel::http
