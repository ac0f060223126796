// SPDX-License-Identifier: MIT
#include <stdexcept>

#include "torture/Digest.h"
#include "torture/Scenario.h"

namespace kel::http::torture {
namespace {

using test::ReceivedRequest;
using test::Reply;

// Nothing in it repeats within a piece that might get lost.
std::string text(const std::string& name, std::size_t size) {
    std::string all;
    for (std::size_t i = 0; all.size() < size; ++i) all.append(name).append(" ").append(std::to_string(i)).append("\n");
    all.resize(size);
    return all;
}

const std::string body = text("body", 3000) + std::string("\0with a zero byte", 17);
const std::string upload = text("upload", 100000);
const std::string page = text("page", 5000);
const std::string whole_file = text("new", 60000);
const std::string old_file = text("old", 700);
constexpr std::size_t partial_bytes = 20000;

RequestConfig request(Method method, const std::string& url) {
    RequestConfig config;
    config.method = method;
    config.url = url;
    config.headers = {{"Content-Type", "text/plain"}, {"X-Torture", "told to the server"}};
    config.cookie_jar = CookieJar::no_cookies;
    return config;
}

Reply answerPage(const ReceivedRequest& /*request*/) {
    return Reply(200).header("X-Answer", "42").body(page);
}

auto one(Method method, const std::string& content = {}) {
    return [method, content](const Surroundings& here) {
        Step step{request(method, here.server + "/path?query=1"), {}};
        step.config.body = content;
        return std::vector<Step>{step};
    };
}

Scenario get() {
    return {"get", one(Method::GET), answerPage};
}

// As verbose as can be: log lines need memory, too.
Scenario verboseGet() {
    Scenario scenario{"verbose_get", one(Method::GET), answerPage};
    scenario.log_level = 9;
    return scenario;
}

Scenario getWithTimingAndLimits() {
    return {"limited_get",
            [](const Surroundings& here) {
                Step step{request(Method::GET, here.server + "/limited"), {}};
                step.config.timing_data = true;
                step.config.size_limit = 100000;
                step.config.speed_limit = 10000000;
                step.config.reset_state = true;
                step.config.timeout = std::chrono::milliseconds(60000);
                return std::vector<Step>{step};
            },
            answerPage};
}

Scenario post() {
    return {"post", one(Method::POST, body), answerPage};
}

Scenario put() {
    return {"put", one(Method::PUT, upload), answerPage};
}

Scenario remove() {
    return {"delete", one(Method::DELETE, "why"), answerPage};
}

Scenario putFile() {
    return {"put_file",
            [](const Surroundings& here) {
                Step step{request(Method::PUT, here.server + "/stored"), {}};
                step.config.body = here.folder + "/upload";
                step.config.body_is_file = true;
                return std::vector<Step>{step};
            },
            answerPage,
            {{"upload", upload}}};
}

Scenario form() {
    return {"form",
            [](const Surroundings& here) {
                Step step{request(Method::POST, here.server + "/form"), {}};
                step.config.headers["Content-Type"] = "multipart/form-data";
                step.config.mime_parts = {{"first", body, "", ""},
                                          {"second", "", here.folder + "/part.txt", ""},
                                          {"third", "", here.folder + "/part.txt", "text/x-torture"}};
                return std::vector<Step>{step};
            },
            answerPage,
            {{"part.txt", text("part", 30000)}}};
}

// From one path to the other, with this status.
Scenario redirect(const std::string& name, Method method, int status, const std::string& content) {
    return {name,
            [method, content](const Surroundings& here) {
                Step step{request(method, here.server + "/start"), {}};
                step.config.body = content;
                return std::vector<Step>{step};
            },
            [status](const ReceivedRequest& request) {
                return request.target == "/start" ? Reply::redirect("/target", status).body("elsewhere")
                                                  : answerPage(request);
            }};
}

Scenario digest(const std::string& name, Method method, const std::string& content) {
    Scenario scenario{name,
                      [method, content](const Surroundings& here) {
                          Step step{request(method, here.server + "/secret"), {}};
                          step.config.body = content;
                          step.config.user = digest_user;
                          step.config.password = digest_password;
                          return std::vector<Step>{step};
                      },
                      [](const ReceivedRequest& request) {
                          if (isAuthorized(request)) return answerPage(request);
                          return Reply(401).header("WWW-Authenticate", digest_challenge).body("who is it?");
                      }};
    // Without memory for an answer to the challenge the challenge is the answer.
    scenario.mayAnswer = [](const std::string& text) { return text.find("401\n") == 0; };
    return scenario;
}

Scenario failover() {
    Scenario scenario{"failover",
                      [](const Surroundings& here) {
                          Step step{request(Method::POST, here.server + "/behind"), {}};
                          step.config.body = body;
                          step.config.proxies.assign(here.proxies.begin(), here.proxies.end());
                          return std::vector<Step>{step};
                      },
                      answerPage};
    scenario.family = test::Family::OtherIPv4;  // no list of hosts that need no proxy names it
    scenario.proxies = true;
    return scenario;
}

Scenario download() {
    return {"download",
            [](const Surroundings& here) {
                return std::vector<Step>{{request(Method::GET, here.server + "/f"), here.folder + "/f"}};
            },
            [](const ReceivedRequest& /*request*/) { return Reply(200).body(whole_file); },
            {{"f", old_file}},
            [](const std::string& name, const std::string& bytes, bool succeeded) {
                return name == "f" && (bytes == whole_file || (bytes == old_file && !succeeded));
            }};
}

Scenario emptyDownload() {
    return {"empty_download",
            [](const Surroundings& here) {
                return std::vector<Step>{{request(Method::GET, here.server + "/f"), here.folder + "/f"}};
            },
            [](const ReceivedRequest& /*request*/) { return Reply(200); },
            {{"f", old_file}},
            [](const std::string& name, const std::string& bytes, bool succeeded) {
                return name == "f" && (bytes.empty() || (bytes == old_file && !succeeded));
            }};
}

// A whole file to who does not ask for a part.
Reply answerRange(const ReceivedRequest& request) {
    const std::string range = request.header("Range").value_or("");
    if (range != "bytes=" + std::to_string(partial_bytes) + "-") return Reply(200).body(whole_file);
    return Reply(206)
        .header("Content-Range", "bytes " + std::to_string(partial_bytes) + "-" +
                                     std::to_string(whole_file.size() - 1) + "/" + std::to_string(whole_file.size()))
        .body(whole_file.substr(partial_bytes));
}

Scenario resume() {
    return {"resume",
            [](const Surroundings& here) {
                Step step{request(Method::GET, here.server + "/f"), here.folder + "/f"};
                step.config.resume = true;
                return std::vector<Step>{step};
            },
            answerRange,
            {{"f", whole_file.substr(0, partial_bytes)}},
            // What has come stays, so that the next request goes on behind it.
            [](const std::string& name, const std::string& bytes, bool succeeded) {
                const bool beginning = bytes.size() >= partial_bytes && whole_file.compare(0, bytes.size(), bytes) == 0;
                return name == "f" && beginning && (bytes.size() == whole_file.size() || !succeeded);
            }};
}

// Cookies as lines of the file, without comments.
std::string cookieLines(const std::string& file) {
    std::string lines;
    for (std::size_t begin = 0; begin < file.size();) {
        const std::size_t end = file.find('\n', begin);
        if (end == std::string::npos) return "an incomplete line";
        if (file[begin] != '#' && end > begin) lines += file.substr(begin, end - begin + 1);
        begin = end + 1;
    }
    return lines;
}

const std::string kept_cookie = "127.0.0.1\tFALSE\t/\tFALSE\t2114380800\tkept\tfrom_before\n";
const std::string fresh_cookie = "127.0.0.1\tFALSE\t/\tFALSE\t2114380800\tfresh\tfrom_the_server\n";
const std::string old_cookies = "# Netscape HTTP Cookie File\n\n" + kept_cookie;

bool mayBeCookies(const std::string& name, const std::string& bytes, bool /*succeeded*/) {
    if (name != "httpcookies") return false;
    const std::string lines = cookieLines(bytes);
    // What can not be written leaves the old file, and a cookie that there is no memory for is not kept.
    return lines == kept_cookie || lines == kept_cookie + fresh_cookie || lines == fresh_cookie + kept_cookie;
}

// The first answer brings a cookie, the second request sends it.
Scenario cookies() {
    Scenario scenario{"cookies",
                      [](const Surroundings& here) {
                          Step first{request(Method::GET, here.server + "/first"), {}};
                          first.config.cookie_jar = CookieJar::rw_cookies;
                          Step second = first;
                          second.config.url = here.server + "/second";
                          return std::vector<Step>{first, second};
                      },
                      [](const ReceivedRequest& request) {
                          Reply reply = answerPage(request);
                          if (request.target == "/first") {
                              reply.header("Set-Cookie",
                                           "fresh=from_the_server; path=/; expires=Thu, 01 Jan 2037 00:00:00 GMT");
                          }
                          return reply;
                      },
                      {{"httpcookies", old_cookies}},
                      mayBeCookies};
    scenario.mayLack = [](const std::string& line) { return line.find("Cookie:") == 0; };
    return scenario;
}

Scenario tls() {
    Scenario scenario{"tls",
                      [](const Surroundings& here) {
                          Step step{request(Method::GET, here.server + "/page"), {}};
                          step.config.ca_file = here.folder + "/ca.pem";
                          step.config.own_cert = here.folder + "/cert.pem";
                          step.config.own_pkey = here.folder + "/key.pem";
                          // libcurl 7.88 goes on with a handshake that has failed for want of memory, in vain.
                          step.config.timeout = std::chrono::milliseconds(2000);
                          return std::vector<Step>{step};
                      },
                      answerPage};
    scenario.tls = true;
    return scenario;
}

std::vector<Scenario> all() {
    return {get(),
            verboseGet(),
            getWithTimingAndLimits(),
            post(),
            put(),
            putFile(),
            form(),
            remove(),
            redirect("redirect", Method::GET, 302, {}),
            redirect("put_redirect", Method::PUT, 307, upload),
            digest("digest", Method::GET, {}),
            digest("digest_put", Method::PUT, upload),
            failover(),
            download(),
            emptyDownload(),
            resume(),
            cookies(),
            tls()};
}

}  // namespace

const std::vector<Scenario>& scenarios() {
    static const auto* const instance = new std::vector<Scenario>(all());
    return *instance;
}

const Scenario& scenarioNamed(const std::string& name) {
    for (const Scenario& scenario : scenarios()) {
        if (scenario.name == name) return scenario;
    }
    throw std::runtime_error("no such scenario: " + name);
}

}  // namespace kel::http::torture
