// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <string>
#include <string_view>

namespace kel::http {

// What of a trace line may be logged: the line with credentials concealed. This is the one place that decides so.
//
// A header, sent or received, whose name holds "authorization", "cookie", "token", "secret" or "api-key", in any letter
// case, keeps its name; "xxxxxx" stands for the value. In other lines that are sent everything from "Authorization:" to
// the end becomes "Authorization: xxxxxx". The user and password of an URL in a header become "xxxxxx". libcurl's own
// text is treated by concealedText(); bodies stay as they are.
std::string concealCredentials(curl_infotype type, std::string_view line);

// A text of libcurl's own, as a whole: its trace, or the error that it tells. Headers in it ("[cookie: ...]") are treated
// as above, to the end of the text; so are the values of cookies that it has stored, and the credentials in URLs and
// proxies, whether they are of any use or not.
std::string concealedText(std::string_view text);

// The same for the text that libcurl has written to its buffer for errors, in its place. Empty when there is no memory.
void concealError(std::array<char, CURL_ERROR_SIZE>& buffer) noexcept;

// Whether the value of this header is concealed, and with it those of the lines that continue it.
bool isSecretHeader(std::string_view line);

// `text` without white space, as the global locale knows it, at both ends.
std::string_view trimmed(std::string_view text);

}  // namespace kel::http
