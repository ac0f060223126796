// SPDX-License-Identifier: MIT
#include "parties/Credentials.h"

#include <openssl/evp.h>

#include <array>
#include <vector>

namespace kel::http::simulation {
namespace {

constexpr std::string_view realm = "a realm";
constexpr std::string_view nonce = "n0nce";

std::string joined(std::string_view one, std::string_view other) {
    return std::string(one).append(":").append(other);
}

std::string md5(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_md5(), nullptr);
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (unsigned int place = 0; place < size; ++place) {
        hex += digits[digest[place] / 16U];
        hex += digits[digest[place] % 16U];
    }
    return hex;
}

std::string quotedIn(const std::string& header, const std::string& name) {
    const auto begin = header.find(name + "=\"");
    if (begin == std::string::npos) return {};
    const auto first = begin + name.size() + 2;
    return header.substr(first, header.find('"', first) - first);
}

// RFC 7616 without "qop", which needs no number of the client's.
bool isRightDigest(const std::string& header, const std::string& method) {
    const std::string whose = md5(joined(joined(server_user, realm), server_password));
    const std::string what = md5(joined(method, quotedIn(header, "uri")));
    return quotedIn(header, "response") == md5(joined(joined(whose, nonce), what));
}

}  // namespace

std::string basicCredentials(std::string_view user, std::string_view password) {
    const std::string text = joined(user, password);
    std::vector<unsigned char> encoded(text.size() * 2 + 8);
    const int size = EVP_EncodeBlock(encoded.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    return "Basic " + std::string(encoded.begin(), encoded.begin() + size);
}

std::string challengeLines(Challenge challenge) {
    std::string lines;
    if (challenge == Challenge::digest || challenge == Challenge::both) {
        lines.append("WWW-Authenticate: Digest realm=\"").append(realm).append("\", nonce=\"");
        lines.append(nonce).append("\", algorithm=MD5\r\n");
    }
    if (challenge == Challenge::basic || challenge == Challenge::both) {
        lines.append("WWW-Authenticate: Basic realm=\"").append(realm).append("\"\r\n");
    }
    return lines;
}

std::string headerIn(const std::string& head, const std::string& name) {
    const auto line = head.find("\r\n" + name + ": ");
    if (line == std::string::npos) return {};
    const auto begin = line + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

bool satisfies(const std::string& head, Challenge challenge) {
    const std::string told = headerIn(head, "Authorization");
    const bool by_basic = challenge == Challenge::basic || challenge == Challenge::both;
    const bool by_digest = challenge == Challenge::digest || challenge == Challenge::both;
    if (told.compare(0, 6, "Basic ") == 0) {
        return by_basic && told == basicCredentials(server_user, server_password);
    }
    return by_digest && told.compare(0, 7, "Digest ") == 0 && isRightDigest(told, head.substr(0, head.find(' ')));
}

}  // namespace kel::http::simulation
