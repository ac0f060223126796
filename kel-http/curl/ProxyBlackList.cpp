// SPDX-License-Identifier: MIT
#include "kel-http/curl/ProxyBlackList.h"

#include <algorithm>
#include <iterator>

#include "kel-http/model/Conceal.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

constexpr std::chrono::seconds listing_time{1800};

// `format` has two places, for the function and for the proxy, whose credentials are nobody's business.
void writeAbout(logging::Logger& logger, std::string_view format, const char* function, const std::string& proxy) {
    if (logger.verbosity() < log_level::detail) return;
    writeLine(logger, log_level::detail, format, function, concealedProxy(proxy));
}

}  // namespace

ProxyBlackList::ProxyBlackList(Clock clock_to_read)
    : clock(clock_to_read), logger(logging::getLogger("HttpClient", 0)) {}

void ProxyBlackList::fail(const std::string& proxy) {
    writeAbout(*logger, "ProxyBlackList::{}: Failure => list '{}'", "fail", proxy);
    listed[proxy] = clock();
}

void ProxyBlackList::success(const std::string& proxy) {
    const auto found = listed.find(proxy);
    if (found == listed.end()) return;
    writeAbout(*logger, "ProxyBlackList::{}: Success => un-list '{}'", "success", proxy);
    listed.erase(found);
}

void ProxyBlackList::purge_old() {
    const TimePoint threshold = clock() - listing_time;
    for (auto entry = listed.begin(); entry != listed.end();) {
        const bool old = entry->second <= threshold;
        if (old) writeAbout(*logger, "ProxyBlackList::{}: Un-listing '{}'", "purge_old", entry->first);
        entry = old ? listed.erase(entry) : std::next(entry);
    }
}

void ProxyBlackList::sortProxies(std::list<std::string>& proxies) {
    purge_old();
    std::list<std::string> last;
    for (auto proxy = proxies.begin(); proxy != proxies.end();) {
        const auto current = proxy++;
        if (listed.count(*current) != 0) last.splice(last.end(), proxies, current);
    }
    proxies.splice(proxies.end(), last);
}

std::string ProxyBlackList::dump(const std::list<std::string>& proxies) const {
    std::string text =
        fmt::format("Available proxies: {} {}\n", proxies.size(), proxies.size() == 1 ? "entry" : "entries");
    std::size_t index = 0;
    for (const std::string& proxy : proxies) {
        text += fmt::format(" [{}] {}", index++, proxy.empty() ? "(empty)" : concealedProxy(proxy));
        const auto found = listed.find(proxy);
        if (found != listed.end()) {
            const auto age = std::chrono::duration_cast<std::chrono::seconds>(clock() - found->second);
            text += fmt::format(" <= listed {} ago", static_cast<long long>(age.count()));
        }
        text += '\n';
    }
    return text;
}

}  // namespace kel::http
