// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>

#include "support/ClosedPort.h"
#include "support/Environment.h"
#include "support/EventLog.h"
#include "support/Files.h"
#include "support/OpenDescriptors.h"
#include "support/RawClient.h"
#include "support/SilentListener.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(EventLogTest, WaitsForEventsOfAnotherThread) {
    EventLog log;
    std::thread other([&log] {
        log.add("a");
        log.add("b");
        log.add("a");
    });
    log.await("a", 2);
    log.awaitCount(3);
    other.join();
    EXPECT_THAT(log.events(), ElementsAre("a", "b", "a"));
    EXPECT_EQ(log.count(), 3U);
    EXPECT_EQ(log.count("b"), 1U);
    log.clear();
    EXPECT_EQ(log.count(), 0U);
}

TEST(TemporaryDirectoryTest, IsNotRemovedByAFork) {
    auto directory = std::make_unique<TemporaryDirectory>();
    const pid_t fork_of_test = fork();
    ASSERT_GE(fork_of_test, 0);
    if (fork_of_test == 0) {
        directory.reset();
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(fork_of_test, &status, 0), fork_of_test);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(directory->path()));
}

TEST(TemporaryDirectoryTest, IsRemovedWithItsContent) {
    std::string path;
    {
        const TemporaryDirectory directory;
        path = directory.path();
        EXPECT_THAT(directory.names(), IsEmpty());
        writeWholeFile(directory.path("b"), "1");
        std::filesystem::create_directory(directory.path("a"));
        EXPECT_THAT(directory.names(), ElementsAre("a", "b"));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(FilesTest, UnfinishedLineIsLeftOut) {
    const TemporaryDirectory directory;
    writeWholeFile(directory.path("log"), "one\ntwo\nthr");
    EXPECT_THAT(readLines(directory.path("log")), ElementsAre("one", "two"));
    EXPECT_THROW(readWholeFile(directory.path("none")), std::runtime_error);
}

TEST(FilesTest, LinesOfAnotherThreadAreWaitedFor) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("log");
    writeWholeFile(path, "");
    std::thread other([&path] { writeWholeFile(path, "one\ntwo\n"); });
    EXPECT_THAT(awaitLines(path, 2), ElementsAre("one", "two"));
    other.join();
}

TEST(OpenDescriptorsTest, FindsTheOneThatHasBeenLost) {
    const OpenDescriptors before;
    EXPECT_THAT(before.opened(), IsEmpty());
    const FileDescriptor lost(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_THAT(before.opened(), ElementsAre(std::to_string(lost.get()) + " /dev/null"));
}

TEST(EnvironmentTest, ProxiesAreForgotten) {
    setenv("https_proxy", "http://127.0.0.1:1", 1);
    clearProxyEnvironment();
    EXPECT_EQ(getenv("https_proxy"), nullptr);
}

TEST(ClosedPortTest, RefusesConnections) {
    const ClosedPort closed;
    EXPECT_THROW(RawClient client(closed.port()), std::system_error);
}

TEST(SilentListenerTest, ConnectionsSucceed) {
    const SilentListener silent;
    RawClient client(silent.port());
    EXPECT_NO_THROW(client.get("/"));
}

TEST(SilentListenerTest, FullQueueLetsNobodyIn) {
    const SilentListener silent(SilentListener::Connects::Hang);
    FileDescriptor socket = bindToLoopback();
    ASSERT_EQ(fcntl(socket.get(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_FALSE(startToConnect(socket, silent.port()));
    pollfd connected{socket.get(), POLLOUT, 0};
    EXPECT_EQ(poll(&connected, 1, 0), 0);
}

}  // namespace
}  // namespace kel::http::test
