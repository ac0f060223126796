// SPDX-License-Identifier: MIT
#include "ProxyOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "ProxyUrl.h"
#include "ToolError.h"

namespace kel::http::tool {
namespace {

constexpr const char* password_variable = "KEL_HTTP_PROXY_PASSWORD";

bool is_proxy_scheme(std::string_view scheme) {
    constexpr std::array<std::string_view, 6> schemes = {"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
    return scheme.empty() || std::find(schemes.begin(), schemes.end(), scheme) != schemes.end();
}

// What libcurl would not take for a login, it would take for a host and name in its messages.
void check_url(const std::string& url) {
    if (host_of(url).empty()) usage_error("a --proxy has no host: write it as http://host:port, or use --no-proxy");
    if (login_in(url).find_first_of("/?#@ ") != std::string_view::npos) {
        usage_error("the login in a --proxy URL has a character that must be encoded there: use --proxy-user");
    }
    if (!is_proxy_scheme(scheme_of(url))) {
        usage_error(
            fmt::format("--proxy '{}' is none that can be used: write it as http://host:port", without_login(url)));
    }
}

bool has_login(const std::string& url) {
    return !login_in(url).empty();
}

void split_login(Options& options) {
    const auto colon = options.proxy_user.find(':');
    if (colon != std::string::npos) {
        options.proxy_password = options.proxy_user.substr(colon + 1);
        options.proxy_user.resize(colon);
    } else if (const char* const stored = std::getenv(password_variable)) {
        options.proxy_password = stored;
    }
    if (options.proxy_user.empty()) usage_error("--proxy-user has no name: write it as NAME:PASSWORD");
}

void add_login(Options& options) {
    if (options.proxies.empty()) usage_error("--proxy-user goes with --proxy: give the proxy's URL there");
    if (std::any_of(options.proxies.begin(), options.proxies.end(), has_login)) {
        usage_error("a --proxy URL has a login of its own: leave that out, or --proxy-user");
    }
    split_login(options);
    if (options.proxies.size() == 1) return;
    for (std::string& url : options.proxies) url = with_login(url, options.proxy_user, options.proxy_password);
}

}  // namespace

void add_proxy_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Proxies";
    app.add_option("--proxy", options.proxies, "go through this proxy; several: the first that works")
        ->option_text("URL")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--proxy-user", options.proxy_user,
                   fmt::format("login for the proxies; the password better in ${}", password_variable))
        ->option_text("NAME[:PASSWORD]")
        ->group(group);
    app.add_flag("!--no-proxy", options.use_proxies, "use no proxy, whatever the environment says")->group(group);
}

void check_proxy_options(const CLI::App& app, Options& options) {
    if (!options.use_proxies && !options.proxies.empty()) {
        usage_error("--no-proxy uses no proxy at all: leave it out, or --proxy");
    }
    for (const std::string& url : options.proxies) check_url(url);
    if (app.count("--proxy-user") > 0) add_login(options);
}

}  // namespace kel::http::tool
