// SPDX-License-Identifier: MIT
// What libcurl reads of a body in memory, piece by piece: no engine, no transfer that runs.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>

#include "fixture/RecordingRequest.h"
#include "kel-http/curl/EngineBody.h"

namespace kel::http::test {
namespace {

class EngineBodyPiecesTest : public ::testing::Test {
 protected:
    EngineBodyPiecesTest() { request->config.body = "0123456789"; }

    std::string read(std::size_t room) {
        std::array<char, 16> buffer{};
        return {buffer.data(), EngineBody::read(task, buffer.data(), room)};
    }

    RecordingRequestPtr request = std::make_shared<RecordingRequest>();
    Engine::ActiveTask task{request};
};

TEST_F(EngineBodyPiecesTest, PiecesFollowOneAnotherToTheEnd) {
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(4), "4567");
    EXPECT_EQ(read(4), "89");
    EXPECT_EQ(read(4), "");
}

TEST_F(EngineBodyPiecesTest, ABodyIsSentAgainFromWhereLibcurlSays) {
    EXPECT_EQ(read(16), "0123456789");
    EXPECT_EQ(EngineBody::seek(task, 7, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(16), "789");
    EXPECT_EQ(EngineBody::seek(task, 10, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(16), "");
}

TEST_F(EngineBodyPiecesTest, OtherPlacesAreRefusedAndChangeNothing) {
    EXPECT_EQ(read(2), "01");
    EXPECT_EQ(EngineBody::seek(task, 11, SEEK_SET), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(EngineBody::seek(task, -1, SEEK_SET), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(EngineBody::seek(task, 0, SEEK_CUR), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(EngineBody::seek(task, 0, SEEK_END), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(read(2), "23");
}

}  // namespace
}  // namespace kel::http::test
