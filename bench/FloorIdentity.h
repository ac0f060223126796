// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

namespace kel::http::bench {

// A CURLOPT_SSL_CTX_FUNCTION: a server that asks for a certificate gets the device's own, read anew for each handshake.
CURLcode presentDeviceIdentity(CURL* easy, void* context, void* data);

}  // namespace kel::http::bench
