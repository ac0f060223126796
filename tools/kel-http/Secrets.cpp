// SPDX-License-Identifier: MIT
#include "Secrets.h"

#include <algorithm>
#include <cstdlib>

#include "ProxyUrl.h"
#include "ProxyVariables.h"

namespace kel::http::tool {

Secrets::Secrets(const Options& options) {
    std::vector<std::string> urls = options.proxies;
    for (const char* const variable : proxy_variables) {
        if (const char* const url = std::getenv(variable)) urls.emplace_back(url);
    }
    for (const std::string& url : urls) {
        if (const auto login = login_in(url); !login.empty()) logins_.push_back(std::string(login) + '@');
    }
    std::sort(logins_.begin(), logins_.end(),
              [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
}

std::string Secrets::conceal(std::string_view text) const {
    constexpr std::string_view mask = "xxxxxx@";
    std::string concealed(text);
    for (const std::string& login : logins_) {
        for (auto at = concealed.find(login); at != std::string::npos; at = concealed.find(login, at + mask.size())) {
            concealed.replace(at, login.size(), mask);
        }
    }
    return concealed;
}

}  // namespace kel::http::tool
