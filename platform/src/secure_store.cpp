// SPDX-License-Identifier: MIT
#include "sec/secure_store.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "development_identity.h"
#include "host_settings.h"

namespace {

using Der = std::vector<unsigned char>;
using ko::host::Identity;

constexpr int success = 0;
constexpr int failure = -1;

Der read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return Der(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Empty when there is none.
Der load(const char* file_name, const Der Identity::*part) {
    const auto& settings = ko::host::current_settings();
    if (!settings.secure_store_directory.empty()) return read_file(settings.secure_store_directory + '/' + file_name);
    const Identity* const development = ko::host::development_identity();
    return development == nullptr ? Der() : development->*part;
}

int get(int slot, const char* file_name, const Der Identity::*part, unsigned char* buffer, unsigned int* length) {
    if (slot != 0 || buffer == nullptr || length == nullptr) return failure;
    const Der der = load(file_name, part);
    if (der.empty() || der.size() > *length) return failure;
    std::copy(der.begin(), der.end(), buffer);
    *length = static_cast<unsigned int>(der.size());
    return success;
}

}  // namespace

int sec_get_deviceCert(int slot, unsigned char* buffer, unsigned int* length) {
    return get(slot, "device_cert.der", &Identity::certificate, buffer, length);
}

int sec_get_priv_key(int slot, unsigned char* buffer, unsigned int* length) {
    return get(slot, "device_key.der", &Identity::key, buffer, length);
}
