// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineProxy.h"

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "kel-http/Deployment.h"
#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/Conceal.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"
#include "tervo/platforminfo.h"

namespace kel::http {
namespace {

constexpr const char* own_hosts = "localhost,127.0.0.1";
constexpr const char* own_hosts_and_services = "localhost,127.0.0.1, ." KEL_HTTP_NO_PROXY_DOMAIN;

const char* hostsWithoutProxy() {
    namespace info = tervo::platforminfo;
    return info::is_release_build() && !info::is_test_mode() ? own_hosts : own_hosts_and_services;
}

using Escaped = std::unique_ptr<char, void (*)(void*)>;

// libcurl decodes the credentials, which may hold the colon that parts them. Null: there is no memory.
Escaped escape(CURL* easy, const std::string& text) {
    return {curl_easy_escape(easy, text.c_str(), 0), &curl_free};
}

}  // namespace

EngineProxy::EngineProxy(ProxyBlackList::Clock clock, logging::Logger& log)
    : variableMutex("VariableMutex"), proxyBlackList(clock), logger(&log) {}

void EngineProxy::setProxyConfig(Settings replacement) {
    if (logger->verbosity() >= log_level::info) {
        writeLine(*logger, log_level::info, "kel-http::Engine::{}: proxy mode='{}', url='{}'", "setProxyConfig",
                  static_cast<std::uint32_t>(replacement.mode), concealedProxy(replacement.url));
    }
    ko::lock_guard lock(variableMutex);
    std::swap(proxyConfig, replacement);
}

EngineProxy::Mode EngineProxy::getProxyMode() const {
    ko::lock_guard lock(variableMutex);
    return proxyConfig.mode;
}

std::string EngineProxy::getProxyUrl() const {
    ko::lock_guard lock(variableMutex);
    return proxyConfig.url;
}

std::string EngineProxy::getProxyUser() const {
    ko::lock_guard lock(variableMutex);
    return proxyConfig.user;
}

std::string EngineProxy::getProxyPassword() const {
    ko::lock_guard lock(variableMutex);
    return proxyConfig.password;
}

void EngineProxy::addProxyConfig(CURL* easy, Request& request) {
    stateOf(request).proxyIsFromList = false;
    if (request.config.proxy == Proxy::bypass_proxy) return;
    const Mode mode = getProxyMode();
    if (mode == Mode::Off) return;
    if (mode == Mode::Manual) {
        request.currentProxy = getProxyUrl();
    } else if (mode == Mode::PACUrl || mode == Mode::WPAD) {
        takeNextProxy(request, mode);
    }
    const std::string proxy = request.currentProxy.value_or("");
    if (logger->verbosity() >= log_level::debug) {
        writeLine(*logger, log_level::debug, "({}) Engine::{} proxy mode={}, using proxy '{}'", request.id(),
                  "addProxyConfig", static_cast<std::uint32_t>(mode), concealedProxy(proxy));
    }
    setOption(easy, CURLOPT_PROXY, proxy.c_str());
    setOption(easy, CURLOPT_HTTPPROXYTUNNEL, 1L);
    setOption(easy, CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    setOption(easy, CURLOPT_NOPROXY, hostsWithoutProxy());
    if (mode == Mode::Manual) addProxyCredentials(easy, request);
}

void EngineProxy::takeNextProxy(Request& request, Mode mode) {
    std::list<std::string>& candidates = request.remainingProxies;
    proxyBlackList.sortProxies(candidates);
    if (logger->verbosity() >= log_level::detail) {
        writeLine(*logger, log_level::detail, "{}", proxyBlackList.dump(candidates));
    }
    if (candidates.empty()) {
        writeLine(*logger, log_level::error, "({}) Engine::{} proxy mode={} but proxy list is empty!", request.id(),
                  "addProxyConfig", static_cast<std::uint32_t>(mode));
        request.currentProxy = std::string();
        return;
    }
    request.currentProxy = std::move(candidates.front());
    candidates.pop_front();
    stateOf(request).proxyIsFromList = true;
}

void EngineProxy::addProxyCredentials(CURL* easy, const Request& request) const {
    const std::string user = getProxyUser();
    if (user.empty()) return;
    const Escaped escapedUser = escape(easy, user);
    const Escaped escapedPassword = escape(easy, getProxyPassword());
    if (!escapedUser) {
        writeLine(*logger, log_level::error, "({}) {}: Encoding proxy username failed", request.id(), "addProxyConfig");
        throw std::bad_alloc();
    }
    if (!escapedPassword) {
        writeLine(*logger, log_level::error, "({}) {}: Encoding proxy password failed", request.id(), "addProxyConfig");
        throw std::bad_alloc();
    }
    const std::string credentials = fmt::format("{}:{}", escapedUser.get(), escapedPassword.get());
    setOption(easy, CURLOPT_PROXYUSERPWD, credentials.c_str());
}

// An answer of the server says that the proxy works. Without one the next candidate may do better: true when the request
// goes there. A proxy that is not the request's own is the only one there is.
bool EngineProxy::retryWithNextProxy(CURL* easy, const Request& request, long responseCode) {
    // Off or bypassed since an earlier attempt: that attempt's proxy still counts.
    if (!request.currentProxy) return false;
    if (responseCode != 0) {
        proxyBlackList.success(*request.currentProxy);
        return false;
    }
    proxyBlackList.fail(*request.currentProxy);
    long connectCode = -1;
    const CURLcode ret = curl_easy_getinfo(easy, CURLINFO_HTTP_CONNECTCODE, &connectCode);
    KO_ASSERT(ret == CURLE_OK);
    writeLine(*logger, log_level::always, "({}) Engine::{}: CURLINFO_HTTP_CONNECTCODE='{}'", request.id(),
              "processCompletedTasks", connectCode);
    if (!stateOf(request).proxyIsFromList || request.remainingProxies.empty()) return false;
    writeLine(*logger, log_level::detail, "({}) Engine::{}: Retry with another proxy", request.id(),
              "processCompletedTasks");
    return true;
}

}  // namespace kel::http
