// SPDX-License-Identifier: MIT
// The calls of Client that give out handles, for whatever class a client is of.
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

}  // namespace

Client::~Client() {
    ForeignClients::leave(*this);
}

Client::Handle Client::start_request(const RequestConfig& config, const LogFilter& filter,
                                     const std::function<void(const ResponseData&)>& response_cb,
                                     const std::function<void(const ErrorData&)>& error_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Handle handle;
    const ResponseCallback on_response(handle.wrap(ko::CallbackType::once, without_id(response_cb)));
    const ErrorCallback on_error(handle.wrap(ko::CallbackType::once, without_id(error_cb)));
    start_with_handle(*this, handle, [&] { return start_request(config, filter, on_response, on_error); });
    return handle;
}

Client::Handle Client::start_download(const RequestConfig& config, const std::string& path, const LogFilter& filter,
                                      const std::function<void(const ResponseData&)>& response_cb,
                                      const std::function<void(const ErrorData&)>& error_cb,
                                      const std::function<void(const ProgressData&)>& progress_cb) {
    KO_ASSERT(response_cb);
    KO_ASSERT(error_cb);
    Handle handle;
    const ResponseCallback on_response(handle.wrap(ko::CallbackType::once, without_id(response_cb)));
    const ErrorCallback on_error(handle.wrap(ko::CallbackType::once, without_id(error_cb)));
    const ProgressCallback on_progress(handle.wrap(ko::CallbackType::repeating, without_id(progress_cb)));
    start_with_handle(*this, handle,
                      [&] { return start_download(config, path, filter, on_response, on_error, on_progress); });
    return handle;
}

void Client::pause(RequestId id) {
    pause_request(id);
}

void Client::resume(RequestId id) {
    resume_request(id);
}

}  // namespace kel::http
