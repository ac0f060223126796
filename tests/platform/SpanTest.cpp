// SPDX-License-Identifier: MIT
#include "ko/span.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <string>
#include <vector>

namespace {

using Bytes = ko::span<const unsigned char>;

TEST(SpanTest, DefaultViewIsEmpty) {
    const Bytes view;
    EXPECT_EQ(nullptr, view.data());
    EXPECT_EQ(0U, view.size());
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(view.begin(), view.end());
}

TEST(SpanTest, ViewsElementsWithoutCopyingThem) {
    std::vector<int> numbers{1, 2, 3};
    const ko::span<int> view(numbers);
    EXPECT_EQ(numbers.data(), view.data());
    EXPECT_EQ(3U, view.size());
    EXPECT_FALSE(view.empty());
    for (int& number : view) number *= 2;
    EXPECT_EQ((std::vector<int>{2, 4, 6}), numbers);
}

TEST(SpanTest, PointerAndSizeMakeAView) {
    const unsigned char bytes[] = {1, 2, 3, 4};
    const Bytes view(bytes, 2);
    EXPECT_EQ(3, std::accumulate(view.begin(), view.end(), 0));
}

TEST(SpanTest, ConstantContainersAndWritableViewsBecomeReadOnlyViews) {
    const std::array<unsigned char, 2> constant{1, 2};
    std::vector<unsigned char> writable{3, 4, 5};
    EXPECT_EQ(2U, Bytes(constant).size());
    EXPECT_EQ(3U, Bytes(writable).size());
    EXPECT_EQ(writable.data(), Bytes(ko::span<unsigned char>(writable)).data());
}

static_assert(!std::is_convertible_v<Bytes, ko::span<unsigned char>>, "a view does not lose const");
static_assert(!std::is_convertible_v<const std::vector<unsigned char>&, ko::span<unsigned char>>);
static_assert(!std::is_convertible_v<std::string&, Bytes>, "elements keep their type");

}  // namespace
