// SPDX-License-Identifier: MIT
// Compiles as it is, and is refused with what stands below one of the names: check-refusals tries each.
#include "kel-http/Client.h"

#include <cstddef>
#include <functional>
#include <utility>

using kel::http::Client;
using kel::http::ErrorData;
using kel::http::LogFilter;
using kel::http::ProgressData;
using kel::http::RequestConfig;
using kel::http::ResponseData;
using Id = Client::RequestId;
using Handle = Client::Handle;

const RequestConfig config;
const LogFilter filter;

const auto response = [](Id, const ResponseData&) {};
const auto error = [](Id, const ErrorData&) {};
const auto progress = [](Id, const ProgressData&) {};
const auto plain_response = [](const ResponseData&) {};
const auto plain_error = [](const ErrorData&) {};
const auto plain_progress = [](const ProgressData&) {};
void error_function(Id, const ErrorData&) {}
void plain_error_function(const ErrorData&) {}

class OwnClient : public Client {
 public:
    using Client::start_download;
    using Client::start_request;
    RequestId start_request(const RequestConfig&, const LogFilter&, const ResponseCallback&,
                            const ErrorCallback&) override;
};

// As a decorator does it.
template <typename AnyClient, typename... Callbacks>
auto forwarded(AnyClient& client, Callbacks&&... callbacks) {
    return client.start_request({}, {}, std::forward<Callbacks>(callbacks)...);
}

struct Object {
    void operator()(Id, const ResponseData&) const {}
    void operator()(Id, const ErrorData&) const {}
};
struct PlainObject {
    void operator()(const ResponseData&) {}
    void operator()(const ErrorData&) {}
};

// Answers the calls of both kinds. That of one that has ids alone is meant only where it stands for it.
struct Own : Client::ResponseCallback {
    using Client::ResponseCallback::operator();
    void operator()(const ResponseData&) const {}
};
struct OwnError : Client::ErrorCallback {
    using Client::ErrorCallback::operator();
    void operator()(const ErrorData&) const {}
};

template <typename AnyClient>
void takenWithAnId(AnyClient& client) {
    Id id = client.start_request(config, filter, response, error);
    id = client.start_request({}, {}, response, error_function);
    id = client.start_request({}, {}, response, &error_function);
    id = client.start_request({}, {}, Client::ResponseCallback(response), Client::ErrorCallback(error));
    id = client.start_request({}, {}, Object(), std::ref(error));
    id = client.start_request({}, {}, response, nullptr);
    id = client.start_request({}, {}, {}, error);
    id = client.start_request({}, {}, response, [](auto... all) { static_cast<void>(sizeof...(all)); });
    id = client.start_request(
        {}, {}, [](auto, const auto&) {}, [](auto, auto&&) {});
    id = client.start_request(
        {}, {}, [](long, ResponseData) { return 1; }, error);
    id = client.start_request({}, {}, Own(), OwnError());
    id = client.start_download({}, "path", {}, response, error, progress);
    id = client.start_download({}, "path", {}, response, error, {});
    id = client.start_download({}, "path", {}, response, error, nullptr);
    id = client.start_request({}, {}, response, NULL);
    id = client.start_request({}, {}, response, 0);
    id = client.start_download({}, "path", {}, response, error, NULL);
    void (*const pointer)(Id, const ErrorData&) = error_function;
    id = client.start_request({}, {}, std::bind(response, std::placeholders::_1, std::placeholders::_2), pointer);
    const Client::ErrorCallback constant(error);
    Client::ResponseCallback changing(response);
    id = client.start_request({}, {}, changing, constant);
    static_cast<void>(id);
    client.start_request({}, {}, response, error);
}

template <typename AnyClient>
void takenWhatIsGivenAway(AnyClient& client) {
    RequestConfig given;
    Id id = client.start_request(std::move(given), filter, response, error);
    id = client.start_request(RequestConfig(), {}, Object(), nullptr);
    id = client.start_download(RequestConfig(), "path", {}, response, error, {});
    static_cast<void>(id);
    Handle handle = client.start_request(RequestConfig(), {}, plain_response, plain_error);
    handle = client.start_download(RequestConfig(), "path", {}, plain_response, plain_error, {});
}

template <typename AnyClient>
void takenWithAHandle(AnyClient& client) {
    Handle handle = client.start_request(config, filter, plain_response, plain_error);
    handle = client.start_request({}, {}, plain_response, plain_error_function);
    handle = client.start_request({}, {}, PlainObject(), PlainObject());
    handle = client.start_request({}, {}, std::function<void(const ResponseData&)>(), plain_error);
    handle = client.start_request(
        {}, {}, [](const auto&) {}, [state = 0](auto&&) mutable { ++state; });
    handle = client.start_download({}, "path", {}, plain_response, plain_error, plain_progress);
    handle = client.start_download({}, "path", {}, plain_response, plain_error, {});
    handle = client.start_download({}, "path", {}, plain_response, plain_error, nullptr);
    handle = client.start_download({}, "path", {}, plain_response, plain_error, NULL);
    handle = client.start_request({}, {}, plain_response, 0);
}

