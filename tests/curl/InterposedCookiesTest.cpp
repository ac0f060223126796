// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>

#include "curl/FailingFileCall.h"
#include "curl/Interposed.h"
#include "curl/LineMatcher.h"
#include "fixture/CookieFolder.h"
#include "fixture/EngineTest.h"
#include "support/GlobalLocale.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

using Options = std::vector<std::string>;

// Writes a million as "1,000,000".
class GroupedDigits : public std::numpunct<char> {
 protected:
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

// What the engine tells libcurl about cookies, and what it makes of libcurl's answers.
class InterposedCookiesTest : public EngineTest {
 protected:
    InterposedCookiesTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
    }
    ~InterposedCookiesTest() override { stopEngine(); }

    RequestConfig in(CookieJar jar, bool fresh) const {
        RequestConfig config = get();
        config.cookie_jar = jar;
        config.reset_state = fresh;
        config.user = "user";
        return config;
    }

    Options optionsOf(const RequestConfig& config) {
        static const std::vector<std::string> names = {
            "CURLOPT_SHARE",      "CURLOPT_COOKIEFILE",    "CURLOPT_COOKIEJAR",     "CURLOPT_USERNAME",
            "CURLOPT_COOKIELIST", "CURLOPT_COOKIESESSION", "CURLOPT_FRESH_CONNECT", "CURLOPT_DNS_CACHE_TIMEOUT"};
        interposed.forgetOptions();
        run(config)->outcome.await("end");
        drain();
        Options found;
        for (const std::string& option : interposed.options()) {
            const std::string name = option.substr(0, option.find('='));
            if (std::find(names.begin(), names.end(), name) != names.end()) found.push_back(option);
        }
        return found;
    }

    static std::vector<CapturedLine> cookieLines(const LogCapture& log) {
        std::vector<CapturedLine> lines = log.lines();
        const auto is_other = [](const CapturedLine& line) {
            return line.text.find("deleteCookiesFromRequest") == std::string::npos;
        };
        lines.erase(std::remove_if(lines.begin(), lines.end(), is_other), lines.end());
        return lines;
    }

    Interposed interposed;
    CookieFolder folder;
};

// --- options ---

TEST_F(InterposedCookiesTest, EngineLetsItsHandlesShareCookiesAndTlsSessionsAndNothingElse) {
    drain();
    const std::string sessions = "CURLSHOPT_SHARE=" + std::to_string(CURL_LOCK_DATA_SSL_SESSION);
    EXPECT_THAT(interposed.options(),
                ElementsAre("CURLSHOPT_SHARE=" + std::to_string(CURL_LOCK_DATA_COOKIE), sessions, sessions));
}

TEST_F(InterposedCookiesTest, CookiesAreSetUpAheadOfTheCredentials) {
    EXPECT_THAT(
        optionsOf(in(CookieJar::no_cookies, false)),
        ElementsAre("CURLOPT_SHARE=set", "CURLOPT_USERNAME=user", "CURLOPT_COOKIEFILE=null", "CURLOPT_SHARE=null"));
    EXPECT_THAT(optionsOf(in(CookieJar::ro_cookies, false)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_USERNAME=user",
                            "CURLOPT_COOKIEFILE=null", "CURLOPT_SHARE=null"));
    // A handle is kept without either. The last one is set on the handle that lists the cookies for the file.
    EXPECT_THAT(optionsOf(in(CookieJar::rw_cookies, false)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_USERNAME=user",
                            "CURLOPT_COOKIEFILE=null", "CURLOPT_SHARE=null", "CURLOPT_SHARE=set"));
}

TEST_F(InterposedCookiesTest, FileIsReadBeforeTheTransferStartsAndAgainWhereItIsWritten) {
    folder.store({{"127.0.0.2", "b", "1"}});
    const auto opened = StartsWith("CURLOPT_COOKIEFILE=/proc/self/fd/");
    EXPECT_THAT(optionsOf(in(CookieJar::ro_cookies, false)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_SHARE=set", opened,
                            "CURLOPT_COOKIELIST=RELOAD", "CURLOPT_USERNAME=user", "CURLOPT_COOKIEFILE=null",
                            "CURLOPT_SHARE=null"));
    EXPECT_THAT(optionsOf(in(CookieJar::rw_cookies, false)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_SHARE=set", opened,
                            "CURLOPT_COOKIELIST=RELOAD", "CURLOPT_USERNAME=user", "CURLOPT_COOKIEFILE=null",
                            "CURLOPT_SHARE=null", "CURLOPT_SHARE=set", opened, "CURLOPT_COOKIELIST=RELOAD"));
}

