// SPDX-License-Identifier: MIT
#include "kel-http/curl/Hooks.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "support/NginxServer.h"

// This program's own hooks take the place of the library's.
namespace {

std::atomic<bool> refuse_handles{false};
std::atomic<bool> add_foreign_handle{false};
std::atomic<bool> wants_sessions{false};
std::atomic<long> most_connections{0};  // no bound
std::atomic<std::size_t> performs{0};
std::atomic<ko::thread_id> hook_thread{ko::invalid_thread_id};
kel::http::test::EventLog hooks;

}  // namespace

void engine_request_added() {
    hook_thread = ko::this_thread::get_id();
    hooks.add("added");
}

CURLMcode engine_curl_multi_add_handle(void* multi, void* easy) {
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, most_connections.load());
    if (add_foreign_handle) {
        CURL* const foreign = curl_easy_init();
        curl_easy_setopt(foreign, CURLOPT_URL, "unknown://host/");  // fails without asking anybody
        curl_multi_add_handle(multi, foreign);
    }
    if (wants_sessions) curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, 1L);
    hooks.add(kel::http::Engine::getEngine()->lookupRequest(easy) ? "add" : "add of nobody's handle");
    return refuse_handles ? CURLM_BAD_EASY_HANDLE : curl_multi_add_handle(multi, easy);
}

CURLMcode engine_curl_multi_perform(void* multi, int* running) {
    ++performs;
    hook_thread = ko::this_thread::get_id();
    *running = -1;
    curl_multi_perform(multi, running);
    // Nobody looks at the result.
    return CURLM_INTERNAL_ERROR;
}

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class HooksTest : public EngineTest {
 protected:
    HooksTest() {
        hooks.clear();
        performs = 0;
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
        onEngineThread([this] { engine_thread = ko::this_thread::get_id(); });
    }
    ~HooksTest() override { stopEngine(); }

    ko::thread_id engine_thread = ko::invalid_thread_id;
};

TEST_F(HooksTest, EveryHandleIsAddedThroughTheHookAndReportedAfterwards) {
    for (int i = 0; i < 3; ++i) run(get())->outcome.await("end");
    EXPECT_THAT(hooks.events(), ElementsAre("add", "added", "add", "added", "add", "added"));
    EXPECT_EQ(hook_thread, engine_thread);
}

TEST_F(HooksTest, RequestWithProxiesIsAddedForEachOfThemAndNotReported) {
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    RequestConfig config = get();
    config.url = "ftp://127.0.0.2/";  // refused before anybody is asked
    config.proxies = {"http://first", "http://second"};
    run(config)->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(hooks.events(), ElementsAre("add", "add"));
}

TEST_F(HooksTest, EveryPassDrivesTheTransfersThroughTheHook) {
    const std::size_t before = performs;
    onEngineThread([] {});
    onEngineThread([] {});
    EXPECT_GT(performs, before);
    run(get())->outcome.await("end");
}

TEST_F(HooksTest, ManyTransfersAreDrivenThroughTheHookAsWell) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).stallBeforeHeaders(); });
    constexpr std::size_t many = 30;
    std::vector<RecordingRequestPtr> silent;
    for (std::size_t i = 0; i < many; ++i) silent.push_back(run(get()));
    server.awaitRequests(many);
    const std::size_t before = performs;
    for (int i = 0; i < 10; ++i) onEngineThread([] {});
    EXPECT_GE(performs, before + 9);  // one between two tasks
    server.release(many);
    for (const RecordingRequestPtr& request : silent) request->outcome.await("end");
}

TEST_F(HooksTest, ConnectionsInAllAreBoundedByAnOptionThatTheHookSets) {
    most_connections = 1;
    server.enqueue(Reply(200).stallBeforeHeaders());
    const RecordingRequestPtr first = run(get("/first"));
    server.awaitRequests(1);
    const RecordingRequestPtr waiting = run(get("/waiting"));
    // Its time-out runs meanwhile; libcurl alone would forget it.
    RequestConfig impatient = get("/impatient");
    impatient.timeout = std::chrono::milliseconds(100);
    const RecordingRequestPtr timedOut = run(impatient);
    timedOut->outcome.awaitCount(1);
    EXPECT_THAT(timedOut->outcome.events(), ElementsAre(::testing::StartsWith("failure 3: ")));
    EXPECT_EQ(waiting->outcome.count(), 0U);
    server.release();
    first->outcome.await("end");
    waiting->outcome.await("end");
    EXPECT_EQ(server.connectionCount(), 1U);
    most_connections = 0;
}

// It may have set options about TLS, which a session would carry to other transfers.
TEST_F(HooksTest, TransfersThatTheHookHasSeenResumeNoSessionsUnlessItSaysSo) {
    const TestHost host{withTestDevice};
    NginxServer::Options options;
    options.tls = true;
    options.http2 = false;
    options.directives =
        "ssl_session_cache shared:reused:1m; keepalive_timeout 0; location = /reused { return 200 "
        "'$ssl_session_reused'; }";
    const NginxServer nginx(options);
    RequestConfig config;
    config.url = nginx.tlsUrl("/reused");
    config.ca_file = TestCertificates::shared().caFile();
    const auto reused = [&config] {
        const RecordingRequestPtr made = run(config);
        made->outcome.await("end");
        return made->body();
    };
    for (int i = 0; i < 2; ++i) EXPECT_EQ(reused(), ".");
    wants_sessions = true;
    EXPECT_EQ(reused(), ".");
    EXPECT_EQ(reused(), "r");
    wants_sessions = false;
    EXPECT_EQ(reused(), ".");
}

TEST_F(HooksTest, RequestThatCouldNotBeSetUpIsNotAdded) {
    RequestConfig config = get();
    config.headers[""] = "x";
    run(config)->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(hooks.events(), IsEmpty());
}

TEST_F(HooksTest, RequestsThatAreQueuedWhenTheEngineEndsAreAddedAllTheSame) {
    std::vector<RecordingRequestPtr> requests;
    {
        const EngineHold hold(engine());
        for (int i = 0; i < 3; ++i) requests.push_back(run(get()));
        engine().requestTermination();
    }
    stopEngine();
    EXPECT_THAT(hooks.events(), ElementsAre("add", "added", "add", "added", "add", "added"));
    for (const RecordingRequestPtr& request : requests) EXPECT_THAT(request->hooks.events(), IsEmpty());
}

class HooksDeathTest : public testing::Test {
 protected:
    // Has the hook misbehave as `flag` says, until the process dies. The engine is the dying process's own: a fork
    // would have none of an earlier one's thread.
    static void runUntilDeath(std::atomic<bool>& flag) {
        const Engine engine([](const std::function<void()>& completion) { completion(); });
        flag = true;
        RequestConfig config;
        config.url = "http://127.0.0.1/";
        std::make_shared<RecordingRequest>(config)->runRequest();
        pause();
    }
};

TEST_F(HooksDeathTest, RefusedHandleStopsTheProcess) {
    EXPECT_EXIT(runUntilDeath(refuse_handles), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(HooksDeathTest, EndOfAHandleThatTheEngineDoesNotKnowStopsTheProcess) {
    EXPECT_EXIT(runUntilDeath(add_foreign_handle), testing::KilledBySignal(SIGABRT), "out_of_range.*map::at");
}

}  // namespace
}  // namespace kel::http::test
