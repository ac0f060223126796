// SPDX-License-Identifier: MIT
// A request that is set up on a handle that has served another one: libcurl is told, and the server gets, what it would with
// a new handle, whatever the other request asked for.
#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "curl/Interposed.h"
#include "fixture/CookieFolder.h"
#include "fixture/EngineTest.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::IsEmpty;

using Change = std::function<void(RequestConfig&)>;
using Changes = std::map<std::string, Change>;

// What libcurl was told, and what arrived.
struct Seen {
    std::vector<std::string> options;
    std::vector<std::string> bytes;
    // The number of the handle.
    std::size_t handle = 0;
};

// The same without what is another one each time: the boundary of a form, and the descriptor of the cookie file.
std::vector<std::string> withoutRandom(std::vector<std::string> lines) {
    static const std::regex boundary("-{24}[0-9a-zA-Z]+");
    static const std::regex descriptor("/proc/self/fd/[0-9]+");
    for (std::string& line : lines) {
        line = std::regex_replace(std::regex_replace(line, boundary, "BOUNDARY"), descriptor, "FILE");
    }
    return lines;
}

// Answers what was asked for: all ten bytes, or the last five.
Reply tenBytes(const ReceivedRequest& request) {
    if (!request.header("Range")) return Reply(200).body("0123456789");
    return Reply(206).header("Content-Range", "bytes 5-9/10").body("56789");
}

std::vector<std::string> asSent(const ReceivedRequest& request) {
    std::vector<std::string> lines = request.header_lines;
    lines.insert(lines.begin(), request.method + ' ' + request.target + ' ' + request.version);
    lines.push_back(request.body);
    return lines;
}

bool isAlone(const RequestConfig& config) {
    return config.reset_state || config.verifier || config.tls_partial_chain || config.resume;
}

class InterposedHandleFieldsTest : public EngineTest {
 protected:
    InterposedHandleFieldsTest() {
        writeWholeFile(directory.path("partial"), "01234");
        server.onRequest(&tenBytes);
    }
    ~InterposedHandleFieldsTest() override { stopEngine(); }

    // Each field with a value that it does not have by default, and what makes libcurl hear of it.
    Changes changes() const {
        return {
            {"method", [](RequestConfig& c) { c.method = Method::DELETE; }},
            {"url", [](RequestConfig& c) { c.url.insert(7, "someone:secret@"); }},
            {"headers",
             [](RequestConfig& c) {
                 c.headers = {{"X-Own", "value"}, {"User-Agent", "mine"}, {"Accept", ""}};
             }},
            {"user", [](RequestConfig& c) { c.user = "user"; }},
            {"password", [](RequestConfig& c) { c.user = c.password = "password"; }},
            {"auth_method",
             [](RequestConfig& c) {
                 c.user = "user";
                 c.auth_method = AuthMethod::BASIC;
             }},
            {"body",
             [](RequestConfig& c) {
                 c.method = Method::POST;
                 c.body = "body";
             }},
            {"body_is_file",
             [this](RequestConfig& c) {
                 c.method = Method::PUT;
                 c.body = directory.path("partial");
                 c.body_is_file = true;
             }},
            {"mime_parts",
             [this](RequestConfig& c) {
                 c.method = Method::POST;
                 c.headers["Content-Type"] = "multipart/form-data";
                 c.mime_parts = {{"text", "data", "", "text/css"}, {"file", "", directory.path("partial"), ""}};
             }},
            {"caller_handles_redirects", [](RequestConfig& c) { c.caller_handles_redirects = true; }},
            {"tls_verify", [](RequestConfig& c) { c.tls_verify = false; }},
            {"ca_file", [](RequestConfig& c) { c.ca_file = "/nonexistent/ca.pem"; }},
            {"ca_dir", [this](RequestConfig& c) { c.ca_dir = directory.path(); }},
            {"tls_partial_chain", [](RequestConfig& c) { c.tls_partial_chain = true; }},
            {"min_tls_version", [](RequestConfig& c) { c.min_tls_version = MinTlsVersion::tls1_2; }},
            {"ip_version", [](RequestConfig& c) { c.ip_version = IPVersion::IPv4; }},
            {"own_cert", [this](RequestConfig& c) { c.own_cert = c.own_pkey = directory.path("partial"); }},
            {"own_pkey", [this](RequestConfig& c) { c.own_cert = c.own_pkey = directory.path("partial"); }},
            {"verifier", [](RequestConfig& c) { c.verifier = [](int, x509_store_ctx_st*) { return 1; }; }},
            {"verifier_data", [](RequestConfig& c) { c.verifier_data = "data"; }},
            {"cookie_jar", [](RequestConfig& c) { c.cookie_jar = CookieJar::no_cookies; }},
            {"reset_state", [](RequestConfig& c) { c.reset_state = true; }},
            {"speed_limit", [](RequestConfig& c) { c.speed_limit = 1000000U; }},
            {"timeout", [](RequestConfig& c) { c.timeout = std::chrono::hours(1); }},
            {"size_limit", [](RequestConfig& c) { c.size_limit = 10U; }},
            {"timing_data", [](RequestConfig& c) { c.timing_data = true; }},
            {"resume",
             [this](RequestConfig& c) {
                 c.resume = true;
                 c.download_path = directory.path("partial");
             }},
            {"keep_partial_download", [](RequestConfig& c) { c.keep_partial_download = true; }},
            {"proxy", [](RequestConfig& c) { c.proxy = Proxy::bypass_proxy; }},
            {"proxies", [](RequestConfig& c) { c.proxies = {"http://proxy.test:1"}; }},
            {"proxy_user", [](RequestConfig& c) { c.proxy_user = "user"; }},
            {"proxy_password", [](RequestConfig& c) { c.proxy_password = "password"; }},
            {"download_path", [this](RequestConfig& c) { c.download_path = directory.path("partial"); }},
        };
    }

