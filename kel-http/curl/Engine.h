// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>  // its enumerations can not be declared ahead

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <list>
#include <memory>
#include <string>

#include "kel-http/Export.h"
#include "kel-http/curl/ProxyBlackList.h"
#include "kel-http/curl/Request.h"
#include "ko/thread.h"

namespace kel::http {

// The process-wide transfer engine: one thread, "CurlEngine", that drives every transfer.
//
// Threads:  any thread may call the operations that take a Request, those about proxies, queueRequest(), onNewRequest()
//           and requestTermination(). What is marked "engine thread" below is called there only.
// Life:     the program makes one engine before the first request and destroys it after the last one, on a thread that
//           is not the engine's own. One at a time; a second one stops the process. Transfers that are still running
//           then end without a word to their requests: cancel them first.
// Outcome:  a completed transfer is handed, as a closure, to the callback handler, which decides where it runs: at
//           once, on the engine thread, or posted to a thread of its choice. Closures may outlive the engine. The
//           handler must not be empty and must not throw, save std::bad_alloc: it is asked again then.
// Derived:  the thread runs from the base class's constructor on, so no request may be queued before the most derived
//           constructor has returned, and the most derived destructor calls stop() first.
// Settings: libcurl's own environment variables ("http_proxy" and its kin) apply as long as no proxy is set here; a
//           program that wants none clears them.
class KEL_HTTP_EXPORT Engine {
 public:
    // Decides where a completion runs: calls it at once, or has another thread call it, once.
    using CallbackHandler = std::function<void(const std::function<void()>&)>;

    // Which proxy transfers go through. The numbers are part of the interface: they appear in log lines.
    enum class ProxyConfigMode : std::uint32_t {
        // None; libcurl's environment variables apply.
        Off = 0,
        // The engine's own.
        Manual = 1,
        // Each request's RequestConfig::proxies, one after the other until one works, as a PAC script has named them ...
        PACUrl = 2,
        // ... which was given by its URL or found by discovery. To the engine both are the same.
        WPAD = 3
    };

    struct ActiveTask;

    // Starts the engine thread. Any thread. Throws std::bad_alloc, and there is no engine then.
    explicit Engine(const CallbackHandler& callbackHandler);

    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Runs the tasks queued so far, ends the thread and frees all transfers.
    virtual ~Engine();

    // Sets the TLS options of a transfer; a derived engine may replace it, or add options of libcurl's that the engine does
    // not use (docs/extending.md). What it throws fails the request. Engine thread.
    virtual void addTlsConfig(void* easy, std::shared_ptr<Request> request);

    // The engine of this process; stops the process when there is none. Any thread.
    static Engine* getEngine();

    // Whether there is one. Any thread.
    static bool hasEngine();

    // Queues `task` for the engine thread; tasks run in order, once each. A task queued by a task runs in the next
    // pass. What a task throws is logged and ends there. Any thread. Throws std::bad_alloc, with nothing queued.
    void queueRequest(const std::function<void()>& task);

    // Replaces the function that is called, on the engine thread, before each transfer is set up. Any thread.
    void onNewRequest(const std::function<void()>& handler);

    // Start, drop, pause and continue the transfer of `request`. Any thread. A request that is not active is ignored by
    // the last three, which throw nothing; the first one throws std::bad_alloc, with nothing started.
    void addNewRequest(std::shared_ptr<Request> request);
    void tryToCancelRequest(std::shared_ptr<Request> request);
    void pauseRequest(std::shared_ptr<Request> request);
    void resumeRequest(std::shared_ptr<Request> request);

    // Sets the proxy of all transfers that are set up from now on. `url`, `user` and `password` matter to mode Manual
    // only. The URL is logged without credentials in it; user and password are not. Any thread. Initially Off.
    void setProxyConfig(ProxyConfigMode mode, const std::string& url, const std::string& user,
                        const std::string& password);

    // What setProxyConfig() was given last. Any thread.
    ProxyConfigMode getProxyMode() const;
    std::string getProxyUrl() const;
    std::string getProxyUser() const;
    std::string getProxyPassword() const;

    // Starts the transfer of `request` with these proxies to be tried, in order; those that failed lately come last.
    // Any thread.
    void addNewRequestWithProxies(std::shared_ptr<Request> request, std::list<std::string> proxies);

    // Calls `question` at once if there is an engine, which then does not go away meanwhile, even though its owner may
    // have begun to destroy it. Any thread.
    static void ask(const std::function<void(Engine&)>& question);

    // Waits until everything has run that was queued before, so that the engine holds nothing any more that was cancelled
    // before: what such a request refers to, an executor for one, may end, once the callback handler, too, has no
    // completion of it in hands. Returns at once when the loop has ended.
    // Neither on the engine thread nor on one that the callback handler waits for.
    void settle();

    // Ends the engine's loop behind the tasks that are queued so far. Any thread.
    void requestTermination();

    // The request whose transfer has this easy handle; empty when there is none. Engine thread.
    std::shared_ptr<Request> lookupRequest(void* easy) const;

    // Turns a libcurl result and a status into the one final call of the request's hooks. Called in the callback
    // handler's context, where the engine may be gone already.
    static void runCallbackHandlerInFsmContext(std::shared_ptr<Request> request, CURLcode result, long responseCode);

    // libcurl's callbacks. Engine thread. The first four throw std::out_of_range for a handle that is not active.
    static std::size_t writeHeader(void* data, std::size_t size, std::size_t nitems, void* easy);
    static std::size_t writeFunction(void* data, std::size_t size, std::size_t nitems, void* easy);
    static std::size_t putReadFunc(void* buffer, std::size_t size, std::size_t nitems, void* easy);
    static int putSeekFunc(void* easy, curl_off_t offset, int origin);
    static std::size_t putReadFile(void* buffer, std::size_t size, std::size_t nitems, void* stream);
    static int downloadProgress(void* easy, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal, curl_off_t ulnow);
    static int traceTransfer(CURL* easy, curl_infotype type, char* data, std::size_t size, void* logger);
    static int watchSocket(void* engine, curl_socket_t descriptor, curlsocktype purpose);

 protected:
    // With a clock of the derived engine's for the list of failed proxies.
    Engine(const CallbackHandler& callbackHandler, ProxyBlackList::Clock clock);

    // Ends the engine thread; the second call does nothing. Not on the engine thread.
    void stop();

 private:
    struct Impl;
    const std::unique_ptr<Impl> impl;
};

// Starts the thread "CurlEngine", with a stack of 256 KiB, on `body`.
KEL_HTTP_EXPORT ko::thread createEngineTask(const std::function<void()>& body);

// "Off", "Manual", "PACUrl" or "WPAD"; any other value aborts the process.
KEL_HTTP_EXPORT std::ostream& operator<<(std::ostream& stream, Engine::ProxyConfigMode mode);

}  // namespace kel::http
