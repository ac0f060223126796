// SPDX-License-Identifier: MIT
// What stands in the place of the cookie file, or gets in the way of writing it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/FullDisk.h"
#include "curl/CookieTest.h"
#include "fixture/LogCapture.h"
#include "support/Files.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EngineCookieSafetyTest : public CookieTest {
 protected:
    RequestConfig in(CookieJar jar, bool fresh = false) const {
        RequestConfig config = get();
        config.cookie_jar = jar;
        config.reset_state = fresh;
        return config;
    }
    RequestConfig reader() const { return in(CookieJar::ro_cookies); }
    RequestConfig writer() const { return in(CookieJar::rw_cookies); }

    static std::string live(const std::string& name, const std::string& value) {
        return StoredCookie{"127.0.0.1", name, value, "/", "0"}.line();
    }

    mode_t mode() const {
        struct stat status {};
        EXPECT_EQ(lstat(folder.file().c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    // Requests of all kinds do without what is there, leave it alone, and each says so once.
    void expectLeftAlone(const std::string& reason) {
        for (const CookieJar jar : {CookieJar::ro_cookies, CookieJar::rw_cookies}) {
            for (const bool fresh : {false, true}) {
                const LogCapture log("HttpClient", 1);
                EXPECT_THAT(carried(in(jar, fresh)), IsEmpty());
                EXPECT_EQ(log.count("openCookieFile: The cookie file '" + folder.file() +
                                    "' is neither read nor written: " + reason),
                          1U)
                    << log.all();
            }
        }
        const LogCapture log("HttpClient", 1);
        carried(in(CookieJar::no_cookies, true));
        EXPECT_FALSE(log.contains("openCookieFile"));
        EXPECT_THAT(folder.names(), ::testing::Contains("httpcookies"));
    }

    void expectContentLeftAlone(const std::string& reason) {
        const CookieFolder::Stamp before = folder.stamp();
        expectLeftAlone(reason);
        EXPECT_TRUE(folder.stamp() == before);
        EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
    }
};

// --- what is not used ---

TEST_F(EngineCookieSafetyTest, FileThatALinkLeadsToIsNeitherReadNorWritten) {
    folder.store({{"127.0.0.1", "planted", "1"}});
    const std::string target = folder.path() + "/precious";
    ASSERT_EQ(rename(folder.file().c_str(), target.c_str()), 0);
    ASSERT_EQ(symlink("precious", folder.file().c_str()), 0);
    const std::string before = readWholeFile(target);
    expectLeftAlone("it is a symbolic link: remove it");
    EXPECT_EQ(readWholeFile(target), before);
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies", "precious"));
}

TEST_F(EngineCookieSafetyTest, PipeHoldsUpNobody) {
    ASSERT_EQ(mkfifo(folder.file().c_str(), 0600), 0);
    expectLeftAlone("it is no regular file: remove it");
}

TEST_F(EngineCookieSafetyTest, PipeThatSomebodyHasOpenHoldsUpNobody) {
    ASSERT_EQ(mkfifo(folder.file().c_str(), 0600), 0);
    const FileDescriptor other(open(folder.file().c_str(), O_RDWR | O_CLOEXEC));
    expectLeftAlone("it is no regular file: remove it");
}

TEST_F(EngineCookieSafetyTest, SomebodyElsesFileIsNeitherReadNorWritten) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
    folder.store({{"127.0.0.1", "planted", "1"}});
    ASSERT_EQ(chown(folder.file().c_str(), 12345, 0), 0);
    expectContentLeftAlone("it belongs to user 12345: remove it, or give it to user 0");
}

TEST_F(EngineCookieSafetyTest, FileThatOthersMayWriteToIsNeitherReadNorWritten) {
    folder.store({{"127.0.0.1", "planted", "1"}});
    for (const mode_t mode : {0620U, 0602U}) {
        ASSERT_EQ(chmod(folder.file().c_str(), mode), 0);
        expectContentLeftAlone("others than its owner may write to it: remove it, or take that right away");
    }
}

TEST_F(EngineCookieSafetyTest, FileThatIsExchangedWhileATransferRunsIsLeftAlone) {
    server.enqueue(Reply(200).header("Set-Cookie", "a=1").body("x").stallBeforeEnd());
    const auto running = run(writer());
    running->hooks.await("data 1");
    writeWholeFile(folder.path() + "/precious", "precious");
    ASSERT_EQ(symlink("precious", folder.file().c_str()), 0);
    const LogCapture log("HttpClient", 1);
    server.release(1);
    running->outcome.await("end");
    drain();
    EXPECT_EQ(log.count("is neither read nor written: it is a symbolic link"), 1U);
    EXPECT_EQ(readWholeFile(folder.path() + "/precious"), "precious");
}

TEST_F(EngineCookieSafetyTest, CookiesInForceGoOnWithoutAFile) {
    ASSERT_EQ(mkfifo(folder.file().c_str(), 0600), 0);
    receive(writer(), {"a=1"});
    EXPECT_THAT(carried(reader()), ElementsAre("a=1"));
}

// --- what is used ---

TEST_F(EngineCookieSafetyTest, FileThatIsNotThereIsNoFault) {
    const LogCapture log(1);
    carried(reader());
    carried(writer());
    EXPECT_FALSE(log.contains("ookie file"));
    EXPECT_EQ(mode(), 0600U);
}

TEST_F(EngineCookieSafetyTest, FileThatOthersCanReadIsReadAndBecomesItsOwnersAlone) {
    folder.store({{"127.0.0.1", "a", "1"}});
    ASSERT_EQ(chmod(folder.file().c_str(), 0644), 0);
    EXPECT_THAT(carried(reader()), ElementsAre("a=1"));
    EXPECT_EQ(mode(), 0644U);
    EXPECT_THAT(carried(writer()), ElementsAre("a=1"));
    EXPECT_EQ(mode(), 0600U);
    EXPECT_THAT(folder.cookies(), ElementsAre(StoredCookie{"127.0.0.1", "a", "1"}.line()));
}

TEST_F(EngineCookieSafetyTest, CookiesAreSentInTheSameOrderAfterARestart) {
    const auto order = [this] { return server.requests().back().header("Cookie"); };
    folder.store({{"127.0.0.1", "c1", "1"}, {"127.0.0.1", "c2", "1"}, {"127.0.0.1", "c3", "1"}});
    carried(writer());
    EXPECT_EQ(order(), "c3=1; c2=1; c1=1");
    restart();
    carried(writer());
    EXPECT_EQ(order(), "c1=1; c2=1; c3=1");  // the newest comes first in the file, and what comes last counts as newest
}

TEST_F(EngineCookieSafetyTest, CookiesThatAnotherProcessHasAddedMeanwhileStay) {
    server.enqueue(Reply(200).header("Set-Cookie", "a=live").body("x").stallBeforeEnd());
    const auto running = run(writer());
    running->hooks.await("data 1");
    folder.store({{"127.0.0.1", "a", "file"}, {"127.0.0.1", "late", "1"}});
    server.release(1);
    running->outcome.await("end");
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(live("a", "live"), StoredCookie{"127.0.0.1", "late", "1"}.line()));
}

