// SPDX-License-Identifier: MIT
#include "kel-http/curl/Request.h"

#include <new>
#include <utility>

#include "kel-http/curl/Engine.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

std::atomic<std::uint16_t> next_id{1};

void tellMissingEngine(std::uint16_t id) {
    writeLine(
        *logging::getLogger("HttpClient", 0), log_level::error,
        "({}) Request::{}: There is no engine: nothing is sent, and no callback will come. Make a kel::http::Engine "
        "before the first request, and keep it until the last one has ended",
        id, "runRequest");
}

// Its proxy becomes that of all requests: who bypasses the proxies of its list takes them away from everybody. That has to
// be in force before the engine comes to the request, and is taken back when this can not be started.
void startWithProxyForAll(Engine& engine, const std::shared_ptr<Request>& request) {
    const RequestConfig& config = request->config;
    const auto mode = static_cast<Engine::ProxyConfigMode>(static_cast<std::uint32_t>(config.proxy) - 1);
    const Engine::ProxyConfigMode earlier_mode = engine.getProxyMode();
    const std::string earlier_url = engine.getProxyUrl();
    const std::string earlier_user = engine.getProxyUser();
    const std::string earlier_password = engine.getProxyPassword();
    engine.setProxyConfig(mode, config.proxies.front(), config.proxy_user, config.proxy_password);
    try {
        engine.addNewRequestWithProxies(request, config.proxies);
    } catch (const std::bad_alloc&) {
        engine.setProxyConfig(earlier_mode, earlier_url, earlier_user, earlier_password);
        throw;
    }
}

}  // namespace

Request::Request() : impl(std::make_unique<Impl>()) {}

Request::Request(const RequestConfig& request_config) : config(request_config), impl(std::make_unique<Impl>()) {}

Request::~Request() = default;

void Request::runRequest() {
    allocateRequestId();
    bool has_engine = false;
    Engine::ask([this, &has_engine](Engine& engine) {
        has_engine = true;
        if (config.proxies.empty()) return engine.addNewRequest(shared_from_this());
        if (config.proxy == Proxy::use_proxy)
            return engine.addNewRequestWithProxies(shared_from_this(), config.proxies);
        startWithProxyForAll(engine, shared_from_this());
    });
    if (!has_engine) tellMissingEngine(id());
}

void Request::tryToCancelRequest() {
    impl->firstWantedRun = impl->lastRun + 1;
    Engine::ask([this](Engine& engine) { engine.tryToCancelRequest(shared_from_this()); });
}

void Request::pauseRequest() {
    if (impl->paused.exchange(true)) return;
    Engine::ask([this](Engine& engine) { engine.pauseRequest(shared_from_this()); });
}

void Request::resumeRequest() {
    if (!impl->paused.exchange(false)) return;
    Engine::ask([this](Engine& engine) { engine.resumeRequest(shared_from_this()); });
}

void Request::notifyHeader(std::string_view /*line*/) {}

void Request::notifyRemoteAddr(std::string /*address*/, long /*port*/) {}

void Request::reportDownloadProgress(unsigned int /*total*/, unsigned int /*received*/) {}

void Request::setResponseCode(unsigned int code) {
    impl->responseCode = code;
}

unsigned int Request::getResponseCode() const {
    return impl->responseCode;
}

void Request::setAllowPayloadLogging(bool allow) {
    impl->payloadLogging = allow;
}

bool Request::allowsPayloadLogging() const {
    return impl->payloadLogging;
}

tl::optional<std::string> Request::getRedirectUrl() const {
    return impl->redirectUrl;
}

unsigned int Request::getRedirectCount() const {
    return impl->redirectCount;
}

tl::optional<TimingData> Request::getTimingData() const {
    return impl->timingData;
}

std::uint16_t Request::id() const {
    return impl->requestId;
}

void Request::allocateRequestId() {
    std::uint16_t id = 0;
    // The counter wraps; 0 means "none" in log lines.
    while (id == 0) id = next_id.fetch_add(1);
    impl->requestId = id;
}

bool Request::isPaused() const {
    return impl->paused;
}

tl::optional<std::string> Request::takeRedirectUrl() {
    return std::move(impl->redirectUrl);
}

}  // namespace kel::http
