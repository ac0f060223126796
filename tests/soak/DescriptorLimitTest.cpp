// SPDX-License-Identifier: MIT
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "fixture/ClientTest.h"
#include "support/ClosedPort.h"
#include "support/Emulator.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using std::chrono::steady_clock;

// Limits the open descriptors of this process, as long as it lives. A server started before does not share the limit.
class LimitedDescriptors {
 public:
    explicit LimitedDescriptors(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit limits = before_;
        limits.rlim_cur = limit;
        limits.rlim_max = std::max(limits.rlim_max, limit);
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
    }
    LimitedDescriptors(const LimitedDescriptors&) = delete;
    LimitedDescriptors& operator=(const LimitedDescriptors&) = delete;
    ~LimitedDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
    rlimit before_{};
};

class DescriptorLimitTest : public ClientTest, public testing::WithParamInterface<rlim_t> {
 protected:
    struct Ended {
        unsigned outcomes = 0;
        steady_clock::duration after{};
    };

    static constexpr unsigned total_ = 2000;

    // Executor thread.
    void startMany(const RequestConfig& config, unsigned count) {
        ended_.clear();
        responses_ = 0;
        const auto begin = steady_clock::now();
        const auto note = [this, begin, count](Client::RequestId id) {
            Ended& ended = ended_[id];
            ++ended.outcomes;
            ended.after = steady_clock::now() - begin;
            if (ended_.size() == count) events_.add("all ended");
        };
        for (unsigned i = 0; i < count; ++i) {
            client->start_request(
                config, {},
                [this, note](Client::RequestId id, const ResponseData&) {
                    ++responses_;
                    note(id);
                },
                [note](Client::RequestId id, const ErrorData&) { note(id); });
        }
    }

    void runMany(const RequestConfig& config, unsigned count) {
        events_.clear();
        executor.run([&] { startMany(config, count); });
        events_.await("all ended");
        drain();
    }

    NginxServer nginx_;
    EventLog events_;
    // Executor thread, and the test's once all has ended.
    std::map<Client::RequestId, Ended> ended_;
    unsigned responses_ = 0;
};

TEST_P(DescriptorLimitTest, TwoThousandRequestsAtOnceEachEndOnceAndInTime) {
    nginx_.writeFile("hello", "hello");
    RequestConfig config;
    config.timeout = std::chrono::seconds(20);
    // A sanitizer looks each type up once, and needs descriptors for it: a response and errors of both kinds go first.
    config.url = nginx_.url("/hello");
    runMany(config, 1);
    RequestConfig refused = config;
    refused.ca_file = "/dev/null";
    runMany(refused, 1);
    config.url = ClosedPort().url("/");
    runMany(config, 1);

    const LimitedDescriptors limited(GetParam());
    config.url = nginx_.url("/hello");
    runMany(config, total_);

    EXPECT_EQ(ended_.size(), total_);
    EXPECT_GT(responses_, 0U);
    for (const auto& [id, ended] : ended_) {
        EXPECT_EQ(ended.outcomes, 1U) << id;
        EXPECT_LE(ended.after, config.timeout + std::chrono::seconds(underEmulator() ? 5 : 1)) << id;
    }
    if (GetParam() > 2 * total_) {
        EXPECT_EQ(responses_, total_);
    }
}

INSTANTIATE_TEST_SUITE_P(Limits, DescriptorLimitTest, testing::Values(256, 1024, 8192));

}  // namespace
}  // namespace kel::http::test
