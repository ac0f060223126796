// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "kel-http/CallbackCheck.h"
#include "kel-http/ClientOptions.h"
#include "kel-http/ErrorData.h"
#include "kel-http/Export.h"
#include "kel-http/LogFilter.h"
#include "kel-http/ProgressData.h"
#include "kel-http/RequestConfig.h"
#include "kel-http/ResponseData.h"
#include "ko/async_action_handle.h"
#include "ko/executor.h"
#include "logging/Logger.h"

namespace kel::http {

// Marks the handles of this library.
struct KelHttpClientTag {};

// Sends HTTP requests without blocking and calls back on the caller's own thread.
//
// Threads:   a client belongs to the thread that first calls it, which has to be its executor's. A call from any other
//            one stops the process, and so does an executor that runs tasks on another thread, or at once inside post().
// Life:      createClient() gives out the only reference. A client that is dropped lives on until its last request has
//            been delivered or cancelled.
// Needs:     a kel::http::Engine, made by the program before the first request and kept until the last one has ended.
//            Without one a request is accepted, but nothing is sent and no callback comes. Cancel what is still running
//            before the engine is destroyed: it ends transfers without a word, and the client would wait for ever. The
//            executor has to outlive the engine, unless its client has cancelled everything and Engine::settle() has
//            returned since.
// Memory:    an outcome is never lost for want of memory. When there is none for the response, ClientFailure::Other with
//            the text "Out of memory" comes instead, also for a download that is in its place by then. When the
//            executor's post() throws std::bad_alloc, it is called again every 10 ms by the thread that completes
//            transfers, which waits. Progress and log lines may be left out.
// Callbacks: as later tasks on the executor, never inside a call of this class. They may call the client, also to start
//            or cancel requests, and may drop it. They must not throw, std::bad_alloc included: that ends the process.
class KEL_HTTP_EXPORT Client {
 public:
    // Names one request of one client.
    using RequestId = std::uint32_t;

    // What a request calls: one of the first two, once; a download the third one as well, any number of times before.
    // The records are good during the call only.
    using ResponseCallback = std::function<void(RequestId, const ResponseData&)>;
    using ErrorCallback = std::function<void(RequestId, const ErrorData&)>;
    using ProgressCallback = std::function<void(RequestId, const ProgressData&)>;

    // Cancels its request when it is destroyed, and drops whatever is still on its way.
    using Handle = ko::AsyncActionHandle<KelHttpClientTag>;

    virtual ~Client();

    // Starts `config` and returns its id at once; nothing has been sent yet.
    //
    // One of the two callbacks is called, once, as a later task on the executor; none after cancel_request(id).
    // Threads:   the thread that first used this client. Any other one stops the process.
    // Ownership: everything is copied, save what is given away (below); the client lives on until the outcome has been delivered.
    // Units:     config.timeout in milliseconds, 0 for none; config.speed_limit in bytes per second.
    // Errors:    std::bad_alloc, with nothing started; a failed transfer arrives in `error_cb`. An empty callback stops
    //            the process.
    // Needs:     an Engine. Without one nothing is sent and no callback comes; one line at level 1 says so.
    virtual RequestId start_request(const RequestConfig& config, const LogFilter& filter,
                                    const ResponseCallback& response_cb, const ErrorCallback& error_cb) = 0;

    // As start_request, but the body goes to the file `path`.
    //
    // Beware: the body of *every* answer goes there. A 404 with its page, or a 304 without one, replaces a good file.
    // What has the name `path` is replaced, be it a symbolic link or a device. A regular file hands its permissions on.
    // The body is written to a sibling, `path` + ".downloading-" and eight characters (`path` + "." and eight when the
    // body is empty), which is renamed onto `path` once it is complete: `path` is the old file or the whole new one,
    // save after a power cut, as nothing is synced. A name of more than 234 bytes leaves no room for the sibling's.
    // With config.resume the body is appended to `path` itself: one download at a time, and nobody else at the file.
    // `progress_cb` is called about once a second while bytes arrive, and whenever a body is complete, that of a
    // followed redirect included; never after the outcome.
    // Errors:    std::bad_alloc, with nothing started; what can not be written ends in ClientFailure::WriteFailed; what
    //            the server can not resume in RangeError, and so does a file that has another size by then; resuming
    //            what is no file, or can not be looked at, in Other.
    virtual RequestId start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                                     const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                                     const ProgressCallback& progress_cb) = 0;

    // The same two calls for a `config` that is given away, which is moved instead of copied: a body of many MiB exists once.
    // Classes of a program's own get it as a reference.
    // Errors:    std::bad_alloc, with nothing started; `config` is then as it was.
    RequestId start_request(RequestConfig&& config, const LogFilter& filter, const ResponseCallback& response_cb,
                            const ErrorCallback& error_cb);
    RequestId start_download(RequestConfig&& config, const std::string& path, const LogFilter& filter,
                             const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                             const ProgressCallback& progress_cb);

