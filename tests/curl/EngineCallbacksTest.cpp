// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cstdio>
#include <future>
#include <stdexcept>

#include "curl/LineMatcher.h"
#include "fixture/EngineTest.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The engine's callbacks, called as libcurl does it: on the engine thread, with a handle that is active or not.
class EngineCallbacksTest : public EngineTest {
 protected:
    // Remembers the easy handle of each transfer that is set up.
    class HandleKeeper : public Engine {
     public:
        HandleKeeper() : Engine([](const std::function<void()>& completion) { completion(); }) {}
        ~HandleKeeper() override { stop(); }
        using Engine::stop;
        void addTlsConfig(void* easy, std::shared_ptr<Request> request) override {
            handle = easy;
            Engine::addTlsConfig(easy, request);
        }
        void* handle = nullptr;
    };

    // Runs `work` with the handle of a transfer of `config` whose server does not answer, and what is no handle.
    template <typename Work>
    void withActive(const RequestConfig& config, const Work& work) {
        HandleKeeper keeper;
        request_ = std::make_shared<RecordingRequest>(config);
        request_->onData = on_data;
        request_->runRequest();
        server.awaitHeaderBlocks(1);
        std::promise<void> done;
        keeper.queueRequest([&] {
            work(keeper.handle);
            done.set_value();
        });
        done.get_future().wait();
    }

    RequestConfig put(const std::string& body) {
        RequestConfig config = get();
        config.method = Method::PUT;
        config.body = body;
        return config;
    }

    std::function<int(std::string_view)> on_data;
    RecordingRequestPtr request_;
};

std::string textOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST_F(EngineCallbacksTest, HandleThatIsNotActiveIsOutOfRange) {
    startEngine();
    onEngineThread([] {
        std::array<char, 4> bytes{};
        int other = 0;
        EXPECT_EQ(textOf([&] { Engine::writeHeader(bytes.data(), 1, 4, &other); }), "map::at");
        EXPECT_EQ(textOf([&] { Engine::writeFunction(bytes.data(), 1, 4, &other); }), "map::at");
        EXPECT_EQ(textOf([&] { Engine::putReadFunc(bytes.data(), 1, 4, &other); }), "map::at");
        EXPECT_EQ(textOf([&] { Engine::putSeekFunc(&other, 0, SEEK_SET); }), "map::at");
    });
}

TEST_F(EngineCallbacksTest, ProgressOfAHandleThatIsNotActiveIsIgnored) {
    int other = 0;
    EXPECT_EQ(Engine::downloadProgress(&other, 1, 2, 3, 4), 0);
    startEngine();
    onEngineThread([&other] { EXPECT_EQ(Engine::downloadProgress(&other, 1, 2, 3, 4), 0); });
}

TEST_F(EngineCallbacksTest, HandleThatIsNotActiveHasNoRequest) {
    startEngine();
    onEngineThread([this] {
        int other = 0;
        EXPECT_EQ(engine().lookupRequest(&other), nullptr);
    });
}

TEST_F(EngineCallbacksTest, HeaderIsHandedOverWithTheAddressOfThePeer) {
    withActive(get(), [this](void* easy) {
        request_->hooks.clear();
        std::string line = "X-Answer: 42\r\n";
        EXPECT_EQ(Engine::writeHeader(line.data(), 2, line.size() / 2, easy), line.size());
        EXPECT_THAT(request_->hooks.events(), ElementsAre("header X-Answer: 42", "address " + server.authority()));
    });
}

TEST_F(EngineCallbacksTest, EveryHeaderLineOfEveryResponseIsHandedOverAsItIs) {
    class LineKeeper : public RecordingRequest {
     public:
        using RecordingRequest::RecordingRequest;
        void notifyHeader(std::string_view line) override { lines.add(std::string(line)); }
        EventLog lines;
    };
    startEngine();
    server.enqueue(Reply::redirect("/next").interim(100));
    server.enqueue(Reply(204).badHeader("X-Odd:  two  blanks "));
    const auto request = std::make_shared<LineKeeper>(get());
    request->runRequest();
    request->outcome.await("end");
    EXPECT_THAT(request->lines.events(), ElementsAre("HTTP/1.1 100 Interim\r\n", "\r\n", "HTTP/1.1 302 Moved\r\n",
                                                     "Location: /next\r\n", "Content-Length: 0\r\n", "\r\n",
                                                     "HTTP/1.1 204 Scripted\r\n", "X-Odd:  two  blanks \r\n", "\r\n"));
    EXPECT_EQ(request->hooks.count("address " + server.authority()), request->lines.count());
}

