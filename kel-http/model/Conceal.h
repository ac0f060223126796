// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

// What stands before the `@` of an URL, user and password, has no business in a log: "xxxxxx" stands in its place.
namespace kel::http {

// `text` with the credentials of each URL that stands in it, one behind "://", concealed.
std::string concealedUrls(std::string_view text);

// The same for an URL on its own, which may have no scheme.
std::string concealedUrl(std::string_view url);

// The same for a proxy, which has no path: all up to the last `@` is concealed but the scheme, however wrong the rest may
// be. A password in which a slash was not encoded is not the host that comes before its `@`.
std::string concealedProxy(std::string_view proxy);

}  // namespace kel::http
