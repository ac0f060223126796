// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "support/ReceivedRequest.h"

// The server's side of digest authentication (RFC 7616, with MD5).
namespace kel::http::torture {

constexpr const char* digest_user = "user";
constexpr const char* digest_password = "pass word:@%";
constexpr const char* digest_challenge = R"(Digest realm="here", nonce="0123456789", qop="auth", algorithm=MD5)";

// Whether the request carries an answer to that challenge that only who knows the password can give.
bool isAuthorized(const test::ReceivedRequest& request);

// An "Authorization" line without what differs from one run to the next; others as they are.
std::string withoutChance(const std::string& header_line, const test::ReceivedRequest& request);

}  // namespace kel::http::torture
