// SPDX-License-Identifier: MIT
#include "runs/Shrinker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "Script.h"

namespace kel::http::simulation {
namespace {

using testing::ElementsAre;

// The planted fault: a request with a long body is paused more than a second after its beginning.
bool isPausedLate(const Script& script) {
    return std::any_of(script.actions.begin(), script.actions.end(), [&](const ActionScript& action) {
        const RequestScript* const request = script.request(action.request);
        return request != nullptr && action.deed == Deed::pause && action.at > request->at + 1'000'000 &&
               script.reply(request->exchange, 0).body > 2500;
    });
}

bool isPausedLateIn(const std::string& text) {
    try {
        return isPausedLate(parse(text));
    } catch (const std::invalid_argument&) {
        return false;
    }
}

std::string firstThat(bool (*fails)(const Script&)) {
    for (std::uint64_t seed = 1;; ++seed) {
        const Script script = generate(seed);
        if (script.requests.size() > 4 && fails(script)) return print(script);
    }
}

TEST(ShrinkerTest, AGeneratedWorldIsCutDownToWhatItTakes) {
    Shrinker shrinker(isPausedLateIn, 3000);
    const std::string text = shrinker.shrink(firstThat(isPausedLate));
    EXPECT_TRUE(isPausedLateIn(text)) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
    EXPECT_LT(text.size(), 100U) << text;
    EXPECT_GT(shrinker.triesLeft(), 0);
}

TEST(ShrinkerTest, OnlyTheFaultIsLeft) {
    const auto fails = [](const std::string& text) { return text.find("cut=reset") != std::string::npos; };
    EXPECT_EQ(Shrinker(fails, 1000).shrink("world order=77\nreply status=404 cut=reset cutAt=812\nrequest\n"),
              "reply cut=reset\n");
}

TEST(ShrinkerTest, NumbersBecomeSmallAndRound) {
    const auto fails = [](const std::string& text) {
        return !parse(text).requests.empty() && parse(text).requests[0].at >= 123'457;
    };
    const std::string text = Shrinker(fails, 1000).shrink("request at=987654\n");
    EXPECT_EQ(text, "request at=200000\n");
}

TEST(ShrinkerTest, NoMoreThanItsTriesAreMade) {
    int tries = 0;
    Shrinker shrinker(
        [&tries](const std::string&) {
            ++tries;
            return false;
        },
        25);
    const std::string text = print(generate(3));
    EXPECT_EQ(shrinker.shrink(text), text);
    EXPECT_EQ(tries, 25);
}

TEST(ShrinkerTest, SimplerNumbersAreSmallerOnes) {
    EXPECT_THAT(simplerThan(0), ElementsAre());
    EXPECT_THAT(simplerThan(1), ElementsAre(0));
    EXPECT_THAT(simplerThan(5), ElementsAre(0, 1, 2, 4));
    EXPECT_THAT(simplerThan(4567), ElementsAre(0, 1, 2, 2283, 4000, 4500, 4560));
    EXPECT_THAT(simplerThan(-3), ElementsAre());
}

TEST(ShrinkerTest, FaultsAreToldApartByWhatTheySay) {
    EXPECT_EQ(kindOf("request 3: 2 outcomes instead of 1"), kindOf("request 11: 3 outcomes instead of 1"));
    EXPECT_NE(kindOf("request 3: 2 outcomes instead of 1"), kindOf("request 3: 0 outcomes instead of 1"));
    EXPECT_EQ(kindOf("request 0: its outcome came after 812 us, with a limit of 3"),
              kindOf("request 1: its outcome came after 99 us, with a limit of 1"));
    EXPECT_NE(kindOf("3 sockets are left"), kindOf("3 files are left"));
    EXPECT_NE(kindOf("dies of Aborted: Assertion 'a' failed"), kindOf("dies of Aborted: Assertion 'b' failed"));
}

TEST(ShrinkerTest, ATestIsPrintedThatCanBePastedIn) {
    EXPECT_EQ(testOf("request\n", "3 sockets are left"),
              "// 3 sockets are left\n"
              "TEST(SimulationFindingTest, SayWhatHappens) {\n"
              "    expectNoFault(R\"(\n"
              "request\n"
              ")\");\n"
              "}\n");
}

}  // namespace
}  // namespace kel::http::simulation
