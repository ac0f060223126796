// SPDX-License-Identifier: MIT
// Any text as a URL: whose cookies it gets, libcurl and the code for older releases of it have to agree.
#include "uri/uri.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>

#include "authority.h"
#include "ko/assert.h"

namespace {

bool ends_host(char character) {
    return static_cast<unsigned char>(character) <= ' ' || std::string("/?#@").find(character) != std::string::npos;
}

bool has_no_delimiter(const std::string& host) {
    return std::none_of(host.begin(), host.end(), ends_host);
}

bool is_of_name(unsigned char character) {
    return std::isalnum(character) || character == '-' || character == '.' || character == '_';
}

// Of other hosts, numbers for example, libcurl makes another text.
bool is_plain_name(const std::string& host) {
    return !host.empty() && std::isalpha(static_cast<unsigned char>(host.front())) &&
           std::all_of(host.begin(), host.end(), is_of_name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string url = text.substr(0, text.find('\0'));  // libcurl reads no further
    const std::string host = uri::uri(url).authority_host();
    const std::string host_without_libcurl = uri::host_in(url);
    KO_ASSERT(has_no_delimiter(host));
    KO_ASSERT(has_no_delimiter(host_without_libcurl));
    // An escape is decoded by libcurl alone.
    if (is_plain_name(host) && url.find('%') == std::string::npos) KO_ASSERT(host == host_without_libcurl);
    return 0;
}
