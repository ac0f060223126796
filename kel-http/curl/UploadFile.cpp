// SPDX-License-Identifier: MIT
#include "kel-http/curl/UploadFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "kel-http/curl/Engine.h"

namespace kel::http {
namespace {

std::string reason(int error) {
    return std::generic_category().message(error);
}

// Opening a pipe that nobody writes to would wait for a writer, and all transfers with it.
std::FILE* openForUpload(const std::string& path) {
    // The system would take the part before a zero byte for the name, which is another file's.
    if (path.find('\0') != std::string::npos) {
        errno = EINVAL;
        return nullptr;
    }
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    std::FILE* const stream = fdopen(descriptor, "rb");
    if (stream == nullptr) close(descriptor);
    return stream;
}

// Throws UploadFile::Refused.
std::FILE* requireOpen(const std::string& path) {
    std::FILE* const stream = openForUpload(path);
    if (stream != nullptr) return stream;
    throw UploadFile::Refused(fmt::format("Can not open the file '{}' to send it: {}", path, reason(errno)), false);
}

// Of the file that is open, not of what has its name by now.
std::uint64_t sizeOf(std::FILE* stream, const std::string& path) {
    struct stat status {};
    if (fstat(fileno(stream), &status) != 0) {
        throw UploadFile::Refused(
            fmt::format("Can not get the size of the file '{}' to send it: {}", path, reason(errno)), true);
    }
    if (!S_ISREG(status.st_mode)) {
        throw UploadFile::Refused(fmt::format("Can not send '{}': it is no regular file", path), true);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

UploadFile::UploadFile(const std::string& file_path, TransferFault& of_transfer)
    : path(file_path), fault(of_transfer), stream(requireOpen(path)) {
    announced = sizeOf(stream.get(), path);
}

void UploadFile::openForReadingOnly() {
    closesWhenIdle = true;
    stream.reset();
}

bool UploadFile::ensureOpen() noexcept {
    if (stream) return true;
    try {
        stream.reset(requireOpen(path));
        sizeOf(stream.get(), path);  // it may have become something else meanwhile
        if (fseeko(stream.get(), static_cast<off_t>(sent), SEEK_SET) == 0) return true;
        noteFailure(errno);
    } catch (const Refused& refused) {
        fault.note(TransferFault::Side::own, std::string(refused.what()));
    } catch (const std::exception&) {
        fault.note(TransferFault::Side::own, out_of_memory);
    }
    return false;
}

std::size_t UploadFile::read(void* buffer, std::size_t room) noexcept {
    const std::uint64_t wanted = std::min<std::uint64_t>(room, announced - sent);
    if (wanted == 0) return 0;
    if (!ensureOpen()) return CURL_READFUNC_ABORT;
    errno = 0;
    const std::size_t bytes = Engine::putReadFile(buffer, 1, static_cast<std::size_t>(wanted), stream.get());
    if (bytes == 0) {
        noteFailure(std::ferror(stream.get()) != 0 ? errno : 0);
        return CURL_READFUNC_ABORT;
    }
    sent += bytes;
    if (closesWhenIdle && sent == announced) stream.reset();
    return bytes;
}

// Without an error the file has become shorter.
void UploadFile::noteFailure(int error) noexcept {
    try {
        fault.note(TransferFault::Side::own,
                   error != 0 ? fmt::format("Reading the file '{}' failed while it was sent: {}", path, reason(error))
                              : fmt::format("The file '{}' became shorter while it was sent: {} bytes of {} were left",
                                            path, sent, announced));
    } catch (const std::exception&) {
        fault.note(TransferFault::Side::own, out_of_memory);
    }
}

int UploadFile::seek(curl_off_t offset, int origin) noexcept {
    if (origin != SEEK_SET || offset < 0 || static_cast<std::uint64_t>(offset) > announced) return CURL_SEEKFUNC_FAIL;
    if (stream && fseeko(stream.get(), static_cast<off_t>(offset), SEEK_SET) != 0) return CURL_SEEKFUNC_FAIL;
    sent = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

std::size_t UploadFile::readFunction(char* buffer, std::size_t size, std::size_t nitems, void* file) {
    return static_cast<UploadFile*>(file)->read(buffer, size * nitems);
}

int UploadFile::seekFunction(void* file, curl_off_t offset, int origin) {
    return static_cast<UploadFile*>(file)->seek(offset, origin);
}

}  // namespace kel::http
