// SPDX-License-Identifier: MIT
#include "torture/Digest.h"

#include <openssl/evp.h>

#include <array>
#include <cstdio>

namespace kel::http::torture {
namespace {

std::string md5(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), bytes.data(), &size, EVP_md5(), nullptr);
    std::string digits;
    for (unsigned int i = 0; i < size; ++i) {
        std::array<char, 3> two{};
        std::snprintf(two.data(), two.size(), "%02x", bytes[i]);
        digits += two.data();
    }
    return digits;
}

// The value of `name="value"` or `name=value`.
std::string field(const std::string& header, const std::string& name) {
    std::size_t begin = header.find(' ' + name + '=');
    if (begin == std::string::npos) return {};
    begin += name.size() + 2;
    if (header[begin] == '"') return header.substr(begin + 1, header.find('"', begin + 1) - begin - 1);
    return header.substr(begin, header.find_first_of(", ", begin) - begin);
}

}  // namespace

bool isAuthorized(const test::ReceivedRequest& request) {
    const std::string header = request.header("Authorization").value_or("");
    const std::string secret = md5(std::string(digest_user) + ":here:" + digest_password);
    const std::string what = md5(request.method + ':' + request.target);
    const std::string answer =
        md5(secret + ":0123456789:" + field(header, "nc") + ':' + field(header, "cnonce") + ":auth:" + what);
    return !header.empty() && field(header, "response") == answer && field(header, "username") == digest_user;
}

std::string withoutChance(const std::string& header_line, const test::ReceivedRequest& request) {
    if (header_line.find("Authorization:") != 0) return header_line;
    return isAuthorized(request) ? "Authorization: right" : header_line;
}

}  // namespace kel::http::torture
