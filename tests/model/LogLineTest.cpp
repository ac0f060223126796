// SPDX-License-Identifier: MIT
#include "kel-http/model/LogLine.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

#include "fixture/LogCapture.h"
#include "support/AllocationFailure.h"

namespace kel::http {

// Formatting it fails the test.
struct Unprintable {};

// Can not be formatted.
struct Refusing {};

}  // namespace kel::http

template <>
struct fmt::formatter<kel::http::Unprintable> : fmt::formatter<int> {
    template <typename Context>
    auto format(const kel::http::Unprintable&, Context& context) const -> decltype(context.out()) {
        ADD_FAILURE() << "formatted in vain";
        return context.out();
    }
};

template <>
struct fmt::formatter<kel::http::Refusing> : fmt::formatter<int> {
    template <typename Context>
    auto format(const kel::http::Refusing&, Context& context) const -> decltype(context.out()) {
        throw std::runtime_error("refused");
        return context.out();
    }
};

namespace kel::http {
namespace {

using test::FailAllocation;
using test::LogCapture;
using testing::ElementsAre;

logging::Logger& logger() {
    return *logging::getLogger("LogLineTest", 0);
}

TEST(LogLineTest, LineUpToTheVerbosityIsWritten) {
    const LogCapture log(4);
    writeLine(logger(), 4, "{} of {}", 1, "two");
    EXPECT_THAT(log.texts(), ElementsAre("1 of two"));
    EXPECT_EQ(log.lines().front().level, 4);
}

TEST(LogLineTest, PatternWithoutItsArgumentsIsWrittenAsItStands) {
    const LogCapture log(4);
    writeLine(logger(), 1, "{} and {}", 1);
    EXPECT_THAT(log.texts(), ElementsAre("{} and {}"));
}

// A formatter's business: it may throw whatever it likes.
TEST(LogLineTest, PatternIsWrittenWhenAnArgumentThrows) {
    const LogCapture log(4);
    writeLine(logger(), 1, "{}", Refusing());
    EXPECT_THAT(log.texts(), ElementsAre("{}"));
}

TEST(LogLineTest, PatternIsWrittenWhenThereIsNoMemoryForTheLine) {
    if (!FailAllocation::isPossible()) GTEST_SKIP();
    const LogCapture log(4);
    const std::string long_text(5000, 'x');
    logging::Logger& known = logger();  // the first one to ask for it makes it
    {
        const FailAllocation failure(1);
        writeLine(known, 1, "long: {}", long_text);
        EXPECT_EQ(failure.refused(), 1U);
    }
    EXPECT_THAT(log.texts(), ElementsAre("long: {}"));
}

TEST(LogLineTest, NothingIsFormattedForALineAboveTheVerbosity) {
    const LogCapture log(4);
    writeLine(logger(), 5, "{}", Unprintable());
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace kel::http
