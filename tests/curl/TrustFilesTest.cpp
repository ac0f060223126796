// SPDX-License-Identifier: MIT
#include "kel-http/curl/TrustFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <stdexcept>

#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

class TrustFilesTest : public testing::Test {
 protected:
    std::string nameOf(const std::string& path) { return trust.nameOf("ca_file", path); }
    // A name that this test has not seen before, for the same file.
    std::string expectNewName(const std::string& path) {
        const std::string name = nameOf(path);
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_EQ(nodeOf(name), nodeOf(path)) << name;
        EXPECT_EQ(nameOf(path), name);
        return name;
    }
    static ino_t nodeOf(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }
    std::string file(const std::string& name, const std::string& text) const {
        writeWholeFile(folder.path(name), text);
        return folder.path(name);
    }
    void point(const std::string& link, const std::string& target) const {
        unlink(link.c_str());
        EXPECT_EQ(symlink(target.c_str(), link.c_str()), 0);
    }

    const TemporaryDirectory folder;
    TrustFiles trust;
    std::set<std::string> names;
};

TEST_F(TrustFilesTest, UnchangedFileKeepsItsPath) {
    const std::string path = file("ca.pem", "one");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(nameOf(path), path);
}

TEST_F(TrustFilesTest, EachChangeBringsANameThatWasNeverUsed) {
    const std::string path = file("ca.pem", "one");
    EXPECT_EQ(expectNewName(path), path);
    file("ca.pem", "one, two");
    expectNewName(path);
    file("ca.pem", "two, one");  // of the same size, in the same place
    expectNewName(path);
    rename(file("ca.new", "two, one").c_str(), path.c_str());
    expectNewName(path);
    unlink(path.c_str());
    expectNewName(path);
    file("ca.pem", "two, one");
    expectNewName(path);
    chmod(path.c_str(), 0);
    expectNewName(path);
}

TEST_F(TrustFilesTest, FileThatWasNotThereBringsANewNameWhenItComes) {
    const std::string path = folder.path("ca.pem");
    EXPECT_EQ(expectNewName(path), path);
    file("ca.pem", "one");
    expectNewName(path);
}

// All within one tick of the kernel's clock, often enough.
TEST_F(TrustFilesTest, QuickChangesOfTheSameSizeShow) {
    const std::string path = file("ca.pem", "00");
    for (int i = 10; i < 40; ++i) {
        expectNewName(path);
        file("ca.pem", std::to_string(i));
    }
}

TEST_F(TrustFilesTest, LinkThatLeadsElsewhereIsAChange) {
    const std::string one = file("one.pem", "one");
    const std::string two = file("two.pem", "two");
    const std::string path = folder.path("ca.pem");
    for (const std::string& target : {one, two, one}) {
        point(path, target);
        expectNewName(path);
    }
}

TEST_F(TrustFilesTest, NamesStayShortHoweverManyThereAre) {
    const std::string targets[] = {file("one.pem", "one"), file("two.pem", "two")};
    const std::string path = folder.path("ca.pem");
    for (int i = 0; i < 3000; ++i) {
        point(path, targets[i % 2]);
        EXPECT_LE(expectNewName(path).size(), path.size() + 24);
    }
}

// A process that is in this folder while this lives.
class WorkingFolder {
 public:
    explicit WorkingFolder(const std::string& folder) : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        EXPECT_EQ(chdir(folder.c_str()), 0);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;
    ~WorkingFolder() { EXPECT_EQ(fchdir(before_.get()), 0); }

 private:
    const FileDescriptor before_;
};

TEST_F(TrustFilesTest, NamesOfARelativePathLeadToTheSameFile) {
    const WorkingFolder here(folder.path());
    mkdir("authorities", 0700);
    for (const std::string path : {"ca.pem", "./other.pem", "authorities/ca.pem", "authorities/../third.pem"}) {
        EXPECT_EQ(expectNewName(path), path);
        for (const char* const text : {"one", "one, two"}) {
            writeWholeFile(path, text);
            expectNewName(path);
        }
    }
}

