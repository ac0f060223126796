// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTransfers.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "kel-http/curl/CurlLibrary.h"
#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/RequestImpl.h"

namespace kel::http {
namespace {

// Counts a transfer among those in progress, unless libcurl, or a program's hook, does not take it.
class Attachment {
 public:
    explicit Attachment(IdleConnections& of_connections) : connections(of_connections) { connections.attach(); }
    ~Attachment() {
        if (!kept) connections.detach();
    }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

    void keep() { kept = true; }

 private:
    IdleConnections& connections;
    bool kept = false;
};

std::size_t swallow(void* /*data*/, std::size_t size, std::size_t nitems, void* /*easy*/) {
    return size * nitems;
}

}  // namespace

EngineTransfers::EngineTransfers() : multi(curl_multi_init()), connections(multi) {
    if (multi == nullptr) throw std::bad_alloc();
}

EngineTransfers::~EngineTransfers() {
    close();
}

TaskPtr EngineTransfers::enter(const RequestPtr& request) {
    CurlLibrary::fillReserve();
    const bool serves_others = EasyHandles::mayServeOthers(request->config);
    TaskPtr task = std::make_shared<Engine::ActiveTask>(request, handles.take(serves_others));
    task->handleServesOthers = serves_others;
    keep(task);
    return task;
}

void EngineTransfers::keep(const TaskPtr& task) {
    if (spare.empty()) {
        activeTasks.emplace(task->easy, task);
        return;
    }
    spare.key() = task->easy;
    spare.mapped() = task;
    activeTasks.insert(std::move(spare));
}

void EngineTransfers::begin(CURL* easy) {
    Attachment attachment(connections);
    const CURLMcode result = engine_curl_multi_add_handle(multi, easy);
    if (result == CURLM_OK) return attachment.keep();
    if (result == CURLM_OUT_OF_MEMORY) throw std::bad_alloc();
    std::abort();
}

Engine::ActiveTask* EngineTransfers::find(void* easy) const {
    const auto found = activeTasks.find(easy);
    return found == activeTasks.end() ? nullptr : found->second.get();
}

// Linear on purpose: the map serves libcurl's callbacks, which come often; owners act seldom.
TaskPtr EngineTransfers::getActiveTask(const RequestPtr& request) const {
    for (const auto& [easy, task] : activeTasks) {
        if (task->request == request) return task;
    }
    return nullptr;
}

TaskPtr EngineTransfers::findCancelledTask() const {
    for (const auto& [easy, task] : activeTasks) {
        if (stateOf(*task->request).isCancelled(task->run)) return task;
    }
    return nullptr;
}

void EngineTransfers::pause(const Engine::ActiveTask& task) {
    // Who ends a paused transfer has to have dropHeld() called first, which libcurl's own timer does not.
    curl_easy_setopt(task.easy, CURLOPT_TIMEOUT_MS, 0L);
    curl_easy_pause(task.easy, CURLPAUSE_ALL);
}

// When nobody takes the bytes that were held back libcurl drops them and would go on behind the gap.
CURLcode EngineTransfers::resume(const Engine::ActiveTask& task) {
    const CURLcode result = curl_easy_pause(task.easy, CURLPAUSE_CONT);
    const bool nothing_held = result == CURLE_BAD_FUNCTION_ARGUMENT;  // there is no connection yet
    return nothing_held ? CURLE_OK : result;
}

// libcurl 7.88 frees it at the end of a connection's last transfer only. One with HTTP/2 may serve others meanwhile, and
// then it is lost.
void EngineTransfers::dropHeld(CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &swallow);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &swallow);
    curl_easy_pause(easy, CURLPAUSE_CONT);
}

void EngineTransfers::remove(const Engine::ActiveTask& task) {
    // libcurl reports progress once more while it lets go of a transfer, and this request is to hear nothing.
    curl_easy_setopt(task.easy, CURLOPT_NOPROGRESS, 1L);
    dropHeld(task.easy);
    detach(task.easy);
    activeTasks.erase(task.easy);
}

void EngineTransfers::forget(CURL* easy) {
    activeTasks.erase(easy);
}

CURLMsg* EngineTransfers::findCompletedMsg() {
    int remaining = 0;
    CURLMsg* message = curl_multi_info_read(multi, &remaining);
    while (message != nullptr && message->msg != CURLMSG_DONE) message = curl_multi_info_read(multi, &remaining);
    return message;
}

TaskPtr EngineTransfers::take(void* easy) {
    TaskPtr task = activeTasks.at(easy);
    spare = activeTasks.extract(easy);
    spare.mapped().reset();
    return task;
}

// A transfer that broke off may have left libcurl in the middle of something: its handle goes with it.
void EngineTransfers::letGo(Engine::ActiveTask& task, CURLcode result) {
    detach(task.easy);
    if (result != CURLE_OK || !task.handleServesOthers) return;
    handles.giveBack(EasyHandle(std::exchange(task.easy, nullptr)));
}

void EngineTransfers::detach(CURL* easy) {
    connections.detach();
    curl_multi_remove_handle(multi, easy);
}

void EngineTransfers::close() {
    if (multi == nullptr) return;
    // Freeing a transfer may call back into the engine, which should then find none rather than a map in pieces.
    TaskMap unfinished;
    unfinished.swap(activeTasks);
    // libcurl loses what it holds back for a paused transfer that is freed without having been removed.
    for (const auto& [easy, task] : unfinished) {
        dropHeld(easy);
        curl_multi_remove_handle(multi, easy);
    }
    unfinished.clear();
    handles.clear();
    curl_multi_cleanup(multi);
    multi = nullptr;
}

}  // namespace kel::http