TEST_F(EngineCallbacksTest, EachHopIsToldWithItsOwnAddress) {
    startEngine();
    ScriptedServer second;
    server.enqueue(Reply::redirect(second.url("/next")));
    second.enqueue(Reply(200));
    const auto request = run(get());
    request->outcome.await("end");
    std::vector<std::string> events = request->hooks.events();
    const auto other = [](const std::string& event) {
        return event.rfind("header ", 0) != 0 && event.rfind("address ", 0) != 0;
    };
    events.erase(std::remove_if(events.begin(), events.end(), other), events.end());
    const std::string from_first = "address " + server.authority();
    const std::string from_second = "address " + second.authority();
    EXPECT_THAT(events, ElementsAre("header HTTP/1.1 302 Moved", from_first, "header Location: " + second.url("/next"),
                                    from_first, "header Content-Length: 0", from_first, "header ", from_first,
                                    "header HTTP/1.1 200 OK", from_second, "header Content-Length: 0", from_second,
                                    "header ", from_second));
}

TEST_F(EngineCallbacksTest, BodyIsHandedOverWithoutACopy) {
    std::string bytes = "body bytes";
    const char* seen = nullptr;
    on_data = [&seen](std::string_view data) {
        seen = data.data();
        return 0;
    };
    withActive(get(), [&](void* easy) {
        EXPECT_EQ(Engine::writeFunction(bytes.data(), 5, 2, easy), 10U);
        EXPECT_EQ(seen, bytes.data());
        EXPECT_EQ(request_->body(), "body bytes");
    });
}

TEST_F(EngineCallbacksTest, AnswerOfOnePausesAndOthersDoNot) {
    int answer = 1;
    on_data = [&answer](std::string_view) { return answer; };
    withActive(get(), [&answer](void* easy) {
        std::array<char, 4> bytes{};
        EXPECT_EQ(Engine::writeFunction(bytes.data(), 1, 4, easy), static_cast<std::size_t>(CURL_WRITEFUNC_PAUSE));
        for (answer = -1; answer <= 4; answer += answer == 0 ? 2 : 1) {
            EXPECT_EQ(Engine::writeFunction(bytes.data(), 1, 4, easy), 4U) << answer;
        }
    });
}

TEST_F(EngineCallbacksTest, ReceiverThatFailsRefusesTheBytesAndIsLogged) {
    LogCapture log("HttpClient", 1);
    on_data = [](std::string_view) -> int { throw std::runtime_error("disk full"); };
    withActive(get(), [&log](void* easy) {
        log.clear();
        std::array<char, 4> bytes{};
        EXPECT_EQ(Engine::writeFunction(bytes.data(), 1, 4, easy), 0U);
        EXPECT_THAT(log.lines(), ElementsAre(EngineLine(1, "writeFunction: Receiving data failed: 'disk full'")));
    });
}

TEST_F(EngineCallbacksTest, OtherExceptionsOfTheReceiverEndItsTransferToo) {
    on_data = [](std::string_view) -> int { throw std::logic_error("bug"); };
    withActive(get(), [](void* easy) {
        std::array<char, 4> bytes{};
        EXPECT_EQ(Engine::writeFunction(bytes.data(), 1, 4, easy), 0U);
    });
}

TEST_F(EngineCallbacksTest, FailingReceiverEndsTheTransferWithAPlainText) {
    startEngine();
    server.enqueue(Reply(200).body("first half").stallBeforeEnd());
    const auto request = this->request(get());
    request->onData = [](std::string_view) -> int { throw std::runtime_error("disk full"); };
    request->runRequest();
    request->outcome.awaitCount(1);
    EXPECT_THAT(request->outcome.events(),
                ElementsAre("failure 7: " + std::string(curl_easy_strerror(CURLE_WRITE_ERROR))));
    EXPECT_EQ(request->getResponseCode(), 200U);
}

TEST_F(EngineCallbacksTest, UploadIsReadPieceByPieceAndSought) {
    server.enqueue(Reply(200).stallBeforeRequestBody());
    RequestConfig config = put("");
    config.body.assign(16U << 20U, 'x');
    const auto size = static_cast<curl_off_t>(config.body.size());
    withActive(config, [size](void* easy) {
        std::array<char, 10> buffer{};
        EXPECT_EQ(Engine::putSeekFunc(easy, size - 12, SEEK_SET), CURL_SEEKFUNC_OK);
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 2, 5, easy), 10U);
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 10, easy), 2U);
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 10, easy), 0U);
        EXPECT_EQ(Engine::putSeekFunc(easy, size, SEEK_SET), CURL_SEEKFUNC_OK);
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 10, easy), 0U);
        EXPECT_EQ(Engine::putSeekFunc(easy, 0, SEEK_SET), CURL_SEEKFUNC_OK);
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 1, easy), 1U);
        EXPECT_EQ(buffer[0], 'x');
    });
}

