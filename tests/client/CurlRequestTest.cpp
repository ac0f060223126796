// SPDX-License-Identifier: MIT
#include "CurlRequestTest.h"

#include <sys/mman.h>

#include <stdexcept>
#include <utility>

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

// --- headers ---

TEST_F(CurlRequestTest, HeadersArriveWithTheResponse) {
    const auto request = plainRequest();
    receiveHead(*request, {"Content-Type: text/plain\r\n", "X-Empty:\r\n"});
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("Content-Type", "text/plain"), Pair("X-Empty", "")));
}

TEST_F(CurlRequestTest, OfRepeatedHeadersTheFirstOneStaysInAnyLetterCase) {
    const auto request = plainRequest();
    receiveHead(*request, {"Content-Type: a\r\n", "content-type: b\r\n", "Set-Cookie: 1\r\n", "SET-COOKIE: 2\r\n"});
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("Content-Type", "a"), Pair("Set-Cookie", "1")));
}

TEST_F(CurlRequestTest, AnEmptyFirstValueStays) {
    const auto request = plainRequest();
    receiveHead(*request, {"X-Answer: \r\n", "X-Answer: 42\r\n"});
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("X-Answer", "")));
}

TEST_F(CurlRequestTest, MalformedHeaderLinesAreIgnored) {
    const auto request = plainRequest();
    receiveHead(*request, {"", "no colon\r\n", "Cut: off", "Unix: line\n", ": no name\r\n", "Good: one\r\n"});
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("Good", "one")));
}

TEST_F(CurlRequestTest, HeadersOfAllAnswersAreCollected) {
    const auto request = plainRequest();
    receiveHead(*request, {"Content-Type: first\r\n", "Location: /next\r\n"});
    receiveHead(*request, {"Content-Type: second\r\n", "Server: s\r\n"});
    complete(*request);
    EXPECT_THAT(response().headers,
                UnorderedElementsAre(Pair("Content-Type", "first"), Pair("Location", "/next"), Pair("Server", "s")));
}

TEST_F(CurlRequestTest, LinesHandedOverInOnePieceAreTakenOneByOne) {
    const auto request = plainRequest();
    request->notifyHeader("HTTP/1.1 200 OK\r\n");
    request->notifyHeader("X-First: 1\r\nUnix: line\nX-Second: 2\r\n\r\n");
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("X-First", "1"), Pair("X-Second", "2")));
}

TEST_F(CurlRequestTest, AWholeAnswersHeadInOnePieceIsComplete) {
    const auto request = plainRequest();
    request->notifyHeader("HTTP/1.1 200 OK\r\nX-First: 1\r\n\r\n");
    complete(*request);
    EXPECT_THAT(response().headers, UnorderedElementsAre(Pair("X-First", "1")));
}

// --- an end inside the headers ---

TEST_F(CurlRequestTest, AnEndInsideTheHeadersIsAnError) {
    const auto request = plainRequest();
    request->notifyHeader("HTTP/1.1 200 OK\r\n");
    request->notifyHeader("Content-Length: 5\r\n");
    complete(*request);
    const ErrorData told = error();
    EXPECT_EQ(told.failure, ClientFailure::Other);
    EXPECT_EQ(told.message, "Connection closed inside the response headers");
}

TEST_F(CurlRequestTest, AnEndInsideTheHeadersOfAnErrorStatusIsAnError) {
    const auto request = plainRequest();
    request->notifyHeader("HTTP/1.1 404 Not Found\r\n");
    fail(*request, Failure::HttpError, "HTTP code=404", 404);
    EXPECT_EQ(error().message, "Connection closed inside the response headers");
}

TEST_F(CurlRequestTest, AnEndInsideTheHeadersBehindACompleteAnswerIsAnError) {
    const auto request = plainRequest();
    receiveHead(*request);
    request->notifyHeader("HTTP/1.1 200 OK\r\n");
    complete(*request);
    EXPECT_EQ(error().message, "Connection closed inside the response headers");
}

TEST_F(CurlRequestTest, TheBlankLineMayEndWithALineFeedAlone) {
    const auto request = plainRequest();
    request->notifyHeader("HTTP/1.1 200 OK\n");
    request->notifyHeader("\n");
    complete(*request);
    EXPECT_EQ(response().status, 200);
}

