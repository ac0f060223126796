// SPDX-License-Identifier: MIT
#include "PartFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "DownloadTargets.h"
#include "Files.h"
#include "ToolError.h"

namespace kel::http::tool {
namespace {

constexpr int most_attempts = 10;
// More than the rest of a block that has been paid for.
constexpr std::size_t probe_size = 65536;

[[noreturn]] void fail(const std::string& path, int error) {
    const std::string advice = advice_on_file(error);
    throw ToolError(LocalFileError,
                    fmt::format("can not write '{}': {}{}", path, std::generic_category().message(error),
                                advice.empty() ? advice : fmt::format("\n  ({})", advice)));
}

std::optional<struct stat> status_of(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

struct stat status_of(int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    return status;
}

// What is renamed onto a device or a link takes its place.
void check_plain_target(const std::string& path) {
    const auto status = status_of(path);
    if (!status || S_ISREG(status->st_mode)) return;
    if (S_ISDIR(status->st_mode)) fail(path, EISDIR);
    throw ToolError(LocalFileError, fmt::format("can not write '{}': it is a link or a device, which a download would "
                                                "replace\n  (give the path of a plain file)",
                                                path));
}

// Best effort: the file is whole, and not every file system can do it.
void sync_folder(const std::string& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    close(descriptor);
}

// One without a name, or the descriptor is negative.
int open_nameless_file(const std::string& folder) {
    const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0) return descriptor;
    // Some file systems have none.
    std::string path = folder + "/.kel-http-XXXXXX";
    const int named = mkostemp(path.data(), O_CLOEXEC);
    if (named >= 0) unlink(path.c_str());
    return named;
}

// Whether there is room is seen from any file in the folder. 0, or what errno has to say.
int try_to_write(const std::string& folder) {
    constexpr std::array<char, probe_size> zeros{};
    const int descriptor = open_nameless_file(folder);
    if (descriptor < 0) return errno;
    std::size_t written = 0;
    int error = 0;
    while (error == 0 && written < zeros.size()) {
        const auto count = write(descriptor, zeros.data(), zeros.size() - written);
        if (count > 0) written += static_cast<std::size_t>(count);
        if (count < 0 && errno != EINTR) error = errno;
    }
    close(descriptor);
    return error;
}

bool may_grow_to(std::uint64_t bytes) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    return limit.rlim_cur == RLIM_INFINITY || bytes <= limit.rlim_cur;
}

}  // namespace

std::string advice_on_file(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
            return "make room, or give a PATH where there is some";
        case EFBIG:
            return "files may not grow that large here: see 'ulimit -f', or give a PATH elsewhere";
        case ENOENT:
        case ENOTDIR:
            return "is its folder there?";
        case EACCES:
        case EPERM:
        case EROFS:
            return "give a PATH in a folder that can be written to";
        case EISDIR:
            return "it is a folder: give the path of a file in it";
        default:
            return {};
    }
}

PartFile::PartFile(const std::string& target) : target_(target), path_(part_path(target)) {
    check_plain_target(target);
    check_target(target);
    is_new_ = !status_of(path_);
    for (int attempts = 1; !open_and_lock(); ++attempts) {
        if (attempts == most_attempts) fail(path_, EBUSY);
    }
    size_before_ = size();
}

// False: another run has renamed the file meanwhile, which is not to be written to any more.
bool PartFile::open_and_lock() {
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    descriptor_ = open(path_.c_str(), flags, 0666);
    if (descriptor_ < 0) fail(path_, errno);
    const bool is_taken = flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    const bool is_plain = S_ISREG(status_of(descriptor_).st_mode);
    if (!is_taken && is_plain && is_in_place()) return true;
    close(descriptor_);
    if (is_taken) {
        throw ToolError(LocalFileError, fmt::format("another download to '{}' is running: wait for its end", target_));
    }
    if (!is_plain) throw ToolError(LocalFileError, fmt::format("'{}' is no plain file: remove it", path_));
    return false;
}

PartFile::~PartFile() {
    if (is_new_ && size() == 0 && is_in_place()) unlink(path_.c_str());
    close(descriptor_);
}

bool PartFile::is_in_place() const {
    const auto named = status_of(path_);
    const struct stat opened = status_of(descriptor_);
    return named && named->st_ino == opened.st_ino && named->st_dev == opened.st_dev;
}

std::uint64_t PartFile::size() const {
    return static_cast<std::uint64_t>(status_of(descriptor_).st_size);
}

void PartFile::start_anew() {
    size_before_ = 0;
    is_new_ = true;
    restore();
}

void PartFile::restore() const {
    if (ftruncate(descriptor_, static_cast<off_t>(size_before_)) != 0) fail(path_, errno);
}

void PartFile::remove() const {
    if (is_in_place()) unlink(path_.c_str());
}

// A name that outlives a power cut must not be that of bytes that do not.
void PartFile::publish() const {
    if (!is_in_place()) fail(path_, ENOENT);
    while (fsync(descriptor_) != 0) {
        if (errno != EINTR) fail(path_, errno);
    }
    if (rename(path_.c_str(), target_.c_str()) != 0) fail(target_, errno);
    sync_folder(folder_of(target_));
}

int PartFile::find_write_error() const {
    const auto named = status_of(path_);
    if (!named) return errno;
    if (S_ISDIR(named->st_mode)) return EISDIR;
    const int error = try_to_write(folder_of(path_));
    return error == 0 && !may_grow_to(size() + probe_size) ? EFBIG : error;
}

}  // namespace kel::http::tool
