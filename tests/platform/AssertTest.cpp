// SPDX-License-Identifier: MIT
#include "ko/assert.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(AssertTest, TrueExpressionIsEvaluatedOnceAndGoesOn) {
    int count = 0;
    KO_ASSERT(++count == 1);
    EXPECT_EQ(1, count);
}

TEST(AssertTest, PointersAndSmartPointersCanBeAsserted) {
    const auto pointer = std::make_unique<int>(1);
    KO_ASSERT(pointer);
    KO_ASSERT(pointer.get());
}

TEST(AssertDeathTest, FalseExpressionPrintsWhereAndWhatAndAborts) {
    const int one = 1;
    EXPECT_EXIT(KO_ASSERT(one == 2), testing::KilledBySignal(SIGABRT),
                "tests/platform/AssertTest.cpp:[0-9]+: TestBody: Assertion 'one == 2' failed\\.\n");
}

TEST(AssertDeathTest, TextInAnExpressionIsPrintedAsWritten) {
    EXPECT_DEATH(KO_ASSERT(false && "no way\n"), "Assertion 'false && \"no way\\\\n\"' failed");
}

}  // namespace
