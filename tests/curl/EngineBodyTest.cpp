// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>

#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string BodyWithZeros("\0a\0\0b\r\n\0", 8);

class EngineBodyTest : public EngineTest {
 protected:
    EngineBodyTest() {
        startEngine();
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
    }

    RequestConfig with(Method method, const std::string& body) {
        RequestConfig config = get();
        config.method = method;
        config.body = body;
        return config;
    }

    RequestConfig uploadOf(const std::string& path) {
        RequestConfig config = with(Method::PUT, path);
        config.body_is_file = true;
        return config;
    }

    RequestConfig formOf(const std::vector<MimePart>& parts) {
        RequestConfig config = with(Method::POST, "");
        config.headers["Content-Type"] = "multipart/form-data";
        config.mime_parts = parts;
        return config;
    }

    RecordingRequestPtr finish(const RequestConfig& config) {
        const auto made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }

    ReceivedRequest received(const RequestConfig& config) {
        EXPECT_THAT(finish(config)->outcome.events(), ElementsAre("end"));
        return server.requests().back();
    }

    TemporaryDirectory directory;
};

// --- bodies in memory ---

TEST_F(EngineBodyTest, EveryMethodIsNamedOnTheWire) {
    EXPECT_EQ(received(with(Method::GET, "")).method, "GET");
    EXPECT_EQ(received(with(Method::POST, "")).method, "POST");
    EXPECT_EQ(received(with(Method::PUT, "")).method, "PUT");
    EXPECT_EQ(received(with(Method::DELETE, "")).method, "DELETE");
    EXPECT_EQ(received(with(Method::PATCH, "")).method, "PATCH");
}

TEST_F(EngineBodyTest, UnknownMethodIsSentAsAGet) {
    EXPECT_EQ(received(with(static_cast<Method>(5), "")).method, "GET");
}

TEST_F(EngineBodyTest, GetSendsNoBody) {
    const ReceivedRequest request = received(with(Method::GET, "body"));
    EXPECT_EQ(request.body, "");
    EXPECT_FALSE(request.header("Content-Length"));
}

TEST_F(EngineBodyTest, BodyWithZeroBytesIsSentWhole) {
    for (const Method method : {Method::POST, Method::PUT, Method::DELETE, Method::PATCH}) {
        const ReceivedRequest request = received(with(method, BodyWithZeros));
        EXPECT_EQ(request.body, BodyWithZeros) << fmt::format("{}", method);
        EXPECT_EQ(request.header("Content-Length"), "8") << fmt::format("{}", method);
    }
}

TEST_F(EngineBodyTest, EmptyBodyIsSentAsOneOfNoBytes) {
    for (const Method method : {Method::POST, Method::PUT, Method::DELETE, Method::PATCH}) {
        const ReceivedRequest request = received(with(method, ""));
        EXPECT_EQ(request.body, "") << fmt::format("{}", method);
        EXPECT_EQ(request.header("Content-Length"), "0") << fmt::format("{}", method);
    }
}

TEST_F(EngineBodyTest, LargeBodyIsSentWhole) {
    std::string body;
    while (body.size() < (4U << 20U)) body += std::to_string(body.size()) + ' ';
    for (const Method method : {Method::POST, Method::PUT, Method::DELETE, Method::PATCH}) {
        EXPECT_TRUE(received(with(method, body)).body == body) << fmt::format("{}", method);
    }
}

TEST_F(EngineBodyTest, WithoutAContentTypeLibcurlNamesOne) {
    RequestConfig config = with(Method::DELETE, "body");
    config.headers.clear();
    EXPECT_EQ(received(config).header("Content-Type"), "application/x-www-form-urlencoded");
}

TEST_F(EngineBodyTest, PutIsSentAgainAfterARedirect) {
    server.enqueue(Reply::redirect("/second", 307));
    const ReceivedRequest request = received(with(Method::PUT, BodyWithZeros));
    EXPECT_EQ(request.target, "/second");
    EXPECT_EQ(request.method, "PUT");
    EXPECT_EQ(request.body, BodyWithZeros);
    EXPECT_EQ(server.requests().at(0).body, BodyWithZeros);
}

