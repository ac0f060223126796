// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Each death test in a process of its own from the start: a fork of a process with threads may hang, and the tests
    // of what holds before the first configure() need a process in which nobody has called it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
