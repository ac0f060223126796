// SPDX-License-Identifier: MIT
#include "ProxyReport.h"

#include <fmt/format.h>

#include "LineParts.h"
#include "ProxyUrl.h"

namespace kel::http::tool {
namespace {

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

}  // namespace

void ProxyReport::hear(std::string_view line) {
    if (const auto list = after("Available proxies: ", line)) return hear_candidates(*list);
    const std::string_view text = without_request_id(line);
    if (const auto rest = after("Engine::addProxyConfig proxy mode=", text)) return begin(quoted(*rest));
    if (const auto rest = after("HTTP: Incoming <= ", text)) return hear_end(*rest);
    if (const auto rest = after("Engine::processCompletedTasks: CURLINFO_HTTP_CONNECTCODE=", text)) {
        return hear_failure(quoted(*rest));
    }
    if (const auto rest = after("[curl] Uses proxy env variable ", text)) return hear_environment(*rest);
    hear_trace(text);
}

void ProxyReport::begin(std::string_view proxy) {
    proxy_ = without_login(proxy);
    was_asked_ = was_refused_ = false;
    result_.clear();
}

// " [1] http://host:port <= listed 3 ago". The first one is tried, listed or not.
void ProxyReport::hear_candidates(std::string_view list) {
    for (const std::string_view line : lines_of(list)) {
        const auto mark = line.rfind(" <= listed ");
        const auto name = line.find("] ");
        if (mark == std::string_view::npos || name > mark || after(" [0]", line)) continue;
        const std::string proxy = without_login(line.substr(name + 2, mark - name - 2));
        if (told_as_listed_.insert(proxy).second) {
            tell_(fmt::format("the proxy {} is tried last: it has failed a short while ago", proxy));
        }
    }
}

// "http_proxy == 'http://host:port'"
void ProxyReport::hear_environment(std::string_view text) {
    if (after("no_proxy", text) || after("NO_PROXY", text)) return;
    begin(quoted(text));
    was_asked_ = true;
}

void ProxyReport::hear_trace(std::string_view text) {
    if (after("[header OUT] CONNECT ", text) || after("[curl] SOCKS", text)) was_asked_ = true;
    if (after("[curl] connect to ", text) && contains(text, "Connection refused")) was_refused_ = true;
}

// "200, 'No error'"
void ProxyReport::hear_end(std::string_view text) {
    result_ = quoted(text);
    const bool is_answer = !after("0,", text) && !after("-1,", text);
    if (proxy_.empty() || !is_answer) return;
    if (was_asked_) {
        tell_(fmt::format("the proxy {} served the request", proxy_));
    } else {
        tell_(fmt::format("the proxy {} was not asked: this server is reached without one", proxy_));
    }
}

void ProxyReport::hear_failure(std::string_view connect_code) {
    if (proxy_.empty()) return;
    tell_(fmt::format("the proxy {} did not serve the request: {}", proxy_, reason(connect_code)));
}

std::string ProxyReport::reason(std::string_view connect_code) const {
    if (connect_code == "407") return "it wants a login that it knows, see --proxy-user (CONNECT answered 407)";
    const bool is_open = after("2", connect_code).has_value();
    if (!is_open && connect_code != "0") return fmt::format("CONNECT answered {}", connect_code);
    if (was_refused_) return "the connection was refused";
    if (contains(result_, "imeout")) return "it timed out";
    if (contains(result_, "resolve proxy")) return "its address can not be found";
    return is_open ? fmt::format("the server behind it failed ({})", result_) : result_;
}

}  // namespace kel::http::tool
