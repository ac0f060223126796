// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <tl/optional.hpp>

#include "kel-http/TimingData.h"
#include "kel-http/curl/HeaderBudget.h"
#include "kel-http/curl/Request.h"

namespace kel::http {

class EngineTls;

// What a request keeps for the engine, and what the engine leaves with it. Where nothing else is said: the owner's thread
// before a run and after its outcome, the engine thread in between.
struct Request::Impl {
    static Impl& of(Request& request) { return *request.impl; }
    static const Impl& of(const Request& request) { return *request.impl; }

#ifdef KEL_HTTP_MORE_MEMBERS
    // Moves all others, in a library that programs built before are run with.
    std::array<char, 4096> moreMembers{};
#endif
    // A cancellation may come when the engine has no transfer to remove: before a queued set-up, or after the
    // completion was handed over. Whoever comes next sees that its run is cancelled, and stops. Runs are counted, since
    // the owner may have begun another one meanwhile. Any thread.
    bool isCancelled(std::uint32_t run) const {
        return run < firstWantedRun;
    }
    void cancelAll() {
        firstWantedRun = lastRun + 1;
    }
    // Whether nobody has told the outcome of this run yet; he who asks is going to. Any thread.
    bool beginOutcome(std::uint32_t run) {
        return toldRun.exchange(run) != run;
    }
    // Engine thread: nothing of an earlier run is left to be read as this one's. The count of completions goes on.
    void beginRun(std::uint32_t run) {
        beginAttempt(run);
        timingData = tl::nullopt;
        redirectUrl = tl::nullopt;
    }
    // Engine thread: one proxy is not to blame for what another one has sent.
    void beginAttempt(std::uint32_t run) {
        activeRun = run;
        headerBudget = HeaderBudget();
        askedOffset = tl::nullopt;
    }

    std::atomic<std::uint32_t> lastRun{0};
    std::atomic<std::uint32_t> firstWantedRun{0};
    std::atomic<std::uint32_t> toldRun{0};
    // Engine thread: the run that the engine is at.
    std::uint32_t activeRun = 0;

    unsigned int responseCode = 0xFFFFFFFFU;
    tl::optional<std::string> redirectUrl;
    std::uint32_t redirectCount = 0;
    // Written on the owner's thread, read by the data hook on the engine's. The queued pause and resume tasks give the
    // order.
    std::atomic<bool> paused{false};
    std::atomic<bool> payloadLogging{true};
    std::atomic<std::uint16_t> requestId{0};
    tl::optional<TimingData> timingData;
    // Engine thread: what peers may still send in header lines of the present attempt.
    HeaderBudget headerBudget;
    // Engine thread: how many bytes the present attempt of a resumed download leaves out.
    tl::optional<std::uintmax_t> askedOffset;
    // Engine thread: the transfer, while the data hook runs.
    CURL* receiving = nullptr;
    // Engine thread: the present attempt's proxy came from remainingProxies.
    bool proxyIsFromList = false;
    // Engine thread: who set the present attempt's device certificate up, and its number then.
    EngineTls* tls = nullptr;
    std::uint32_t deviceNumber = 0;
    // libcurl writes its error text here (`CURLOPT_ERRORBUFFER`) until the transfer is handed over.
    std::array<char, CURL_ERROR_SIZE> errorBuffer{};
};

inline Request::Impl& stateOf(Request& request) {
    return Request::Impl::of(request);
}

inline const Request::Impl& stateOf(const Request& request) {
    return Request::Impl::of(request);
}

}  // namespace kel::http
