// SPDX-License-Identifier: MIT
#include "kel-http/curl/Hooks.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

#include "fixture/EngineTest.h"

// This program's own hooks take the place of the library's.
namespace {

std::atomic<bool> refuse_handles{false};
std::atomic<std::size_t> performs{0};
std::atomic<ko::thread_id> hook_thread{ko::invalid_thread_id};
kel::http::test::EventLog hooks;

}  // namespace

void engine_request_added() {
    hook_thread = ko::this_thread::get_id();
    hooks.add("added");
}

CURLMcode engine_curl_multi_add_handle(void* multi, void* easy) {
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

TEST_F(HooksTest, RequestThatCouldNotBeSetUpIsNotAdded) {
    RequestConfig config = get();
    config.headers[""] = "x";
    run(config)->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(hooks.events(), IsEmpty());
}

// The engine is the dying process's own: a fork would have none of an earlier one's thread.
TEST(HooksDeathTest, RefusedHandleStopsTheProcess) {
    EXPECT_EXIT(
        {
            const Engine engine([](const std::function<void()>& completion) { completion(); });
            refuse_handles = true;
            RequestConfig config;
            config.url = "http://127.0.0.1/";
            std::make_shared<RecordingRequest>(config)->runRequest();
            pause();
        },
        testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace kel::http::test
