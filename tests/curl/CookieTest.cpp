// SPDX-License-Identifier: MIT
#include "curl/CookieTest.h"

namespace kel::http::test {

CookieTest::CookieTest() {
    server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    startEngine();
}

CookieTest::~CookieTest() {
    stopEngine();
}

RequestConfig CookieTest::to(const std::string& host, CookieJar jar, const std::string& path) const {
    RequestConfig config;
    config.url = "http://" + host + ':' + std::to_string(server.port()) + path;
    config.cookie_jar = jar;
    config.ip_version = IPVersion::IPv4;
    return config;
}

Cookies CookieTest::carried(const RequestConfig& config, const Reply& reply) {
    server.enqueue(reply);
    const RecordingRequestPtr made = run(config);
    made->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(made->outcome.events(), testing::ElementsAre("end"));
    return cookiesOf(server.requests().back());
}

void CookieTest::receive(const RequestConfig& config, const std::vector<std::string>& set_cookies) {
    Reply reply(200);
    for (const std::string& set_cookie : set_cookies) reply.header("Set-Cookie", set_cookie);
    carried(config, reply);
}

void CookieTest::restart() {
    stopEngine();
    startEngine();
}

}  // namespace kel::http::test
