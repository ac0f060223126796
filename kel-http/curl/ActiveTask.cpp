// SPDX-License-Identifier: MIT
#include "kel-http/curl/ActiveTask.h"

#include <utility>

#include "kel-http/curl/EngineCookies.h"
#include "kel-http/curl/RequestImpl.h"

namespace kel::http {

Engine::ActiveTask::ActiveTask(std::shared_ptr<Request> owner)
    : request(std::move(owner)), run(stateOf(*request).activeRun), easy(curl_easy_init()) {}

// The easy handle borrows the lists and the files, so it goes first. Its progress is switched off: cleaning up may
// otherwise report once more for a transfer that has ended.
Engine::ActiveTask::~ActiveTask() {
    if (easy != nullptr) {
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 1L);
        curl_easy_cleanup(easy);
    }
    if (mime != nullptr) curl_mime_free(mime);
    if (headers != nullptr) curl_slist_free_all(headers);
}

void Engine::ActiveTask::lookUpPeer() {
    const char* address = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIMARY_IP, &address);
    curl_easy_getinfo(easy, CURLINFO_PRIMARY_PORT, &peerPort);
    if (address == nullptr) peerPort = 0;
    peerAddress = address == nullptr ? "" : address;
}

}  // namespace kel::http
