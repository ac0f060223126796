// SPDX-License-Identifier: MIT
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "kel-http/curl/EngineBody.h"
#include "kel-http/curl/EngineImpl.h"
#include "kel-http/curl/EngineTrace.h"
#include "kel-http/model/HeaderLine.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {

std::size_t Engine::writeHeader(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    ActiveTask& task = currentEngine.load()->impl->transfers.at(easy);
    if (!task.request) return bytes;
    const std::string_view line(static_cast<const char*>(data), bytes);
    task.request->notifyHeader(line);

    // Each line is told whose it is; another peer begins with a status line.
    if (task.peerPort == 0 || isStatusLine(line)) task.lookUpPeer();
    if (task.peerPort != 0) task.request->notifyRemoteAddr(task.peerAddress, task.peerPort);
    return bytes;
}

std::size_t Engine::writeFunction(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    const Engine& engine = *currentEngine.load();
    ActiveTask& task = engine.impl->transfers.at(easy);
    if (!task.request) return bytes;
    try {
        const int answer = task.request->notifyDataReceived(std::string_view(static_cast<const char*>(data), bytes));
        return answer == 1 ? CURL_WRITEFUNC_PAUSE : bytes;
    } catch (const std::runtime_error& error) {
        writeLine(*engine.impl->logger, log_level::error, "{}: Receiving data failed: '{}'", "writeFunction",
                  error.what());
        return 0;
    }
}

std::size_t Engine::putReadFunc(void* buffer, std::size_t size, std::size_t nitems, void* easy) {
    ActiveTask& task = currentEngine.load()->impl->transfers.at(easy);
    if (!task.request) return 0;
    return EngineBody::read(task, buffer, size * nitems);
}

// libcurl rewinds a body that it has to send again, after a redirect or for authentication.
int Engine::putSeekFunc(void* easy, curl_off_t offset, int origin) {
    ActiveTask& task = currentEngine.load()->impl->transfers.at(easy);
    if (!task.request) return 0;
    return EngineBody::seek(task, offset, origin);
}

std::size_t Engine::putReadFile(void* buffer, std::size_t size, std::size_t nitems, void* stream) {
    return std::fread(buffer, size, nitems, static_cast<std::FILE*>(stream));
}

// Called once more, from within libcurl's clean-up, for a transfer that is no longer active: a plain look-up.
int Engine::downloadProgress(void* easy, curl_off_t dltotal, curl_off_t dlnow, curl_off_t /*ultotal*/,
                             curl_off_t /*ulnow*/) {
    const Engine* const engine = currentEngine;
    if (engine == nullptr || engine->impl->shuttingDown) return 0;
    const ActiveTask* const task = engine->impl->transfers.find(easy);
    if (task != nullptr && task->request) {
        task->request->reportDownloadProgress(static_cast<unsigned int>(dltotal), static_cast<unsigned int>(dlnow));
    }
    return 0;
}

int Engine::traceTransfer(CURL* easy, curl_infotype type, char* data, std::size_t size, void* logger) {
    const EngineTrace trace(*static_cast<logging::Logger*>(logger));
    if (!trace.wants(type)) return 0;

    // The engine's destructor frees transfers while libcurl still talks about them.
    const Engine* const engine = currentEngine;
    const bool serving = engine != nullptr && !engine->impl->shuttingDown;
    ActiveTask* const task = serving ? engine->impl->transfers.find(easy) : nullptr;
    trace.write(type, std::string_view(data, size), task);
    return 0;
}

// libcurl tells of every socket it opens (`CURLOPT_SOCKOPTFUNCTION`).
int Engine::watchSocket(void* engine, curl_socket_t descriptor, curlsocktype /*purpose*/) {
    static_cast<Engine*>(engine)->impl->waiting.watch(descriptor);
    return CURL_SOCKOPT_OK;
}

}  // namespace kel::http
