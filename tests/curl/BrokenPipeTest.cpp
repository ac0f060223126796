// SPDX-License-Identifier: MIT
#include "kel-http/curl/BrokenPipe.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace kel::http {
namespace {

int brokenPipesHeard = 0;

void hearBrokenPipe(int /*signal*/) {
    ++brokenPipesHeard;
}

bool isBrokenPipeBlocked() {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, SIGPIPE) == 1;
}

class BrokenPipeTest : public testing::Test {
 protected:
    BrokenPipeTest() : earlier(std::signal(SIGPIPE, &hearBrokenPipe)) { brokenPipesHeard = 0; }
    ~BrokenPipeTest() override { std::signal(SIGPIPE, earlier); }

    static void writeToAPeerThatHasGone() {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        close(ends[1]);
        EXPECT_EQ(write(ends[0], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
        close(ends[0]);
    }

    void (*const earlier)(int);
};

TEST_F(BrokenPipeTest, IsNotHeardWhileItIsGuarded) {
    {
        const BrokenPipeGuard guard;
        writeToAPeerThatHasGone();
        EXPECT_TRUE(isBrokenPipeBlocked());
    }
    EXPECT_FALSE(isBrokenPipeBlocked());
    EXPECT_EQ(brokenPipesHeard, 0);
}

TEST_F(BrokenPipeTest, IsHeardBeforeAndAfterwards) {
    writeToAPeerThatHasGone();
    EXPECT_EQ(brokenPipesHeard, 1);
    { const BrokenPipeGuard guard; }
    writeToAPeerThatHasGone();
    EXPECT_EQ(brokenPipesHeard, 2);
}

TEST_F(BrokenPipeTest, ThatWasWaitingBeforeWaitsOn) {
    {
        const BrokenPipeGuard outer;
        writeToAPeerThatHasGone();
        {
            const BrokenPipeGuard inner;
            writeToAPeerThatHasGone();
        }
        EXPECT_TRUE(isBrokenPipeBlocked());
        sigset_t pending;
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    }
    EXPECT_EQ(brokenPipesHeard, 0);
}

}  // namespace
}  // namespace kel::http
