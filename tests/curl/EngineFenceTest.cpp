// SPDX-License-Identifier: MIT
// Hooks that throw, each in the middle of a transfer: they end their own one, and nobody else notices.
#include <new>
#include <stdexcept>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

enum class Hook { header, address, data, progress };

struct ThrowingRequest : RecordingRequest {
    ThrowingRequest(const RequestConfig& request_config, Hook throwing_hook, std::function<void()> how)
        : RecordingRequest(request_config), hook(throwing_hook), fail(std::move(how)) {}

    void notifyHeader(std::string_view line) override {
        if (hook == Hook::header) fail();
        RecordingRequest::notifyHeader(line);
    }
    void notifyRemoteAddr(std::string address, long port) override {
        if (hook == Hook::address) fail();
        RecordingRequest::notifyRemoteAddr(std::move(address), port);
    }
    int notifyDataReceived(std::string_view data) override {
        if (isPaused()) return 1;
        if (hook == Hook::data) fail();
        return RecordingRequest::notifyDataReceived(data);
    }
    void reportDownloadProgress(unsigned int total, unsigned int received) override {
        if (hook == Hook::progress && outcome.count() == 0) fail();
        RecordingRequest::reportDownloadProgress(total, received);
    }

    const Hook hook;
    const std::function<void()> fail;
};

class EngineFenceTest : public EngineTest {
 protected:
    EngineFenceTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
        startEngine();
    }

    std::vector<std::string> outcomeWith(Hook hook, const std::function<void()>& how) {
        const auto request = std::make_shared<ThrowingRequest>(get(), hook, how);
        request->runRequest();
        request->outcome.awaitCount(1);
        expectOthersAreServed();
        return request->outcome.events();
    }

    void expectOthersAreServed() {
        const auto other = run(get());
        other->outcome.awaitCount(1);
        EXPECT_THAT(other->outcome.events(), ElementsAre("end"));
    }
};

TEST_F(EngineFenceTest, AHookThatThrowsEndsItsTransferAndIsNamed) {
    const auto bug = [] { throw std::logic_error("bug"); };
    EXPECT_THAT(outcomeWith(Hook::header, bug),
                ElementsAre("failure 2: The request's hook for taking a header failed: bug"));
    EXPECT_THAT(outcomeWith(Hook::address, bug),
                ElementsAre("failure 2: The request's hook for taking a header failed: bug"));
    EXPECT_THAT(outcomeWith(Hook::data, bug), ElementsAre("failure 2: The request's hook for taking data failed: bug"));
    EXPECT_THAT(outcomeWith(Hook::progress, bug),
                ElementsAre("failure 2: The request's hook for taking progress failed: bug"));
}

TEST_F(EngineFenceTest, WhatIsNoExceptionOfTheStandardIsFencedAsWell) {
    EXPECT_THAT(outcomeWith(Hook::header, [] { throw 4711; }),
                ElementsAre("failure 2: The request's hook for taking a header failed: it threw something unknown"));
}

TEST_F(EngineFenceTest, WantOfMemoryIsToldAsSuch) {
    for (const Hook hook : {Hook::header, Hook::address, Hook::data, Hook::progress}) {
        EXPECT_THAT(outcomeWith(hook, [] { throw std::bad_alloc(); }), ElementsAre("failure 2: Out of memory"));
    }
}

TEST_F(EngineFenceTest, ARuntimeErrorOfTheDataHookIsAFailedWrite) {
    EXPECT_THAT(outcomeWith(Hook::data, [] { throw std::runtime_error("disk full"); }),
                ElementsAre("failure 7: " + std::string(curl_easy_strerror(CURLE_WRITE_ERROR))));
    // Elsewhere it is one of many.
    EXPECT_THAT(outcomeWith(Hook::progress, [] { throw std::runtime_error("disk full"); }),
                ElementsAre("failure 2: The request's hook for taking progress failed: disk full"));
}

TEST_F(EngineFenceTest, WhatIsThrownWhileATransferIsResumedEndsIt) {
    for (const bool memory : {false, true}) {
        server.enqueue(Reply(200).body("first half").stallBeforeEnd());
        const auto request = std::make_shared<ThrowingRequest>(get(), Hook::data, [memory] {
            if (memory) throw std::bad_alloc();
            throw std::logic_error("bug");
        });
        request->pauseRequest();
        request->runRequest();
        request->hooks.await("header ");
        drain();
        request->resumeRequest();
        request->outcome.awaitCount(1);
        EXPECT_THAT(request->outcome.events(),
                    ElementsAre(memory ? "failure 2: Out of memory"
                                       : "failure 2: The request's hook for taking data failed: bug"));
        expectOthersAreServed();
    }
}

TEST_F(EngineFenceTest, TheLogTellsWhyATransferWasEnded) {
    const LogCapture log("HttpClient", 1);
    outcomeWith(Hook::data, [] { throw std::logic_error("bug"); });
    EXPECT_TRUE(log.contains("The transfer has been ended: The request's hook for taking data failed: bug"));
}

}  // namespace
}  // namespace kel::http::test
