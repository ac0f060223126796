// SPDX-License-Identifier: MIT
#include "kel-http/curl/TrustFiles.h"

#include <fcntl.h>

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "kel-http/curl/TlsFiles.h"
#include "kel-http/model/AsciiCase.h"

namespace kel::http {
namespace {

// The kernel stamps a change with the time of its last tick, which is not longer than this.
constexpr std::chrono::nanoseconds longest_tick = std::chrono::milliseconds(10);

const std::string no_key;

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

// The first one of several; OpenSSL passes over empty ones.
std::string_view firstFolder(std::string_view folders) {
    folders.remove_prefix(std::min(folders.find_first_not_of(':'), folders.size()));
    return folders.substr(0, folders.find(':'));
}

// The number's digits in base two are folders: an empty one for 0 and "." for 1. The last one is never 0, so that no two
// numbers look the same.
void appendNumber(std::string& folder, std::uint64_t number) {
    for (; number != 0; number >>= 1U) folder += (number & 1U) != 0 ? "/." : "/";
}

std::string numberedName(std::string_view path, std::uint64_t number) {
    const PathParts parts(path);
    std::string name(withoutIdleFolders(parts.folder));
    appendNumber(name, number);
    name += '/';
    name += parts.file;
    return name;
}

std::string numberedFolders(std::string_view folders, std::uint64_t number) {
    const std::string_view first = firstFolder(folders);
    if (first.empty()) return std::string(folders);  // nothing is trusted; a number would be the root
    std::string name(withoutIdleFolders(first));
    appendNumber(name, number);
    return name.append(first.data() + first.size(), folders.data() + folders.size());
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

FileState TrustFiles::look(const Place& place) {
    FileState state;
    const auto lookAt = [&state](const char* option, const std::string& path) {
        struct stat status {};
        if (fstatat(AT_FDCWD, path.c_str(), &status, 0) != 0) return;
        requireRegularFile(option, path, status);
        state.add(status);
    };
    switch (place.kind) {
        case Kind::folders:
            return requireRegularCertificates(place.path);
        case Kind::identity:
            lookAt("own_pkey", place.key);
            break;
        case Kind::authorities:
            break;
    }
    lookAt(place.option, place.path);
    return state;
}

const std::string& TrustFiles::nameOf(const char* option, const std::string& path) {
    return nameOf({Kind::authorities, option, path, no_key});
}

const std::string& TrustFiles::nameOfIdentity(const std::string& certificate, const std::string& key) {
    return nameOf({Kind::identity, "own_cert", certificate, key});
}

const std::string& TrustFiles::nameOfFolders(const std::string& folders) {
    return nameOf({Kind::folders, "ca_dir", folders, no_key});
}

void TrustFiles::startAnew() {
    files.clear();
    hasForgotten = true;
}

const std::string& TrustFiles::nameOf(const Place& place) {
    FileState state = look(place);
    File* file = find(place);
    if (file != nullptr) file->lastUse = ++uses;
    if (file != nullptr && file->certain && file->state == state) return file->name;

    auto blind = blindTimeLeft(state.changed(), std::chrono::system_clock::now());
    if (blind.count() > 0 && blind <= longest_tick) {
        std::this_thread::sleep_for(blind);
        state = look(place);
        blind = blindTimeLeft(state.changed(), std::chrono::system_clock::now());
    }
    if (file != nullptr) {
        file->name = newName(place);
    } else {
        file = &add(place);
    }
    file->state = state;
    file->certain = blind.count() <= 0;
    return file->name;
}

TrustFiles::File* TrustFiles::find(const Place& place) {
    const auto found = std::find_if(files.begin(), files.end(), [&place](const File& file) {
        return file.kind == place.kind && file.path == place.path && file.key == place.key;
    });
    return found == files.end() ? nullptr : &*found;
}

TrustFiles::File& TrustFiles::add(const Place& place) {
    File file;
    file.kind = place.kind;
    file.path = place.path;
    file.key = place.key;
    file.lastUse = ++uses;
    file.name = hasFreeName(place) ? place.path : newName(place);
    if (files.size() < Remembered) return files.emplace_back(std::move(file));
    hasForgotten = true;
    return *std::min_element(files.begin(), files.end(), [](const File& one, const File& other) {
        return one.lastUse < other.lastUse;
    }) = std::move(file);
}

// Whether libcurl can not take the path for anything that it knows already.
bool TrustFiles::hasFreeName(const Place& place) const {
    if (files.size() >= Remembered || hasForgotten) return false;
    if (hasIdleFolders(place.kind == Kind::folders ? firstFolder(place.path) : PathParts(place.path).folder))
        return false;
    return std::none_of(files.begin(), files.end(), [&place](const File& file) {
        return file.kind == place.kind && file.path.size() == place.path.size() &&
               startsWithIgnoringCase(file.path, place.path);
    });
}

std::string TrustFiles::newName(const Place& place) {
    ++lastNumber;
    return place.kind == Kind::folders ? numberedFolders(place.path, lastNumber) : numberedName(place.path, lastNumber);
}

}  // namespace kel::http
