// SPDX-License-Identifier: MIT
#include <algorithm>
#include <filesystem>

#include "curl/Interposed.h"
#include "fixture/EngineTest.h"
#include "fixture/LogCapture.h"
#include "support/ClosedPort.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

using Options = std::vector<std::string>;

// The options that the engine gives libcurl for one request each.
class InterposedOptionsTest : public EngineTest {
 protected:
    InterposedOptionsTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
    }
    ~InterposedOptionsTest() override { stopEngine(); }

    Options optionsOf(const RequestConfig& config) {
        interposed.forgetOptions();
        run(config)->outcome.awaitCount(1);
        drain();
        return interposed.options();
    }

    static Options only(const Options& all, const std::vector<std::string>& names) {
        Options found;
        for (const std::string& option : all) {
            const std::string name = option.substr(0, option.find('='));
            if (std::find(names.begin(), names.end(), name) != names.end()) found.push_back(option);
        }
        return found;
    }

    static std::string numberOf(CURLoption option) { return "CURLOPT_" + std::to_string(static_cast<int>(option)); }

    Interposed interposed;
    TemporaryDirectory directory;
};

const Options Method_and_body = {"CURLOPT_UPLOAD",         "CURLOPT_CUSTOMREQUEST", "CURLOPT_POSTFIELDSIZE",
                                 "CURLOPT_COPYPOSTFIELDS", "CURLOPT_READFUNCTION",  "CURLOPT_READDATA",
                                 "CURLOPT_INFILESIZE",     "CURLOPT_SEEKFUNCTION",  "CURLOPT_SEEKDATA",
                                 "CURLOPT_MIMEPOST"};

const std::string Default_headers =
    "CURLOPT_HTTPHEADER=Content-Type: text/xml; charset=utf-8|User-Agent: Tervo/kel-http-default (id=noversion)|"
    "Accept-Charset: ISO-8859-1,utf-8";

TEST_F(InterposedOptionsTest, PlainGetSetsItsOptionsInOrder) {
    Options options = optionsOf(get("/plain"));
    const auto own = [](const std::string& option) {
        return option.find("=set") != std::string::npos &&
               option.find_first_of("0123456789") == std::string("CURLOPT_").size();
    };
    // The hook that watches libcurl's descriptors. 322 lets go of a name look-up that hangs.
    options.erase(std::remove_if(options.begin(), options.end(), own), options.end());
    EXPECT_THAT(
        options,
        ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_ERRORBUFFER=set", "CURLOPT_181=3",
                    "CURLOPT_DEFAULT_PROTOCOL=http", "CURLOPT_URL=" + server.url("/plain"), "CURLOPT_WRITEFUNCTION=set",
                    "CURLOPT_WRITEDATA=easy", "CURLOPT_HEADERFUNCTION=set", "CURLOPT_HEADERDATA=easy",
                    "CURLOPT_FOLLOWLOCATION=1", "CURLOPT_MAXREDIRS=5", "CURLOPT_XFERINFOFUNCTION=set",
                    "CURLOPT_XFERINFODATA=easy", "CURLOPT_NOPROGRESS=0", "CURLOPT_NOSIGNAL=1", "CURLOPT_SHARE=set",
                    "CURLOPT_COOKIEFILE=", Default_headers, "CURLOPT_SSLVERSION=5", "CURLOPT_SSL_CTX_DATA=set",
                    "CURLOPT_SSL_CTX_FUNCTION=set", "CURLOPT_SSL_VERIFYPEER=1", "CURLOPT_SSL_VERIFYHOST=2",
                    "CURLOPT_CAINFO=/etc/ssl/certs/ca-certificates.crt", "CURLOPT_CAPATH=null", "CURLOPT_IPRESOLVE=0",
                    "CURLOPT_322=1", "CURLOPT_ERRORBUFFER=null", "CURLOPT_COOKIEFILE=null", "CURLOPT_SHARE=null"));
}

const Options Trace = {"CURLOPT_VERBOSE", "CURLOPT_DEBUGFUNCTION", "CURLOPT_DEBUGDATA"};

