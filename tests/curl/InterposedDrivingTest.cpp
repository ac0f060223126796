// SPDX-License-Identifier: MIT
// How the engine waits for many transfers, and for few.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "curl/Interposed.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

// Waits for it on the connection of this process to the port.
void awaitDataFrom(std::uint16_t port) {
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        sockaddr_in peer{};
        socklen_t length = sizeof(peer);
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
        if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != port) continue;
        pollfd readable{descriptor, POLLIN, 0};
        EXPECT_EQ(poll(&readable, 1, 30000), 1);
        return;
    }
    ADD_FAILURE() << "there is no connection to " << port;
}

class InterposedDrivingTest : public EngineTest {
 protected:
    InterposedDrivingTest() {
        server.onRequest([](const ReceivedRequest& request) {
            return request.target == "/silent" ? Reply(200).stallBeforeHeaders() : Reply(200).body("body");
        });
        startEngine();
    }
    ~InterposedDrivingTest() override { stopEngine(); }

    void beSilent(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) silent.push_back(run(get("/silent")));
        server.awaitRequests(count);
        onEngineThread([] {});
    }

    // Between two tasks there is a wait.
    std::size_t selectsDuringTasks(int tasks) {
        const std::size_t before = interposed.selects();
        for (int i = 0; i < tasks; ++i) onEngineThread([] {});
        return interposed.selects() - before;
    }

    Interposed interposed;
    std::vector<RecordingRequestPtr> silent;
};

TEST_F(InterposedDrivingTest, FewAreWaitedForWithSelect) {
    beSilent(16);
    EXPECT_GE(selectsDuringTasks(10), 9U);
    run(get())->outcome.await("end");
}

TEST_F(InterposedDrivingTest, ManyAreWaitedForByEvents) {
    beSilent(17);
    onEngineThread([] {});
    EXPECT_EQ(selectsDuringTasks(10), 0U);
    run(get())->outcome.await("end");
    EXPECT_EQ(selectsDuringTasks(10), 0U);
}

TEST_F(InterposedDrivingTest, WhenFewAreLeftTheEngineGoesBackToSelect) {
    beSilent(20);
    for (std::size_t i = 0; i < 13; ++i) silent[i]->tryToCancelRequest();
    onEngineThread([] {});
    EXPECT_GE(selectsDuringTasks(10), 9U);
    run(get())->outcome.await("end");
    for (std::size_t i = 13; i < silent.size(); ++i) EXPECT_EQ(silent[i]->outcome.count(), 0U);
}

TEST_F(InterposedDrivingTest, RequestsBesideManyEndAsUsual) {
    beSilent(40);
    for (int i = 0; i < 30; ++i) run(get())->outcome.await("end");
    RequestConfig impatient = get("/silent");
    impatient.timeout = std::chrono::milliseconds(50);
    const RecordingRequestPtr late = run(impatient);
    late->outcome.awaitCount(1);
    EXPECT_THAT(late->outcome.events(), testing::ElementsAre(testing::StartsWith("failure 3: ")));
    server.release(silent.size() + 1);
    for (const RecordingRequestPtr& request : silent) request->outcome.await("end");
}

TEST_F(InterposedDrivingTest, WithoutRoomForSocketsTheEngineWaitsWithSelect) {
    interposed.failEpoll();
    beSilent(20);
    EXPECT_GE(selectsDuringTasks(10), 9U);
    run(get())->outcome.await("end");
}

TEST_F(InterposedDrivingTest, WhenTheRoomForSocketsEndsTheEngineGoesBackToSelect) {
    beSilent(20);
    EXPECT_EQ(selectsDuringTasks(10), 0U);
    interposed.failEpoll();
    run(get())->outcome.await("end");
    EXPECT_GE(selectsDuringTasks(10), 9U);
    server.release(silent.size());
    for (const RecordingRequestPtr& request : silent) request->outcome.await("end");
}

// Looking at all of them, libcurl tells of no socket that it opens: nobody would wait for it.
TEST_F(InterposedDrivingTest, ARedirectThatIsReadWhenAllAreLookedAtIsNotLate) {
    beSilent(20);
    ScriptedServer first;
    first.enqueue(Reply::redirect(server.url()).stallBeforeHeaders());
    RequestConfig redirected;
    redirected.url = first.url();
    const RecordingRequestPtr led = run(redirected);
    first.awaitRequests(1);
    onEngineThread([] {});
    interposed.beforePerform([this, &first] {
        first.release();
        awaitDataFrom(first.port());
        interposed.setTimer(3600000);  // libcurl looks after new connections by itself from time to time
    });
    // It has no connection yet, the end of which would tell.
    interposed.holdNames();
    RequestConfig impatient;
    impatient.url = "http://host.invalid/";
    impatient.timeout = std::chrono::milliseconds(50);
    const RecordingRequestPtr late = run(impatient);
    late->outcome.awaitCount(1);
    led->outcome.await("end");
    EXPECT_EQ(led->body(), "body");
    interposed.releaseNames();
}

TEST_F(InterposedDrivingTest, AnAddressThatRefusesIsFollowedByAnotherRequestAtOnce) {
    beSilent(20);
    RequestConfig refused = get();
    refused.url = "http://127.0.0.1:1/";
    run(refused)->outcome.awaitCount(1);
    run(get())->outcome.await("end");
}

}  // namespace
}  // namespace kel::http::test
