// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace kel::http::demo {

// A web server inside this process, on the loopback interface and a port that was free.
//
//   /echo          any method; a JSON object tells what has arrived: "method", "content_type" without its parameters,
//                  "length" and "sha256" of the body; for a form instead of these two "parts", which tells by name
//                  "file_name", "content_type", "length" and "sha256"
//   /redirect/N    302 to /redirect/N-1; /redirect/0 is "arrived"
//   /stall         no answer as long as the server lives
//   /image         image_bytes bytes, or the part of them that is asked for
// Everything else is 404.
//
// Threads: made and destroyed by one; the server has its own.
class OriginServer {
 public:
    static constexpr std::size_t image_bytes = 67108864;

    // Errors: std::runtime_error when there is no port.
    OriginServer();
    ~OriginServer();
    OriginServer(const OriginServer&) = delete;
    OriginServer& operator=(const OriginServer&) = delete;

    std::string url(const std::string& path) const;

    // Of the image, as sha256_of() tells it.
    std::string image_checksum() const;

    // Called whenever a request for /stall has arrived, on one of the server's threads.
    void on_stall(std::function<void()> callback);

 private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// As the server tells it: SHA-256 in hexadecimal digits.
std::string sha256_of(const std::string& bytes);

}  // namespace kel::http::demo
