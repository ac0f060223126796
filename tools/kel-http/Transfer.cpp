// SPDX-License-Identifier: MIT
#include "Transfer.h"

#include "Session.h"

namespace kel::http::tool {
namespace {

Client::RequestId start(Client& client, const RequestConfig& request, const std::optional<std::string>& file,
                        std::optional<Outcome>& outcome) {
    const auto on_response = [&outcome](Client::RequestId, const ResponseData& data) { outcome = data; };
    const auto on_error = [&outcome](Client::RequestId, const ErrorData& data) { outcome = data; };
    if (!file) return client.start_request(request, {}, on_response, on_error);
    const auto on_progress = [](Client::RequestId, const ProgressData&) {};
    return client.start_download(request, *file, {}, on_response, on_error, on_progress);
}

}  // namespace

Outcome transfer(const RequestConfig& request, const Options& options, const std::optional<std::string>& file) {
    std::optional<Outcome> outcome;
    Session session(options);
    const Client::RequestId id = start(session.client(), request, file, outcome);
    while (!outcome) {
        const bool stopped = session.serve();
        if (outcome || !stopped) continue;
        session.client().cancel_request(id);
        outcome = Cancelled{};
    }
    return *outcome;
}

}  // namespace kel::http::tool
