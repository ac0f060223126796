// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineWait.h"

#include <gtest/gtest.h>
#include <sys/select.h>

#include <chrono>
#include <thread>

#include "support/Deadline.h"

namespace kel::http::test {
namespace {

using Clock = std::chrono::steady_clock;

class EngineWaitTest : public ::testing::Test {
 protected:
    EngineWaitTest() : multi(curl_multi_init()) {}
    ~EngineWaitTest() override { curl_multi_cleanup(multi); }

    // Nothing else ends a wait before libcurl's timer, of which there is none: that would be after 30 s.
    void waitUntilWoken() {
        const auto begin = Clock::now();
        waiting.wait(multi);
        EXPECT_LT(Clock::now() - begin, Deadline);
    }

    CURLM* const multi;
    EngineWait waiting{*logging::getLogger("HttpClient", 0)};
};

TEST_F(EngineWaitTest, AWakeUpBeforeEndsTheNextWait) {
    ASSERT_TRUE(waiting.canWakeUp());
    waiting.wakeUp();
    waitUntilWoken();
}

TEST_F(EngineWaitTest, AWakeUpOfAnotherThreadEndsTheWait) {
    std::thread other([this] { waiting.wakeUp(); });
    waitUntilWoken();
    other.join();
}

TEST_F(EngineWaitTest, BeyondSelectAWakeUpEndsTheWaitAsWell) {
    waiting.watch(FD_SETSIZE);
    waiting.wakeUp();
    waitUntilWoken();
    std::thread other([this] { waiting.wakeUp(); });
    waitUntilWoken();
    other.join();
}

TEST_F(EngineWaitTest, DescriptorsThatFitChangeNothing) {
    waiting.watch(0);
    waiting.watch(FD_SETSIZE - 1);
    waiting.wakeUp();
    waitUntilWoken();
}

}  // namespace
}  // namespace kel::http::test
