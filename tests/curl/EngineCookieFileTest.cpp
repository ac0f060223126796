// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include "curl/CookieTest.h"
#include "support/ClosedPort.h"
#include "support/Files.h"
#include "support/OpenDescriptors.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

class EngineCookieFileTest : public CookieTest {
 protected:
    RequestConfig in(CookieJar jar, const std::string& path = "/") const {
        RequestConfig config = get(path);
        config.cookie_jar = jar;
        return config;
    }
    RequestConfig reader(const std::string& path = "/") const { return in(CookieJar::ro_cookies, path); }
    RequestConfig writer(const std::string& path = "/") const { return in(CookieJar::rw_cookies, path); }

    // A line of the file for a cookie of the scripted server's address.
    static std::string own(const std::string& name, const std::string& value, const std::string& expiry = "0") {
        return StoredCookie{"127.0.0.1", name, value, "/", expiry}.line();
    }
};

// --- reading ---

TEST_F(EngineCookieFileTest, StoredCookiesAreSent) {
    folder.store({{"127.0.0.1", "a", "1"},
                  {"127.0.0.1", "session", "2", "/", "0"},
                  {"127.0.0.1", "empty", ""},
                  {"127.0.0.1", "past", "4", "/", "1000000000"},
                  {"#HttpOnly_127.0.0.1", "hidden", "5"},
                  {"127.0.0.1", "deep", "6", "/deep"},
                  {"other.localhost", "other", "7"}});
    for (const CookieJar jar : {CookieJar::ro_cookies, CookieJar::rw_cookies}) {
        EXPECT_THAT(carried(in(jar)), ElementsAre("a=1", "empty=", "hidden=5", "session=2"));
    }
    EXPECT_THAT(carried(in(CookieJar::no_cookies)), IsEmpty());
}

TEST_F(EngineCookieFileTest, EveryTransferReadsTheFileAnew) {
    folder.store({{"127.0.0.1", "a", "1"}});
    EXPECT_THAT(carried(reader()), ElementsAre("a=1"));
    folder.store({{"127.0.0.1", "a", "2"}, {"127.0.0.1", "b", "2"}});
    EXPECT_THAT(carried(reader()), ElementsAre("a=2", "b=2"));
}

TEST_F(EngineCookieFileTest, ReceivedCookieWinsOverTheFiles) {
    folder.store({{"127.0.0.1", "a", "file"}, {"127.0.0.1", "b", "file"}});
    receive(reader(), {"a=live"});
    EXPECT_THAT(carried(reader()), ElementsAre("a=live", "b=file"));
}

TEST_F(EngineCookieFileTest, CookieThatAServerHasDeletedComesBackFromTheFileOfAReader) {
    folder.store({{"127.0.0.1", "a", "file"}});
    receive(reader(), {"a=; Max-Age=0"});
    // One more transfer may pass before libcurl has forgotten the deletion.
    carried(reader());
    EXPECT_THAT(carried(reader()), ElementsAre("a=file"));
}

TEST_F(EngineCookieFileTest, CookieThatAServerHasDeletedLeavesTheFileOfAWriter) {
    folder.store({{"127.0.0.1", "a", "file"}});
    receive(writer(), {"a=; Max-Age=0"});
    EXPECT_THAT(folder.cookies(), IsEmpty());
    EXPECT_THAT(carried(reader()), IsEmpty());
}

TEST_F(EngineCookieFileTest, FolderIsAskedForAtEachRequest) {
    folder.store({{"127.0.0.1", "a", "1"}});
    {
        const CookieFolder other;
        other.store({{"127.0.0.1", "b", "2"}});
        EXPECT_THAT(carried(writer()), ElementsAre("b=2"));
        EXPECT_THAT(other.names(), ElementsAre("httpcookies"));
    }
    EXPECT_THAT(carried(writer()), ElementsAre("a=1", "b=2"));
}

// --- readers write nothing ---

