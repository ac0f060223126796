// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "checks/CheckProxies.h"

namespace kel::http::simulation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Time second = std::chrono::seconds(1);

// What is seen of a world, told by hand: one thing after the other, a second each.
class ProxyCheckTest : public testing::Test {
 protected:
    void world(const std::string& text) { script_ = parse(text); }
    void pass(Time time) { now_ += time; }

    void begins(std::int64_t request) {
        seen_.requests[request].started = true;
        seen_.requests[request].startedAt = now_;
        pass(second);
    }
    void connects(std::int64_t proxy) {
        seen_.proxyLinks.push_back({now_, proxy, seen_.arrivals.size()});
        pass(second);
    }
    // 0: straight.
    void arrives(std::int64_t request, std::int64_t proxy) {
        Arrival arrival;
        arrival.at = now_;
        arrival.request = request;
        arrival.connection = proxy;
        arrival.proxy = proxy;
        seen_.arrivals.push_back(arrival);
        pass(second);
    }
    void ends(std::int64_t request, bool is_error) {
        SeenOutcome outcome;
        outcome.at = now_;
        outcome.isError = is_error;
        outcome.status = 200;
        seen_.requests[request].outcomes.push_back(outcome);
        pass(second);
    }
    void isServedBy(std::int64_t request, std::int64_t proxy) {
        arrives(request, proxy);
        ends(request, false);
    }
    // Its list is 12, and 1 is of no use.
    void listsTheFirstProxy(std::int64_t request) {
        begins(request);
        connects(1);
        connects(2);
        isServedBy(request, 2);
    }

    std::vector<std::string> faults() const {
        std::vector<std::string> faults;
        checkProxies(script_, seen_, faults);
        return faults;
    }

    static constexpr const char* three_requests =
        "world proxyMode=list\nrequest proxies=12\nrequest id=1 proxies=12\nrequest id=2 proxies=12\n";

    Script script_;
    Observation seen_;
    Time now_ = Beginning;
};