TEST_F(EngineCookieSafetyTest, WriterThatCanNotBeSetUpWritesToo) {
    receive(reader(), {"a=1"});
    RequestConfig failing = writer();
    failing.headers["X-Bad"] = "a\r\nb";
    run(failing)->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(live("a", "1")));
}

// --- what fails ---

TEST_F(EngineCookieSafetyTest, FullDiskLeavesTheOldFileAndOneLine) {
    folder.store({{"127.0.0.1", "a", "old"}});
    const CookieFolder::Stamp before = folder.stamp();
    const LogCapture log("HttpClient", 1);
    {
        const FullDisk full(200);
        receive(writer(), {"a=new", "b=" + std::string(1000, 'x')});
    }
    EXPECT_TRUE(folder.stamp() == before);
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
    EXPECT_EQ(log.count("saveCookies: The cookies can not be kept in '" + folder.file() +
                        "', which stays as it was: write fails: File too large"),
              1U);
    receive(writer(), {});
    EXPECT_EQ(folder.cookies().size(), 2U);
}

TEST_F(EngineCookieSafetyTest, SiblingThatAKillHasLeftGoesWithTheNextWrite) {
    writeWholeFile(folder.file() + ".new", "cut");
    receive(writer(), {"a=1"});
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
    EXPECT_THAT(folder.cookies(), ElementsAre(live("a", "1")));
}

TEST_F(EngineCookieSafetyTest, RefusedFilesLoseNoDescriptor) {
    receive(writer(), {"a=1"});
    const OpenDescriptors descriptors;
    ASSERT_EQ(chmod(folder.file().c_str(), 0666), 0);
    for (int i = 0; i < 10; ++i) {
        carried(reader());
        carried(writer());
    }
    EXPECT_THAT(descriptors.opened(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