TEST_F(InterposedCookiesTest, FreshRequestReadsTheFileOnceAndWithoutItsSessions) {
    folder.store({{"127.0.0.2", "b", "1"}});
    const auto opened = StartsWith("CURLOPT_COOKIEFILE=/proc/self/fd/");
    EXPECT_THAT(optionsOf(in(CookieJar::no_cookies, true)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_USERNAME=user", "CURLOPT_COOKIESESSION=1",
                            "CURLOPT_FRESH_CONNECT=1", "CURLOPT_DNS_CACHE_TIMEOUT=0"));
    EXPECT_THAT(optionsOf(in(CookieJar::ro_cookies, true)),
                ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_USERNAME=user",
                            "CURLOPT_COOKIESESSION=1", "CURLOPT_SHARE=set", "CURLOPT_COOKIESESSION=1", opened,
                            "CURLOPT_COOKIELIST=RELOAD", "CURLOPT_FRESH_CONNECT=1", "CURLOPT_DNS_CACHE_TIMEOUT=0"));
    EXPECT_THAT(
        optionsOf(in(CookieJar::rw_cookies, true)),
        ElementsAre("CURLOPT_SHARE=set", "CURLOPT_COOKIEFILE=", "CURLOPT_USERNAME=user", "CURLOPT_COOKIESESSION=1",
                    "CURLOPT_SHARE=set", "CURLOPT_COOKIESESSION=1", opened, "CURLOPT_COOKIELIST=RELOAD",
                    "CURLOPT_FRESH_CONNECT=1", "CURLOPT_DNS_CACHE_TIMEOUT=0", "CURLOPT_SHARE=set"));
}

TEST_F(InterposedCookiesTest, MatchingCookieIsReplacedByOneThatHasJustExpired) {
    folder.store({{"127.0.0.1", "a", "x y=z", "/deep", FarFuture, "TRUE"}, {"127.0.0.2", "b", "1"}});
    const auto before = std::time(nullptr);
    const Options options = optionsOf(in(CookieJar::ro_cookies, true));
    const auto after = std::time(nullptr);
    Options possible;
    for (auto now = before; now <= after; ++now) {
        possible.push_back("CURLOPT_COOKIELIST=127.0.0.1\tFALSE\t/deep\tTRUE\t" + std::to_string(now - 1) +
                           "\ta\tx y=z");
    }
    const auto reload = std::find(options.begin(), options.end(), "CURLOPT_COOKIELIST=RELOAD");
    ASSERT_GE(options.end() - reload, 3);
    EXPECT_THAT(possible, Contains(reload[1]));
    EXPECT_EQ(reload[2], "CURLOPT_FRESH_CONNECT=1");
}

TEST_F(InterposedCookiesTest, ExpiryOfAReplacedCookieIsNotGroupedByTheGlobalLocale) {
    folder.store({{"127.0.0.1", "a", "1"}});
    const GlobalLocale locale(new GroupedDigits);
    EXPECT_THAT(optionsOf(in(CookieJar::ro_cookies, true)),
                Contains(MatchesRegex("CURLOPT_COOKIELIST=127.0.0.1\tFALSE\t/\tFALSE\t[0-9]+\ta\t1")));
}

// --- answers ---

TEST_F(InterposedCookiesTest, ListThatCanNotBeReadIsTold) {
    folder.store({{"127.0.0.1", "a", "1"}});
    interposed.answerInfo(CURLINFO_COOKIELIST, CURLE_OUT_OF_MEMORY, 0);
    const LogCapture log("HttpClient", 1);
    run(in(CookieJar::ro_cookies, true))->outcome.await("end");
    EXPECT_THAT(cookieLines(log),
                ElementsAre(EngineLine(
                    1, "deleteCookiesFromRequest: Fetching curl cookie list failed, unable to clear cookies: '" +
                           std::string(curl_easy_strerror(CURLE_OUT_OF_MEMORY)) + "'")));
    EXPECT_THAT(cookiesOf(server.requests().back()), ElementsAre("a=1"));
}

