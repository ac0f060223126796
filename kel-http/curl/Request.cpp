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
    Engine::ask([this](Engine& engine) {
        if (config.proxies.empty()) return engine.addNewRequest(shared_from_this());
        const auto choice = static_cast<std::uint32_t>(config.proxy);
        if (choice > 0) {
            // For all requests: who bypasses the proxies of its list takes them away from everybody.
            engine.setProxyConfig(static_cast<Engine::ProxyConfigMode>(choice - 1), config.proxies.front(),
                                  config.proxy_user, config.proxy_password);
        }
        engine.addNewRequestWithProxies(shared_from_this(), config.proxies);
    });
}

void Request::tryToCancelRequest() {
    firstWantedRun = lastRun + 1;
    Engine::ask([this](Engine& engine) { engine.tryToCancelRequest(shared_from_this()); });
}

void Request::pauseRequest() {
    if (paused.exchange(true)) return;
    Engine::ask([this](Engine& engine) { engine.pauseRequest(shared_from_this()); });
}

void Request::resumeRequest() {
    if (!paused.exchange(false)) return;
    Engine::ask([this](Engine& engine) { engine.resumeRequest(shared_from_this()); });
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
