// SPDX-License-Identifier: MIT

#include "client/DownloadTest.h"
#include "fixture/LogCapture.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

// --- the file while it is written ---

TEST_F(DownloadTest, TheTargetIsTheOldFileOrTheWholeNewOne) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
    const Client::RequestId id = startDownload(get(), target);
    recorder.awaitProgress(id);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(content(), "old");
    server.release();
    EXPECT_EQ(recorder.await(id).response->body, "");
    EXPECT_EQ(content(), "new bytes");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, TheDownloadPathOfTheConfigurationDoesNotMatter) {
    server.enqueue(Reply(200).body("bytes"));
    RequestConfig config = get();
    config.download_path = directory.path("other");
    EXPECT_EQ(response(config).status, 200);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, AFollowedRedirectsBodyIsNotPartOfTheFile) {
    server.enqueue(Reply::redirect("/next").body("see there"));
    server.enqueue(Reply(200).body("arrived"));
    EXPECT_EQ(response(get()).status, 200);
    EXPECT_EQ(content(), "arrived");
}

// --- answers that are no success ---

TEST_F(DownloadTest, TheBodyOfAnErrorStatusReplacesTheTarget) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(404).body("not found"));
    const ResponseData data = response(get());
    EXPECT_EQ(data.status, 404);
    EXPECT_EQ(data.body, "");
    EXPECT_EQ(content(), "not found");
}

TEST_F(DownloadTest, AnEmptyErrorReplacesTheTargetByAnEmptyFile) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(503));
    EXPECT_EQ(response(get()).status, 503);
    EXPECT_EQ(content(), "");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadTest, AnAnswerThatNothingHasChangedReplacesTheTargetByAnEmptyFile) {
    writeWholeFile(target, "old");
    server.enqueue(Reply(304));
    EXPECT_EQ(response(get()).status, 304);
    EXPECT_EQ(content(), "");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

// --- logs ---

TEST_F(DownloadTest, TheRenameIsLogged) {
    server.enqueue(Reply(200).body("bytes"));
    const LogCapture log("CurlRequest", 4);
    response(get());
    EXPECT_THAT(log.texts("CurlRequest"),
                ElementsAre(MatchesRegex("notifyDataEnd: Renaming tmp file .*/f\\.bin\\.downloading-[0-9a-f]{8} to "
                                         ".*/f\\.bin"),
                            "notifyDataEnd: Rename complete"));
}

TEST_F(DownloadTest, TheBytesOfADownloadAreInNoLog) {
    server.enqueue(Reply(404).header("Content-Type", "application/json").body("bytes of a file"));
    const LogCapture log(9);
    response(get());
    log.await("Rename complete");
    EXPECT_FALSE(log.contains("bytes of a file"));
}

TEST_F(DownloadTest, TheBytesOfAPlainRequestAreLoggedAtLevelNine) {
    server.enqueue(Reply(200).header("Content-Type", "application/json").body("bytes of a body"));
    const LogCapture log(9);
    fetch(get());
    EXPECT_THAT(log.texts("TestClient"), testing::Contains(" Body: bytes of a body"));
    log.await("[data IN");
}

}  // namespace
}  // namespace kel::http::test
