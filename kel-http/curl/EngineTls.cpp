// SPDX-License-Identifier: MIT
#include "certificate/certificate.h"
#include "kel-http/curl/Engine.h"

namespace kel::http {
namespace {

// Above libcurl's own floor: what is older is broken.
constexpr MinTlsVersion default_floor = MinTlsVersion::tls1_1;

long curlTlsVersion(MinTlsVersion version) {
    switch (version) {
        case MinTlsVersion::tls1_0:
            return CURL_SSLVERSION_TLSv1_0;
        case MinTlsVersion::tls1_1:
            return CURL_SSLVERSION_TLSv1_1;
        case MinTlsVersion::tls1_2:
            break;
    }
    return CURL_SSLVERSION_TLSv1_2;
}

const char* pathOrNull(const std::string& path) {
    return path.empty() ? nullptr : path.c_str();
}

// Null is not libcurl's default: it means that no file is trusted.
void setCaFile(CURL* easy, const tl::optional<std::string>& file) {
    if (file) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, pathOrNull(*file));
    } else if (certificate::ca_pem_exists("default")) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, certificate::ca_path("default").c_str());
    } else {
        curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
    }
}

}  // namespace

void Engine::addTlsConfig(void* easy, std::shared_ptr<Request> request) {
    const RequestConfig& config = request->config;
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, curlTlsVersion(config.min_tls_version.value_or(default_floor)));
    if (!config.tls_verify) {
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        return;
    }
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    setCaFile(easy, config.ca_file);
    curl_easy_setopt(easy, CURLOPT_CAPATH, config.ca_dir ? pathOrNull(*config.ca_dir) : nullptr);
}

}  // namespace kel::http