void taken(Client& client, OwnClient& own) {
    static_cast<void>(forwarded(client, response, error));
    static_cast<void>(forwarded(own, plain_response, plain_error));
    takenWithAnId(client);
    takenWithAHandle(client);
    takenWhatIsGivenAway(client);
    takenWhatIsGivenAway(own);
    takenWithAnId(own);
    takenWithAHandle(own);
}

#ifdef DROPPED_HANDLE  // refused: ignoring return value
void refused(Client& client) {
    client.start_request({}, {}, plain_response, plain_error);
}
#endif
#ifdef DROPPED_HANDLE_OF_A_DOWNLOAD  // refused: ignoring return value
void refused(Client& client) {
    client.start_download({}, "path", {}, plain_response, plain_error, {});
}
#endif

#ifdef RESPONSE_FITS_NOTHING  // refused: The response callback fits no call: let it take (Client::RequestId, const ResponseData&)
auto refused(Client& client) {
    return client.start_request(
        {}, {}, [](ResponseData&) {}, error);
}
#endif
#ifdef ERROR_FITS_NOTHING  // refused: The error callback fits no call: let it take (Client::RequestId, const ErrorData&)
Handle refused(Client& client) {
    return client.start_request({}, {}, plain_response, [] {});
}
#endif
#ifdef PROGRESS_FITS_NOTHING  // refused: The progress callback fits no call: let it take (Client::RequestId, const ProgressData&)
Id refused(Client& client) {
    return client.start_download({}, "path", {}, response, error, error);
}
#endif
#ifdef CALLBACK_OF_A_DOWNLOAD_WITHOUT_PROGRESS_FITS_NOTHING  // refused: The error callback fits no call
Handle refused(Client& client) {
    return client.start_download({}, "path", {}, plain_response, plain_response, {});
}
#endif
#ifdef BOTH_FIT_NOTHING  // refused: The error callback fits no call
Id refused(Client& client) {
    return client.start_request({}, {}, error, response);
}
#endif

#ifdef RESPONSE_WITHOUT_ID  // refused: The response callback takes no id, but another one does
Handle refused(Client& client) {
    return client.start_request({}, {}, plain_response, error);
}
#endif
#ifdef ERROR_WITHOUT_ID  // refused: The error callback takes no id, but another one does
Id refused(Client& client) {
    return client.start_request({}, {}, response, plain_error);
}
#endif
#ifdef PROGRESS_WITHOUT_ID  // refused: The progress callback takes no id, but another one does
Id refused(Client& client) {
    return client.start_download({}, "path", {}, response, error, plain_progress);
}
#endif
#ifdef PROGRESS_ALONE_WITH_ID  // refused: The response callback takes no id, but another one does
Handle refused(Client& client) {
    return client.start_download({}, "path", {}, plain_response, plain_error, progress);
}
#endif

#ifdef FIT_TWO_CALLS  // refused: The callbacks fit two calls
Id refused(Client& client) {
    return client.start_request(
        {}, {}, [](auto&&...) {}, [](auto&&...) {});
}
#endif
#ifdef NULL_POINTERS  // refused: The callbacks fit two calls
Id refused(Client& client) {
    return client.start_request({}, {}, nullptr, nullptr);
}
#endif

#ifdef GIVEN_AWAY_WITHOUT_ID  // refused: The error callback takes no id, but another one does
Id refused(Client& client) {
    return client.start_request(RequestConfig(), {}, response, plain_error);
}
#endif
#ifdef DOWNLOAD_GIVEN_AWAY_FITS_TWO_CALLS  // refused: The callbacks fit two calls
Id refused(Client& client) {
    return client.start_download(
        RequestConfig(), "path", {}, [](auto&&...) {}, [](auto&&...) {}, {});
}
#endif
#ifdef DROPPED_HANDLE_OF_WHAT_IS_GIVEN_AWAY  // refused: ignoring return value
void refused(Client& client) {
    client.start_request(RequestConfig(), {}, plain_response, plain_error);
}
#endif

#ifdef THROUGH_A_DERIVED_CLASS  // refused: The error callback takes no id, but another one does
Id refused(OwnClient& client) {
    return client.start_request({}, {}, response, plain_error);
}
#endif
