// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "Script.h"

namespace kel::http::simulation {

// The users that servers and proxies know. What is in them needs escapes in URLs and quotes in headers.
constexpr std::string_view server_user = "the user";
constexpr std::string_view server_password = "pass word";
constexpr std::string_view proxy_user = "proxy user";
constexpr std::string_view proxy_password = "s@cret";

// What "Authorization: Basic" says of these.
std::string basicCredentials(std::string_view user, std::string_view password);

// The header lines by which a server asks.
std::string challengeLines(Challenge challenge);

// Whether a request with this head tells the server's user and password in a way that suits the challenge.
bool satisfies(const std::string& head, Challenge challenge);

// The value of a header line, empty where there is none. `name` is written as libcurl does.
std::string headerIn(const std::string& head, const std::string& name);

}  // namespace kel::http::simulation