    // Stops the flow of data until resume_request(id); no byte is lost. The request's time-out keeps running. An
    // unknown id is ignored.
    // Threads:   the client's.
    virtual void pause_request(RequestId id) = 0;

    // Lets the data flow again. An unknown id is ignored.
    // Threads:   the client's.
    virtual void resume_request(RequestId id) = 0;

    // Ends the request; none of its callbacks is called any more. An unknown id, also that of a request that has ended,
    // is ignored.
    // Threads:   the client's.
    virtual void cancel_request(RequestId id) = 0;

    // An id for a request, never NoRequestId; used by the client itself.
    // Threads:   the client's.
    virtual RequestId allocate_request_id() = 0;

    // The same calls for callers that keep handles instead of ids. Callbacks are dropped once the handle is gone,
    // and destroying the handle of a running request cancels it. An empty `progress_cb` is allowed here.
    // Threads:   the client's, also for destroying the handle.
    // Ownership: a handle may outlive its client, of whatever class that is; it then does nothing. A class of a
    //            program's own ends on the client's thread.
    // Errors:    std::bad_alloc, with nothing started.
    //
    // [[nodiscard]]: a handle that nobody keeps is destroyed at once, and with it the request that the call has started.
    [[nodiscard]] Handle start_request(const RequestConfig& config, const LogFilter& filter,
                                       const std::function<void(const ResponseData&)>& response_cb,
                                       const std::function<void(const ErrorData&)>& error_cb);
    [[nodiscard]] Handle start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                                        const std::function<void(const ResponseData&)>& response_cb,
                                        const std::function<void(const ErrorData&)>& error_cb,
                                        const std::function<void(const ProgressData&)>& progress_cb);

    // The same for a record that the caller gives away: it is moved, so that its body is not copied once more.
    [[nodiscard]] Handle start_request(RequestConfig&& config, const LogFilter& filter,
                                       const std::function<void(const ResponseData&)>& response_cb,
                                       const std::function<void(const ErrorData&)>& error_cb);
    [[nodiscard]] Handle start_download(RequestConfig&& config, const std::string& path, const LogFilter& filter,
                                        const std::function<void(const ResponseData&)>& response_cb,
                                        const std::function<void(const ErrorData&)>& error_cb,
                                        const std::function<void(const ProgressData&)>& progress_cb);

    // What is called with callbacks that fit none of the calls above, or two of them, does not compile, and the compiler
    // says which callback has to change. All of one call take an id, or none does.
    template <typename Response, typename Error, detail::IfUnclear<Response, Error> = 0>
    detail::NothingStarted start_request(const RequestConfig& /*config*/, const LogFilter& /*filter*/,
                                         Response&& /*response_cb*/, Error&& /*error_cb*/) {
        return detail::refuse<Response, Error>();
    }
    // The same for records that are given away.
    template <typename Response, typename Error, detail::IfUnclear<Response, Error> = 0>
    detail::NothingStarted start_request(RequestConfig&& /*config*/, const LogFilter& /*filter*/,
                                         Response&& /*response_cb*/, Error&& /*error_cb*/) {
        return detail::refuse<Response, Error>();
    }
    // The same for downloads.
    template <typename Response, typename Error, typename Progress = detail::CalledEitherWay,
              detail::IfUnclear<Response, Error, Progress> = 0>
    detail::NothingStarted start_download(const RequestConfig& /*config*/, const std::string& /*path*/,
                                          const LogFilter& /*filter*/, Response&& /*response_cb*/, Error&& /*error_cb*/,
                                          Progress&& /*progress_cb*/) {
        return detail::refuse<Response, Error, Progress>();
    }
    // The same for downloads with records that are given away.
    template <typename Response, typename Error, typename Progress = detail::CalledEitherWay,
              detail::IfUnclear<Response, Error, Progress> = 0>
    detail::NothingStarted start_download(RequestConfig&& /*config*/, const std::string& /*path*/,
                                          const LogFilter& /*filter*/, Response&& /*response_cb*/, Error&& /*error_cb*/,
                                          Progress&& /*progress_cb*/) {
        return detail::refuse<Response, Error, Progress>();
    }

    // The same as pause_request() and resume_request().
    void pause(RequestId id);
    void resume(RequestId id);
};

// No request has this id.
constexpr Client::RequestId NoRequestId = 0;

// Makes a client that calls back on `executor` and writes its log lines to `logger`. Both have to outlive it. Any
// thread.
KEL_HTTP_EXPORT std::shared_ptr<Client> createClient(ko::executor& executor, logging::Logger& logger);

// The same with `options`, which are copied.
KEL_HTTP_EXPORT std::shared_ptr<Client> createClient(ko::executor& executor, logging::Logger& logger,
                                                     const ClientOptions& options);

}  // namespace kel::http

// For programs that name it so.
using kel::http::KelHttpClientTag;