TEST_F(EngineBodyTest, PutIsSentAgainForAChallenge) {
    NginxServer::Options options;
    options.directives =
        "location /guarded/ { dav_methods PUT; create_full_put_path on; auth_basic kel; "
        "auth_basic_user_file passwords; }";
    NginxServer nginx(options);
    RequestConfig config = with(Method::PUT, std::string(1U << 20U, 'p'));
    config.url = nginx.url("/guarded/file");
    config.user = NginxServer::AuthUser;
    config.password = NginxServer::AuthPassword;
    for (const AuthMethod method : {AuthMethod::ANY, AuthMethod::BASIC}) {
        config.auth_method = method;
        EXPECT_THAT(finish(config)->outcome.events(), ElementsAre("end"));
        EXPECT_TRUE(nginx.readFile("guarded/file") == config.body);
    }
}

TEST_F(EngineBodyTest, DeleteKeepsItsMethodButNotItsBodyAfterAFoundRedirect) {
    server.enqueue(Reply::redirect("/second", 302));
    const ReceivedRequest request = received(with(Method::DELETE, "body"));
    EXPECT_EQ(request.method, "DELETE");
    EXPECT_EQ(request.body, "");
}

// --- uploads of files ---

TEST_F(EngineBodyTest, FileIsUploaded) {
    std::string bytes;
    while (bytes.size() < (2U << 20U)) bytes += std::to_string(bytes.size()) + BodyWithZeros;
    writeWholeFile(directory.path("file"), bytes);
    const ReceivedRequest request = received(uploadOf(directory.path("file")));
    EXPECT_EQ(request.method, "PUT");
    EXPECT_TRUE(request.body == bytes);
    EXPECT_EQ(request.header("Content-Length"), std::to_string(bytes.size()));
}

// A program that is started meanwhile would keep the file, and the file system it is on, in use.
TEST_F(EngineBodyTest, UploadedFileIsClosedToProgramsThatAreStartedMeanwhile) {
    const std::string path = directory.path("file");
    writeWholeFile(path, std::string(16U << 20U, 'f'));
    server.enqueue(Reply(200).stallBeforeRequestBody());
    const auto request = run(uploadOf(path));
    server.awaitHeaderBlocks(1);
    unsigned int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the iterator's own descriptor may be
        if (std::filesystem::read_symlink(entry.path(), gone) != path) continue;
        ++found;
        EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(found, 1U);
    server.release();
    request->outcome.await("end");
}

TEST_F(EngineBodyTest, EmptyFileIsUploaded) {
    writeWholeFile(directory.path("empty"), "");
    const ReceivedRequest request = received(uploadOf(directory.path("empty")));
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(request.header("Content-Length"), "0");
}

TEST_F(EngineBodyTest, BodyIsAPathForPutOnly) {
    writeWholeFile(directory.path("file"), "bytes");
    RequestConfig config = uploadOf(directory.path("file"));
    config.method = Method::POST;
    EXPECT_EQ(received(config).body, config.body);
}

// Puts a pipe with a byte in it in the place of standard input.
class StandardInput {
 public:
    StandardInput() : original_(dup(STDIN_FILENO)) {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0 || write(ends[1], "i", 1) != 1) abort();
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        writing_ = FileDescriptor(ends[1]);
    }
    ~StandardInput() { dup2(original_.get(), STDIN_FILENO); }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    bool isUntouched() const {
        char byte = 0;
        return read(STDIN_FILENO, &byte, 1) == 1 && byte == 'i';
    }

 private:
    FileDescriptor original_;
    FileDescriptor writing_;
};

