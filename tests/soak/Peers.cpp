// SPDX-License-Identifier: MIT
#include "soak/Peers.h"

#include <map>

#include "soak/Content.h"
#include "support/TestCertificates.h"
#include "torture/Digest.h"

namespace kel::http::soak {
namespace {

using test::ReceivedRequest;
using test::Reply;

test::NginxServer::Options options() {
    static const auto* const certificate = new test::CertificateFiles([] {
        test::CertificateWish wish;
        wish.subject_alt_names = "IP:127.0.0.2";
        return test::TestCertificates::shared().issue("mixture", wish);
    }());
    test::NginxServer::Options options;
    options.family = test::Family::OtherIPv4;  // no list of hosts that need no proxy names it
    options.tls = true;
    options.certificate_file = certificate->certificate_file;
    options.key_file = certificate->key_file;
    return options;
}

Reply page() {
    return Reply(200).body(small());
}

Reply endless() {
    Reply reply(200);
    for (int i = 0; i < 2100; ++i) reply.header("X-" + std::to_string(i), "one more");
    return reply;
}

// Those that always say the same.
const std::map<std::string, Reply>& fixed() {
    static const auto* const instance = new std::map<std::string, Reply>{
        {"/small", page()},
        {"/large", Reply(200).body(large())},
        {"/chunked", Reply(200).chunked().body(small().substr(0, 300)).body(small().substr(300)).trailer("X-Last: 1")},
        {"/until-close", page().untilClose()},
        {"/interim", page().interim(103, {"Link: </style.css>"})},
        {"/close-before", page().closeBeforeHeaders()},
        {"/close-headers", page().closeInsideHeaders()},
        {"/close-body", page().closeInsideBody()},
        {"/reset-before", page().resetBeforeHeaders()},
        {"/reset-body", page().resetInsideBody()},
        {"/stall-before", page().stallBeforeHeaders()},
        {"/stall-body", page().stallBeforeEnd()},
        {"/nonsense", Reply::raw("nonsense\r\n\r\n")},
        {"/endless", endless()},
    };
    return *instance;
}

bool startsWith(const std::string& text, const std::string& begin) {
    return text.compare(0, begin.size(), begin) == 0;
}

// "/redirect/302/3" leads to "/redirect/302/2", and so on.
Reply redirect(const std::string& target) {
    const int status = std::stoi(target.substr(10));
    const int left = std::stoi(target.substr(target.rfind('/') + 1));
    if (left == 0) return page();
    return Reply::redirect("/redirect/" + std::to_string(status) + '/' + std::to_string(left - 1), status);
}

Reply secret(const ReceivedRequest& request) {
    if (torture::isAuthorized(request)) return page();
    return Reply(401).header("WWW-Authenticate", torture::digest_challenge).body("who is it?");
}

bool isForm(const ReceivedRequest& request) {
    return request.body.find("name=\"text\"") != std::string::npos &&
           request.body.find("name=\"file\"") != std::string::npos;
}

Reply answer(const ReceivedRequest& request) {
    const auto found = fixed().find(request.target);
    if (found != fixed().end()) return found->second;
    if (request.target == "/size") return Reply(200).body(std::to_string(request.body.size()));
    if (request.target == "/form") return Reply(200).body(isForm(request) ? "a form" : "no form");
    if (startsWith(request.target, "/redirect/")) return redirect(request.target);
    if (startsWith(request.target, "/secret/")) return secret(request);
    if (startsWith(request.target, "/cookie/")) {
        const std::string name = "c" + std::to_string(request.target.back() % 10);
        return page().header("Set-Cookie", name + '=' + request.target.substr(8) + "; path=/; max-age=60");
    }
    return Reply(404).body(request.target);
}

}  // namespace

Peers::Peers() : nginx_(options()) {
    nginx_.writeFile("small", small());
    nginx_.writeFile("large", large());
    for (test::ScriptedServer* const server : {&scripted_, &broken_}) {
        server->keepNoRequests();
        server->onRequest(&answer);
    }
}

Addresses Peers::addresses() const {
    Addresses all;
    all.scripted = "http://" + scripted_.authority();
    all.broken = "http://" + broken_.authority();
    all.nginx = nginx_.url("");
    all.nginx_tls = nginx_.tlsUrl("");
    all.dead_proxies = {closed_.url(""), refusing_.url(), closing_.url()};
    all.proxy = proxy_.url();
    all.folder = folder_.path();
    return all;
}

void Peers::tick() {
    broken_.closeConnections();
}

}  // namespace kel::http::soak
