// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <list>
#include <map>
#include <string>

#include "logging/Logger.h"

namespace kel::http {

// The proxies that failed within the last 30 minutes. Requests try them last. Engine thread.
// An Engine holds one; programs can not make one, as the shared library does not export it.
class ProxyBlackList {
 public:
    // Tells the time.
    using Clock = std::chrono::steady_clock::time_point (*)();

    // An empty list.
    explicit ProxyBlackList(Clock clock_to_read = &std::chrono::steady_clock::now);

    // Lists a proxy; one that is listed already, from now on.
    void fail(const std::string& proxy);

    // Takes a proxy off the list.
    void success(const std::string& proxy);

    // Takes those off the list that have been there for 30 minutes.
    void purge_old();

    // Purges, then moves the listed proxies behind the others; both keep their order.
    void sortProxies(std::list<std::string>& proxies);

    // Text for a log: each of `proxies` in a line, and for how many seconds it has been listed.
    std::string dump(const std::list<std::string>& proxies) const;

 private:
    using TimePoint = std::chrono::steady_clock::time_point;

    const Clock clock;
    std::map<std::string, TimePoint> listed;
    logging::Logger* const logger;
};

}  // namespace kel::http
