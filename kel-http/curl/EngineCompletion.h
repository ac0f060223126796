// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <functional>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/EngineProxy.h"
#include "kel-http/curl/EngineTransfers.h"
#include "logging/Logger.h"

namespace kel::http {

// What becomes of a transfer that has ended: its figures are read, and it is tried again through another proxy or its
// outcome is handed over. Engine thread; what handOver() is given runs wherever the callback handler decides.
class EngineCompletion {
 public:
    // Sets a request up once more, as a later task.
    using Retry = std::function<void(RequestPtr)>;

    // Which of them it became.
    enum class Completion { final, retry };

    EngineCompletion(EngineTransfers& of_transfers, EngineProxy& of_proxy, const Engine::CallbackHandler& handler,
                     Retry again, logging::Logger& log);

    // Completes all transfers of which libcurl has said so.
    void processCompletedTasks();

    // Completes this one. Throws std::out_of_range when it is not in progress.
    Completion completeTask(void* easy, CURLcode result);

    // Gives `closure` to the callback handler. Nothing may be thrown: an outcome that can not be handed over is lost, and
    // its owner would wait for ever.
    void handOver(const std::function<void()>& closure) const noexcept;

 private:
    void addTimingData(void* easy, const RequestPtr& request) const;
    static void addRedirectURL(const RequestPtr& request, void* easy);

    EngineTransfers& transfers;
    EngineProxy& proxy;
    const Engine::CallbackHandler callbackHandler;
    const Retry addNewRequestNextProxy;
    logging::Logger* const logger;
};

}  // namespace kel::http