TEST_F(EngineBodyTest, MissingFileFailsAndSendsNothing) {
    const StandardInput input;
    const LogCapture log("HttpClient", 1);
    EXPECT_THAT(
        finish(uploadOf("/nonexistent/file"))->outcome.events(),
        ElementsAre("failure 2: Can not open the file '/nonexistent/file' to send it: No such file or directory"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, "HTTPClientCurl fopen failed /nonexistent/file")));
    EXPECT_TRUE(input.isUntouched());
}

TEST_F(EngineBodyTest, FileWhoseNameHoldsAZeroByteIsNotTheOneBeforeIt) {
    writeWholeFile(directory.path("file"), "another's");
    const std::string path = directory.path("file") + std::string("\0.txt", 5);
    EXPECT_THAT(finish(uploadOf(path))->outcome.events(), ElementsAre(StartsWith("failure 2: Can not open the file")));
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineBodyTest, PipeWithoutAWriterFailsAndHoldsNobodyUp) {
    const LogCapture log("HttpClient", 1);
    const std::string pipe = directory.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(finish(uploadOf(pipe))->outcome.events(),
                ElementsAre("failure 2: Can not send '" + pipe + "': it is no regular file"));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_THAT(log.lines(), Contains(EngineLine(1, "HTTPClientCurl failed to get file size for " + pipe + ":")));
}

TEST_F(EngineBodyTest, DirectoryFailsAndSendsNothing) {
    const StandardInput input;
    const LogCapture log("HttpClient", 1);
    EXPECT_THAT(finish(uploadOf(directory.path()))->outcome.events(),
                ElementsAre(StartsWith("failure 2: Can not send")));
    EXPECT_EQ(server.connectionCount(), 0U);
    EXPECT_THAT(log.lines(),
                Contains(EngineLine(1, "HTTPClientCurl failed to get file size for " + directory.path() + ":")));
    EXPECT_TRUE(input.isUntouched());
}

TEST_F(EngineBodyTest, FileThatMustBeSentAgainForAChallengeFails) {
    writeWholeFile(directory.path("file"), std::string(1U << 20U, 'f'));
    for (const AuthMethod method : {AuthMethod::ANY, AuthMethod::BASIC}) {
        server.enqueue(Reply(401).header("WWW-Authenticate", "Basic realm=\"r\""));
        RequestConfig config = uploadOf(directory.path("file"));
        config.user = "user";
        config.auth_method = method;
        const auto request = finish(config);
        EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 2: necessary data rewind")));
        EXPECT_EQ(request->getResponseCode(), 401U);
    }
}

TEST_F(EngineBodyTest, FileThatMustBeSentAgainForARedirectFails) {
    writeWholeFile(directory.path("file"), std::string(1U << 20U, 'f'));
    for (const int status : {301, 302, 307, 308}) {
        server.enqueue(Reply::redirect("/second", status));
        const auto request = finish(uploadOf(directory.path("file")));
        EXPECT_THAT(request->outcome.events(), ElementsAre(StartsWith("failure 2: necessary data rewind"))) << status;
        EXPECT_EQ(request->getResponseCode(), static_cast<unsigned int>(status));
    }
}

// --- forms ---

