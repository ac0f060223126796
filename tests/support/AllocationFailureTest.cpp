// SPDX-License-Identifier: MIT
#include "support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <thread>

namespace kel::http::test {
namespace {

bool findsMemory() {
    try {
        std::make_unique<int>();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

TEST(AllocationFailureTest, OneAllocationFailsAlone) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    const FailAllocation failure(2);
    const bool first = findsMemory();
    const bool second = findsMemory();
    const bool third = findsMemory();
    EXPECT_TRUE(first && third);
    EXPECT_FALSE(second);
    EXPECT_EQ(failure.refused(), 1U);
}

TEST(AllocationFailureTest, AllFailFromOneOn) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    bool first = false;
    bool later = false;
    {
        const FailAllocation failure(2, FailAllocation::Extent::all);
        first = findsMemory();
        later = findsMemory() || findsMemory();
    }
    EXPECT_TRUE(first);
    EXPECT_FALSE(later);
    EXPECT_TRUE(findsMemory());
}

TEST(AllocationFailureTest, OtherThreadsGoOn) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    bool found = false;
    {
        std::thread made([&found] { found = findsMemory(); });
        const FailAllocation failure(1, FailAllocation::Extent::all);
        made.join();
    }
    EXPECT_TRUE(found);
}

}  // namespace
}  // namespace kel::http::test
