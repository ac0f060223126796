// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineBody.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "kel-http/curl/ContentType.h"
#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/EngineTrace.h"
#include "kel-http/curl/LongOption.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"

namespace kel::http {
namespace {

// The size goes first: libcurl would otherwise measure the body up to its first zero byte.
void copyBody(CURL* easy, const std::string& body) {
    setOption(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    setOption(easy, CURLOPT_COPYPOSTFIELDS, body.data());
}

void copyBodyWithMethod(CURL* easy, const char* method, const std::string& body) {
    setOption(easy, CURLOPT_CUSTOMREQUEST, method);
    copyBody(easy, body);
}

// -1: libcurl does not know the size and sends the upload in chunks.
long sizeForCurl(std::uintmax_t size) {
    return fitsLongOption(size) ? static_cast<long>(size) : -1L;
}

// libcurl, from 7.80 on, tells when a request is about to be sent. It is asked when the library runs, as that may be with
// an older one than the library was built with.
std::atomic<bool> libcurl_tells_beginnings{true};

#if LIBCURL_VERSION_NUM >= 0x075000
int beginBody(void* task, char* /*peer*/, char* /*own*/, int /*peer_port*/, int /*own_port*/) {
    EngineBody::rewind(*static_cast<Engine::ActiveTask*>(task));
    return CURL_PREREQFUNC_OK;
}

CURLcode askForBeginnings(CURL* easy, Engine::ActiveTask& task) {
    const CURLcode result = curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &beginBody);
    return result == CURLE_OK ? curl_easy_setopt(easy, CURLOPT_PREREQDATA, &task) : result;
}
#else
CURLcode askForBeginnings(CURL* /*easy*/, Engine::ActiveTask& /*task*/) {
    return CURLE_UNKNOWN_OPTION;
}
#endif

// libcurl sends a request again whose connection turns out to be dead, and goes on reading where it was: it has to be told
// that the body begins anew, each time that a request is about to be sent. Where libcurl does not say so the trace does.
void addBeginning(CURL* easy, Engine::ActiveTask& task, logging::Logger& logger) {
    const CURLcode result = askForBeginnings(easy, task);
    if (result == CURLE_UNKNOWN_OPTION) {
        libcurl_tells_beginnings = false;
        EngineTrace::turnOn(easy, logger);
    } else {
        requireCall(result, "to tell when a request is about to be sent");
    }
}

}  // namespace

void EngineBody::addHTTPMethodToRequest(CURL* easy, const RequestPtr& request, Engine::ActiveTask& task) const {
    const RequestConfig& config = request->config;
    switch (config.method) {
        case Method::GET:
            break;
        case Method::DELETE:
            copyBodyWithMethod(easy, "DELETE", config.body);
            break;
        case Method::PATCH:
            copyBodyWithMethod(easy, "PATCH", config.body);
            break;
        case Method::PUT:
            addUpload(easy, *request, task);
            break;
        case Method::POST:
            if (config.mime_parts.empty()) {
                copyBody(easy, config.body);
            } else {
                addMimeForm(easy, request, task);
            }
            break;
    }
}

void EngineBody::addUpload(CURL* easy, const Request& request, Engine::ActiveTask& task) const {
    setOption(easy, CURLOPT_UPLOAD, 1L);
    addBeginning(easy, task, *logger);
    if (request.config.body_is_file) {
        addFileUpload(easy, request, task);
        return;
    }
    setOption(easy, CURLOPT_READFUNCTION, &Engine::putReadFunc);
    setOption(easy, CURLOPT_READDATA, easy);
    setOption(easy, CURLOPT_INFILESIZE, static_cast<long>(request.config.body.size()));
    setOption(easy, CURLOPT_SEEKFUNCTION, &Engine::putSeekFunc);
    setOption(easy, CURLOPT_SEEKDATA, easy);
}

void EngineBody::addFileUpload(CURL* easy, const Request& request, Engine::ActiveTask& task) const {
    const std::string& path = request.config.body;
    try {
        task.files.emplace_back(path, task.fault);
    } catch (const UploadFile::Refused& refused) {
        if (refused.opened) {
            writeLine(*logger, log_level::error, "HTTPClientCurl failed to get file size for {}:", path,
                      refused.what());
        } else {
            writeLine(*logger, log_level::error, "HTTPClientCurl fopen failed {}", path);
        }
        throw;
    }
    const std::uint64_t size = task.files.back().size();
    setOption(easy, CURLOPT_READFUNCTION, &UploadFile::readFunction);
    setOption(easy, CURLOPT_READDATA, &task.files.back());
    setOption(easy, CURLOPT_INFILESIZE, sizeForCurl(size));
    if (!fitsLongOption(size)) {
        writeLine(*logger, log_level::debug, "({}) an upload of {} bytes is sent in chunks", request.id(), size);
    }
}

void EngineBody::addMimeForm(CURL* easy, const RequestPtr& request, Engine::ActiveTask& task) const {
    KO_ASSERT(request->config.body.empty());
    task.mime = curl_mime_init(easy);
    if (task.mime == nullptr) throw std::bad_alloc();

    std::uint64_t total = 0;
    for (const MimePart& content : request->config.mime_parts) total += addMimePart(task, content);
    writeLine(*logger, log_level::always, "{} {} mine parts, total data size {} bytes", "addHTTPMethodToRequest",
              request->config.mime_parts.size(), total);
    setOption(easy, CURLOPT_MIMEPOST, task.mime);
}

// Returns the bytes of its content.
std::uint64_t EngineBody::addMimePart(Engine::ActiveTask& task, const MimePart& content) const {
    constexpr const char* function = "addHTTPMethodToRequest";
    curl_mimepart* const part = curl_mime_addpart(task.mime);
    if (part == nullptr) throw std::bad_alloc();
    requireCall(curl_mime_name(part, content.name.c_str()), "the name of a part of the form");
    writeLine(*logger, log_level::debug, "{} mime-name:{}", function, content.name);
    std::uint64_t size = 0;
    if (!content.file_path.empty()) {
        size = addMimeFile(part, task, content);
        writeLine(*logger, log_level::debug, "{} mime-file name:{}, mime-file size:{}", function, content.file_path,
                  size);
    } else {
        requireCall(curl_mime_data(part, content.data.data(), content.data.size()), "the data of a part of the form");
        size = content.data.size();
        writeLine(*logger, log_level::debug, "{} mime-data size:{}", function, size);
    }
    const std::string& type = content.content_type;
    if (!type.empty()) requireCall(curl_mime_type(part, type.c_str()), "the content type of a part of the form");
    return size;
}

// We read it: libcurl would send whatever the file holds by then, having announced what it held before. So libcurl does
// not know any more that it is a file, and has to be told the type which it would have chosen.
std::uint64_t EngineBody::addMimeFile(curl_mimepart* part, Engine::ActiveTask& task, const MimePart& content) {
    const char* const path = content.file_path.c_str();
    task.files.emplace_back(content.file_path, task.fault);
    UploadFile& file = task.files.back();
    file.openForReadingOnly();
    requireCall(curl_mime_data_cb(part, static_cast<curl_off_t>(file.size()), &UploadFile::readFunction,
                                  &UploadFile::seekFunction, nullptr, &file),
                "a file of the form");
    requireCall(curl_mime_filename(part, path), "the file name of a part of the form");
    if (content.content_type.empty()) {
        requireCall(curl_mime_type(part, contentTypeOf(content.file_path)), "the content type of a part of the form");
    }
    return file.size();
}

std::size_t EngineBody::read(Engine::ActiveTask& task, void* buffer, std::size_t room) {
    const std::string& body = task.request->config.body;
    if (task.uploadOffset >= body.size()) return 0;
    const auto offset = static_cast<std::size_t>(task.uploadOffset);
    const std::size_t bytes = std::min(room, body.size() - offset);
    std::memcpy(buffer, body.data() + offset, bytes);
    task.uploadOffset += bytes;
    return bytes;
}

int EngineBody::seek(Engine::ActiveTask& task, curl_off_t offset, int origin) {
    if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
    if (static_cast<std::uint64_t>(offset) > task.request->config.body.size()) return CURL_SEEKFUNC_FAIL;
    task.uploadOffset = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

bool EngineBody::needsTrace() {
    return !libcurl_tells_beginnings;
}

// A form is rewound by libcurl itself.
void EngineBody::rewind(Engine::ActiveTask& task) {
    task.uploadOffset = 0;
    if (task.mime == nullptr && !task.files.empty()) task.files.front().seek(0, SEEK_SET);
}

}  // namespace kel::http
