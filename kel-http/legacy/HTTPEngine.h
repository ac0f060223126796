// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Executor.h"
#include "kel-http/Export.h"
#include "kel-http/curl/Engine.h"

// The engine for older programs, which have an `Executor` and derive their own kel::http::Request instead of using a
// client. It is the process's one engine in every respect. What differs: completions run on the executor, and a first
// task there tells the engine the deployment's proxy, though switched off.
//
// Threads: construction and destruction on any thread but the engine's. The final hooks of requests, notifyDataEnd() and
//          notifyFailure() with the last reportDownloadProgress() before them, run as tasks of the executor; all other
//          hooks on the engine thread.
// Life:    `executor` has to outlive the engine. Tasks that are still queued there when the engine goes are harmless:
//          completions run nevertheless, the set-up of the proxy does nothing.
// Needs:   an executor whose post() throws nothing but std::bad_alloc once the constructor has returned. For want of memory
//          a completion is posted again every 10 ms, which holds up the engine thread; one that can not be posted for
//          another reason stops the process.
class KEL_HTTP_EXPORT HTTPEngine : public kel::http::Engine {
 public:
    // Starts the engine thread and posts a task "InitializeProxy", which calls set_http_proxy(). `name` appears in the
    // log. What post() throws is passed on; there is no engine then.
    HTTPEngine(const std::string& name, Executor& executor);

    // Ends the engine thread. Waits for the task "InitializeProxy" if the executor is just running it.
    ~HTTPEngine() override;

    // Tells the engine the deployment's proxy, "http://HOST:80" without user and password, in mode Off: transfers go
    // straight until somebody calls setProxyConfig() with mode Manual. The executor's thread.
    void set_http_proxy();

    // Posts a copy of `callback` to the executor as "handle_engine_callback" and returns. Any thread.
    void handle_engine_callback(const std::function<void()>& callback);

 private:
    // Lets a task that outlives the engine find out that it is gone.
    class Presence {
     public:
        explicit Presence(HTTPEngine& engine);
        ~Presence();
        Presence(const Presence&) = delete;
        Presence& operator=(const Presence&) = delete;

        // A task that runs `step` as long as there is an engine, which does not go away meanwhile.
        std::function<void()> guard(void (HTTPEngine::*step)()) const;

     private:
        struct State;
        const std::shared_ptr<State> state_;
    };

    const std::string name_;
    logging::Logger& logger_;
    Executor& executor_;
    std::string proxy_url_;
    std::string proxy_user_;
    std::string proxy_password_;
    ProxyConfigMode proxy_mode_ = ProxyConfigMode::Off;
    // Goes first.
    const Presence presence_{*this};
};
