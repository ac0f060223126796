// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <string>

#include "kel-http/curl/Engine.h"
#include "kel-http/curl/ProxyBlackList.h"
#include "kel-http/curl/Request.h"
#include "ko/mutex.h"
#include "logging/Logger.h"

namespace kel::http {

// Which proxy a transfer goes through, and whether it tries another one.
// The settings: any thread. All else: engine thread.
class EngineProxy {
 public:
    using Mode = Engine::ProxyConfigMode;
    struct Settings {
        Mode mode = Mode::Off;
        std::string url;
        std::string user;
        std::string password;
    };

    EngineProxy(ProxyBlackList::Clock clock, logging::Logger& log);

    // For all transfers that are set up from now on.
    void setProxyConfig(Settings replacement);
    Mode getProxyMode() const;
    std::string getProxyUrl() const;
    std::string getProxyUser() const;
    std::string getProxyPassword() const;

    // The options of a transfer; takes the request's next proxy if it has a list of its own.
    void addProxyConfig(CURL* easy, Request& request);

    // Notes how the proxy of a completed transfer did. True when the request is to go to its next one.
    bool retryWithNextProxy(CURL* easy, const Request& request, long responseCode);

 private:
    void takeNextProxy(Request& request, Mode mode);
    void addProxyCredentials(CURL* easy, const Request& request) const;

    mutable ko::mutex variableMutex;
    Settings proxyConfig KO_GUARDED_BY(variableMutex);
    ProxyBlackList proxyBlackList;
    logging::Logger* const logger;
};

}  // namespace kel::http
