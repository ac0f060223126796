// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <system_error>

#include "kel-http/client/CurlRequest.h"
#include "kel-http/curl/PartialFile.h"
#include "kel-http/model/LogLine.h"
#include "kel-http/model/MemoryShortage.h"
#include "ko/filesystem.h"
#include "ko/to_hex.h"

namespace kel::http {
namespace {

// The system would take the part before the zero byte for the name, which is another file's.
bool isFileName(const std::string& path) {
    return path.find('\0') == std::string::npos;
}

}  // namespace

ClientImpl::CurlRequest::~CurlRequest() {
    give_up_download();
}

// A file that was closed but could not be renamed is whole, and stays. The target itself is never removed.
void ClientImpl::CurlRequest::give_up_download() noexcept {
    if (!download || !download->output || !download->output->is_open()) return;
    download->output->close();
    if (config.keep_partial_download || download->temporary_path.empty()) return;
    unlink(download->temporary_path.c_str());
}

void ClientImpl::CurlRequest::open_download() {
    auto file = std::make_unique<DownloadFile>();
    const bool opened = isFileName(download->path) && (config.resume ? open_target(*file) : open_sibling(*file));
    if (!opened) throw std::runtime_error("Failed to open file");
    download->output = std::move(file);
}

// The server sends what is behind the bytes that were there when it was asked: nowhere else does it fit.
bool ClientImpl::CurlRequest::open_target(DownloadFile& file) {
    try {
        if (!file.append(download->path, askedOffset(*this))) return false;
    } catch (const DownloadFile::Changed& changed) {
        body = changed.what();
        download->target_has_changed = true;
        throw;
    }
    download->resume_offset = static_cast<std::uint32_t>(file.size_before());
    return true;
}

bool ClientImpl::CurlRequest::open_sibling(DownloadFile& file) {
    boost::system::error_code ignored;
    download->temporary_path = ko::filesystem::unique_path(download->path + ".downloading-%%%%%%%%", ignored).string();
    return file.create(download->temporary_path, download->path);
}

// The target itself holds nothing back: when this request is given up, its owner may resume the file at once, from the
// size that it has. A flush that fails is told with the next piece or at the end.
bool ClientImpl::CurlRequest::write_download(std::string_view data) {
    const bool taken = download->output->write(data);
    if (config.resume) download->output->flush();
    return taken;
}

bool ClientImpl::CurlRequest::finish_download() {
    try {
        return config.resume ? finish_appending() : finish_replacing();
    } catch (const std::bad_alloc&) {
        notifyFailure(Failure::Other, out_of_memory);
        return false;
    }
}

// The logger, which may take memory, comes before the file is complete: one that is not yet is removed when the download
// is given up.
bool ClientImpl::CurlRequest::finish_replacing() {
    logging::Logger& log = *logging::getLogger("CurlRequest", 0);
    if (!download->output && download->temporary_path.empty() && !create_empty_file()) {
        notifyFailure(Failure::WriteFailed, "Failed to write empty response");
        return false;
    }
    if (download->output && !close_output()) {
        notifyFailure(Failure::WriteFailed, download->temporary_path);
        return false;
    }
    return move_into_place(log);
}

// A full disk may show at the last flush only.
bool ClientImpl::CurlRequest::finish_appending() {
    if (!download->output || close_output()) return true;
    notifyFailure(Failure::WriteFailed, download->path);
    return false;
}

bool ClientImpl::CurlRequest::create_empty_file() try {
    if (!isFileName(download->path)) return false;
    boost::system::error_code error;
    download->temporary_path = ko::filesystem::unique_path(download->path + ".%%%%%%%%", error).string();
    if (error) return false;
    DownloadFile file;
    return file.create(download->temporary_path, download->path) && file.close();
} catch (const std::exception&) {
    // Random numbers may be a matter of descriptors, of which there may be none left.
    return false;
}

bool ClientImpl::CurlRequest::close_output() {
    return download->output->close();
}

bool ClientImpl::CurlRequest::move_into_place(logging::Logger& log) {
    writeLine(log, log_level::debug, "{}: Renaming tmp file {} to {}", "notifyDataEnd", download->temporary_path,
              download->path);
    if (std::rename(download->temporary_path.c_str(), download->path.c_str()) != 0) {
        const std::string reason = std::generic_category().message(errno);
        writeLine(log, log_level::error, "{}: Rename failed - {}", "notifyDataEnd", reason);
        notifyFailure(Failure::WriteFailed, download->path);
        return false;
    }
    writeLine(log, log_level::debug, "{}: Rename complete", "notifyDataEnd");
    if (download->digest) body = ko::to_hex(download->digest->done());
    return true;
}

}  // namespace kel::http
