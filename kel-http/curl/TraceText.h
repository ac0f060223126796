// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace kel::http {

// What of a trace line may be logged: the line with credentials concealed. This is the one place that decides so.
//
// In an outgoing header block everything from "Authorization:" to the end of the line becomes "Authorization: xxxxxx",
// and the value of a line that begins with that name or with "Proxy-Authorization:", in any letter case, becomes
// "xxxxxx" (over HTTP/2 names are lower case). In libcurl's own text "[authorization: ...]" loses its value in the same
// way: libcurl prints the headers of an HTTP/2 request there as well.
std::string concealCredentials(curl_infotype type, std::string_view line);

// `text` without white space, as the global locale knows it, at both ends.
std::string_view trimmed(std::string_view text);

}  // namespace kel::http
