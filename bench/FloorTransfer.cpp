// SPDX-License-Identifier: MIT

// As the engine does: the devices' releases know no other name for CURLOPT_PROTOCOLS.
#define CURL_DISABLE_DEPRECATION

#include "FloorTransfer.h"

#include <sys/select.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "FloorIdentity.h"

namespace kel::http::bench {
namespace {

constexpr long redirect_limit = 5;

}  // namespace

// Sends what the engine sends: bench/run compares the requests of both.
CURL* FloorTransfer::setUp(CURLSH* cookies, const FloorFiles& files, FloorSockets& sockets) {
    easy_ = curl_easy_init();
    if (easy_ == nullptr) std::abort();
    addCallbacks();
    addTarget();
    addSockets(sockets);
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, redirect_limit);
    curl_easy_setopt(easy_, CURLOPT_XFERINFOFUNCTION, &FloorTransfer::takeProgress);
    curl_easy_setopt(easy_, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(easy_, CURLOPT_NOPROGRESS, 0L);
    addCookies(cookies, files.cookies);
    addHeaders();
    addTls(files.authorities);
    curl_easy_setopt(easy_, CURLOPT_IPRESOLVE, long{CURL_IPRESOLVE_WHATEVER});
    return easy_;
}

void FloorTransfer::addCallbacks() {
    curl_easy_setopt(easy_, CURLOPT_READFUNCTION, &FloorTransfer::sendNothing);
    curl_easy_setopt(easy_, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(easy_, CURLOPT_DEBUGFUNCTION, &FloorTransfer::trace);
    curl_easy_setopt(easy_, CURLOPT_DEBUGDATA, this);
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, error_text_.data());
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);
#endif
}

void FloorTransfer::addTarget() {
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
    curl_easy_setopt(easy_, CURLOPT_DEFAULT_PROTOCOL, "http");
    curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &FloorTransfer::takeBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &FloorTransfer::takeHeader);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
}

void FloorTransfer::addSockets(FloorSockets& sockets) {
    curl_easy_setopt(easy_, CURLOPT_SOCKOPTFUNCTION, &FloorTransfer::watchSocket);
    curl_easy_setopt(easy_, CURLOPT_SOCKOPTDATA, &sockets);
    curl_easy_setopt(easy_, CURLOPT_CLOSESOCKETFUNCTION, &FloorTransfer::closeSocket);
    curl_easy_setopt(easy_, CURLOPT_CLOSESOCKETDATA, &sockets);
}

void FloorTransfer::addCookies(CURLSH* cookies, const std::string& file) {
    curl_easy_setopt(easy_, CURLOPT_SHARE, cookies);
    curl_easy_setopt(easy_, CURLOPT_COOKIEFILE, file.c_str());
}

void FloorTransfer::addHeaders() {
    for (const char* const line :
         {"Content-Type: text/xml; charset=utf-8", "User-Agent: Tervo/kel-http-default (id=noversion)",
          "Accept-Charset: ISO-8859-1,utf-8"}) {
        header_lines_ = curl_slist_append(header_lines_, line);
    }
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, header_lines_);
}

void FloorTransfer::addTls(const std::string& ca_file) {
    curl_easy_setopt(easy_, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_1});
    curl_easy_setopt(easy_, CURLOPT_SSL_CTX_FUNCTION, &presentDeviceIdentity);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy_, CURLOPT_CAINFO, ca_file.empty() ? nullptr : ca_file.c_str());
    curl_easy_setopt(easy_, CURLOPT_CAPATH, nullptr);
}

void FloorTransfer::finish(CURLcode result) {
    if (result != CURLE_OK) {
        std::fprintf(stderr, "kel-http-bench: %s\n", error_text_.data());
        std::abort();
    }
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    status_ = static_cast<int>(status);
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, nullptr);
    if (total_ != 0) ++completions_;
}

void FloorTransfer::postReports() {
    for (; completions_ > 0; --completions_) executor_.post([] {}, 0);
}

void FloorTransfer::release() {
    if (easy_ == nullptr) return;
    curl_easy_setopt(easy_, CURLOPT_NOPROGRESS, 1L);
    curl_easy_cleanup(std::exchange(easy_, nullptr));
    curl_slist_free_all(std::exchange(header_lines_, nullptr));
}

int FloorTransfer::trace(CURL*, curl_infotype, char*, std::size_t, void*) {
    return 0;
}

std::size_t FloorTransfer::takeHeader(char* data, std::size_t size, std::size_t count, void* transfer) {
    static_cast<FloorTransfer*>(transfer)->headers_.append(data, size * count);
    return size * count;
}

std::size_t FloorTransfer::sendNothing(char* /*buffer*/, std::size_t /*size*/, std::size_t /*count*/, void* /*data*/) {
    return CURL_READFUNC_ABORT;
}

std::size_t FloorTransfer::takeBody(char* data, std::size_t size, std::size_t count, void* transfer) {
    FloorTransfer& self = *static_cast<FloorTransfer*>(transfer);
    if (self.body_.empty()) self.reserveBody(size * count);
    self.body_.append(data, size * count);
    return size * count;
}

// A body that comes in one piece is made for that anyway.
void FloorTransfer::reserveBody(std::size_t piece) {
    curl_off_t length = 0;
    curl_easy_getinfo(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length > static_cast<curl_off_t>(piece)) body_.reserve(static_cast<std::size_t>(length));
}

int FloorTransfer::takeProgress(void* transfer, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
    FloorTransfer& self = *static_cast<FloorTransfer*>(transfer);
    self.total_ = total;
    if (now == total && total != 0) ++self.completions_;
    return 0;
}

int FloorTransfer::watchSocket(void* sockets, curl_socket_t descriptor, curlsocktype) {
    if (descriptor >= FD_SETSIZE) static_cast<FloorSockets*>(sockets)->beyond_select = true;
    return CURL_SOCKOPT_OK;
}

int FloorTransfer::closeSocket(void* sockets, curl_socket_t descriptor) {
    static_cast<FloorSockets*>(sockets)->closed = true;
    return close(descriptor);
}

}  // namespace kel::http::bench
