// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include "kel-http/Export.h"
#include "kel-http/RequestConfig.h"

struct evp_pkey_st;  // EVP_PKEY
struct x509_st;      // X509

// What libcurl's options can not say about a TLS connection: set in OpenSSL's own context, which libcurl hands out while
// it prepares a handshake (`CURLOPT_SSL_CTX_FUNCTION`).
//
// `sslctx` is an SSL_CTX and `config` the RequestConfig; both are borrowed for the call. Engine thread.
// Results: CURLE_OK, or the code with which libcurl then fails the connection. Each failure is written to the log.
namespace kel::http::tls {

// Whether libcurl can load the client certificate and its key from the request's own files.
KEL_HTTP_EXPORT bool hasOwnIdentityFiles(const RequestConfig& config);

// All that `config` asks for. Files that can be read when the handshake begins come before the device's own identity; it
// is up to whoever installs this to have libcurl load them.
KEL_HTTP_EXPORT CURLcode setupSSLCTXCallback(CURL* curl, void* sslctx, void* config);

// The same for a transfer that libcurl loads no files for, because they could not be read when it was set up: it presents
// the device's identity, whatever has become of them since. Without it such a transfer would present nothing at all.
KEL_HTTP_EXPORT CURLcode setupDeviceSSLCTXCallback(CURL* curl, void* sslctx, void* config);

// Installs `config.verifier`, which has the last word on the chain then, and its text. The context gets a copy of the
// text, because it lives as long as the connection. Stops the process when the verifier is no plain function.
KEL_HTTP_EXPORT CURLcode setupVerifierCallback(CURL* curl, void* sslctx, void* config);

// Lets a chain end at any trusted certificate.
KEL_HTTP_EXPORT CURLcode configurePartialChain(CURL* curl, void* sslctx, void* config);

// Presents the device's certificate (MIC) from the secure store.
KEL_HTTP_EXPORT CURLcode setMicToCtx(CURL* curl, void* sslctx, void* config);

// Frees what is not null.
KEL_HTTP_EXPORT void addMicToCtxCleanup(x509_st* certificate, evp_pkey_st* key);

}  // namespace kel::http::tls
