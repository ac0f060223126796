// SPDX-License-Identifier: MIT
#include "kel-http/client/ClientLog.h"

#include <gmock/gmock.h>

#include <thread>

#include "fixture/LogCapture.h"

namespace kel::http {
namespace {

using test::CapturedLine;
using test::LogCapture;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Mode = LogFilter::Mode;
using Texts = std::vector<std::string>;

constexpr Client::RequestId Id = 7;
const char* const LoggerName = "TestClient";
const char* const Json = "application/json";

static_assert(static_cast<unsigned>(Mode::standard) == 0 && static_cast<unsigned>(Mode::request_payload) == 1 &&
              static_cast<unsigned>(Mode::all_payload) == 2 && static_cast<unsigned>(Mode::silent) == 3 &&
              static_cast<unsigned>(Mode::quiet_payload) == 4);

// The begin of every line that names its request.
std::string tagged(const std::string& rest) {
    const std::size_t tag = std::hash<std::thread::id>{}(std::this_thread::get_id());
    return "[tid=" + std::to_string(tag) + "]HTTP(7)" + rest;
}

LogFilter withMode(Mode mode) {
    LogFilter filter;
    filter.mode = mode;
    return filter;
}

RequestConfig requestWith(const HeaderMap& headers, const std::string& body) {
    RequestConfig config;
    config.method = Method::POST;
    config.url = "http://host/path";
    config.headers = headers;
    config.body = body;
    return config;
}

logging::Logger& logger() {
    return *logging::getLogger(LoggerName, 0);
}

// The lines of one logger, all of which have to be at the level of the client's steps.
Texts linesAt4(const LogCapture& log) {
    for (const CapturedLine& line : log.lines()) {
        EXPECT_EQ(line.level, 4) << line.text;
        EXPECT_EQ(line.logger, LoggerName) << line.text;
    }
    return log.texts();
}

Texts requestLines(int verbosity, const RequestConfig& config, const LogFilter& filter = {}) {
    const LogCapture log(LoggerName, verbosity);
    log_request(logger(), Id, config, filter);
    return linesAt4(log);
}

Texts responseLines(int verbosity, const ResponseData& data, const LogFilter& filter = {}) {
    const LogCapture log(LoggerName, verbosity);
    log_response(logger(), Id, data, filter);
    return linesAt4(log);
}

// The body lines of a response in mode all_payload.
Texts bodyLines(int verbosity, const std::string& body, const std::string& content_type = Json) {
    Texts lines = responseLines(verbosity, {200, {{"Content-Type", content_type}}, body}, withMode(Mode::all_payload));
    EXPECT_EQ(lines.front(), tagged(" <= 200"));
    lines.erase(lines.begin());
    return lines;
}

// --- which payload is logged ---

struct PayloadRule {
    Mode mode;
    // Below verbosity 9: the body of a request, of a success and of an error.
    bool request;
    bool success;
    bool error;
};

class ClientLogPayloadTest : public testing::TestWithParam<PayloadRule> {
 protected:
    // A heading, and the body where it is to be seen.
    static Texts expected(int verbosity, const std::string& heading, bool below_nine) {
        if (GetParam().mode == Mode::silent || verbosity < 4) return {};
        if (below_nine || verbosity >= 9) return {tagged(heading), " Body: {}"};
        return {tagged(heading)};
    }

    static void expectResponses(const std::vector<int>& statuses, bool below_nine) {
        for (const int status : statuses) {
            for (int verbosity = 0; verbosity <= 9; ++verbosity) {
                EXPECT_EQ(responseLines(verbosity, {status, json_headers, "{}"}, withMode(GetParam().mode)),
                          expected(verbosity, " <= " + std::to_string(status), below_nine))
                    << "status " << status << " at verbosity " << verbosity;
            }
        }
    }

