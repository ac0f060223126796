// SPDX-License-Identifier: MIT
#include "kel-http/client/DownloadFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "client/DownloadTest.h"
#include "client/FailingChmod.h"
#include "client/FullDisk.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DownloadFileTest : public testing::Test {
 protected:
    std::string changeOf(tl::optional<std::uintmax_t> expected) {
        try {
            file.append(target, expected);
            ADD_FAILURE() << "opened";
        } catch (const DownloadFile::Changed& changed) {
            return changed.what();
        }
        return {};
    }

    const TemporaryDirectory directory;
    const std::string target = directory.path("f");
    const std::string sibling = directory.path("f.new");
    DownloadFile file;
};

// --- writing ---

TEST_F(DownloadFileTest, PiecesOfEverySizeStandOneBehindTheOther) {
    const std::string whole = pattern(300000);
    ASSERT_TRUE(file.create(sibling, target));
    std::size_t at = 0;
    for (std::size_t size = 1; at + size < whole.size(); size = size * 5 % 20011) {
        ASSERT_TRUE(file.write(std::string_view(whole).substr(at, size)));
        at += size;
    }
    ASSERT_TRUE(file.write(std::string_view(whole).substr(at)));
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(readWholeFile(sibling) == whole);
}

TEST_F(DownloadFileTest, SmallPiecesAreCollected) {
    ASSERT_TRUE(file.create(sibling, target));
    EXPECT_TRUE(file.write(std::string(1023, 'a')));
    EXPECT_TRUE(file.write(std::string(1023, 'a')));
    EXPECT_EQ(std::filesystem::file_size(sibling), 0U);
    EXPECT_TRUE(file.write(std::string(1024, 'b')));
    EXPECT_EQ(std::filesystem::file_size(sibling), 3070U);
    EXPECT_TRUE(file.write("c"));
    file.flush();
    EXPECT_EQ(std::filesystem::file_size(sibling), 3071U);
}

TEST_F(DownloadFileTest, CollectedPiecesDoNotGrowWithoutEnd) {
    ASSERT_TRUE(file.create(sibling, target));
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(file.write(std::string(100, 'a')));
    EXPECT_GT(std::filesystem::file_size(sibling), 8000U);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(std::filesystem::file_size(sibling), 10000U);
}

TEST_F(DownloadFileTest, NothingIsWrittenBehindAGap) {
    ASSERT_TRUE(file.create(sibling, target));
    EXPECT_TRUE(file.write("little"));
    {
        const FullDisk full(3);
        EXPECT_FALSE(file.write(std::string(2000, 'x')));
    }
    EXPECT_FALSE(file.write("more"));
    EXPECT_FALSE(file.close());
    EXPECT_EQ(readWholeFile(sibling), "lit");
}

TEST_F(DownloadFileTest, AFlushThatFailsIsToldByTheNextPieceAndTheEnd) {
    ASSERT_TRUE(file.create(sibling, target));
    {
        const FullDisk full(3);
        EXPECT_TRUE(file.write("little"));
        file.flush();
    }
    EXPECT_FALSE(file.write("more"));
    file.flush();
    EXPECT_FALSE(file.close());
    EXPECT_EQ(readWholeFile(sibling), "lit");
}

TEST_F(DownloadFileTest, ItsEndWritesWhatWasCollectedAndClosesIt) {
    const OpenDescriptors before;
    {
        DownloadFile other;
        ASSERT_TRUE(other.create(sibling, target));
        EXPECT_TRUE(other.write("bytes"));
    }
    EXPECT_EQ(readWholeFile(sibling), "bytes");
    EXPECT_THAT(before.opened(), IsEmpty());
}

// --- a new file ---

TEST_F(DownloadFileTest, AFileThatReplacesNoneMayBeThereAlready) {
    writeWholeFile(sibling, "much longer than what comes");
    ASSERT_TRUE(file.create(sibling, target));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(readWholeFile(sibling), "");
}

// It may be somebody else's, who would read what the old one keeps from him.
TEST_F(DownloadFileTest, AFileThatReplacesOneMayNotBeThereAlready) {
    writeWholeFile(target, "old");
    writeWholeFile(sibling, "another's");
    EXPECT_FALSE(file.create(sibling, target));
    EXPECT_FALSE(file.is_open());
    EXPECT_EQ(readWholeFile(sibling), "another's");
}

TEST_F(DownloadFileTest, WithoutTheOldFilesModeNoneIsMade) {
    writeWholeFile(target, "old");
    ASSERT_EQ(chmod(target.c_str(), 0600), 0);
    const FailingChmod failure(EPERM, 0604);
    EXPECT_FALSE(file.create(sibling, target));
    EXPECT_FALSE(file.is_open());
    EXPECT_THAT(directory.names(), ElementsAre("f"));
}

TEST_F(DownloadFileTest, AFileThatCanNotBeLookedAtIsNotReplaced) {
    const std::string name = directory.path(std::string(256, 'n'));
    EXPECT_FALSE(file.create(sibling, name));
    EXPECT_THAT(directory.names(), IsEmpty());
}

// --- the end of an old one ---

TEST_F(DownloadFileTest, AFileOfTheExpectedSizeIsAppendedTo) {
    writeWholeFile(target, "01234");
    ASSERT_TRUE(file.append(target, 5));
    EXPECT_EQ(file.size_before(), 5U);
    EXPECT_TRUE(file.write("56789"));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(readWholeFile(target), "0123456789");
}

TEST_F(DownloadFileTest, WhereNothingIsExpectedAFileIsMade) {
    ASSERT_TRUE(file.append(target, 0));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(readWholeFile(target), "");
}

TEST_F(DownloadFileTest, WithoutAnExpectationEachSizeIsRight) {
    writeWholeFile(target, "01234");
    ASSERT_TRUE(file.append(target, tl::nullopt));
    EXPECT_EQ(file.size_before(), 5U);
}

TEST_F(DownloadFileTest, AnotherSizeIsTold) {
    writeWholeFile(target, "01234");
    EXPECT_THAT(changeOf(6),
                HasSubstr("'" + target + "': it had 6 bytes when the rest was asked for, and has 5 bytes "));
    EXPECT_EQ(readWholeFile(target), "01234");
}

TEST_F(DownloadFileTest, AMissingFileIsToldAndNotMade) {
    EXPECT_THAT(changeOf(6), HasSubstr("is not there now"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(DownloadFileTest, WhatIsNoFileIsTold) {
    std::filesystem::create_directory(target);
    EXPECT_THAT(changeOf(6), HasSubstr("is no regular file now"));
    EXPECT_THAT(changeOf(tl::nullopt), HasSubstr("is no regular file now"));
}

TEST_F(DownloadFileTest, AFolderThatIsMissingIsNoChangeWhereNothingWasExpected) {
    EXPECT_FALSE(file.append(directory.path("missing/f"), 0));
}

}  // namespace
}  // namespace kel::http::test
