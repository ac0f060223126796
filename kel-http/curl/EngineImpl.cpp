// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineImpl.h"

#include <exception>
#include <utility>

#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"

namespace kel::http {

Engine::Impl::Impl(Engine& owner, const CallbackHandler& handler, ProxyBlackList::Clock clock)
    : logger(logging::getLogger("HttpClient", 0)),
      cookies(*logger),
      body(*logger),
      waiting(*logger),
      proxy(clock, *logger),
      tls(*logger),
      setup(owner, cookies, body, proxy, *logger),
      completion(
          transfers, proxy, handler, [this](RequestPtr request) { addNewRequestNextProxy(std::move(request)); },
          *logger),
      queueMutex("QueueMutex"),
      handlerMutex("HandlerMutex"),
      newRequestHandler([] {}) {}

void Engine::Impl::enqueue(std::function<void()> task) {
    {
        ko::lock_guard lock(queueMutex);
        taskQueue.push_back(std::move(task));
    }
    waiting.wakeUp();
}

void Engine::Impl::enqueueFor(RequestPtr request, void (Impl::*step)(RequestPtr)) {
    enqueue([this, step, owned = std::move(request)] { (this->*step)(owned); });
}

// A request may still be at work for an earlier run that was cancelled, so what a later one begins with is set when the
// engine comes to it.
void Engine::Impl::enqueueRun(RequestPtr request, tl::optional<std::list<std::string>> proxies) {
    const std::uint32_t run = ++stateOf(*request).lastRun;
    if (run == 1 && proxies) request->remainingProxies = *proxies;
    enqueue([this, run, owned = std::move(request), candidates = std::move(proxies)]() mutable {
        stateOf(*owned).activeRun = run;
        if (run > 1) {
            owned->currentProxy = tl::nullopt;
            owned->remainingProxies = candidates ? std::move(*candidates) : std::list<std::string>();
        }
        if (addRequest(owned) && !candidates) engine_request_added();
    });
}

// Part of the same run, which may be cancelled, and another one begun, before the engine comes to it.
void Engine::Impl::addNewRequestNextProxy(RequestPtr request) {
    writeLine(*logger, log_level::detail, "({}) Engine::{}", request->id(), "addNewRequestNextProxy");
    const std::uint32_t run = stateOf(*request).activeRun;
    enqueue([this, run, owned = std::move(request)] {
        stateOf(*owned).activeRun = run;
        addRequest(owned);
    });
}

void Engine::Impl::onNewRequest(const std::function<void()>& handler) {
    std::function<void()> replacement = handler;
    ko::lock_guard lock(handlerMutex);
    newRequestHandler.swap(replacement);
}

void Engine::Impl::requestTermination() {
    enqueue([this] { flagTermination(); });
}

void Engine::Impl::flagTermination() {
    checkEngineThread();
    terminationFlag = true;
}

void Engine::Impl::thread_loop() {
    engineThreadId = ko::this_thread::get_id();
    while (!terminationFlag) runTasks();
    writeLine(*logger, log_level::detail, "Engine::{}: Exiting thread loop", "thread_loop");
}

void Engine::Impl::runTasks() {
    processPendingRequests();
    if (terminationFlag) {
        writeLine(*logger, log_level::detail, "Engine::{}", "runTasks");
        return;
    }
    doCurlProcessing();
    processCompletedTasks();
}

// A task queued meanwhile waits for the next pass.
void Engine::Impl::processPendingRequests() {
    checkEngineThread();
    writeLine(*logger, log_level::detail, "Engine::{}", "processPendingRequests");
    {
        ko::lock_guard lock(queueMutex);
        runningTasks.swap(taskQueue);
    }
    // Each task goes as soon as it has run: what it holds must not wait for the rest.
    for (; !runningTasks.empty(); runningTasks.pop_front()) runGuarded(runningTasks.front());
}

// A throwing task fails alone.
void Engine::Impl::runGuarded(const std::function<void()>& task) {
    try {
        task();
    } catch (const std::exception& error) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed: {}", "processPendingRequests",
                  error.what());
    } catch (...) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed", "processPendingRequests");
    }
}

void Engine::Impl::doCurlProcessing() {
    checkEngineThread();
    writeLine(*logger, log_level::detail, "Engine::{}", "doCurlProcessing");
    waiting.wait(transfers.multiHandle());
    int running = 0;
    engine_curl_multi_perform(transfers.multiHandle(), &running);
}

void Engine::Impl::processCompletedTasks() {
    checkEngineThread();
    completion.processCompletedTasks();
}

void Engine::Impl::checkEngineThread() const {
#ifndef NDEBUG
    KO_ASSERT(engineThreadId == ko::this_thread::get_id());
#endif
}

// A request that can not be set up fails alone, and false is returned; the engine serves every program part that links
// it.
bool Engine::Impl::addRequest(RequestPtr request) {
    try {
        prepareAddTask(request);
        return true;
    } catch (const std::exception& error) {
        failSetUp(request, error.what());
    } catch (...) {
        failSetUp(request, "Unknown error");
    }
    return false;
}

void Engine::Impl::failSetUp(const RequestPtr& request, const std::string& reason) {
    writeLine(*logger, log_level::error, "({}) Engine::{}: The request can not be sent: {}", request->id(), "addTask",
              reason);
    if (const TaskPtr task = transfers.getActiveTask(request)) transfers.forget(task->easy);
    completion.handOver([request, run = stateOf(*request).activeRun, reason] {
        if (stateOf(*request).isCancelled(run)) return;
        request->setResponseCode(0);
        request->notifyFailure(Failure::Other, reason);
    });
}

void Engine::Impl::prepareAddTask(RequestPtr request) {
    checkEngineThread();
    std::function<void()> handler;
    {
        ko::lock_guard lock(handlerMutex);
        handler = newRequestHandler;
    }
    handler();
    addTask(std::move(request));
}

void Engine::Impl::addTask(RequestPtr request) {
    checkEngineThread();
    // Cancelled when there was nothing to remove yet.
    if (stateOf(*request).isCancelled(stateOf(*request).activeRun)) return;

    setup.dumpRequest(*request);
    const TaskPtr task = transfers.enter(request);
    setup.prepare(task);
    transfers.begin(task->easy);
}

void Engine::Impl::pauseTask(RequestPtr request) {
    checkEngineThread();
    if (const TaskPtr task = transfers.getActiveTask(request)) EngineTransfers::pause(*task);
}

void Engine::Impl::resumeTask(RequestPtr request) {
    checkEngineThread();
    const TaskPtr task = transfers.getActiveTask(request);
    if (!task) return;
    const CURLcode result = EngineTransfers::resume(*task);
    if (result != CURLE_OK) completion.completeTask(task->easy, result);
}

void Engine::Impl::removeTask(RequestPtr request) {
    checkEngineThread();
    if (const TaskPtr task = transfers.getActiveTask(request)) transfers.remove(*task);
}

}  // namespace kel::http