TEST_F(ProxyCheckTest, AFailedProxyThatIsTriedLastIsRight) {
    world(three_requests);
    listsTheFirstProxy(0);
    begins(1);
    isServedBy(1, 2);
    begins(2);
    connects(2);
    connects(1);
    ends(2, true);
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(ProxyCheckTest, AFailedProxyThatIsTriedFirstIsAFault) {
    world(three_requests);
    listsTheFirstProxy(0);
    listsTheFirstProxy(1);
    EXPECT_THAT(faults(), ElementsAre("request 1: tries proxy 1 before proxy 2"));
}

TEST_F(ProxyCheckTest, AProxyThatWorkedAndIsTriedLastIsAFault) {
    world(three_requests);
    begins(0);
    connects(1);
    isServedBy(0, 1);
    begins(1);
    connects(2);
    isServedBy(1, 2);
    EXPECT_THAT(faults(), ElementsAre("request 1: tries proxy 2 before proxy 1"));
}

TEST_F(ProxyCheckTest, AProxyThatWorkedSinceItFailedStandsInItsPlaceAgain) {
    world("world proxyMode=list\nrequest proxies=12\nrequest id=1 proxies=1\nrequest id=2 proxies=12\n");
    listsTheFirstProxy(0);
    begins(1);
    connects(1);
    isServedBy(1, 1);
    begins(2);
    isServedBy(2, 1);
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(ProxyCheckTest, AFailureCountsForHalfAnHour) {
    world(three_requests);
    listsTheFirstProxy(0);
    pass(std::chrono::minutes(29));
    begins(1);
    isServedBy(1, 2);
    pass(std::chrono::minutes(2));
    begins(2);
    isServedBy(2, 2);
    EXPECT_THAT(faults(), ElementsAre("request 2: tries proxy 2 before proxy 1"));
}

TEST_F(ProxyCheckTest, AProxyThatIsLeftOutIsAFault) {
    world("world proxyMode=list\nrequest proxies=123\n");
    begins(0);
    connects(1);
    connects(3);
    isServedBy(0, 3);
    EXPECT_THAT(faults(), ElementsAre("request 0: tries proxy 3 before proxy 2"));
}

TEST_F(ProxyCheckTest, AProxyThatIsNotTriedAtAllIsAFault) {
    world("world proxyMode=list\nrequest proxies=12\n");
    begins(0);
    connects(1);
    ends(0, true);
    EXPECT_THAT(faults(), ElementsAre("request 0: gives up behind proxy 1, with proxy 2 left"));
}

TEST_F(ProxyCheckTest, AProxyThatIsTriedTwiceIsAFault) {
    world("world proxyMode=list\nrequest proxies=12\n");
    begins(0);
    connects(1);
    connects(2);
    connects(1);
    ends(0, true);
    EXPECT_THAT(faults(), ElementsAre("request 0: tries proxy 1 once more"));
}

TEST_F(ProxyCheckTest, NoProxyAtAllIsAFault) {
    world("world proxyMode=list\nrequest proxies=1\n");
    begins(0);
    ends(0, true);
    EXPECT_THAT(faults(), ElementsAre("request 0: tries none of its proxies"));
}

TEST_F(ProxyCheckTest, AnotherProxyBehindAnAnswerIsAFault) {
    world("world proxyMode=list\nreply status=500\nrequest proxies=12\n");
    begins(0);
    connects(1);
    arrives(0, 1);
    connects(2);
    isServedBy(0, 2);
    EXPECT_THAT(faults(), ElementsAre("request 0: goes on behind proxy 1, which brought an answer"));
}

TEST_F(ProxyCheckTest, AnotherProxyBehindASilentServerIsRight) {
    world("world proxyMode=list\nreply cut=stall\nreply\nrequest proxies=12 timeout=1000\n");
    begins(0);
    connects(1);
    arrives(0, 1);
    connects(2);
    isServedBy(0, 2);
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(ProxyCheckTest, ARequestWithProxiesThatComesStraightIsAFault) {
    world("world proxyMode=list\nrequest proxies=12\n");
    begins(0);
    connects(1);
    isServedBy(0, 0);
    EXPECT_THAT(faults(), ElementsAre("request 0: comes to its server straight"));
}

TEST_F(ProxyCheckTest, ARequestWithoutProxiesThatComesThroughOneIsAFault) {
    world("world proxyMode=list\nrequest\nrequest id=1 proxies=1\n");
    begins(0);
    isServedBy(0, 1);
    EXPECT_THAT(faults(), ElementsAre("request 0: comes to its server through proxy 1"));
}

TEST_F(ProxyCheckTest, AConnectionToAProxyThatNobodyNamesIsAFault) {
    world("world proxyMode=list\nrequest proxies=12\n");
    begins(0);
    connects(1);
    isServedBy(0, 1);
    connects(1);
    EXPECT_THAT(faults(), ElementsAre("proxy 1 is connected to for nobody"));
}

TEST_F(ProxyCheckTest, AProxyThatTheRequestDoesNotNameIsAFault) {
    world("world proxyMode=list\nrequest proxies=12\n");
    begins(0);
    connects(3);
    isServedBy(0, 3);
    EXPECT_THAT(faults(),
                ElementsAre("proxy 3 is connected to for nobody", "request 0: comes to its server through proxy 3",
                            "request 0: tries proxy 3 unasked"));
}

TEST_F(ProxyCheckTest, InManualModeTheEnginesOwnProxyIsTheOnlyOne) {
    world("world proxyMode=manual proxy=2\nrequest proxies=1\nrequest id=1 proxies=1\n");
    begins(0);
    connects(2);
    isServedBy(0, 2);
    begins(1);
    connects(1);
    isServedBy(1, 2);
    EXPECT_THAT(faults(), ElementsAre("proxy 1 is connected to for nobody"));
}

TEST_F(ProxyCheckTest, WhatOthersFindOutWhileARequestWaitsCounts) {
    const auto waitsMeanwhile = [this](std::int64_t next) {
        world(
            "world proxyMode=list\nproxy id=1 connect=silent\nrequest proxies=123 timeout=10000\n"
            "request id=1 proxies=2\n");
        const Time begin = now_;
        begins(0);
        seen_.proxyLinks.push_back({begin, 1, 0});
        begins(1);
        connects(2);
        ends(1, true);
        now_ = begin + 10 * second;
        connects(next);
        isServedBy(0, next);
        return faults();
    };
    EXPECT_THAT(waitsMeanwhile(3), IsEmpty());
    seen_ = {};
    EXPECT_THAT(waitsMeanwhile(2), ElementsAre("request 0: tries proxy 2 before proxy 3"));
}

TEST_F(ProxyCheckTest, WhatOthersDidAtTheSameTimeHidesAProxysStateUntilItShows) {
    world(three_requests);
    begins(0);
    begins(1);
    connects(1);
    connects(2);
    isServedBy(0, 2);
    isServedBy(1, 2);
    // Proxy 1 may have failed or not: either order is right, and then it is known.
    begins(2);
    connects(2);
    isServedBy(2, 2);
    EXPECT_THAT(faults(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::simulation
