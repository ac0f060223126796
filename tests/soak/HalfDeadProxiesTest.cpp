// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

#include "fixture/ClientTest.h"
#include "support/ClosedPort.h"
#include "support/CountingProxy.h"
#include "support/NginxServer.h"
#include "support/SquidServer.h"

namespace kel::http::test {
namespace {

using Behaviour = CountingProxy::Behaviour;
using Mode = Engine::ProxyConfigMode;

NginxServer::Options elsewhere() {
    NginxServer::Options options;
    options.family = Family::OtherIPv4;
    return options;
}

// Many requests at once whose lists of proxies are dead in part.
class HalfDeadProxiesTest : public ClientTest, public ::testing::WithParamInterface<Handler> {
 protected:
    HalfDeadProxiesTest() : ClientTest(GetParam()) {
        engine().setProxyConfig(Mode::PACUrl, "", "", "");
        nginx_.writeFile("hello", "hello");
        config_.url = nginx_.url("/hello");
        config_.proxies = {closedUrl(), refusing_.url(), closing_.url(), good_[0].url(), squid_.url(), good_[1].url()};
    }

    std::string closedUrl() const { return "http://127.0.0.1:" + std::to_string(closed_.port()); }

    // Each list begins at another proxy.
    void startRound() {
        executor.run([this] {
            for (unsigned i = 0; i < at_once_; ++i) {
                config_.proxies.splice(config_.proxies.end(), config_.proxies, config_.proxies.begin());
                client->start_request(
                    config_, {},
                    [this](Client::RequestId id, const ResponseData& data) {
                        responses_ += data.status == 200 && data.body == "hello" ? 1U : 0U;
                        note(id);
                    },
                    [this](Client::RequestId id, const ErrorData&) { note(id); });
            }
        });
    }

    // Executor thread.
    void note(Client::RequestId id) {
        ++outcomes_[id];
        if (outcomes_.size() % at_once_ == 0) rounds_.add("ended");
    }

    void expectOneOutcomeEach(unsigned requests) {
        drain();
        EXPECT_EQ(outcomes_.size(), requests);
        for (const auto& [id, count] : outcomes_) EXPECT_EQ(count, 1U) << id;
    }

    static constexpr unsigned at_once_ = 120;
    static constexpr unsigned round_count_ = 5;

    NginxServer nginx_{elsewhere()};
    SquidServer squid_;
    ClosedPort closed_;
    CountingProxy refusing_{Behaviour::Refuse};
    CountingProxy closing_{Behaviour::Close};
    std::array<CountingProxy, 2> good_;
    RequestConfig config_;
    EventLog rounds_;
    // Executor thread, and the test's once all has ended.
    std::map<Client::RequestId, unsigned> outcomes_;
    unsigned responses_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Handlers, HalfDeadProxiesTest, ::testing::Values(Handler::inline_call, Handler::posting),
                         [](const auto& tested) {
                             return tested.param == Handler::inline_call ? "inline" : "posting";
                         });

TEST_P(HalfDeadProxiesTest, EveryRequestEndsInOneResponse) {
    for (unsigned round = 1; round <= round_count_; ++round) {
        startRound();
        rounds_.await("ended", round);
    }
    expectOneOutcomeEach(at_once_ * round_count_);
    EXPECT_EQ(responses_, at_once_ * round_count_);
}

TEST_P(HalfDeadProxiesTest, EveryRequestEndsOnceWhileTheSettingChanges) {
    std::atomic<bool> done{false};
    std::thread changer([this, &done] {
        const std::array<std::pair<Mode, std::string>, 5> settings{{{Mode::PACUrl, ""},
                                                                    {Mode::Off, ""},
                                                                    {Mode::Manual, closedUrl()},
                                                                    {Mode::WPAD, ""},
                                                                    {Mode::Manual, good_[0].url()}}};
        for (std::size_t turn = 0; !done; ++turn) {
            const auto& [mode, url] = settings[turn % settings.size()];
            engine().setProxyConfig(mode, url, "user", "password");
            // Gives the engine a turn with this setting.
            onEngineThread([] {});
        }
    });
    for (unsigned round = 1; round <= round_count_; ++round) {
        startRound();
        rounds_.await("ended", round);
    }
    done = true;
    changer.join();
    expectOneOutcomeEach(at_once_ * round_count_);
}

}  // namespace
}  // namespace kel::http::test
