// SPDX-License-Identifier: MIT
#include "ko/random.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace {

TEST(RandomTest, OneThreadKeepsItsEngine) {
    std::minstd_rand0& engine = ko::randint_e_();
    EXPECT_EQ(&engine, &ko::randint_e_());
    engine.seed(1);
    EXPECT_EQ(16807U, ko::randint_e_()());
    EXPECT_EQ(282475249U, ko::randint_e_()());
}

TEST(RandomTest, ThreadsAreSeededEachForItself) {
    std::set<std::minstd_rand0::result_type> first_draws;
    for (int i = 0; i < 8; ++i) std::thread([&first_draws] { first_draws.insert(ko::randint_e_()()); }).join();
    EXPECT_GT(first_draws.size(), 1U);
}

TEST(RandomTest, AnotherThreadHasAnotherEngine) {
    std::minstd_rand0* other = nullptr;
    std::minstd_rand0& own = ko::randint_e_();
    bool distinct = false;
    std::thread([&] {
        other = &ko::randint_e_();
        distinct = other != &own;
    }).join();
    EXPECT_TRUE(distinct);
}

TEST(RandomTest, EngineTurnsASeedOfZeroIntoOne) {
    EXPECT_EQ(std::minstd_rand0(1), std::minstd_rand0(0));
    EXPECT_EQ(std::minstd_rand0(1), std::minstd_rand0(2147483647));
    EXPECT_EQ(std::minstd_rand0(5), std::minstd_rand0(2147483647U + 5U));
}

}  // namespace