    Seen fetch(const RequestConfig& config) {
        interposed.forgetOptions();
        const auto request = run(config);
        request->outcome.awaitCount(1);
        EXPECT_EQ(request->outcome.events().at(0), "end");
        drain();
        return {withoutRandom(interposed.options()), withoutRandom(asSent(server.requests().back())),
                interposed.handles().back()};
    }

    RequestConfig with(const Change& change, RequestConfig config) const {
        change(config);
        return config;
    }

    // `plain` behind a request with this change looks as it does on a new handle.
    void expectNoTraceOf(const std::string& name, const Change& change, const RequestConfig& plain) {
        const RequestConfig other = with(change, get("/other"));
        startEngine();
        fetch(other);  // what it leaves in files is there from now on
        stopEngine();
        startEngine();
        const Seen fresh = fetch(plain);
        stopEngine();
        startEngine();
        const std::size_t handle = fetch(other).handle;
        const Seen seen = fetch(plain);
        stopEngine();
        EXPECT_EQ(seen.options, fresh.options) << name;
        EXPECT_EQ(seen.bytes, fresh.bytes) << name;
        EXPECT_EQ(seen.handle == handle, !isAlone(other) && !isAlone(plain)) << name;
    }

    Interposed interposed;
    TemporaryDirectory directory;
    const CookieFolder cookies;
};

TEST_F(InterposedHandleFieldsTest, NoFieldOfTheRequestIsForgottenHere) {
    std::ifstream header(KEL_TEST_REQUEST_CONFIG);
    std::set<std::string> fields;
    bool inside = false;
    const std::regex field("    [A-Za-z_:<>0-9]+ ([a-z_]+);");
    for (std::string line; std::getline(header, line);) {
        inside = inside || line.find("struct KEL_HTTP_EXPORT RequestConfig") == 0;
        std::smatch parts;
        if (inside && std::regex_match(line, parts, field)) fields.insert(parts[1]);
        if (line == "};") inside = false;
    }
    EXPECT_GE(fields.size(), 33U);
    for (const auto& [name, change] : changes()) EXPECT_EQ(fields.erase(name), 1U) << name;
    EXPECT_THAT(fields, IsEmpty());
}

TEST_F(InterposedHandleFieldsTest, EachFieldIsItsOwnRequestsOnly) {
    for (const auto& [name, change] : changes()) expectNoTraceOf(name, change, get());
}

// Each of these is the last one whose method, body and cookies the handle has seen.
TEST_F(InterposedHandleFieldsTest, AllFieldsAtOnceAreTheirOwnRequestsOnly) {
    const Changes each = changes();
    const std::set<std::string> own = {"reset_state", "verifier", "tls_partial_chain"};
    const std::set<std::string> bodies = {"method", "body", "body_is_file", "mime_parts", "resume"};
    for (const std::string& body : bodies) {
        const Change all = [&](RequestConfig& config) {
            for (const auto& [name, change] : each) {
                if (own.count(name) == 0 && bodies.count(name) == 0) change(config);
            }
            config.cookie_jar = CookieJar::rw_cookies;
            each.at(body)(config);
        };
        RequestConfig upload = get();
        upload.method = Method::PUT;
        upload.body = "upload";
        for (const RequestConfig& plain : {get(), upload}) expectNoTraceOf("all with " + body, all, plain);
    }
}

// And the other way round: whatever a request asks for, it gets on a used handle as well.
TEST_F(InterposedHandleFieldsTest, EachFieldIsHeardOfOnAUsedHandle) {
    for (const auto& [name, change] : changes()) {
        expectNoTraceOf(
            name, [](RequestConfig& config) { config.method = Method::PATCH; }, with(change, get()));
    }
}

}  // namespace
}  // namespace kel::http::test
