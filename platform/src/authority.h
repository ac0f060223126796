// SPDX-License-Identifier: MIT
#ifndef URI_AUTHORITY_H
#define URI_AUTHORITY_H

#include <algorithm>
#include <string>

namespace uri {

// The host of a URL, found without libcurl's help, whose URL interface came with 7.62.
inline std::string host_in(const std::string& url) {
    const auto is_control_or_blank = [](char character) { return static_cast<unsigned char>(character) <= ' '; };
    if (std::any_of(url.begin(), url.end(), is_control_or_blank)) return {};
    // As libcurl has it: one slash behind the colon is enough, and a URL in the path or query is no concern of the host.
    // With more than three slashes libcurl refuses the request, so that its host does not matter.
    const auto slash = url.find_first_of("/?#");
    const bool has_scheme = slash != std::string::npos && slash > 0 && url[slash] == '/' && url[slash - 1] == ':';
    const auto start = has_scheme ? std::min(url.find_first_not_of('/', slash), url.size()) : 0;
    std::string authority = url.substr(start, url.find_first_of("/?#", start) - start);
    authority.erase(0, authority.rfind('@') + 1);  // user and password; npos + 1 is 0
    if (!authority.empty() && authority.front() == '[') {
        const auto bracket = authority.find(']');
        return bracket == std::string::npos ? std::string() : authority.substr(1, bracket - 1);
    }
    return authority.substr(0, authority.find(':'));
}

}  // namespace uri

#endif  // URI_AUTHORITY_H
