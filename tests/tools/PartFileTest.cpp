// SPDX-License-Identifier: MIT
#include "kel-http/PartFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "kel-http/ToolError.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace {

// Takes the place of the system's, for a while.
std::function<int(int)> on_fsync;

}  // namespace

int fsync(int descriptor) {
    return on_fsync ? on_fsync(descriptor) : static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace kel::http::tool {
namespace {

using test::FileDescriptor;
using test::readWholeFile;
using test::TemporaryDirectory;
using test::watchForWrites;
using test::writeWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;

bool isFolder(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

class PartFileTest : public testing::Test {
 protected:
    PartFileTest() {
        writeWholeFile(target, "old");
        writeWholeFile(target + ".part", "new");
    }
    ~PartFileTest() override { on_fsync = nullptr; }

    void failSyncs(bool of_folder, int error) {
        on_fsync = [=](int descriptor) {
            errno = error;
            return isFolder(descriptor) == of_folder ? -1 : 0;
        };
    }

    TemporaryDirectory directory;
    const std::string target = directory.path("file");
};

TEST_F(PartFileTest, WhatKeepsItFromGrowingIsFoundOutElsewhere) {
    const PartFile part(target);
    const FileDescriptor watch = watchForWrites(part.path());
    EXPECT_EQ(part.find_write_error(), 0);
    pollfd written{watch.get(), POLLIN, 0};
    EXPECT_EQ(poll(&written, 1, 0), 0);
    EXPECT_THAT(directory.names(), ElementsAre("file", "file.part"));
}

TEST_F(PartFileTest, TheBytesAreOnTheDiskBeforeTheNameAndTheNameIsThen) {
    std::vector<std::string> seen;
    on_fsync = [&](int descriptor) {
        seen.push_back((isFolder(descriptor) ? "folder, " : "file, ") + readWholeFile(target));
        return 0;
    };
    PartFile(target).publish();
    EXPECT_THAT(seen, ElementsAre("file, old", "folder, new"));
}

TEST_F(PartFileTest, BytesThatDoNotReachTheDiskReplaceNothing) {
    failSyncs(false, EIO);
    const PartFile part(target);
    try {
        part.publish();
        FAIL() << "published";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.exit_code, LocalFileError);
        EXPECT_THAT(error.what(), HasSubstr("can not write '" + part.path() + "'"));
    }
    EXPECT_EQ(readWholeFile(target), "old");
    EXPECT_EQ(readWholeFile(part.path()), "new");
}

TEST_F(PartFileTest, AFolderThatCanNotBeSyncedIsNoError) {
    failSyncs(true, EINVAL);
    PartFile(target).publish();
    EXPECT_EQ(readWholeFile(target), "new");
}

}  // namespace
}  // namespace kel::http::tool
