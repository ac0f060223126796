// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "kel-http/Client.h"
#include "kel-http/model/HeaderNodes.h"
#include "ko/thread.h"

namespace kel::http {

// The one implementation of Client. Everything here runs on the executor's thread; what the engine thread has to say
// comes as tasks posted to the executor.
class ClientImpl : public Client, public std::enable_shared_from_this<ClientImpl> {
 public:
    class CurlRequest;

    ClientImpl(ko::executor& client_executor, logging::Logger& client_logger, const ClientOptions& client_options = {},
               RequestId first_id = 1);

    using Client::start_download;
    using Client::start_request;
    RequestId start_request(const RequestConfig& config, const LogFilter& filter, const ResponseCallback& response_cb,
                            const ErrorCallback& error_cb) override;
    RequestId start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                             const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                             const ProgressCallback& progress_cb) override;
    // The same for a record that is given away: it is moved from, or as it was when they throw.
    RequestId start_given_request(RequestConfig& config, const LogFilter& filter, const ResponseCallback& response_cb,
                                  const ErrorCallback& error_cb);
    RequestId start_given_download(RequestConfig& config, const std::string& path, const LogFilter& filter,
                                   const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                                   const ProgressCallback& progress_cb);
    void pause_request(RequestId id) override;
    void resume_request(RequestId id) override;
    void cancel_request(RequestId id) override;
    RequestId allocate_request_id() override;

 private:
    // What the caller gave for one request.
    struct RequestInfo {
        ResponseCallback response_cb;
        ErrorCallback error_cb;
        ProgressCallback progress_cb;  // empty for plain requests
        LogFilter filter;
    };
    struct Running {
        std::shared_ptr<CurlRequest> request;
        RequestInfo info;
    };
    using RunningRequests = std::map<RequestId, Running>;

    void check_thread();
    RequestId next_id();
    std::shared_ptr<CurlRequest> make_request(RequestId id, const RequestConfig& config);
    std::shared_ptr<CurlRequest> make_download(RequestId id, const RequestConfig& config, const std::string& path);
    // Starts it, or throws with nothing started and nothing kept.
    void run(RequestId id, const std::shared_ptr<CurlRequest>& request, RequestInfo&& info);
    // The same for one that is to have `config`, which is given back when nothing is started.
    void run_given(RequestId id, const std::shared_ptr<CurlRequest>& request, RequestConfig& config,
                   RequestInfo&& info);

    void enter(RequestId id, Running&& running);
    // Ends the request's life here: its entry, or an empty one when it was cancelled or has ended before.
    RunningRequests::node_type take(RequestId id);
    // Keeps the entry for the next request. What the callbacks hold may call this client when it goes; somebody holds on to
    // the client meanwhile.
    void drop(RunningRequests::node_type&& ended);

    void on_response(RequestId id, const ResponseData& data);
    void on_error(RequestId id, const ErrorData& data);
    void on_progress(RequestId id, const ProgressData& data);

    const ClientOptions options;
    RequestId next_request_id;
    RunningRequests requests;
    // Of one that has ended, for the next.
    RunningRequests::node_type spare;
    HeaderNodes header_nodes;
    logging::Logger& logger;
    ko::thread_id my_thread_ = ko::invalid_thread_id;
    ko::executor& executor;
};

}  // namespace kel::http
