// SPDX-License-Identifier: MIT
#include "kel-http/curl/TraceText.h"

#include <algorithm>
#include <array>
#include <exception>
#include <locale>

#include "kel-http/model/AsciiCase.h"
#include "kel-http/model/Conceal.h"

namespace kel::http {
namespace {

constexpr std::string_view mask = "xxxxxx";
constexpr std::string_view blanks = " \t";
constexpr auto npos = std::string_view::npos;

bool isSecretName(std::string_view name) {
    constexpr std::array<std::string_view, 5> words = {"authorization", "cookie", "token", "secret", "api-key"};
    return std::any_of(words.begin(), words.end(), [name](std::string_view word) {
        return std::search(name.begin(), name.end(), word.begin(), word.end(), equalIgnoringCase) != name.end();
    });
}

// The first line of a request or of an answer. It may hold a colon, too.
bool isStartLine(std::string_view line) {
    constexpr std::string_view protocol = "HTTP/";
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
    const auto last = line.find_last_of(blanks);
    return line.substr(0, protocol.size()) == protocol ||
           (last != npos && line.substr(last + 1, protocol.size()) == protocol);
}

// Empty for a line that is no header. A name with a blank in it is none, but what a server makes of one may be a secret.
std::string_view nameOf(std::string_view line) {
    std::string_view name = line.substr(0, line.find(':'));
    if (name.size() == line.size()) return {};
    name = name.substr(0, name.find_last_not_of(blanks) + 1);
    return name.find_first_of(blanks) != npos && isStartLine(line) ? std::string_view() : name;
}

std::string concealHeaderLine(curl_infotype type, std::string_view line) {
    if (isSecretHeader(line)) return std::string(line.substr(0, line.find(':'))).append(": ").append(mask);
    constexpr std::string_view marker = "Authorization:";
    const auto position = type == CURLINFO_HEADER_OUT ? line.find(marker) : npos;
    if (position == npos) return concealedUrls(line);
    return concealedUrls(line.substr(0, position)).append(marker).append(" ").append(mask);
}

// "Added cookie name="value" for domain example.com, path /, expire 0". The value may say so as well.
std::string concealedCookie(std::string_view text) {
    constexpr std::string_view sign = "=\"";
    constexpr std::string_view behind = "\" for domain ";
    const auto word = text.find(" cookie ");
    const auto begin = word == npos ? npos : text.find(sign, word);
    if (begin == npos) return std::string(text);
    const auto value = begin + sign.size();
    const auto end = text.rfind(behind);
    std::string concealed(text.substr(0, value));
    concealed.append(mask);
    if (end != npos && end >= value) concealed.append(text.substr(end));
    return concealed;
}

// "Unsupported proxy syntax in 'user:password@host'", "Uses proxy env variable http_proxy == 'user:password@host'".
bool quotesProxy(std::string_view text) {
    return startsWithIgnoringCase(text, "Unsupported proxy ") ||
           startsWithIgnoringCase(text, "Uses proxy env variable ");
}

// A password may hold the quotation mark that libcurl writes at both ends, and a long text has lost its last one.
std::string concealedQuotation(std::string_view text) {
    const auto begin = text.find('\'') + 1;  // 0: there is none
    const auto end = text.rfind('\'');
    std::string concealed(text.substr(0, begin));
    const bool is_whole =
        end >= begin && end != npos && (end + 1 == text.size() || text[end + 1] == ':' || text[end + 1] == ',');
    if (!is_whole) return concealed.append(mask);
    return concealed.append(concealedProxy(text.substr(begin, end - begin))).append(text.substr(end));
}

bool isNameCharacter(char c) {
    constexpr std::string_view others = "!#$%&*+-.^_`|~";
    const char lower = asciiLower(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || others.find(c) != npos;
}

// The position behind "name: " of the first header in `text` that is secret, or npos.
std::size_t findSecret(std::string_view text) {
    constexpr std::string_view separator = ": ";
    for (auto colon = text.find(separator); colon != npos; colon = text.find(separator, colon + 1)) {
        auto begin = colon;
        while (begin > 0 && isNameCharacter(text[begin - 1])) --begin;
        if (isSecretName(text.substr(begin, colon - begin))) return colon + separator.size();
    }
    return npos;
}

// URLs without a scheme, too: "user:password@host". The mail address of a user is none.
std::string concealedWords(std::string_view text) {
    constexpr std::string_view ends = " \t\r\n'\"";
    std::string concealed;
    while (!text.empty()) {
        const auto begin = std::min(text.find_first_not_of(ends), text.size());
        concealed.append(text.substr(0, begin));
        text.remove_prefix(begin);
        const std::string_view word = text.substr(0, text.find_first_of(ends));
        const auto at = word.rfind('@');
        const bool has_password = at != npos && word.find(':') < at;
        concealed.append(has_password ? concealedUrl(word) : std::string(word));
        text.remove_prefix(word.size());
    }
    return concealed;
}

}  // namespace

bool isSecretHeader(std::string_view line) {
    return isSecretName(nameOf(line));
}

std::string concealCredentials(curl_infotype type, std::string_view line) {
    if (type == CURLINFO_HEADER_IN || type == CURLINFO_HEADER_OUT) return concealHeaderLine(type, line);
    if (type == CURLINFO_TEXT) return concealedText(line);
    return std::string(line);
}

// A value may hold brackets itself, and libcurl cuts long lines: only a bracket at the very end closes it.
std::string concealedText(std::string_view text) {
    const std::string proxyless = quotesProxy(text) ? concealedQuotation(text) : std::string();
    if (!proxyless.empty()) text = proxyless;
    const auto secret = findSecret(text);
    std::string concealed = concealedWords(concealedUrls(concealedCookie(text.substr(0, secret))));
    if (secret == npos) return concealed;
    concealed.append(mask);
    if (text.back() == ']') concealed.push_back(']');
    return concealed;
}

void concealError(std::array<char, CURL_ERROR_SIZE>& buffer) noexcept {
    try {
        const std::string concealed = concealedText(buffer.data());
        buffer[concealed.copy(buffer.data(), buffer.size() - 1)] = '\0';
    } catch (const std::exception&) {
        buffer.front() = '\0';
    }
}

std::string_view trimmed(std::string_view text) {
    const std::locale locale;
    const auto isSpace = [&locale](char c) { return std::isspace(c, locale); };
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace kel::http