TEST_F(InterposedOptionsTest, TraceIsForThoseWhoReadItWhenTheTransferIsSetUp) {
    for (const int level : {0, 1, 2, 3, 4, 9}) {
        const LogCapture log("HttpClient", level);
        const Options options = optionsOf(get());
        if (level < 3) {
            EXPECT_THAT(only(options, Trace), IsEmpty()) << level;
        } else {
            EXPECT_THAT(options, AllOf(Contains("CURLOPT_VERBOSE=1"), Contains("CURLOPT_DEBUGFUNCTION=set"),
                                       Contains("CURLOPT_DEBUGDATA=set")))
                << level;
        }
    }
}

#if LIBCURL_VERSION_NUM >= 0x075000
TEST_F(InterposedOptionsTest, UploadHasTheTraceWhereNothingElseTellsItsBeginning) {
    RequestConfig config = get();
    config.method = Method::PUT;
    EXPECT_THAT(only(optionsOf(config), Trace), IsEmpty());
    interposed.lack(CURLOPT_PREREQFUNCTION);
    EXPECT_THAT(only(optionsOf(config), Trace),
                ElementsAre("CURLOPT_VERBOSE=1", "CURLOPT_DEBUGFUNCTION=set", "CURLOPT_DEBUGDATA=set"));
    EXPECT_THAT(only(optionsOf(get()), Trace), IsEmpty());
}
#endif

TEST_F(InterposedOptionsTest, EveryOptionHasItsPlace) {
    RequestConfig config = get();
    config.method = Method::POST;
    config.body = "body";
    config.size_limit = 1000U;
    config.timeout = std::chrono::milliseconds(20000);
    config.speed_limit = 4000000000U;
    config.user = "user";
    config.password = "password";
    config.ip_version = IPVersion::IPv4;
    config.reset_state = true;
    config.cookie_jar = CookieJar::rw_cookies;
    const Options in_order = {"CURLOPT_HEADERDATA=easy",
                              "CURLOPT_MAXFILESIZE=1000",
                              "CURLOPT_FOLLOWLOCATION=1",
                              "CURLOPT_NOPROGRESS=0",
                              "CURLOPT_NOSIGNAL=1",
                              "CURLOPT_TIMEOUT_MS=20000",
                              "CURLOPT_MAX_RECV_SPEED_LARGE=4000000000",
                              "CURLOPT_SHARE=set",
                              "CURLOPT_COOKIEFILE=",
                              "CURLOPT_USERNAME=user",
                              "CURLOPT_PASSWORD=password",
                              "CURLOPT_HTTPAUTH=" + std::to_string(static_cast<long>(CURLAUTH_ANY)),
                              "CURLOPT_POSTFIELDSIZE=4",
                              "CURLOPT_COPYPOSTFIELDS=set",
                              Default_headers + "|Expect:",
                              "CURLOPT_SSLVERSION=5",
                              "CURLOPT_IPRESOLVE=1",
                              "CURLOPT_COOKIESESSION=1",
                              "CURLOPT_FRESH_CONNECT=1",
                              "CURLOPT_DNS_CACHE_TIMEOUT=0",
                              "CURLOPT_ERRORBUFFER=null",
                              "CURLOPT_SHARE=set"};
    Options found;
    for (const std::string& option : optionsOf(config)) {
        if (std::find(in_order.begin(), in_order.end(), option) != in_order.end()) found.push_back(option);
    }
    EXPECT_EQ(found, in_order);
}

TEST_F(InterposedOptionsTest, OffsetOfAResumedDownloadStandsBehindTheSizeLimit) {
    writeWholeFile(directory.path("partial"), "01234");
    RequestConfig config = get();
    config.size_limit = 1000U;
    config.resume = true;
    config.download_path = directory.path("partial");
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_MAXFILESIZE", "CURLOPT_RESUME_FROM", "CURLOPT_FOLLOWLOCATION"}),
                ElementsAre("CURLOPT_MAXFILESIZE=1000", "CURLOPT_RESUME_FROM=5", "CURLOPT_FOLLOWLOCATION=1"));
}

