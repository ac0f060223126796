// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineCompletion.h"

#include <array>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include "kel-http/curl/Outcome.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/curl/TraceText.h"
#include "kel-http/model/Conceal.h"
#include "kel-http/model/LogLine.h"
#include "kel-http/protocol.h"
#include "ko/assert.h"

namespace kel::http {
namespace {

Failure failureOf(CURLcode result, logging::Logger& logger) {
    switch (result) {
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_URL_MALFORMAT:
            return Failure::InvalidUrl;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
            return Failure::ResolveFailed;
        case CURLE_COULDNT_CONNECT:
            return Failure::ConnectFailed;
        case CURLE_WRITE_ERROR:
            return Failure::WriteFailed;
        case CURLE_OPERATION_TIMEDOUT:
            return Failure::Timeout;
        case CURLE_RANGE_ERROR:
            return Failure::RangeError;
        default:
            break;
    }
    writeLine(logger, log_level::error, "Got unexpected Curl error code: {}", static_cast<int>(result));
    return Failure::Other;
}

Failure failureOf(unsigned int status) {
    if (protocol::auth_failure(status)) return Failure::AuthFailure;
    return protocol::valid_status(static_cast<long>(status)) ? Failure::HttpError : Failure::Other;
}

// Without memory for the host's name it is left out: the outcome comes next, and must not fail.
void writeFailure(logging::Logger& log, const Request& request, const char* details) noexcept {
    std::string host;
    try {
        host = concealedUrl(request.config.fqdn());
    } catch (const std::exception&) {
        host.clear();
    }
    writeLine(log, log_level::always, "({}) Failed to connect to '{}': {}", request.id(), host, details);
}

// For these the error buffer holds details of the platform's TLS library or of our own sink, which mean nothing to a
// caller.
bool hasPlainText(CURLcode result) {
    return result == CURLE_SSL_CONNECT_ERROR || result == CURLE_SSL_CACERT || result == CURLE_WRITE_ERROR;
}

struct TimingFigure {
    CURLINFO info;
    std::int64_t TimingData::*field;
    const char* name;
    const char* reader;
};

constexpr std::array<TimingFigure, 7> timing_figures = {{
    {CURLINFO_NAMELOOKUP_TIME_T, &TimingData::namelookup, "CURLINFO_NAMELOOKUP_TIME_T", "addTimingData"},
    {CURLINFO_CONNECT_TIME_T, &TimingData::connect, "CURLINFO_CONNECT_TIME_T", "operator()"},
    {CURLINFO_APPCONNECT_TIME_T, &TimingData::appconnect, "CURLINFO_APPCONNECT_TIME_T", "operator()"},
    {CURLINFO_PRETRANSFER_TIME_T, &TimingData::pretransfer, "CURLINFO_PRETRANSFER_TIME_T", "operator()"},
    {CURLINFO_STARTTRANSFER_TIME_T, &TimingData::starttransfer, "CURLINFO_STARTTRANSFER_TIME_T", "operator()"},
    {CURLINFO_TOTAL_TIME_T, &TimingData::total, "CURLINFO_TOTAL_TIME_T", "operator()"},
    {CURLINFO_REDIRECT_TIME_T, &TimingData::redirect, "CURLINFO_REDIRECT_TIME_T", "operator()"},
}};

}  // namespace

EngineCompletion::EngineCompletion(EngineTransfers& of_transfers, EngineProxy& of_proxy, EngineTls& of_tls,
                                   const Engine::CallbackHandler& handler, Retry again, logging::Logger& log)
    : transfers(of_transfers),
      proxy(of_proxy),
      tls(of_tls),
      callbackHandler(handler),
      addNewRequestNextProxy(std::move(again)),
      logger(&log) {}

EngineCompletion::Completion EngineCompletion::processCompletedTasks() {
    writeLine(*logger, log_level::detail, "Engine::{}", "processCompletedTasks");
    while (const CURLMsg* message = transfers.findCompletedMsg()) {
        // The message dies with its handle. A request that goes on with its next proxy comes before further messages.
        if (completeTask(message->easy_handle, message->data.result) == Completion::retry) return Completion::retry;
    }
    return Completion::final;
}

EngineCompletion::Completion EngineCompletion::completeTask(void* easy, CURLcode result) {
    const TaskPtr task = transfers.take(easy);
    const RequestPtr request = task->request;
    stateOf(*request).activeRun = task->run;

    long responseCode = -1;
    const CURLcode ret = curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &responseCode);
    KO_ASSERT(ret == CURLE_OK);
    writeLine(*logger, log_level::always, "({}) HTTP: Incoming <= {}, '{}'", request->id(), responseCode,
              curl_easy_strerror(result));
    const bool may_do_without_session = tls.noteResult(result, *request);
    addTimingData(easy, request);
    addRedirectURL(request, easy);
    if (task->fault) {
        writeLine(*logger, log_level::error, "({}) Engine::{}: The transfer has been ended: {}", request->id(),
                  "processCompletedTasks", task->fault.text());
    }

    // From here on the request belongs to whoever runs the closure, or to its next transfer; libcurl must not write its
    // error text there any more.
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, nullptr);
    const bool retry =
        tryNextProxy(*task, responseCode) || (may_do_without_session && tryWithoutSession(*task, responseCode));
    if (!retry) tell(*task, result, responseCode);
    transfers.letGo(*task, result);
    return retry ? Completion::retry : Completion::final;
}

