// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kel-http/RequestConfig.h"
#include "kel-http/ResponseData.h"

namespace kel::http::soak {

using Random = std::mt19937;

// Less than `limit`; the same numbers on every machine.
inline unsigned below(Random& random, unsigned limit) {
    return static_cast<unsigned>(random()) % limit;
}

// Where requests go, as URLs without a path at their end.
struct Addresses {
    std::string scripted;  // a server that says whatever its path asks for
    std::string broken;    // the same, whose connections end every now and then
    std::string nginx;
    std::string nginx_tls;                  // with HTTP/2 for who wants it
    std::vector<std::string> dead_proxies;  // each of its own kind
    std::string proxy;
    std::string folder;  // for files that are sent and received; each request has one of its own at most
};

// One request to be sent, and what is expected of its response.
struct Ask {
    RequestConfig config;
    // The file of a download, or empty, and what stands in it before.
    std::string target;
    std::string content_before;
    std::function<bool(const ResponseData&)> isRight;
    // Whether it may end in nothing but a response, when it is left alone and has the time.
    bool succeeds = true;
};

// A kind of requests. `ask` makes one of them; `serial` is a number that no other request has.
struct Kind {
    std::string name;
    std::function<Ask(const Addresses&, Random&, const std::string& serial)> ask;
};

const std::vector<Kind>& kinds();

}  // namespace kel::http::soak
