// SPDX-License-Identifier: MIT
// The calls of Client that are not virtual, for whatever class a client is of: those that give out handles, and those that
// take a record for good.
#include <utility>

#include "kel-http/Client.h"
#include "kel-http/client/ClientImpl.h"
#include "kel-http/client/ForeignClients.h"
#include "ko/assert.h"

namespace kel::http {
namespace {

// Cancels one request, as long as there is its client: a handle may outlive it, and must not keep it alive.
struct CancelOwn {
    void operator()() const {
        if (const auto alive = client.lock()) alive->cancel_request(id);
    }

    std::weak_ptr<ClientImpl> client;
    Client::RequestId id = NoRequestId;
};

// The same for classes of the program.
struct CancelForeign {
    void operator()() const {
        if (Client* const alive = presence->client()) alive->cancel_request(id);
    }

    ForeignClients::PresencePtr presence;
    Client::RequestId id = NoRequestId;
};

// Calls `start` and lets `handle` cancel what it has started. Everything else is made before, as nothing may fail once
// the request runs.
template <typename Cancel, typename Start>
void start_with(Client::Handle& handle, Cancel cancel, const Start& start) {
    std::function<void()> action = std::move(cancel);
    action.target<Cancel>()->id = start();
    handle.set_cancel_action(std::move(action));
}

template <typename Start>
void start_with_handle(Client& client, Client::Handle& handle, const Start& start) {
    if (auto* const own = dynamic_cast<ClientImpl*>(&client)) {
        start_with(handle, CancelOwn{own->weak_from_this()}, start);
    } else {
        start_with(handle, CancelForeign{ForeignClients::presence_of(client)}, start);
    }
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

template <typename Config>
Client::Handle request_with_handle(Client& client, Config&& config, const LogFilter& filter,
                                   const std::function<void(const ResponseData&)>& response_cb,
                                   const std::function<void(const ErrorData&)>& error_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Client::Handle handle;
    const Client::ResponseCallback on_response(handle.wrap(ko::CallbackType::once, without_id(response_cb)));
    const Client::ErrorCallback on_error(handle.wrap(ko::CallbackType::once, without_id(error_cb)));
    start_with_handle(client, handle, [&] {
        return client.start_request(std::forward<Config>(config), filter, on_response, on_error);
    });
    return handle;
}

template <typename Config>
Client::Handle download_with_handle(Client& client, Config&& config, const std::string& path, const LogFilter& filter,
                                    const std::function<void(const ResponseData&)>& response_cb,
                                    const std::function<void(const ErrorData&)>& error_cb,
                                    const std::function<void(const ProgressData&)>& progress_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Client::Handle handle;
    const Client::ResponseCallback on_response(handle.wrap(ko::CallbackType::once, without_id(response_cb)));
    const Client::ErrorCallback on_error(handle.wrap(ko::CallbackType::once, without_id(error_cb)));
    const Client::ProgressCallback on_progress(handle.wrap(ko::CallbackType::repeating, without_id(progress_cb)));
    start_with_handle(client, handle, [&] {
        return client.start_download(std::forward<Config>(config), path, filter, on_response, on_error, on_progress);
    });
    return handle;
}

}  // namespace

Client::~Client() {
    ForeignClients::leave(*this);
}

Client::RequestId Client::start_request(RequestConfig&& config, const LogFilter& filter,
                                        const ResponseCallback& response_cb, const ErrorCallback& error_cb) {
    auto* const own = dynamic_cast<ClientImpl*>(this);
    if (own == nullptr) return start_request(std::as_const(config), filter, response_cb, error_cb);
    return own->start_given_request(config, filter, response_cb, error_cb);
}

Client::RequestId Client::start_download(RequestConfig&& config, const std::string& path, const LogFilter& filter,
                                         const ResponseCallback& response_cb, const ErrorCallback& error_cb,
                                         const ProgressCallback& progress_cb) {
    auto* const own = dynamic_cast<ClientImpl*>(this);
    if (own == nullptr) return start_download(std::as_const(config), path, filter, response_cb, error_cb, progress_cb);
    return own->start_given_download(config, path, filter, response_cb, error_cb, progress_cb);
}

Client::Handle Client::start_request(const RequestConfig& config, const LogFilter& filter,
                                     const std::function<void(const ResponseData&)>& response_cb,
                                     const std::function<void(const ErrorData&)>& error_cb) {
    return request_with_handle(*this, config, filter, response_cb, error_cb);
}

Client::Handle Client::start_request(RequestConfig&& config, const LogFilter& filter,
                                     const std::function<void(const ResponseData&)>& response_cb,
                                     const std::function<void(const ErrorData&)>& error_cb) {
    return request_with_handle(*this, std::move(config), filter, response_cb, error_cb);
}

Client::Handle Client::start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                                      const std::function<void(const ResponseData&)>& response_cb,
                                      const std::function<void(const ErrorData&)>& error_cb,
                                      const std::function<void(const ProgressData&)>& progress_cb) {
    return download_with_handle(*this, config, path, filter, response_cb, error_cb, progress_cb);
}

Client::Handle Client::start_download(RequestConfig&& config, const std::string& path, const LogFilter& filter,
                                      const std::function<void(const ResponseData&)>& response_cb,
                                      const std::function<void(const ErrorData&)>& error_cb,
                                      const std::function<void(const ProgressData&)>& progress_cb) {
    return download_with_handle(*this, std::move(config), path, filter, response_cb, error_cb, progress_cb);
}

void Client::pause(RequestId id) {
    pause_request(id);
}

void Client::resume(RequestId id) {
    resume_request(id);
}

}  // namespace kel::http
