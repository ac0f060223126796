// SPDX-License-Identifier: MIT
#include "ProxyUser.h"

#include <openssl/evp.h>

namespace kel::http::test {

std::string basicCredentials(const ProxyUser& user) {
    const std::string text = user.name + ':' + user.password;
    std::string coded(4 * ((text.size() + 2) / 3) + 1, '\0');
    const int size =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(coded.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    return coded.substr(0, static_cast<std::size_t>(size));
}

}  // namespace kel::http::test
