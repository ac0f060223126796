// SPDX-License-Identifier: MIT
#include "OpensslServer.h"

#include "Files.h"
#include "Sockets.h"
#include "TestCertificates.h"

namespace kel::http::test {

namespace {

constexpr const char* Ready = "ACCEPT 127.0.0.1:";

}  // namespace

OpensslServer::OpensslServer(const std::vector<std::string>& arguments) {
    const CertificateFiles& files = TestCertificates::shared().server();
    ServerProcess::Program program;
    program.words = {KEL_TEST_OPENSSL,       "s_server", "-accept",     "127.0.0.1:0", "-www", "-cert",
                     files.certificate_file, "-key",     files.key_file};
    program.words.insert(program.words.end(), arguments.begin(), arguments.end());
    program.log_file = logFile();
    process_.start(program);
    process_.awaitOutput(Ready);
    const std::string printed = log();
    port_ = static_cast<std::uint16_t>(std::stoul(printed.substr(printed.find(Ready) + std::string(Ready).size())));
}

std::string OpensslServer::url() const {
    return "https://" + loopbackAuthority(port_) + '/';
}

std::string OpensslServer::log() const {
    return readWholeFile(logFile());
}

}  // namespace kel::http::test
