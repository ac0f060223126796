// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "client/DownloadTest.h"
#include "support/CountingProxy.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What becomes of a resumed download when somebody is at its file after the rest has been asked for.
class DownloadChangeTest : public DownloadTest {
 protected:
    static constexpr const char* nothing_written =
        " now. Nothing has been written: start the download again, and leave the file alone meanwhile";

    // The file's rest, or all of it, as whoever has asked would get it; the body waits.
    Reply waitingAnswer() const {
        if (!std::filesystem::exists(target) || std::filesystem::file_size(target) == 0) {
            return Reply(200).pause().body("0123456789");
        }
        return Reply(206).header("Content-Range", "bytes 5-9/10").pause().body("56789");
    }

    // Lets `change` happen between the question and the first byte.
    Client::RequestId startWith(const std::function<void()>& change) {
        server.enqueue(waitingAnswer());
        const Client::RequestId id = startDownload(resuming());
        server.awaitRequests(1);
        change();
        server.release();
        return id;
    }

    void expectRefusal(const std::string& text, const std::function<void()>& change) {
        const ErrorData told = errorOf(startWith(change));
        EXPECT_EQ(told.failure, ClientFailure::RangeError);
        EXPECT_EQ(told.message, "Can not resume '" + target + "': " + text);
    }

    void keepPart() const { writeWholeFile(target, "01234"); }
};

TEST_F(DownloadChangeTest, RemovedTheFileIsNotMadeAnew) {
    keepPart();
    expectRefusal(std::string("it had 5 bytes when the rest was asked for, and is not there") + nothing_written,
                  [this] { std::filesystem::remove(target); });
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadChangeTest, GrownTheFileIsLeftAlone) {
    keepPart();
    expectRefusal(std::string("it had 5 bytes when the rest was asked for, and has 8 bytes") + nothing_written,
                  [this] { writeWholeFile(target, "01234567"); });
    EXPECT_EQ(content(), "01234567");
}

TEST_F(DownloadChangeTest, ShortenedTheFileIsLeftAlone) {
    keepPart();
    expectRefusal(std::string("it had 5 bytes when the rest was asked for, and has 2 bytes") + nothing_written,
                  [this] { std::filesystem::resize_file(target, 2); });
    EXPECT_EQ(content(), "01");
}

TEST_F(DownloadChangeTest, EmptiedTheFileIsLeftAlone) {
    keepPart();
    expectRefusal(std::string("it had 5 bytes when the rest was asked for, and has 0 bytes") + nothing_written,
                  [this] { writeWholeFile(target, ""); });
    EXPECT_EQ(content(), "");
}

TEST_F(DownloadChangeTest, AFileThatHasComeMeanwhileIsLeftAlone) {
    expectRefusal(std::string("it was empty or missing when the file was asked for, and has 5 bytes") + nothing_written,
                  [this] { keepPart(); });
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadChangeTest, AnEmptyFileThatHasGrownIsLeftAlone) {
    writeWholeFile(target, "");
    expectRefusal(std::string("it was empty or missing when the file was asked for, and has 5 bytes") + nothing_written,
                  [this] { keepPart(); });
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadChangeTest, AnEmptyFileThatHasComeMeanwhileIsWrittenTo) {
    const Client::RequestId id = startWith([this] { writeWholeFile(target, ""); });
    EXPECT_EQ(responseOf(id).status, 200);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadChangeTest, AnEmptyFileThatHasGoneIsMadeAnew) {
    writeWholeFile(target, "");
    const Client::RequestId id = startWith([this] { std::filesystem::remove(target); });
    EXPECT_EQ(responseOf(id).status, 200);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DownloadChangeTest, AnotherFileOfTheSameSizeIsGoneOnWith) {
    keepPart();
    const Client::RequestId id = startWith([this] {
        std::filesystem::remove(target);
        writeWholeFile(target, "abcde");
    });
    EXPECT_EQ(responseOf(id).status, 206);
    EXPECT_EQ(content(), "abcde56789");
}

TEST_F(DownloadChangeTest, AFolderInItsPlaceIsNoFileToGoOnWith) {
    keepPart();
    expectRefusal(std::string("it had 5 bytes when the rest was asked for, and is no regular file") + nothing_written,
                  [this] {
                      std::filesystem::remove(target);
                      std::filesystem::create_directory(target);
                  });
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
}