TEST_F(EngineBodyTest, FormOfDataAndFilesIsSentPartByPart) {
    writeWholeFile(directory.path("file.bin"), "file bytes");
    const std::string path = directory.path("file.bin");
    const LogCapture log("HttpClient", 4);
    const auto config = formOf({{"plain", BodyWithZeros, "", ""},
                                {"typed", "{}", "", "application/json"},
                                {"both", "ignored", path, ""},
                                {"file", "", path, "text/x-own"},
                                {"empty", "", "", ""}});
    const ReceivedRequest request = received(config);
    EXPECT_EQ(request.method, "POST");
    const std::string type = request.header("Content-Type").value_or("");
    ASSERT_THAT(type, StartsWith("multipart/form-data; boundary="));
    const std::string boundary = "--" + type.substr(type.find('=') + 1);
    const std::string head = boundary + "\r\nContent-Disposition: form-data; name=";
    EXPECT_EQ(request.body, head + "\"plain\"\r\n\r\n" + BodyWithZeros + "\r\n" +                       //
                                head + "\"typed\"\r\nContent-Type: application/json\r\n\r\n{}\r\n" +    //
                                head + "\"both\"; filename=\"" + path +                                 //
                                "\"\r\nContent-Type: application/octet-stream\r\n\r\nfile bytes\r\n" +  //
                                head + "\"file\"; filename=\"" + path +                                 //
                                "\"\r\nContent-Type: text/x-own\r\n\r\nfile bytes\r\n" +                //
                                head + "\"empty\"\r\n\r\n\r\n" + boundary + "--\r\n");

    std::vector<CapturedLine> lines = log.lines();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const CapturedLine& line) { return line.text.find("addHTTP") == std::string::npos; }),
                lines.end());
    EXPECT_THAT(lines,
                ElementsAre(EngineLine(4, "addHTTPMethodToRequest mime-name:plain"),
                            EngineLine(4, "addHTTPMethodToRequest mime-data size:8"),
                            EngineLine(4, "addHTTPMethodToRequest mime-name:typed"),
                            EngineLine(4, "addHTTPMethodToRequest mime-data size:2"),
                            EngineLine(4, "addHTTPMethodToRequest mime-name:both"),
                            EngineLine(4, "addHTTPMethodToRequest mime-file name:" + path + ", mime-file size:10"),
                            EngineLine(4, "addHTTPMethodToRequest mime-name:file"),
                            EngineLine(4, "addHTTPMethodToRequest mime-file name:" + path + ", mime-file size:10"),
                            EngineLine(4, "addHTTPMethodToRequest mime-name:empty"),
                            EngineLine(4, "addHTTPMethodToRequest mime-data size:0"),
                            EngineLine(1, "addHTTPMethodToRequest 5 mine parts, total data size 30 bytes")));
}

TEST_F(EngineBodyTest, FormsTotalAloneIsLoggedAtTheLowestLevel) {
    const LogCapture log("HttpClient", 3);
    received(formOf({{"name", "data", "", ""}}));
    EXPECT_THAT(log.texts(), Contains(StartsWith("addHTTPMethodToRequest")).Times(1));
    EXPECT_TRUE(log.contains("addHTTPMethodToRequest 1 mine parts, total data size 4 bytes"));
}

TEST_F(EngineBodyTest, DefaultContentTypeStaysInFrontOfTheFormsBoundary) {
    RequestConfig config = formOf({{"name", "data", "", ""}});
    config.headers = RequestConfig().headers;
    EXPECT_THAT(received(config).header("Content-Type").value_or(""), StartsWith("text/xml; charset=utf-8; boundary="));
    config.headers.clear();
    EXPECT_THAT(received(config).header("Content-Type").value_or(""), StartsWith("multipart/form-data; boundary="));
}

TEST_F(EngineBodyTest, MissingFormFileFailsTheRequest) {
    const LogCapture log("HttpClient", 1);
    const auto request = finish(formOf({{"name", "", "/nonexistent/file", ""}}));
    const std::string text = request->outcome.events().at(0);
    EXPECT_EQ(text, "failure 2: Can not open the file '/nonexistent/file' to send it: No such file or directory");
    EXPECT_FALSE(log.contains("mine parts"));
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineBodyTest, FormFileThatIsNoFileFailsTheRequest) {
    const std::string pipe = directory.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, directory.path(), std::string("/dev/zero")}) {
        EXPECT_THAT(finish(formOf({{"name", "", path, ""}}))->outcome.events(),
                    ElementsAre("failure 2: Can not send '" + path + "': it is no regular file"));
    }
    drain();
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(EngineBodyTest, TypeOfAFormFileIsThatOfItsName) {
    for (const auto& [name, type] : {std::pair("a.txt", "text/plain"), std::pair("a.PNG", "image/png"),
                                     std::pair("a.html", "text/html"), std::pair("a", "application/octet-stream")}) {
        const std::string path = directory.path(name);
        writeWholeFile(path, "content");
        EXPECT_THAT(received(formOf({{"name", "", path, ""}})).body,
                    HasSubstr("filename=\"" + path + "\"\r\nContent-Type: " + type + "\r\n\r\ncontent\r\n"));
    }
}

