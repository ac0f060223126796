// SPDX-License-Identifier: MIT
#include "kel-http/RequestConfig.h"

#include <algorithm>
#include <array>

#include "kel-http/model/AsciiCase.h"
#include "kel-http/model/Conceal.h"

namespace kel::http {
namespace {

std::string flags_of(const RequestConfig& config) {
    std::vector<std::string> words;
    if (config.reset_state) words.emplace_back("reset-state");
    if (config.tls_verify) words.emplace_back("tls-verify");
    if (config.tls_partial_chain) words.emplace_back("tls-partial-chain");
    words.emplace_back(config.caller_handles_redirects ? "caller-handles-redirects" : "curl-handles-redirects");
    if (config.min_tls_version) words.emplace_back(name_of(*config.min_tls_version));
    if (config.ip_version != IPVersion::Any) words.emplace_back(name_of(config.ip_version));
    words.emplace_back(name_of(config.cookie_jar));
    words.emplace_back(name_of(config.proxy));
    std::sort(words.begin(), words.end());
    return fmt::format("{}", fmt::join(words, ", "));
}

void add_optional_line(std::list<std::string>& lines, std::string_view label, const tl::optional<std::string>& value) {
    if (value) lines.push_back(fmt::format("{}{}", label, value->empty() ? "(empty)" : *value));
}

}  // namespace

std::string RequestConfig::fqdn() const {
    constexpr std::array<std::string_view, 2> schemes = {"https://", "http://"};
    for (const std::string_view scheme : schemes) {
        if (!startsWithIgnoringCase(url, scheme)) continue;
        // An authority has one character at least, so the search starts behind it.
        const auto slash = url.find('/', scheme.size() + 1);
        return url.substr(scheme.size(), slash == std::string::npos ? slash : slash - scheme.size());
    }
    return url;
}

std::list<std::string> RequestConfig::dump() const {
    std::list<std::string> lines;
    lines.push_back(fmt::format("HTTP: Outgoing => {} {}", method, concealedUrl(url)));
    lines.push_back(fmt::format("AuthMethod : {}", auth_method));
    lines.push_back(fmt::format("Flags      : {}", flags_of(*this)));
    add_optional_line(lines, "CA file    : ", ca_file);
    add_optional_line(lines, "CA dir     : ", ca_dir);
    add_optional_line(lines, "Own cert   : ", own_cert);
    add_optional_line(lines, "Own pkey   : ", own_pkey);
    if (verifier) lines.emplace_back("Verifier   : On");
    add_optional_line(lines, "    w/data : ", verifier_data);
    if (size_limit) lines.push_back(fmt::format("Size limit : {}", *size_limit));
    lines.push_back(fmt::format("BODY       : {} bytes", body.size()));
    return lines;
}

}  // namespace kel::http
