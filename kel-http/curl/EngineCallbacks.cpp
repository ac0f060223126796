// SPDX-License-Identifier: MIT
#include <cstdio>
#include <limits>
#include <new>
#include <stdexcept>
#include <string_view>

#include "kel-http/curl/EngineBody.h"
#include "kel-http/curl/EngineImpl.h"
#include "kel-http/curl/EngineTrace.h"
#include "kel-http/curl/RequestImpl.h"
#include "kel-http/model/HeaderLine.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

// What makes libcurl end a transfer that reports progress.
constexpr int stop_transfer = 1;
// No answer that a data hook could give.
constexpr int refused = std::numeric_limits<int>::min();

// Another count than libcurl's makes it end the transfer, for an empty piece as well.
std::size_t stopWriting(std::size_t bytes) {
    return bytes == 0 ? 1 : 0;
}

void noteThrown(Engine::ActiveTask& task, const char* hook, const char* what) noexcept {
    try {
        task.fault.note(TransferFault::Side::own, fmt::format("The request's hook for {} failed: {}", hook, what));
    } catch (...) {
        task.fault.note(TransferFault::Side::own, out_of_memory);
    }
}

// No exception may pass through libcurl: what a hook throws ends its own transfer. False when it has thrown.
template <typename Call>
bool fenced(Engine::ActiveTask& task, const char* hook, Call call) noexcept {
    try {
        call();
        return true;
    } catch (const std::bad_alloc&) {
        task.fault.note(TransferFault::Side::own, out_of_memory);
    } catch (const std::exception& error) {
        noteThrown(task, hook, error.what());
    } catch (...) {
        noteThrown(task, hook, "it threw something unknown");
    }
    return false;
}

}  // namespace

std::size_t Engine::writeHeader(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    ActiveTask& task = currentEngine.load()->impl->transfers.at(easy);
    if (!task.request) return bytes;
    const std::string_view line(static_cast<const char*>(data), bytes);
    if (const char* const excess = stateOf(*task.request).headerBudget.take(line)) {
        task.fault.note(TransferFault::Side::peer, excess);
        return stopWriting(bytes);
    }
    const bool taken = fenced(task, "taking a header", [&] {
        task.request->notifyHeader(line);

        // Each line is told whose it is; another peer begins with a status line.
        if (task.peerPort == 0 || isStatusLine(line)) task.lookUpPeer();
        if (task.peerPort != 0) task.request->notifyRemoteAddr(task.peerAddress, task.peerPort);
    });
    return taken ? bytes : stopWriting(bytes);
}

std::size_t Engine::writeFunction(void* data, std::size_t size, std::size_t nitems, void* easy) {
    const std::size_t bytes = size * nitems;
    const Engine& engine = *currentEngine.load();
    ActiveTask& task = engine.impl->transfers.at(easy);
    if (!task.request) return bytes;
    int answer = 0;
    stateOf(*task.request).receiving = easy;
    const bool taken = fenced(task, "taking data", [&] {
        try {
            answer = task.request->notifyDataReceived(std::string_view(static_cast<const char*>(data), bytes));
        } catch (const std::runtime_error& error) {
            writeLine(*engine.impl->logger, log_level::error, "{}: Receiving data failed: '{}'", "writeFunction",
                      error.what());
            answer = refused;
        }
    });
    stateOf(*task.request).receiving = nullptr;
    if (!taken || answer == refused) return stopWriting(bytes);
    return answer == 1 ? CURL_WRITEFUNC_PAUSE : bytes;
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
    ActiveTask* const task = engine->impl->transfers.find(easy);
    if (task != nullptr && task->request) {
        const bool taken = fenced(*task, "taking progress", [&] {
            task->request->reportDownloadProgress(static_cast<unsigned int>(dltotal), static_cast<unsigned int>(dlnow));
        });
        if (!taken) return stop_transfer;
    }
    return 0;
}

// A line that can not be written, for want of memory, is no reason to end a transfer.
int Engine::traceTransfer(CURL* easy, curl_infotype type, char* data, std::size_t size, void* logger) try {
    // The engine's destructor frees transfers while libcurl still talks about them.
    const Engine* const engine = currentEngine;
    const bool serving = engine != nullptr && !engine->impl->shuttingDown;
    // All of a request's header goes before its body.
    if (type == CURLINFO_HEADER_OUT && serving && EngineBody::needsTrace()) {
        if (ActiveTask* const beginning = engine->impl->transfers.find(easy)) EngineBody::rewind(*beginning);
    }
    const EngineTrace trace(*static_cast<logging::Logger*>(logger));
    if (!trace.wants(type)) return 0;
    ActiveTask* const task = serving ? engine->impl->transfers.find(easy) : nullptr;
    trace.write(type, std::string_view(data, size), task);
    return 0;
} catch (...) {
    return 0;
}

// libcurl tells of every socket it opens (`CURLOPT_SOCKOPTFUNCTION`).
int Engine::watchSocket(void* engine, curl_socket_t descriptor, curlsocktype /*purpose*/) {
    Impl& impl = *static_cast<Engine*>(engine)->impl;
    impl.waiting.watch(descriptor);
    impl.sockets.open(descriptor);
    return CURL_SOCKOPT_OK;
}

}  // namespace kel::http
