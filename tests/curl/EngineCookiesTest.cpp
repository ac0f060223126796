// SPDX-License-Identifier: MIT
#include "curl/CookieTest.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EngineCookiesTest : public CookieTest {};

// --- kinds of cookies ---

TEST_F(EngineCookiesTest, RequestsReadCookiesUnlessTheySayOtherwise) {
    RequestConfig config;
    EXPECT_EQ(config.cookie_jar, CookieJar::ro_cookies);
    receive(get(), {"first=1", "second=2"});
    EXPECT_THAT(carried(get()), ElementsAre("first=1", "second=2"));
}

TEST_F(EngineCookiesTest, PersistentCookiesAreSentWhileTheyAreValid) {
    receive(get(), {
                       "age=1; Max-Age=1000",
                       "date=1; Expires=" + std::string(FarFutureDate),
                       "no-age=1; Max-Age=0",
                       "past=1; Expires=Mon, 01 Jan 2001 00:00:00 GMT",
                       "age-wins=1; Max-Age=1000; Expires=Mon, 01 Jan 2001 00:00:00 GMT",
                   });
    EXPECT_THAT(carried(get()), ElementsAre("age-wins=1", "age=1", "date=1"));
}

TEST_F(EngineCookiesTest, LaterCookieTakesThePlaceOfTheFormer) {
    receive(get(), {"a=1", "b=1", "c=1; Max-Age=1000"});
    receive(get(), {"a=2; Max-Age=1000", "b=; Max-Age=0", "c=3"});
    EXPECT_THAT(carried(get()), ElementsAre("a=2", "c=3"));
}

TEST_F(EngineCookiesTest, ValueIsSentBackByteForByte) {
    receive(get(), {"empty=", "odd=\"a, b\" =/?&%41+\xc3\xbc'<>@[]{}\\|~", "spaced =  \t in the midst of it  "});
    EXPECT_THAT(carried(get()),
                ElementsAre("empty=", "odd=\"a, b\" =/?&%41+\xc3\xbc'<>@[]{}\\|~", "spaced=in the midst of it"));
}

TEST_F(EngineCookiesTest, HttpOnlyCookieIsSent) {
    receive(get(), {"hidden=1; HttpOnly"});
    EXPECT_THAT(carried(get()), ElementsAre("hidden=1"));
}

TEST_F(EngineCookiesTest, CookieIsSentBelowItsPath) {
    receive(get("/dir/page"), {"own=1", "root=1; Path=/", "deep=1; Path=/deep"});
    EXPECT_THAT(carried(get("/")), ElementsAre("root=1"));
    EXPECT_THAT(carried(get("/dir/other")), ElementsAre("own=1", "root=1"));
    EXPECT_THAT(carried(get("/deep")), ElementsAre("deep=1", "root=1"));
    EXPECT_THAT(carried(get("/deep/er")), ElementsAre("deep=1", "root=1"));
    EXPECT_THAT(carried(get("/deeper")), ElementsAre("root=1"));
}

TEST_F(EngineCookiesTest, CookieOfADomainIsSentToAllOfItsHosts) {
    receive(to(Device), {"host=1", "shared=1; Domain=kel.localhost", "dotted=1; Domain=.kel.localhost",
                         "foreign=1; Domain=other.localhost", "below=1; Domain=x.device.kel.localhost"});
    EXPECT_THAT(carried(to(Device)), ElementsAre("dotted=1", "host=1", "shared=1"));
    EXPECT_THAT(carried(to(Sibling)), ElementsAre("dotted=1", "shared=1"));
    EXPECT_THAT(carried(to(Parent)), ElementsAre("dotted=1", "shared=1"));
    EXPECT_THAT(carried(to("kel2.localhost")), IsEmpty());
}

TEST_F(EngineCookiesTest, CookieForTlsIsNotSentInTheOpen) {
    folder.store({{Device, "secret", "1", "/", FarFuture, "TRUE"}, {Device, "open", "1"}});
    EXPECT_THAT(carried(to(Device)), ElementsAre("open=1"));
    // Nor does an open answer bring one.
    receive(to(Sibling), {"secret=1; Secure", "open=1"});
    EXPECT_THAT(carried(to(Sibling)), ElementsAre("open=1"));
}

// --- modes ---

TEST_F(EngineCookiesTest, WithoutCookiesNoneAreSentOrKept) {
    folder.store({{"127.0.0.1", "stored", "1"}});
    receive(get(), {"live=1"});
    RequestConfig without = get();
    without.cookie_jar = CookieJar::no_cookies;
    EXPECT_THAT(carried(without, Reply(200).header("Set-Cookie", "lost=1")), IsEmpty());
    EXPECT_THAT(carried(without), IsEmpty());
    EXPECT_THAT(carried(get()), ElementsAre("live=1", "stored=1"));
}

