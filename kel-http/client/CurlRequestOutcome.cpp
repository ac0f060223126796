// SPDX-License-Identifier: MIT
// The end of a client's request: what came of it goes to the executor, and on its thread to the client.
#include <new>
#include <utility>

#include "kel-http/client/CurlRequest.h"
#include "kel-http/model/MemoryShortage.h"
#include "kel-http/protocol.h"
#include "logging/tovanlog.h"

namespace kel::http {
namespace {

// How an executor can tell the posted tasks apart; progress has 4037.
constexpr int response_tag = 4035;
constexpr int error_tag = 4036;

[[noreturn]] void stop_at_conversion(std::string_view format) {
    constexpr std::string_view function = "kel::http::ClientFailure {anonymous}::convert_failure(kel::http::Failure)";
    const std::string text =
        fmt::vformat(fmt::string_view(format.data(), format.size()), fmt::make_format_args(function));
    tovanlog_fatal("%.*s", static_cast<int>(text.size()), text.data());
}

ClientFailure convert_failure(Failure failure) {
    switch (failure) {
        case Failure::InvalidUrl:
            return ClientFailure::InvalidUrl;
        case Failure::ResolveFailed:
            return ClientFailure::ResolveFailed;
        case Failure::Other:
            return ClientFailure::Other;
        case Failure::Timeout:
            return ClientFailure::Timeout;
        case Failure::AuthFailure:
            return ClientFailure::AuthFailure;
        case Failure::ConnectFailed:
            return ClientFailure::ConnectFailed;
        case Failure::HttpError:
            stop_at_conversion("{}: Invalid Failure -> ClientFailure conversion\n");
        case Failure::WriteFailed:
            return ClientFailure::WriteFailed;
        case Failure::RangeError:
            return ClientFailure::RangeError;
    }
    stop_at_conversion("{}: Unexpected switch-case fallthrough\n");
}

}  // namespace

void ClientImpl::CurlRequest::notifyDataEnd() {
    if (is_handed_over()) return;
    // libcurl calls this a success, but nobody knows what the answer would have been.
    if (!header_block_complete) {
        notifyFailure(Failure::Other, "Connection closed inside the response headers");
        return;
    }
    if (download && !finish_download()) return;
    if (download) download->output.reset();
    status = static_cast<int>(getResponseCode());
    hand_over(response_tag);
}

void ClientImpl::CurlRequest::notifyFailure(Failure reason, std::string_view message) {
    if (is_handed_over()) return;
    // An answer is an answer, whatever its status.
    const bool is_status = reason == Failure::AuthFailure || reason == Failure::HttpError;
    if (is_status && protocol::valid_status(static_cast<long>(getResponseCode()))) {
        notifyDataEnd();
        return;
    }
    tryToCancelRequest();
    // Before the outcome: whoever hears of it may resume at once, and must not find the file still growing.
    give_up_download();
    has_failed = true;
    if (download && download->target_has_changed) {
        failure = ClientFailure::RangeError;  // to the engine it is a file that can not be written
    } else {
        failure = convert_failure(reason);
        keep_message(message);
    }
    hand_over(error_tag);
}

// The text lasts no longer than the call. An error without its text is better than none.
void ClientImpl::CurlRequest::keep_message(std::string_view message) noexcept {
    std::string().swap(body);  // what came of the answer may be large
    try {
        body = message;
    } catch (const std::bad_alloc&) {
        body = out_of_memory;
    }
}

// Nothing may fail here: the owner of a request whose outcome is lost waits for ever. The task that has been made
// beforehand goes with the attempt to post it; another one takes memory, as the executor does.
void ClientImpl::CurlRequest::hand_over(int tag) noexcept {
    const auto self = std::static_pointer_cast<CurlRequest>(shared_from_this());
    std::function<void()> task = std::exchange(delivery, nullptr);
    task.target<Delivery>()->request = self;
    untilMemorySuffices([&] {
        if (!task) task = Delivery{self};
        client->executor.post(std::exchange(task, nullptr), tag);
    });
}

// The request goes before the callback is called: what it has sent may be large.
void ClientImpl::CurlRequest::deliver(std::shared_ptr<CurlRequest> request) {
    const std::shared_ptr<ClientImpl> owner = request->client;
    const RequestId id = request->request_id;
    if (request->has_failed) {
        const ErrorData data{request->failure, std::move(request->body)};
        request.reset();
        owner->on_error(id, data);
        return;
    }
    tl::optional<ResponseData> data = request->take_response();
    request.reset();
    if (data) {
        owner->on_response(id, *data);
        owner->header_nodes.takeBack(data->headers);
    } else {
        owner->on_error(id, ErrorData{ClientFailure::Other, out_of_memory});
    }
}

// The headers are taken apart on the executor's thread: the engine's serves all transfers.
tl::optional<ResponseData> ClientImpl::CurlRequest::take_response() noexcept {
    try {
        ResponseData data(status, {}, {}, takeRedirectUrl(), static_cast<int>(getRedirectCount()));
        data.headers = client->header_nodes.parse(header_lines);
        data.body = std::move(body);
        data.timing_data = getTimingData();
        return data;
    } catch (const std::bad_alloc&) {
        return tl::nullopt;
    }
}

}  // namespace kel::http
