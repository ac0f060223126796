// SPDX-License-Identifier: MIT
#include "certificate/certificate.h"

#include <openssl/ssl.h>
#include <unistd.h>

#include "host_settings.h"
#include "ko/assert.h"

namespace certificate {

int sslctx_data_index() {
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    KO_ASSERT(index >= 0);
    return index;
}

bool ca_pem_exists(const std::string& name) {
    const std::string path = ca_path(name);
    return !path.empty() && access(path.c_str(), R_OK) == 0;
}

std::string ca_path(const std::string& name) {
    const auto settings = ko::host::current_settings();
    const auto found = settings->ca_bundles.find(name);
    return found == settings->ca_bundles.end() ? std::string() : found->second;
}

}  // namespace certificate
