// SPDX-License-Identifier: MIT
#include <unistd.h>

#include "client/DownloadTest.h"
#include "support/Deadline.h"
#include "support/Emulator.h"
#include "support/ServerProcess.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr const char* Refused = "error 6 Failed writing received data to disk/application";

// Downloads of a process with a disk of its own that is too small. Where nobody may mount one there is nothing to see.
class DownloadRealDiskTest : public testing::Test {
 protected:
    // What the process prints; the names of its folder are left out.
    std::vector<std::string> download(const Reply& reply, const std::vector<std::string>& options) {
        server.enqueue(reply);
        ServerProcess::Program program;
        program.words = commandOf("download_process");
        program.words.insert(program.words.end(), {server.url(), folder.path()});
        program.words.insert(program.words.end(), options.begin(), options.end());
        for (char** variable = environ; *variable != nullptr; ++variable) program.environment.emplace_back(*variable);
        program.log_file = output.path("log");
        ServerProcess process;
        process.start(program);
        if (!process.awaitEnd(Deadline)) throw DeadlineMissed("the end of a download");
        process.stop();
        return readLines(program.log_file);
    }

    static bool hasNoDisk(const std::vector<std::string>& lines) {
        return !lines.empty() && lines[0].find("no disk") == 0;
    }

    ScriptedServer server;
    const TemporaryDirectory folder;
    const TemporaryDirectory output;
};

#define KEL_SKIP_WITHOUT_DISK(lines) \
    if (hasNoDisk(lines)) GTEST_SKIP() << testing::PrintToString(lines)

TEST_F(DownloadRealDiskTest, FullInsideTheFileLeavesTheOldOneOnly) {
    const auto lines = download(Reply(200).body(std::string(1000000, 'x')), {"disk=size=65536", "old=old"});
    KEL_SKIP_WITHOUT_DISK(lines);
    EXPECT_THAT(lines, ElementsAre(Refused, "f 3"));
}

TEST_F(DownloadRealDiskTest, FullAtTheEndLeavesTheOldFileAndTheUnfinishedOne) {
    const auto lines = download(Reply(200).body("little"), {"disk=size=65536", "old=old", "full"});
    KEL_SKIP_WITHOUT_DISK(lines);
    const std::string part = "f\\.downloading-[0123456789abdcef]{8}";
    EXPECT_THAT(lines, ElementsAre(MatchesRegex("error 6 " + folder.path(part)), "f 3", MatchesRegex(part + " 0"),
                                   MatchesRegex("filler [0-9]+")));
}

TEST_F(DownloadRealDiskTest, FullInsideAResumedFileLeavesABeginning) {
    const auto lines =
        download(Reply(206).header("Content-Range", "bytes 3-999/1000000").body(std::string(999997, 'x')),
                 {"disk=size=65536", "old=old", "resume"});
    KEL_SKIP_WITHOUT_DISK(lines);
    EXPECT_THAT(lines, ElementsAre(Refused, "f 65536"));
}

TEST_F(DownloadRealDiskTest, FullAtTheEndOfAResumedFileLeavesABeginning) {
    const std::string page(4096, 'o');
    const auto lines = download(Reply(206).header("Content-Range", "bytes 4096-4101/4102").body("little"),
                                {"disk=size=65536", "old=" + page, "full", "resume"});
    KEL_SKIP_WITHOUT_DISK(lines);
    EXPECT_THAT(lines, ElementsAre("error 6 " + folder.path("f"), "f 4096", MatchesRegex("filler [0-9]+")));
}

TEST_F(DownloadRealDiskTest, WithoutRoomForAnotherNameNothingIsBegun) {
    const std::vector<std::string> options = {"disk=size=65536,nr_inodes=2", "old=old"};
    const auto lines = download(Reply(200).body("little"), options);
    KEL_SKIP_WITHOUT_DISK(lines);
    EXPECT_THAT(lines, ElementsAre(Refused, "f 3"));
    EXPECT_THAT(download(Reply(200), options), testing::Contains("error 6 Failed to write empty response"));
}

}  // namespace
}  // namespace kel::http::test
