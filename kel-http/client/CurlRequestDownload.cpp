// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
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

// Makes a stream forget what it holds back, which closing it would write. std::ofstream has no call for that; its buffer
// has one, whose name only derived classes may use.
struct Unwritten : std::filebuf {
    static void forget(std::ofstream& file) { (file.rdbuf()->*(&Unwritten::setp))(nullptr, nullptr); }
};

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
    if (!output || !output->is_open()) return;
    output->close();
    if (config.keep_partial_download || temporary_path.empty()) return;
    unlink(temporary_path.c_str());
}

// Opening takes memory when the file is there already: it is this request's by then, which removes it.
void ClientImpl::CurlRequest::open_download() {
    if (!isFileName(*download_path)) throw std::runtime_error("Failed to open file");
    auto file = std::make_unique<std::ofstream>();
    if (config.resume) {
        if (const auto size = partialFileSize(*download_path)) resume_offset = static_cast<std::uint32_t>(*size);
        output = std::move(file);
        output->open(*download_path, std::ios::out | std::ios::app);
    } else {
        boost::system::error_code ignored;
        temporary_path = ko::filesystem::unique_path(*download_path + ".downloading-%%%%%%%%", ignored).string();
        output = std::move(file);
        output->open(temporary_path);
    }
    if (!output->fail()) return;
    output.reset();
    throw std::runtime_error("Failed to open file");
}

// The target itself holds nothing back: when this request is given up, its owner may resume the file at once, from the
// size that it has. A flush that fails is told with the next piece or at the end.
//
// A write that fails may have left some of its bytes on the disk. The stream would write all of them again when it is
// closed, and where there is room by then the file would no longer be the beginning of the whole.
bool ClientImpl::CurlRequest::write_download(std::string_view data) {
    const bool taken = output->write(data.data(), static_cast<std::streamsize>(data.size())).good();
    if (config.resume) output->flush();
    if (!output->good()) Unwritten::forget(*output);
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
    if (!output && temporary_path.empty() && !create_empty_file()) {
        notifyFailure(Failure::WriteFailed, "Failed to write empty response");
        return false;
    }
    if (output && !close_output()) {
        notifyFailure(Failure::WriteFailed, temporary_path);
        return false;
    }
    return move_into_place(log);
}

// A full disk may show at the last flush only.
bool ClientImpl::CurlRequest::finish_appending() {
    if (!output || close_output()) return true;
    notifyFailure(Failure::WriteFailed, *download_path);
    return false;
}

bool ClientImpl::CurlRequest::create_empty_file() try {
    if (!isFileName(*download_path)) return false;
    boost::system::error_code error;
    temporary_path = ko::filesystem::unique_path(*download_path + ".%%%%%%%%", error).string();
    if (error) return false;
    const int file = open(temporary_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return file >= 0 && close(file) == 0;
} catch (const std::exception&) {
    // Random numbers may be a matter of descriptors, of which there may be none left.
    return false;
}

bool ClientImpl::CurlRequest::close_output() {
    output->close();
    return output->good();
}

bool ClientImpl::CurlRequest::move_into_place(logging::Logger& log) {
    writeLine(log, log_level::debug, "{}: Renaming tmp file {} to {}", "notifyDataEnd", temporary_path, *download_path);
    if (std::rename(temporary_path.c_str(), download_path->c_str()) != 0) {
        const std::string reason = std::generic_category().message(errno);
        writeLine(log, log_level::error, "{}: Rename failed - {}", "notifyDataEnd", reason);
        notifyFailure(Failure::WriteFailed, *download_path);
        return false;
    }
    writeLine(log, log_level::debug, "{}: Rename complete", "notifyDataEnd");
    if (digest) body = ko::to_hex(digest->done());
    return true;
}

}  // namespace kel::http
