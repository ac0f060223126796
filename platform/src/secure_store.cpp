// SPDX-License-Identifier: MIT
#include "sec/secure_store.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <fstream>
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

// False when there is no such file, or when it is empty or has more than `limit` bytes.
bool read_file(const std::string& path, unsigned int limit, Der& der) {
    std::ifstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);  // its buffer would keep the key
    file.open(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? std::streamoff(file.tellg()) : 0;
    if (size <= 0 || size > static_cast<std::streamoff>(limit)) return false;
    der.resize(static_cast<std::size_t>(size));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(der.data()), static_cast<std::streamsize>(size));
    return file.good();
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
