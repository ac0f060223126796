// SPDX-License-Identifier: MIT
#include "kel-http/model/Conceal.h"

#include <algorithm>

#include "kel-http/model/AsciiCase.h"

namespace kel::http {
namespace {

constexpr std::string_view mask = "xxxxxx";
constexpr std::string_view marker = "://";
constexpr auto npos = std::string_view::npos;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSchemeCharacter(char c) {
    const char lower = asciiLower(c);
    return (lower >= 'a' && lower <= 'z') || isDigit(c) || c == '+' || c == '-' || c == '.';
}

// Where the host begins that `url` is said to have; 0 when it does not say.
std::size_t endOfScheme(std::string_view url) {
    const auto colon = url.find(marker);
    if (colon == npos || colon == 0) return 0;
    const bool is_scheme =
        std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(colon), isSchemeCharacter);
    return is_scheme ? colon + marker.size() : 0;
}

// "user:pass" of "user:pass/word@host": no host has such a port.
bool hasImpossiblePort(std::string_view authority) {
    const auto bracket = authority.rfind(']');
    if (bracket != npos) authority.remove_prefix(bracket);
    const auto colon = authority.find(':');
    if (colon == npos) return false;
    const std::string_view port = authority.substr(colon + 1);
    return port.empty() || !std::all_of(port.begin(), port.end(), isDigit);
}

// The position of the `@` behind the credentials with which `rest` begins, or npos.
std::size_t endOfCredentials(std::string_view rest) {
    const auto first = rest.find_first_not_of('/');
    if (first == npos) return npos;
    const auto end = rest.find_first_of("/?#", first);
    const std::string_view authority = rest.substr(0, end);
    const auto at = authority.rfind('@');
    if (at == npos && end != npos && hasImpossiblePort(authority)) return rest.rfind('@');
    return at;
}

}  // namespace

std::string concealedUrls(std::string_view text) {
    std::string concealed;
    concealed.reserve(text.size());
    for (auto found = text.find(marker); found != npos; found = text.find(marker)) {
        concealed.append(text.substr(0, found + marker.size()));
        text.remove_prefix(found + marker.size());
        const auto at = endOfCredentials(text);
        if (at == npos) continue;
        concealed.append(mask);
        text.remove_prefix(at);
    }
    return concealed.append(text);
}

std::string concealedUrl(std::string_view url) {
    const auto at = endOfScheme(url) == 0 ? endOfCredentials(url) : npos;
    if (at == npos) return concealedUrls(url);
    return std::string(mask).append(concealedUrls(url.substr(at)));
}

std::string concealedProxy(std::string_view proxy) {
    const auto at = proxy.rfind('@');
    if (at == npos) return std::string(proxy);
    const auto scheme = endOfScheme(proxy);
    return std::string(proxy.substr(0, scheme <= at ? scheme : 0)).append(mask).append(proxy.substr(at));
}

}  // namespace kel::http
