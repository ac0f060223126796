// SPDX-License-Identifier: MIT
// How long connections are kept for later requests.
#include <chrono>
#include <deque>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "fixture/ClientTest.h"
#include "support/Deadline.h"

namespace kel::http::test {
namespace {

using ::testing::Each;

std::vector<std::size_t> connectionCounts(const std::deque<ScriptedServer>& hosts) {
    std::vector<std::size_t> counts;
    for (const ScriptedServer& host : hosts) counts.push_back(host.connectionCount());
    return counts;
}

class ClientConnectionsTest : public ClientTest {
 protected:
    void openHosts(std::size_t count) {
        while (hosts.size() < count) {
            hosts.emplace_back().onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
        }
    }

    // So many requests, one after the other, to one host after the other.
    void ask(std::size_t requests) {
        for (std::size_t i = 0; i < requests; ++i) {
            RequestConfig config;
            config.url = hosts[i % hosts.size()].url();
            EXPECT_EQ(fetch(config).response->status, 200);
        }
    }

    std::deque<ScriptedServer> hosts;
};

TEST_F(ClientConnectionsTest, FiveHostsInTurnAreConnectedToOnceEach) {
    openHosts(5);
    ask(50);
    EXPECT_THAT(connectionCounts(hosts), Each(1U));
}

TEST_F(ClientConnectionsTest, SixteenHostsInTurnAreConnectedToOnceEach) {
    openHosts(16);
    ask(48);
    EXPECT_THAT(connectionCounts(hosts), Each(1U));
}

// Those of one millisecond are equally old to libcurl, so any of them may have been closed.
TEST_F(ClientConnectionsTest, IdleConnectionsAreFewHoweverManyHostsThereAre) {
    openHosts(24);
    ask(24);
    const auto open = [this] {
        return std::accumulate(
            hosts.begin(), hosts.end(), std::size_t{0},
            [](std::size_t sum, const ScriptedServer& host) { return sum + host.openConnectionCount(); });
    };
    const auto end = std::chrono::steady_clock::now() + Deadline;
    while (open() > 17 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    drain();
    EXPECT_EQ(open(), 17U);
}

// A client that always has so many requests at once.
class BusyTest : public ClientConnectionsTest, public testing::WithParamInterface<std::size_t> {
 protected:
    void startNext() {
        if (started == wanted) return;
        ++started;
        RequestConfig config;
        config.url = server.url();
        client->start_request(
            config, {},
            [this](auto, const ResponseData&) {
                if (++ended == wanted) all.add("ended");
                startNext();
            },
            [this](auto, const ErrorData& error) { all.add("ended: " + error.message); });
    }

    // Of the executor's thread.
    std::size_t started = 0;
    std::size_t ended = 0;
    const std::size_t wanted = 2000;
    EventLog all;
};

TEST_P(BusyTest, NoMoreConnectionsAreMadeThanWereEverBusyAtOnce) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("body"); });
    executor.run([this] {
        for (std::size_t i = 0; i < GetParam(); ++i) startNext();
    });
    all.await("ended");
    EXPECT_LE(server.connectionCount(), GetParam());
    executor.run([this] { client.reset(); });
}

INSTANTIATE_TEST_SUITE_P(AtOnce, BusyTest, ::testing::Values(16U, 64U, 256U));

}  // namespace
}  // namespace kel::http::test
