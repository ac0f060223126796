// SPDX-License-Identifier: MIT
#include <tuple>

#include "client/Arrivals.h"
#include "client/DownloadTest.h"
#include "fixture/TestDevice.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

// A hundred pauses during one download; each is shown to hold the bytes back.
class HundredPausesTest : public DownloadTest {
 protected:
    HundredPausesTest() {
        useDigest([this] { return arrivals.digest(); });
    }
    // The engine's last piece is told to `arrivals`.
    ~HundredPausesTest() override { stopEngine(); }

    // libcurl has bytes in its hands when each pause comes: it offers them again later, and they must not count twice.
    Client::RequestId pauseBetweenPieces(const RequestConfig& config) {
        arrivals.stopAt(1);
        const Client::RequestId id = startDownload(config);
        for (std::size_t times = 1; times <= pauses; ++times) {
            arrivals.awaitStop();
            const std::size_t arrived = arrivals.bytes();
            pause(id);
            if (times < pauses) arrivals.stopAt(arrived + step_size / 2);
            arrivals.goOn();
            drain();
            EXPECT_EQ(arrivals.bytes(), arrived);
            resume(id);
        }
        return id;
    }

    void expectWhole(Client::RequestId id, bool is_resumed) {
        const ResponseData data = responseOf(id);
        EXPECT_EQ(data.status, 200);
        EXPECT_EQ(sha256OfFile(target), sum);
        EXPECT_EQ(data.body, is_resumed ? "" : sum);
        EXPECT_EQ(arrivals.bytes(), whole.size());
    }

    static constexpr std::size_t pauses = 100;
    static constexpr std::size_t step_size = 50000;
    const std::string whole = pattern((pauses + 1) * step_size);
    const std::string sum = sha256Of(whole);
    Arrivals arrivals;
};

enum class Pieces { large, small };

class DownloadPauseTest : public HundredPausesTest, public testing::WithParamInterface<std::tuple<Pieces, bool>> {
 protected:
    static Pieces pieces() { return std::get<0>(GetParam()); }
    static bool resumes() { return std::get<1>(GetParam()); }

    RequestConfig config() const { return resumes() ? resuming() : get(); }

    // A step for each pause, and one more.
    Reply steps() const {
        Reply reply(200);
        if (pieces() == Pieces::small) reply.chunked();
        for (std::size_t step = 0; step <= pauses; ++step) {
            if (step > 0) reply.pause();
            const std::size_t piece = pieces() == Pieces::small ? small_piece : step_size;
            for (std::size_t at = 0; at < step_size; at += piece) {
                reply.body(whole.substr(step * step_size + at, piece));
            }
        }
        return reply;
    }

    // libcurl hands each chunk over by itself.
    static constexpr std::size_t small_piece = 500;
};

TEST_P(DownloadPauseTest, EachHoldsBackWhatTheServerSends) {
    server.enqueue(steps());
    const Client::RequestId id = startDownload(config());
    for (std::size_t arrived = step_size; arrived <= pauses * step_size; arrived += step_size) {
        arrivals.await(arrived);
        pause(id);
        drain();
        server.release();
        server.awaitBodyBytesSent(arrived + step_size);
        drain();
        ASSERT_EQ(arrivals.bytes(), arrived);
        resume(id);
    }
    expectWhole(id, resumes());
}

TEST_P(DownloadPauseTest, EachComesBetweenTwoPiecesThatAreThere) {
    server.enqueue(steps());
    server.release(pauses);
    expectWhole(pauseBetweenPieces(config()), resumes());
}

INSTANTIATE_TEST_SUITE_P(Downloads, DownloadPauseTest,
                         testing::Combine(testing::Values(Pieces::large, Pieces::small), testing::Bool()),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param) == Pieces::large ? "Large" : "Small") +
                                    (std::get<1>(tested.param) ? "Resumed" : "");
                         });

class DownloadPauseOverTlsTest : public HundredPausesTest, public testing::WithParamInterface<bool> {
 protected:
    static NginxServer::Options options() {
        NginxServer::Options options;
        options.tls = true;
        options.http2 = GetParam();
        return options;
    }

    const TestHost host{withTestDevice};
    NginxServer nginx{options()};
};

TEST_P(DownloadPauseOverTlsTest, EachComesBetweenTwoPiecesThatAreThere) {
    nginx.writeFile("f", whole);
    RequestConfig config;
    config.url = nginx.tlsUrl("/f");
    config.tls_verify = false;
    expectWhole(pauseBetweenPieces(config), false);
}

INSTANTIATE_TEST_SUITE_P(Protocols, DownloadPauseOverTlsTest, testing::Bool(),
                         [](const auto& http2) { return http2.param ? "Http2" : "Http1"; });

}  // namespace
}  // namespace kel::http::test
