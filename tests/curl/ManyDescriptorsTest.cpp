// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>

#include "curl/Interposed.h"
#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "support/FileDescriptor.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::StartsWith;

// Descriptors beyond what select(2) can take. A wait that overlooks one ends with a timer only, too late for the one
// deadline of all tests.
class ManyDescriptorsTest : public EngineTest {
 protected:
    ManyDescriptorsTest() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit raised = before_;
        raised.rlim_cur = raised.rlim_max;
        setrlimit(RLIMIT_NOFILE, &raised);
        server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
    }
    ~ManyDescriptorsTest() override {
        stopEngine();
        releaseDescriptors();
        setrlimit(RLIMIT_NOFILE, &before_);
    }

    void SetUp() override {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        if (limit.rlim_cur < 2048) GTEST_SKIP() << "this process may not open 2048 descriptors";
    }

    void holdDescriptors() {
        for (int i = 0; i < 1100; ++i) held_.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_GE(held_.back().get(), FD_SETSIZE);
    }

    void releaseDescriptors() { held_.clear(); }

    void releaseDescriptor(int descriptor) {
        for (FileDescriptor& held : held_) {
            if (held.get() == descriptor) held.reset();
        }
    }

    void expectService() {
        std::vector<RecordingRequestPtr> requests;
        for (int i = 0; i < 20; ++i) requests.push_back(run(get()));
        for (const auto& request : requests) {
            request->outcome.await("end");
            EXPECT_EQ(request->body(), "body");
        }
        server.enqueue(Reply(200).drip({"a", "b", "c", "d"}));
        const auto dripping = run(get());
        for (std::size_t i = 0; i < 3; ++i) {
            dripping->hooks.await("data 1", i + 1);
            server.release();
        }
        dripping->outcome.await("end");
        EXPECT_EQ(dripping->body(), "abcd");
    }

    Interposed interposed;

 private:
    rlimit before_{};
    std::vector<FileDescriptor> held_;
};

TEST_F(ManyDescriptorsTest, FewDescriptorsAreWaitedForWithSelect) {
    startEngine();
    expectService();
    EXPECT_GT(interposed.selects(), 0U);
    EXPECT_THAT(interposed.calls().events(), Contains(StartsWith("wait ")).Times(0));
}

TEST_F(ManyDescriptorsTest, EngineThatStartsBeyondTheLimitServes) {
    holdDescriptors();
    startEngine();
    expectService();
    EXPECT_EQ(interposed.selects(), 0U);
    interposed.calls().await("wait 30000");
}

// The engine opens some descriptors, of which one wakes it up: each in turn is the first that a set has no room for.
TEST_F(ManyDescriptorsTest, EngineThatStartsAtTheLimitServes) {
    for (int before = 0; before < 4; ++before) {
        holdDescriptors();
        for (int i = 0; i <= before; ++i) releaseDescriptor(FD_SETSIZE - i);
        startEngine();
        expectService();
        EXPECT_LE(interposed.mostSelected(), FD_SETSIZE) << before;
        stopEngine();
        releaseDescriptors();
    }
}

TEST_F(ManyDescriptorsTest, EngineThatComesBeyondTheLimitServes) {
    startEngine();
    onEngineThread([] {});
    holdDescriptors();
    expectService();
    const std::size_t selects = interposed.selects();
    expectService();
    EXPECT_EQ(interposed.selects(), selects);
}

TEST_F(ManyDescriptorsTest, AnotherEngineStartsWithSelectAgain) {
    startEngine();
    onEngineThread([] {});
    holdDescriptors();
    expectService();
    stopEngine();
    releaseDescriptors();
    const std::size_t selects = interposed.selects();
    startEngine();
    expectService();
    EXPECT_GT(interposed.selects(), selects);
}

TEST_F(ManyDescriptorsTest, NameIsLookedUpBeyondTheLimit) {
    startEngine();
    onEngineThread([] {});
    holdDescriptors();
    interposed.holdNames();
    RequestConfig config;
    config.url = "http://kel.example:" + std::to_string(server.port()) + "/";
    const auto request = run(config);
    interposed.calls().await("resolve kel.example");
    drain();
    interposed.releaseNames();
    request->outcome.await("end");
    EXPECT_EQ(request->body(), "body");
}

TEST_F(ManyDescriptorsTest, PollWaitsAsLongAsSelectWould) {
    holdDescriptors();
    startEngine();
    const auto awaitWait = [this](const std::string& call) {
        const std::size_t before = interposed.calls().count(call);
        onEngineThread([] {});
        interposed.calls().await(call, before + 1);
    };
    interposed.setTimer(-1);
    awaitWait("wait 30000");
    interposed.setTimer(5);
    awaitWait("wait 5");
    interposed.setTimer(60999);
    awaitWait("wait 60999");
    interposed.setTimer(70000);
    awaitWait("wait 60000");
}

TEST_F(ManyDescriptorsTest, TlsIsServedBeyondTheLimit) {
    NginxServer::Options options;
    options.tls = true;
    const TestHost host(withTestDevice);
    const NginxServer nginx(options);
    startEngine();
    onEngineThread([] {});
    holdDescriptors();
    RequestConfig config;
    config.url = nginx.tlsUrl("/redirect/5");
    config.tls_verify = false;
    const auto request = run(config);
    request->outcome.await("end");
    EXPECT_EQ(request->body(), "arrived");
}

TEST_F(ManyDescriptorsTest, CancelAndEndWorkBeyondTheLimit) {
    holdDescriptors();
    startEngine();
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    const auto cancelled = run(get());
    cancelled->hooks.await("data 10");
    cancelled->tryToCancelRequest();
    server.awaitPeerClosed(1);
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    const auto unfinished = run(get());
    unfinished->hooks.await("data 10");
    stopEngine();
    EXPECT_EQ(cancelled->outcome.count() + unfinished->outcome.count(), 0U);
}

}  // namespace
}  // namespace kel::http::test
