// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <tl/optional.hpp>

#include "checksum/Digest.h"
#include "kel-http/client/ClientImpl.h"
#include "kel-http/client/ProgressPace.h"
#include "kel-http/curl/Request.h"

namespace kel::http {

// The engine's side of one request of a client: collects headers and body, and posts the outcome to the client's
// executor.
//
// The hooks run on the engine thread; notifyDataEnd() and notifyFailure() wherever the engine's callback handler runs
// them, when the engine does not touch the request any more. So no member needs a lock.
class ClientImpl::CurlRequest : public Request {
 public:
    CurlRequest(std::shared_ptr<ClientImpl> owner, RequestId id_at_client, const RequestConfig& request_config);
    // A download to `path`, with or without a checksum.
    CurlRequest(std::shared_ptr<ClientImpl> owner, RequestId id_at_client, const RequestConfig& request_config,
                const std::string& path, std::unique_ptr<checksum::Digest> download_digest = nullptr);
    // Removes the unfinished file of a download, unless its configuration keeps it or it is the target itself.
    ~CurlRequest() override;

    int notifyDataReceived(std::string_view data) override;
    void notifyHeader(std::string_view lines) override;
    void notifyDataEnd() override;
    void notifyFailure(Failure failure, std::string_view message) override;
    void notifyRemoteAddr(std::string address, long port) override;
    void reportDownloadProgress(unsigned int total, unsigned int received) override;

 private:
    bool take(std::string_view data);
    std::unique_ptr<std::ofstream> open_download();
    bool write_download(std::string_view data);

    // The end of a download. False: it went wrong, and the failure has been reported.
    bool finish_download();
    bool finish_appending();
    bool create_empty_file();
    bool close_output();
    void give_up_download();
    bool move_into_place();

    void report_progress(std::uint32_t total, std::uint32_t received);
    void report_completion(std::uint32_t total, std::uint32_t received);
    void post_unheard_report();
    void post_waiting_reports();

    void dispatch_to_client(ResponseData&& data);
    void dispatch_to_client(ErrorData&& data);
    void dispatch_to_client(ProgressData&& data);

    const std::shared_ptr<ClientImpl> client;
    const RequestId request_id;
    // The header lines of all answers, as they came.
    std::string header_lines;
    const tl::optional<std::string> download_path;
    // The body of a plain request; the checksum of a download.
    std::string body;
    // The file of a download; opened when the first data arrives.
    std::unique_ptr<std::ofstream> output;
    // Where a download is written before it is renamed; empty when no such file is used.
    std::string temporary_path;
    ProgressPace progress_pace;
    unsigned int waiting_reports = 0;
    std::string remote_addr;
    std::string peer_address;
    long peer_port = -1;
    std::uint32_t received_bytes = 0;
    const std::unique_ptr<checksum::Digest> digest;
    // The size of the file that a resumed download appends to.
    std::uint32_t resume_offset = 0;
    // The header block of the last answer has come to its end.
    bool header_block_complete = false;
};

}  // namespace kel::http
