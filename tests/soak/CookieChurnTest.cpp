// SPDX-License-Identifier: MIT
#include <algorithm>

#include "fixture/ClientTest.h"
#include "fixture/CookieFolder.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Brings the cookie that the path names and answers with those that have come.
NginxServer::Options withCookies() {
    NginxServer::Options options;
    options.directives = R"(
        location ~ ^/set/(?<name>[a-z0-9]+)$ {
            add_header Set-Cookie "$name=1; Path=/; Max-Age=1000";
            return 200 "$http_cookie";
        }
    )";
    return options;
}

class CookieChurnTest : public ClientTest {
 protected:
    static constexpr unsigned total_ = 2000;
    static constexpr unsigned at_once_ = 32;
    static constexpr unsigned hosts_ = 5;
    static constexpr unsigned names_ = 40;

    ~CookieChurnTest() override { stopEngine(); }

    RequestConfig next() const {
        RequestConfig config;
        config.url = "http://h" + std::to_string(started_ % hosts_) +
                     ".kel.localhost:" + std::to_string(nginx_.port()) + "/set/c" + std::to_string(started_ % names_);
        config.ip_version = IPVersion::IPv4;
        config.cookie_jar = static_cast<CookieJar>(started_ / hosts_ % 3);
        config.reset_state = started_ % 7 == 0;
        return config;
    }

    // Executor thread. Each outcome starts the next request.
    void startNext() {
        if (started_ == total_) return;
        const RequestConfig config = next();
        ++started_;
        const bool without = config.cookie_jar == CookieJar::no_cookies;
        client->start_request(
            config, {},
            [this, without](Client::RequestId, const ResponseData& data) {
                ++responses_;
                carried_ += data.body.empty() ? 0U : 1U;
                carried_without_ += without && !data.body.empty() ? 1U : 0U;
                ended();
            },
            [this](Client::RequestId, const ErrorData&) { ended(); });
    }

    void ended() {
        ++ended_;
        if (ended_ == total_) events_.add("all ended");
        startNext();
    }

    CookieFolder folder_;
    NginxServer nginx_{withCookies()};
    EventLog events_;
    // Executor thread, and the test's once all has ended.
    unsigned started_ = 0;
    unsigned ended_ = 0;
    unsigned responses_ = 0;
    unsigned carried_ = 0;
    unsigned carried_without_ = 0;
};

TEST_F(CookieChurnTest, RequestsInAllModesAtOnceLeaveACompleteFile) {
    executor.run([this] {
        for (unsigned i = 0; i < at_once_; ++i) startNext();
    });
    events_.await("all ended");
    drain();
    EXPECT_EQ(responses_, total_);
    EXPECT_GT(carried_, 0U);
    EXPECT_EQ(carried_without_, 0U);

    stopEngine();
    EXPECT_THAT(folder_.names(), ElementsAre("httpcookies"));
    const std::vector<std::string> lines = folder_.cookies();
    EXPECT_THAT(lines, testing::Not(IsEmpty()));
    EXPECT_LE(lines.size(), std::size_t{hosts_} * names_);
    for (const std::string& line : lines) {
        EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 6) << line;
        EXPECT_THAT(line, testing::MatchesRegex("h[0-4].kel.localhost\tFALSE\t/\tFALSE\t[0-9]+\tc[0-9]+\t1"));
    }
}

}  // namespace
}  // namespace kel::http::test
