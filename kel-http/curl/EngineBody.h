// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>

#include "kel-http/curl/ActiveTask.h"
#include "logging/Logger.h"

namespace kel::http {

// A request's method and what it sends: a body in memory, a file or a form. Engine thread.
class EngineBody {
 public:
    explicit EngineBody(logging::Logger& log) : logger(&log) {}

    // The options of a transfer. What libcurl does not copy belongs to `task`, or to its request.
    void addHTTPMethodToRequest(CURL* easy, const RequestPtr& request, Engine::ActiveTask& task) const;

    // Gives libcurl the next piece of a body in memory, and returns its size; 0 at the end.
    static std::size_t read(Engine::ActiveTask& task, void* buffer, std::size_t room);

    // Goes back to `offset`, for a body that has to be sent again. One of libcurl's CURL_SEEKFUNC_ values.
    static int seek(Engine::ActiveTask& task, curl_off_t offset, int origin);

    // Goes back to the beginning of the body, which is about to be sent, perhaps once more.
    static void rewind(Engine::ActiveTask& task);
    // Whether only the trace tells that: libcurl is an older one.
    static bool needsTrace();

 private:
    void addUpload(CURL* easy, const Request& request, Engine::ActiveTask& task) const;
    void addFileUpload(CURL* easy, const Request& request, Engine::ActiveTask& task) const;
    void addMimeForm(CURL* easy, const RequestPtr& request, Engine::ActiveTask& task) const;
    std::uint64_t addMimePart(Engine::ActiveTask& task, const MimePart& content) const;
    static std::uint64_t addMimeFile(curl_mimepart* part, Engine::ActiveTask& task, const MimePart& content);

    logging::Logger* const logger;
};

}  // namespace kel::http
