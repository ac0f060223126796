// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "client/DownloadTest.h"
#include "client/FailingChmod.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;

unsigned int modeOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) ADD_FAILURE() << path << " is not there";
    return status.st_mode & 07777U;
}

// The process's, for what is made while it lives.
class Umask {
 public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    ~Umask() { umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

 private:
    const mode_t before_;
};

class DownloadModeTest : public DownloadTest {
 protected:
    void keepOld(mode_t mode) const {
        writeWholeFile(target, "old");
        ASSERT_EQ(chmod(target.c_str(), mode), 0);
    }

    // That of the file in which the body arrives, and of the finished one.
    std::vector<unsigned int> modesOfDownload() {
        server.enqueue(Reply(200).body("new ").stallBeforeEnd("bytes"));
        const Client::RequestId id = startDownload(get());
        recorder.awaitProgress(id);
        std::vector<unsigned int> modes;
        for (const std::string& name : directory.names()) {
            if (name != "f.bin") modes.push_back(modeOf(directory.path(name)));
        }
        server.release();
        EXPECT_EQ(responseOf(id).status, 200);
        EXPECT_EQ(content(), "new bytes");
        modes.push_back(modeOf(target));
        return modes;
    }

    unsigned int modeOfEmptyDownload() {
        server.enqueue(Reply(200));
        EXPECT_EQ(response(get()).status, 200);
        EXPECT_EQ(content(), "");
        return modeOf(target);
    }
};

TEST_F(DownloadModeTest, AReplacedFilesModeHoldsFromTheFirstByteOn) {
    const Umask usual(022);
    for (const mode_t mode : {0600U, 0640U, 0644U, 0400U, 0755U}) {
        keepOld(mode);
        EXPECT_THAT(modesOfDownload(), ElementsAre(mode, mode));
        std::filesystem::remove(target);
    }
}

TEST_F(DownloadModeTest, AReplacedFilesModeHoldsWhateverTheProcessMasks) {
    const Umask strict(077);
    keepOld(0664);
    EXPECT_THAT(modesOfDownload(), ElementsAre(0664U, 0664U));
}

TEST_F(DownloadModeTest, AReplacedFilesModeHoldsForAnEmptyOneToo) {
    const Umask usual(022);
    keepOld(0600);
    EXPECT_EQ(modeOfEmptyDownload(), 0600U);
    keepOld(0664);
    EXPECT_EQ(modeOfEmptyDownload(), 0664U);
}

TEST_F(DownloadModeTest, APartThatIsKeptIsNoMoreReadableThanTheFile) {
    const Umask usual(022);
    keepOld(0600);
    server.enqueue(Reply(200).body(std::string(1000, 'x')).closeInsideBody(100));
    error(keeping());
    ASSERT_THAT(directory.names(), ElementsAre("f.bin", isPart()));
    EXPECT_EQ(modeOf(directory.path(directory.names()[1])), 0600U);
}

// What a server sends does not become a program that runs as somebody else.
TEST_F(DownloadModeTest, RightsOfAProgramAreNotHandedOn) {
    const Umask usual(022);
    keepOld(06755);
    EXPECT_THAT(modesOfDownload(), ElementsAre(0755U, 0755U));
    keepOld(01700);
    EXPECT_EQ(modeOfEmptyDownload(), 0700U);
}

TEST_F(DownloadModeTest, ANewFileHasWhatTheProcessGrants) {
    const Umask usual(027);
    EXPECT_THAT(modesOfDownload(), ElementsAre(0640U, 0640U));
    std::filesystem::remove(target);
    EXPECT_EQ(modeOfEmptyDownload(), 0640U);
}

// A link has no mode, and what it points to stays.
TEST_F(DownloadModeTest, WhatReplacesALinkHasWhatTheProcessGrants) {
    const Umask usual(022);
    const std::string pointed_to = directory.path("elsewhere");
    writeWholeFile(pointed_to, "old");
    ASSERT_EQ(chmod(pointed_to.c_str(), 0600), 0);
    std::filesystem::create_symlink(pointed_to, target);
    EXPECT_EQ(modeOfEmptyDownload(), 0644U);
    EXPECT_EQ(modeOf(pointed_to), 0600U);
}

TEST_F(DownloadModeTest, AResumedFileKeepsItsMode) {
    const Umask usual(022);
    writeWholeFile(target, "01234");
    ASSERT_EQ(chmod(target.c_str(), 0660), 0);
    server.enqueue(Reply(206).header("Content-Range", "bytes 5-9/10").body("56789"));
    EXPECT_EQ(response(resuming()).status, 206);
    EXPECT_EQ(modeOf(target), 0660U);
}

// --- while the mode can not be set ---

TEST_F(DownloadModeTest, NobodyMayReadTheFileBeforeItsModeIsSet) {
    const Umask none(0);
    keepOld(0600);
    const FailingChmod failure(EPERM);
    EXPECT_THAT(modesOfDownload(), ElementsAre(0600U, 0600U));
    EXPECT_EQ(failure.calls(), 1U);
}

TEST_F(DownloadModeTest, AModeThatCanNotBeSetMayBeNarrower) {
    const Umask strict(077);
    keepOld(0664);
    const FailingChmod failure(EPERM);
    EXPECT_THAT(modesOfDownload(), ElementsAre(0600U, 0600U));
}

// A filesystem with a mode of its own.
TEST_F(DownloadModeTest, AModeThatCanNotBeSetMayNotBeWider) {
    keepOld(0600);
    const FailingChmod failure(EPERM, 0755);
    server.enqueue(Reply(200).body("bytes"));
    EXPECT_EQ(error(get()).failure, ClientFailure::WriteFailed);
    server.enqueue(Reply(200));
    EXPECT_EQ(error(get()).message, "Failed to write empty response");
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    EXPECT_EQ(content(), "old");
}

}  // namespace
}  // namespace kel::http::test
