// SPDX-License-Identifier: MIT
#include "kel-http/curl/Request.h"

#include <curl/curl.h>

#include <tuple>

#include "kel-http/curl/Engine.h"

namespace kel::http {
namespace {

std::atomic<std::uint16_t> next_id{1};

}  // namespace

Request::Request() = default;

Request::Request(const RequestConfig& request_config) : config(request_config) {
    static_assert(std::tuple_size_v<decltype(errorBuffer)> >= CURL_ERROR_SIZE);
}

Request::~Request() = default;

void Request::runRequest() {
    allocateRequestId();
    currentProxy = tl::nullopt;  // of an earlier run
    remainingProxies.clear();
    if (!Engine::hasEngine()) return;
    if (config.proxies.empty()) return Engine::ask(&Engine::addNewRequest, shared_from_this());
    Engine::ask(&Engine::addNewRequestThroughProxies, shared_from_this());
}

void Request::tryToCancelRequest() {
    cancelled = true;
    if (Engine::hasEngine()) Engine::ask(&Engine::tryToCancelRequest, shared_from_this());
}

void Request::pauseRequest() {
    if (paused.exchange(true)) return;
    if (Engine::hasEngine()) Engine::ask(&Engine::pauseRequest, shared_from_this());
}

void Request::resumeRequest() {
    if (!paused.exchange(false)) return;
    if (Engine::hasEngine()) Engine::ask(&Engine::resumeRequest, shared_from_this());
}

void Request::notifyHeader(std::string_view /*line*/) {}

void Request::notifyRemoteAddr(std::string /*address*/, long /*port*/) {}

void Request::reportDownloadProgress(unsigned int /*total*/, unsigned int /*received*/) {}

void Request::setResponseCode(unsigned int code) {
    responseCode = code;
}

unsigned int Request::getResponseCode() const {
    return responseCode;
}

void Request::setAllowPayloadLogging(bool allow) {
    payloadLogging = allow;
}

bool Request::allowsPayloadLogging() const {
    return payloadLogging;
}

tl::optional<std::string> Request::getRedirectUrl() const {
    return redirectUrl;
}

unsigned int Request::getRedirectCount() const {
    return redirectCount;
}

tl::optional<TimingData> Request::getTimingData() const {
    return timingData;
}

std::uint16_t Request::id() const {
    return requestId;
}

void Request::allocateRequestId() {
    std::uint16_t id = 0;
    // The counter wraps; 0 means "none" in log lines.
    while (id == 0) id = next_id.fetch_add(1);
    requestId = id;
}

bool Request::isPaused() const {
    return paused;
}

}  // namespace kel::http
