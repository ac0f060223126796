// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"

namespace kel::http::test {

// A real nginx on the loopback interface with a configuration, folders and ports of its own.
//
//   /NAME                  the file writeFile("NAME", ...) has put there, with ETag and ranges
//   /limit/NAME?rate=10k   the same, at no more than this many bytes per second (100k without `rate`)
//   /gzip/NAME             the same, compressed for a client which accepts that
//   /auth/secret           "welcome", for AuthUser and AuthPassword by basic authentication
//   /redirect/N            N redirects (302), to /redirect/N-1 and so on; /redirect/0 is "arrived". N up to 64
//   /status/CODE           200 201 202 204 206 301 302 303 304 307 308 400 401 403 404 405 407 408 409 410 412 413 416
//                          429 500 501 502 503 504, with the body "status CODE" where there may be one; the redirects
//                          lead to /redirect/0
//   /put/NAME              PUT stores a file which readFile("put/NAME") returns and GET serves; DELETE removes it
//   /post                  takes any method; the body is kept for postedBodies(), the answer is "received"
//   /echo                  as /post, but answers with the body, which must not be empty
//   /headers               "headers", with Set-Cookie twice, Location, X-Empty (a tab) and X-Colons ("a:b: c")
//
// Life:    serves from the constructor on until stop() or the destructor. It also dies with the thread that made it.
// Threads: the constructor's, for everything.
// Errors:  the constructor throws std::runtime_error, with nginx's own words, when nginx does not start.
class NginxServer {
 public:
    static constexpr const char* AuthUser = "user";
    static constexpr const char* AuthPassword = "pass word:@%";

    struct Options {
        Family family = Family::IPv4;
        // Serves the same over TLS too, on a second port, with HTTP/1.1.
        bool tls = false;
        // Whether TLS comes with HTTP/2.
        bool http2 = true;
        // The certificate chain and key to serve, as PEM files. Empty: those of TestCertificates::shared().
        std::string certificate_file;
        std::string key_file;
        // Further directives for the server, such as "ssl_verify_client on;".
        std::string directives;
    };

    NginxServer();
    explicit NginxServer(const Options& options);
    ~NginxServer();
    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    std::uint16_t port() const { return port_; }
    // 0 without TLS.
    std::uint16_t tlsPort() const { return tls_port_; }
    // "http://127.0.0.1:4711/path", "https://127.0.0.1:4712/path"
    std::string url(const std::string& path = "/") const;
    std::string tlsUrl(const std::string& path = "/") const;

    // Stops serving at once: open connections break, new ones are refused. May be called again.
    void stop();

    // Files below the served folder. writeFile() makes the folders it needs.
    void writeFile(const std::string& name, const std::string& bytes);
    std::string readFile(const std::string& name) const;
    bool fileExists(const std::string& name) const;

    // The bodies /post and /echo have read so far, in the order in which they began.
    std::vector<std::string> postedBodies() const;

    // One line a request: "CONNECTION METHOD TARGET STATUS". The connection is a number, the same for all requests that
    // came over it. A line is written after its reply, so a test waits for it.
    std::vector<std::string> accessLog() const;
    // Waits for `count` lines under the one deadline and returns what is there then.
    std::vector<std::string> awaitAccessLog(std::size_t count) const;

    std::string errorLog() const;

 private:
    std::string servedPath(const std::string& name) const;
    void start(const std::vector<int>& sockets);
    void awaitFirstReply() const;

    TemporaryDirectory directory_;
    std::uint16_t port_ = 0;
    std::uint16_t tls_port_ = 0;
    Family family_;
    ServerProcess process_;
};

}  // namespace kel::http::test
