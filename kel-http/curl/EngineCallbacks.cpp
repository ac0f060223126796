// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "kel-http/curl/ActiveTask.h"
#include "kel-http/curl/Engine.h"
#include "kel-http/model/HeaderLine.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {

// Transfers come and go on the engine thread only, and never while libcurl calls back: a reference to one is enough.

std::size_t Engine::writeHeader(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    const TaskPtr& task = currentEngine.load()->activeTasks.at(easy);
    if (!task->request) return bytes;
    const std::string_view line(static_cast<const char*>(data), bytes);
    task->request->notifyHeader(line);

    // Each line is told whose it is; another peer begins with a status line.
    if (task->peerPort == 0 || isStatusLine(line)) task->lookUpPeer();
    if (task->peerPort != 0) task->request->notifyRemoteAddr(task->peerAddress, task->peerPort);
    return bytes;
}

std::size_t Engine::writeFunction(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    const Engine& engine = *currentEngine.load();
    const TaskPtr& task = engine.activeTasks.at(easy);
    if (!task->request) return bytes;
    try {
        const int answer = task->request->notifyDataReceived(std::string_view(static_cast<const char*>(data), bytes));
        return answer == 1 ? CURL_WRITEFUNC_PAUSE : bytes;
    } catch (const std::runtime_error& error) {
        writeLine(*engine.logger, log_level::error, "{}: Receiving data failed: '{}'", "writeFunction", error.what());
        return 0;
    }
}

std::size_t Engine::putReadFunc(void* buffer, std::size_t size, std::size_t nitems, void* easy) {
    const TaskPtr& task = currentEngine.load()->activeTasks.at(easy);
    if (!task->request) return 0;
    const std::string& body = task->request->config.body;
    if (task->uploadOffset >= body.size()) return 0;
    const std::size_t bytes = std::min(size * nitems, body.size() - task->uploadOffset);
    std::memcpy(buffer, body.data() + task->uploadOffset, bytes);
    task->uploadOffset += static_cast<std::uint32_t>(bytes);
    return bytes;
}

// libcurl rewinds a body that it has to send again, after a redirect or for authentication.
int Engine::putSeekFunc(void* easy, curl_off_t offset, int origin) {
    const TaskPtr& task = currentEngine.load()->activeTasks.at(easy);
    if (!task->request) return 0;
    if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
    if (static_cast<std::uint64_t>(offset) > task->request->config.body.size()) return CURL_SEEKFUNC_FAIL;
    task->uploadOffset = static_cast<std::uint32_t>(offset);
    return CURL_SEEKFUNC_OK;
}

std::size_t Engine::putReadFile(void* buffer, std::size_t size, std::size_t nitems, void* stream) {
    return std::fread(buffer, size, nitems, static_cast<std::FILE*>(stream));
}

// Called once more, from within libcurl's clean-up, for a transfer that is no longer active: a plain look-up.
int Engine::downloadProgress(void* easy, curl_off_t dltotal, curl_off_t dlnow, curl_off_t /*ultotal*/,
                             curl_off_t /*ulnow*/) {
    const Engine* const engine = currentEngine;
    if (engine == nullptr || engine->shuttingDown) return 0;
    const auto found = engine->activeTasks.find(easy);
    if (found == engine->activeTasks.end()) return 0;
    const TaskPtr& task = found->second;
    if (task->request) {
        task->request->reportDownloadProgress(static_cast<unsigned int>(dltotal), static_cast<unsigned int>(dlnow));
    }
    return 0;
}

}  // namespace kel::http
