// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineBody.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/LongOption.h"
#include "kel-http/model/LogLine.h"
#include "ko/assert.h"
#include "logging/tovanlog.h"

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

void stopWithoutMemory(std::string_view message) {
    tovanlog_fatal("%.*s", static_cast<int>(message.size()), message.data());
}

// Opening a pipe that nobody writes to would wait for a writer, and all transfers with it.
std::FILE* openForUpload(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    std::FILE* const stream = fdopen(descriptor, "rb");
    if (stream == nullptr) close(descriptor);
    return stream;
}

// Without a stream libcurl would read the upload from the program's standard input, and the engine would wait for it.
void sendNothing(CURL* easy, std::FILE*& stream) {
    stream = std::fopen("/dev/null", "rb");
    if (stream == nullptr)
        throw std::system_error(errno, std::generic_category(), "Can not open /dev/null for an upload");
    setOption(easy, CURLOPT_READDATA, stream);
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
    task.uploadFile = openForUpload(path);
    if (task.uploadFile == nullptr) {
        writeLine(*logger, log_level::error, "HTTPClientCurl fopen failed {}", path);
        sendNothing(easy, task.uploadFile);
        return;
    }
    boost::system::error_code error;
    const std::uintmax_t size = boost::filesystem::file_size(path, error);
    if (error) {
        std::fclose(task.uploadFile);
        task.uploadFile = nullptr;
        writeLine(*logger, log_level::error, "HTTPClientCurl failed to get file size for {}:", path, error.message());
        sendNothing(easy, task.uploadFile);
        return;
    }
    setOption(easy, CURLOPT_READFUNCTION, &Engine::putReadFile);
    setOption(easy, CURLOPT_READDATA, task.uploadFile);
    setOption(easy, CURLOPT_INFILESIZE, sizeForCurl(size));
    if (!fitsLongOption(size)) {
        writeLine(*logger, log_level::debug, "({}) an upload of {} bytes is sent in chunks", request.id(), size);
    }
}

void EngineBody::addMimeForm(CURL* easy, const RequestPtr& request, Engine::ActiveTask& task) const {
    KO_ASSERT(request->config.body.empty());
    task.mime = curl_mime_init(easy);
    if (task.mime == nullptr) stopWithoutMemory("curl_mime_init() failed\n");

    std::uint64_t total = 0;
    for (const MimePart& content : request->config.mime_parts) total += addMimePart(task.mime, content);
    writeLine(*logger, log_level::always, "{} {} mine parts, total data size {} bytes", "addHTTPMethodToRequest",
              request->config.mime_parts.size(), total);
    setOption(easy, CURLOPT_MIMEPOST, task.mime);
}

// Returns the bytes of its content.
std::uint64_t EngineBody::addMimePart(curl_mime* mime, const MimePart& content) const {
    constexpr const char* function = "addHTTPMethodToRequest";
    curl_mimepart* const part = curl_mime_addpart(mime);
    if (part == nullptr) stopWithoutMemory("curl_mime_addpart() failed\n");
    curl_mime_name(part, content.name.c_str());
    writeLine(*logger, log_level::debug, "{} mime-name:{}", function, content.name);
    std::uint64_t size = 0;
    if (!content.file_path.empty()) {
        curl_mime_filedata(part, content.file_path.c_str());
        curl_mime_filename(part, content.file_path.c_str());
        size = boost::filesystem::file_size(content.file_path);
        writeLine(*logger, log_level::debug, "{} mime-file name:{}, mime-file size:{}", function, content.file_path,
                  size);
    } else {
        curl_mime_data(part, content.data.data(), content.data.size());
        size = content.data.size();
        writeLine(*logger, log_level::debug, "{} mime-data size:{}", function, size);
    }
    if (!content.content_type.empty()) curl_mime_type(part, content.content_type.c_str());
    return size;
}

std::size_t EngineBody::read(Engine::ActiveTask& task, void* buffer, std::size_t room) {
    const std::string& body = task.request->config.body;
    if (task.uploadOffset >= body.size()) return 0;
    const std::size_t bytes = std::min(room, body.size() - task.uploadOffset);
    std::memcpy(buffer, body.data() + task.uploadOffset, bytes);
    task.uploadOffset += static_cast<std::uint32_t>(bytes);
    return bytes;
}

int EngineBody::seek(Engine::ActiveTask& task, curl_off_t offset, int origin) {
    if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
    if (static_cast<std::uint64_t>(offset) > task.request->config.body.size()) return CURL_SEEKFUNC_FAIL;
    task.uploadOffset = static_cast<std::uint32_t>(offset);
    return CURL_SEEKFUNC_OK;
}

}  // namespace kel::http
