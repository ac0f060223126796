// SPDX-License-Identifier: MIT
#include "kel-http/curl/TlsFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace kel::http {
namespace {

constexpr auto npos = std::string_view::npos;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// "0123abcd.0", "0123abcd.r0": the hash of a name, and a number among those with the same one.
bool isCertificateName(std::string_view name) {
    constexpr std::size_t hash_length = 8;
    if (name.find_first_not_of("0123456789abcdef") != hash_length || name[hash_length] != '.') return false;
    name.remove_prefix(hash_length + 1);
    if (!name.empty() && name.front() == 'r') name.remove_prefix(1);
    return !name.empty() && name.find_first_not_of("0123456789") == npos;
}

void requireRegularCertificatesIn(const std::string& path, FileState& state) {
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder) return;
    while (const dirent* const entry = readdir(folder.get())) {
        struct stat status {};
        if (!isCertificateName(entry->d_name) || fstatat(dirfd(folder.get()), entry->d_name, &status, 0) != 0) continue;
        if (!S_ISREG(status.st_mode)) {
            throw std::runtime_error(
                fmt::format("ca_dir: '{}/{}' is no regular file: remove it, or make it one", path, entry->d_name));
        }
        state.add(entry->d_name);
        state.add(status);
    }
}

// The beginning of a file, with room for a chain of certificates before its key. No byte of a key stays behind.
class FileHead {
 public:
    explicit FileHead(const std::string& path) {
        const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (file < 0) return;
        struct stat status {};
        if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
            const ssize_t taken = read(file, bytes.data(), bytes.size());
            if (taken > 0) size = static_cast<std::size_t>(taken);
        }
        close(file);
    }
    FileHead(const FileHead&) = delete;
    FileHead& operator=(const FileHead&) = delete;
    ~FileHead() { OPENSSL_cleanse(bytes.data(), size); }

    std::string_view text() const { return {bytes.data(), size}; }

 private:
    std::array<char, 16384> bytes;  // NOLINT(cppcoreguidelines-pro-type-member-init): as much of it as is read counts
    std::size_t size = 0;
};

std::string_view firstLine(std::string_view text) {
    return text.substr(0, text.find_first_of("\r\n"));
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != npos;
}

// The first private key counts: OpenSSL passes over what else stands in the file. It is encrypted as a whole, or the
// line behind its title says so.
bool hasEncryptedKey(std::string_view pem) {
    constexpr std::string_view mark = "-----BEGIN ";
    for (auto begin = pem.find(mark); begin != npos; begin = pem.find(mark)) {
        pem.remove_prefix(begin + mark.size());
        const std::string_view title = firstLine(pem);
        if (!contains(title, "PRIVATE KEY-----")) continue;
        pem.remove_prefix(title.size());
        pem.remove_prefix(std::min(pem.find_first_not_of("\r\n"), pem.size()));
        const std::string_view header = firstLine(pem);
        return contains(title, "ENCRYPTED") || (contains(header, "Proc-Type:") && contains(header, "ENCRYPTED"));
    }
    return false;
}

}  // namespace

void requireRegularFile(const char* option, const std::string& path) {
    struct stat status {};
    if (path.empty() || fstatat(AT_FDCWD, path.c_str(), &status, 0) != 0) return;
    requireRegularFile(option, path, status);
}

void requireRegularFile(const char* option, const std::string& path, const struct stat& status) {
    if (S_ISREG(status.st_mode)) return;
    throw std::runtime_error(fmt::format("{}: '{}' is no regular file: name a PEM file", option, path));
}

FileState requireRegularCertificates(const std::string& folders) {
    FileState state;
    for (std::size_t begin = 0; begin <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', begin), folders.size());
        if (end > begin) requireRegularCertificatesIn(folders.substr(begin, end - begin), state);
        begin = end + 1;
    }
    return state;
}

void requireReadyKey(const std::string& path) {
    const FileHead head(path);
    if (!hasEncryptedKey(head.text())) return;
    throw std::runtime_error(
        fmt::format("own_pkey: the private key in '{}' is encrypted, and there is nobody to ask for its pass phrase: "
                    "store it without one (openssl pkey -in FILE -out NEW_FILE)",
                    path));
}

}  // namespace kel::http
