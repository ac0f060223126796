// SPDX-License-Identifier: MIT
#include "kel-http/curl/Engine.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <utility>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EngineGate.h"
#include "kel-http/curl/Hooks.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"
#include "logging/tovanlog.h"

namespace kel::http {
namespace {

constexpr int scheduler_round_robin = 2;
constexpr int scheduler_priority = 0;
constexpr std::size_t stack_bytes = 262144;

// A peer that goes away must end its own transfer, not the process, whatever path of libcurl or OpenSSL wrote to it.
void blockBrokenPipeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// Never destroyed: an engine with static storage is used until the very end.
EngineGate& gate() {
    static auto& instance = *new EngineGate;
    return instance;
}

}  // namespace

std::atomic<Engine*> Engine::currentEngine{nullptr};

ko::thread createEngineTask(const std::function<void()>& body) {
    ko::thread::attributes attributes;
    attributes.set_scheduler(scheduler_round_robin, scheduler_priority);
    attributes.set_stack_size(stack_bytes);
    ko::thread_id id = ko::invalid_thread_id;
    return ko::thread::create_thread("CurlEngine", attributes, id, body);
}

Engine* Engine::getEngine() {
    KO_ASSERT(currentEngine);
    return currentEngine;
}

bool Engine::hasEngine() {
    return currentEngine != nullptr;
}

Engine::Engine(const CallbackHandler& handler) : Engine(handler, &std::chrono::steady_clock::now) {}

Engine::Engine(const CallbackHandler& handler, ProxyBlackList::Clock clock)
    : multi(curl_multi_init()),
      share(curl_share_init()),
      queueMutex("QueueMutex"),
      variableMutex("VariableMutex"),
      wakeupDescriptor(eventfd(0, 0)),
      callbackHandler(handler),
      newRequestHandler([] {}),
      proxyBlackList(clock),
      logger(logging::getLogger("HttpClient", 0)) {
    KO_ASSERT(!currentEngine);
    currentEngine = this;
    gate().open();
    curl_global_init(CURL_GLOBAL_ALL);
    if (wakeupDescriptor < 0) KO_ASSERT(false && "CurlEngine: Error creating eventfd\n");
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    engineThread = createEngineTask([this] { thread_loop(); });
}

Engine::~Engine() {
    stop();
    gate().close();
    // Freeing a transfer may call back into this engine, which should then find none rather than a map in pieces.
    TaskMap unfinished;
    unfinished.swap(activeTasks);
    // libcurl loses what it holds back for a paused transfer that is freed without having been removed.
    for (const auto& [easy, task] : unfinished) curl_multi_remove_handle(multi, easy);
    unfinished.clear();
    curl_multi_cleanup(multi);
    curl_share_cleanup(share);
    curl_global_cleanup();
    close(wakeupDescriptor);
    currentEngine = nullptr;
}

void Engine::stop() {
    shuttingDown = true;
    KO_ASSERT(currentEngine);
    if (!engineThread.joinable()) return;
    KO_ASSERT(engineThread.get_id() != ko::this_thread::get_id());
    requestTermination();
    engineThread.join();
}

void Engine::enqueue(std::function<void()> task) {
    {
        ko::lock_guard lock(queueMutex);
        taskQueue.push_back(std::move(task));
    }
    if (eventfd_write(wakeupDescriptor, 1) != 0) tovanlog_write(2, 0, "CurlEngine: Error writing eventfd\n", 34);
}

void Engine::enqueueFor(RequestPtr request, void (Engine::*step)(RequestPtr)) {
    enqueue([this, step, owned = std::move(request)] { (this->*step)(owned); });
}

// A request may still be at work for an earlier run that was cancelled, so what a later one begins with is set when the
// engine comes to it.
void Engine::enqueueRun(RequestPtr request, tl::optional<std::list<std::string>> proxies) {
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

void Engine::queueRequest(const std::function<void()>& task) {
    enqueue(task);
}

void Engine::onNewRequest(const std::function<void()>& handler) {
    std::function<void()> replacement = handler;
    ko::lock_guard lock(variableMutex);
    newRequestHandler.swap(replacement);
}

void Engine::addNewRequest(RequestPtr request) {
    writeLine(*logger, log_level::detail, "({}) Engine::{}", request->id(), "addNewRequest");
    enqueueRun(std::move(request), tl::nullopt);
}

void Engine::tryToCancelRequest(RequestPtr request) {
    enqueueFor(std::move(request), &Engine::removeTask);
}

void Engine::pauseRequest(RequestPtr request) {
    enqueueFor(std::move(request), &Engine::pauseTask);
}

void Engine::resumeRequest(RequestPtr request) {
    enqueueFor(std::move(request), &Engine::resumeTask);
}

void Engine::ask(const std::function<void(Engine&)>& question) {
    const EngineGate::Visit visit(gate());
    if (visit.isInside()) question(*currentEngine);
}

void Engine::requestTermination() {
    enqueue([this] { flagTermination(); });
}

void Engine::flagTermination() {
    checkEngineThread();
    terminationFlag = true;
}

void Engine::thread_loop() {
    engineThreadId = ko::this_thread::get_id();
    blockBrokenPipeSignal();
    while (!terminationFlag) runTasks();
    writeLine(*logger, log_level::detail, "Engine::{}: Exiting thread loop", "thread_loop");
}

void Engine::runTasks() {
    processPendingRequests();
    if (terminationFlag) {
        writeLine(*logger, log_level::detail, "Engine::{}", "runTasks");
        return;
    }
    doCurlProcessing();
    processCompletedTasks();
}

// A task queued meanwhile waits for the next pass.
void Engine::processPendingRequests() {
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
void Engine::runGuarded(const std::function<void()>& task) {
    try {
        task();
    } catch (const std::exception& error) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed: {}", "processPendingRequests",
                  error.what());
    } catch (...) {
        writeLine(*logger, log_level::error, "Engine::{}: A queued task failed", "processPendingRequests");
    }
}

void Engine::checkEngineThread() const {
#ifndef NDEBUG
    KO_ASSERT(engineThreadId == ko::this_thread::get_id());
#endif
}

std::shared_ptr<Request> Engine::lookupRequest(void* easy) const {
    const auto found = activeTasks.find(easy);
    return found == activeTasks.end() ? nullptr : found->second->request;
}

}  // namespace kel::http
