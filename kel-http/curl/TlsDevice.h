// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "kel-http/RequestConfig.h"

// What the engine alone has to know about the device's identity, beside `Tls.h`. Engine thread.
namespace kel::http::tls {

// The DER of a certificate, as the secure store gives it. The parsers get the whole buffer: the length stands in the DER
// itself, and zeros behind it do no harm. So a store that tells none, or zero, serves as well.
struct CertificateDer {
    static constexpr std::size_t MostBytes = 4096;

    std::string_view text() const {
        const std::size_t told = length == 0 ? MostBytes : length;
        return {reinterpret_cast<const char*>(bytes.data()), std::min(told, MostBytes)};
    }

    std::array<unsigned char, MostBytes> bytes{};
    unsigned int length = 0;
};

// False: the store has none to give.
bool readDeviceCertificate(CertificateDer& certificate);

// As `setupDeviceSSLCTXCallback()` in `Tls.h`, and tells which certificate is presented; none if that fails.
CURLcode setUpDeviceContext(CURL* curl, void* sslctx, void* config, CertificateDer& presented);

}  // namespace kel::http::tls
