// SPDX-License-Identifier: MIT
// The set-up of a transfer, and of its TLS, on their own: what libcurl is told, and nothing that runs.
#include <algorithm>
#include <stdexcept>

#include "curl/Interposed.h"
#include "fixture/EngineTest.h"
#include "kel-http/curl/EngineSetup.h"
#include "kel-http/curl/EngineTls.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;

class InterposedSetupTest : public EngineTest {
 protected:
    InterposedSetupTest() {
        startEngine();
        onEngineThread([] {});
        cookies.open();
        interposed.forgetOptions();
    }
    ~InterposedSetupTest() override {
        task.reset();
        cookies.close();
        stopEngine();
    }

    void prepare(const RequestConfig& config) {
        task = std::make_shared<Engine::ActiveTask>(request(config));
        EngineSetup(engine(), sockets, cookies, body, proxy, logger).prepare(task);
    }

    // The names of the options that libcurl was told, in order.
    std::vector<std::string> names() const {
        std::vector<std::string> found = interposed.options();
        for (std::string& option : found) option.resize(option.find('='));
        return found;
    }

    Interposed interposed;
    logging::Logger& logger = *logging::getLogger("HttpClient", 0);
    SocketEvents sockets;
    EngineCookies cookies{logger};
    const EngineBody body{logger};
    EngineProxy proxy{&std::chrono::steady_clock::now, logger};
    TaskPtr task;
};

TEST_F(InterposedSetupTest, StepsFollowOneAnother) {
    RequestConfig config = get();
    config.timeout = std::chrono::seconds(1);
    config.user = "user";
    prepare(config);
    const std::vector<std::string> told = names();
    auto place = told.begin();
    for (const char* const option :
         {"CURLOPT_ERRORBUFFER", "CURLOPT_URL", "CURLOPT_FOLLOWLOCATION", "CURLOPT_NOPROGRESS", "CURLOPT_TIMEOUT_MS",
          "CURLOPT_SHARE", "CURLOPT_USERNAME", "CURLOPT_HTTPHEADER", "CURLOPT_SSLVERSION", "CURLOPT_IPRESOLVE"}) {
        place = std::find(place, told.end(), option);
        EXPECT_NE(place, told.end()) << option;
    }
}

TEST_F(InterposedSetupTest, FaultInAHeaderEndsItBeforeTls) {
    RequestConfig config = get();
    config.headers = {{"X-Bad", "a\r\nb"}};
    EXPECT_THROW(prepare(config), std::invalid_argument);
    EXPECT_THAT(names(), Contains("CURLOPT_URL"));
    EXPECT_THAT(names(), Not(Contains("CURLOPT_SSLVERSION")));
}

TEST_F(InterposedSetupTest, TlsOfAnUnverifiedPeer) {
    RequestConfig config = get();
    config.tls_verify = false;
    const auto owner = request(config);
    CURL* const easy = curl_easy_init();
    interposed.forgetOptions();
    EngineTls(logger).addTlsConfig(easy, *owner);
    EXPECT_THAT(interposed.options(),
                ElementsAre("CURLOPT_SSLVERSION=" + std::to_string(CURL_SSLVERSION_TLSv1_1), "CURLOPT_SSL_CTX_DATA=set",
                            "CURLOPT_SSL_CTX_FUNCTION=set", "CURLOPT_SSL_VERIFYHOST=0", "CURLOPT_SSL_VERIFYPEER=0",
                            "CURLOPT_SSL_SESSIONID_CACHE=0"));
    curl_easy_cleanup(easy);
}

TEST_F(InterposedSetupTest, TlsWithoutAFileTrustsNobody) {
    RequestConfig config = get();
    config.ca_file = "";
    const auto owner = request(config);
    CURL* const easy = curl_easy_init();
    interposed.forgetOptions();
    EngineTls(logger).addTlsConfig(easy, *owner);
    EXPECT_THAT(interposed.options(), Contains("CURLOPT_CAINFO=null"));
    EXPECT_THAT(interposed.options(), Contains("CURLOPT_SSL_VERIFYPEER=1"));
    EXPECT_THAT(interposed.options(), Not(Contains(StartsWith("CURLOPT_FRESH_CONNECT"))));
    curl_easy_cleanup(easy);
}

}  // namespace
}  // namespace kel::http::test
