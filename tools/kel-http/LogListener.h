// SPDX-License-Identifier: MIT
#pragma once

#include <map>

#include "Options.h"
#include "ProxyReport.h"
#include "Secrets.h"
#include "TransferLog.h"
#include "ko/host.h"

namespace kel::http::tool {

// Hears the library's log: prints the lines that -v asks for, tells of proxies, and keeps what explains a failure.
//
// Threads: one at a time, as the log has it; secrets() and transfers() any.
class LogListener {
 public:
    explicit LogListener(const Options& options);

    // How much has to be logged for that: the engine says more than is printed.
    static int level_of_library(const Options& options);
    static int level_of_engine(const Options& options);

    void hear(const ko::host::LogLine& line);

    const Secrets& secrets() const { return secrets_; }
    const TransferLog& transfers() const { return transfers_; }

 private:
    const Secrets secrets_;
    const int printed_level_;
    const ko::host::LogSink print_ = ko::host::log_to_stderr();
    std::map<unsigned int, ProxyReport> proxies_;  // for each request
    TransferLog transfers_;
};

}  // namespace kel::http::tool
