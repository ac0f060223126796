// SPDX-License-Identifier: MIT
#include "kel-http/QueryEncoder.h"

#include <string_view>

namespace {

constexpr std::string_view always_kept = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view hex_digits = "0123456789ABCDEF";

std::string percent_encode(std::string_view text, std::string_view also_kept) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (always_kept.find(c) != std::string_view::npos || also_kept.find(c) != std::string_view::npos) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += '%';
        encoded += hex_digits[byte >> 4U];
        encoded += hex_digits[byte & 0x0FU];
    }
    return encoded;
}

}  // namespace

std::string encodeURIComponent(const std::string& text) {
    return percent_encode(text, "-_.!~*'()");
}

std::string encodeURI(const std::string& text) {
    return percent_encode(text, ";,/?:@&=+$-_.!~*'()#");
}

namespace kel::http {

QueryEncoder::QueryEncoder() = default;

void QueryEncoder::addParameter(const std::string& name, const std::string& value) {
    if (!query_.empty()) query_ += '&';
    query_ += encodeURIComponent(name);
    query_ += '=';
    query_ += encodeURIComponent(value);
}

void QueryEncoder::addParameter(const std::string& name, int value) {
    addParameter(name, std::to_string(value));
}

std::string QueryEncoder::getQueryString() const {
    return query_;
}

}  // namespace kel::http
