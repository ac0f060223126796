// SPDX-License-Identifier: MIT
#include "TinyproxyServer.h"

#include <filesystem>

#include "Files.h"
#include "Sockets.h"

namespace kel::http::test {

TinyproxyServer::TinyproxyServer(const std::optional<ProxyUser>& user)
    : reserved_(reserveOnLoopback()), port_(portOf(reserved_)) {
    std::filesystem::permissions(directory_.path(), std::filesystem::perms(0755));
    std::string configuration = "Port " + std::to_string(port_) +
                                "\n"
                                "Listen 127.0.0.1\n"
                                "Timeout 600\n"
                                "MaxClients 200\n"
                                "LogLevel Info\n";
    if (user) configuration += "BasicAuth " + user->name + ' ' + user->password + '\n';
    writeWholeFile(directory_.path("tinyproxy.conf"), configuration);

    ServerProcess::Program tinyproxy;
    tinyproxy.words = {KEL_TEST_TINYPROXY, "-d", "-c", directory_.path("tinyproxy.conf")};
    tinyproxy.log_file = directory_.path("log");
    tinyproxy.stop_signal = SIGKILL;  // SIGTERM would wait for its connections
    tinyproxy.as_nobody = true;
    process_.start(tinyproxy);
    process_.awaitOutput("Accepting connections");
}

std::string TinyproxyServer::url() const {
    return "http://" + loopbackAuthority(port_);
}

std::string TinyproxyServer::log() const {
    return readWholeFile(directory_.path("log"));
}

}  // namespace kel::http::test