TEST_F(EngineCookiesTest, ReadersAndWritersShareTheirCookies) {
    RequestConfig writer = get();
    writer.cookie_jar = CookieJar::rw_cookies;
    receive(get(), {"of-reader=1"});
    EXPECT_THAT(carried(writer, Reply(200).header("Set-Cookie", "of-writer=1")), ElementsAre("of-reader=1"));
    EXPECT_THAT(carried(get()), ElementsAre("of-reader=1", "of-writer=1"));
    EXPECT_THAT(carried(writer), ElementsAre("of-reader=1", "of-writer=1"));
}

TEST_F(EngineCookiesTest, EveryMethodCarriesCookies) {
    receive(get(), {"a=1"});
    for (const Method method : {Method::POST, Method::PUT, Method::GET, Method::DELETE, Method::PATCH}) {
        RequestConfig config = get();
        config.method = method;
        config.body = "body";
        EXPECT_THAT(carried(config), ElementsAre("a=1")) << name_of(method);
    }
}

// --- answers that are no plain success ---

TEST_F(EngineCookiesTest, RefusalBringsCookiesToo) {
    server.enqueue(Reply(404).header("Set-Cookie", "a=1"));
    run(get())->outcome.await("failure 6: HTTP code=404");
    EXPECT_THAT(carried(get()), ElementsAre("a=1"));
}

TEST_F(EngineCookiesTest, CancelledTransferHasBroughtItsCookies) {
    server.enqueue(Reply(200).header("Set-Cookie", "a=1").body("x").stallBeforeEnd());
    const auto cancelled = run(get());
    cancelled->hooks.await("data 1");
    cancelled->tryToCancelRequest();
    EXPECT_THAT(carried(get()), ElementsAre("a=1"));
}

TEST_F(EngineCookiesTest, SecondRoundOfALoginCarriesTheCookieOfTheFirst) {
    RequestConfig config = get();
    config.user = "user";
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"kel\"").header("Set-Cookie", "a=1"));
    EXPECT_THAT(carried(config), ElementsAre("a=1"));
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_THAT(cookiesOf(server.requests().front()), IsEmpty());
}

// --- redirects ---

class EngineCookiesRedirectTest : public CookieTest, public testing::WithParamInterface<CookieJar> {};

INSTANTIATE_TEST_SUITE_P(Cookies, EngineCookiesRedirectTest,
                         testing::Values(CookieJar::ro_cookies, CookieJar::rw_cookies),
                         [](const auto& jar) { return jar.param == CookieJar::ro_cookies ? "Read" : "Written"; });

TEST_P(EngineCookiesRedirectTest, NextHopCarriesTheCookiesOfTheOneBefore) {
    receive(to(Device), {"old=1"});
    server.enqueue(Reply::redirect("/second").header("Set-Cookie", "a=1; Path=/"));
    server.enqueue(Reply::redirect("/third")
                       .header("Set-Cookie", "b=2; Path=/third")
                       .header("Set-Cookie", "a=; Max-Age=0; Path=/"));
    EXPECT_THAT(carried(to(Device, GetParam(), "/first")), ElementsAre("b=2", "old=1"));
    ASSERT_EQ(server.requests().size(), 4U);
    EXPECT_THAT(cookiesOf(server.requests().at(1)), ElementsAre("old=1"));
    EXPECT_THAT(cookiesOf(server.requests().at(2)), ElementsAre("a=1", "old=1"));
    EXPECT_THAT(carried(to(Device)), ElementsAre("old=1"));
}

TEST_P(EngineCookiesRedirectTest, OtherHostOnTheWayGetsItsOwnCookiesOnly) {
    receive(to(Device), {"device=1", "both=1; Domain=kel.localhost"});
    receive(to(Sibling), {"other=1"});
    server.enqueue(Reply::redirect(to(Sibling).url));
    EXPECT_THAT(carried(to(Device, GetParam())), ElementsAre("both=1", "other=1"));
}

TEST_F(EngineCookiesTest, RedirectWithoutCookiesCarriesNone) {
    server.enqueue(Reply::redirect("/second").header("Set-Cookie", "a=1"));
    EXPECT_THAT(carried(to(Device, CookieJar::no_cookies)), IsEmpty());
    EXPECT_THAT(carried(to(Device)), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
