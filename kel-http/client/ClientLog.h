// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "kel-http/Client.h"
#include "logging/Logger.h"

// What a client writes about its requests, under the caller's LogFilter. Executor thread. None of them
// throws for want of memory.
namespace kel::http {

// How the thread is named in a client's lines.
std::size_t thread_tag();

void log_request(logging::Logger& logger, Client::RequestId id, const RequestConfig& config, const LogFilter& filter);
void log_response(logging::Logger& logger, Client::RequestId id, const ResponseData& data, const LogFilter& filter);
void log_error(logging::Logger& logger, Client::RequestId id, const ErrorData& data, const LogFilter& filter);
void log_cancel(logging::Logger& logger, Client::RequestId id, const LogFilter& filter);

// A copy of `headers` in which the value of `name` (in any letter case), if it is there, is `replacement`.
HeaderMap replace_header_value(const HeaderMap& headers, const std::string& name, const std::string& replacement);

}  // namespace kel::http
