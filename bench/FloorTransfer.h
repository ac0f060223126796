// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <string>

namespace kel::http::bench {

// One GET request of the floor: a fresh easy handle with the options that the engine sets, and what the answer brings.
//
// Threads: made and read on the executor's thread, in between on the loop's alone.
class FloorTransfer {
 public:
    explicit FloorTransfer(const std::string& url) : url_(url) {}
    FloorTransfer(const FloorTransfer&) = delete;
    FloorTransfer& operator=(const FloorTransfer&) = delete;
    ~FloorTransfer() { release(); }

    // Makes the easy handle. `ca_file` may be empty.
    CURL* setUp(const std::string& ca_file);

    // Reads the outcome off the easy handle, which has then done its work. A failed transfer ends the process.
    void finish(CURLcode result);

    // Frees what libcurl has. The loop's thread.
    void release();

    int status() const { return status_; }
    const std::string& body() const { return body_; }

 private:
    void addCallbacks();
    void addTarget();
    void addHeaders();
    void addTls(const std::string& ca_file);

    static int trace(CURL* easy, curl_infotype type, char* data, std::size_t size, void* context);
    static std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* transfer);
    static int takeProgress(void* transfer, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t);
    static int watchSocket(void* context, curl_socket_t descriptor, curlsocktype purpose);

    const std::string url_;
    CURL* easy_ = nullptr;
    curl_slist* header_lines_ = nullptr;
    std::array<char, CURL_ERROR_SIZE> error_text_{};
    std::string headers_;
    std::string body_;
    curl_off_t received_ = 0;
    int status_ = 0;
};

}  // namespace kel::http::bench
