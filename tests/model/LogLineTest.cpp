// SPDX-License-Identifier: MIT
#include "kel-http/model/LogLine.h"

#include <gmock/gmock.h>

#include "fixture/LogCapture.h"

namespace kel::http {

// Formatting it fails the test.
struct Unprintable {};

}  // namespace kel::http

template <>
struct fmt::formatter<kel::http::Unprintable> : fmt::formatter<int> {
    template <typename Context>
    auto format(const kel::http::Unprintable&, Context& context) const -> decltype(context.out()) {
        ADD_FAILURE() << "formatted in vain";
        return context.out();
    }
};

namespace kel::http {
namespace {

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

TEST(LogLineTest, NothingIsFormattedForALineAboveTheVerbosity) {
    const LogCapture log(4);
    writeLine(logger(), 5, "{}", Unprintable());
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace kel::http
