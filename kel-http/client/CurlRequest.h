// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tl/optional.hpp>
#include <utility>

#include "checksum/Digest.h"
#include "kel-http/client/ClientImpl.h"
#include "kel-http/client/DownloadFile.h"
#include "kel-http/client/ProgressPace.h"
#include "kel-http/curl/Request.h"

namespace kel::http {

// The engine's side of one request of a client: collects headers and body, and posts the outcome to the client's
// executor.
//
// An outcome is never lost for want of memory: all that handing it over takes is here from the start. An executor that
// has no memory for it is asked again every 10 ms. What becomes of a response for which the executor's thread finds
// none is the error "Out of memory"; progress is left out.
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
    void notifyFailure(Failure reason, std::string_view message) override;
    void notifyRemoteAddr(std::string address, long port) override;
    void reportDownloadProgress(unsigned int total, unsigned int received) override;

 private:
    // The task of an outcome. It keeps the request, which holds what there is to deliver.
    struct Delivery {
        void operator()() { deliver(std::move(request)); }

        std::shared_ptr<CurlRequest> request;
    };

    // What plain requests have no use for.
    struct Download {
        Download(std::string target, std::unique_ptr<checksum::Digest> of_data)
            : path(std::move(target)), digest(std::move(of_data)) {}

        const std::string path;
        const std::unique_ptr<checksum::Digest> digest;
        // The file; opened when the first data arrives.
        std::unique_ptr<DownloadFile> output;
        // Where it is written before it is renamed; empty when no such file is used.
        std::string temporary_path;
        ProgressPace pace;
        // The size of the file that a resumed download appends to.
        std::uint32_t resume_offset = 0;
        // The target of a resumed download was no longer what it was when it was asked for; the body tells.
        bool target_has_changed = false;
    };

    bool take(std::string_view data);
    void make_room(std::size_t bytes) noexcept;
    void open_download();
    bool open_target(DownloadFile& file);
    bool open_sibling(DownloadFile& file);
    bool write_download(std::string_view data);

    // The end of a download. False: it went wrong, and the failure has been reported.
    bool finish_download();
    bool finish_replacing();
    bool finish_appending();
    bool create_empty_file();
    bool close_output();
    void give_up_download() noexcept;
    bool move_into_place(logging::Logger& log);

    void report_progress(std::uint32_t total, std::uint32_t received) noexcept;
    void post_progress(std::uint32_t total, std::uint32_t received);

    // The outcome is on its way, and what it tells is the executor's: another one must not touch it.
    bool is_handed_over() const { return !delivery; }
    void keep_message(std::string_view message) noexcept;
    void hand_over(int tag) noexcept;
    // Executor thread, as the next one.
    static void deliver(std::shared_ptr<CurlRequest> request);
    // What the server answered; nothing when there is no memory for it.
    tl::optional<ResponseData> take_response() noexcept;

    const std::shared_ptr<ClientImpl> client;
    const RequestId request_id;
    // That of the outcome.
    int status = 0;
    // The header lines of all answers, as they came.
    std::string header_lines;
    // The body of a plain request; the checksum of a download; the text of a failure.
    std::string body;
    // What the outcome is posted with, made beforehand: nothing may be missing then.
    std::function<void()> delivery = Delivery();
    // Null for a plain request.
    const std::unique_ptr<Download> download;
    // Address and port of the peer, and how much of it is the address.
    std::string remote_addr;
    std::uint32_t address_length = 0;
    std::int32_t peer_port = -1;
    // Of an outcome that is an error.
    ClientFailure failure = ClientFailure::Other;
    std::uint32_t received_bytes = 0;
    // The header block of the last answer has come to its end.
    bool header_block_complete = false;
    // The outcome is an error.
    bool has_failed = false;
};

}  // namespace kel::http
