// SPDX-License-Identifier: MIT
#include "kel-http/client/CurlRequest.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "kel-http/client/BodyRoom.h"
#include "kel-http/curl/AnnouncedSize.h"
#include "kel-http/model/HeaderLine.h"

namespace kel::http {
namespace {

// How an executor can tell the posted tasks apart; a response has 4035, an error 4036.
constexpr int progress_tag = 4037;

// What one answer's header block hardly ever exceeds, so that it is collected without moving it.
constexpr std::size_t usual_header_bytes = 512;

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
      download(std::make_unique<Download>(path, std::move(download_digest))) {
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
    if (download && !download->output) open_download();
    if (config.size_limit && std::uint64_t{received_bytes} + data.size() > *config.size_limit) {
        throw std::runtime_error("Received data exceeds limit");
    }
    if (!take(data)) throw std::runtime_error("Failed write to file");
    if (download && download->digest) {
        download->digest->do_update({reinterpret_cast<const unsigned char*>(data.data()), data.size()});
    }
    received_bytes += static_cast<std::uint32_t>(data.size());
    return 0;
}

bool ClientImpl::CurlRequest::take(std::string_view data) {
    if (download) return write_download(data);
    try {
        if (data.size() > body.capacity() - body.size()) make_room(data.size());
        body.append(data);
        return true;
    } catch (const std::exception&) {
        // No exception may pass through libcurl, and a body that is too large is no reason to end the process.
        return false;
    }
}

void ClientImpl::CurlRequest::make_room(std::size_t bytes) noexcept {
    const std::uint64_t most = config.size_limit ? *config.size_limit : std::numeric_limits<std::uint64_t>::max();
    makeRoom(body, bytes, std::min(most, announcedBytes(*this)));
}

void ClientImpl::CurlRequest::notifyRemoteAddr(std::string address, long port) {
    // It comes with every header line and hardly ever changes.
    if (port == peer_port && std::string_view(remote_addr).substr(0, address_length) == address) return;
    remote_addr.assign(address).append(":").append(std::to_string(port));
    address_length = static_cast<std::uint32_t>(address.size());
    peer_port = static_cast<std::int32_t>(port);
}

void ClientImpl::CurlRequest::reportDownloadProgress(unsigned int total, unsigned int received) {
    lastDownloadProgress = total;
    // Nobody listens to that of a plain request, and each task may wake the executor's thread.
    if (!download) return;
    switch (download->pace.next(total, received)) {
        case ProgressPace::Report::none:
            break;
        case ProgressPace::Report::periodic:
            report_progress(total + download->resume_offset, received + download->resume_offset);
            break;
        case ProgressPace::Report::completion:
            // Without the offset of a resumed download: this report tells what this transfer brought.
            report_progress(total, received);
            break;
    }
}

// A report for which there is no memory is left out; the next one tells more.
void ClientImpl::CurlRequest::report_progress(std::uint32_t total, std::uint32_t received) noexcept {
    try {
        post_progress(total, received);
    } catch (const std::bad_alloc&) {
        return;
    } catch (...) {
        std::terminate();  // which tells what was thrown, as long as it is being handled
    }
}

void ClientImpl::CurlRequest::post_progress(std::uint32_t total, std::uint32_t received) {
    client->executor.post(
        [owner = client, id = request_id, record = ProgressData{request_id, remote_addr, total, received}] {
            owner->on_progress(id, record);
        },
        progress_tag);
}

}  // namespace kel::http
