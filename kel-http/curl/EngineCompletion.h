// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <functional>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EngineProxy.h"
#include "kel-http/curl/EngineTls.h"
#include "kel-http/curl/EngineTransfers.h"
#include "logging/Logger.h"

namespace kel::http {

// What becomes of a transfer that has ended: its figures are read, and it is tried again through another proxy or its
// outcome is handed over. Engine thread; what handOver() is given runs wherever the callback handler decides.
class EngineCompletion {
 public:
    // Sets a request up once more, as a later task, which takes its outcome along. Throws std::bad_alloc.
    using Retry = std::function<void(const RequestPtr&, std::function<void()>&)>;

    // Which of them it became.
    enum class Completion { final, retry };

    EngineCompletion(EngineTransfers& of_transfers, EngineProxy& of_proxy, EngineTls& of_tls,
                     const Engine::CallbackHandler& handler, Retry again, logging::Logger& log);

    // Completes the transfers of which libcurl has said so: all, or those up to one that goes on with its next proxy.
    Completion processCompletedTasks();

    // Completes this one. Throws std::out_of_range when it is not in progress.
    Completion completeTask(void* easy, CURLcode result);

    // Gives an Outcome's closure to the callback handler. Nothing may be thrown: an outcome that can not be handed over is
    // lost, and its owner would wait for ever. A handler without memory to take it along is asked again.
    void handOver(std::function<void()>& outcome) const noexcept;

 private:
    void tell(Engine::ActiveTask& task, CURLcode result, long responseCode) const noexcept;
    bool tryNextProxy(Engine::ActiveTask& task, long responseCode) const noexcept;
    bool tryWithoutSession(Engine::ActiveTask& task, long responseCode) const noexcept;
    void addTimingData(void* easy, const RequestPtr& request) const;
    static void addRedirectURL(const RequestPtr& request, void* easy);

    EngineTransfers& transfers;
    EngineProxy& proxy;
    EngineTls& tls;
    const Engine::CallbackHandler callbackHandler;
    const Retry addNewRequestNextProxy;
    logging::Logger* const logger;
};

}  // namespace kel::http