TEST_F(EngineCallbacksTest, SeekThatCanNotBeHonouredFailsAndMovesNothing) {
    server.enqueue(Reply(200).stallBeforeRequestBody());
    RequestConfig config = put("");
    config.body.assign(16U << 20U, 'x');
    const auto size = static_cast<curl_off_t>(config.body.size());
    withActive(config, [size](void* easy) {
        EXPECT_EQ(Engine::putSeekFunc(easy, size - 3, SEEK_SET), CURL_SEEKFUNC_OK);
        for (const int origin : {SEEK_CUR, SEEK_END}) {
            EXPECT_EQ(Engine::putSeekFunc(easy, 0, origin), CURL_SEEKFUNC_FAIL);
            EXPECT_EQ(Engine::putSeekFunc(easy, 1, origin), CURL_SEEKFUNC_FAIL);
        }
        EXPECT_EQ(Engine::putSeekFunc(easy, -1, SEEK_SET), CURL_SEEKFUNC_FAIL);
        EXPECT_EQ(Engine::putSeekFunc(easy, size + 1, SEEK_SET), CURL_SEEKFUNC_FAIL);
        EXPECT_EQ(Engine::putSeekFunc(easy, curl_off_t{1} << 40, SEEK_SET), CURL_SEEKFUNC_FAIL);
        std::array<char, 10> buffer{};
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 10, easy), 3U);
    });
}

TEST_F(EngineCallbacksTest, EmptyUploadIsAtItsEndAtOnce) {
    withActive(put(""), [](void* easy) {
        std::array<char, 10> buffer{};
        EXPECT_EQ(Engine::putReadFunc(buffer.data(), 1, 10, easy), 0U);
        EXPECT_EQ(Engine::putSeekFunc(easy, 0, SEEK_SET), CURL_SEEKFUNC_OK);
        EXPECT_EQ(Engine::putSeekFunc(easy, 1, SEEK_SET), CURL_SEEKFUNC_FAIL);
    });
}

TEST_F(EngineCallbacksTest, FileIsReadAsFreadDoes) {
    std::FILE* const file = std::tmpfile();
    std::fputs("0123456789", file);
    std::rewind(file);
    std::array<char, 8> buffer{};
    EXPECT_EQ(Engine::putReadFile(buffer.data(), 1, 8, file), 8U);
    EXPECT_EQ(std::string(buffer.data(), 8), "01234567");
    EXPECT_EQ(Engine::putReadFile(buffer.data(), 1, 8, file), 2U);
    EXPECT_EQ(Engine::putReadFile(buffer.data(), 1, 8, file), 0U);
    std::fclose(file);
}

TEST_F(EngineCallbacksTest, ProgressIsReportedCutTo32BitsAndUploadsAreLeftOut) {
    withActive(get(), [this](void* easy) {
        request_->hooks.clear();
        constexpr curl_off_t beyond = curl_off_t{1} << 32;
        EXPECT_EQ(Engine::downloadProgress(easy, 100, 7, 50, 9), 0);
        EXPECT_EQ(Engine::downloadProgress(easy, beyond + 5, beyond + 3, 0, 0), 0);
        EXPECT_EQ(Engine::downloadProgress(easy, 0, 0, 0, 0), 0);
        EXPECT_THAT(request_->hooks.events(), ElementsAre("progress 7/100", "progress 3/5", "progress 0/0"));
        request_->lastDownloadProgress = 0;
    });
}

TEST_F(EngineCallbacksTest, EngineThatEndsReportsNothingAndTracesUnderNobodysId) {
    HandleKeeper keeper;
    const auto request = run(get());
    server.awaitRequests(1);
    keeper.stop();
    request->hooks.clear();
    EXPECT_EQ(Engine::downloadProgress(keeper.handle, 10, 5, 0, 0), 0);
    EXPECT_THAT(request->hooks.events(), IsEmpty());

    const LogCapture log("HttpClient", 9);
    std::string text = "last words";
    Engine::traceTransfer(keeper.handle, CURLINFO_TEXT, text.data(), text.size(), logging::getLogger("HttpClient", 0));
    EXPECT_THAT(log.lines(), ElementsAre(EngineLine(4, "(0) [curl] last words")));
}

TEST_F(EngineCallbacksTest, SocketsAreWelcome) {
    startEngine();
    EXPECT_EQ(Engine::watchSocket(&engine(), 5, CURLSOCKTYPE_IPCXN), CURL_SOCKOPT_OK);
}

}  // namespace
}  // namespace kel::http::test
