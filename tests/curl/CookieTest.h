// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "fixture/CookieFolder.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {

using Cookies = std::vector<std::string>;

// Names of one host, of its domain and of a host beside it.
constexpr const char* Device = "device.kel.localhost";
constexpr const char* Parent = "kel.localhost";
constexpr const char* Sibling = "other.kel.localhost";

// One engine with a cookie file of its own, and the scripted server under many names: libcurl finds all names that end
// in ".localhost" on the loopback interface.
class CookieTest : public EngineTest {
 protected:
    CookieTest();
    ~CookieTest() override;

    // A GET of the server's `path` under the name `host`.
    RequestConfig to(const std::string& host, CookieJar jar = CookieJar::ro_cookies,
                     const std::string& path = "/") const;

    // Runs the request until it has been answered and its handle is gone. Returns the cookies that it carried, those of
    // the last one in a chain of redirects.
    Cookies carried(const RequestConfig& config, const Reply& reply = Reply(200));
    // The same for a request whose own cookies do not matter: the answer brings these.
    void receive(const RequestConfig& config, const std::vector<std::string>& set_cookies);

    // Ends the engine and makes another one, which knows no cookies.
    void restart();

    CookieFolder folder;
};

}  // namespace kel::http::test
