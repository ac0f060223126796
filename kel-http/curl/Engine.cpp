// SPDX-License-Identifier: MIT
#include "kel-http/curl/Engine.h"

#include <chrono>
#include <cstdlib>
#include <ostream>
#include <utility>

#include "kel-http/curl/BrokenPipe.h"
#include "kel-http/curl/EngineGate.h"
#include "kel-http/curl/EngineImpl.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"

namespace kel::http {
namespace {

constexpr int scheduler_round_robin = 2;
constexpr int scheduler_priority = 0;
constexpr std::size_t stack_bytes = 262144;

// Never destroyed: an engine with static storage is used until the very end.
EngineGate& gate() {
    static auto& instance = *new EngineGate;
    return instance;
}

}  // namespace

std::atomic<Engine*> currentEngine{nullptr};

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

Engine::Engine(const CallbackHandler& callbackHandler) : Engine(callbackHandler, &std::chrono::steady_clock::now) {}

// Where it throws nothing is left behind: without its thread there is no engine.
Engine::Engine(const CallbackHandler& callbackHandler, ProxyBlackList::Clock clock)
    : impl(std::make_unique<Impl>(*this, callbackHandler, clock)) {
    KO_ASSERT(callbackHandler);
    KO_ASSERT(!currentEngine);
    if (!impl->waiting.canWakeUp()) KO_ASSERT(false && "CurlEngine: Error creating eventfd\n");
    impl->cookies.open();
    currentEngine = this;
    try {
        impl->engineThread = createEngineTask([this] {
            blockBrokenPipeSignal();
            impl->thread_loop();
        });
    } catch (...) {
        currentEngine = nullptr;
        throw;
    }
    gate().open();
}

Engine::~Engine() {
    stop();
    gate().close();
    // Transfers hold cookies: the cookies go last.
    const BrokenPipeGuard guard;  // connections say goodbye, and their peers may have gone
    impl->transfers.close();
    impl->cookies.close();
    impl->library.close();
    currentEngine = nullptr;
}

void Engine::stop() {
    impl->shuttingDown = true;
    KO_ASSERT(currentEngine);
    ko::thread& engineThread = impl->engineThread;
    if (!engineThread.joinable()) return;
    KO_ASSERT(engineThread.get_id() != ko::this_thread::get_id());
    requestTermination();
    engineThread.join();
}

void Engine::addTlsConfig(void* easy, std::shared_ptr<Request> request) {
    impl->tls.addTlsConfig(easy, *request);
}

void Engine::queueRequest(const std::function<void()>& task) {
    impl->queue.push(std::function<void()>(task));
}

void Engine::onNewRequest(const std::function<void()>& handler) {
    impl->onNewRequest(handler);
}

void Engine::addNewRequest(std::shared_ptr<Request> request) {
    writeLine(*impl->logger, log_level::detail, "({}) Engine::{}", request->id(), "addNewRequest");
    impl->enqueueRun(std::move(request), tl::nullopt);
}

void Engine::addNewRequestWithProxies(std::shared_ptr<Request> request, std::list<std::string> proxies) {
    writeLine(*impl->logger, log_level::detail, "({}) Engine::{}", request->id(), "addNewRequestWithProxies");
    impl->enqueueRun(std::move(request), std::move(proxies));
}

void Engine::tryToCancelRequest(std::shared_ptr<Request> request) {
    impl->enqueueFor(request, &Impl::removeTask);
}

void Engine::pauseRequest(std::shared_ptr<Request> request) {
    impl->enqueueFor(request, &Impl::pauseTask);
}

void Engine::resumeRequest(std::shared_ptr<Request> request) {
    impl->enqueueFor(request, &Impl::resumeTask);
}

void Engine::ask(const std::function<void(Engine&)>& question) {
    const EngineGate::Visit visit(gate());
    if (visit.isInside()) question(*currentEngine);
}

void Engine::settle() {
    impl->settle();
}

void Engine::requestTermination() {
    impl->requestTermination();
}

std::shared_ptr<Request> Engine::lookupRequest(void* easy) const {
    const ActiveTask* const task = impl->transfers.find(easy);
    return task != nullptr ? task->request : nullptr;
}

void Engine::setProxyConfig(ProxyConfigMode mode, const std::string& url, const std::string& user,
                            const std::string& password) {
    impl->proxy.setProxyConfig({mode, url, user, password});
}

Engine::ProxyConfigMode Engine::getProxyMode() const {
    return impl->proxy.getProxyMode();
}

std::string Engine::getProxyUrl() const {
    return impl->proxy.getProxyUrl();
}

std::string Engine::getProxyUser() const {
    return impl->proxy.getProxyUser();
}

std::string Engine::getProxyPassword() const {
    return impl->proxy.getProxyPassword();
}

std::ostream& operator<<(std::ostream& stream, Engine::ProxyConfigMode mode) {
    switch (mode) {
        case Engine::ProxyConfigMode::Off:
            return stream << "Off";
        case Engine::ProxyConfigMode::Manual:
            return stream << "Manual";
        case Engine::ProxyConfigMode::PACUrl:
            return stream << "PACUrl";
        case Engine::ProxyConfigMode::WPAD:
            return stream << "WPAD";
    }
    std::abort();
}

}  // namespace kel::http
