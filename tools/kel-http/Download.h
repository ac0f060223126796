// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "DownloadResult.h"
#include "FileChecksum.h"
#include "LogListener.h"
#include "Options.h"
#include "PartFile.h"
#include "common/ProgressBar.h"
#include "kel-http/Client.h"

namespace kel::http::tool {

// One file on its way: PATH.part grows, is judged and becomes PATH. Whatever goes wrong, PATH stays as it is.
//
// Threads: that of the session, which runs the callbacks.
class Download {
 public:
    // Looks at the files; nothing that an earlier run has left is dropped yet. The options have to stay.
    //
    // Errors: ToolError.
    Download(const Options& options, const DownloadTarget& target);

    // Sends the request, to which the engine has to give the number `request`. Callbacks come to this object. `name` is
    // how progress calls it.
    void start(Client& client, const LogListener& log, unsigned int request, const std::string& name);

    // Computes the checksum for a while, where there is one to compute. True: it is not done with that.
    bool compute();

    void cancel(Client& client) const { client.cancel_request(id_); }
    // The end of a cancelled one; what has arrived stays. The engine has to have ended: then all of it is in the file.
    void interrupt();

    bool has_ended() const { return has_ended_; }
    const DownloadResult& result() const { return result_; }
    const DownloadTarget& target() const { return target_; }

    // As it stands now, and as it was looked at last.
    const ProgressBar& progress();
    const ProgressBar& last_progress() const { return *bar_; }

 private:
    void drop_older_part();
    HeardTransfer heard() const { return log_->transfers().about(request_); }
    bool keeps_part() const { return options_.download.resume || options_.download.keep_partial; }
    std::uint64_t received() const;
    void take(const ProgressData& report);
    void take(const ResponseData& response);
    void take(const ErrorData& error);
    void explain_failure(const ErrorData& error, const HeardTransfer& answer);
    bool was_whole_before(const HeardTransfer& answer) const;
    void judge_write_error(const std::string& message);
    void conclude();
    void place();
    void end_here(const ToolError& error);
    void end(bool keep_part);

    const Options& options_;
    const DownloadTarget target_;
    RequestConfig config_;
    PartFile part_;
    std::optional<ProgressBar> bar_;  // from the start
    const LogListener* log_ = nullptr;
    unsigned int request_ = 0;
    Client::RequestId id_ = NoRequestId;
    std::uint32_t reported_ = 0;
    std::optional<FileChecksum> checksum_;  // while it is computed
    bool has_ended_ = false;
    DownloadResult result_;
};

}  // namespace kel::http::tool
