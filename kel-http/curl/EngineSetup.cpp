// SPDX-License-Identifier: MIT

// Newer releases have another name for CURLOPT_PROTOCOLS; the devices' releases know this one only.
#define CURL_DISABLE_DEPRECATION

#include "kel-http/curl/EngineSetup.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/EngineTls.h"
#include "kel-http/curl/EngineTrace.h"
#include "kel-http/curl/HeaderCheck.h"
#include "kel-http/curl/LongOption.h"
#include "kel-http/curl/PartialFile.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/Conceal.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

constexpr long redirect_limit = 5;

// Room for all headers that a program names, and for the three that are added.
void reserveFor(HeaderList& list, const HeaderMap& headers) {
    std::size_t bytes = 0;
    for (const auto& [name, value] : headers) bytes += name.size() + value.size();
    list.reserve(headers.size() + 3, bytes);
}

// libcurl takes a C string: behind a zero byte another host may hide than the one that logs show. An empty URL is
// refused.
const char* urlForCurl(const std::string& url) {
    return url.find('\0') == std::string::npos ? url.c_str() : "";
}

// Whatever else goes wrong, nothing is read from the program's standard input, which is what libcurl sends by default.
std::size_t readNothing(char* /*buffer*/, std::size_t /*size*/, std::size_t /*nitems*/, void* /*data*/) {
    return CURL_READFUNC_ABORT;
}

// With another method libcurl would take the offset for the request's own body, and skip as much of that.
void requireGet(const RequestConfig& config, std::uintmax_t present_bytes) {
    if (config.method == Method::GET) return;
    throw std::invalid_argument(
        fmt::format("Only a GET can resume a download, not a {}: '{}' has {} bytes already, remove the file or do not "
                    "ask to resume",
                    config.method, config.download_path, present_bytes));
}

}  // namespace

EngineSetup::EngineSetup(Engine& of_engine, SocketEvents& of_sockets, EngineCookies& of_cookies,
                         const EngineBody& of_body, EngineProxy& of_proxy, logging::Logger& log)
    : engine(of_engine),
      tlsOverride(of_engine),
      sockets(of_sockets),
      cookies(of_cookies),
      body(of_body),
      proxy(of_proxy),
      logger(&log) {}

void EngineSetup::prepare(const TaskPtr& task) {
    CURL* const easy = task->easy;
    const RequestPtr& request = task->request;
    addCallbacks(easy, *request);
    addTarget(easy, *request);
    addDownloadLimits(easy, *request);
    addRedirects(easy, *request);
    addProgress(easy);
    addTimeout(easy, *request);
    cookies.addCookies(easy, request->config, task->cookieSave);
    addCredentials(easy, *request);
    body.addHTTPMethodToRequest(easy, request, *task);
    addHeadersToRequest(easy, request, task);
    proxy.addProxyConfig(easy, *request);
    addTls(easy, *task);
    addIPVersionToRequest(easy, request);
    addLoopSafeguards(easy);
    addFreshState(easy, *task);
}

void EngineSetup::dumpRequest(const Request& request) const {
    if (logger->verbosity() < log_level::always) return;
    for (const std::string& line : request.config.dump()) {
        writeLine(*logger, log_level::always, "({}) {}", request.id(), line);
    }
}

// Callbacks get the easy handle, not the task: they find the task only while it is active.
void EngineSetup::addCallbacks(CURL* easy, Request& request) const {
    setOption(easy, CURLOPT_READFUNCTION, &readNothing);  // before all others: they may be refused
    if (EngineTrace(*logger).isWanted()) EngineTrace::turnOn(easy, *logger);
    stateOf(request).errorBuffer.front() = '\0';  // an earlier attempt may have left its text
    setOption(easy, CURLOPT_ERRORBUFFER, stateOf(request).errorBuffer.data());
}