TEST_F(EngineBodyTest, FormFileIsSentAgainAfterARedirect) {
    writeWholeFile(directory.path("file"), std::string(1U << 20U, 'f'));
    server.enqueue(Reply::redirect("/second", 307));
    const ReceivedRequest request = received(formOf({{"name", "", directory.path("file"), ""}}));
    EXPECT_EQ(request.target, "/second");
    EXPECT_EQ(request.body, server.requests().at(0).body);
}

// More than all buffers on the way hold: much of the file is read only after the server goes on.
constexpr std::size_t Large = 14U << 20U;

void makeLarge(const std::string& path) {
    writeWholeFile(path, "l");
    std::filesystem::resize_file(path, Large);
}

TEST_F(EngineBodyTest, FileThatGrowsIsSentAsItWasAnnounced) {
    const std::string path = directory.path("log");
    for (const bool form : {false, true}) {
        makeLarge(path);
        server.enqueue(Reply(200).stallBeforeRequestBody());
        const std::size_t blocks = server.requests().size() + 1;
        const auto upload = run(form ? formOf({{"name", "", path, ""}}) : uploadOf(path));
        server.awaitHeaderBlocks(blocks);
        std::ofstream(path, std::ios::app) << "GET /smuggled HTTP/1.1\r\nHost: x\r\n\r\n" << std::string(50000, 'm');
        server.release();
        upload->outcome.awaitCount(1);
        EXPECT_THAT(upload->outcome.events(), ElementsAre("end"));
        drain();
        EXPECT_EQ(received(get("/next")).target, "/next");
        const auto requests = server.requests();
        const std::string& body = requests.at(requests.size() - 2).body;
        EXPECT_EQ(body.find("smuggled"), std::string::npos);
        if (!form) {
            EXPECT_EQ(body.size(), Large);
        }
    }
}

TEST_F(EngineBodyTest, FileThatBecomesShorterEndsTheRequestAndIsNamed) {
    const std::string path = directory.path("log");
    for (const bool form : {false, true}) {
        makeLarge(path);
        server.enqueue(Reply(200).stallBeforeRequestBody());
        const auto upload = run(form ? formOf({{"name", "", path, ""}}) : uploadOf(path));
        server.awaitHeaderBlocks(form ? 2 : 1);
        ASSERT_EQ(truncate(path.c_str(), 1000), 0);
        server.release();
        upload->outcome.awaitCount(1);
        EXPECT_THAT(
            upload->outcome.events(),
            ElementsAre(AllOf(StartsWith("failure 2: The file '" + path + "' became shorter while it was sent: "),
                              HasSubstr(" bytes of 14680064 were left"))));
    }
}

TEST_F(EngineBodyTest, FormPartsOfOtherMethodsAreIgnored) {
    for (const Method method : {Method::GET, Method::PUT, Method::DELETE, Method::PATCH}) {
        RequestConfig config = formOf({{"name", "data", "", ""}});
        config.method = method;
        config.body = method == Method::GET ? "" : "body";
        EXPECT_EQ(received(config).body, config.body) << fmt::format("{}", method);
    }
}

TEST_F(EngineBodyTest, FormIsSentAgainAfterARedirect) {
    server.enqueue(Reply::redirect("/second", 307));
    const ReceivedRequest request = received(formOf({{"name", "data", "", ""}}));
    EXPECT_EQ(request.target, "/second");
    EXPECT_EQ(request.body, server.requests().at(0).body);
    EXPECT_THAT(request.body, HasSubstr("data"));
}

}  // namespace
}  // namespace kel::http::test
