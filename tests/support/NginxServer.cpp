// SPDX-License-Identifier: MIT
#include "NginxServer.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Files.h"
#include "NginxConfiguration.h"
#include "RawClient.h"
#include "Sockets.h"
#include "TestCertificates.h"

namespace kel::http::test {

namespace {

constexpr int Backlog = 8192;

// "user" and the SHA-1 of "pass word:@%": a plain password in this file could have no colon.
constexpr const char* Passwords = "user:{SHA}liayiVrY1rXzVYzxCLT8IAugHb0=\n";

NginxSettings settingsFor(const std::string& directory, const NginxServer::Options& options) {
    NginxSettings settings;
    settings.directory = directory;
    settings.directives = options.directives;
    if (!options.tls) return settings;
    settings.http2 = options.http2;
    const bool own = !options.certificate_file.empty();
    settings.certificate_file = own ? options.certificate_file : TestCertificates::shared().server().certificate_file;
    settings.key_file = own ? options.key_file : TestCertificates::shared().server().key_file;
    return settings;
}

}  // namespace

NginxServer::NginxServer() : NginxServer(Options()) {}

NginxServer::NginxServer(const Options& options) : family_(options.family) {
    NginxSettings settings = settingsFor(directory_.path(), options);
    FileDescriptor plain = listenOnLoopback(family_, Backlog);
    port_ = portOf(plain);
    settings.authority = loopbackAuthority(port_, family_);
    std::vector<int> sockets{plain.get()};
    FileDescriptor tls;
    if (options.tls) {
        tls = listenOnLoopback(family_, Backlog);
        tls_port_ = portOf(tls);
        settings.tls_authority = loopbackAuthority(tls_port_, family_);
        sockets.push_back(tls.get());
    }

    writeFile("auth/secret", "welcome");
    writeWholeFile(directory_.path(nginx_files::Passwords), Passwords);
    writeWholeFile(directory_.path(nginx_files::Configuration), nginxConfiguration(settings));
    start(sockets);
    // From here on nginx alone listens: were it to fail, connecting would.
    plain.reset();
    tls.reset();
    awaitFirstReply();
}

NginxServer::~NginxServer() = default;

void NginxServer::start(const std::vector<int>& sockets) {
    // nginx takes over the sockets this variable lists, its own way of handing them to a newer nginx: nobody can take
    // their ports in between, and clients may connect from the start.
    std::string variable = "NGINX=";
    for (const int socket : sockets) variable += std::to_string(socket) + ';';

    ServerProcess::Program nginx;
    nginx.words = {KEL_TEST_NGINX, "-p", directory_.path(), "-c", directory_.path(nginx_files::Configuration)};
    nginx.environment = {variable};
    nginx.log_file = directory_.path(nginx_files::ErrorLog);
    nginx.inherited = sockets;
    nginx.stop_signal = SIGTERM;  // SIGKILL would leave its worker behind
    process_.start(nginx);
}

std::string NginxServer::url(const std::string& path) const {
    return "http://" + loopbackAuthority(port_, family_) + path;
}

std::string NginxServer::tlsUrl(const std::string& path) const {
    return "https://" + loopbackAuthority(tls_port_, family_) + path;
}

void NginxServer::stop() {
    process_.stop();
}

void NginxServer::writeFile(const std::string& name, const std::string& bytes) {
    const std::filesystem::path path = servedPath(name);
    std::filesystem::create_directories(path.parent_path());
    writeWholeFile(path, bytes);
}

std::string NginxServer::readFile(const std::string& name) const {
    return readWholeFile(servedPath(name));
}

bool NginxServer::fileExists(const std::string& name) const {
    return std::filesystem::exists(servedPath(name));
}

std::vector<std::string> NginxServer::postedBodies() const {
    // nginx numbers them, in as many digits each.
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path(nginx_files::Posted))) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> bodies;
    for (const std::string& path : paths) bodies.push_back(readWholeFile(path));
    return bodies;
}

std::vector<std::string> NginxServer::accessLog() const {
    return readLines(directory_.path(nginx_files::AccessLog));
}

std::vector<std::string> NginxServer::awaitAccessLog(std::size_t count) const {
    return awaitLines(directory_.path(nginx_files::AccessLog), count);
}

std::string NginxServer::errorLog() const {
    return readWholeFile(directory_.path(nginx_files::ErrorLog));
}

std::string NginxServer::servedPath(const std::string& name) const {
    return directory_.path(nginx_files::Served) + '/' + name;
}

void NginxServer::awaitFirstReply() const {
    try {
        RawClient client(port_, family_);
        client.get("/ready", "Connection: close\r\n");
        if (client.receiveAll().find("200 OK") != std::string::npos) return;
    } catch (const std::system_error&) {
        // nginx has ended, its words are told below
    }
    throw std::runtime_error("nginx does not serve: " + errorLog());
}

}  // namespace kel::http::test
