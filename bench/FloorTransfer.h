// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <string>

#include "ko/executor.h"

namespace kel::http::bench {

// What libcurl reads.
struct FloorFiles {
    std::string authorities;  // trusted certificates; may be empty
    std::string cookies;
};

// What the loop has to know of libcurl's sockets.
struct FloorSockets {
    bool beyond_select = false;  // there has been one that select(2) can not wait for
    bool closed = false;         // libcurl has closed one, and may go on at once with the transfer that it was for
};

// One GET request of the floor: a fresh easy handle with the options that the engine sets, and what the answer brings.
//
// Threads: made and read on the executor's thread, in between on the loop's alone.
class FloorTransfer {
 public:
    FloorTransfer(const std::string& url, ko::executor& executor) : url_(url), executor_(executor) {}
    FloorTransfer(const FloorTransfer&) = delete;
    FloorTransfer& operator=(const FloorTransfer&) = delete;
    ~FloorTransfer() { release(); }

    // Makes the easy handle. `sockets` outlive all of them.
    CURL* setUp(CURLSH* cookies, const FloorFiles& files, FloorSockets& sockets);

    // Reads the outcome off the easy handle, which has then done its work. A failed transfer ends the process.
    void finish(CURLcode result);

    // Each report of a complete body crosses to the executor as a task of its own, ahead of the answer.
    void postReports();

    // Frees what libcurl has. The loop's thread.
    void release();

    int status() const { return status_; }
    const std::string& body() const { return body_; }

 private:
    void addCallbacks();
    void addTarget();
    void addSockets(FloorSockets& sockets);
    void addCookies(CURLSH* cookies, const std::string& file);
    void addHeaders();
    void addTls(const std::string& ca_file);
    void reserveBody(std::size_t piece);

    static int trace(CURL* easy, curl_infotype type, char* data, std::size_t size, void* context);
    static std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* transfer);
    static std::size_t sendNothing(char* buffer, std::size_t size, std::size_t count, void* data);
    static std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* transfer);
    static int takeProgress(void* transfer, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t);
    static int watchSocket(void* sockets, curl_socket_t descriptor, curlsocktype purpose);
    static int closeSocket(void* sockets, curl_socket_t descriptor);

    const std::string url_;
    ko::executor& executor_;
    int completions_ = 0;
    CURL* easy_ = nullptr;
    curl_slist* header_lines_ = nullptr;
    std::array<char, CURL_ERROR_SIZE> error_text_{};
    std::string headers_;
    std::string body_;
    curl_off_t total_ = 0;
    int status_ = 0;
};

}  // namespace kel::http::bench
