// SPDX-License-Identifier: MIT
#include "kel-http/curl/ProxyBlackList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "curl/LineMatcher.h"
#include "fixture/TestClock.h"

namespace kel::http::test {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Proxies = std::list<std::string>;

class ProxyBlackListTest : public ::testing::Test {
 protected:
    Proxies sorted(Proxies proxies) {
        list.sortProxies(proxies);
        return proxies;
    }

    ProxyBlackList list{&TestClock::now};
};

TEST_F(ProxyBlackListTest, CredentialsAreNotLogged) {
    const LogCapture log("HttpClient", 9);
    list.fail("http://user:secret@A");
    EXPECT_EQ(list.dump({"http://user:secret@A"}),
              "Available proxies: 1 entry\n [0] http://xxxxxx@A <= listed 0 ago\n");
    list.success("http://user:secret@A");
    EXPECT_THAT(log.texts(), ElementsAre("ProxyBlackList::fail: Failure => list 'http://xxxxxx@A'",
                                         "ProxyBlackList::success: Success => un-list 'http://xxxxxx@A'"));
}

// --- order ---

TEST_F(ProxyBlackListTest, NothingListedLeavesTheOrder) {
    EXPECT_THAT(sorted({"C", "A", "B", "A"}), ElementsAre("C", "A", "B", "A"));
    EXPECT_THAT(sorted({}), IsEmpty());
}

TEST_F(ProxyBlackListTest, ListedProxiesComeLast) {
    list.fail("A");
    list.fail("C");
    EXPECT_THAT(sorted({"A", "B", "C"}), ElementsAre("B", "A", "C"));
}

TEST_F(ProxyBlackListTest, ListedProxiesKeepTheirOrderWhateverTheyWereListedIn) {
    list.fail("D");
    TestClock::advance(seconds(1));
    list.fail("A");
    TestClock::advance(seconds(1));
    list.fail("C");
    EXPECT_THAT(sorted({"C", "E", "D", "B", "A"}), ElementsAre("E", "B", "C", "D", "A"));
}

TEST_F(ProxyBlackListTest, AllListedLeavesTheOrder) {
    for (const char* proxy : {"A", "B", "C"}) list.fail(proxy);
    EXPECT_THAT(sorted({"C", "A", "B"}), ElementsAre("C", "A", "B"));
}

TEST_F(ProxyBlackListTest, EveryEntryOfAListedProxyMoves) {
    list.fail("A");
    EXPECT_THAT(sorted({"A", "B", "A", "C"}), ElementsAre("B", "C", "A", "A"));
}

TEST_F(ProxyBlackListTest, ProxiesAreToldApartByEveryCharacter) {
    list.fail("http://a:80");
    EXPECT_THAT(sorted({"http://a:80", "http://A:80", "http://a:80/", "http://a"}),
                ElementsAre("http://A:80", "http://a:80/", "http://a", "http://a:80"));
}

TEST_F(ProxyBlackListTest, EmptyProxyMayBeListed) {
    list.fail("");
    EXPECT_THAT(sorted({"", "A"}), ElementsAre("A", ""));
}

// --- time ---

TEST_F(ProxyBlackListTest, ProxyIsListedForHalfAnHour) {
    list.fail("A");
    TestClock::advance(seconds(1799));
    EXPECT_THAT(sorted({"A", "B"}), ElementsAre("B", "A"));
    TestClock::advance(seconds(1));
    EXPECT_THAT(sorted({"A", "B"}), ElementsAre("A", "B"));
}

TEST_F(ProxyBlackListTest, AnotherFailureStartsTheTimeAnew) {
    list.fail("A");
    TestClock::advance(seconds(1799));
    list.fail("A");
    TestClock::advance(seconds(1799));
    EXPECT_THAT(sorted({"A", "B"}), ElementsAre("B", "A"));
    TestClock::advance(seconds(1));
    EXPECT_THAT(sorted({"A", "B"}), ElementsAre("A", "B"));
}

TEST_F(ProxyBlackListTest, SuccessEndsTheListing) {
    list.fail("A");
    list.fail("B");
    list.success("A");
    EXPECT_THAT(sorted({"B", "A"}), ElementsAre("A", "B"));
}

TEST_F(ProxyBlackListTest, OldProxyStaysListedUntilThePurge) {
    list.fail("A");
    TestClock::advance(seconds(5000));
    EXPECT_EQ(list.dump({"A"}), "Available proxies: 1 entry\n [0] A <= listed 5000 ago\n");
    list.purge_old();
    EXPECT_EQ(list.dump({"A"}), "Available proxies: 1 entry\n [0] A\n");
}

TEST_F(ProxyBlackListTest, OrdinaryClockIsTheDefault) {
    ProxyBlackList ordinary;
    ordinary.fail("A");
    Proxies proxies{"A", "B"};
    ordinary.sortProxies(proxies);
    EXPECT_THAT(proxies, ElementsAre("B", "A"));
}

// --- texts ---

TEST_F(ProxyBlackListTest, DumpOfNothing) {
    list.fail("A");
    EXPECT_EQ(list.dump({}), "Available proxies: 0 entries\n");
}

TEST_F(ProxyBlackListTest, DumpNamesEachProxyAndItsAge) {
    list.fail("http://a:1");
    TestClock::advance(seconds(61));
    list.fail("");
    EXPECT_EQ(list.dump({"http://b:2", "http://a:1", "", "http://a:1"}),
              "Available proxies: 4 entries\n"
              " [0] http://b:2\n"
              " [1] http://a:1 <= listed 61 ago\n"
              " [2] (empty) <= listed 0 ago\n"
              " [3] http://a:1 <= listed 61 ago\n");
    EXPECT_EQ(list.dump({""}), "Available proxies: 1 entry\n [0] (empty) <= listed 0 ago\n");
}

TEST_F(ProxyBlackListTest, ChangesAreLogged) {
    const LogCapture log("HttpClient", 8);
    list.fail("B");
    list.fail("A");
    list.fail("A");
    list.success("B");
    list.success("B");
    list.success("unknown");
    list.fail("C");
    TestClock::advance(seconds(1800));
    list.fail("D");
    list.purge_old();
    list.purge_old();
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(8, "ProxyBlackList::fail: Failure => list 'B'"),
                                         EngineLine(8, "ProxyBlackList::fail: Failure => list 'A'"),
                                         EngineLine(8, "ProxyBlackList::fail: Failure => list 'A'"),
                                         EngineLine(8, "ProxyBlackList::success: Success => un-list 'B'"),
                                         EngineLine(8, "ProxyBlackList::fail: Failure => list 'C'"),
                                         EngineLine(8, "ProxyBlackList::fail: Failure => list 'D'"),
                                         EngineLine(8, "ProxyBlackList::purge_old: Un-listing 'A'"),
                                         EngineLine(8, "ProxyBlackList::purge_old: Un-listing 'C'")));
}

TEST_F(ProxyBlackListTest, LessVerboseLoggerHearsNothing) {
    const LogCapture log("HttpClient", 7);
    list.fail("A");
    list.success("A");
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
