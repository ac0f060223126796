// SPDX-License-Identifier: MIT
#include "kel-http/Client.h"

#include <utility>

#include "kel-http/client/ClientImpl.h"
#include "kel-http/client/ClientLog.h"
#include "kel-http/client/CurlRequest.h"
#include "ko/assert.h"

namespace kel::http {
namespace {

// A handle may outlive its client, and must not keep it alive.
std::function<void()> cancel_action(Client& client, Client::RequestId id) {
    if (auto* const owned = dynamic_cast<ClientImpl*>(&client)) {
        return [weak = owned->weak_from_this(), id] {
            if (const auto alive = weak.lock()) alive->cancel_request(id);
        };
    }
    return [&client, id] { client.cancel_request(id); };
}

template <typename Data>
auto without_id(const std::function<void(const Data&)>& callback) {
    return [callback](Client::RequestId, const Data& data) { callback(data); };
}

// Progress may be nobody's concern.
auto without_id(const std::function<void(const ProgressData&)>& callback) {
    return [callback](Client::RequestId, const ProgressData& data) {
        if (callback) callback(data);
    };
}

}  // namespace

Client::~Client() = default;

Client::Handle Client::start_request(const RequestConfig& config, const LogFilter& filter,
                                     const std::function<void(const ResponseData&)>& response_cb,
                                     const std::function<void(const ErrorData&)>& error_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Handle handle;
    const RequestId id =
        start_request(config, filter, ResponseCallback(handle.wrap(ko::CallbackType::once, without_id(response_cb))),
                      ErrorCallback(handle.wrap(ko::CallbackType::once, without_id(error_cb))));
    handle.set_cancel_action(cancel_action(*this, id));
    return handle;
}

Client::Handle Client::start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                                      const std::function<void(const ResponseData&)>& response_cb,
                                      const std::function<void(const ErrorData&)>& error_cb,
                                      const std::function<void(const ProgressData&)>& progress_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Handle handle;
    const RequestId id = start_download(
        config, path, filter, ResponseCallback(handle.wrap(ko::CallbackType::once, without_id(response_cb))),
        ErrorCallback(handle.wrap(ko::CallbackType::once, without_id(error_cb))),
        ProgressCallback(handle.wrap(ko::CallbackType::repeating, without_id(progress_cb))));
    handle.set_cancel_action(cancel_action(*this, id));
    return handle;
}

void Client::pause(RequestId id) {
    pause_request(id);
}

void Client::resume(RequestId id) {
    resume_request(id);
}

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
    const RequestId id = do_start_request(config);
    KO_ASSERT(id != NoRequestId);
    request_infos.emplace(id, RequestInfo{response_cb, error_cb, {}, filter});
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
    const RequestId id = do_start_download(config, path);
    KO_ASSERT(id != NoRequestId);
    request_infos.emplace(id, RequestInfo{response_cb, error_cb, progress_cb, filter});
    log_request(logger, id, config, filter);
    return id;
}

Client::RequestId ClientImpl::do_start_request(const RequestConfig& config) {
    const RequestId id = allocate_request_id();
    run(id, std::make_shared<CurlRequest>(shared_from_this(), id, config));
    return id;
}

Client::RequestId ClientImpl::do_start_download(const RequestConfig& config, const std::string& path) {
    const RequestId id = allocate_request_id();
    auto digest = options.download_digest ? options.download_digest() : nullptr;
    const auto request = std::make_shared<CurlRequest>(shared_from_this(), id, config, path, std::move(digest));
    // Files may be large, and are not for the log.
    request->setAllowPayloadLogging(false);
    run(id, request);
    return id;
}

void ClientImpl::run(RequestId id, const std::shared_ptr<CurlRequest>& request) {
    requests.emplace(id, request);
    request->runRequest();
}

void ClientImpl::pause_request(RequestId id) {
    check_thread();
    if (const auto found = requests.find(id); found != requests.end()) found->second->pauseRequest();
}

void ClientImpl::resume_request(RequestId id) {
    check_thread();
    if (const auto found = requests.find(id); found != requests.end()) found->second->resumeRequest();
}

void ClientImpl::cancel_request(RequestId id) {
    check_thread();
    // Destroyed last: what the callbacks hold may call this client when it goes.
    const auto info = request_infos.extract(id);
    if (info.empty()) return;
    log_cancel(logger, id, info.mapped().filter);
    do_cancel_request(id);
}

void ClientImpl::do_cancel_request(RequestId id) {
    const auto request = requests.extract(id);
    if (!request.empty()) request.mapped()->tryToCancelRequest();
}

std::map<Client::RequestId, ClientImpl::RequestInfo>::node_type ClientImpl::take(RequestId id) {
    if (requests.erase(id) == 0) return {};
    return request_infos.extract(id);
}

// The callback runs when everything about the request is forgotten: it may start, cancel or drop what it likes. The
// posted task holds this client until then.
void ClientImpl::on_response(RequestId id, const ResponseData& data) {
    check_thread();
    auto info = take(id);
    if (info.empty()) return;
    log_response(logger, id, data, info.mapped().filter);
    const ResponseCallback response_cb = std::move(info.mapped().response_cb);
    info = {};
    response_cb(id, data);
}

void ClientImpl::on_error(RequestId id, const ErrorData& data) {
    check_thread();
    auto info = take(id);
    if (info.empty()) return;
    log_error(logger, id, data, info.mapped().filter);
    const ErrorCallback error_cb = std::move(info.mapped().error_cb);
    info = {};
    error_cb(id, data);
}

void ClientImpl::on_progress(RequestId id, const ProgressData& data) {
    check_thread();
    const auto info = request_infos.find(id);
    if (info == request_infos.end()) return;
    // A copy: the callback may cancel its own request.
    const ProgressCallback progress_cb = info->second.progress_cb;
    if (progress_cb) progress_cb(id, data);
}

}  // namespace kel::http