TEST_F(TrustFilesTest, ChangedFileLeavesTheOthersAlone) {
    const std::string changing = file("changing.pem", "one");
    const std::string other = file("other.pem", "one");
    EXPECT_EQ(nameOf(changing), changing);
    EXPECT_EQ(nameOf(other), other);
    file("changing.pem", "one, two");
    EXPECT_NE(nameOf(changing), changing);
    EXPECT_EQ(nameOf(other), other);
}

// Somebody may spell a path the way the names are.
TEST_F(TrustFilesTest, NoPathIsTheNameOfAnotherOne) {
    const std::string path = file("ca.pem", "one");
    for (const char* const like : {"/./ca.pem", "//ca.pem", "/././ca.pem", "/.//ca.pem", "//./ca.pem"}) {
        expectNewName(folder.path() + like);
    }
    EXPECT_EQ(expectNewName(path), path);
    for (int i = 0; i < 10; ++i) {
        file("ca.pem", std::to_string(i));
        expectNewName(path);
        for (const char* const like : {"/./ca.pem", "//ca.pem", "/././ca.pem", "/.//ca.pem", "//./ca.pem"}) {
            expectNewName(folder.path() + like);
        }
    }
}

TEST_F(TrustFilesTest, ForgottenPathBeginsWithANewName) {
    const std::string path = file("ca.pem", "one");
    const std::string kept = file("kept.pem", "one");
    EXPECT_EQ(expectNewName(path), path);
    EXPECT_EQ(nameOf(kept), kept);
    for (std::size_t i = 0; i < 2 * TrustFiles::Remembered; ++i) {
        expectNewName("/nonexistent/" + std::to_string(i));
        EXPECT_EQ(nameOf(kept), kept);  // those used last are remembered
    }
    expectNewName(path);
    for (std::size_t i = 0; i < 2 * TrustFiles::Remembered; ++i) expectNewName("/nonexistent/" + std::to_string(i));
}

TEST_F(TrustFilesTest, WhatIsNoRegularFileIsNamed) {
    const std::string path = file("ca.pem", "one");
    EXPECT_EQ(expectNewName(path), path);
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    try {
        nameOf(path);
        ADD_FAILURE() << "a pipe";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "ca_file: '" + path + "' is no regular file: name a PEM file");
    }
    unlink(path.c_str());
    file("ca.pem", "two");
    expectNewName(path);
}

TEST_F(TrustFilesTest, PathInTheRootFolder) {
    EXPECT_EQ(expectNewName("/nonexistent.pem"), "/nonexistent.pem");
    EXPECT_EQ(nameOf(""), "");
}

// --- time ---

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

nanoseconds leftAfter(nanoseconds age, long fraction) {
    const timespec changed{1000, fraction};
    const auto now = seconds(1000) + nanoseconds(fraction) + age;
    return blindTimeLeft(changed, std::chrono::system_clock::time_point(now));
}

TEST(BlindTimeTest, ChangesOfOneTickLookAlike) {
    EXPECT_EQ(leftAfter(milliseconds(0), 999000000), milliseconds(10));
    EXPECT_EQ(leftAfter(milliseconds(4), 999000000), milliseconds(6));
    EXPECT_LE(leftAfter(milliseconds(10), 999000000), milliseconds(0));
    EXPECT_LE(leftAfter(seconds(100000), 999000000), milliseconds(0));
}

TEST(BlindTimeTest, ChangesOfOneSecondLookAlikeWhereNothingLessIsKept) {
    EXPECT_EQ(leftAfter(milliseconds(0), 0), milliseconds(2010));
    EXPECT_EQ(leftAfter(milliseconds(1999), 0), milliseconds(11));
    EXPECT_LE(leftAfter(milliseconds(2010), 0), milliseconds(0));
    EXPECT_LE(leftAfter(seconds(4), 0), milliseconds(0));
}