// Nobody waits for somebody to read from it.
TEST_F(DownloadChangeTest, APipeInItsPlaceIsNoFileToGoOnWith) {
    const auto replace = [this] {
        std::filesystem::remove(target);
        ASSERT_EQ(mkfifo(target.c_str(), 0600), 0);
    };
    keepPart();
    const std::string text =
        std::string("it had 5 bytes when the rest was asked for, and is no regular file") + nothing_written;
    expectRefusal(text, replace);
}

TEST_F(DownloadChangeTest, APipeThatIsReadFromIsNoFileToGoOnWith) {
    keepPart();
    FileDescriptor reader;
    const std::string text =
        std::string("it had 5 bytes when the rest was asked for, and is no regular file") + nothing_written;
    expectRefusal(text, [&] {
        std::filesystem::remove(target);
        ASSERT_EQ(mkfifo(target.c_str(), 0600), 0);
        reader = FileDescriptor(open(target.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    });
    char byte = 0;
    EXPECT_EQ(read(reader.get(), &byte, 1), 0);
}

// A folder that has become a file holds nothing.
TEST_F(DownloadChangeTest, WithoutItsFolderTheFileIsMissing) {
    const std::string folder = directory.path("folder");
    for (const bool has_successor : {false, true}) {
        std::filesystem::create_directory(folder);
        writeWholeFile(folder + "/f.bin", "01234");
        server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").pause().body("56789"));
        const std::size_t requests = server.requests().size();
        const Client::RequestId id = startDownload(resuming(), folder + "/f.bin");
        server.awaitRequests(requests + 1);
        std::filesystem::remove_all(folder);
        if (has_successor) writeWholeFile(folder, "a file");
        server.release();
        const ErrorData told = errorOf(id);
        EXPECT_EQ(told.failure, ClientFailure::RangeError);
        EXPECT_THAT(told.message, HasSubstr("is not there now"));
    }
    EXPECT_EQ(readWholeFile(folder), "a file");
}

TEST_F(DownloadChangeTest, AllThatCameDuringAPauseIsLeftOut) {
    keepPart();
    server.enqueue(waitingAnswer());
    const Client::RequestId id = startDownload(resuming());
    server.awaitRequests(1);
    pause(id);
    server.release();
    server.awaitBodyBytesSent(5);
    drain();
    std::filesystem::remove(target);
    resume(id);
    EXPECT_EQ(errorOf(id).failure, ClientFailure::RangeError);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadChangeTest, ThePageOfAnErrorIsNotAppendedToAFileThatHasComeMeanwhile) {
    server.enqueue(Reply(404).pause().body("not found"));
    const Client::RequestId id = startDownload(resuming());
    server.awaitRequests(1);
    keepPart();
    server.release();
    EXPECT_EQ(errorOf(id).failure, ClientFailure::RangeError);
    EXPECT_EQ(content(), "01234");
}

TEST_F(DownloadChangeTest, WithoutABodyTheFileIsNotLookedAt) {
    keepPart();
    server.enqueue(Reply(416).stallBeforeHeaders());
    const Client::RequestId id = startDownload(resuming());
    server.awaitRequests(1);
    std::filesystem::remove(target);
    server.release();
    responseOf(id);
    EXPECT_THAT(directory.names(), IsEmpty());
}

// The next proxy's server is asked for what is missing by then.
TEST_F(DownloadChangeTest, AnotherAttemptAsksAnew) {
    ScriptedServer remote(Family::OtherIPv4);  // no list of hosts that need no proxy names it
    const CountingProxy good;
    auto hanging = std::make_unique<CountingProxy>(CountingProxy::Behaviour::Silent);
    engine().setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    RequestConfig config = resuming();
    config.url = remote.url();
    config.proxies = {hanging->url(), good.url()};
    keepPart();
    remote.enqueue(Reply(206).header("Content-Range", "bytes 7-9/10").body("789"));
    const Client::RequestId id = startDownload(config);
    hanging->awaitRequests(1);
    writeWholeFile(target, "0123456");
    hanging.reset();
    EXPECT_EQ(responseOf(id).status, 206);
    EXPECT_EQ(remote.requests().at(0).header("Range"), "bytes=7-");
    EXPECT_EQ(content(), "0123456789");
}

}  // namespace
}  // namespace kel::http::test