void EngineSetup::addTarget(CURL* easy, const Request& request) {
    setOption(easy, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
    setOption(easy, CURLOPT_DEFAULT_PROTOCOL, "http");
    setOption(easy, CURLOPT_URL, urlForCurl(request.config.url));
    setOption(easy, CURLOPT_WRITEFUNCTION, &Engine::writeFunction);
    setOption(easy, CURLOPT_WRITEDATA, easy);
    setOption(easy, CURLOPT_HEADERFUNCTION, &Engine::writeHeader);
    setOption(easy, CURLOPT_HEADERDATA, easy);
}

void EngineSetup::addDownloadLimits(CURL* easy, Request& request) const {
    const RequestConfig& config = request.config;
    if (config.size_limit && fitsLongOption(*config.size_limit)) {
        setOption(easy, CURLOPT_MAXFILESIZE, static_cast<long>(*config.size_limit));
    } else if (config.size_limit) {
        // Where a long is too short for the limit libcurl can not help; the data hook counts on its own.
        writeLine(
            *logger, log_level::debug,
            "({}) a size limit of {} is too large for libcurl on this system: only notifyDataReceived() can hold to it",
            request.id(), *config.size_limit);
    }
    if (!config.resume) return;
    const auto offset = partialFileSize(config.download_path);
    stateOf(request).askedOffset = offset.value_or(0);
    if (!offset) return;
    if (config.method != Method::GET && *offset == 0) return;
    requireGet(config, *offset);
    // libcurl would refuse the number and send the whole file, to be appended to what is there.
    if (!fitsLongOption(*offset)) {
        throw std::length_error("'" + config.download_path + "' is too large to be resumed on this system: remove it");
    }
    setOption(easy, CURLOPT_RESUME_FROM, static_cast<long>(*offset));
}

void EngineSetup::addRedirects(CURL* easy, const Request& request) const {
    const RequestConfig& config = request.config;
    const std::string url = logger->verbosity() >= log_level::detail ? concealedUrl(config.url) : std::string();
    if (config.caller_handles_redirects) {
        writeLine(*logger, log_level::detail, "({}) client will handle HTTP redirects for url={}", request.id(), url);
        return;
    }
    setOption(easy, CURLOPT_FOLLOWLOCATION, 1L);
    setOption(easy, CURLOPT_MAXREDIRS, redirect_limit);
    writeLine(*logger, log_level::detail, "({}) CURL will handle HTTP redirects for url={}", request.id(), url);
}

void EngineSetup::addProgress(CURL* easy) {
    setOption(easy, CURLOPT_XFERINFOFUNCTION, &Engine::downloadProgress);
    setOption(easy, CURLOPT_XFERINFODATA, easy);
    setOption(easy, CURLOPT_NOPROGRESS, 0L);
}

void EngineSetup::addTimeout(CURL* easy, const Request& request) const {
    const RequestConfig& config = request.config;
    const std::int64_t timeout = config.timeout.count();
    // SIGPIPE is blocked on this thread, and names are looked up on others. libcurl would otherwise change how the process
    // takes the signal, and back, each time that it is called.
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
    if (timeout != 0) {
        // Cut to the length of a long, a very long time-out could become a very short one.
        constexpr std::int64_t lowest = std::numeric_limits<long>::min();
        constexpr std::int64_t longest = std::numeric_limits<long>::max();
        // Unchecked: libcurl refuses a negative one, which means none to it.
        curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(std::clamp(timeout, lowest, longest)));
        writeLine(*logger, log_level::detail, "({}) setting timeout of task to {}", request.id(), timeout);
        if (timeout > longest) {
            writeLine(*logger, log_level::error, "({}) a timeout of {} is too long for this system, it ends after {}",
                      request.id(), timeout, longest);
        }
    }
    if (config.speed_limit) {
        setOption(easy, CURLOPT_MAX_RECV_SPEED_LARGE, static_cast<curl_off_t>(*config.speed_limit));
        writeLine(*logger, log_level::debug, "setting speed limit of task to {}", *config.speed_limit);
    }
}

void EngineSetup::addCredentials(CURL* easy, const Request& request) {
    const RequestConfig& config = request.config;
    if (config.user.empty()) return;
    const unsigned long methods =
        config.auth_method == AuthMethod::BASIC ? CURLAUTH_BASIC | CURLAUTH_ONLY : CURLAUTH_ANY;
    setOption(easy, CURLOPT_USERNAME, config.user.c_str());
    setOption(easy, CURLOPT_PASSWORD, config.password.c_str());
    setOption(easy, CURLOPT_HTTPAUTH, static_cast<long>(methods));
}

void EngineSetup::addHeadersToRequest(CURL* easy, const RequestPtr& request, const TaskPtr& task) {
    const RequestConfig& config = request->config;
    HeaderList& lines = task->headers;
    reserveFor(lines, config.headers);
    for (const auto& [name, value] : config.headers) {
        const std::string fault = headerFault(name, value);
        if (!fault.empty()) throw std::invalid_argument(fault);
        lines.add(name, value);
    }
    if (config.headers.find("User-Agent") == config.headers.end()) {
        lines.add("User-Agent: Tervo/kel-http-default (id=noversion)");
    }
    lines.add("Accept-Charset: ISO-8859-1,utf-8");
    // Uploads go out at once: waiting for a "100 Continue" costs a round trip, or a second where none comes.
    if (config.method == Method::POST || config.method == Method::PUT) lines.add("Expect:");
    setOption(easy, CURLOPT_HTTPHEADER, lines.link());
}

void EngineSetup::addTls(CURL* easy, Engine::ActiveTask& task) const {
    const bool is_overridden = tlsOverride.isIn(engine);
    if (is_overridden) task.handleServesOthers = false;  // what is not ours may outlast a wiping
    engine.addTlsConfig(easy, task.request);             // virtual: a derived engine may replace it
    if (task.request->config.reset_state || is_overridden) EngineTls::leaveSessionsAlone(easy);
}

void EngineSetup::addIPVersionToRequest(CURL* easy, const RequestPtr& request) {
    long family = CURL_IPRESOLVE_WHATEVER;
    switch (request->config.ip_version) {
        case IPVersion::Any:
            break;
        case IPVersion::IPv4:
            family = CURL_IPRESOLVE_V4;
            break;
        case IPVersion::IPv6:
            family = CURL_IPRESOLVE_V6;
            break;
    }
    setOption(easy, CURLOPT_IPRESOLVE, family);
}

// What keeps one transfer from holding up the loop that all of them share.
void EngineSetup::addLoopSafeguards(CURL* easy) const {
    setOption(easy, CURLOPT_SOCKOPTFUNCTION, &Engine::watchSocket);
    setOption(easy, CURLOPT_SOCKOPTDATA, &engine);
    setOption(easy, CURLOPT_CLOSESOCKETFUNCTION, &SocketEvents::close);
    setOption(easy, CURLOPT_CLOSESOCKETDATA, &sockets);
#if LIBCURL_VERSION_NUM >= 0x075700
    // A name look-up that hangs is left to itself when its transfer ends; libcurl would wait for it, and all transfers with it.
    // Unchecked: the program may run with an older libcurl than this was built with.
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
#endif
}

void EngineSetup::addFreshState(CURL* easy, Engine::ActiveTask& task) const {
    const RequestConfig& config = task.request->config;
    if (!config.reset_state) return;
    cookies.addFreshCookies(easy, config, task.cookieSave);
    setOption(easy, CURLOPT_FRESH_CONNECT, 1L);
    setOption(easy, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
}

}  // namespace kel::http