TEST(BlindTimeTest, TimeToComeIsNotWaitedFor) {
    EXPECT_LE(leftAfter(milliseconds(-1), 1000000), milliseconds(0));
    EXPECT_LE(leftAfter(seconds(-1000), 0), milliseconds(0));
}

// --- identities ---

TEST_F(TrustFilesTest, UnchangedIdentityKeepsItsPath) {
    const std::string cert = file("cert.pem", "c");
    const std::string key = file("key.pem", "k");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(trust.nameOfIdentity(cert, key), cert);
    EXPECT_EQ(nameOf(cert), cert);
}

TEST_F(TrustFilesTest, CertificateAndKeyHaveANameTogether) {
    const std::string cert = file("cert.pem", "c");
    const std::string key = file("key.pem", "k");
    std::set<std::string> seen{trust.nameOfIdentity(cert, key)};
    EXPECT_TRUE(seen.insert(trust.nameOfIdentity(cert, file("other.pem", "k"))).second);
    EXPECT_FALSE(seen.insert(trust.nameOfIdentity(cert, key)).second);
    file("key.pem", "l");
    EXPECT_TRUE(seen.insert(trust.nameOfIdentity(cert, key)).second);
    file("cert.pem", "d");
    const std::string last = trust.nameOfIdentity(cert, key);
    EXPECT_TRUE(seen.insert(last).second);
    EXPECT_EQ(nodeOf(last), nodeOf(cert));
}

TEST_F(TrustFilesTest, PathsThatDifferInCaseOnlyHaveDifferentNames) {
    EXPECT_EQ(nameOf(file("ca.pem", "one")), folder.path("ca.pem"));
    const std::string other = nameOf(file("CA.pem", "one"));
    EXPECT_NE(other, folder.path("CA.pem"));
    EXPECT_EQ(nodeOf(other), nodeOf(folder.path("CA.pem")));
}

// --- folders ---

TEST_F(TrustFilesTest, FolderHasANewNameWhenACertificateInItChanges) {
    std::set<std::string> seen{trust.nameOfFolders(folder.path())};
    EXPECT_EQ(*seen.begin(), folder.path());
    const auto isNew = [&] {
        const std::string name = trust.nameOfFolders(folder.path());
        EXPECT_EQ(nodeOf(name), nodeOf(folder.path()));
        EXPECT_EQ(trust.nameOfFolders(folder.path()), name);
        return seen.insert(name).second;
    };
    file("notes.txt", "no certificate");
    EXPECT_FALSE(isNew());
    const std::string path = file("0123abcd.0", "one");
    EXPECT_TRUE(isNew());
    file("0123abcd.0", "two");
    EXPECT_TRUE(isNew());
    rename(path.c_str(), folder.path("0123abcd.1").c_str());
    EXPECT_TRUE(isNew());
    point(folder.path("0123abcd.0"), file("target.pem", "one"));
    EXPECT_TRUE(isNew());
    file("target.pem", "two");
    EXPECT_TRUE(isNew());
    unlink(folder.path("0123abcd.1").c_str());
    EXPECT_TRUE(isNew());
}

TEST_F(TrustFilesTest, FirstOfSeveralFoldersCarriesTheName) {
    const std::string folders = ":" + folder.path() + "/:/nonexistent:";
    EXPECT_EQ(trust.nameOfFolders(folders), folder.path() + "/.:/nonexistent:");
    EXPECT_EQ(trust.nameOfFolders("/"), "//.");
    EXPECT_EQ(trust.nameOfFolders(":"), ":");
    trust.startAnew();
    EXPECT_EQ(trust.nameOfFolders(":"), ":");
}

// --- from anew ---

TEST_F(TrustFilesTest, NothingKeepsItsNameWhenAllStartsAnew) {
    const std::string path = file("ca.pem", "one");
    expectNewName(path);
    trust.nameOfFolders(folder.path());
    trust.startAnew();
    expectNewName(path);
    EXPECT_NE(trust.nameOfFolders(folder.path()), folder.path());
    EXPECT_NE(trust.nameOfIdentity(path, path), path);
}

}  // namespace
}  // namespace kel::http::test
