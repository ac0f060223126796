// SPDX-License-Identifier: MIT
#include "kel-http/client/CurlRequest.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "kel-http/client/HeaderLine.h"
#include "kel-http/protocol.h"
#include "ko/assert.h"
#include "logging/tovanlog.h"

namespace kel::http {
namespace {

// How an executor can tell the posted tasks apart.
constexpr int response_tag = 4035;
constexpr int error_tag = 4036;
constexpr int progress_tag = 4037;

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

ClientImpl::CurlRequest::CurlRequest(std::shared_ptr<ClientImpl> owner, RequestId id_at_client,
                                     const RequestConfig& request_config)
    : Request(request_config), client(std::move(owner)), request_id(id_at_client) {}

ClientImpl::CurlRequest::CurlRequest(std::shared_ptr<ClientImpl> owner, RequestId id_at_client,
                                     const RequestConfig& request_config, const std::string& path)
    : Request(request_config), client(std::move(owner)), request_id(id_at_client), download_path(path) {
    config.download_path = path;
}

void ClientImpl::CurlRequest::notifyHeader(std::string_view line) {
    if (isStatusLine(line)) header_block_complete = false;
    if (isBlankLine(line)) header_block_complete = true;
    // Of repeated headers the first one stays.
    if (auto header = parseHeaderLine(line)) headers.emplace(std::move(header->name), std::move(header->value));
}

// While paused nothing is touched: libcurl delivers the same bytes again afterwards.
int ClientImpl::CurlRequest::notifyDataReceived(std::string_view data) {
    if (isPaused()) return 1;
    if (!output) open_output();
    if (config.size_limit && std::uint64_t{received_bytes} + data.size() > *config.size_limit) {
        throw std::runtime_error("Received data exceeds limit");
    }
    output->write(data.data(), static_cast<std::streamsize>(data.size()));
    if (output->fail()) throw std::runtime_error("Failed write to file");
    received_bytes += static_cast<std::uint32_t>(data.size());
    return 0;
}

void ClientImpl::CurlRequest::open_output() {
    if (download_path) {
        output = open_download();
    } else {
        output = std::make_unique<std::ostringstream>();
    }
}

void ClientImpl::CurlRequest::notifyDataEnd() {
    // libcurl calls this a success, but nobody knows what the answer would have been.
    if (!header_block_complete) {
        notifyFailure(Failure::Other, "Connection closed inside the response headers");
        return;
    }
    if (download_path && !finish_download()) return;
    dispatch_response(download_path ? std::string() : take_body());
}

std::string ClientImpl::CurlRequest::take_body() {
    if (!output) return {};
    const auto* const text = dynamic_cast<std::ostringstream*>(output.get());
    KO_ASSERT(text);
    return text->str();
}

void ClientImpl::CurlRequest::dispatch_response(std::string body) {
    output.reset();
    ResponseData data(static_cast<int>(getResponseCode()), {}, {}, getRedirectUrl(),
                      static_cast<int>(getRedirectCount()));
    data.headers = std::move(headers);
    data.body = std::move(body);
    data.timing_data = getTimingData();
    dispatch_to_client(std::move(data));
}

void ClientImpl::CurlRequest::notifyFailure(Failure failure, std::string_view message) {
    // An answer is an answer, whatever its status.
    const bool is_status = failure == Failure::AuthFailure || failure == Failure::HttpError;
    if (is_status && protocol::valid_status(getResponseCode())) {
        notifyDataEnd();
        return;
    }
    tryToCancelRequest();
    dispatch_to_client(ErrorData{convert_failure(failure), std::string(message)});
}

void ClientImpl::CurlRequest::notifyRemoteAddr(std::string address, long port) {
    // It comes with every header line and hardly ever changes.
    if (port == peer_port && address == peer_address) return;
    remote_addr = fmt::format("{}:{}", address, port);
    peer_address = std::move(address);
    peer_port = port;
}

void ClientImpl::CurlRequest::reportDownloadProgress(unsigned int total, unsigned int received) {
    lastDownloadProgress = total;
    switch (progress_pace.next(total, received)) {
        case ProgressPace::Report::none:
            break;
        case ProgressPace::Report::periodic:
            report_progress(total + resume_offset, received + resume_offset);
            break;
        case ProgressPace::Report::completion:
            // Without the offset of a resumed download: this report tells what this transfer brought.
            report_progress(total, received);
            break;
    }
}

void ClientImpl::CurlRequest::report_progress(std::uint32_t total, std::uint32_t received) {
    dispatch_to_client(ProgressData{request_id, remote_addr, total, received});
}

void ClientImpl::CurlRequest::dispatch_to_client(ResponseData&& data) {
    client->executor.post(
        [owner = client, id = request_id, record = std::move(data)] { owner->on_response(id, record); }, response_tag);
}

void ClientImpl::CurlRequest::dispatch_to_client(ErrorData&& data) {
    client->executor.post([owner = client, id = request_id, record = std::move(data)] { owner->on_error(id, record); },
                          error_tag);
}

void ClientImpl::CurlRequest::dispatch_to_client(ProgressData&& data) {
    client->executor.post(
        [owner = client, id = request_id, record = std::move(data)] { owner->on_progress(id, record); }, progress_tag);
}

}  // namespace kel::http
