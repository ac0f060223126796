// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <tl/optional.hpp>

#include "kel-http/Export.h"
#include "kel-http/Failure.h"
#include "kel-http/RequestConfig.h"
#include "kel-http/TimingData.h"

namespace kel::http {

// One HTTP request as the Engine sees it: what to send, the hooks through which the outcome arrives, and the figures
// that the engine leaves here.
//
// Life:     always owned by a std::shared_ptr, since every queued engine task and every running transfer keeps it
//           alive. Anything else makes the calls below throw std::bad_weak_ptr.
// Outcome:  after runRequest() exactly one of notifyDataEnd() and notifyFailure(), unless the request is cancelled or
//           the engine is destroyed; then none.
// Threads:  runRequest() to resumeRequest() on the owner's thread. notifyDataReceived(), notifyHeader(),
//           notifyRemoteAddr() and reportDownloadProgress() are called on the engine thread. notifyDataEnd() and
//           notifyFailure(), and the last reportDownloadProgress() before them, are called wherever the engine's
//           callback handler runs them, when the engine does not touch the request any more.
class KEL_HTTP_EXPORT Request : public std::enable_shared_from_this<Request> {
 public:
    // What the engine keeps here.
    struct Impl;

    // With the defaults of RequestConfig, or a copy of `request_config`.
    Request();
    explicit Request(const RequestConfig& request_config);
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // Takes a new id and hands the request to the engine. Without an engine the log says so, and no
    // hook will be called. Throws std::bad_alloc, with nothing started.
    virtual void runRequest();

    // Asks the engine to drop the transfer: no hook is called any more once the engine, or a completion that is still
    // on its way, has seen it.
    virtual void tryToCancelRequest();

    // Stop and continue the flow of data, in both directions. Pausing twice, or resuming what is not paused, does
    // nothing.
    virtual void pauseRequest();
    virtual void resumeRequest();

    // A piece of the body. Returns 1 to pause the transfer, which delivers the same bytes again later, anything else
    // when they were taken. A std::runtime_error ends the transfer with Failure::WriteFailed.
    virtual int notifyDataReceived(std::string_view data) = 0;

    // A header line with its line end, the status line and the closing blank line included. Lines that libcurl held
    // back while the transfer was paused come in one piece.
    virtual void notifyHeader(std::string_view line);

    // The transfer is complete; getResponseCode() is 100 to 399.
    virtual void notifyDataEnd() = 0;

    // The transfer failed, or its status is an error. getResponseCode() is the status that has been received, 0 when
    // none was. `text` is valid during the call only.
    virtual void notifyFailure(Failure failure, std::string_view text) = 0;

    // The peer's address, numeric, and port; with every header line.
    virtual void notifyRemoteAddr(std::string address, long port);

    // Body bytes expected (0: unknown) and received so far, as libcurl counts them, truncated to 32 bits.
    virtual void reportDownloadProgress(unsigned int total, unsigned int received);

    virtual ~Request();

    // The HTTP status of the last completion, 0 for none; 4294967295 before. The engine sets it.
    void setResponseCode(unsigned int code);
    unsigned int getResponseCode() const;

    // Whether the engine's trace may print body bytes. Any thread. Default: true.
    void setAllowPayloadLogging(bool allow);
    bool allowsPayloadLogging() const;

    // The target of a redirect that nobody followed, else the URL that answered; unset when the transfer has none. Set
    // at completion, as are the next two.
    tl::optional<std::string> getRedirectUrl() const;

    // How many transfers of this request have completed.
    unsigned int getRedirectCount() const;

    // Set when config.timing_data asked for it and libcurl knew all figures.
    tl::optional<TimingData> getTimingData() const;

    // The engine's id of this request in log lines: 1 to 65535, 0 before the first run. Any thread.
    std::uint16_t id() const;

    // Takes the next id; runRequest() does so.
    void allocateRequestId();

    // What to send. Fixed once the request runs.
    RequestConfig config;

    // The body size last reported, kept by subclasses that override reportDownloadProgress().
    std::uint32_t lastDownloadProgress = 0;

    // The proxies that are still to be tried, and the one of the present attempt, unset when none was chosen. Once the
    // request runs they are the engine thread's, until its outcome.
    std::list<std::string> remainingProxies;
    tl::optional<std::string> currentProxy;

 protected:
    // Set by pauseRequest(), cleared by resumeRequest(). A data hook returns 1 while it is set.
    bool isPaused() const;
    // getRedirectUrl() without a copy, once: for the outcome's hook.
    tl::optional<std::string> takeRedirectUrl();

 private:
    const std::unique_ptr<Impl> impl;
};

}  // namespace kel::http
