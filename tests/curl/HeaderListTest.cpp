// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderList.h"

#include <gmock/gmock.h>

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> linesOf(HeaderList& list) {
    std::vector<std::string> lines;
    for (const curl_slist* line = list.link(); line != nullptr; line = line->next) lines.emplace_back(line->data);
    return lines;
}

TEST(HeaderListTest, EmptyListIsNone) {
    HeaderList list;
    EXPECT_EQ(list.link(), nullptr);
    list.reserve(3, 100);
    EXPECT_EQ(list.link(), nullptr);
}

TEST(HeaderListTest, LinesComeInOrderWhereverTheyStand) {
    HeaderList list;
    list.add("Constant: one");
    list.add("X-First", "1");
    list.add("X-Empty", "");
    list.add("Constant: two");
    list.add("X-Last", std::string(1000, 'v'));
    EXPECT_THAT(linesOf(list), ElementsAre("Constant: one", "X-First: 1", "X-Empty: ", "Constant: two",
                                           "X-Last: " + std::string(1000, 'v')));
}

TEST(HeaderListTest, ConstantLineIsNotCopied) {
    HeaderList list;
    const char* const line = "Constant: one";
    list.add(line);
    EXPECT_EQ(list.link()->data, line);
    EXPECT_EQ(list.link()->next, nullptr);
}

}  // namespace
}  // namespace kel::http::test
