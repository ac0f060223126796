// SPDX-License-Identifier: MIT
#include "certificate/certificate.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <new>

#include "host_settings.h"

namespace certificate {
namespace {

// Null for an unknown name.
const std::string* find_path(const std::string& name) {
    const auto& bundles = ko::host::current_settings().ca_bundles;
    const auto found = bundles.find(name);
    return found == bundles.end() ? nullptr : &found->second;
}

// Negative when there is no memory.
int require_index(int index) {
    if (index < 0) throw std::bad_alloc();
    return index;
}

void free_text(void* /*context*/, void* text, CRYPTO_EX_DATA* /*data*/, int /*index*/, long /*argl*/, void* /*argp*/) {
    OPENSSL_free(text);
}

}  // namespace

int sslctx_data_index() {
    static const int index = require_index(SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, &free_text));
    return index;
}

bool ca_pem_exists(const std::string& name) {
    const std::string* const path = find_path(name);
    return path != nullptr && access(path->c_str(), R_OK) == 0;
}

std::string ca_path(const std::string& name) {
    const std::string* const path = find_path(name);
    return path == nullptr ? std::string() : *path;
}

}  // namespace certificate