// --- the body ---

TEST_F(CurlRequestTest, ChunksBecomeTheBody) {
    const auto request = plainRequest();
    receiveHead(*request);
    EXPECT_EQ(request->notifyDataReceived("first, "), 0);
    EXPECT_EQ(request->notifyDataReceived({"\0second", 7}), 0);
    complete(*request);
    EXPECT_EQ(response().body, std::string("first, \0second", 14));
}

TEST_F(CurlRequestTest, WithoutDataTheBodyIsEmpty) {
    const auto request = plainRequest();
    receiveHead(*request);
    complete(*request, 204);
    const ResponseData data = response();
    EXPECT_EQ(data.status, 204);
    EXPECT_EQ(data.body, "");
}

TEST_F(CurlRequestTest, NothingIsTakenWhilePaused) {
    RequestConfig config;
    config.size_limit = 10U;
    const auto request = plainRequest(config);
    receiveHead(*request);
    request->pauseRequest();
    for (int again = 0; again < 3; ++again) EXPECT_EQ(request->notifyDataReceived("123456"), 1);
    request->resumeRequest();
    EXPECT_EQ(request->notifyDataReceived("123456"), 0);
    complete(*request);
    EXPECT_EQ(response().body, "123456");
}

// --- the size limit ---

class CurlRequestLimitTest : public CurlRequestTest {
 protected:
    CurlRequestPtr limitedTo(std::uint32_t bytes) {
        RequestConfig config;
        config.size_limit = bytes;
        return plainRequest(config);
    }

    static void expectRefused(CurlRequest& request, std::string_view data) {
        try {
            request.notifyDataReceived(data);
            ADD_FAILURE() << "accepted";
        } catch (const std::runtime_error& refusal) {
            EXPECT_STREQ(refusal.what(), "Received data exceeds limit");
        }
    }
};

TEST_F(CurlRequestLimitTest, ABodyOfExactlyTheLimitIsAccepted) {
    const auto request = limitedTo(10);
    receiveHead(*request);
    request->notifyDataReceived("123456");
    request->notifyDataReceived("7890");
    complete(*request);
    EXPECT_EQ(response().body, "1234567890");
}

TEST_F(CurlRequestLimitTest, OneByteMoreIsRefused) {
    const auto request = limitedTo(10);
    request->notifyDataReceived("123456");
    request->notifyDataReceived("7890");
    expectRefused(*request, "x");
}

TEST_F(CurlRequestLimitTest, OneChunkBeyondTheLimitIsRefused) {
    const auto request = limitedTo(10);
    expectRefused(*request, "12345678901");
}

TEST_F(CurlRequestLimitTest, ALimitOfNothingRefusesTheFirstByte) {
    const auto request = limitedTo(0);
    expectRefused(*request, "1");
}

