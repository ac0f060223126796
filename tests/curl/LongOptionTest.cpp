// SPDX-License-Identifier: MIT
#include "kel-http/curl/LongOption.h"

#include <gtest/gtest.h>

#include <limits>

namespace kel::http::test {
namespace {

constexpr auto largest_long = static_cast<std::uintmax_t>(std::numeric_limits<long>::max());

TEST(LongOptionTest, NumbersUpToTheLargestLongFit) {
    EXPECT_TRUE(fitsLongOption(0));
    EXPECT_TRUE(fitsLongOption(largest_long));
}

TEST(LongOptionTest, LargerNumbersDoNot) {
    EXPECT_FALSE(fitsLongOption(largest_long + 1));
    EXPECT_FALSE(fitsLongOption(std::numeric_limits<std::uintmax_t>::max()));
}

}  // namespace
}  // namespace kel::http::test
