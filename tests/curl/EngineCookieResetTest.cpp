// SPDX-License-Identifier: MIT
#include "curl/CookieTest.h"
#include "curl/LineMatcher.h"
#include "support/GlobalLocale.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* Below = "x.device.kel.localhost";

const std::string ListEmpty = "deleteCookiesFromRequest: curl cookie list empty, no cookies to clear";

std::string deleting(const std::string& name, const std::string& domain) {
    return "deleteCookiesFromRequest: deleting cookie '" + name + "' for domain '" + domain + "'";
}

// The stored cookies of all kinds of domain, as a request to Device sees them.
const std::vector<StoredCookie> Matching = {{Device, "own", "1"},
                                            {Device, "own-session", "1", "/", "0"},
                                            {Device, "own-path", "1", "/deep"},
                                            {"DEVICE.Kel.localhost", "own-case", "1"},
                                            {".kel.localhost", "parent", "1"},
                                            {".KEL.LocalHost", "parent-case", "1"}};
const std::vector<StoredCookie> Spared = {{"#HttpOnly_device.kel.localhost", "hidden", "1"},
                                          {"#HttpOnly_.kel.localhost", "hidden-parent", "1"},
                                          {".device.kel.localhost", "dotted", "1"}};
const std::vector<StoredCookie> Foreign = {{Below, "below", "1"},
                                           {".x.device.kel.localhost", "below-dotted", "1"},
                                           {Sibling, "sibling", "1"},
                                           {"unrelated.example", "unrelated", "1"}};

std::vector<StoredCookie> all() {
    std::vector<StoredCookie> cookies = Matching;
    cookies.insert(cookies.end(), Spared.begin(), Spared.end());
    cookies.insert(cookies.end(), Foreign.begin(), Foreign.end());
    return cookies;
}

// Takes "k" and "x" for one letter.
class LettersWithoutK : public std::ctype<char> {
 protected:
    using std::ctype<char>::do_toupper;
    char do_toupper(char letter) const override { return letter == 'k' ? 'X' : std::ctype<char>::do_toupper(letter); }
};

class EngineCookieResetTest : public CookieTest, public testing::WithParamInterface<CookieJar> {
 protected:
    RequestConfig fresh(const std::string& host, const std::string& path = "/") const {
        RequestConfig config = to(host, GetParam(), path);
        config.reset_state = true;
        return config;
    }

