// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "Options.h"

namespace kel::http::tool {

// What the engine's log says about a transfer that failed. The message of the failure itself leaves it out.
class ConnectionTrouble {
 public:
    void hear(std::string_view line);

    // libcurl's and OpenSSL's own words. Empty when nothing was said.
    const std::string& words() const { return words_; }
    // Why the device's certificate was not presented. Empty when it was, or was not to be.
    const std::string& device_certificate() const { return device_certificate_; }

 private:
    std::string words_;
    std::string device_certificate_;
};

// A sentence for a person: why no TLS connection came about, and what can be done. Empty when it is not about that.
std::string tls_advice(const ConnectionTrouble& trouble, const Options& options);

}  // namespace kel::http::tool
