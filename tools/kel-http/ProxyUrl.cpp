// SPDX-License-Identifier: MIT
#include "ProxyUrl.h"

#include <fmt/format.h>

#include "kel-http/QueryEncoder.h"

namespace kel::http::tool {
namespace {

constexpr std::string_view scheme_end = "://";

std::string_view up_to_login(std::string_view url) {
    const auto end = url.find(scheme_end);
    return end == std::string_view::npos ? std::string_view() : url.substr(0, end + scheme_end.size());
}

}  // namespace

std::string_view scheme_of(std::string_view url) {
    const auto end = url.find(scheme_end);
    return end == std::string_view::npos ? std::string_view() : url.substr(0, end);
}

std::string_view login_in(std::string_view url) {
    const std::string_view rest = url.substr(up_to_login(url).size());
    const auto at = rest.rfind('@');
    return at == std::string_view::npos ? std::string_view() : rest.substr(0, at);
}

std::string_view host_of(std::string_view url) {
    const std::string_view rest = url.substr(up_to_login(url).size());
    const auto at = rest.rfind('@');
    return at == std::string_view::npos ? rest : rest.substr(at + 1);
}

std::string without_login(std::string_view url) {
    return std::string(up_to_login(url)).append(host_of(url));
}

std::string with_login(std::string_view url, const std::string& user, const std::string& password) {
    const std::string_view start = up_to_login(url);
    const std::string_view host = url.substr(start.size());
    return fmt::format("{}{}:{}@{}", start, encodeURIComponent(user), encodeURIComponent(password), host);
}

}  // namespace kel::http::tool