    // The lines that a fresh request writes about its cookies.
    static std::vector<std::string> cookieLines(const LogCapture& log) {
        std::vector<std::string> lines;
        for (const std::string& text : log.texts("HttpClient")) {
            if (text.find("deleteCookiesFromRequest") != std::string::npos) lines.push_back(text);
        }
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(Cookies, EngineCookieResetTest, testing::Values(CookieJar::ro_cookies, CookieJar::rw_cookies),
                         [](const auto& jar) { return jar.param == CookieJar::ro_cookies ? "Read" : "Written"; });

// --- which cookies go ---

TEST_P(EngineCookieResetTest, FirstRequestSendsNoneOfTheMatchingCookiesOfTheFile) {
    folder.store(all());
    EXPECT_THAT(carried(fresh(Device, "/deep")), ElementsAre("dotted=1", "hidden-parent=1", "hidden=1"));
}

TEST_P(EngineCookieResetTest, LaterRequestSendsNoneOfTheMatchingCookiesOfTheFile) {
    folder.store(all());
    EXPECT_THAT(carried(to(Device, CookieJar::ro_cookies, "/deep")),
                ElementsAre("dotted=1", "hidden-parent=1", "hidden=1", "own-case=1", "own-path=1", "own-session=1",
                            "own=1", "parent-case=1", "parent=1"));
    EXPECT_THAT(carried(fresh(Device, "/deep")), ElementsAre("dotted=1", "hidden-parent=1", "hidden=1"));
}

TEST_P(EngineCookieResetTest, NeitherReceivedNorStoredCookiesOfTheHostAreSent) {
    folder.store({{Device, "file", "1"}, {Device, "both", "file"}, {".kel.localhost", "parent", "file"}});
    receive(to(Device), {"live=1", "both=live; Max-Age=1000", "live-parent=1; Domain=kel.localhost",
                         "live-path=1; Path=/deep", "live-empty="});
    EXPECT_THAT(
        carried(to(Device, CookieJar::ro_cookies, "/deep")),
        ElementsAre("both=live", "file=1", "live-empty=", "live-parent=1", "live-path=1", "live=1", "parent=file"));
    EXPECT_THAT(carried(fresh(Device, "/deep")), IsEmpty());
}

TEST_P(EngineCookieResetTest, ReceivedCookiesThatDoNotMatchAreSent) {
    receive(to(Device), {"own=1", "dotted=1; Domain=device.kel.localhost", "hidden=1; HttpOnly"});
    EXPECT_THAT(carried(fresh(Device)), ElementsAre("dotted=1", "hidden=1"));
}

TEST_P(EngineCookieResetTest, CookiesOfOtherHostsStay) {
    folder.store(all());
    receive(to(Sibling), {"live=1"});
    carried(fresh(Device));
    EXPECT_THAT(carried(to(Below, GetParam())), ::testing::IsSupersetOf({"below-dotted=1", "below=1"}));
    EXPECT_THAT(carried(to(Sibling, GetParam())), ::testing::IsSupersetOf({"live=1", "sibling=1"}));
}

TEST_P(EngineCookieResetTest, ParentKeepsItsOwnDottedCookies) {
    // A dot more than the host has.
    folder.store({{".kel.localhost", "dotted", "1"}, {Parent, "own", "1"}});
    EXPECT_THAT(carried(fresh(Parent)), ElementsAre("dotted=1"));
}

TEST_P(EngineCookieResetTest, AnyEndOfTheHostMatches) {
    folder.store({{"el.localhost", "end", "1"}, {"t", "letter", "1"}, {"Xel.localhost", "other", "1"}});
    const LogCapture log("HttpClient", 8);
    carried(fresh(Device));
    EXPECT_THAT(cookieLines(log),
                ::testing::UnorderedElementsAre(deleting("end", "el.localhost"), deleting("letter", "t")));
}

TEST_P(EngineCookieResetTest, GlobalLocaleTellsWhichLettersAreTheSame) {
    folder.store({{"Xel.localhost", "other", "1"}});
    const LogCapture log("HttpClient", 8);
    carried(fresh(Parent));
    EXPECT_THAT(cookieLines(log), IsEmpty());
    const GlobalLocale locale(new LettersWithoutK);
    carried(fresh(Parent));
    EXPECT_THAT(cookieLines(log), ElementsAre(deleting("other", "Xel.localhost")));
}

TEST_P(EngineCookieResetTest, HostIsFoundInEveryFormOfUrl) {
    const std::string address = std::string(Device) + ':' + std::to_string(server.port());
    for (const std::string& url : {address, "http://" + address, "http://user:secret@" + address + "/path?query#part",
                                   "http://Device.KEL.localHOST:" + std::to_string(server.port()) + "/"}) {
        folder.store({{Device, "own", "1"}});
        RequestConfig config = fresh(Device);
        config.url = url;
        EXPECT_THAT(carried(config), IsEmpty()) << url;
    }
}

TEST_P(EngineCookieResetTest, AddressesAreHostsToo) {
    folder.store({{"127.0.0.1", "own", "1"}, {"0.0.1", "end", "1"}, {"127.0.0.2", "other", "1"}});
    const LogCapture log("HttpClient", 8);
    EXPECT_THAT(carried(fresh("127.0.0.1")), IsEmpty());
    EXPECT_THAT(cookieLines(log),
                ::testing::UnorderedElementsAre(deleting("own", "127.0.0.1"), deleting("end", "0.0.1")));
}

TEST_P(EngineCookieResetTest, AddressInBracketsIsAHost) {
    ScriptedServer six(Family::IPv6);
    six.onRequest([](const ReceivedRequest&) { return Reply(200).header("Set-Cookie", "own=1"); });
    RequestConfig config;
    config.url = six.url();
    config.cookie_jar = GetParam();
    run(config)->outcome.await("end");
    run(config)->outcome.await("end");
    config.reset_state = true;
    run(config)->outcome.await("end");
    EXPECT_THAT(cookiesOf(six.requests().at(1)), ElementsAre("own=1"));
    EXPECT_THAT(cookiesOf(six.requests().at(2)), IsEmpty());
}

TEST_P(EngineCookieResetTest, CookieForTlsGoesWithTheOthers) {
    folder.store({{Device, "secret", "1", "/", FarFuture, "TRUE"}});
    const LogCapture log("HttpClient", 8);
    carried(fresh(Device));
    EXPECT_THAT(cookieLines(log), ElementsAre(deleting("secret", Device)));
}

// --- sessions ---

TEST_P(EngineCookieResetTest, SessionCookiesOfTheFileAreNotReadByAFreshRequest) {
    folder.store({{"#HttpOnly_device.kel.localhost", "session", "1", "/", "0"},
                  {"#HttpOnly_device.kel.localhost", "kept", "1"}});
    EXPECT_THAT(carried(fresh(Device)), ElementsAre("kept=1"));
}

TEST_P(EngineCookieResetTest, SessionCookiesInTheStoreStayUnlessTheyMatch) {
    receive(to(Device), {"hidden=1; HttpOnly", "own=1"});
    receive(to(Sibling), {"sibling=1"});
    EXPECT_THAT(carried(fresh(Device)), ElementsAre("hidden=1"));
    EXPECT_THAT(carried(to(Sibling)), ElementsAre("sibling=1"));
}

// --- what comes after ---

TEST_P(EngineCookieResetTest, FreshRequestReceivesCookies) {
    folder.store({{Device, "a", "file"}});
    receive(fresh(Device), {"a=new", "b=new; Max-Age=1000"});
    EXPECT_THAT(carried(to(Device, GetParam())), ElementsAre("a=new", "b=new"));
}

TEST_P(EngineCookieResetTest, NextHopOfAFreshRequestCarriesTheNewCookiesOnly) {
    folder.store({{Device, "a", "file"}, {".kel.localhost", "b", "file"}});
    server.enqueue(Reply::redirect("/").header("Set-Cookie", "c=new"));
    EXPECT_THAT(carried(fresh(Device)), ElementsAre("c=new"));
}

TEST_P(EngineCookieResetTest, OneFreshRequestAfterTheOther) {
    folder.store({{Device, "a", "file"}});
    for (int round = 0; round < 3; ++round) {
        receive(to(Device), {"live=1"});
        EXPECT_THAT(carried(fresh(Device)), IsEmpty());
    }
}

class EngineCookieFreshTest : public CookieTest {
 protected:
    RequestConfig fresh(CookieJar jar) const {
        RequestConfig config = to(Device, jar);
        config.reset_state = true;
        return config;
    }
};

TEST_F(EngineCookieFreshTest, CookiesOfTheFileComeBackAfterAFreshReader) {
    folder.store(Matching);
    receive(to(Device), {"live=1; Max-Age=1000", "own=live"});
    EXPECT_THAT(carried(fresh(CookieJar::ro_cookies)), IsEmpty());
    EXPECT_THAT(carried(to(Device, CookieJar::ro_cookies, "/deep")),
                ElementsAre("own-case=1", "own-path=1", "own-session=1", "own=1", "parent-case=1", "parent=1"));
}

TEST_F(EngineCookieFreshTest, FreshWriterTakesTheMatchingCookiesOutOfTheFile) {
    folder.store(all());
    receive(to(Device), {"live=1; Max-Age=1000", "own=live"});
    receive(fresh(CookieJar::rw_cookies), {"new=1"});
    std::vector<std::string> left = {StoredCookie{Device, "new", "1", "/", "0"}.line()};
    for (const StoredCookie& cookie : Spared) left.push_back(cookie.line());
    for (const StoredCookie& cookie : Foreign) left.push_back(cookie.line());
    EXPECT_THAT(folder.cookies(), ::testing::UnorderedElementsAreArray(left));
    restart();
    EXPECT_THAT(carried(to(Device)), ElementsAre("dotted=1", "hidden-parent=1", "hidden=1", "new=1"));
}

TEST_F(EngineCookieFreshTest, WithoutCookiesTheStoreIsLeftAlone) {
    folder.store({{Device, "file", "1"}});
    receive(to(Device), {"live=1"});
    const LogCapture log("HttpClient", 8);
    EXPECT_THAT(carried(fresh(CookieJar::no_cookies), Reply(200).header("Set-Cookie", "lost=1")), IsEmpty());
    EXPECT_EQ(log.count(ListEmpty), 1U);
    EXPECT_EQ(log.count("deleting cookie"), 0U);
    EXPECT_THAT(carried(to(Device)), ElementsAre("file=1", "live=1"));
}

TEST_F(EngineCookieFreshTest, EveryFreshRequestHasAConnectionOfItsOwn) {
    for (const CookieJar jar : {CookieJar::no_cookies, CookieJar::ro_cookies, CookieJar::rw_cookies}) {
        carried(fresh(jar));
    }
    EXPECT_EQ(server.connectionCount(), 3U);
}

// --- log lines ---

TEST_P(EngineCookieResetTest, DeletionsAreToldInDetail) {
    folder.store({{Device, "own", "1"}, {".kel.localhost", "parent", "1"}, {Sibling, "sibling", "1"}});
    const LogCapture log("HttpClient", 8);
    carried(fresh(Device));
    EXPECT_THAT(log.lines(), ::testing::IsSupersetOf({EngineLine(8, deleting("own", Device)),
                                                      EngineLine(8, deleting("parent", ".kel.localhost"))}));
    EXPECT_EQ(cookieLines(log).size(), 2U);
}

TEST_P(EngineCookieResetTest, EmptyStoreIsToldInDetail) {
    const LogCapture log("HttpClient", 8);
    carried(fresh(Device));
    EXPECT_THAT(log.lines(), ::testing::Contains(EngineLine(8, ListEmpty)));
    EXPECT_THAT(cookieLines(log), ElementsAre(ListEmpty));
}

TEST_P(EngineCookieResetTest, BelowThatLevelNothingIsTold) {
    const LogCapture log("HttpClient", 7);
    carried(fresh(Device));
    folder.store(all());
    carried(fresh(Device));
    EXPECT_THAT(cookieLines(log), IsEmpty());
}

TEST_P(EngineCookieResetTest, OtherRequestsDeleteNothing) {
    folder.store(all());
    const LogCapture log("HttpClient", 9);
    carried(to(Device, GetParam()));
    EXPECT_THAT(cookieLines(log), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
