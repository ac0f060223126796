// SPDX-License-Identifier: MIT
#include "kel-http/Client.h"

#include <new>
#include <utility>

#include "kel-http/client/ClientImpl.h"
#include "kel-http/client/ClientLog.h"
#include "kel-http/client/CurlRequest.h"
#include "ko/assert.h"

namespace kel::http {

namespace {

// What a request begins with that is going to be given its configuration: a copy of it takes no memory.
const RequestConfig& nothing_yet() {
    static const RequestConfig nothing = [] {
        RequestConfig config;
        config.headers = {};
        return config;
    }();
    return nothing;
}

}  // namespace

std::shared_ptr<Client> createClient(ko::executor& executor, logging::Logger& logger) {
    return createClient(executor, logger, ClientOptions());
}

std::shared_ptr<Client> createClient(ko::executor& executor, logging::Logger& logger, const ClientOptions& options) {
    return std::make_shared<ClientImpl>(executor, logger, options);
}

ClientImpl::ClientImpl(ko::executor& client_executor, logging::Logger& client_logger,
                       const ClientOptions& client_options, RequestId first_id)
    : options(client_options), next_request_id(first_id), logger(client_logger), executor(client_executor) {}

void ClientImpl::check_thread() {
    if (my_thread_ == ko::invalid_thread_id) my_thread_ = ko::this_thread::get_id();
    KO_ASSERT(my_thread_ == ko::this_thread::get_id());
}

Client::RequestId ClientImpl::allocate_request_id() {
    check_thread();
    const RequestId id = next_request_id++;
    if (id != NoRequestId) return id;
    next_request_id = 2;
    return 1;
}

Client::RequestId ClientImpl::start_request(const RequestConfig& config, const LogFilter& filter,
                                            const ResponseCallback& response_cb, const ErrorCallback& error_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    check_thread();
    const RequestId id = next_id();
    run(id, make_request(id, config), {response_cb, error_cb, {}, filter});
    log_request(logger, id, config, filter);
    return id;
}

Client::RequestId ClientImpl::start_download(const RequestConfig& config, const std::string& path,
                                             const LogFilter& filter, const ResponseCallback& response_cb,
                                             const ErrorCallback& error_cb, const ProgressCallback& progress_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    KO_ASSERT(progress_cb);
    check_thread();
    const RequestId id = next_id();
    run(id, make_download(id, config, path), {response_cb, error_cb, progress_cb, filter});
    log_request(logger, id, config, filter);
    return id;
}

Client::RequestId ClientImpl::start_given_request(RequestConfig& config, const LogFilter& filter,
                                                  const ResponseCallback& response_cb, const ErrorCallback& error_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    check_thread();
    const RequestId id = next_id();
    const auto request = make_request(id, nothing_yet());
    run_given(id, request, config, {response_cb, error_cb, {}, filter});
    log_request(logger, id, request->config, filter);
    return id;
}

Client::RequestId ClientImpl::start_given_download(RequestConfig& config, const std::string& path,
                                                   const LogFilter& filter, const ResponseCallback& response_cb,
                                                   const ErrorCallback& error_cb, const ProgressCallback& progress_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    KO_ASSERT(progress_cb);
    check_thread();
    const RequestId id = next_id();
    const auto request = make_download(id, nothing_yet(), path);
    std::string earlier = std::exchange(config.download_path, std::move(request->config.download_path));
    try {
        run_given(id, request, config, {response_cb, error_cb, progress_cb, filter});
    } catch (...) {
        config.download_path.swap(earlier);
        throw;
    }
    log_request(logger, id, request->config, filter);
    return id;
}

Client::RequestId ClientImpl::next_id() {
    const RequestId id = allocate_request_id();
    KO_ASSERT(id != NoRequestId);
    return id;
}

std::shared_ptr<ClientImpl::CurlRequest> ClientImpl::make_request(RequestId id, const RequestConfig& config) {
    return std::make_shared<CurlRequest>(shared_from_this(), id, config);
}

std::shared_ptr<ClientImpl::CurlRequest> ClientImpl::make_download(RequestId id, const RequestConfig& config,
                                                                   const std::string& path) {
    auto digest = options.download_digest ? options.download_digest() : nullptr;
    auto request = std::make_shared<CurlRequest>(shared_from_this(), id, config, path, std::move(digest));
    // Files may be large, and are not for the log.
    request->setAllowPayloadLogging(false);
    return request;
}

// Everything is in place before the engine hears of the request. What has been queued there can not be taken back: the
// caller, who is told that nothing has been started, may start it again.
void ClientImpl::run(RequestId id, const std::shared_ptr<CurlRequest>& request, RequestInfo&& info) {
    try {
        enter(id, {request, std::move(info)});
        request->runRequest();
    } catch (...) {
        take(id);  // out of the map first: what the callbacks hold may call this client when it goes
        throw;
    }
}

void ClientImpl::run_given(RequestId id, const std::shared_ptr<CurlRequest>& request, RequestConfig& config,
                           RequestInfo&& info) {
    request->config = std::move(config);
    try {
        run(id, request, std::move(info));
    } catch (...) {
        config = std::move(request->config);
        throw;
    }
}

void ClientImpl::pause_request(RequestId id) {
    check_thread();
    if (const auto found = requests.find(id); found != requests.end()) found->second.request->pauseRequest();
}

void ClientImpl::resume_request(RequestId id) {
    check_thread();
    if (const auto found = requests.find(id); found != requests.end()) found->second.request->resumeRequest();
}

void ClientImpl::cancel_request(RequestId id) {
    check_thread();
    // Destroyed last: what the callbacks hold may call this client when it goes.
    const auto cancelled = take(id);
    if (cancelled.empty()) return;
    log_cancel(logger, id, cancelled.mapped().info.filter);
    cancelled.mapped().request->tryToCancelRequest();
}

void ClientImpl::enter(RequestId id, Running&& running) {
    if (spare.empty()) {
        requests.emplace(id, std::move(running));
        return;
    }
    spare.key() = id;
    spare.mapped() = std::move(running);
    requests.insert(std::move(spare));
}

ClientImpl::RunningRequests::node_type ClientImpl::take(RequestId id) {
    return requests.extract(id);
}

void ClientImpl::drop(RunningRequests::node_type&& ended) {
    RunningRequests::node_type node = std::move(ended);
    node.mapped() = {};
    spare = std::move(node);
}

// The callback runs when everything about the request is forgotten: it may start, cancel or drop what it likes. The
// posted task holds this client until then.
void ClientImpl::on_response(RequestId id, const ResponseData& data) {
    check_thread();
    auto ended = take(id);
    if (ended.empty()) return;
    log_response(logger, id, data, ended.mapped().info.filter);
    const ResponseCallback response_cb = std::move(ended.mapped().info.response_cb);
    drop(std::move(ended));
    response_cb(id, data);
}

void ClientImpl::on_error(RequestId id, const ErrorData& data) {
    check_thread();
    auto ended = take(id);
    if (ended.empty()) return;
    log_error(logger, id, data, ended.mapped().info.filter);
    const ErrorCallback error_cb = std::move(ended.mapped().info.error_cb);
    drop(std::move(ended));
    error_cb(id, data);
}

void ClientImpl::on_progress(RequestId id, const ProgressData& data) {
    check_thread();
    const auto found = requests.find(id);
    if (found == requests.end()) return;
    ProgressCallback progress_cb;
    try {
        // A copy: the callback may cancel its own request.
        progress_cb = found->second.info.progress_cb;
    } catch (const std::bad_alloc&) {
        return;  // the next report tells more
    }
    if (progress_cb) progress_cb(id, data);
}

}  // namespace kel::http