TEST_F(EngineCookieFileTest, ReadersNeverMakeTheFile) {
    receive(reader(), {"a=1; Max-Age=1000", "b=1"});
    RequestConfig fresh = reader();
    fresh.reset_state = true;
    receive(fresh, {"c=1; Max-Age=1000"});
    receive(in(CookieJar::no_cookies), {"d=1; Max-Age=1000"});
    stopEngine();
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(EngineCookieFileTest, ReadersNeverTouchTheFile) {
    folder.store({{"127.0.0.1", "a", "1"}, {"127.0.0.1", "past", "1", "/", "1000000000"}, {"else", "session", "1"}});
    const CookieFolder::Stamp before = folder.stamp();
    receive(reader(), {"a=2; Max-Age=1000", "b=1; Max-Age=1000"});
    RequestConfig fresh = reader();
    fresh.reset_state = true;
    receive(fresh, {"a=; Max-Age=0"});
    server.enqueue(Reply::redirect("/").header("Set-Cookie", "c=1; Max-Age=1000"));
    carried(reader());
    receive(in(CookieJar::no_cookies), {"a=3"});
    EXPECT_TRUE(folder.stamp() == before);
    stopEngine();
    EXPECT_TRUE(folder.stamp() == before);
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
}

// --- writers ---

TEST_F(EngineCookieFileTest, FileHasEveryKindOfCookieInItsColumns) {
    const std::string until = "; Expires=" + std::string(FarFutureDate);
    receive(writer("/dir/page"),
            {"session=1; Path=/", "kept=2; Path=/" + until, "hidden=3; Path=/; HttpOnly" + until,
             "deep=4; Path=/dir/deep" + until, "empty=; Path=/" + until, "odd=a, b\"=/?%; Path=/" + until});
    receive(to("device.kel.localhost", CookieJar::rw_cookies),
            {"shared=5; Domain=kel.localhost" + until, "past=6; Max-Age=0"});
    EXPECT_THAT(readWholeFile(folder.file()), StartsWith("# Netscape HTTP Cookie File\n"));
    EXPECT_THAT(folder.cookies(),
                ::testing::UnorderedElementsAre("127.0.0.1\tFALSE\t/\tFALSE\t0\tsession\t1",
                                                "127.0.0.1\tFALSE\t/\tFALSE\t2114380800\tkept\t2",
                                                "#HttpOnly_127.0.0.1\tFALSE\t/\tFALSE\t2114380800\thidden\t3",
                                                "127.0.0.1\tFALSE\t/dir/deep\tFALSE\t2114380800\tdeep\t4",
                                                "127.0.0.1\tFALSE\t/\tFALSE\t2114380800\tempty\t",
                                                "127.0.0.1\tFALSE\t/\tFALSE\t2114380800\todd\ta, b\"=/?%",
                                                ".kel.localhost\tTRUE\t/\tFALSE\t2114380800\tshared\t5"));
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
}

TEST_F(EngineCookieFileTest, WriterAddsToWhatItHasRead) {
    folder.store(
        {{"127.0.0.1", "a", "1"}, {"other.localhost", "b", "1"}, {"127.0.0.1", "past", "1", "/", "1000000000"}});
    receive(writer(), {"a=2", "c=2"});
    EXPECT_THAT(folder.cookies(),
                ElementsAre(own("a", "2"), own("c", "2"), StoredCookie{"other.localhost", "b", "1"}.line()));
}

TEST_F(EngineCookieFileTest, WriterKeepsWhatReadersHaveReceived) {
    receive(reader(), {"a=1"});
    EXPECT_THAT(folder.names(), IsEmpty());
    receive(writer(), {});
    EXPECT_THAT(folder.cookies(), ElementsAre(own("a", "1")));
}

TEST_F(EngineCookieFileTest, WriterWithoutCookiesMakesTheFileAllTheSame) {
    receive(writer(), {});
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
    EXPECT_THAT(folder.cookies(), IsEmpty());
}

TEST_F(EngineCookieFileTest, FailedWriterWritesToo) {
    receive(reader(), {"a=1"});
    RequestConfig failing = writer();
    const ClosedPort nobody;
    failing.url = nobody.url("/");
    run(failing)->outcome.awaitCount(1);
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(own("a", "1")));
}

TEST_F(EngineCookieFileTest, CancelledWriterWritesToo) {
    server.enqueue(Reply(200).header("Set-Cookie", "a=1").body("x").stallBeforeEnd());
    const auto cancelled = run(writer());
    cancelled->hooks.await("data 1");
    EXPECT_THAT(folder.names(), IsEmpty());
    cancelled->tryToCancelRequest();
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(own("a", "1")));
}

TEST_F(EngineCookieFileTest, SessionSurvivesTheEngine) {
    receive(writer(), {"session=1", "kept=2; Max-Age=1000", "#odd=3"});
    restart();
    EXPECT_THAT(carried(reader()), ElementsAre("#odd=3", "kept=2", "session=1"));
}

TEST_F(EngineCookieFileTest, SessionOfAReaderEndsWithTheEngine) {
    receive(reader(), {"session=1", "kept=2; Max-Age=1000"});
    restart();
    EXPECT_THAT(carried(reader()), IsEmpty());
}

// --- several at once ---

constexpr int Several = 20;

Cookies manyOwn() {
    Cookies lines;
    for (int i = 0; i < Several; ++i) {
        lines.push_back(StoredCookie{"127.0.0.1", "c" + std::to_string(i), "1", "/", "0"}.line());
    }
    return lines;
}

