// SPDX-License-Identifier: MIT
#include "kel-http/curl/UploadFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "kel-http/curl/ContentType.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/OpenDescriptors.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class UploadFileTest : public ::testing::Test {
 protected:
    UploadFileTest() { writeWholeFile(path, "0123456789"); }

    std::string read(UploadFile& file, std::size_t room) {
        std::array<char, 64> buffer{};
        last = file.read(buffer.data(), room);
        return last == CURL_READFUNC_ABORT ? "aborted" : std::string(buffer.data(), last);
    }

    TemporaryDirectory directory;
    const std::string path = directory.path("file");
    TransferFault fault;
    std::size_t last = 0;
};

TEST_F(UploadFileTest, PiecesFollowOneAnotherToTheEnd) {
    UploadFile file(path, fault);
    EXPECT_EQ(file.size(), 10U);
    EXPECT_EQ(read(file, 4), "0123");
    EXPECT_EQ(read(file, 32), "456789");
    EXPECT_EQ(read(file, 32), "");
    EXPECT_FALSE(fault);
}

TEST_F(UploadFileTest, WhatIsAppendedMeanwhileIsNotSent) {
    UploadFile file(path, fault);
    EXPECT_EQ(read(file, 4), "0123");
    writeWholeFile(path, "0123456789GET /smuggled HTTP/1.1\r\n\r\n");
    EXPECT_EQ(read(file, 32), "456789");
    EXPECT_EQ(read(file, 32), "");
    EXPECT_FALSE(fault);
}

TEST_F(UploadFileTest, AFileThatBecomesShorterEndsTheTransferAndIsNamed) {
    UploadFile file(path, fault);
    ASSERT_EQ(truncate(path.c_str(), 4), 0);
    EXPECT_EQ(read(file, 32), "0123");
    EXPECT_EQ(read(file, 32), "aborted");
    ASSERT_TRUE(fault);
    EXPECT_TRUE(fault.isOurs());
    EXPECT_EQ(fault.text(), "The file '" + path + "' became shorter while it was sent: 4 bytes of 10 were left");
}

TEST_F(UploadFileTest, AFileThatCanNotBeReadAnyMoreEndsTheTransferAndIsNamed) {
    UploadFile file(path, fault);
    const FileDescriptor writing(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    for (int descriptor = 3; descriptor < writing.get(); ++descriptor) {
        struct stat theirs {};
        struct stat ours {};
        ASSERT_EQ(fstat(writing.get(), &ours), 0);
        if (fstat(descriptor, &theirs) == 0 && theirs.st_ino == ours.st_ino && theirs.st_dev == ours.st_dev) {
            ASSERT_EQ(dup2(writing.get(), descriptor), descriptor);  // open, but not for reading
        }
    }
    EXPECT_EQ(read(file, 32), "aborted");
    EXPECT_EQ(fault.text(), "Reading the file '" + path + "' failed while it was sent: Bad file descriptor");
}

TEST_F(UploadFileTest, ItIsSentAgainFromWhereLibcurlSays) {
    UploadFile file(path, fault);
    EXPECT_EQ(read(file, 32), "0123456789");
    EXPECT_EQ(file.seek(7, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(file, 32), "789");
    EXPECT_EQ(file.seek(10, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_EQ(read(file, 32), "");
    for (const auto& [offset, origin] : {std::pair(11, SEEK_SET), std::pair(-1, SEEK_SET), std::pair(0, SEEK_CUR)}) {
        EXPECT_EQ(file.seek(offset, origin), CURL_SEEKFUNC_FAIL);
    }
    EXPECT_FALSE(fault);
}

// A form may have more files than a process may have open.
TEST_F(UploadFileTest, AFileThatIsOpenForReadingOnlyKeepsNoDescriptorOtherwise) {
    const OpenDescriptors before;
    UploadFile file(path, fault);
    file.openForReadingOnly();
    EXPECT_THAT(before.opened(), IsEmpty());
    EXPECT_EQ(read(file, 4), "0123");
    EXPECT_THAT(before.opened(), SizeIs(1));
    EXPECT_EQ(read(file, 32), "456789");
    EXPECT_THAT(before.opened(), IsEmpty());
    EXPECT_EQ(read(file, 32), "");
    EXPECT_EQ(file.seek(8, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_THAT(before.opened(), IsEmpty());
    EXPECT_EQ(read(file, 32), "89");
    EXPECT_THAT(before.opened(), IsEmpty());
    EXPECT_FALSE(fault);
}

TEST_F(UploadFileTest, AFileThatHasGoneUntilItIsReadEndsTheTransferAndIsNamed) {
    UploadFile file(path, fault);
    file.openForReadingOnly();
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(read(file, 32), "aborted");
    EXPECT_EQ(fault.text(), "Can not open the file '" + path + "' to send it: No such file or directory");
}

TEST_F(UploadFileTest, WhatIsNoFileIsRefusedByItsName) {
    try {
        UploadFile(directory.path(), fault);
        FAIL();
    } catch (const UploadFile::Refused& refused) {
        EXPECT_TRUE(refused.opened);
        EXPECT_EQ(refused.what(), "Can not send '" + directory.path() + "': it is no regular file");
    }
    try {
        UploadFile("/nonexistent/file", fault);
        FAIL();
    } catch (const UploadFile::Refused& refused) {
        EXPECT_FALSE(refused.opened);
        EXPECT_THAT(refused.what(), HasSubstr("'/nonexistent/file'"));
    }
    EXPECT_THROW(UploadFile("/dev/zero", fault), UploadFile::Refused);
}

TEST(ContentTypeTest, TheEndOfTheNameTellsTheType) {
    EXPECT_STREQ(contentTypeOf("a.gif"), "image/gif");
    EXPECT_STREQ(contentTypeOf("a.jpg"), "image/jpeg");
    EXPECT_STREQ(contentTypeOf("a.JPEG"), "image/jpeg");
    EXPECT_STREQ(contentTypeOf("a.png"), "image/png");
    EXPECT_STREQ(contentTypeOf("a.svg"), "image/svg+xml");
    EXPECT_STREQ(contentTypeOf("a.Txt"), "text/plain");
    EXPECT_STREQ(contentTypeOf("a.htm"), "text/html");
    EXPECT_STREQ(contentTypeOf("a.html"), "text/html");
    EXPECT_STREQ(contentTypeOf("a.pdf"), "application/pdf");
    EXPECT_STREQ(contentTypeOf("a.xml"), "application/xml");
    for (const char* const other : {"a", "txt", "a.txt.gz", ""}) {
        EXPECT_STREQ(contentTypeOf(other), "application/octet-stream") << other;
    }
}

TEST(TransferFaultTest, TheFirstOneCounts) {
    TransferFault fault;
    EXPECT_FALSE(fault);
    EXPECT_FALSE(fault.isOurs());
    fault.note(TransferFault::Side::peer, std::string("first"));
    fault.note(TransferFault::Side::own, "second");
    EXPECT_TRUE(fault);
    EXPECT_FALSE(fault.isOurs());
    EXPECT_STREQ(fault.text(), "first");
}

}  // namespace
}  // namespace kel::http::test
