// SPDX-License-Identifier: MIT
// The cookies in force on their own: no engine, no transfer that runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kel-http/curl/EngineCookies.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EngineCookieStoreTest : public ::testing::Test {
 protected:
    EngineCookieStoreTest() { cookies.open(); }
    ~EngineCookieStoreTest() override {
        for (CURL* const easy : {one, other}) curl_easy_cleanup(easy);
        cookies.close();
    }

    static RequestConfig with(CookieJar jar) {
        RequestConfig config;
        config.url = "http://host.test/";
        config.cookie_jar = jar;
        return config;
    }

    static void put(CURL* easy, const std::string& host, const std::string& name) {
        curl_easy_setopt(easy, CURLOPT_COOKIELIST, (host + "\tFALSE\t/\tFALSE\t0\t" + name + "\tvalue").c_str());
    }

    // libcurl lists what has expired until it looks at it next; session cookies expire at 0.
    static std::vector<std::string> namesIn(CURL* easy) {
        curl_slist* list = nullptr;
        curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &list);
        std::vector<std::string> names;
        for (const curl_slist* line = list; line != nullptr; line = line->next) {
            std::istringstream columns(line->data);
            std::string domain, subdomains, path, secure, name;
            std::time_t expiry = 0;
            columns >> domain >> subdomains >> path >> secure >> expiry >> name;
            if (expiry == 0 || expiry > std::time(nullptr)) names.push_back(name);
        }
        curl_slist_free_all(list);
        return names;
    }

    EngineCookies cookies{*logging::getLogger("HttpClient", 0)};
    CookieSave save;
    CURL* const one = curl_easy_init();
    CURL* const other = curl_easy_init();
};

TEST_F(EngineCookieStoreTest, TransfersWithAJarShareCookies) {
    cookies.addCookies(one, with(CookieJar::ro_cookies), save);
    cookies.addCookies(other, with(CookieJar::ro_cookies), save);
    put(one, "host.test", "shared");
    EXPECT_THAT(namesIn(other), ElementsAre("shared"));
}

TEST_F(EngineCookieStoreTest, ATransferWithoutAJarHasNone) {
    cookies.addCookies(one, with(CookieJar::ro_cookies), save);
    cookies.addCookies(other, with(CookieJar::no_cookies), save);
    put(one, "host.test", "shared");
    EXPECT_THAT(namesIn(other), IsEmpty());
}

TEST_F(EngineCookieStoreTest, RefusedJarIsNotLeftOut) {
    for (const CookieJar jar : {CookieJar::ro_cookies, CookieJar::rw_cookies}) {
        EXPECT_THROW(cookies.addCookies(nullptr, with(jar), save), std::runtime_error);
        EXPECT_THROW(cookies.addFreshCookies(nullptr, with(jar), save), std::runtime_error);
    }
    // Nor are the TLS sessions of those without one: they take the place of a jar.
    EXPECT_THROW(cookies.addCookies(nullptr, with(CookieJar::no_cookies), save), std::runtime_error);
}

TEST_F(EngineCookieStoreTest, StartingAfreshForgetsTheCookiesOfThatHostOnly) {
    const RequestConfig config = with(CookieJar::ro_cookies);
    cookies.addCookies(one, config, save);
    put(one, "host.test", "gone");
    put(one, "elsewhere.test", "kept");
    cookies.addFreshCookies(one, config, save);
    EXPECT_THAT(namesIn(one), ElementsAre("kept"));
}

}  // namespace
}  // namespace kel::http::test