void EngineCompletion::tell(Engine::ActiveTask& task, CURLcode result, long responseCode) const noexcept {
    Outcome& outcome = Outcome::in(task.outcome);
    outcome.result = result;
    outcome.responseCode = responseCode;
    if (task.fault) outcome.setFault(task.fault.text());
    handOver(task.outcome);
}

// A fault of ours says nothing about the proxy. Without memory for another attempt this one was the last.
bool EngineCompletion::tryNextProxy(Engine::ActiveTask& task, long responseCode) const noexcept {
    if (task.fault.isOurs()) return false;
    try {
        if (!proxy.retryWithNextProxy(task.easy, *task.request, responseCode)) return false;
        addNewRequestNextProxy(task.request, task.outcome);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Before the end of a handshake nobody sees anything of a request, but for the server that redirects it. One that has dropped
// a kept connection may have: libcurl itself sends the request again there.
bool EngineCompletion::tryWithoutSession(Engine::ActiveTask& task, long responseCode) const noexcept {
    long redirects = -1;
    curl_easy_getinfo(task.easy, CURLINFO_REDIRECT_COUNT, &redirects);
    if (task.fault || responseCode != 0 || redirects != 0) return false;
    Request& request = *task.request;
    try {
        if (stateOf(request).proxyIsFromList) request.remainingProxies.push_front(request.currentProxy.value_or(""));
        addNewRequestNextProxy(task.request, task.outcome);
        --stateOf(request).redirectCount;  // its owner did not ask for two transfers
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Asked before the handler has called or kept the closure, so that nobody hears of an outcome twice.
void EngineCompletion::handOver(std::function<void()>& outcome) const noexcept {
    for (;; std::this_thread::sleep_for(memory_pause)) {
        try {
            return callbackHandler(outcome);
        } catch (const std::bad_alloc&) {
            if (Outcome::in(outcome).hasBegun()) std::terminate();
        }
    }
}

void Engine::runCallbackHandlerInFsmContext(RequestPtr request, CURLcode result, long responseCode) {
    // Its owner wants no outcome, and no file replaced by one.
    if (stateOf(*request).isCancelled(stateOf(*request).lastRun)) return;

    const unsigned int status = protocol::valid_status(responseCode) ? static_cast<unsigned int>(responseCode) : 0U;
    request->setResponseCode(status);
    if (result != CURLE_OK) {
        logging::Logger& log = *logging::getLogger("HttpClient", 0);
        const Failure failure = failureOf(result, log);
        // A copy: the hook may run the request again, which clears the text.
        std::array<char, CURL_ERROR_SIZE> copy = stateOf(*request).errorBuffer;
        concealError(copy);
        const char* const details = copy.data();
        if (log.verbosity() >= log_level::always) writeFailure(log, *request, details);
        const bool plain = hasPlainText(result) || *details == '\0';
        request->notifyFailure(failure, plain ? curl_easy_strerror(result) : details);
        return;
    }
    if (protocol::success_status(status)) {
        request->reportDownloadProgress(request->lastDownloadProgress, request->lastDownloadProgress);
        request->notifyDataEnd();
        return;
    }
    request->notifyFailure(failureOf(status), fmt::format("HTTP code={}", status));
}

void EngineCompletion::addTimingData(void* easy, const RequestPtr& request) const {
    if (easy == nullptr || !request || !request->config.timing_data) return;
    TimingData timing{};
    for (const TimingFigure& figure : timing_figures) {
        curl_off_t microseconds = 0;
        const CURLcode result = curl_easy_getinfo(easy, figure.info, &microseconds);
        if (result != CURLE_OK) {
            writeLine(*logger, log_level::error,
                      "({}) Engine::{}: Failed to look up timing data from CURL ({}). Error='{}'", request->id(),
                      figure.reader, figure.name, curl_easy_strerror(result));
            return;
        }
        timing.*figure.field = microseconds;
    }
    // Name look-up alone is told in milliseconds; consumers rely on the mixture.
    timing.namelookup = static_cast<std::uint32_t>(timing.namelookup) / 1000U;
    writeLine(*logger, log_level::payload,
              "({}) Engine::{}: namelookup={}ms connect={}ms appconnect={}ms prexfer={}ms startxfer={}ms total={}ms "
              "redir={}ms",
              request->id(), "addTimingData", timing.namelookup, timing.connect, timing.appconnect, timing.pretransfer,
              timing.starttransfer, timing.total, timing.redirect);
    stateOf(*request).timingData = timing;
}

void EngineCompletion::addRedirectURL(const RequestPtr& request, void* easy) {
    if (easy == nullptr || !request) return;
    const char* url = nullptr;
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &url);
    // libcurl has followed all redirects, so the URL that it reached is the one to tell.
    if (url == nullptr && !request->config.caller_handles_redirects) {
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
    }
    ++stateOf(*request).redirectCount;
    stateOf(*request).redirectUrl = tl::nullopt;
    try {
        if (url != nullptr) stateOf(*request).redirectUrl = std::string(url);
    } catch (const std::bad_alloc&) {
        // The answer is worth more than the name of where it came from.
    }
}

}  // namespace kel::http
