// SPDX-License-Identifier: MIT
#include <filesystem>

#include "client/Arrivals.h"
#include "client/DownloadTest.h"

namespace kel::http::test {
namespace {

using testing::SizeIs;

constexpr const char* SumOfNothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* SumOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class DownloadDigestTest : public DownloadTest {
 protected:
    DownloadDigestTest() {
        useDigest([this] {
            makers.push_back(ko::this_thread::get_id());
            return checksum::sha256();
        });
    }

    // The thread of each call of the factory. Executor's thread; the test's when nothing is started.
    std::vector<ko::thread_id> makers;
};

TEST_F(DownloadDigestTest, TheBodyIsTheChecksumInHexadecimal) {
    server.enqueue(Reply(200).chunked().body("a").body("b").body("c"));
    EXPECT_EQ(response(get()).body, SumOfAbc);
    EXPECT_EQ(content(), "abc");
    EXPECT_THAT(makers, testing::ElementsAre(executor.threadId()));
}

TEST_F(DownloadDigestTest, AnEmptyFileHasTheChecksumOfNothing) {
    server.enqueue(Reply(200));
    EXPECT_EQ(response(get()).body, SumOfNothing);
    EXPECT_EQ(content(), "");
}

TEST_F(DownloadDigestTest, ALargeFileHasTheChecksumOfAllItsBytes) {
    const std::string bytes = pattern(5000000);
    server.enqueue(Reply(200).body(bytes));
    EXPECT_EQ(response(get()).body, sha256Of(bytes));
}

TEST_F(DownloadDigestTest, TheBodyOfAnErrorStatusHasOneToo) {
    server.enqueue(Reply(404).body("abc"));
    const ResponseData data = response(get());
    EXPECT_EQ(data.status, 404);
    EXPECT_EQ(data.body, SumOfAbc);
}

TEST_F(DownloadDigestTest, ARedirectOnTheWayIsNotPartOfIt) {
    server.enqueue(Reply::redirect("/next").body("see there"));
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(get()).body, SumOfAbc);
    EXPECT_THAT(makers, SizeIs(1));
}

TEST_F(DownloadDigestTest, EachOfManyAtOnceHasItsOwn) {
    constexpr unsigned count = 40;
    // Each body halts in its middle until all have begun.
    const auto body = [](const std::string& path) { return path + pattern(30000) + path; };
    server.onRequest([&body](const ReceivedRequest& request) {
        const std::string whole = body(request.target);
        return Reply(200).body(whole.substr(0, 20000)).stallBeforeEnd(whole.substr(20000));
    });
    std::vector<Client::RequestId> ids;
    for (unsigned i = 0; i < count; ++i) {
        ids.push_back(startDownload(get('/' + std::to_string(i)), directory.path(std::to_string(i))));
    }
    for (const Client::RequestId id : ids) recorder.awaitProgress(id);
    server.release(count);
    for (unsigned i = 0; i < count; ++i) {
        const std::string whole = body('/' + std::to_string(i));
        EXPECT_EQ(responseOf(ids[i]).body, sha256Of(whole)) << i;
        EXPECT_TRUE(readWholeFile(directory.path(std::to_string(i))) == whole) << i;
    }
    EXPECT_THAT(makers, SizeIs(count));
}

// --- where there is none ---

TEST_F(DownloadDigestTest, AResumedFileHasNone) {
    writeWholeFile(target, "a");
    server.enqueue(Reply(206).header("Content-Range", "bytes 1-2/3").body("bc"));
    EXPECT_EQ(response(resuming()).body, "");
    EXPECT_EQ(content(), "abc");
}

TEST_F(DownloadDigestTest, AResumedFileThatIsBegunHasNone) {
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(resuming()).body, "");
    server.enqueue(Reply(416));
    EXPECT_EQ(response(resuming()).body, "");
}

TEST_F(DownloadDigestTest, APlainRequestAsksForNone) {
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(fetch(get()).response->body, "abc");
    server.enqueue(Reply(200));
    EXPECT_EQ(fetch(get()).response->body, "");
    EXPECT_THAT(makers, testing::IsEmpty());
}

TEST_F(DownloadDigestTest, AFactoryOfNothingGivesNone) {
    unsigned calls = 0;
    useDigest([&calls] {
        ++calls;
        return nullptr;
    });
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(get()).body, "");
    EXPECT_EQ(content(), "abc");
    EXPECT_EQ(calls, 1U);
}

TEST_F(DownloadDigestTest, WithoutAFactoryThereIsNone) {
    useDigest(nullptr);
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(get()).body, "");
}

TEST_F(DownloadDigestTest, WithoutOptionsThereIsNone) {
    useLogger("TestClient");
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(get()).body, "");
}

// A checksum that is asked for its result before the file has its name would tell of a file that is not there.
TEST_F(DownloadDigestTest, AFileThatCanNotBeRenamedIsNotSummedUp) {
    class Unfinished : public checksum::Digest {
     public:
        explicit Unfinished(bool& was_finished) : finished_(was_finished) {}
        void do_update(ko::span<const unsigned char>) override {}
        std::vector<unsigned char> done() override {
            finished_ = true;
            return {};
        }

     private:
        bool& finished_;
    };
    bool finished = false;
    useDigest([&finished] { return std::make_unique<Unfinished>(finished); });
    std::filesystem::create_directory(target);
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(error(get()).message, target);
    EXPECT_FALSE(finished);
}

TEST_F(DownloadDigestTest, AFailedOneDoesNotSpoilTheNext) {
    server.enqueue(Reply(200).body("abc").closeInsideBody());
    EXPECT_EQ(error(get()).failure, ClientFailure::Other);
    server.enqueue(Reply(200).body("abc"));
    EXPECT_EQ(response(get()).body, SumOfAbc);
    EXPECT_THAT(makers, SizeIs(2));
}

}  // namespace
}  // namespace kel::http::test
