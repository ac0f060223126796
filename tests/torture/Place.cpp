// SPDX-License-Identifier: MIT
#include "torture/Place.h"

#include <filesystem>

#include "support/Files.h"
#include "support/RawClient.h"
#include "support/TestCertificates.h"
#include "torture/Digest.h"
#include "torture/Faults.h"

namespace kel::http::torture {
namespace {

constexpr const char* last_path = "/last";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    if (from.empty()) return text;
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::string boundaryOf(const test::ReceivedRequest& request) {
    const std::string type = request.header("Content-Type").value_or("");
    const std::size_t at = type.find("boundary=");
    return at == std::string::npos ? std::string() : type.substr(at + 9);
}

bool isOpenToOthers(const std::string& path) {
    constexpr auto of_others = std::filesystem::perms(0077);
    return (std::filesystem::status(path).permissions() & of_others) != std::filesystem::perms::none;
}

test::Reply answer(const Scenario& scenario, const test::ReceivedRequest& request) {
    if (request.target == Place::probe_path) return test::Reply(200).body(Place::probe_answer);
    if (request.target == last_path) return test::Reply(200);
    return scenario.answer(request);
}

void furnishTls(const std::string& folder) {
    const test::TestCertificates& made = test::TestCertificates::shared();
    const test::CertificateFiles& own = made.server();
    test::writeWholeFile(folder + "/ca.pem", test::readWholeFile(made.caFile()));
    test::writeWholeFile(folder + "/cert.pem", test::readWholeFile(own.certificate_file));
    test::writeWholeFile(folder + "/key.pem", test::readWholeFile(own.key_file));
}

}  // namespace

// Lines go to a sink that drops them, which is not ours to fail.
Place::Place(const Scenario& scenario)
    : scenario_(scenario), host_([&](ko::host::Settings& settings) {
          settings.temporary_directory = folder_.path();
          settings.log_level = scenario.log_level;
          settings.log_sink = [](const ko::host::LogLine&) {};
      }) {
    if (!scenario.tls) return;
    test::NginxServer::Options options;
    options.tls = true;
    options.http2 = false;
    nginx_ = std::make_unique<test::NginxServer>(options);
    nginx_->writeFile("page", std::string(5000, 'p'));
    nginx_->writeFile("probe", probe_answer);
}

void Place::furnish() {
    for (const std::string& name : folder_.names()) std::filesystem::remove_all(folder_.path(name));
    for (const auto& [name, bytes] : scenario_.files) {
        test::writeWholeFile(folder_.path(name), bytes);
        std::filesystem::permissions(folder_.path(name), std::filesystem::perms(0600));
    }
    std::filesystem::permissions(folder_.path(), std::filesystem::perms::owner_all);
    if (nginx_) {
        furnishTls(folder_.path());
        nginx_lines_ = nginx_->accessLog().size();
        return;
    }
    server_ = std::make_unique<test::ScriptedServer>(scenario_.family);
    server_->onRequest([this](const test::ReceivedRequest& request) { return answer(scenario_, request); });
    if (!scenario_.proxies) return;
    refusing_ = std::make_unique<test::ClosedPort>();
    proxy_ = std::make_unique<test::CountingProxy>();
}

Surroundings Place::surroundings() const {
    Surroundings here;
    here.folder = folder_.path();
    here.server = nginx_ ? nginx_->tlsUrl("") : "http://" + server_->authority();
    if (proxy_) here.proxies = {"http://" + test::loopbackAuthority(refusing_->port()), proxy_->url()};
    return here;
}

// A connection of our own comes behind all others, so that none is left that nobody has accepted yet.
void Place::awaitSilence() {
    if (nginx_) return;
    test::RawClient last(server_->port(), scenario_.family);
    last.get(last_path, "Connection: close\r\n");
    last.receiveAll();
    last.close();
    connections_ = server_->connectionCount() - 1;
    for (std::size_t number = 1; number <= connections_ + 1; ++number) server_->awaitPeerClosed(number);
    if (proxy_) proxy_->awaitNoConnection();
}

std::string Place::withoutChance(const test::ReceivedRequest& request) const {
    std::string text = request.method + ' ' + request.target + ' ' + request.version + '\n';
    for (const std::string& line : request.header_lines) text += torture::withoutChance(line, request) + '\n';
    text += '\n' + request.body;
    text = replaced(std::move(text), server_->authority(), "SERVER");
    text = replaced(std::move(text), folder_.path(), "FOLDER");
    return replaced(std::move(text), boundaryOf(request), "BOUNDARY");
}

std::vector<std::string> Place::tlsRequests() const {
    std::vector<std::string> texts;
    const std::vector<std::string> lines = nginx_->accessLog();
    for (std::size_t i = nginx_lines_; i < lines.size(); ++i) {
        const std::string request = lines[i].substr(lines[i].find(' ') + 1);
        const bool broken = request.find("- ") == 0;  // a connection that ended before its request
        if (!broken && request.find(probe_path) == std::string::npos) texts.push_back(request);
    }
    return texts;
}

std::vector<std::string> Place::requests() const {
    if (nginx_) return tlsRequests();
    std::vector<std::string> texts;
    for (const test::ReceivedRequest& request : server_->requests()) {
        if (request.target != probe_path && request.target != last_path) texts.push_back(withoutChance(request));
    }
    return texts;
}

std::vector<std::string> Place::proxyRequests() const {
    std::vector<std::string> texts;
    if (!proxy_) return texts;
    for (const test::ReceivedRequest& request : proxy_->requests()) texts.push_back(withoutChance(request));
    return texts;
}

Files Place::files() const {
    Files all;
    for (const std::string& name : folder_.names()) {
        const std::string path = folder_.path(name);
        if (!std::filesystem::is_regular_file(path)) {
            all[name] = "not a file";
        } else if (scenario_.files.count(name) != 0 && isOpenToOthers(path)) {
            all[name] = "a file that others may read";
        } else {
            all[name] = test::readWholeFile(path);
        }
    }
    return all;
}

}  // namespace kel::http::torture