// What libcurl would send of its own accord comes from the program's standard input.
TEST_F(InterposedOptionsTest, ReadFunctionComesBeforeAllOtherOptions) {
    EXPECT_EQ(optionsOf(get("/plain")).front(), "CURLOPT_READFUNCTION=set");
}

TEST_F(InterposedOptionsTest, WhatIsNotAskedForIsNotSet) {
    RequestConfig config = get();
    config.password = "password without a user";
    config.caller_handles_redirects = true;
    config.resume = true;
    config.download_path = "/nonexistent/file";
    EXPECT_THAT(
        only(optionsOf(config),
             {"CURLOPT_MAXFILESIZE", "CURLOPT_RESUME_FROM", "CURLOPT_FOLLOWLOCATION", "CURLOPT_MAXREDIRS",
              "CURLOPT_TIMEOUT_MS", "CURLOPT_MAX_RECV_SPEED_LARGE", "CURLOPT_USERNAME", "CURLOPT_PASSWORD",
              "CURLOPT_HTTPAUTH", "CURLOPT_COOKIESESSION", "CURLOPT_FRESH_CONNECT", "CURLOPT_DNS_CACHE_TIMEOUT"}),
        IsEmpty());
}

TEST_F(InterposedOptionsTest, NegativeTimeOutIsHandedOver) {
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(-1);
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_TIMEOUT_MS"}), ElementsAre("CURLOPT_TIMEOUT_MS=-1"));
}

TEST_F(InterposedOptionsTest, LimitOfZeroIsSet) {
    RequestConfig config = get();
    config.size_limit = 0U;
    config.speed_limit = 0U;
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_MAXFILESIZE", "CURLOPT_MAX_RECV_SPEED_LARGE"}),
                ElementsAre("CURLOPT_MAXFILESIZE=0", "CURLOPT_MAX_RECV_SPEED_LARGE=0"));
}

// --- numbers that a long of 32 bits can not hold ---

constexpr bool LongIsShort = sizeof(long) == 4;
constexpr std::uint32_t ThreeGibibytes = 3U << 30U;

TEST_F(InterposedOptionsTest, TimeOutBeyondALongIsTheLongestOne) {
    const LogCapture log("HttpClient", 1);
    RequestConfig config = get();
    config.timeout = std::chrono::milliseconds(0x1'0000'0005);
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_TIMEOUT_MS"}),
                ElementsAre(LongIsShort ? "CURLOPT_TIMEOUT_MS=2147483647" : "CURLOPT_TIMEOUT_MS=4294967301"));
    EXPECT_EQ(log.contains("a timeout of 4294967301 is too long for this system, it ends after 2147483647"),
              LongIsShort);
}

TEST_F(InterposedOptionsTest, SizeLimitBeyondALongIsLeftToTheDataHook) {
    const LogCapture log("HttpClient", 4);
    RequestConfig config = get();
    config.size_limit = ThreeGibibytes;
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_MAXFILESIZE"}),
                LongIsShort ? Options{} : Options{"CURLOPT_MAXFILESIZE=3221225472"});
    EXPECT_EQ(log.contains("a size limit of 3221225472 is too large for libcurl on this system: only "
                           "notifyDataReceived() can hold to it"),
              LongIsShort);
}

TEST_F(InterposedOptionsTest, FileBeyondALongIsNotResumed) {
    const LogCapture log("HttpClient", 1);
    RequestConfig config = get();
    config.resume = true;
    config.download_path = directory.path("part");
    writeWholeFile(config.download_path, "");
    std::filesystem::resize_file(config.download_path, ThreeGibibytes);
    const Options options = only(optionsOf(config), {"CURLOPT_RESUME_FROM"});
    if (!LongIsShort) {
        EXPECT_THAT(options, ElementsAre("CURLOPT_RESUME_FROM=3221225472"));
        EXPECT_EQ(server.requests().at(0).header("Range"), "bytes=3221225472-");
        return;
    }
    EXPECT_THAT(options, IsEmpty());
    EXPECT_TRUE(log.contains("is too large to be resumed on this system: remove it"));
    const auto request = run(config);
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(),
                ElementsAre(AllOf(StartsWith("failure 2: "), HasSubstr("is too large to be resumed on this system"))));
    EXPECT_THAT(server.requests(), IsEmpty());
    EXPECT_EQ(std::filesystem::file_size(config.download_path), ThreeGibibytes);
}

