// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderList.h"

#include <gmock/gmock.h>

#include "support/DefaultMemory.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

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

// Which may be made for another thread only.
TEST(HeaderListTest, AProgramsMemoryResourceIsLeftAlone) {
    const DefaultMemory none(std::pmr::null_memory_resource());
    HeaderList list;
    list.reserve(100, 10000);
    for (int i = 0; i < 100; ++i) list.add("X-Name", std::string(100, 'v'));
    EXPECT_THAT(linesOf(list), SizeIs(100));
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
