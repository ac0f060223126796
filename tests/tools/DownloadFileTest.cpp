// SPDX-License-Identifier: MIT
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "DownloadToolTest.h"
#include "SmallDisk.h"
#include "TestTerminal.h"
#include "support/Sockets.h"

namespace kel::http::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// What can be seen before anything is sent.
class ToolDownloadTargetTest : public DownloadToolTest {
 protected:
    void expectRefusal(const std::string& told) {
        const ToolResult result = download();
        EXPECT_EQ(result.exit_code, 4);
        EXPECT_THAT(result.err, HasSubstr(told));
        EXPECT_EQ(server.connectionCount(), 0U);
    }
};

TEST_F(ToolDownloadTargetTest, AFolderIsNoTarget) {
    std::filesystem::create_directory(target);
    expectRefusal("can not write '" + target + "': Is a directory\n  (it is a folder: give the path of a file in it)");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolDownloadTargetTest, AMissingFolderIsTold) {
    std::filesystem::remove(directory.path());
    expectRefusal("can not write '" + target + "': No such file or directory");
}

TEST_F(ToolDownloadTargetTest, ALinkAndADeviceAreNotReplaced) {
    writeWholeFile(directory.path("real"), "good");
    ASSERT_EQ(symlink("real", target.c_str()), 0);
    expectRefusal("it is a link or a device");
    std::filesystem::remove(target);
    ASSERT_EQ(mkfifo(target.c_str(), 0600), 0);
    expectRefusal("it is a link or a device");
    EXPECT_THAT(directory.names(), ElementsAre("file", "real"));
}

TEST_F(ToolDownloadTargetTest, WhatIsNoFileIsNoPart) {
    std::filesystem::create_directory(part);
    expectRefusal("can not write '" + part + "': Is a directory");
    std::filesystem::remove(part);
    ASSERT_EQ(mkfifo(part.c_str(), 0600), 0);
    expectRefusal("'" + part + "' is no plain file");
    std::filesystem::remove(part);
    ASSERT_EQ(symlink("elsewhere", part.c_str()), 0);
    expectRefusal("can not write '" + part + "'");
    EXPECT_THAT(directory.names(), ElementsAre("file.part"));
}

TEST_F(ToolDownloadTargetTest, ANameThatIsTooLongIsTold) {
    const ToolResult result = runTool({"download", server.url("/file"), directory.path(std::string(300, 'n'))});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("File name too long"));
}

TEST_F(ToolDownloadTargetTest, APartOfARunningDownloadIsLeftAlone) {
    ToolProcess running(words());
    server.awaitRequests(1);
    server.enqueue(Reply(200).body(noise(100000)).stallBeforeEnd());
    awaitSize(part, 90000);
    const ToolResult second = download();
    EXPECT_EQ(second.exit_code, 4);
    EXPECT_THAT(second.err, HasSubstr("another download to '" + target + "' is running"));
    EXPECT_EQ(server.connectionCount(), 1U);
    server.release();
    EXPECT_EQ(running.wait().exit_code, 0);
    EXPECT_TRUE(readWholeFile(target) == noise(100000) + "the rest");
}

// What goes wrong on the way.
class ToolDownloadFolderTest : public DownloadToolTest {
 protected:
    const std::string folder = directory.path("folder");
    const std::string inner = folder + "/file";

    void SetUp() override { std::filesystem::create_directory(folder); }

    // Starts a download, and changes something once its first bytes are there. The rest follows then.
    template <typename Change>
    ToolResult downloadWhile(Change change) {
        ToolProcess tool({"download", server.url("/file"), inner});
        server.awaitRequests(1);
        server.enqueue(Reply(200).body(noise(100000)).stallBeforeEnd());
        awaitSize(inner + ".part", 90000);
        change();
        server.release();
        return tool.wait();
    }
};

TEST_F(ToolDownloadFolderTest, AFolderThatVanishesIsTold) {
    const ToolResult result = downloadWhile([this] { std::filesystem::remove_all(folder); });
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, AllOf(HasSubstr("can not write '" + inner + ".part': No such file or directory"),
                                  HasSubstr("is its folder there?"), Not(HasSubstr("--resume"))));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(ToolDownloadFolderTest, AFolderThatVanishesBeforeTheFirstByteIsTold) {
    ToolProcess tool({"download", server.url("/file"), inner});
    server.awaitRequests(1);
    std::filesystem::remove_all(folder);
    server.enqueue(Reply(200).body("too late"));
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("'" + inner + ".part': No such file or directory"), HasSubstr("is its folder there?")));
}

