// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "kel-http/curl/TransferFault.h"

namespace kel::http {

// A file that is sent, as a body or as a part of a form: exactly as many bytes as it had when it was opened, since that is
// what the server is told. What is appended meanwhile, to a log for instance, would be taken for the next request there, and
// for what is missing the server would wait. Engine thread.
class UploadFile {
 public:
    // Why a file can not be sent; the text names it.
    struct Refused : std::runtime_error {
        Refused(const std::string& text, bool has_been_opened) : std::runtime_error(text), opened(has_been_opened) {}

        // It was there, but it has no size: it is no regular file, or can not be looked at.
        const bool opened;
    };

    // Opens it, without waiting for anybody. `of_transfer` outlives it. Throws Refused.
    UploadFile(const std::string& file_path, TransferFault& of_transfer);
    UploadFile(const UploadFile&) = delete;
    UploadFile& operator=(const UploadFile&) = delete;

    std::uint64_t size() const { return announced; }

    // Keeps no descriptor but while it is read: a form may have more files than a process may have open.
    void openForReadingOnly();

    // Gives libcurl the next piece: its size, 0 at the end, CURL_READFUNC_ABORT when the file does not hold what was announced
    // or can not be read; the transfer's fault says so then.
    std::size_t read(void* buffer, std::size_t room) noexcept;

    // Goes back to the beginning, or to where libcurl says. One of libcurl's CURL_SEEKFUNC_ values.
    int seek(curl_off_t offset, int origin) noexcept;

    // The same as libcurl's callbacks (`CURLOPT_READFUNCTION`, `curl_mime_data_cb`) for an UploadFile.
    static std::size_t readFunction(char* buffer, std::size_t size, std::size_t nitems, void* file);
    static int seekFunction(void* file, curl_off_t offset, int origin);

 private:
    bool ensureOpen() noexcept;
    void noteFailure(int error) noexcept;

    struct CloseStream {
        void operator()(std::FILE* opened) const { std::fclose(opened); }
    };

    const std::string path;
    TransferFault& fault;
    std::unique_ptr<std::FILE, CloseStream> stream;
    std::uint64_t announced = 0;
    std::uint64_t sent = 0;
    bool closesWhenIdle = false;
};

}  // namespace kel::http
