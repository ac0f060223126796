// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EngineBody.h"
#include "kel-http/curl/EngineCookies.h"
#include "kel-http/curl/EngineProxy.h"
#include "kel-http/curl/SocketEvents.h"
#include "kel-http/curl/TlsOverride.h"
#include "logging/Logger.h"

namespace kel::http {

// Turns a request into libcurl's options, step by step. Engine thread.
class EngineSetup {
 public:
    // `of_engine`, which is just being constructed, is asked for its TLS options, which a derived one may replace, and is
    // what watches sockets; `of_sockets` closes them.
    EngineSetup(Engine& of_engine, SocketEvents& of_sockets, EngineCookies& of_cookies, const EngineBody& of_body,
                EngineProxy& of_proxy, logging::Logger& log);

    // Describes the request in the log.
    void dumpRequest(const Request& request) const;

    // All options of the transfer. Throws when it can not be set up; what has been set by then goes with `task`.
    void prepare(const TaskPtr& task);

 private:
    void addCallbacks(CURL* easy, Request& request) const;
    static void addTarget(CURL* easy, const Request& request);
    void addDownloadLimits(CURL* easy, Request& request) const;
    void addRedirects(CURL* easy, const Request& request) const;
    static void addProgress(CURL* easy);
    void addTimeout(CURL* easy, const Request& request) const;
    static void addCredentials(CURL* easy, const Request& request);
    static void addHeadersToRequest(CURL* easy, const RequestPtr& request, const TaskPtr& task);
    static void addIPVersionToRequest(CURL* easy, const RequestPtr& request);
    void addTls(CURL* easy, Engine::ActiveTask& task) const;
    void addLoopSafeguards(CURL* easy) const;
    void addFreshState(CURL* easy, Engine::ActiveTask& task) const;

    Engine& engine;
    const TlsOverride tlsOverride;
    SocketEvents& sockets;
    EngineCookies& cookies;
    const EngineBody& body;
    EngineProxy& proxy;
    logging::Logger* const logger;
};

}  // namespace kel::http
