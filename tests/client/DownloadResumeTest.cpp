// SPDX-License-Identifier: MIT
#include <atomic>
#include <filesystem>

#include "client/DownloadTest.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DownloadResumeTest : public DownloadTest {
 protected:
    // Half of what the server has.
    void keepPart() const { writeWholeFile(target, "01234"); }

    static Reply part(const std::string& range) { return Reply(206).header("Content-Range", "bytes " + range); }
};

// --- what is asked for ---

TEST_F(DownloadResumeTest, ResumingAsksForWhatIsMissingAndAppendsIt) {
    keepPart();
    server.enqueue(part("5-9/10").body("56789"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(server.requests().at(0).header("Range"), "bytes=5-");
    EXPECT_EQ(content(), "0123456789");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadResumeTest, ResumingGrowsTheTargetInPlace) {
    keepPart();
    server.enqueue(part("5-9/10").body("56").stallBeforeEnd("789"));
    const Client::RequestId id = startDownload(resuming(), target);
    recorder.awaitProgress(id);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    server.release();
    recorder.await(id);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadResumeTest, ResumingWithoutAFileFetchesAll) {
    server.enqueue(Reply(200).body("all"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_FALSE(server.requests().at(0).header("Range").has_value());
    EXPECT_EQ(content(), "all");
}

TEST_F(DownloadResumeTest, ResumingAnEmptyFileFetchesAll) {
    writeWholeFile(target, "");
    server.enqueue(Reply(200).body("all"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_FALSE(server.requests().at(0).header("Range").has_value());
    EXPECT_EQ(content(), "all");
}

// --- what is answered ---

TEST_F(DownloadResumeTest, AServerWithoutRangesIsARangeErrorAndTheBytesStay) {
    keepPart();
    server.enqueue(Reply(200).body("0123456789"));
    EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadResumeTest, AnErrorPageIsWrittenWhereNothingWas) {
    server.enqueue(Reply(404).body("not found"));
    EXPECT_EQ(response(resuming()).status, 404);
    EXPECT_EQ(content(), "not found");
}

TEST_F(DownloadResumeTest, AWholeAnswerAsLongAsTheFileIsASuccessThatAddsNothing) {
    keepPart();
    server.enqueue(Reply(200).body("abcde"));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadResumeTest, ACompleteFileIsAResponse416AndStays) {
    writeWholeFile(target, "0123456789");
    server.enqueue(Reply(416).header("Content-Range", "bytes */10").body("no more"));
    EXPECT_EQ(response(resuming()).status, 416);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadResumeTest, APartThatBeginsElsewhereIsARangeErrorAndTheBytesStay) {
    keepPart();
    for (const std::string range : {"0-9/10", "4-9/10", "6-9/10"}) {
        server.enqueue(part(range).body("another part"));
        EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError) << range;
        EXPECT_EQ(content(), "01234");
    }
}

TEST_F(DownloadResumeTest, APartThatDoesNotSayWhereItBeginsIsARangeErrorAndTheBytesStay) {
    keepPart();
    server.enqueue(Reply(206).body("another part"));
    EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadResumeTest, AnErrorPageIsNotAppendedToWhatIsThere) {
    keepPart();
    for (const int status : {400, 401, 403, 404, 407, 500, 503}) {
        server.enqueue(Reply(status).body("not found"));
        EXPECT_EQ(error(resuming()).failure, ClientFailure::RangeError) << status;
        EXPECT_EQ(content(), "01234");
    }
}

TEST_F(DownloadResumeTest, AnErrorPageAsLongAsTheFileIsAResponseThatChangesNothing) {
    keepPart();
    server.enqueue(Reply(404).body("sorry"));
    EXPECT_EQ(response(resuming()).status, 404);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadResumeTest, AnEmptyErrorIsAResponseThatChangesNothing) {
    keepPart();
    server.enqueue(Reply(404));
    EXPECT_EQ(response(resuming()).status, 404);
    EXPECT_EQ(content(), "01234");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

TEST_F(DownloadResumeTest, AnEmptyAnswerMakesNoFile) {
    server.enqueue(Reply(200));
    EXPECT_EQ(response(resuming()).status, 200);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadResumeTest, ARedirectOnTheWayAddsNothing) {
    keepPart();
    server.enqueue(Reply::redirect("/next").body("see there"));
    server.enqueue(part("5-9/10").body("56789"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(server.requests().at(1).header("Range"), "bytes=5-");
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadResumeTest, AChallengeOnTheWayAddsNothing) {
    keepPart();
    RequestConfig config = resuming();
    config.user = "user";
    config.password = "password";
    server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"there\"").body("who is it?"));
    server.enqueue(part("5-9/10").body("56789"));
    EXPECT_EQ(response(config).status, 206);
    EXPECT_EQ(server.requests().at(1).header("Range"), "bytes=5-");
    EXPECT_EQ(content(), "0123456789");
}

// --- files that can not be looked at ---

TEST_F(DownloadResumeTest, ALinkToItselfIsAnErrorAndNothingIsSent) {
    std::filesystem::create_symlink(target, target);
    const ErrorData told = error(resuming());
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_THAT(told.message, HasSubstr(target));
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(DownloadResumeTest, ANameThatIsTooLongIsAnErrorAndNothingIsSent) {
    const std::string name = directory.path(std::string(256, 'n'));
    const ErrorData told = errorOf(startDownload(resuming(), name));
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_THAT(told.message, HasSubstr(name));
    EXPECT_THAT(server.requests(), IsEmpty());
}

// Below what is no folder nothing can be: all is asked for, and finds no place.
TEST_F(DownloadResumeTest, AFileInThePlaceOfTheFolderIsAWriteFailure) {
    keepPart();
    server.enqueue(Reply(200).body("bytes"));
    EXPECT_EQ(errorOf(startDownload(resuming(), target + "/f.bin")).failure, ClientFailure::WriteFailed);
    EXPECT_FALSE(server.requests().at(0).header("Range").has_value());
    EXPECT_EQ(content(), "01234");
}

// --- cut downloads ---

// A server on a bad line.
class DownloadCutTest : public DownloadTest {
 protected:
    DownloadCutTest() {
        server.onRequest([this](const ReceivedRequest& request) { return answer(request); });
    }

    // Server thread. All from where the request asks, as far as the line bears it.
    Reply answer(const ReceivedRequest& request) {
        const std::string range = request.header("Range").value_or("bytes=0-");
        const std::size_t from = std::stoul(range.substr(6));
        Reply reply(from == 0 ? 200 : 206);
        if (from != 0) {
            reply.header("Content-Range", "bytes " + std::to_string(from) + '-' + std::to_string(whole.size() - 1) +
                                              '/' + std::to_string(whole.size()));
        }
        reply.body(whole.substr(from, bytes_in_a_row));
        if (whole.size() - from > bytes_in_a_row) reply.closeInsideBody(whole.size() - from - bytes_in_a_row);
        return reply;
    }

    const std::string whole = pattern(3000000);
    std::atomic<std::size_t> bytes_in_a_row{0};
};

TEST_F(DownloadCutTest, GoesOnUntilItIsWhole) {
    std::size_t there = 0;
    for (const std::size_t bytes : {1U, 16383U, 16384U, 16385U, 8191U, 100U, 2000000U}) {
        bytes_in_a_row = bytes;
        EXPECT_EQ(error(resuming()).failure, ClientFailure::Other);
        there += bytes;
        EXPECT_TRUE(content() == whole.substr(0, there)) << bytes;
        EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    }
    bytes_in_a_row = whole.size();
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_TRUE(content() == whole);
    EXPECT_EQ(recorder.outcomes().size(), 8U);
}

TEST_F(DownloadCutTest, GoesOnAfterItWasCancelled) {
    bytes_in_a_row = 1000000;
    const Client::RequestId id = startDownload(resuming());
    recorder.awaitProgress(id);
    cancel(id);
    drain();
    const std::string there = content();
    EXPECT_TRUE(there == whole.substr(0, there.size()));
    bytes_in_a_row = whole.size();
    response(resuming());
    EXPECT_TRUE(content() == whole);
}

// --- limits ---

TEST_F(DownloadResumeTest, TheLimitCountsNewBytesOnly) {
    keepPart();
    RequestConfig config = resuming();
    config.size_limit = 5U;
    server.enqueue(part("5-9/10").body("56789"));
    EXPECT_EQ(response(config).status, 206);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadResumeTest, NewBytesBeyondTheLimitAreAWriteFailureAndWhatCameBeforeStays) {
    keepPart();
    RequestConfig config = resuming();
    config.size_limit = 4U;
    server.enqueue(part("5-9/10").chunked().body("5678").stallBeforeEnd("9"));
    const Client::RequestId id = startDownload(config);
    recorder.awaitProgress(id);
    server.release();
    EXPECT_EQ(errorOf(id).failure, ClientFailure::WriteFailed);
    EXPECT_EQ(content(), "012345678");
}

TEST_F(DownloadResumeTest, AnAnnouncedSizeBeyondTheLimitIsRefusedBeforeAByteComes) {
    keepPart();
    RequestConfig config = resuming();
    config.size_limit = 4U;
    server.enqueue(part("5-9/10").body("56789"));
    EXPECT_EQ(error(config).failure, ClientFailure::Other);
    EXPECT_EQ(content(), "01234");
}

// --- from a real server ---

TEST_F(DownloadResumeTest, ARealServerGoesOnWhereTheFileEnds) {
    NginxServer nginx;
    nginx.writeFile("f", "0123456789");
    RequestConfig config;
    config.url = nginx.url("/f");
    config.resume = true;
    keepPart();
    EXPECT_EQ(response(config).status, 206);
    EXPECT_EQ(content(), "0123456789");
    EXPECT_EQ(response(config).status, 416);
    EXPECT_EQ(content(), "0123456789");
}

}  // namespace
}  // namespace kel::http::test