TEST_F(CurlRequestLimitTest, SizesAreAddedUpBeyondThirtyTwoBits) {
    constexpr std::size_t Size = 0xFFFFFFFFU;
    // Only their number counts: nobody may read these bytes, and most of them do not even exist.
    constexpr std::size_t Reserved = 4096;
    void* const reserved = mmap(nullptr, Reserved, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(reserved, MAP_FAILED);
    const auto request = limitedTo(0xFFFFFFFFU);
    request->notifyDataReceived("1");
    expectRefused(*request, {static_cast<const char*>(reserved), Size});
    munmap(reserved, Reserved);
}

// --- failures ---

TEST_F(CurlRequestTest, FailuresArriveWithTheirClientsNumberAndTheText) {
    const std::vector<std::pair<Failure, unsigned>> numbers = {
        {Failure::InvalidUrl, 0},  {Failure::ResolveFailed, 1}, {Failure::Other, 2},       {Failure::Timeout, 3},
        {Failure::AuthFailure, 4}, {Failure::ConnectFailed, 5}, {Failure::WriteFailed, 6}, {Failure::RangeError, 7}};
    for (const auto& [failure, number] : numbers) {
        const auto request = plainRequest();
        fail(*request, failure, "the text");
        const Recorder::Outcome told = recorder.await(id);
        ASSERT_TRUE(told.error.has_value());
        EXPECT_EQ(static_cast<unsigned>(told.error->failure), number);
        EXPECT_EQ(told.error->message, "the text");
    }
}

TEST_F(CurlRequestTest, TheTextOfAFailureIsCopied) {
    const auto request = plainRequest();
    std::string text = "for now";
    executor.hold();
    request->setResponseCode(0);
    request->notifyFailure(Failure::Other, text);
    text = "changed";
    executor.release();
    EXPECT_EQ(error().message, "for now");
}

TEST_F(CurlRequestTest, AnErrorStatusIsAResponse) {
    for (const Failure failure : {Failure::AuthFailure, Failure::HttpError}) {
        for (const unsigned int status : {100U, 200U, 401U, 404U, 599U}) {
            const auto request = plainRequest();
            receiveHead(*request);
            request->notifyDataReceived("why");
            fail(*request, failure, "unheard", status);
            const Recorder::Outcome told = recorder.await(id);
            ASSERT_TRUE(told.response.has_value()) << status;
            EXPECT_EQ(told.response->status, static_cast<int>(status));
            EXPECT_EQ(told.response->body, "why");
        }
    }
}

TEST_F(CurlRequestTest, AnAuthFailureWithoutAStatusIsAnError) {
    for (const unsigned int status : {0U, 99U, 600U, 4294967295U}) {
        const auto request = plainRequest();
        receiveHead(*request);
        fail(*request, Failure::AuthFailure, "text", status);
        const Recorder::Outcome told = recorder.await(id);
        ASSERT_TRUE(told.error.has_value()) << status;
        EXPECT_EQ(told.error->failure, ClientFailure::AuthFailure);
    }
}

TEST_F(CurlRequestTest, OtherFailuresAreErrorsWhateverTheStatus) {
    for (const Failure failure : {Failure::Timeout, Failure::Other, Failure::WriteFailed, Failure::RangeError}) {
        const auto request = plainRequest();
        receiveHead(*request);
        request->notifyDataReceived("half");
        fail(*request, failure, "text", 200);
        EXPECT_TRUE(recorder.await(id).error.has_value());
    }
}

// Notes how many tasks had been posted each time it was cancelled.
class CancellationWatch : public ClientImpl::CurlRequest {
 public:
    explicit CancellationWatch(RecordingExecutor& client_executor)
        : CurlRequest(std::make_shared<ClientImpl>(client_executor, *logging::getLogger("TestClient", 0)), 1, {}),
          executor_(client_executor) {}

    void tryToCancelRequest() override {
        posted_before.push_back(executor_.tags().size());
        CurlRequest::tryToCancelRequest();
    }

    std::vector<std::size_t> posted_before;

 private:
    const RecordingExecutor& executor_;
};

TEST_F(CurlRequestTest, AFailureCancelsItsRequestBeforeAnythingIsPosted) {
    for (const Failure failure : {Failure::Timeout, Failure::AuthFailure}) {
        const std::size_t posted = executor.tags().size();
        const auto request = std::make_shared<CancellationWatch>(executor);
        request->reportDownloadProgress(100, 100);
        fail(*request, failure);
        EXPECT_THAT(request->posted_before, ElementsAre(posted));
        EXPECT_EQ(executor.tags().size(), posted + 1);
    }
}

TEST_F(CurlRequestTest, AnErrorStatusCancelsNothing) {
    for (const Failure failure : {Failure::AuthFailure, Failure::HttpError}) {
        const auto request = std::make_shared<CancellationWatch>(executor);
        receiveHead(*request);
        fail(*request, failure, "unheard", 404);
        EXPECT_THAT(request->posted_before, IsEmpty());
    }
    EXPECT_THAT(executor.tags(), ElementsAre(4035, 4035));
}

class CurlRequestDeathTest : public CurlRequestTest {};

TEST_F(CurlRequestDeathTest, AnHttpErrorWithoutAStatusStopsTheProcess) {
    const auto request = plainRequest();
    EXPECT_DEATH(fail(*request, Failure::HttpError),
                 "kel::http::ClientFailure \\{anonymous\\}::convert_failure\\(kel::http::Failure\\): "
                 "Invalid Failure -> ClientFailure conversion\n");
}

TEST_F(CurlRequestDeathTest, AFailureOutsideTheEnumerationStopsTheProcess) {
    const auto request = plainRequest();
    EXPECT_DEATH(fail(*request, static_cast<Failure>(9)),
                 "kel::http::ClientFailure \\{anonymous\\}::convert_failure\\(kel::http::Failure\\): "
                 "Unexpected switch-case fallthrough\n");
}

// --- what is posted ---

TEST_F(CurlRequestTest, AResponseIsPostedWithItsTag) {
    const auto request = plainRequest();
    receiveHead(*request);
    complete(*request);
    EXPECT_THAT(executor.tags(), ElementsAre(4035));
}

TEST_F(CurlRequestTest, AnErrorIsPostedWithItsTag) {
    const auto request = plainRequest();
    fail(*request, Failure::Timeout);
    EXPECT_THAT(executor.tags(), ElementsAre(4036));
}

TEST_F(CurlRequestTest, AnErrorInsteadOfAResponseIsPostedAlone) {
    const auto request = plainRequest();
    complete(*request);
    EXPECT_THAT(executor.tags(), ElementsAre(4036));
}

TEST_F(CurlRequestTest, ProgressOfAPlainRequestIsNotPosted) {
    const auto request = plainRequest();
    receiveHead(*request);
    request->reportDownloadProgress(100, 50);
    request->reportDownloadProgress(100, 100);
    complete(*request);
    EXPECT_THAT(executor.tags(), ElementsAre(4035));
    EXPECT_EQ(request->lastDownloadProgress, 100U);
    EXPECT_EQ(response().status, 200);
}

// --- progress ---

TEST_F(CurlRequestTest, ProgressNamesTheRequestThePeerAndTheCounts) {
    const auto request = download(directory.path("f"));
    request->notifyRemoteAddr("127.0.0.1", 80);
    request->reportDownloadProgress(100, 50);
    const auto reports = progress();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].request_id, id);
    EXPECT_EQ(reports[0].remote_address, "127.0.0.1:80");
    EXPECT_EQ(reports[0].total, 100U);
    EXPECT_EQ(reports[0].received, 50U);
}

