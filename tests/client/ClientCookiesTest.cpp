// SPDX-License-Identifier: MIT
#include <algorithm>

#include "fixture/ClientTest.h"
#include "fixture/CookieFolder.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* Device = "device.kel.localhost";
constexpr const char* Sibling = "other.kel.localhost";

// /set brings cookies of every kind, /sent answers with those that have come.
NginxServer::Options withCookies() {
    NginxServer::Options options;
    options.tls = true;
    options.directives = R"(
        location = /set {
            add_header Set-Cookie "session=1; Path=/";
            add_header Set-Cookie "age=2; Path=/; Max-Age=1000";
            add_header Set-Cookie "date=3; Path=/; Expires=Thu, 01 Jan 2037 00:00:00 GMT";
            add_header Set-Cookie "shared=4; Path=/; Domain=kel.localhost";
            add_header Set-Cookie "deep=5; Path=/deep";
            add_header Set-Cookie "secret=6; Path=/; Secure";
            add_header Set-Cookie "hidden=7; Path=/; HttpOnly";
            add_header Set-Cookie "empty=; Path=/";
            return 200 "set";
        }
        location = /leave {
            add_header Set-Cookie "session=; Path=/; Max-Age=0";
            add_header Set-Cookie "age=; Path=/; Expires=Mon, 01 Jan 2001 00:00:00 GMT";
            return 303 /sent;
        }
        location = /sent { return 200 "$http_cookie"; }
        location = /deep/sent { return 200 "$http_cookie"; }
    )";
    return options;
}

class ClientCookiesTest : public ClientTest {
 protected:
    // Handles end before the folder does.
    ~ClientCookiesTest() override { stopEngine(); }

    RequestConfig plain(const std::string& host, const std::string& path) const {
        RequestConfig config;
        config.url = "http://" + std::string(host) + ':' + std::to_string(nginx_.port()) + path;
        config.ip_version = IPVersion::IPv4;
        return config;
    }

    RequestConfig secure(const std::string& host, const std::string& path) const {
        const CertificateFiles& identity = TestCertificates::shared().server();
        RequestConfig config = plain(host, path);
        config.url = "https://" + std::string(host) + ':' + std::to_string(nginx_.tlsPort()) + path;
        config.tls_verify = false;
        config.own_cert = identity.certificate_file;
        config.own_pkey = identity.key_file;
        return config;
    }

    std::string body(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        if (outcome.response) return outcome.response->body;
        ADD_FAILURE() << outcome.error->message;
        return {};
    }

    std::vector<std::string> carried(const RequestConfig& config) {
        ReceivedRequest as_received;
        as_received.header_lines.push_back("Cookie: " + body(config));
        return cookiesOf(as_received);
    }

    CookieFolder folder_;
    NginxServer nginx_{withCookies()};
};

TEST_F(ClientCookiesTest, CookiesReceivedOverTlsAreSentWhereTheyBelong) {
    EXPECT_EQ(body(secure(Device, "/set")), "set");
    EXPECT_THAT(carried(secure(Device, "/sent")),
                ElementsAre("age=2", "date=3", "empty=", "hidden=7", "secret=6", "session=1", "shared=4"));
    EXPECT_THAT(carried(plain(Device, "/sent")),
                ElementsAre("age=2", "date=3", "empty=", "hidden=7", "session=1", "shared=4"));
    EXPECT_THAT(carried(plain(Device, "/deep/sent")),
                ElementsAre("age=2", "date=3", "deep=5", "empty=", "hidden=7", "session=1", "shared=4"));
    EXPECT_THAT(carried(secure(Sibling, "/sent")), ElementsAre("shared=4"));
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(ClientCookiesTest, SecretCookieIsNotAcceptedInTheOpen) {
    EXPECT_EQ(body(plain(Device, "/set")), "set");
    EXPECT_THAT(carried(secure(Device, "/sent")),
                ElementsAre("age=2", "date=3", "empty=", "hidden=7", "session=1", "shared=4"));
}

TEST_F(ClientCookiesTest, ServerMayTakeItsCookiesBackOnTheWay) {
    EXPECT_EQ(body(plain(Device, "/set")), "set");
    EXPECT_THAT(carried(plain(Device, "/leave")), ElementsAre("date=3", "empty=", "hidden=7", "shared=4"));
}

TEST_F(ClientCookiesTest, CallerWhoFollowsRedirectsKeepsTheCookies) {
    RequestConfig config = plain(Device, "/leave");
    config.caller_handles_redirects = true;
    EXPECT_EQ(body(plain(Device, "/set")), "set");
    const Recorder::Outcome outcome = fetch(config);
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->status, 303);
    EXPECT_THAT(carried(plain(Device, "/sent")), ElementsAre("date=3", "empty=", "hidden=7", "shared=4"));
}

TEST_F(ClientCookiesTest, RequestWithoutCookiesLeavesNoTrace) {
    RequestConfig config = plain(Device, "/set");
    config.cookie_jar = CookieJar::no_cookies;
    EXPECT_EQ(body(config), "set");
    EXPECT_THAT(carried(plain(Device, "/sent")), IsEmpty());
}

TEST_F(ClientCookiesTest, WrittenSessionIsReadByTheNextEngine) {
    RequestConfig config = secure(Device, "/set");
    config.cookie_jar = CookieJar::rw_cookies;
    EXPECT_EQ(body(config), "set");
    stopEngine();
    const auto column_2 = [](const std::string& line) { return line.find("\tsecret\t6") != std::string::npos; };
    const std::vector<std::string> lines = folder_.cookies();
    EXPECT_EQ(lines.size(), 8U);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), column_2), 1);
    startEngine();
    EXPECT_THAT(carried(secure(Device, "/sent")),
                ElementsAre("age=2", "date=3", "empty=", "hidden=7", "secret=6", "session=1", "shared=4"));
}

TEST_F(ClientCookiesTest, FreshRequestSendsWhatItCanNotMatch) {
    EXPECT_EQ(body(secure(Device, "/set")), "set");
    RequestConfig config = secure(Device, "/sent");
    config.reset_state = true;
    EXPECT_THAT(carried(config), ElementsAre("hidden=7"));
    EXPECT_THAT(carried(secure(Device, "/sent")), ElementsAre("hidden=7"));
}

TEST_F(ClientCookiesTest, DownloadCarriesCookies) {
    const TemporaryDirectory target;
    EXPECT_EQ(body(plain(Device, "/set")), "set");
    recorder.await(startDownload(plain(Device, "/deep/sent"), target.path("file")));
    ReceivedRequest as_received;
    as_received.header_lines.push_back("Cookie: " + readWholeFile(target.path("file")));
    EXPECT_THAT(cookiesOf(as_received),
                ElementsAre("age=2", "date=3", "deep=5", "empty=", "hidden=7", "session=1", "shared=4"));
}

}  // namespace
}  // namespace kel::http::test
