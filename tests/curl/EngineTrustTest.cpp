// SPDX-License-Identifier: MIT
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <tuple>

#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "support/FileDescriptor.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/Sockets.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using ::testing::StartsWith;

const std::string NotTrusted = "failure 2: " + std::string(curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));

// How often a file in a folder has been opened, by whatever path.
class OpeningsOf {
 public:
    OpeningsOf(const std::string& folder, std::string name)
        : watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), name_(std::move(name)) {
        if (watch_.get() < 0 || inotify_add_watch(watch_.get(), folder.c_str(), IN_OPEN) < 0) {
            throwErrno(folder.c_str());
        }
    }

    // Since the last call.
    std::size_t count() {
        std::size_t openings = 0;
        std::array<char, 65536> bytes;
        for (ssize_t size = 0; (size = read(watch_.get(), bytes.data(), bytes.size())) > 0;) {
            for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
                inotify_event event{};
                std::memcpy(&event, bytes.data() + at, sizeof(event));
                if (event.len > 0 && name_ == bytes.data() + at + sizeof(event)) ++openings;
                at += sizeof(event) + event.len;
            }
        }
        return openings;
    }

 private:
    FileDescriptor watch_;
    std::string name_;
};

enum class TrustBy { ca_file, bundle };
// What the server lets clients keep: with sessions alone each request makes a handshake.
enum class Kept { connections, sessions };
using TrustCase = std::tuple<TrustBy, Kept>;

std::string nameOfCase(const testing::TestParamInfo<TrustCase>& info) {
    return std::string(std::get<0>(info.param) == TrustBy::bundle ? "Bundle" : "CaFile") +
           (std::get<1>(info.param) == Kept::connections ? "Connections" : "Sessions");
}

// A server that says which connection a request came over, and a file of authorities that changes between requests.
class EngineTrustTest : public EngineTest, public testing::WithParamInterface<TrustCase> {
 protected:
    EngineTrustTest() {
        writeWholeFile(path, ours + theirs);
        startEngine();
    }
    ~EngineTrustTest() override { stopEngine(); }

    static bool keepsConnections() { return std::get<1>(GetParam()) == Kept::connections; }
    static NginxServer::Options telling() {
        NginxServer::Options options;
        options.tls = true;
        options.http2 = false;
        options.directives = "ssl_session_cache shared:trust:1m; location = /connection { return 200 $connection; }" +
                             std::string(keepsConnections() ? "" : "keepalive_timeout 0;");
        return options;
    }

    RequestConfig config(const std::string& url) const {
        RequestConfig made;
        made.url = url;
        if (std::get<0>(GetParam()) == TrustBy::ca_file) made.ca_file = path;
        return made;
    }
    static RecordingRequestPtr fetch(const RequestConfig& config) {
        const RecordingRequestPtr made = run(config);
        made->outcome.awaitCount(1);
        return made;
    }
    std::string outcome() const { return fetch(config(nginx.tlsUrl("/connection")))->outcome.events().at(0); }
    // The number of the connection.
    std::string connection() const {
        const auto made = fetch(config(nginx.tlsUrl("/connection")));
        EXPECT_EQ(made->outcome.events().at(0), "end");
        return made->body();
    }
    // The path holds something else now, in a file of its own.
    void replace(const std::string& pem) const {
        writeWholeFile(folder.path("new"), pem);
        ASSERT_EQ(rename(folder.path("new").c_str(), path.c_str()), 0);
    }

    const std::string ours = readWholeFile(TestCertificates::shared().caFile());
    const TestCertificates others;
    const std::string theirs = readWholeFile(others.caFile());
    const TemporaryDirectory folder;
    const std::string path = folder.path("ca.pem");
    const TestHost host{[this](ko::host::Settings& settings) {
        withTestDevice(settings);
        if (std::get<0>(GetParam()) == TrustBy::bundle) settings.ca_bundles["default"] = path;
    }};
    const NginxServer nginx{telling()};
};

INSTANTIATE_TEST_SUITE_P(Cases, EngineTrustTest,
                         testing::Combine(testing::Values(TrustBy::ca_file, TrustBy::bundle),
                                          testing::Values(Kept::connections, Kept::sessions)),
                         nameOfCase);

TEST_P(EngineTrustTest, UnchangedFileIsReadOnceForAll) {
    OpeningsOf openings(folder.path(), "ca.pem");
    const std::string first = connection();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(connection() == first, keepsConnections());
    EXPECT_EQ(openings.count(), 1U);
}

TEST_P(EngineTrustTest, WithdrawnAuthorityIsRefusedFromTheFirstRequestOn) {
    connection();
    writeWholeFile(path, theirs);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(outcome(), NotTrusted) << i;
}

TEST_P(EngineTrustTest, OtherAuthorityInItsPlaceIsTheOnlyOneTrusted) {
    replace(ours);
    connection();
    replace(theirs);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(outcome(), NotTrusted) << i;
    replace(ours);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(outcome(), "end") << i;
}

TEST_P(EngineTrustTest, RemovedFileTrustsNobody) {
    connection();
    unlink(path.c_str());
    for (int i = 0; i < 10; ++i) {
        // Without a bundle no file is named at all.
        const bool is_named = std::get<0>(GetParam()) == TrustBy::ca_file;
        EXPECT_THAT(outcome(), StartsWith(is_named ? "failure 2: error setting certificate" : NotTrusted));
    }
    writeWholeFile(path, theirs);
    EXPECT_EQ(outcome(), NotTrusted);
    writeWholeFile(path, ours);
    connection();
}

TEST_P(EngineTrustTest, RedirectFromAServerWithoutTlsIsNoWayAround) {
    connection();
    writeWholeFile(path, theirs);
    server.onRequest([this](const ReceivedRequest&) { return Reply::redirect(nginx.tlsUrl("/connection")); });
    EXPECT_EQ(fetch(config(server.url()))->outcome.events().at(0), NotTrusted);
}

TEST_P(EngineTrustTest, ReplacedFileIsReadOnceForAll) {
    const std::string before = connection();
    replace(theirs + ours);
    OpeningsOf openings(folder.path(), "ca.pem");
    const std::string first = connection();
    EXPECT_NE(first, before);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(connection() == first, keepsConnections());
    EXPECT_EQ(openings.count(), 1U);
}

TEST_P(EngineTrustTest, RewrittenFileIsReadOnceForAll) {
    connection();
    writeWholeFile(path, theirs + ours);
    OpeningsOf openings(folder.path(), "ca.pem");
    const std::string first = connection();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(connection() == first, keepsConnections());
    EXPECT_EQ(openings.count(), 1U);
}

}  // namespace
}  // namespace kel::http::test
