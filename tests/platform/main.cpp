// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "support/Emulator.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // The tests of what holds before the first configure() need a process in which nobody has called it.
    GTEST_FLAG_SET(death_test_style, kel::http::test::deathTestStyle());
    return RUN_ALL_TESTS();
}
