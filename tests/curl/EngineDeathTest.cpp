// SPDX-License-Identifier: MIT
#include <unistd.h>

#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

std::unique_ptr<Engine> makeEngine() {
    return std::make_unique<Engine>([](const std::function<void()>& completion) { completion(); });
}

TEST(EngineDeathTest, AskingForAnEngineThatIsNotThereStops) {
    EXPECT_DEATH(Engine::getEngine(), "kel-http/curl/Engine.*: getEngine: Assertion 'currentEngine' failed");
}

TEST(EngineDeathTest, AskingForAnEngineThatIsGoneStops) {
    EXPECT_DEATH(
        {
            makeEngine();
            Engine::getEngine();
        },
        "Assertion 'currentEngine' failed");
}

TEST(EngineDeathTest, SecondEngineStops) {
    EXPECT_DEATH(
        {
            const auto first = makeEngine();
            makeEngine();
        },
        "kel-http/curl/Engine.*Assertion '!currentEngine' failed");
}

TEST(EngineDeathTest, EngineDestroyedOnItsOwnThreadStops) {
    EXPECT_DEATH(
        {
            Engine* const engine = makeEngine().release();
            engine->queueRequest([engine] { delete engine; });
            pause();
        },
        "Assertion 'engineThread.get_id\\(\\) != ko::this_thread::get_id\\(\\)' failed");
}

TEST(EngineDeathTest, BodyBesideFormPartsStops) {
    EXPECT_DEATH(
        {
            const auto engine = makeEngine();
            RequestConfig config;
            config.method = Method::POST;
            config.url = "http://127.0.0.1/";
            config.body = "body";
            config.mime_parts.push_back({"name", "data", "", ""});
            std::make_shared<RecordingRequest>(config)->runRequest();
            pause();
        },
        "kel-http/curl/Engine.*Assertion 'request->config.body.empty\\(\\)' failed");
}

TEST(EngineDeathTest, EmptyCallbackHandlerStops) {
    EXPECT_DEATH(Engine({}), "kel-http/curl/Engine.*Assertion 'callbackHandler' failed");
}

}  // namespace
}  // namespace kel::http::test
