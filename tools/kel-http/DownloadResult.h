// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ToolError.h"
#include "kel-http/ClientFailure.h"
#include "kel-http/TimingData.h"

namespace kel::http::tool {

// What a download came to. While it is a success nothing is told but the file.
struct DownloadResult {
    ExitCode code = Success;
    std::string message;              // what failed
    std::vector<std::string> advice;  // what can be done, and what is where
    std::optional<ClientFailure> failure;

    int status = 0;           // of the server's last answer; 0: there was none
    std::uint64_t bytes = 0;  // in the file, or in what is left of it
    std::uint64_t resumed_from = 0;
    std::string sha256;  // when it was asked for, and there is a whole file
    std::string file;    // where the bytes are; empty: nowhere
    std::optional<TimingData> timing;
};

}  // namespace kel::http::tool
