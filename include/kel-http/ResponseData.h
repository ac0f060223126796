// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <tl/optional.hpp>

#include "kel-http/Export.h"
#include "kel-http/HeaderMap.h"
#include "kel-http/TimingData.h"

namespace kel::http {

// What the server answered. Every status is a response, those of errors as well.
struct KEL_HTTP_EXPORT ResponseData {
    // Copy the headers and the body; no redirect, no timing data.
    ResponseData(int status, const HeaderMap& headers, const std::string& body);
    // The same with what is known of redirects.
    ResponseData(int status, const HeaderMap& headers, const std::string& body, tl::optional<std::string> redirect_url,
                 int redirect_count);

    // The HTTP status.
    int status;

    // The headers of all answers of this transfer, interim ones, redirects and authentication rounds included. Of
    // headers with the same name only the first one is kept, so after a followed redirect "Location" and "Content-Type"
    // are those of the first answer.
    HeaderMap headers;

    // The body. For a download, whose body is the file, its checksum when ClientOptions::download_digest asks for one,
    // else empty.
    std::string body;

    // With RequestConfig::caller_handles_redirects the target of a redirect; otherwise the URL that answered in the
    // end, redirected or not.
    tl::optional<std::string> redirect_url;

    // How many transfers this request took: 1, and one more for each proxy that was tried in vain.
    int redirect_count;

    // Set when RequestConfig::timing_data asked for it.
    tl::optional<TimingData> timing_data;
};

}  // namespace kel::http
