// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "kel-http/curl/CookieSave.h"
#include "kel-http/curl/EasyHandles.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/HeaderList.h"
#include "kel-http/curl/TransferFault.h"
#include "kel-http/curl/UploadFile.h"

namespace kel::http {

// One transfer: its request and all that libcurl borrows while it runs. Engine thread; owned by the engine's map, whose
// key is the easy handle.
struct Engine::ActiveTask {
    explicit ActiveTask(std::shared_ptr<Request> owner);
    ActiveTask(std::shared_ptr<Request> owner, EasyHandle handle);
    ActiveTask(const ActiveTask&) = delete;
    ActiveTask& operator=(const ActiveTask&) = delete;
    ~ActiveTask();

    // Asks libcurl for the peer.
    void lookUpPeer();

#ifdef KEL_HTTP_MORE_MEMBERS
    // Moves all others, in a library that programs built before are run with.
    std::array<char, 4096> moreMembers{};
#endif
    std::shared_ptr<Request> request;
    // The run of the request that this is.
    const std::uint32_t run;
    // Null when it has been given back.
    CURL* easy;
    // The handle is to serve other requests as well, and may have served some.
    bool handleServesOthers = false;
    HeaderList headers;
    curl_mime* mime = nullptr;
    // Bytes of an in-memory PUT body that libcurl has taken.
    std::uint64_t uploadOffset = 0;
    // The file of a PUT, or those of a form.
    std::list<UploadFile> files;
    TransferFault fault;
    // When its time-out ends it, which runs since `start`; never without one.
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    std::chrono::steady_clock::time_point start;
    // The closure that tells the outcome, an Outcome. It is there before the transfer begins, so that telling needs no memory.
    std::function<void()> outcome;
    // The peer, numeric, as of the last status line; the port is 0 as long as it is not known.
    std::string peerAddress;
    long peerPort = 0;
    // The trace saw the beginning of an outgoing header line whose rest is still to be sent.
    bool tracedLineIsOpen = false;
    // The header received last has a value that is concealed, and so are the lines that may continue it.
    bool tracedHeaderIsSecret = false;
    // Behind all that libcurl borrows: it writes when the transfer is gone.
    CookieSave cookieSave;
};

using RequestPtr = std::shared_ptr<Request>;
using TaskPtr = std::shared_ptr<Engine::ActiveTask>;

}  // namespace kel::http
