// SPDX-License-Identifier: MIT
#include "kel-http/curl/ActiveTask.h"

#include <utility>

#include "kel-http/curl/EngineCookies.h"
#include "kel-http/curl/RequestImpl.h"

namespace kel::http {

Engine::ActiveTask::ActiveTask(std::shared_ptr<Request> owner)
    : ActiveTask(std::move(owner), EasyHandle(curl_easy_init())) {}

Engine::ActiveTask::ActiveTask(std::shared_ptr<Request> owner, EasyHandle handle)
    : request(std::move(owner)), run(stateOf(*request).activeRun), easy(handle.release()) {}

// The easy handle borrows the lists and the files, so it goes first.
Engine::ActiveTask::~ActiveTask() {
    EasyHandle(easy).reset();
    if (mime != nullptr) curl_mime_free(mime);
}

void Engine::ActiveTask::lookUpPeer() {
    const char* address = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIMARY_IP, &address);
    curl_easy_getinfo(easy, CURLINFO_PRIMARY_PORT, &peerPort);
    if (address == nullptr) peerPort = 0;
    peerAddress = address == nullptr ? "" : address;
}

}  // namespace kel::http
