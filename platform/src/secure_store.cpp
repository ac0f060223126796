// SPDX-License-Identifier: MIT
#include "sec/secure_store.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "development_identity.h"
#include "host_settings.h"

namespace {

using Der = std::vector<unsigned char>;
using ko::host::Identity;

constexpr int success = 0;
constexpr int failure = -1;

// Wiped when it is not needed any more.
struct Secret {
    ~Secret() { OPENSSL_cleanse(der.data(), der.size()); }

    Der der;
};

// All transfers wait for this file: opening it must not wait for whoever writes to a pipe.
struct File {
    explicit File(const std::string& path) : descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor >= 0) close(descriptor);
    }

    const int descriptor;
};

// False as well when the file is shorter than that by now.
bool read_all(int descriptor, unsigned char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t taken = read(descriptor, bytes, size);
        if (taken == 0 || (taken < 0 && errno != EINTR)) return false;
        if (taken < 0) continue;
        bytes += taken;
        size -= static_cast<std::size_t>(taken);
    }
    return true;
}

// False when there is no such regular file, or when it is empty or has more than `limit` bytes. Read without a buffer,
// which would keep the key.
bool read_file(const std::string& path, unsigned int limit, Der& der) {
    const File file(path);
    struct stat status {};
    if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (status.st_size <= 0 || status.st_size > static_cast<off_t>(limit)) return false;
    der.resize(static_cast<std::size_t>(status.st_size));
    return read_all(file.descriptor, der.data(), der.size());
}

int copy(const Der& der, unsigned char* buffer, unsigned int* length) {
    if (der.size() > *length) return failure;
    std::copy(der.begin(), der.end(), buffer);
    *length = static_cast<unsigned int>(der.size());
    return success;
}

int get(int slot, const char* file_name, const Der Identity::*part, unsigned char* buffer, unsigned int* length) {
    if (slot != 0 || buffer == nullptr || length == nullptr) return failure;
    const std::string& folder = ko::host::current_settings().secure_store_directory;
    if (folder.empty()) return copy(ko::host::development_identity().*part, buffer, length);
    Secret content;
    if (!read_file(folder + '/' + file_name, *length, content.der)) return failure;
    return copy(content.der, buffer, length);
}

}  // namespace

int sec_get_deviceCert(int slot, unsigned char* buffer, unsigned int* length) {
    return get(slot, "device_cert.der", &Identity::certificate, buffer, length);
}

int sec_get_priv_key(int slot, unsigned char* buffer, unsigned int* length) {
    return get(slot, "device_key.der", &Identity::key, buffer, length);
}
