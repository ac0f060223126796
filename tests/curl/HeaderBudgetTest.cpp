// SPDX-License-Identifier: MIT
#include "kel-http/curl/HeaderBudget.h"

#include <gtest/gtest.h>

#include <string>

namespace kel::http::test {
namespace {

TEST(HeaderBudgetTest, UsualAnswersPass) {
    HeaderBudget budget;
    EXPECT_EQ(budget.take("HTTP/1.1 200 OK\r\n"), nullptr);
    EXPECT_EQ(budget.take("Content-Length: 4\r\n"), nullptr);
    EXPECT_EQ(budget.take("\r\n"), nullptr);
    EXPECT_EQ(budget.take(""), nullptr);
}

TEST(HeaderBudgetTest, EndsBehind256KiB) {
    HeaderBudget budget;
    const std::string line = "X: " + std::string(1019, 'x') + "\r\n";  // 1 KiB
    for (int i = 0; i < 256; ++i) ASSERT_EQ(budget.take(line), nullptr) << i;
    EXPECT_STREQ(budget.take("\n"), "The answer has more than 256 KiB of headers");
}

TEST(HeaderBudgetTest, OnePieceThatIsTooLongEndsItAtOnce) {
    HeaderBudget budget;
    EXPECT_STREQ(budget.take(std::string(256 * 1024 + 1, 'x')), "The answer has more than 256 KiB of headers");
}

TEST(HeaderBudgetTest, EndsBehind2000LinesWhateverAnswerTheyBelongTo) {
    HeaderBudget budget;
    for (int i = 0; i < 2000; ++i) {
        if (i % 100 == 0) {
            ASSERT_EQ(budget.take("HTTP/1.1 103 Early Hints\r\n"), nullptr);
        }
        ASSERT_EQ(budget.take("A: b\r\n"), nullptr) << i;
        if (i % 100 == 99) {
            ASSERT_EQ(budget.take("\r\n"), nullptr);
        }
    }
    EXPECT_STREQ(budget.take("A: b\r\n"), "The answer has more than 2000 header lines");
}

TEST(HeaderBudgetTest, LinesThatComeInOnePieceAreCountedOneByOne) {
    HeaderBudget budget;
    std::string piece = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 2000; ++i) piece.append("A: b\r\n");
    EXPECT_EQ(budget.take(piece), nullptr);
    EXPECT_STREQ(budget.take("A: b"), "The answer has more than 2000 header lines");
}

TEST(HeaderBudgetTest, EndsAtTheEleventhRequestForCredentials) {
    HeaderBudget budget;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(budget.take("HTTP/1.1 407 Proxy Authentication Required\r\n"), nullptr);
        ASSERT_EQ(budget.take("HTTP/2 401\r\n"), nullptr);
        ASSERT_EQ(budget.take("HTTP/1.1 200 OK\r\n"), nullptr);
    }
    EXPECT_STREQ(budget.take("HTTP/1.1 401 Unauthorized\r\n"),
                 "The server or a proxy asks for credentials again and again");
}

TEST(HeaderBudgetTest, OtherNumbersAreNoRequestForCredentials) {
    HeaderBudget budget;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(budget.take("HTTP/1.1 200 401\r\n"), nullptr);
        ASSERT_EQ(budget.take("HTTP/1.1 403 Forbidden\r\n"), nullptr);
        ASSERT_EQ(budget.take("X-Status: 401\r\n"), nullptr);
        ASSERT_EQ(budget.take("HTTP/1.1\r\n"), nullptr);
    }
}

}  // namespace
}  // namespace kel::http::test
