// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <map>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EasyHandles.h"
#include "kel-http/curl/IdleConnections.h"

namespace kel::http {

// The transfers in progress, by easy handle, and the multi handle that drives them.
// Engine thread; made and closed by the engine's owner while that thread is not running.
class EngineTransfers {
 public:
    // Throws std::bad_alloc.
    EngineTransfers();
    ~EngineTransfers();
    EngineTransfers(const EngineTransfers&) = delete;
    EngineTransfers& operator=(const EngineTransfers&) = delete;

    CURLM* multiHandle() const { return multi; }

    // A transfer of `request` that libcurl's callbacks find from now on, though it has not begun. Throws std::bad_alloc.
    TaskPtr enter(const RequestPtr& request);
    // Has libcurl begin. Throws std::bad_alloc; stops the process when libcurl refuses for another reason.
    void begin(CURL* easy);

    bool empty() const { return activeTasks.empty(); }
    std::size_t size() const { return activeTasks.size(); }
    // Null when there is none.
    TaskPtr getActiveTask(const RequestPtr& request) const;
    // One whose request has been cancelled, or null.
    TaskPtr findCancelledTask() const;
    // Calls `step` for one after the other until it says false, which it has to when it has ended a transfer.
    template <typename Step>
    void forEach(Step step) const {
        for (const auto& [easy, task] : activeTasks) {
            if (!step(task)) return;
        }
    }
    // The same for libcurl's callbacks, without a reference of their own: transfers come and go on the engine thread only,
    // and never while libcurl calls back.
    Engine::ActiveTask* find(void* easy) const;
    // Throws std::out_of_range when there is none.
    Engine::ActiveTask& at(void* easy) const { return *activeTasks.at(easy); }

    // Stop and continue the flow of data. What was held back is delivered inside resume(); a result other than CURLE_OK
    // says that nobody took it.
    static void pause(const Engine::ActiveTask& task);
    static CURLcode resume(const Engine::ActiveTask& task);

    // Has libcurl free what it holds back for a transfer, paused or not, that is to end before it is complete. Nobody hears
    // of it.
    static void dropHeld(CURL* easy);

    // Ends a transfer without a word to its request.
    void remove(const Engine::ActiveTask& task);
    // The same for one that libcurl has not begun.
    void forget(CURL* easy);

    // The next transfer that has completed, or null. Dies with its handle.
    CURLMsg* findCompletedMsg();
    // Takes a completed one away, for libcurl to let go of later. Throws std::out_of_range when there is none.
    TaskPtr take(void* easy);
    // What ended well leaves its handle to the next transfer.
    void letGo(Engine::ActiveTask& task, CURLcode result);

    // Frees those that are left, then all that libcurl keeps for them. The second call does nothing.
    void close();

 private:
    using TaskMap = std::map<void*, TaskPtr>;

    void keep(const TaskPtr& task);
    void detach(CURL* easy);

    CURLM* multi;
    EasyHandles handles;
    IdleConnections connections;
    TaskMap activeTasks;
    // Of one that has ended, for the next.
    TaskMap::node_type spare;
};

}  // namespace kel::http