    inline static const HeaderMap json_headers = {{"Content-Type", Json}};
};

TEST_P(ClientLogPayloadTest, RequestIsLoggedByModeAndVerbosity) {
    const RequestConfig config = requestWith(json_headers, "{}");
    for (int verbosity = 0; verbosity <= 9; ++verbosity) {
        EXPECT_EQ(requestLines(verbosity, config, withMode(GetParam().mode)),
                  expected(verbosity, " => 0 http://host/path", GetParam().request))
            << "at verbosity " << verbosity;
    }
}

TEST_P(ClientLogPayloadTest, SuccessIsLoggedByModeAndVerbosity) {
    expectResponses({200, 204, 299}, GetParam().success);
}

TEST_P(ClientLogPayloadTest, ErrorStatusIsLoggedByModeAndVerbosity) {
    expectResponses({100, 199, 300, 404, 500}, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(AllModes, ClientLogPayloadTest,
                         testing::Values(PayloadRule{Mode::standard, false, false, true},
                                         PayloadRule{Mode::request_payload, true, false, true},
                                         PayloadRule{Mode::all_payload, true, true, true},
                                         PayloadRule{Mode::silent, false, false, false},
                                         PayloadRule{Mode::quiet_payload, false, false, false}),
                         [](const auto& row) {
                             return "Mode" + std::to_string(static_cast<unsigned>(row.param.mode));
                         });

// --- headings ---

TEST(ClientLogTest, RequestLineHoldsTheMethodAsANumber) {
    RequestConfig config = requestWith({}, "");
    const std::vector<std::pair<Method, std::string>> numbers = {
        {Method::POST, "0"}, {Method::PUT, "1"}, {Method::GET, "2"}, {Method::DELETE, "3"}, {Method::PATCH, "4"}};
    for (const auto& [method, number] : numbers) {
        config.method = method;
        EXPECT_THAT(requestLines(4, config), ElementsAre(tagged(" => " + number + " http://host/path")));
    }
}

TEST(ClientLogTest, LinesStandInTheOrderHeadingHeadersBody) {
    const Texts request = requestLines(4, requestWith({{"TrackingID", "abc"}, {"Content-Type", Json}}, "{}"),
                                       withMode(Mode::request_payload));
    EXPECT_THAT(request, ElementsAre(tagged(" => 0 http://host/path"), " TrackingID: abc", " Body: {}"));
    const Texts response = responseLines(4, {302, {{"Location", "/there"}, {"Content-Type", Json}}, "{}"});
    EXPECT_THAT(response, ElementsAre(tagged(" <= 302"), " Location: /there", " Body: {}"));
}

TEST(ClientLogTest, TextThatLooksLikeAFormatIsLoggedAsItIs) {
    RequestConfig config = requestWith({{"Warning", "{} {0} {{"}, {"Content-Type", Json}}, "{\"a\": {}}");
    config.url = "http://host/{}?a={0:d}";
    EXPECT_THAT(requestLines(9, config),
                ElementsAre(tagged(" => 0 http://host/{}?a={0:d}"), " Warning: {} {0} {{", " Body: {\"a\": {}}"));
}

// --- headers ---

TEST(ClientLogTest, OfARequestTwoHeadersAreLoggedWithTheirNamesAsStored) {
    const Texts lines = requestLines(9, requestWith({{"TrackingID", "1"},
                                                     {"wARNING", "2"},
                                                     {"Authorization", "Basic c2VjcmV0"},
                                                     {"Cookie", "secret"},
                                                     {"Location", "3"},
                                                     {"Retry-After", "4"}},
                                                    ""));
    EXPECT_THAT(lines, UnorderedElementsAre(tagged(" => 0 http://host/path"), " TrackingID: 1", " wARNING: 2"));
}

TEST(ClientLogTest, OfAResponseThreeHeadersAreLoggedWithTheirNamesAsStored) {
    const Texts lines = responseLines(9, {200,
                                          {{"LOCATION", "1"},
                                           {"retry-after", "2"},
                                           {"Warning", ""},
                                           {"TrackingID", "3"},
                                           {"Set-Cookie", "secret"},
                                           {"Server", "4"}},
                                          ""});
    EXPECT_THAT(lines, UnorderedElementsAre(tagged(" <= 200"), " LOCATION: 1", " retry-after: 2", " Warning: "));
}

TEST(ClientLogTest, SetCookieIsLoggedInNoModeAndLetterCase) {
    for (const Mode mode : {Mode::standard, Mode::request_payload, Mode::all_payload, Mode::quiet_payload}) {
        for (const char* const name : {"Set-Cookie", "set-cookie", "SET-COOKIE"}) {
            const LogCapture log(9);
            log_response(logger(), Id, {200, {{name, "secret"}, {"Content-Type", Json}}, "{}"}, withMode(mode));
            EXPECT_FALSE(log.contains("secret"));
            EXPECT_FALSE(log.contains("concealed"));
        }
    }
}

// --- bodies ---

TEST(ClientLogTest, ABodyBelowOneChunkIsOneLineWithoutALabel) {
    for (const std::size_t size : {1U, 1000U, 1023U}) {
        const std::string body(size, 'x');
        EXPECT_THAT(bodyLines(4, body), ElementsAre(" Body: " + body));
    }
}

TEST(ClientLogTest, AnEmptyBodyIsOneEmptyLine) {
    EXPECT_THAT(bodyLines(4, ""), ElementsAre(" Body: "));
}

TEST(ClientLogTest, ABodyOfExactlyOneChunkIsFollowedByAnEmptyOne) {
    const std::string body(1024, 'x');
    EXPECT_THAT(bodyLines(4, body), ElementsAre(" Body[1/2]: " + body, " Body[2/2]: "));
}

TEST(ClientLogTest, ALongerBodyIsCutIntoChunks) {
    const std::string first(1024, 'a');
    EXPECT_THAT(bodyLines(4, first + 'b'), ElementsAre(" Body[1/2]: " + first, " Body[2/2]: b"));
}

TEST(ClientLogTest, OnlyThreeChunksAreLoggedBelowVerbosityNine) {
    const std::string body = std::string(1024, 'a') + std::string(1024, 'b') + std::string(1024, 'c') +
                             std::string(1024, 'd') + std::string(904, 'e');
    const Texts three = {" Body[1/5]: " + std::string(1024, 'a'), " Body[2/5]: " + std::string(1024, 'b'),
                         " Body[3/5]: " + std::string(1024, 'c')};
    for (const int verbosity : {4, 8}) EXPECT_THAT(bodyLines(verbosity, body), ElementsAreArray(three));

    Texts five = three;
    five.push_back(" Body[4/5]: " + std::string(1024, 'd'));
    five.push_back(" Body[5/5]: " + std::string(904, 'e'));
    EXPECT_THAT(bodyLines(9, body), ElementsAreArray(five));
}

TEST(ClientLogTest, OnlySixtyFourChunksAreLoggedAtVerbosityNine) {
    const Texts lines = bodyLines(9, std::string(70000, 'x'));
    ASSERT_EQ(lines.size(), 64U);
    EXPECT_EQ(lines.front(), " Body[1/69]: " + std::string(1024, 'x'));
    EXPECT_EQ(lines.back(), " Body[64/69]: " + std::string(1024, 'x'));
}

TEST(ClientLogTest, SixtyFourChunksAreLoggedWhole) {
    const Texts lines = bodyLines(9, std::string(64 * 1024 - 1, 'x'));
    ASSERT_EQ(lines.size(), 64U);
    EXPECT_EQ(lines.back(), " Body[64/64]: " + std::string(1023, 'x'));
}

TEST(ClientLogTest, ThreeContentTypesAreFoundAnywhereInAnyLetterCase) {
    for (const char* const type : {"application/json", "Application/JSON; charset=utf-8", "text/HTML",
                                   "application/x-www-form-urlencoded", "multipart/mixed; text/html", "xtext/htmlx"}) {
        EXPECT_THAT(bodyLines(4, "text", type), ElementsAre(" Body: text")) << type;
    }
}

TEST(ClientLogTest, OtherContentTypesNeverShowTheirBody) {
    for (const char* const type : {"application/octet-stream", "text/xml; charset=utf-8", "text/plain", ""}) {
        for (const int verbosity : {4, 9}) EXPECT_THAT(bodyLines(verbosity, "text", type), IsEmpty()) << type;
    }
}

TEST(ClientLogTest, WithoutAContentTypeOnlyHeadersAreLogged) {
    EXPECT_THAT(responseLines(9, {404, {{"Location", "/there"}}, "text"}, withMode(Mode::all_payload)),
                ElementsAre(tagged(" <= 404"), " Location: /there"));
}

TEST(ClientLogTest, TheNameOfTheContentTypeIsFoundInAnyLetterCase) {
    EXPECT_THAT(responseLines(4, {404, {{"cONTENT-tYPE", Json}}, "{}"}), ElementsAre(tagged(" <= 404"), " Body: {}"));
}

// --- filters ---

TEST(ClientLogTest, FiltersRewriteUrlHeadersAndBodies) {
    LogFilter filter;
    filter.url_filter = [](const std::string& url) { return "filtered " + url; };
    filter.request_body_filter = [](const std::string& body) { return "sent " + body; };
    filter.response_body_filter = [](const std::string& body) { return "received " + body; };
    filter.header_filter = [](const HeaderMap& headers) {
        return replace_header_value(headers, "Warning", "filtered");
    };
    const HeaderMap headers = {{"Warning", "secret"}, {"Content-Type", Json}};
    EXPECT_THAT(requestLines(9, requestWith(headers, "body"), filter),
                ElementsAre(tagged(" => 0 filtered http://host/path"), " Warning: filtered", " Body: sent body"));
    EXPECT_THAT(responseLines(9, {200, headers, "body"}, filter),
                ElementsAre(tagged(" <= 200"), " Warning: filtered", " Body: received body"));
}

TEST(ClientLogTest, AHeaderFilterCanNotLetOtherHeadersOut) {
    LogFilter filter;
    filter.header_filter = [](const HeaderMap&) {
        return HeaderMap{{"Authorization", "secret"}, {"Set-Cookie", "secret"}, {"Warning", "added"}};
    };
    EXPECT_THAT(requestLines(9, requestWith({}, ""), filter),
                ElementsAre(tagged(" => 0 http://host/path"), " Warning: added"));
    EXPECT_THAT(responseLines(9, {200, {}, ""}, filter), ElementsAre(tagged(" <= 200"), " Warning: added"));
}

TEST(ClientLogTest, TheContentTypeIsThatBeforeTheHeaderFilter) {
    LogFilter filter = withMode(Mode::all_payload);
    filter.header_filter = [](const HeaderMap&) { return HeaderMap{}; };
    EXPECT_THAT(responseLines(4, {200, {{"Content-Type", Json}}, "{}"}, filter),
                ElementsAre(tagged(" <= 200"), " Body: {}"));
    filter.header_filter = [](const HeaderMap&) { return HeaderMap{{"Content-Type", Json}}; };
    EXPECT_THAT(responseLines(4, {200, {}, "{}"}, filter), ElementsAre(tagged(" <= 200")));
}

TEST(ClientLogTest, ABodyIsCutIntoChunksBehindItsFilter) {
    LogFilter filter = withMode(Mode::all_payload);
    filter.response_body_filter = [](const std::string&) { return std::string(1024, 'y'); };
    EXPECT_THAT(responseLines(4, {200, {{"Content-Type", Json}}, "short"}, filter),
                ElementsAre(tagged(" <= 200"), " Body[1/2]: " + std::string(1024, 'y'), " Body[2/2]: "));
}

TEST(ClientLogTest, FiltersAreNotAskedForWhatIsNotLogged) {
    int calls = 0;
    LogFilter filter;
    const auto count = [&calls](const std::string& text) {
        ++calls;
        return text;
    };
    filter.url_filter = filter.request_body_filter = filter.response_body_filter = count;
    filter.header_filter = [&calls](const HeaderMap& headers) {
        ++calls;
        return headers;
    };
    const HeaderMap headers = {{"Content-Type", Json}};
    requestLines(0, requestWith(headers, "{}"), filter);
    responseLines(0, {404, headers, "{}"}, filter);
    filter.mode = Mode::silent;
    requestLines(9, requestWith(headers, "{}"), filter);
    responseLines(9, {404, headers, "{}"}, filter);
    EXPECT_EQ(calls, 0);
}

// --- errors and cancellations ---

TEST(ClientLogTest, AnErrorIsToldAtLevelOneWithItsNumberAndText) {
    const LogCapture log(LoggerName, 1);
    log_error(logger(), Id, {ClientFailure::Timeout, "Too late {}"}, {});
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, 1);
    EXPECT_EQ(log.lines()[0].text, tagged(" Error: 3 (Too late {})"));
}

TEST(ClientLogTest, AnErrorWithoutATextIsToldWithoutBrackets) {
    const LogCapture log(LoggerName, 9);
    log_error(logger(), Id, {ClientFailure::RangeError, ""}, {});
    EXPECT_THAT(log.texts(), ElementsAre(tagged(" Error: 7")));
}

TEST(ClientLogTest, ACancellationIsToldAtLevelFour) {
    const LogCapture log(LoggerName, 4);
    log_cancel(logger(), Id, {});
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, 4);
    EXPECT_EQ(log.lines()[0].text, tagged(" Cancelling"));
}

TEST(ClientLogTest, ASilentLoggerIsToldNoError) {
    const LogCapture log(LoggerName, 0);
    log_error(logger(), Id, {ClientFailure::Other, "text"}, {});
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ClientLogTest, ALoggerBelowLevelFourIsToldNoCancellation) {
    const LogCapture log(LoggerName, 3);
    log_cancel(logger(), Id, {});
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ClientLogTest, ErrorsAndCancellationsAreSilentInSilentModeOnly) {
    for (const Mode mode : {Mode::standard, Mode::request_payload, Mode::all_payload, Mode::quiet_payload}) {
        const LogCapture log(LoggerName, 9);
        log_error(logger(), Id, {ClientFailure::Other, ""}, withMode(mode));
        log_cancel(logger(), Id, withMode(mode));
        EXPECT_THAT(log.texts(), ElementsAre(tagged(" Error: 2"), tagged(" Cancelling")));
    }
    const LogCapture log(LoggerName, 9);
    log_error(logger(), Id, {ClientFailure::Other, ""}, withMode(Mode::silent));
    log_cancel(logger(), Id, withMode(Mode::silent));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ClientLogTest, TheThreadTagIsTheStandardHashOfTheThread) {
    std::thread([] { EXPECT_EQ(thread_tag(), std::hash<std::thread::id>{}(std::this_thread::get_id())); }).join();
    EXPECT_EQ(thread_tag(), std::hash<std::thread::id>{}(std::this_thread::get_id()));
}

// --- replace_header_value ---

TEST(ReplaceHeaderValueTest, TheValueIsReplacedWhateverTheLetterCaseOfTheName) {
    const HeaderMap headers = {{"sET-cOOKIE", "secret"}, {"Other", "stays"}};
    const HeaderMap replaced = replace_header_value(headers, "Set-Cookie", "<concealed>");
    EXPECT_THAT(replaced,
                UnorderedElementsAre(testing::Pair("sET-cOOKIE", "<concealed>"), testing::Pair("Other", "stays")));
    EXPECT_EQ(headers.at("Set-Cookie"), "secret");
}

TEST(ReplaceHeaderValueTest, AMissingNameIsNotAdded) {
    const HeaderMap headers = {{"Other", "stays"}};
    EXPECT_EQ(replace_header_value(headers, "Set-Cookie", "<concealed>"), headers);
    EXPECT_THAT(replace_header_value({}, "Set-Cookie", "<concealed>"), IsEmpty());
}

}  // namespace
}  // namespace kel::http
