// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <string_view>

#include "kel-http/curl/ActiveTask.h"
#include "logging/Logger.h"

namespace kel::http {

// What libcurl tells of its transfers (`CURLOPT_DEBUGFUNCTION`), as log lines without credentials. Engine thread, and the
// thread that frees the last transfers.
class EngineTrace {
 public:
    explicit EngineTrace(logging::Logger& log) : logger(log) {}

    // Has libcurl tell of this transfer from now on, which is costly even where nobody reads it.
    static void turnOn(CURL* easy, logging::Logger& log);

    // Whether anybody would read text of any kind.
    bool isWanted() const;

    // Whether anybody would read text of this kind. Asked before anything is looked up or copied.
    bool wants(curl_infotype type) const;

    // Writes the lines of `text`, as of no request when `task` is null: libcurl still talks about transfers that have ended.
    void write(curl_infotype type, std::string_view text, Engine::ActiveTask* task) const;

 private:
    logging::Logger& logger;
};

}  // namespace kel::http
