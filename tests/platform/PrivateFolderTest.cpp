// SPDX-License-Identifier: MIT
#include "private_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "ConfiguredHost.h"
#include "tervo/platforminfo.h"

namespace {

using ko::host::make_private_folder;
using ko::host::private_folder_path;
using testing::HasSubstr;

class PrivateFolderTest : public testing::Test {
 protected:
    PrivateFolderTest() { chmod(parent.path().c_str(), 0700); }

    std::string own() const { return "/shared/kel-http-" + std::to_string(geteuid()); }
    std::string chosen(const std::string& session) const { return private_folder_path(session.c_str(), "/shared"); }

    static mode_t mode_of(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    const TemporaryFolder parent;
    const std::string folder = parent.file("kel-http");
};

// --- where ---

TEST_F(PrivateFolderTest, IsInTheFolderOfTheSession) {
    EXPECT_EQ(chosen(parent.path()), folder);
}

TEST_F(PrivateFolderTest, IsTheUsersOwnWhereThatOfTheSessionIsOpenToOthers) {
    ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
    EXPECT_EQ(ko::host::choose_private_folder(parent.path().c_str(), "/shared"), own());
    ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
    EXPECT_EQ(ko::host::choose_private_folder(parent.path().c_str(), "/shared"), folder);
}

TEST_F(PrivateFolderTest, IsTheUsersOwnWhereNoFolderOfTheSessionWillDo) {
    EXPECT_EQ(private_folder_path(nullptr, "/shared"), own());
    EXPECT_EQ(chosen(""), own());
    EXPECT_EQ(chosen("relative"), own());
    EXPECT_EQ(chosen("."), own());
    EXPECT_EQ(chosen(parent.file("missing")), own());
}

TEST_F(PrivateFolderTest, FolderOfTheSessionThatIsNotPrivateWillNotDo) {
    for (const mode_t mode : {0755U, 0770U, 0701U, 01777U, 0500U}) {
        ASSERT_EQ(chmod(parent.path().c_str(), mode), 0);
        EXPECT_EQ(chosen(parent.path()), own()) << std::oct << mode;
    }
}

TEST_F(PrivateFolderTest, LinkToAFolderOfTheSessionWillNotDo) {
    ASSERT_EQ(symlink(parent.path().c_str(), parent.file("link").c_str()), 0);
    EXPECT_EQ(chosen(parent.file("link")), own());
}

TEST_F(PrivateFolderTest, SomebodyElsesFolderOfTheSessionWillNotDo) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    ASSERT_EQ(chown(folder.c_str(), 12345, 0), 0);
    EXPECT_EQ(chosen(folder), own());
}

// --- making it ---

TEST_F(PrivateFolderTest, IsMadeForItsUserAlone) {
    const mode_t before = umask(0);
    EXPECT_EQ(make_private_folder(folder), "");
    umask(before);
    EXPECT_EQ(mode_of(folder), 0700U);
    EXPECT_EQ(make_private_folder(folder), "");
}

TEST_F(PrivateFolderTest, IsMadeAnewWhenItHasVanished) {
    EXPECT_EQ(make_private_folder(folder), "");
    ASSERT_EQ(rmdir(folder.c_str()), 0);
    EXPECT_EQ(make_private_folder(folder), "");
    EXPECT_EQ(mode_of(folder), 0700U);
}

TEST_F(PrivateFolderTest, FolderThatOthersHaveRightsToIsRefusedAndLeftAlone) {
    for (const mode_t mode : {0755U, 0750U, 0770U, 0777U, 01777U, 0710U, 0701U}) {
        ASSERT_TRUE(mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST);
        ASSERT_EQ(chmod(folder.c_str(), mode), 0);
        EXPECT_THAT(make_private_folder(folder), HasSubstr("others than its owner")) << std::oct << mode;
        EXPECT_EQ(mode_of(folder), mode);
    }
}

TEST_F(PrivateFolderTest, FolderThatItsOwnerCanNotUseIsRefused) {
    ASSERT_EQ(mkdir(folder.c_str(), 0500), 0);
    EXPECT_NE(make_private_folder(folder), "");
}

TEST_F(PrivateFolderTest, SomebodyElsesFolderIsRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    ASSERT_EQ(chown(folder.c_str(), 12345, 0), 0);
    EXPECT_THAT(make_private_folder(folder), HasSubstr("user 12345"));
}

TEST_F(PrivateFolderTest, LinkToAPrivateFolderIsRefused) {
    ASSERT_EQ(mkdir(parent.file("target").c_str(), 0700), 0);
    ASSERT_EQ(symlink("target", folder.c_str()), 0);
    EXPECT_THAT(make_private_folder(folder), HasSubstr("no folder"));
}

TEST_F(PrivateFolderTest, LinkToNothingIsRefusedAndMakesNothing) {
    ASSERT_EQ(symlink("target", folder.c_str()), 0);
    EXPECT_THAT(make_private_folder(folder), HasSubstr("no folder"));
    EXPECT_NE(access(parent.file("target").c_str(), F_OK), 0);
}

TEST_F(PrivateFolderTest, FileInItsPlaceIsRefused) {
    parent.write("kel-http", "");
    EXPECT_THAT(make_private_folder(folder), HasSubstr("no folder"));
}

TEST_F(PrivateFolderTest, FolderThatCanNotBeMadeIsRefused) {
    EXPECT_THAT(make_private_folder(parent.file("missing/kel-http")), HasSubstr("can not be made"));
}

// --- the process's own ---

// Asked for `times` over; the folder, or what has been logged instead.
[[noreturn]] void ask(const char* session, int times) {
    setenv("XDG_RUNTIME_DIR", session, 1);
    ko::host::Settings settings;
    settings.secure_store_directory = "/nonexistent";
    int lines = 0;
    settings.log_sink = [&lines](const ko::host::LogLine& line) {
        ++lines;
        std::fprintf(stderr, "%d %.*s\n", line.level, static_cast<int>(line.text.size()), line.text.data());
    };
    ko::host::configure(settings);
    std::string answer;
    while (times-- > 0) answer = tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP");
    std::fprintf(stderr, "folder '%s', %d lines", answer.c_str(), lines);
    settings.log_sink = nullptr;
    ko::host::configure(settings);
    std::exit(0);
}

using PrivateFolderDeathTest = PrivateFolderTest;

TEST_F(PrivateFolderDeathTest, TemporaryFolderIsMadeWhenItIsAskedFor) {
    EXPECT_EXIT(ask(parent.path().c_str(), 3), testing::ExitedWithCode(0), "^folder '.*/kel-http', 0 lines$");
}

TEST_F(PrivateFolderDeathTest, ProcessWhoseFolderIsNotPrivateAnyMoreSaysSoOnce) {
    EXPECT_EXIT(
        {
            setenv("XDG_RUNTIME_DIR", parent.path().c_str(), 1);
            tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP");
            chmod(folder.c_str(), 0755);
            ask(parent.path().c_str(), 3);
        },
        testing::ExitedWithCode(0),
        "^1 No temporary files are kept: the folder '.*/kel-http' is not private: others than its owner have rights to "
        "it: give it mode 0700\nfolder '', 1 lines$");
}

}  // namespace
