// SPDX-License-Identifier: MIT
#include "kel-http/TransferLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kel::http::tool {
namespace {

class TransferLogTest : public testing::Test {
 protected:
    HeardTransfer after(std::initializer_list<const char*> lines) {
        TransferLog log;
        for (const char* const line : lines) log.hear(line);
        return log.about(7);
    }
};

TEST_F(TransferLogTest, NothingIsKnownAtFirst) {
    const HeardTransfer nothing = after({"(8) [header IN] HTTP/1.1 200 OK", "no id", "(7) another line"});
    EXPECT_FALSE(nothing.is_known());
    EXPECT_EQ(nothing.total(), std::nullopt);
}

TEST_F(TransferLogTest, TheLastAnswerCounts) {
    const HeardTransfer heard = after({"(7) [header IN] HTTP/1.1 302 Found", "(7) [header IN] Content-Length: 154",
                                       "(7) [header IN] HTTP/2 200", "(7) [header IN] content-length: 5000000000"});
    EXPECT_EQ(heard.status, 200);
    EXPECT_TRUE(heard.is_success());
    EXPECT_EQ(heard.total(), 5000000000U);
}

TEST_F(TransferLogTest, AnInterimAnswerDoesNotCount) {
    EXPECT_FALSE(after({"(7) [header IN] HTTP/1.1 100 Continue"}).is_known());
}

TEST_F(TransferLogTest, AProxysAnswerDoesNotCount) {
    const auto connect = "(7) [header OUT] CONNECT host:443 HTTP/1.1";
    const auto open = "(7) [header IN] HTTP/1.1 200 Connection established";
    EXPECT_FALSE(after({connect, open}).is_known());
    EXPECT_EQ(after({connect, open, "(7) [header OUT] GET / HTTP/1.1", "(7) [header IN] HTTP/1.1 404 No"}).status, 404);
}

TEST_F(TransferLogTest, ARangeTellsTheWholeSize) {
    const auto partial = "(7) [header IN] HTTP/1.1 206 Partial Content";
    EXPECT_EQ(
        after({partial, "(7) [header IN] Content-Length: 5", "(7) [header IN] Content-Range: bytes 5-9/10"}).total(),
        10U);
    EXPECT_EQ(after({partial, "(7) [header IN] Content-Range: bytes */10"}).range_total, 10U);
    EXPECT_EQ(after({partial, "(7) [header IN] Content-Range: bytes 5-9/*"}).range_total, std::nullopt);
    EXPECT_EQ(after({partial, "(7) [header IN] Content-Range:"}).range_total, std::nullopt);
}

TEST_F(TransferLogTest, ARangeTellsWhereAPartBegins) {
    const auto partial = "(7) [header IN] HTTP/1.1 206 Partial Content";
    const HeardTransfer heard = after({partial, "(7) [header IN] Content-Range: bytes 5-9/10"});
    EXPECT_FALSE(heard.is_misplaced(5));
    EXPECT_TRUE(heard.is_misplaced(0));
    EXPECT_FALSE(after({partial, "(7) [header IN] Content-Range: bytes */10"}).is_misplaced(0));
    EXPECT_FALSE(after({partial}).is_misplaced(0));
    EXPECT_FALSE(
        after({"(7) [header IN] HTTP/1.1 200 OK", "(7) [header IN] Content-Range: bytes 5-9/10"}).is_misplaced(0));
}

TEST_F(TransferLogTest, ARequestThatIsSentAgainHasNoAnswerYet) {
    EXPECT_FALSE(after({"(7) [header IN] HTTP/1.1 401 Unauthorized", "(7) [header OUT] GET / HTTP/1.1"}).is_known());
}

TEST_F(TransferLogTest, AChunkedBodyHasNoLength) {
    EXPECT_EQ(after({"(7) [header IN] HTTP/1.1 200 OK", "(7) [header IN] Content-Length: 5",
                     "(7) [header IN] Transfer-Encoding: chunked", "(7) [header IN] no colon"})
                  .length,
              std::nullopt);
}

TEST_F(TransferLogTest, WhatIsNoStatusIsNone) {
    EXPECT_FALSE(after({"(7) [header IN] HTTP/1.1"}).is_known());
    EXPECT_FALSE(after({"(7) [header IN] HTTP/1.1 OK"}).is_known());
}

TEST_F(TransferLogTest, TroubleIsThatOfItsRequestAndOfTheDevice) {
    const HeardTransfer heard = after({"(7) Failed to connect to 'host': refused",
                                       "(8) Failed to connect to 'host': no", "setMicToCtx: Failed Fetch"});
    EXPECT_EQ(heard.trouble.words(), "refused");
    EXPECT_EQ(heard.trouble.device_certificate(), "Failed Fetch");
}

}  // namespace
}  // namespace kel::http::tool
