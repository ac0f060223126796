// SPDX-License-Identifier: MIT
#include "SquidServer.h"

#include <openssl/evp.h>

#include <array>
#include <filesystem>

#include "Files.h"
#include "Sockets.h"

namespace kel::http::test {

namespace {

constexpr const char* Helpers = "/usr/lib/squid/";

// Its own files, and what it would do besides serving, are turned off: several run at once, as anybody.
constexpr const char* Common = R"(
pid_filename none
cache_log /dev/null
netdb_filename none
coredump_dir none
pinger_enable off
cache deny all
cache_mem 0 MB
max_filedescriptors 1024
dns_nameservers 127.0.0.1
visible_hostname localhost
shutdown_lifetime 0 seconds
logformat line %ru %>Hs %un
)";

std::string md5(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), bytes.data(), &size, EVP_md5(), nullptr);
    constexpr const char* digits = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < size; ++i) {
        hex += digits[bytes[i] >> 4U];
        hex += digits[bytes[i] & 15U];
    }
    return hex;
}

// What the helpers read: hashes only, since a plain password could not have every character.
std::string passwordFile(SquidServer::Access access, const std::vector<ProxyUser>& users) {
    std::string text;
    for (const ProxyUser& user : users) {
        if (access == SquidServer::Access::Basic) {
            text += user.name + ':' + md5(user.password) + '\n';
        } else {
            text += user.name + ":kel:" + md5(user.name + ":kel:" + user.password) + '\n';
        }
    }
    return text;
}

std::string accessRules(SquidServer::Access access, const std::string& password_file) {
    if (access == SquidServer::Access::Open) return "http_access allow all\n";
    const bool basic = access == SquidServer::Access::Basic;
    const std::string scheme = std::string("auth_param ") + (basic ? "basic" : "digest");
    const std::string helper = basic ? "basic_ncsa_auth " : "digest_file_auth -c ";
    return scheme + " program " + Helpers + helper + password_file + '\n' +  //
           scheme + " children 1 startup=1 idle=1\n" +                       //
           scheme + " realm kel\n" +                                         //
           "acl known proxy_auth REQUIRED\n"
           "http_access allow known\n"
           "http_access deny all\n";
}

// A file that squid may write, whoever it is.
void makeOpenFile(const std::string& path) {
    writeWholeFile(path, "");
    std::filesystem::permissions(path, std::filesystem::perms(0666));
}

// squid makes some even where it has no use for them, and leaves them behind when it is stopped at once.
void removeSharedMemory(const std::string& service) {
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        if (entry.path().filename().string().rfind(service + '-', 0) == 0) std::filesystem::remove(entry.path());
    }
}

}  // namespace

SquidServer::SquidServer(Access access, const std::vector<ProxyUser>& users)
    : reserved_(reserveOnLoopback()), port_(portOf(reserved_)) {
    std::filesystem::permissions(directory_.path(), std::filesystem::perms(0755));
    makeOpenFile(directory_.path("access.log"));
    writeWholeFile(directory_.path("passwords"), passwordFile(access, users));
    writeWholeFile(directory_.path("squid.conf"), Common + accessRules(access, directory_.path("passwords")) +
                                                      "access_log stdio:" + directory_.path("access.log") + " line\n" +
                                                      "http_port " + loopbackAuthority(port_) + '\n');

    // Letters and digits only; the end of the folder's name is nobody else's.
    const std::string service = "kel" + directory_.path().substr(directory_.path().size() - 6);
    ServerProcess::Program squid;
    squid.words = {KEL_TEST_SQUID, "-N", "-n", service, "-d", "1", "-f", directory_.path("squid.conf")};
    squid.environment = {"PATH=/usr/bin:/bin"};
    squid.log_file = directory_.path("squid.log");
    squid.stop_signal = SIGKILL;  // SIGTERM would take it a second; there is nothing to be saved
    squid.as_nobody = true;
    process_.start(squid);
    process_.awaitListening(port_);
    removeSharedMemory(service);
}

std::string SquidServer::url() const {
    return "http://" + loopbackAuthority(port_);
}

std::vector<std::string> SquidServer::awaitAccessLog(std::size_t count) const {
    return awaitLines(directory_.path("access.log"), count);
}

}  // namespace kel::http::test
