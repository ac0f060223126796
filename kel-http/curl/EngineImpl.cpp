// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineImpl.h"

#include <exception>
#include <new>
#include <utility>

#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/Outcome.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"

namespace kel::http {

Engine::Impl::Impl(Engine& owner, const CallbackHandler& handler, ProxyBlackList::Clock clock)
    : logger(logging::getLogger("HttpClient", 0)),
      waiting(*logger),
      cookies(*logger),
      body(*logger),
      queue(waiting, *logger),
      proxy(clock, *logger),
      tls(*logger, clock),
      setup(owner, sockets, cookies, body, proxy, *logger),
      completion(
          transfers, proxy, tls, handler,
          [this](const RequestPtr& request, std::function<void()>& outcome) {
              addNewRequestNextProxy(request, outcome);
          },
          *logger),
      deadlines(transfers, completion),
      driving(waiting, sockets, transfers),
      handlerMutex("HandlerMutex"),
      newRequestHandler([] {}) {}

void Engine::Impl::enqueueFor(const RequestPtr& request, void (Impl::*step)(RequestPtr)) noexcept {
    try {
        queue.push([this, step, owned = request] { (this->*step)(owned); });
    } catch (const std::bad_alloc&) {
        Request::Impl& state = stateOf(*request);
        if (step == &Impl::removeTask) state.cancelAll();
        if (step == &Impl::pauseTask) state.paused = true;
        if (step == &Impl::resumeTask) state.paused = false;
        sweepWanted = true;
        waiting.wakeUp();
    }
}

// A request may still be at work for an earlier run that was cancelled, so what a later one begins with is set when the
// engine comes to it.
void Engine::Impl::enqueueRun(RequestPtr request, tl::optional<std::list<std::string>> proxies) {
    const std::uint32_t run = ++stateOf(*request).lastRun;
    if (run == 1 && proxies) request->remainingProxies = *proxies;
    std::function<void()> outcome = Outcome::closureFor(request, run);
    queue.push([this, run, owned = std::move(request), candidates = std::move(proxies),
                closure = std::move(outcome)]() mutable {
        stateOf(*owned).beginRun(run);
        if (run > 1) {
            owned->currentProxy = tl::nullopt;
            owned->remainingProxies = candidates ? std::move(*candidates) : std::list<std::string>();
        }
        if (addRequest(owned, std::move(closure)) && !candidates) engine_request_added();
    });
}

// Part of the same run, which may be cancelled, and another one begun, before the engine comes to it.
void Engine::Impl::addNewRequestNextProxy(const RequestPtr& request, std::function<void()>& outcome) {
    struct NextAttempt {
        Impl* impl;
        RequestPtr request;
        std::uint32_t run;
        std::function<void()> outcome;
        void operator()() {
            stateOf(*request).beginAttempt(run);
            impl->addRequest(request, std::move(outcome));
        }
    };
    writeLine(*logger, log_level::detail, "({}) Engine::{}", request->id(), "addNewRequestNextProxy");
    QueuedTask task = NextAttempt{this, request, stateOf(*request).activeRun, {}};
    std::function<void()>& carried = task.target<NextAttempt>()->outcome;
    carried.swap(outcome);
    try {
        queue.push(std::move(task));
    } catch (const std::bad_alloc&) {
        carried.swap(outcome);
        throw;
    }
}

void Engine::Impl::onNewRequest(const std::function<void()>& handler) {
    std::function<void()> replacement = handler;
    ko::lock_guard lock(handlerMutex);
    newRequestHandler.swap(replacement);
}

void Engine::Impl::requestTermination() noexcept {
    try {
        queue.push([this] { flagTermination(); });
    } catch (const std::bad_alloc&) {
        terminationWanted = true;
        waiting.wakeUp();
    }
}

void Engine::Impl::settle() {
    KO_ASSERT(engineThreadId != ko::this_thread::get_id());
    const std::uint32_t ticket = settling.take();
    waiting.wakeUp();
    settling.await(ticket);
}

void Engine::Impl::flagTermination() {
    checkEngineThread();
    terminationFlag = true;
}

void Engine::Impl::thread_loop() {
    engineThreadId = ko::this_thread::get_id();
    while (!terminationFlag) runTasks();
    settling.end();
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

void Engine::Impl::processPendingRequests() {
    checkEngineThread();
    writeLine(*logger, log_level::detail, "Engine::{}", "processPendingRequests");
    const std::uint32_t tickets = settling.tickets();  // of those who have queued all that they wait for
    const bool ends = terminationWanted;               // behind all that is queued by now
    queue.runTasks();
    if (sweepWanted.exchange(false)) sweep();
    if (ends) flagTermination();
    settling.reach(tickets);
}

void Engine::Impl::doCurlProcessing() {
    checkEngineThread();
    writeLine(*logger, log_level::detail, "Engine::{}", "doCurlProcessing");
    driving.drive(deadlines.next());
}

void Engine::Impl::processCompletedTasks() {
    checkEngineThread();
    const auto last = completion.processCompletedTasks();
    if (last == EngineCompletion::Completion::final) deadlines.endOverdue();
}

void Engine::Impl::checkEngineThread() const {
#ifndef NDEBUG
    KO_ASSERT(engineThreadId == ko::this_thread::get_id());
#endif
}

// A request that can not be set up fails alone, and false is returned; the engine serves every program part that links
// it.
bool Engine::Impl::addRequest(const RequestPtr& request, std::function<void()>&& outcome) {
    try {
        prepareAddTask(request, outcome);
        return true;
    } catch (const std::bad_alloc&) {
        failSetUp(request, outcome, out_of_memory);
    } catch (const std::exception& error) {
        failSetUp(request, outcome, error.what());
    } catch (...) {
        failSetUp(request, outcome, "Unknown error");
    }
    return false;
}

void Engine::Impl::failSetUp(const RequestPtr& request, std::function<void()>& outcome, const char* reason) noexcept {
    writeLine(*logger, log_level::error, "({}) Engine::{}: The request can not be sent: {}", request->id(), "addTask",
              reason);
    Outcome::in(outcome).setFault(reason);
    if (const TaskPtr task = transfers.getActiveTask(request)) transfers.forget(task->easy);
    completion.handOver(outcome);
}

void Engine::Impl::prepareAddTask(const RequestPtr& request, std::function<void()>& outcome) {
    checkEngineThread();
    std::function<void()> handler;
    {
        ko::lock_guard lock(handlerMutex);
        handler = newRequestHandler;
    }
    handler();
    addTask(request, outcome);
}

void Engine::Impl::addTask(const RequestPtr& request, std::function<void()>& outcome) {
    checkEngineThread();
    // Cancelled when there was nothing to remove yet.
    if (stateOf(*request).isCancelled(stateOf(*request).activeRun)) return;

    setup.dumpRequest(*request);
    const TaskPtr task = transfers.enter(request);
    setup.prepare(task);
    transfers.begin(task->easy);
    deadlines.begin(*task);
    task->outcome = std::move(outcome);
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

void Engine::Impl::sweep() {
    checkEngineThread();
    while (const TaskPtr task = transfers.findCancelledTask()) transfers.remove(*task);
    transfers.forEach([this](const TaskPtr& task) {
        if (stateOf(*task->request).paused) {
            EngineTransfers::pause(*task);
            return true;
        }
        const CURLcode result = EngineTransfers::resume(*task);
        if (result == CURLE_OK) return true;
        completion.completeTask(task->easy, result);
        sweepWanted = true;  // the others' turn comes with the next pass
        waiting.wakeUp();
        return false;
    });
}

}  // namespace kel::http
