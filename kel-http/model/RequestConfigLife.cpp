// SPDX-License-Identifier: MIT
// How a record begins, is copied and goes, which each request passes.
#include "kel-http/RequestConfig.h"

namespace kel::http {

RequestConfig::RequestConfig()
    : method(Method::GET),
      auth_method(AuthMethod::ANY),
      body_is_file(false),
      caller_handles_redirects(false),
      tls_verify(true),
      tls_partial_chain(false),
      ip_version(IPVersion::Any),
      cookie_jar(CookieJar::ro_cookies),
      reset_state(false),
      timeout(0),
      timing_data(false),
      resume(false),
      keep_partial_download(false),
      proxy(Proxy::use_proxy) {
    headers.emplace("Content-Type", "text/xml; charset=utf-8");
}

RequestConfig::RequestConfig(Method request_method, const std::string& request_url, const HeaderMap& request_headers,
                             const std::string& request_body, std::chrono::milliseconds request_timeout)
    : RequestConfig() {
    method = request_method;
    url = request_url;
    body = request_body;
    timeout = request_timeout;
    const HeaderMap defaults = headers;
    headers = request_headers;
    headers.insert(defaults.begin(), defaults.end());
}

RequestConfig::RequestConfig(const RequestConfig& other) = default;
RequestConfig& RequestConfig::operator=(const RequestConfig& other) = default;
RequestConfig::~RequestConfig() = default;

}  // namespace kel::http
