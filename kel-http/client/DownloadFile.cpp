// SPDX-License-Identifier: MIT
#include "kel-http/client/DownloadFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace kel::http {
namespace {

constexpr std::size_t buffer_bytes = 8192;
// Writing a piece of this size costs less than copying it.
constexpr std::size_t large_bytes = 1024;

constexpr mode_t permissions = 0777;
constexpr mode_t usual_permissions = 0666;  // less what the process masks

bool is_missing(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// The permissions of the file that is to be replaced, if there is one; the rights of another user, which a program may have,
// are not for what a server sends. False when it can not be looked at: nobody knows who may read it.
bool look_up_permissions(const std::string& target, tl::optional<mode_t>& mode) {
    struct stat status {};
    if (lstat(target.c_str(), &status) != 0) return is_missing(errno);
    if (S_ISREG(status.st_mode)) mode = status.st_mode & permissions;
    return true;
}

// Not every filesystem has permissions to give. One that grants no more than is allowed will do.
bool restrict_to(int descriptor, mode_t mode) {
    if (fchmod(descriptor, mode) == 0) return true;
    struct stat status {};
    return fstat(descriptor, &status) == 0 && (status.st_mode & permissions & ~mode) == 0;
}

[[noreturn]] void refuse(const std::string& path, std::uintmax_t expected, const std::string& now) {
    const std::string before = expected == 0 ? std::string("it was empty or missing when the file was asked for")
                                             : fmt::format("it had {} bytes when the rest was asked for", expected);
    throw DownloadFile::Changed(fmt::format(
        "Can not resume '{}': {}, and {} now. Nothing has been written: start the download again, and leave "
        "the file alone meanwhile",
        path, before, now));
}

iovec piece_of(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

}  // namespace

DownloadFile::~DownloadFile() {
    if (is_open()) close();
}

// A file that has the temporary name already may be somebody else's, who could read what is written to it.
bool DownloadFile::create(const std::string& path, const std::string& target) {
    tl::optional<mode_t> mode;
    if (!look_up_permissions(target, mode)) return false;
    const int access = O_WRONLY | O_CREAT | O_CLOEXEC | (mode ? O_EXCL : O_TRUNC);
    descriptor = open(path.c_str(), access, mode.value_or(usual_permissions));
    if (!is_open()) return false;
    if (!mode || restrict_to(descriptor, *mode)) return true;
    give_up(path);
    return false;
}

void DownloadFile::give_up(const std::string& path) {
    close();
    unlink(path.c_str());
}

// A pipe that nobody reads from would hold up all transfers if it were waited for.
bool DownloadFile::append(const std::string& path, tl::optional<std::uintmax_t> expected) {
    const bool may_create = expected.value_or(0) == 0;
    const int access = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | (may_create ? O_CREAT : 0);
    descriptor = open(path.c_str(), access, usual_permissions);
    if (!is_open()) {
        if (!may_create && is_missing(errno)) refuse(path, *expected, "is not there");
        if (errno == EISDIR || errno == ENXIO) refuse(path, expected.value_or(0), "is no regular file");
        return false;
    }
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) refuse(path, expected.value_or(0), "is no regular file");
    present = static_cast<std::uintmax_t>(status.st_size);
    if (expected && *expected != present) refuse(path, *expected, fmt::format("has {} bytes", present));
    return true;
}

bool DownloadFile::write(std::string_view data) {
    if (has_failed) return false;
    if (data.size() >= large_bytes || data.size() > buffer_bytes - collected.size()) return write_out(data);
    collected.reserve(buffer_bytes);
    collected.append(data);
    return true;
}

void DownloadFile::flush() {
    if (!has_failed && !collected.empty()) write_out({});
}

bool DownloadFile::close() {
    flush();
    const bool closed = ::close(std::exchange(descriptor, -1)) == 0;
    return closed && !has_failed;
}

bool DownloadFile::write_out(std::string_view data) {
    std::string_view first = collected;
    while (!first.empty() || !data.empty()) {
        const std::array<iovec, 2> pieces = {piece_of(first), piece_of(data)};
        const ssize_t count = writev(descriptor, pieces.data(), pieces.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            has_failed = true;
            return false;
        }
        const std::size_t of_first = std::min(static_cast<std::size_t>(count), first.size());
        first.remove_prefix(of_first);
        data.remove_prefix(static_cast<std::size_t>(count) - of_first);
    }
    collected.clear();
    return true;
}

}  // namespace kel::http