TEST_F(CurlRequestTest, ThePeerIsUnknownAtFirstAndMayChange) {
    const auto request = download(directory.path("f"));
    const auto report = [&request] { request->reportDownloadProgress(100, 100); };
    report();
    request->notifyRemoteAddr("", 0);
    report();
    request->notifyRemoteAddr("127.0.0.1", 80);
    report();
    request->notifyRemoteAddr("127.0.0.1", 81);
    report();
    request->notifyRemoteAddr("127.0.0.2", 81);
    report();
    request->notifyRemoteAddr("::1", 81);
    report();
    std::vector<std::string> peers;
    for (const ProgressData& data : progress()) peers.push_back(data.remote_address);
    EXPECT_THAT(peers, ElementsAre("", ":0", "127.0.0.1:80", "127.0.0.1:81", "127.0.0.2:81", "::1:81"));
}

TEST_F(CurlRequestTest, TheTotalIsKeptWhetherItIsToldOrNot) {
    const auto request = download(directory.path("f"));
    request->reportDownloadProgress(100, 0);
    EXPECT_EQ(request->lastDownloadProgress, 100U);
    request->reportDownloadProgress(200, 200);
    EXPECT_EQ(request->lastDownloadProgress, 200U);
}

TEST_F(CurlRequestTest, TheEndIsToldRightBehindAnotherReport) {
    const auto request = download(directory.path("f"));
    request->reportDownloadProgress(100, 50);
    request->reportDownloadProgress(100, 100);
    request->reportDownloadProgress(100, 100);
    std::vector<std::uint32_t> counts;
    for (const ProgressData& data : progress()) counts.push_back(data.received);
    EXPECT_THAT(counts, ElementsAre(50U, 100U, 100U));
}

TEST_F(CurlRequestTest, ProgressBehindTheResponseIsDropped) {
    const auto request = download(directory.path("f"));
    receiveHead(*request);
    complete(*request);
    request->reportDownloadProgress(100, 100);
    outcome();
    EXPECT_THAT(progress(), IsEmpty());
}

TEST_F(CurlRequestTest, ASecondOutcomeIsDropped) {
    const auto request = plainRequest();
    receiveHead(*request);
    complete(*request);
    fail(*request, Failure::Timeout);
    EXPECT_EQ(response().status, 200);
}

}  // namespace
}  // namespace kel::http::test
