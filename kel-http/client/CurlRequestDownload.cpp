// SPDX-License-Identifier: MIT
#include <boost/filesystem.hpp>
#include <fstream>
#include <stdexcept>

#include "kel-http/client/CurlRequest.h"
#include "kel-http/curl/PartialFile.h"
#include "kel-http/model/LogLine.h"
#include "ko/filesystem.h"
#include "ko/to_hex.h"

namespace kel::http {

namespace fs = boost::filesystem;

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
void ClientImpl::CurlRequest::give_up_download() {
    if (!output || !output->is_open()) return;
    output->close();
    if (config.keep_partial_download || temporary_path.empty()) return;
    boost::system::error_code ignored;
    fs::remove(temporary_path, ignored);
}

std::unique_ptr<std::ofstream> ClientImpl::CurlRequest::open_download() {
    auto file = std::make_unique<std::ofstream>();
    if (!isFileName(*download_path)) throw std::runtime_error("Failed to open file");
    if (config.resume) {
        if (const auto size = partialFileSize(*download_path)) resume_offset = static_cast<std::uint32_t>(*size);
        file->open(*download_path, std::ios::out | std::ios::app);
    } else {
        boost::system::error_code ignored;
        temporary_path = ko::filesystem::unique_path(*download_path + ".downloading-%%%%%%%%", ignored).string();
        file->open(temporary_path);
    }
    if (file->fail()) throw std::runtime_error("Failed to open file");
    return file;
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
    if (config.resume) return finish_appending();
    if (!output && temporary_path.empty() && !create_empty_file()) {
        notifyFailure(Failure::WriteFailed, "Failed to write empty response");
        return false;
    }
    if (output && !close_output()) {
        notifyFailure(Failure::WriteFailed, temporary_path);
        return false;
    }
    return move_into_place();
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
    std::ofstream file(temporary_path);
    file.close();
    return file.good();
} catch (const std::exception&) {
    // Random numbers may be a matter of descriptors, of which there may be none left.
    return false;
}

bool ClientImpl::CurlRequest::close_output() {
    output->close();
    return output->good();
}

bool ClientImpl::CurlRequest::move_into_place() {
    logging::Logger& log = *logging::getLogger("CurlRequest", 0);
    writeLine(log, log_level::debug, "{}: Renaming tmp file {} to {}", "notifyDataEnd", temporary_path, *download_path);
    boost::system::error_code error;
    fs::rename(temporary_path, *download_path, error);
    if (error) {
        writeLine(log, log_level::error, "{}: Rename failed - {}", "notifyDataEnd", error.message());
        notifyFailure(Failure::WriteFailed, *download_path);
        return false;
    }
    writeLine(log, log_level::debug, "{}: Rename complete", "notifyDataEnd");
    if (digest) body = ko::to_hex(digest->done());
    return true;
}

}  // namespace kel::http