TEST_F(InterposedCookiesTest, LinesWithOtherThanSevenFieldsAreToldAndSkipped) {
    const std::string six = "127.0.0.1\tFALSE\t/\tFALSE\t0\tname=value";
    const std::string eight = "127.0.0.1\tFALSE\t/\tFALSE\t0\tname\tval\tue";
    const std::string concealed = "127.0.0.1\tFALSE\t/\tFALSE\t0\tname\txxxxxx";  // the value may be a session
    const std::string blanks = "127.0.0.1 FALSE / FALSE 0 name value";
    const std::string good = "127.0.0.1\tFALSE\t/\tFALSE\t0\tgood\t";
    const std::string hollow = "127.0.0.1\t\t\t\t\t\t";
    interposed.answerCookieList({six, eight, blanks, "", good, hollow});
    const auto skipped = [](const std::string& line) {
        return EngineLine(1,
                          "deleteCookiesFromRequest: curl cookie didn't split into 7 parts, skipping. [" + line + "]");
    };
    const auto deleted = [](const std::string& name) {
        return EngineLine(8, "deleteCookiesFromRequest: deleting cookie '" + name + "' for domain '127.0.0.1'");
    };
    {
        const LogCapture log("HttpClient", 8);
        run(in(CookieJar::ro_cookies, true))->outcome.await("end");
        EXPECT_THAT(cookieLines(log), ElementsAre(skipped(six), skipped(concealed), skipped(blanks), skipped(""),
                                                  deleted("good"), deleted("")));
    }
    const LogCapture log("HttpClient", 1);
    run(in(CookieJar::ro_cookies, true))->outcome.await("end");
    EXPECT_THAT(cookieLines(log), ElementsAre(skipped(six), skipped(concealed), skipped(blanks), skipped("")));
}

TEST_F(InterposedCookiesTest, ListOfARequestThatIsNotFreshIsNotAskedFor) {
    interposed.answerInfo(CURLINFO_COOKIELIST, CURLE_OUT_OF_MEMORY, 0);
    const LogCapture log("HttpClient", 9);
    run(in(CookieJar::rw_cookies, false))->outcome.await("end");
    EXPECT_THAT(cookieLines(log), IsEmpty());
}

// --- writing ---

// One call for the sibling of the file fails.
class InterposedCookieWriteTest : public InterposedCookiesTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Calls, InterposedCookieWriteTest, testing::Values("write", "fsync", "close", "rename"),
                         [](const auto& call) { return std::string(call.param); });

TEST_P(InterposedCookieWriteTest, FailureLeavesTheOldFileAndOneLine) {
    folder.store({{"127.0.0.1", "a", "old"}});
    const CookieFolder::Stamp before = folder.stamp();
    const LogCapture log("HttpClient", 1);
    {
        const FailingFileCall failing(GetParam(), EIO);
        server.enqueue(Reply(200).header("Set-Cookie", "a=new"));
        run(in(CookieJar::rw_cookies, false))->outcome.await("end");
        drain();
    }
    EXPECT_TRUE(folder.stamp() == before);
    EXPECT_THAT(folder.names(), ElementsAre("httpcookies"));
    EXPECT_EQ(log.count("saveCookies: The cookies can not be kept in '" + folder.file() + "', which stays as it was: "),
              1U);
    EXPECT_TRUE(log.contains("Input/output error"));

    run(in(CookieJar::rw_cookies, false))->outcome.await("end");
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(StoredCookie{"127.0.0.1", "a", "new", "/", "0"}.line()));
}

TEST_F(InterposedCookiesTest, InterruptedWriteGoesOn) {
    const FailingFileCall failing("write", EINTR);
    folder.store({{"127.0.0.2", "b", "1"}});
    run(in(CookieJar::rw_cookies, false))->outcome.await("end");
    drain();
    EXPECT_THAT(folder.cookies(), ElementsAre(StoredCookie{"127.0.0.2", "b", "1"}.line()));
}

TEST_F(InterposedCookiesTest, ListThatLibcurlHasNoMemoryForIsNotWrittenAsAnEmptyOne) {
    folder.store({{"127.0.0.1", "a", "1"}});
    const CookieFolder::Stamp before = folder.stamp();
    interposed.answerInfo(CURLINFO_COOKIELIST, CURLE_OUT_OF_MEMORY, 0);
    const LogCapture log("HttpClient", 1);
    run(in(CookieJar::rw_cookies, false))->outcome.await("end");
    drain();
    EXPECT_TRUE(folder.stamp() == before);
    EXPECT_EQ(log.count("saveCookies: The cookie file stays as it was: there is no memory for more"), 1U);
}

}  // namespace
}  // namespace kel::http::test