TEST_F(EngineCookieFileTest, LastOfManyWritersLeavesACompleteFile) {
    std::vector<RecordingRequestPtr> requests;
    for (int i = 0; i < Several; ++i) {
        server.enqueue(Reply(200).header("Set-Cookie", "c" + std::to_string(i) + "=1").body("x").stallBeforeEnd());
        requests.push_back(run(writer()));
    }
    for (const auto& request : requests) request->hooks.await("data 1");
    server.release(Several);
    for (const auto& request : requests) request->outcome.await("end");
    drain();
    EXPECT_THAT(folder.cookies(), ::testing::UnorderedElementsAreArray(manyOwn()));
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
}

TEST_F(EngineCookieFileTest, EngineThatEndsWritesTheCookiesOfUnfinishedWriters) {
    folder.store({{"other.localhost", "stored", "1"}});
    std::vector<RecordingRequestPtr> requests;
    for (int i = 0; i < Several; ++i) {
        server.enqueue(Reply(200).header("Set-Cookie", "c" + std::to_string(i) + "=1").body("x").stallBeforeEnd());
        requests.push_back(run(writer()));
    }
    for (const auto& request : requests) request->hooks.await("data 1");
    stopEngine();
    Cookies expected = manyOwn();
    expected.push_back(StoredCookie{"other.localhost", "stored", "1"}.line());
    EXPECT_THAT(folder.cookies(), ::testing::UnorderedElementsAreArray(expected));
    for (const auto& request : requests) EXPECT_EQ(request->outcome.count(), 0U);
}

TEST_F(EngineCookieFileTest, WritersLoseNoDescriptor) {
    receive(writer(), {"a=1"});
    const OpenDescriptors descriptors;
    for (int i = 0; i < 10; ++i) receive(writer(), {"a=" + std::to_string(i)});
    EXPECT_THAT(descriptors.opened(), IsEmpty());
}

// --- files that can not be used ---

TEST_F(EngineCookieFileTest, FolderInThePlaceOfTheFileIsNoHindrance) {
    ASSERT_EQ(mkdir(folder.file().c_str(), 0700), 0);
    receive(reader(), {"a=1"});
    EXPECT_THAT(carried(writer()), ElementsAre("a=1"));
    EXPECT_THAT(carried(reader()), ElementsAre("a=1"));
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
}

TEST_F(EngineCookieFileTest, FileThatCanNotBeOpenedIsNoHindrance) {
    // Permissions would not keep the superuser out.
    ASSERT_EQ(symlink("httpcookies", folder.file().c_str()), 0);
    receive(reader(), {"a=1"});
    EXPECT_THAT(carried(writer()), ElementsAre("a=1"));
    EXPECT_THAT(carried(reader()), ElementsAre("a=1"));
}

TEST_F(EngineCookieFileTest, FolderThatIsNotThereIsNoHindrance) {
    const TestHost host([](ko::host::Settings& settings) { settings.temporary_directory = "/nonexistent/folder"; });
    receive(reader(), {"a=1"});
    EXPECT_THAT(carried(writer()), ElementsAre("a=1"));
    RequestConfig fresh = writer();
    fresh.reset_state = true;
    EXPECT_THAT(carried(fresh), IsEmpty());
}

TEST_F(EngineCookieFileTest, FolderThatTakesNoFilesIsNoHindrance) {
    // Nobody can make files there.
    const TestHost host([](ko::host::Settings& settings) { settings.temporary_directory = "/proc/self"; });
    receive(writer(), {"a=1"});
    EXPECT_THAT(carried(writer()), ElementsAre("a=1"));
}

TEST_F(EngineCookieFileTest, LinesThatAreNoCookiesAreSkipped) {
    std::string bytes = "no cookie\n\t\t\t\t\t\t\n127.0.0.1\tFALSE\t/\n";
    bytes += own("before", "1") + "\r\n";
    bytes += "\xff\xfe\t\x01\n" + std::string(20000, 'x') + "\n";
    bytes += "127.0.0.1\tperhaps\t/\tFALSE\t0\tflag\t1\n";
    bytes += own("after", "1") + "\n" + own("last", "1");
    writeWholeFile(folder.file(), bytes);
    EXPECT_THAT(carried(reader()), IsSupersetOf({"after=1", "before=1", "last=1"}));
    EXPECT_EQ(readWholeFile(folder.file()), bytes);
    EXPECT_THAT(carried(writer()), IsSupersetOf({"after=1", "before=1", "last=1"}));
    EXPECT_THAT(folder.cookies(), IsSupersetOf({own("after", "1"), own("before", "1"), own("last", "1")}));
}

TEST_F(EngineCookieFileTest, FileWithoutAnyTextIsNoHindrance) {
    std::string bytes(1, '\0');
    for (int i = 0; i < 100000; ++i) bytes += static_cast<char>(i * 7 % 256);
    writeWholeFile(folder.file(), bytes);
    receive(writer(), {"a=1"});
    EXPECT_THAT(folder.cookies(), Contains(own("a", "1")));
}

}  // namespace
}  // namespace kel::http::test
