// SPDX-License-Identifier: MIT
#include <algorithm>
#include <utility>

#include "soak/Content.h"
#include "soak/Kind.h"
#include "support/Files.h"
#include "support/TestCertificates.h"
#include "torture/Digest.h"

namespace kel::http::soak {
namespace {

// What an Ask of one kind is made from.
struct Making {
    const Addresses& to;
    Random& random;
    const std::string& serial;

    std::string fileName() const { return to.folder + '/' + serial; }
};

Ask ask(Method method, const std::string& url, const std::string& expected) {
    Ask made;
    made.config.method = method;
    made.config.url = url;
    made.isRight = [expected](const ResponseData& data) { return data.status == 200 && data.body == expected; };
    return made;
}

Ask get(const std::string& url, const std::string& expected) {
    return ask(Method::GET, url, expected);
}

// Each body has another size, from nothing to some times a buffer's; most are small.
std::string uploadFor(const Making& making) {
    return content(below(making.random, 1U << below(making.random, 19)));
}

Ask withBody(const Making& making, Method method) {
    const std::string body = uploadFor(making);
    Ask made = ask(method, making.to.scripted + "/size", std::to_string(body.size()));
    made.config.body = body;
    return made;
}

Ask putFile(const Making& making) {
    const std::string body = uploadFor(making);
    Ask made = ask(Method::PUT, making.to.scripted + "/size", std::to_string(body.size()));
    test::writeWholeFile(making.fileName(), body);
    made.config.body = making.fileName();
    made.config.body_is_file = true;
    return made;
}

Ask form(const Making& making) {
    Ask made = get(making.to.scripted + "/form", "a form");
    made.config.method = Method::POST;
    made.config.headers["Content-Type"] = "multipart/form-data";
    test::writeWholeFile(making.fileName(), uploadFor(making));
    made.config.mime_parts = {{"text", uploadFor(making), "", ""}, {"file", "", making.fileName(), "text/plain"}};
    return made;
}

Ask redirected(const Making& making) {
    const bool put = below(making.random, 2) == 0;
    if (!put) return get(making.to.scripted + "/redirect/302/3", small());
    Ask made = ask(Method::PUT, making.to.scripted + "/redirect/307/1", small());
    made.config.body = uploadFor(making);
    return made;
}

Ask digest(const Making& making) {
    Ask made = get(making.to.scripted + "/secret/" + making.serial, small());
    made.config.user = torture::digest_user;
    made.config.password = torture::digest_password;
    if (below(making.random, 2) == 0) return made;
    made.config.method = Method::PUT;
    made.config.body = uploadFor(making);
    return made;
}

// The result is the checksum's text, which is for other tests.
Ask download(const Making& making) {
    const bool tls = below(making.random, 2) == 0;
    Ask made = get((tls ? making.to.nginx_tls : making.to.nginx) + "/large", {});
    made.target = making.fileName();
    made.isRight = [path = made.target](const ResponseData& data) {
        return data.status == 200 && test::readWholeFile(path) == large();
    };
    if (below(making.random, 2) == 0) made.content_before = "an older file";
    return made;
}

Ask resume(const Making& making) {
    Ask made = get(making.to.nginx + "/large", {});
    made.target = making.fileName();
    made.content_before = large().substr(0, 1 + below(making.random, static_cast<unsigned>(large().size() - 1)));
    made.config.resume = true;
    made.isRight = [path = made.target](const ResponseData& data) {
        return data.status == 206 && test::readWholeFile(path) == large();
    };
    return made;
}

Ask throughProxies(const Making& making) {
    Ask made = get((below(making.random, 2) == 0 ? making.to.nginx : making.to.nginx_tls) + "/small", small());
    made.config.proxies.assign(making.to.dead_proxies.begin(), making.to.dead_proxies.end());
    for (unsigned turns = below(making.random, 4); turns > 0; --turns) {
        made.config.proxies.splice(made.config.proxies.end(), made.config.proxies, made.config.proxies.begin());
    }
    made.config.proxies.push_back(making.to.proxy);
    made.succeeds = false;  // where the time ends with the good one, another one has the last word
    return made;
}

int accept(int /*accepted*/, x509_store_ctx_st* /*chain*/) {
    return 1;
}

Ask verified(const Making& making) {
    Ask made = get(making.to.nginx_tls + "/small", small());
    made.config.verifier = &accept;
    if (below(making.random, 2) == 0) made.config.verifier_data = making.serial;
    made.config.tls_partial_chain = below(making.random, 2) == 0;
    return made;
}

Ask http2(const Making& making) {
    switch (below(making.random, 3)) {
        case 0:
            return get(making.to.nginx_tls + "/large", large());
        case 1:
            return get(making.to.nginx_tls + "/limit/large?rate=500k", large());
        default:
            return get(making.to.nginx_tls + "/small", small());
    }
}

// The server's side is in Peers.cpp.
Ask framed(const Making& making) {
    static const std::vector<std::string> paths = {"/small", "/chunked", "/until-close", "/interim", "/large"};
    const std::string& path = paths[below(making.random, static_cast<unsigned>(paths.size()))];
    return get(making.to.scripted + path, path == "/large" ? large() : small());
}

Ask broken(const Making& making) {
    static const std::vector<std::string> paths = {"/close-before", "/close-headers", "/close-body", "/reset-before",
                                                   "/reset-body",   "/stall-before",  "/stall-body", "/nonsense",
                                                   "/endless",      "/small",         "/large"};
    const std::string& path = paths[below(making.random, static_cast<unsigned>(paths.size()))];
    Ask made = get(making.to.broken + path, path == "/large" ? large() : small());
    made.succeeds = false;
    if (below(making.random, 4) != 0) return made;
    made.target = making.fileName();
    made.isRight = [path = made.target](const ResponseData&) { return !test::readWholeFile(path).empty(); };
    return made;
}

Ask cookies(const Making& making) {
    Ask made = get(making.to.scripted + "/cookie/" + making.serial, small());
    made.config.cookie_jar = below(making.random, 20) == 0 ? CookieJar::rw_cookies : CookieJar::ro_cookies;
    made.config.reset_state = below(making.random, 20) == 0;
    return made;
}

Ask limited(const Making& making) {
    Ask made = get(making.to.scripted + "/large", {});
    made.config.size_limit = 1000;
    made.isRight = [](const ResponseData&) { return false; };
    made.succeeds = false;
    return made;
}

void furnish(Ask& made, Random& random) {
    RequestConfig& config = made.config;
    config.ca_file = test::TestCertificates::shared().caFile();
    config.timing_data = below(random, 8) == 0;
    // Nobody waits for ever: a paused one ends so as well.
    const bool short_time = below(random, 20) == 0;
    config.timeout = std::chrono::milliseconds(short_time ? 1 + below(random, 400) : 1000 + below(random, 2000));
    if (made.target.empty() || made.content_before.empty()) return;
    test::writeWholeFile(made.target, made.content_before);
}

Kind kind(const std::string& name, Ask (*make)(const Making&)) {
    return {name, [make](const Addresses& to, Random& random, const std::string& serial) {
                Ask made = make({to, random, serial});
                furnish(made, random);
                return made;
            }};
}

std::vector<Kind> all() {
    return {kind("get", &framed),
            kind("post", [](const Making& making) { return withBody(making, Method::POST); }),
            kind("put", [](const Making& making) { return withBody(making, Method::PUT); }),
            kind("patch", [](const Making& making) { return withBody(making, Method::PATCH); }),
            kind("delete", [](const Making& making) { return withBody(making, Method::DELETE); }),
            kind("put_file", &putFile),
            kind("form", &form),
            kind("redirect", &redirected),
            kind("digest", &digest),
            kind("cookies", &cookies),
            kind("limited", &limited),
            kind("download", &download),
            kind("resume", &resume),
            kind("proxies", &throughProxies),
            kind("verified", &verified),
            kind("http2", &http2),
            kind("broken", &broken)};
}

}  // namespace

const std::vector<Kind>& kinds() {
    static const auto* const instance = new std::vector<Kind>(all());
    return *instance;
}

}  // namespace kel::http::soak