TEST_F(ToolDownloadFolderTest, AFolderThatTakesTheTargetsNameIsToldAndTheBytesStay) {
    const ToolResult result = downloadWhile([this] { std::filesystem::create_directory(inner); });
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("can not write '" + inner + "': Is a directory"));
    EXPECT_THAT(result.err, HasSubstr("are in '" + inner + ".part'"));
    EXPECT_TRUE(readWholeFile(inner + ".part") == noise(100000) + "the rest");
}

TEST_F(ToolDownloadFolderTest, APartThatSomebodyReplacesIsNotTakenForTheFile) {
    const ToolResult result = downloadWhile([this] {
        std::filesystem::rename(inner + ".part", folder + "/moved");
        writeWholeFile(inner + ".part", "of somebody else");
    });
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_FALSE(std::filesystem::exists(inner));
    EXPECT_EQ(readWholeFile(inner + ".part"), "of somebody else");
}

// As ulimit -f has it; for processes that are started meanwhile.
class SmallFiles {
 public:
    explicit SmallFiles(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit small{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallFiles() { setrlimit(RLIMIT_FSIZE, &before_); }
    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;

 private:
    rlimit before_{};
};

TEST_F(ToolDownloadFolderTest, AFileThatMustNotGrowIsTold) {
    const SmallFiles limited(100000);
    const ToolResult result = download(Reply(200).body(noise(200000)), {"--keep-partial"});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, AllOf(HasSubstr("'" + part + "': File too large"), HasSubstr("see 'ulimit -f'")));
    EXPECT_TRUE(readWholeFile(part) == noise(200000).substr(0, 100000));
}

TEST_F(ToolDownloadFolderTest, AFileThatMustNotGrowShowsAtItsVeryEndToo) {
    TestTerminal terminal(200, 24);  // no file, which would be limited as well
    ToolProcess::Input input;
    input.terminal = terminal.descriptor();
    const SmallFiles limited(100);
    server.enqueue(Reply(200).body(noise(200)));
    EXPECT_EQ(ToolProcess(words(), input).wait().exit_code, 4);
    EXPECT_THAT(terminal.close(), HasSubstr(": can not write '" + part + "': File too large"));
    EXPECT_THAT(directory.names(), ElementsAre("folder"));
}

class ToolDownloadDiskTest : public DownloadToolTest {
 protected:
    void SetUp() override {
        if (!disk.isMounted()) GTEST_SKIP() << "this user may not mount a file system";
        writeWholeFile(on_disk, "good");
    }

    ToolResult downloadToDisk(const Reply& reply, const std::vector<std::string>& options = {}) {
        server.enqueue(reply);
        std::vector<std::string> arguments = {"download", server.url("/file"), on_disk};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return runTool(arguments);
    }

    const SmallDisk disk{65536};
    const std::string whole = noise(200000);
    const std::string on_disk = disk.folder().path("file");
};

TEST_F(ToolDownloadDiskTest, AFullOneIsToldAndTheOldFileStays) {
    const ToolResult result = downloadToDisk(Reply(200).body(whole));
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, AllOf(HasSubstr("Failed writing"), HasSubstr("'" + on_disk + ".part': No space left"),
                                  HasSubstr("make room"), HasSubstr("are removed; --keep-partial keeps them")));
    EXPECT_EQ(readWholeFile(on_disk), "good");
    EXPECT_THAT(disk.folder().names(), ElementsAre("file"));
}

TEST_F(ToolDownloadDiskTest, WithRoomAgainAKeptPartIsGoneOnWith) {
    EXPECT_EQ(downloadToDisk(Reply(200).body(whole), {"--keep-partial"}).exit_code, 4);
    const std::string kept = readWholeFile(on_disk + ".part");
    EXPECT_GT(kept.size(), 0U);
    EXPECT_TRUE(kept == whole.substr(0, kept.size()));
    EXPECT_EQ(readWholeFile(on_disk), "good");
    disk.resize(1048576);
    EXPECT_EQ(downloadToDisk(rest(whole, kept.size()), {"--resume"}).exit_code, 0);
    EXPECT_EQ(server.requests().back().header("Range"), "bytes=" + std::to_string(kept.size()) + "-");
    EXPECT_TRUE(readWholeFile(on_disk) == whole);
    EXPECT_THAT(disk.folder().names(), ElementsAre("file"));
}

TEST_F(ToolDownloadDiskTest, AReadOnlyOneIsToldBeforeAnythingIsSent) {
    disk.makeReadOnly();
    const ToolResult result = downloadToDisk(Reply(200).body(whole));
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr("Read-only file system"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_EQ(readWholeFile(on_disk), "good");
}

}  // namespace
}  // namespace kel::http::test
