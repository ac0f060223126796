// SPDX-License-Identifier: MIT
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "fixture/ClientTest.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using std::chrono::steady_clock;

// The limit of open descriptors of this process, which the server, started before, does not share.
void limitDescriptors(rlim_t limit) {
    rlimit limits{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
    limits.rlim_cur = limit;
    limits.rlim_max = std::max(limits.rlim_max, limit);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
}

class DescriptorLimitTest : public ClientTest, public testing::WithParamInterface<rlim_t> {
 protected:
    struct Ended {
        unsigned outcomes = 0;
        steady_clock::duration after{};
    };

    static constexpr unsigned total_ = 2000;

    void startAll(const RequestConfig& config) {
        const auto begin = steady_clock::now();
        const auto note = [this, begin](Client::RequestId id) {
            Ended& ended = ended_[id];
            ++ended.outcomes;
            ended.after = steady_clock::now() - begin;
            if (ended_.size() == total_) events_.add("all ended");
        };
        for (unsigned i = 0; i < total_; ++i) {
            client->start_request(
                config, {},
                [this, note](Client::RequestId id, const ResponseData&) {
                    ++responses_;
                    note(id);
                },
                [note](Client::RequestId id, const ErrorData&) { note(id); });
        }
    }

    NginxServer nginx_;
    EventLog events_;
    // Executor thread, and the test's once all has ended.
    std::map<Client::RequestId, Ended> ended_;
    unsigned responses_ = 0;
};

TEST_P(DescriptorLimitTest, TwoThousandRequestsAtOnceEachEndOnceAndInTime) {
    nginx_.writeFile("hello", "hello");
    limitDescriptors(GetParam());
    RequestConfig config;
    config.url = nginx_.url("/hello");
    config.timeout = std::chrono::seconds(20);
    executor.run([&] { startAll(config); });
    events_.await("all ended");
    drain();

    EXPECT_EQ(ended_.size(), total_);
    EXPECT_GT(responses_, 0U);
    for (const auto& [id, ended] : ended_) {
        EXPECT_EQ(ended.outcomes, 1U) << id;
        EXPECT_LE(ended.after, config.timeout + std::chrono::seconds(1)) << id;
    }
    if (GetParam() > 2 * total_) {
        EXPECT_EQ(responses_, total_);
    }
}

INSTANTIATE_TEST_SUITE_P(Limits, DescriptorLimitTest, testing::Values(256, 1024, 8192));

}  // namespace
}  // namespace kel::http::test
