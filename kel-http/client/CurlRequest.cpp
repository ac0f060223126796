// SPDX-License-Identifier: MIT
#include "kel-http/client/CurlRequest.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "kel-http/model/HeaderLine.h"
#include "kel-http/protocol.h"
#include "logging/tovanlog.h"

namespace kel::http {
namespace {

// How an executor can tell the posted tasks apart.
constexpr int response_tag = 4035;
constexpr int error_tag = 4036;
constexpr int progress_tag = 4037;

// What one answer's header block hardly ever exceeds, so that it is collected without moving it.
constexpr std::size_t usual_header_bytes = 512;

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
                                     const RequestConfig& request_config, const std::string& path,
                                     std::unique_ptr<checksum::Digest> download_digest)
    : Request(request_config),
      client(std::move(owner)),
      request_id(id_at_client),
      download_path(path),
      digest(std::move(download_digest)) {
    config.download_path = path;
}

// Usually one line. libcurl holds lines back during a pause, and hands them over in one piece afterwards.
void ClientImpl::CurlRequest::notifyHeader(std::string_view lines) {
    if (isStatusLine(lines)) header_block_complete = false;
    if (endsWithBlankLine(lines)) header_block_complete = true;
    if (lines.empty() || lines.back() != '\n') return;
    if (header_lines.empty()) header_lines.reserve(usual_header_bytes);
    header_lines.append(lines);
}

// While paused nothing is touched: libcurl delivers the same bytes again afterwards.
int ClientImpl::CurlRequest::notifyDataReceived(std::string_view data) {
    if (isPaused()) return 1;
    if (download_path && !output) output = open_download();
    if (config.size_limit && std::uint64_t{received_bytes} + data.size() > *config.size_limit) {
        throw std::runtime_error("Received data exceeds limit");
    }
    if (!take(data)) throw std::runtime_error("Failed write to file");
    if (digest) digest->do_update({reinterpret_cast<const unsigned char*>(data.data()), data.size()});
    received_bytes += static_cast<std::uint32_t>(data.size());
    return 0;
}

bool ClientImpl::CurlRequest::take(std::string_view data) {
    if (output) return write_download(data);
    try {
        body.append(data);
        return true;
    } catch (const std::exception&) {
        // No exception may pass through libcurl, and a body that is too large is no reason to end the process.
        return false;
    }
}

void ClientImpl::CurlRequest::notifyDataEnd() {
    // libcurl calls this a success, but nobody knows what the answer would have been.
    if (!header_block_complete) {
        notifyFailure(Failure::Other, "Connection closed inside the response headers");
        return;
    }
    if (download_path && !finish_download()) return;
    output.reset();
    ResponseData data(static_cast<int>(getResponseCode()), {}, {}, takeRedirectUrl(),
                      static_cast<int>(getRedirectCount()));
    data.body = std::move(body);
    data.timing_data = getTimingData();
    dispatch_to_client(std::move(data));
}

void ClientImpl::CurlRequest::notifyFailure(Failure failure, std::string_view message) {
    // An answer is an answer, whatever its status.
    const bool is_status = failure == Failure::AuthFailure || failure == Failure::HttpError;
    if (is_status && protocol::valid_status(static_cast<long>(getResponseCode()))) {
        notifyDataEnd();
        return;
    }
    tryToCancelRequest();
    // Before the outcome: whoever hears of it may resume at once, and must not find the file still growing.
    give_up_download();
    dispatch_to_client(ErrorData{convert_failure(failure), std::string(message)});
}

void ClientImpl::CurlRequest::notifyRemoteAddr(std::string address, long port) {
    // It comes with every header line and hardly ever changes.
    if (port == peer_port && address == peer_address) return;
    remote_addr.assign(address).append(":").append(std::to_string(port));
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
            report_completion(total, received);
            break;
    }
}

void ClientImpl::CurlRequest::report_progress(std::uint32_t total, std::uint32_t received) {
    if (download_path) {
        dispatch_to_client(ProgressData{request_id, remote_addr, total, received});
    } else {
        post_unheard_report();
    }
}

// Nobody listens to the progress of a plain request, but an executor sees the same tasks of all requests.
void ClientImpl::CurlRequest::post_unheard_report() {
    client->executor.post([] {}, progress_tag);
}

// libcurl reports a complete body several times. Where nobody listens these tasks wait for the outcome, which follows
// at once: the executor's thread is woken once instead of for each of them.
void ClientImpl::CurlRequest::report_completion(std::uint32_t total, std::uint32_t received) {
    if (download_path) {
        report_progress(total, received);
    } else {
        ++waiting_reports;
    }
}

void ClientImpl::CurlRequest::post_waiting_reports() {
    for (; waiting_reports > 0; --waiting_reports) post_unheard_report();
}

// The headers are taken apart on the executor's thread: the engine's serves all transfers.
void ClientImpl::CurlRequest::dispatch_to_client(ResponseData&& data) {
    post_waiting_reports();
    client->executor.post(
        [owner = client, id = request_id, record = std::move(data), lines = std::move(header_lines)]() mutable {
            record.headers = parseHeaderLines(lines);
            owner->on_response(id, record);
        },
        response_tag);
}

void ClientImpl::CurlRequest::dispatch_to_client(ErrorData&& data) {
    post_waiting_reports();
    client->executor.post([owner = client, id = request_id, record = std::move(data)] { owner->on_error(id, record); },
                          error_tag);
}

void ClientImpl::CurlRequest::dispatch_to_client(ProgressData&& data) {
    client->executor.post(
        [owner = client, id = request_id, record = std::move(data)] { owner->on_progress(id, record); }, progress_tag);
}

}  // namespace kel::http