TEST_F(InterposedOptionsTest, FileBeyondALongIsSentWithoutItsSize) {
    const LogCapture log("HttpClient", 4);
    RequestConfig config = get();
    config.url = ClosedPort().url();  // the options are set before anything is sent
    config.method = Method::PUT;
    config.body = directory.path("file");
    config.body_is_file = true;
    writeWholeFile(config.body, "");
    std::filesystem::resize_file(config.body, ThreeGibibytes);
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_INFILESIZE"}),
                ElementsAre(LongIsShort ? "CURLOPT_INFILESIZE=-1" : "CURLOPT_INFILESIZE=3221225472"));
    EXPECT_EQ(log.contains("an upload of 3221225472 bytes is sent in chunks"), LongIsShort);
}

TEST_F(InterposedOptionsTest, BasicIsTheOnlyMethodOffered) {
    RequestConfig config = get();
    config.user = "user";
    config.auth_method = AuthMethod::BASIC;
    EXPECT_THAT(only(optionsOf(config), {"CURLOPT_HTTPAUTH", "CURLOPT_PASSWORD"}),
                ElementsAre("CURLOPT_PASSWORD=",
                            "CURLOPT_HTTPAUTH=" + std::to_string(static_cast<long>(CURLAUTH_BASIC | CURLAUTH_ONLY))));
}

TEST_F(InterposedOptionsTest, EachIpVersionHasItsNumber) {
    RequestConfig config = get();
    config.ip_version = IPVersion::IPv6;
    EXPECT_THAT(optionsOf(config), Contains("CURLOPT_IPRESOLVE=2"));
    config.ip_version = IPVersion::Any;
    EXPECT_THAT(optionsOf(config), Contains("CURLOPT_IPRESOLVE=0"));
}

// --- method and body ---

TEST_F(InterposedOptionsTest, GetSetsNothingForItsMethod) {
    RequestConfig config = get();
    config.body = "body";
    EXPECT_THAT(only(optionsOf(config), Method_and_body), ElementsAre("CURLOPT_READFUNCTION=set"));
}

TEST_F(InterposedOptionsTest, SizeOfABodyIsSetBeforeTheBody) {
    RequestConfig config = get();
    config.body = std::string("a\0b", 3);
    config.method = Method::POST;
    EXPECT_THAT(only(optionsOf(config), Method_and_body),
                ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_POSTFIELDSIZE=3", "CURLOPT_COPYPOSTFIELDS=set"));
    config.method = Method::DELETE;
    EXPECT_THAT(only(optionsOf(config), Method_and_body),
                ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_CUSTOMREQUEST=DELETE", "CURLOPT_POSTFIELDSIZE=3",
                            "CURLOPT_COPYPOSTFIELDS=set"));
    config.method = Method::PATCH;
    config.body.clear();
    EXPECT_THAT(only(optionsOf(config), Method_and_body),
                ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_CUSTOMREQUEST=PATCH", "CURLOPT_POSTFIELDSIZE=0",
                            "CURLOPT_COPYPOSTFIELDS=set"));
}

TEST_F(InterposedOptionsTest, PutIsReadFromMemoryAndMayBeRewound) {
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body = "body";
    EXPECT_THAT(
        only(optionsOf(config), Method_and_body),
        ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_UPLOAD=1", "CURLOPT_READFUNCTION=set", "CURLOPT_READDATA=easy",
                    "CURLOPT_INFILESIZE=4", "CURLOPT_SEEKFUNCTION=set", "CURLOPT_SEEKDATA=easy"));
}

TEST_F(InterposedOptionsTest, FileIsReadByUsAndMayNotBeRewoundByLibcurl) {
    writeWholeFile(directory.path("file"), "bytes");
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body = directory.path("file");
    config.body_is_file = true;
    EXPECT_THAT(only(optionsOf(config), Method_and_body),
                ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_UPLOAD=1", "CURLOPT_READFUNCTION=set",
                            "CURLOPT_READDATA=set", "CURLOPT_INFILESIZE=5"));
}

