// SPDX-License-Identifier: MIT
#include "kel-http/curl/TrustFiles.h"

#include <fcntl.h>

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "kel-http/curl/TlsFiles.h"

namespace kel::http {
namespace {

// The kernel stamps a change with the time of its last tick, which is not longer than this.
constexpr std::chrono::nanoseconds longest_tick = std::chrono::milliseconds(10);

bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

// "/etc/ssl" and "ca.pem".
struct PathParts {
    explicit PathParts(std::string_view path) : file(path) {
        const auto slash = path.rfind('/');
        if (slash == std::string_view::npos) return;
        folder = path.substr(0, slash);
        file.remove_prefix(slash + 1);
    }

    std::string_view folder = ".";
    std::string_view file;
};

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Such folders are what the names of a file differ in.
bool hasIdleFolders(std::string_view folder) {
    return endsWith(folder, "/") || endsWith(folder, "/.");
}

std::string_view withoutIdleFolders(std::string_view folder) {
    while (hasIdleFolders(folder)) folder.remove_suffix(folder.back() == '/' ? 1 : 2);
    return folder;
}

// The number's digits in base two are folders: an empty one for 0 and "." for 1. The last one is never 0, so that no two
// numbers look the same.
std::string numberedName(std::string_view path, std::uint64_t number) {
    const PathParts parts(path);
    std::string name(withoutIdleFolders(parts.folder));
    for (; number != 0; number >>= 1U) name += (number & 1U) != 0 ? "/." : "/";
    name += '/';
    name += parts.file;
    return name;
}

}  // namespace

std::chrono::nanoseconds blindTimeLeft(const timespec& changed, std::chrono::system_clock::time_point now) {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    // Some file systems keep whole seconds only, or every other one.
    const nanoseconds precision = changed.tv_nsec == 0 ? seconds(2) : seconds(0);
    const auto today = std::chrono::duration_cast<seconds>(now.time_since_epoch());
    const std::int64_t apart = today.count() - changed.tv_sec;
    // A time to come was taken before the clock was set back: that of the next change is another one.
    if (apart < 0 || apart > 3) return nanoseconds(0);
    const nanoseconds age = seconds(apart) + (now.time_since_epoch() - today) - nanoseconds(changed.tv_nsec);
    return age.count() < 0 ? nanoseconds(0) : precision + longest_tick - age;
}

TrustFiles::State::State(const struct stat& status)
    : device(status.st_dev),
      inode(status.st_ino),
      size(status.st_size),
      written(status.st_mtim),
      changed(status.st_ctim) {}

bool TrustFiles::State::operator==(const State& other) const {
    return device == other.device && inode == other.inode && size == other.size && isSame(written, other.written) &&
           isSame(changed, other.changed);
}

TrustFiles::State TrustFiles::look(const char* option, const std::string& path) {
    struct stat status {};
    if (fstatat(AT_FDCWD, path.c_str(), &status, 0) != 0) return {};
    requireRegularFile(option, path, status);
    return State(status);
}

const std::string& TrustFiles::nameOf(const char* option, const std::string& path) {
    State state = look(option, path);
    File* file = find(path);
    if (file != nullptr) file->lastUse = ++uses;
    if (file != nullptr && file->certain && file->state == state) return file->name;

    auto blind = blindTimeLeft(state.changed, std::chrono::system_clock::now());
    if (blind.count() > 0 && blind <= longest_tick) {
        std::this_thread::sleep_for(blind);
        state = look(option, path);
        blind = blindTimeLeft(state.changed, std::chrono::system_clock::now());
    }
    if (file != nullptr) {
        file->name = numberedName(path, ++lastNumber);
    } else {
        file = &add(path);
    }
    file->state = state;
    file->certain = blind.count() <= 0;
    return file->name;
}

TrustFiles::File* TrustFiles::find(const std::string& path) {
    const auto found =
        std::find_if(files.begin(), files.end(), [&path](const File& file) { return file.path == path; });
    return found == files.end() ? nullptr : &*found;
}

TrustFiles::File& TrustFiles::add(const std::string& path) {
    File file;
    file.path = path;
    file.lastUse = ++uses;
    const bool is_full = files.size() >= Remembered;
    const bool has_free_name = !is_full && !hasForgotten && !hasIdleFolders(PathParts(path).folder);
    file.name = has_free_name ? path : numberedName(path, ++lastNumber);
    if (!is_full) return files.emplace_back(std::move(file));
    hasForgotten = true;
    return *std::min_element(files.begin(), files.end(), [](const File& one, const File& other) {
        return one.lastUse < other.lastUse;
    }) = std::move(file);
}

}  // namespace kel::http
