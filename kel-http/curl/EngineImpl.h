// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <tl/optional.hpp>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/CurlLibrary.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/curl/EngineBody.h"
#include "kel-http/curl/EngineCompletion.h"
#include "kel-http/curl/EngineCookies.h"
#include "kel-http/curl/EngineDeadlines.h"
#include "kel-http/curl/EngineDriving.h"
#include "kel-http/curl/EngineProxy.h"
#include "kel-http/curl/EngineQueue.h"
#include "kel-http/curl/EngineSettling.h"
#include "kel-http/curl/EngineSetup.h"
#include "kel-http/curl/EngineTls.h"
#include "kel-http/curl/EngineTransfers.h"
#include "kel-http/curl/EngineWait.h"
#include "ko/mutex.h"
#include "ko/thread.h"
#include "logging/Logger.h"

namespace kel::http {

// The engine of this process, or null.
extern std::atomic<Engine*> currentEngine;

// What an engine is made of: the thread, the queue of tasks and the order in which things are done. What is done stands in
// a class for each mechanism. Programs see none of it, so members may come and go.
struct Engine::Impl {
    Impl(Engine& owner, const CallbackHandler& handler, ProxyBlackList::Clock clock);
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // The loop. Engine thread.
    void thread_loop();
    void runTasks();
    void processPendingRequests();
    void doCurlProcessing();
    void processCompletedTasks();
    void flagTermination();
    void checkEngineThread() const;

    // Any thread.
    // Throws std::bad_alloc, with nothing queued.
    void enqueueRun(RequestPtr request, tl::optional<std::list<std::string>> proxies);
    // Without memory the engine looks at all transfers instead, and finds out what is wished from their requests.
    void enqueueFor(const RequestPtr& request, void (Impl::*step)(RequestPtr)) noexcept;
    void settle();
    void onNewRequest(const std::function<void()>& handler);
    void requestTermination() noexcept;

    // The steps of a transfer. Engine thread.
    bool addRequest(const RequestPtr& request, std::function<void()>&& outcome);
    void prepareAddTask(const RequestPtr& request, std::function<void()>& outcome);
    void addTask(const RequestPtr& request, std::function<void()>& outcome);
    void failSetUp(const RequestPtr& request, std::function<void()>& outcome, const char* reason) noexcept;
    // Leaves `outcome` as it is when it throws std::bad_alloc.
    void addNewRequestNextProxy(const RequestPtr& request, std::function<void()>& outcome);
    void pauseTask(RequestPtr request);
    void resumeTask(RequestPtr request);
    void removeTask(RequestPtr request);
    // Does what could not be queued.
    void sweep();

#ifdef KEL_HTTP_MORE_MEMBERS
    // Moves all others, in a library that programs built before are run with.
    std::array<char, 4096> moreMembers{};
#endif
    logging::Logger* const logger;
    CurlLibrary library;
    EngineWait waiting;
    // Closes the sockets of those that follow.
    SocketEvents sockets;
    EngineTransfers transfers;
    EngineCookies cookies;
    const EngineBody body;
    EngineQueue queue;
    EngineProxy proxy;
    EngineTls tls;
    EngineSetup setup;
    EngineCompletion completion;
    EngineDeadlines deadlines;
    EngineDriving driving;
    EngineSettling settling;

    ko::mutex handlerMutex;
    std::function<void()> newRequestHandler KO_GUARDED_BY(handlerMutex);
    // Engine thread; set by a queued task.
    bool terminationFlag = false;
    // Something could not be queued for want of memory. Any thread.
    std::atomic<bool> sweepWanted{false};
    std::atomic<bool> terminationWanted{false};
    // Set by the owner, read by callbacks that libcurl may still make while transfers are freed.
    std::atomic<bool> shuttingDown{false};
    std::atomic<ko::thread_id> engineThreadId{ko::invalid_thread_id};
    ko::thread engineThread;
};

}  // namespace kel::http