TEST_F(InterposedOptionsTest, FileThatCanNotBeReadIsNotGivenToLibcurl) {
    RequestConfig config = get();
    config.method = Method::PUT;
    config.body_is_file = true;
    for (const std::string& path : {std::string("/nonexistent/file"), directory.path()}) {
        config.body = path;
        EXPECT_THAT(only(optionsOf(config), Method_and_body),
                    ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_UPLOAD=1"));
    }
}

TEST_F(InterposedOptionsTest, FormIsHandedOverAsAWhole) {
    RequestConfig config = get();
    config.method = Method::POST;
    config.mime_parts.push_back({"name", "data", "", ""});
    EXPECT_THAT(only(optionsOf(config), Method_and_body),
                ElementsAre("CURLOPT_READFUNCTION=set", "CURLOPT_MIMEPOST=set"));
}

// --- headers ---

TEST_F(InterposedOptionsTest, EnginesHeadersFollowTheCallersAndUploadsDoNotWait) {
    const std::string headers = "CURLOPT_HTTPHEADER=user-agent: mine|Accept-Charset: ISO-8859-1,utf-8";
    RequestConfig config = get();
    config.headers = {{"user-agent", "mine"}};
    for (const Method method : {Method::GET, Method::DELETE, Method::PATCH}) {
        config.method = method;
        EXPECT_THAT(only(optionsOf(config), {"CURLOPT_HTTPHEADER"}), ElementsAre(headers));
    }
    for (const Method method : {Method::POST, Method::PUT}) {
        config.method = method;
        EXPECT_THAT(only(optionsOf(config), {"CURLOPT_HTTPHEADER"}), ElementsAre(headers + "|Expect:"));
    }
}

// --- TLS ---

const Options Tls = {"CURLOPT_SSLVERSION", "CURLOPT_SSL_VERIFYPEER", "CURLOPT_SSL_VERIFYHOST", "CURLOPT_CAINFO",
                     "CURLOPT_CAPATH"};

TEST_F(InterposedOptionsTest, FloorOfTlsHasItsNumber) {
    RequestConfig config = get();
    config.min_tls_version = MinTlsVersion::tls1_0;
    EXPECT_THAT(optionsOf(config), Contains("CURLOPT_SSLVERSION=4"));
    config.min_tls_version = MinTlsVersion::tls1_1;
    EXPECT_THAT(optionsOf(config), Contains("CURLOPT_SSLVERSION=5"));
    config.min_tls_version = MinTlsVersion::tls1_2;
    EXPECT_THAT(optionsOf(config), Contains("CURLOPT_SSLVERSION=6"));
}

TEST_F(InterposedOptionsTest, WithoutVerificationNoAuthorityIsSet) {
    RequestConfig config = get();
    config.tls_verify = false;
    config.ca_file = "/ca.pem";
    config.ca_dir = "/ca";
    EXPECT_THAT(only(optionsOf(config), Tls),
                ElementsAre("CURLOPT_SSLVERSION=5", "CURLOPT_SSL_VERIFYHOST=0", "CURLOPT_SSL_VERIFYPEER=0"));
}

TEST_F(InterposedOptionsTest, AuthoritiesAreSetAsGiven) {
    RequestConfig config = get();
    config.ca_file = "/ca.pem";
    config.ca_dir = "/ca";
    EXPECT_THAT(only(optionsOf(config), Tls),
                ElementsAre("CURLOPT_SSLVERSION=5", "CURLOPT_SSL_VERIFYPEER=1", "CURLOPT_SSL_VERIFYHOST=2",
                            "CURLOPT_CAINFO=/ca.pem", "CURLOPT_CAPATH=/ca"));
    config.ca_file = "";
    config.ca_dir = "";
    EXPECT_THAT(optionsOf(config), IsSupersetOf({"CURLOPT_CAINFO=null", "CURLOPT_CAPATH=null"}));
}

}  // namespace
}  // namespace kel::http::test
