// SPDX-License-Identifier: MIT
#include "kel-http/model/HeaderNodes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kel::http {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

std::string lines(std::size_t count, std::size_t bytes = 1) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text.append("Name-").append(std::to_string(i)).append(": ").append(bytes, 'x').append("\r\n");
    }
    return text;
}

std::set<const void*> addressesOf(const HeaderMap& headers) {
    std::set<const void*> addresses;
    for (const auto& header : headers) addresses.insert(&header);
    return addresses;
}

TEST(HeaderNodesTest, OfManyLinesTheHeadersAreTakenAndOfRepeatedOnesTheFirst) {
    HeaderNodes nodes;
    // The second time of the nodes of the first, of which there are too few, and then enough.
    for (int i = 0; i < 3; ++i) {
        HeaderMap headers =
            nodes.parse("HTTP/1.1 200 OK\r\nName: 1\r\nUnix: line\n: none\r\nOther:\r\nNAME: 2\r\n\r\nLast: cut");
        EXPECT_THAT(headers, UnorderedElementsAre(Pair("Name", "1"), Pair("Other", "")));
        if (i == 1) headers.emplace("X", "more");
        nodes.takeBack(headers);
        EXPECT_TRUE(headers.empty());
    }
    EXPECT_TRUE(nodes.parse("").empty());
}

TEST(HeaderNodesTest, WhatIsTakenBackServesTheNextMap) {
    HeaderNodes nodes;
    HeaderMap first = nodes.parse(lines(5));
    const std::set<const void*> addresses = addressesOf(first);
    nodes.takeBack(first);
    EXPECT_EQ(nodes.size(), 5U);
    HeaderMap second = nodes.parse("A: 1\r\na: 2\r\nB: 3\r\nC: 4\r\nD: 5\r\nE: 6\r\n");
    EXPECT_THAT(second,
                UnorderedElementsAre(Pair("A", "1"), Pair("B", "3"), Pair("C", "4"), Pair("D", "5"), Pair("E", "6")));
    EXPECT_EQ(addressesOf(second), addresses);
    EXPECT_EQ(nodes.size(), 0U);
}

TEST(HeaderNodesTest, MapsAtTheSameTimeShareNothing) {
    HeaderNodes nodes;
    HeaderMap first = nodes.parse(lines(3));
    HeaderMap second = nodes.parse(lines(3));
    nodes.takeBack(first);
    HeaderMap third = nodes.parse("Other: value\r\n");
    EXPECT_THAT(second, UnorderedElementsAre(Pair("Name-0", "x"), Pair("Name-1", "x"), Pair("Name-2", "x")));
    EXPECT_THAT(third, UnorderedElementsAre(Pair("Other", "value")));
}

TEST(HeaderNodesTest, LittleIsKept) {
    HeaderNodes nodes;
    HeaderMap many = nodes.parse(lines(HeaderNodes::most_kept + 10));
    nodes.takeBack(many);
    EXPECT_EQ(nodes.size(), HeaderNodes::most_kept);

    HeaderNodes others;
    HeaderMap large = others.parse(lines(3) + "Long: " + std::string(HeaderNodes::most_held_bytes + 1, 'x') + "\r\n");
    others.takeBack(large);
    EXPECT_EQ(others.size(), 3U);
}

TEST(HeaderNodesTest, AMapOfSomebodyElsesIsTakenAsWell) {
    HeaderNodes nodes;
    HeaderMap foreign = {{"Name", "value"}};
    nodes.takeBack(foreign);
    EXPECT_TRUE(foreign.empty());
    EXPECT_EQ(nodes.size(), 1U);
    EXPECT_THAT(nodes.parse("Name: other\r\n"), UnorderedElementsAre(Pair("Name", "other")));
}

}  // namespace
}  // namespace kel::http
